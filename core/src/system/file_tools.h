// Search paths, file extensions and folder listings.
#ifndef RV_SYSTEM_FILE_TOOLS_H
#define RV_SYSTEM_FILE_TOOLS_H

#include <stddef.h>
#include <stdio.h>

// Copies the next entry of a ';'-separated search path into path (size bytes, longer entries are
// cut) and returns the number of characters consumed; 0 at the end.
size_t RvNextPath(const char* multipath, char* path, size_t size);

// True when filename ends in ".ext", or with allow_gz in ".ext.gz". Letter case is ignored.
bool RvCheckFileExtension(const char* filename, const char* ext, bool allow_gz);

// At most 256 paths of the files in directory whose names end in ".extension", in the order the
// system reports them. One allocation, freed with RvFree_func; count receives their number.
char** RvFindFiles(const char* directory, const char* extension, unsigned* count);

namespace rv {

// The same, without the entries that do not fit: a cut one would name another folder.
size_t nextWholePath(const char* multipath, char* path, size_t size);

bool isFolder(const char* path);

// A pipe from ("r") or to ("w") a shell command; null when there is none to be had.
FILE* openPipe(const char* command, const char* mode);
// What the command returned, 0 for success.
int closePipe(FILE* pipe);

} // namespace rv

#endif
