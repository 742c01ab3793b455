// Search paths and where names lead.
#include "scene_paths.h"
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace ruvell {

std::string systemError() { return std::strerror(errno); }

bool exists(const std::string& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0;
}

bool isRegularFile(const std::string& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool isFolder(const std::string& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isDanglingLink(const std::string& path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode) && !exists(path);
}

std::string realPath(const std::string& path)
{
    std::error_code error;
    const std::filesystem::path whole = std::filesystem::absolute(path, error);
    const std::filesystem::path real = std::filesystem::weakly_canonical(whole, error);
    return error ? whole.lexically_normal().string() : real.string();
}

std::string folderOf(const std::string& path)
{
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool isInside(const std::string& path, const std::string& folder)
{
    if (folder == "/" || path == folder)
        return true;
    return path.starts_with(folder) && path[folder.size()] == '/';
}

static std::vector<std::string> splitPath(const std::string& list, const char* separators)
{
    std::vector<std::string> entries;
    for (size_t start = 0; start < list.size();) {
        const size_t end = std::min(list.find_first_of(separators, start), list.size());
        if (end > start)
            entries.push_back(list.substr(start, end - start));
        start = end + 1;
    }
    return entries;
}

std::vector<std::string> searchPathEntries(const std::string& list) { return splitPath(list, ";"); }

std::vector<std::string> texturePathEntries(const std::string& list)
{
    return splitPath(list, ";:");
}

std::string joinPath(const std::string& folder, const std::string& name)
{
    const char last = folder.empty() ? '\0' : folder.back();
    return folder + (last == '/' || last == '\\' ? "" : "/") + name;
}

std::string firstExisting(const std::vector<std::string>& paths)
{
    const auto found = std::find_if(paths.begin(), paths.end(), exists);
    return found == paths.end() ? "" : *found;
}

std::string firstReadable(const std::vector<std::string>& paths)
{
    const auto found = std::find_if(paths.begin(), paths.end(), [](const std::string& path) {
        return access(path.c_str(), R_OK) == 0 && !isFolder(path);
    });
    return found == paths.end() ? "" : *found;
}

std::vector<std::string> sceneCandidates(const std::string& name, const std::string& search_path)
{
    std::vector<std::string> paths = { name, name + ".gz" };
    for (const char* suffix : { "", ".gz" })
        for (const std::string& entry : searchPathEntries(search_path))
            paths.push_back(joinPath(entry, name) + suffix);
    return paths;
}

static bool endsWith(const std::string& text, const std::string& end)
{
    return text.size() > end.size() &&
           std::equal(end.rbegin(), end.rend(), text.rbegin(), [](char a, char b) {
               return std::tolower(static_cast<unsigned char>(a)) ==
                      std::tolower(static_cast<unsigned char>(b));
           });
}

bool hasExtension(const std::string& name, const std::string& extension, bool allow_gz)
{
    return endsWith(name, "." + extension) || (allow_gz && endsWith(name, "." + extension + ".gz"));
}

} // namespace ruvell
