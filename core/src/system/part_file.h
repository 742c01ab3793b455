// Files that appear whole or not at all: they grow under a hidden name in the folder of their
// place and are renamed when they are finished.
//
// Parts that are under way when the process ends by quick_exit() are removed. A handler of a signal
// may call that, so a host can be interrupted without leaving any behind.
#ifndef RV_SYSTEM_PART_FILE_H
#define RV_SYSTEM_PART_FILE_H

#include <filesystem>
#include <stdio.h>
#include <string>

namespace rv {

// Where a file really lies, independent of the current folder. Links keep pointing at it, also one
// whose target does not exist yet.
std::filesystem::path placeOf(const std::string& name);

// True for a place without a file, and for a file that could be written to.
bool isReplaceable(const std::filesystem::path& place);

// A new file in the same folder, under a name that no one uses and that ends in `extension`. It has
// the permissions of the file that it is to replace. Null when there can be none, see errno.
FILE* createPart(const std::filesystem::path& place, const std::string& extension,
                 std::filesystem::path* part);

// Gives a part that is closed its place. False after an error, see errno; the part is left.
bool movePart(const std::filesystem::path& part, const std::filesystem::path& place);

// The same once all of it is on the disk: a crash leaves the older file or the new one, whole.
bool finishPart(const std::filesystem::path& part, const std::filesystem::path& place);

// Removes a part that will not be finished.
void removePart(const std::filesystem::path& part);

} // namespace rv

#endif
