// Names of files in scenes: search paths, extensions, and where a name really leads.
#ifndef RUVELL_SCENE_PATHS_H
#define RUVELL_SCENE_PATHS_H

#include <string>
#include <vector>

namespace ruvell {

// The text for errno.
std::string systemError();

bool isRegularFile(const std::string& path);
bool isFolder(const std::string& path);
bool exists(const std::string& path);
bool isDanglingLink(const std::string& path);

// Absolute, with symbolic links followed as far as the path exists.
std::string realPath(const std::string& path);
// The folder a file is in, "." for a bare name.
std::string folderOf(const std::string& path);
// Whether a real path is that folder or lies in it.
bool isInside(const std::string& path, const std::string& folder);

// The entries of a ";"-separated list.
std::vector<std::string> searchPathEntries(const std::string& list);
// The same of the search path for textures, which the texture system splits at ":" as well.
std::vector<std::string> texturePathEntries(const std::string& list);
// Folder, a slash unless it ends in one, name.
std::string joinPath(const std::string& folder, const std::string& name);
// The first of these paths that exists, empty when none does.
std::string firstExisting(const std::vector<std::string>& paths);
// The first that is a file to be read.
std::string firstReadable(const std::vector<std::string>& paths);

// Where the scene reader looks for a file, in this order.
std::vector<std::string> sceneCandidates(const std::string& name, const std::string& search_path);

// Whether the name ends in ".ext", or with allow_gz in ".ext.gz"; letter case does not matter.
bool hasExtension(const std::string& name, const std::string& extension, bool allow_gz);

} // namespace ruvell

#endif
