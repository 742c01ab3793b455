// dyn_library: dynamic libraries of the platform.
#include "system/dyn_library.h"

#include "system/memory.h"

#include <dlfcn.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

namespace rv {

static constexpr char platform_extension[] = ".so";
static constexpr size_t extension_length = sizeof platform_extension - 1;

// Of the last load or look-up of each thread that failed.
static thread_local char last_error[1024];

static void keepSystemError()
{
    const char* const reason = dlerror();
    snprintf(last_error, sizeof last_error, "%s", reason ? reason : "unknown error");
}

static void* openFile(const char* path)
{
    void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (!library)
        keepSystemError();
    return library;
}

// The system's loader looks for a bare name in its own folders only; a file of that name in the
// current folder is what the caller means.
static void* openPath(const char* path)
{
    char here[1024];
    const bool bare = !strchr(path, '/');
    if (bare && size_t(snprintf(here, sizeof here, "./%s", path)) < sizeof here &&
        access(here, F_OK) == 0)
        return openFile(here);
    return openFile(path);
}

// The first stem_length characters of path with the platform's extension; null after an error.
static char* withPlatformExtension(const char* path, size_t stem_length)
{
    const size_t size = stem_length + sizeof platform_extension;
    char* const full = static_cast<char*>(
        allocate(size, "core\\src\\system\\dyn_library", __LINE__, "RvLibraryLoad"));
    if (full) {
        memcpy(full, path, stem_length);
        memcpy(full + stem_length, platform_extension, sizeof platform_extension);
    }
    return full;
}

static void* openWithPlatformExtension(const char* path, size_t stem_length)
{
    char* const full = withPlatformExtension(path, stem_length);
    void* const library = full ? openPath(full) : nullptr;
    if (!full)
        snprintf(last_error, sizeof last_error, "%s: out of memory", path);
    RvFree_func(full);
    return library;
}

static bool hasExtension(const char* path)
{
    const char* const folder_end = strrchr(path, '/');
    return strchr(folder_end ? folder_end : path, '.') != nullptr;
}

void* libraryLoad(const char* path)
{
    if (!path || !*path) { // the system would open the running program
        snprintf(last_error, sizeof last_error, "no library named");
        return nullptr;
    }
    const size_t length = strlen(path);
    const bool ends_in_so =
        length >= extension_length + 1 && strcmp(path + length - extension_length, ".so") == 0;
    if (ends_in_so)
        return openWithPlatformExtension(path, length - extension_length);
    void* const library = openPath(path);
    if (library || hasExtension(path))
        return library;
    return openWithPlatformExtension(path, length);
}

void* librarySymbol(void* library, const char* name)
{
    if (!library || !name)
        return nullptr;
    void* const symbol = dlsym(library, name);
    if (!symbol)
        keepSystemError();
    return symbol;
}

void libraryClose(void* library)
{
    if (library)
        dlclose(library);
}

const char* libraryError() { return last_error; }

} // namespace rv
