// file_tools: search paths, file extensions and folder listings.
#include "system/file_tools.h"

#include "rv_memory.h"
#include "text.h"

#include <dirent.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

static const char* const module_path = "core\\src\\system\\file_tools";
static constexpr char separator = ';';

size_t RvNextPath(const char* multipath, char* path, size_t size)
{
    const char* begin = multipath;
    while (*begin == separator)
        ++begin;
    const size_t length = strcspn(begin, ";");
    if (!length)
        return 0;
    const size_t copied = length < size ? length : size - 1;
    memcpy(path, begin, copied);
    path[copied] = '\0';
    return static_cast<size_t>(begin - multipath) + length;
}

namespace {

// Whether the characters from `dot` (null: there is none) up to `end` are ".ext".
bool isExtension(const char* dot, const char* end, const char* ext)
{
    if (!dot || static_cast<size_t>(end - dot) != strlen(ext) + 1)
        return false;
    for (const char* c = dot + 1; c != end; ++c, ++ext)
        if (rv::lowerCase(*c) != rv::lowerCase(*ext))
            return false;
    return true;
}

const char* lastDot(const char* begin, const char* end)
{
    while (end != begin)
        if (*--end == '.')
            return end;
    return nullptr;
}

constexpr unsigned max_files = 256;
constexpr size_t max_path = 1024;

struct FileTable {
    char* names[max_files];
    char buffers[max_files][max_path];
};
static_assert(sizeof(FileTable) == 264192);

// Whether a folder entry matches "*.extension", letter case aside.
bool matches(const char* name, const char* extension)
{
    const char* const end = name + strlen(name);
    const size_t length = strlen(extension) + 1;
    return static_cast<size_t>(end - name) >= length && isExtension(end - length, end, extension) &&
           end[-static_cast<ptrdiff_t>(length)] == '.';
}

} // namespace

bool RvCheckFileExtension(const char* filename, const char* ext, bool allow_gz)
{
    if (!filename || !ext)
        return false;
    const char* const end = filename + strlen(filename);
    const char* const dot = lastDot(filename, end);
    if (isExtension(dot, end, ext))
        return true;
    return allow_gz && isExtension(dot, end, "gz") && isExtension(lastDot(filename, dot), dot, ext);
}

char** RvFindFiles(const char* directory, const char* extension, unsigned* count)
{
    *count = 0;
    FileTable* const table = static_cast<FileTable*>(
        RvMalloc_func(sizeof(FileTable), module_path, __LINE__, "RvFindFiles"));
    if (!table)
        return nullptr;
    for (unsigned i = 0; i < max_files; ++i)
        table->names[i] = table->buffers[i];
    DIR* const folder = opendir(directory);
    while (folder && *count < max_files) {
        const dirent* const entry = readdir(folder);
        if (!entry)
            break;
        if (!matches(entry->d_name, extension))
            continue;
        const int length =
            snprintf(table->buffers[*count], max_path, "%s/%s", directory, entry->d_name);
        if (length > 0 && static_cast<size_t>(length) < max_path)
            ++*count;
    }
    if (folder)
        closedir(folder);
    return table->names;
}
