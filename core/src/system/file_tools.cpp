// file_tools: search paths, file extensions and folder listings.
#include "system/file_tools.h"

#include "rv_memory.h"

#include <dirent.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

size_t RvNextPath(const char* multipath, char* path, size_t size)
{
    if (size > 0)
        path[0] = '\0';
    if (!multipath)
        return 0;
    const size_t separators = strspn(multipath, ";");
    const char* const entry = multipath + separators;
    const size_t length = strcspn(entry, ";");
    if (length == 0)
        return 0;
    if (size > 0) {
        const size_t kept = length < size ? length : size - 1;
        memcpy(path, entry, kept);
        path[kept] = '\0';
    }
    return separators + length;
}

size_t rv::nextWholePath(const char* multipath, char* path, size_t size)
{
    size_t consumed = 0;
    while (const size_t step = RvNextPath(multipath + consumed, path, size)) {
        const size_t length = step - strspn(multipath + consumed, ";");
        consumed += step;
        if (length < size)
            return consumed;
    }
    return 0;
}

// ASCII only: the host's locale must not decide which files are scenes.
static char lowered(char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; }

static bool equalIgnoringCase(const char* text, size_t length, const char* other)
{
    size_t i = 0;
    while (i < length && other[i] && lowered(text[i]) == lowered(other[i]))
        ++i;
    return i == length && !other[i];
}

// The last dot in the first `length` characters, or null.
static const char* lastDot(const char* text, size_t length)
{
    while (length > 0 && text[length - 1] != '.')
        --length;
    return length > 0 ? text + length - 1 : nullptr;
}

bool RvCheckFileExtension(const char* filename, const char* ext, bool allow_gz)
{
    if (!filename || !ext)
        return false;
    const char* end = filename + strlen(filename);
    const char* dot = lastDot(filename, size_t(end - filename));
    if (!dot)
        return false;
    if (equalIgnoringCase(dot + 1, size_t(end - dot - 1), ext))
        return true;
    if (!allow_gz || !equalIgnoringCase(dot + 1, size_t(end - dot - 1), "gz"))
        return false;
    end = dot;
    dot = lastDot(filename, size_t(end - filename));
    return dot && equalIgnoringCase(dot + 1, size_t(end - dot - 1), ext);
}

static constexpr unsigned found_capacity = 256;
static constexpr unsigned path_bytes = 1024;

namespace {

struct FoundFiles {
    char* paths[found_capacity];
    char texts[found_capacity][path_bytes];
};

} // namespace
static_assert(sizeof(FoundFiles) == 264192);

// Whether the name has the form "*.extension"; the extension may hold dots of its own.
static bool nameMatches(const char* name, const char* extension)
{
    const size_t length = strlen(name), extension_length = strlen(extension);
    if (length <= extension_length)
        return false;
    const char* const dot = name + length - extension_length - 1;
    return *dot == '.' && strcmp(dot + 1, extension) == 0;
}

char** RvFindFiles(const char* directory, const char* extension, unsigned* count)
{
    *count = 0;
    if (!directory || !extension)
        return nullptr;
    auto* const found = static_cast<FoundFiles*>(RvMalloc_func(
        sizeof(FoundFiles), "core\\src\\system\\file_tools", __LINE__, "RvFindFiles"));
    if (!found)
        return nullptr;
    DIR* const folder = opendir(directory);
    while (folder && *count < found_capacity) {
        const dirent* const item = readdir(folder);
        if (!item)
            break;
        if (!nameMatches(item->d_name, extension))
            continue;
        char* const path = found->texts[*count];
        const int length = snprintf(path, path_bytes, "%s/%s", directory, item->d_name);
        if (unsigned(length) >= path_bytes || rv::isFolder(path)) // a cut path names another file
            continue;
        found->paths[(*count)++] = path;
    }
    if (folder)
        closedir(folder);
    return found->paths;
}

namespace rv {

bool isFolder(const char* path)
{
    struct stat info;
    return stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

FILE* openPipe(const char* command, const char* mode) { return popen(command, mode); }

int closePipe(FILE* pipe) { return pclose(pipe); }

} // namespace rv
