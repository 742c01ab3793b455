// dyn_library: dynamic libraries of the platform.
#include "system/dyn_library.h"

#include "rv_memory.h"

#include <dlfcn.h>
#include <string.h>

static const char* const module_path = "core\\src\\system\\dyn_library";
static const char* const extension = ".so";

namespace rv {

static bool endsIn(const char* text, size_t length, const char* ending)
{
    const size_t ending_length = strlen(ending);
    return length >= ending_length && !strcmp(text + length - ending_length, ending);
}

static void* open(const char* path) { return dlopen(path, RTLD_NOW | RTLD_LOCAL); }

// Loads the first `length` characters of path with the platform's extension.
static void* openWithExtension(const char* path, size_t length)
{
    const size_t size = length + strlen(extension) + 1;
    char* const name =
        size < INT32_MAX ? static_cast<char*>(RvMalloc_func(static_cast<unsigned>(size),
                                                            module_path, __LINE__, "RvLibraryLoad"))
                         : nullptr;
    if (!name)
        return nullptr;
    memcpy(name, path, length);
    strcpy(name + length, extension);
    void* const library = open(name);
    RvFree_func(name);
    return library;
}

void* libraryLoad(const char* path)
{
    if (!path || !*path)
        return nullptr;
    const size_t length = strlen(path);
    if (length >= 4 && endsIn(path, length, ".so"))
        return openWithExtension(path, length - 3);
    if (void* const library = open(path))
        return library;
    const char* const slash = strrchr(path, '/');
    return strchr(slash ? slash : path, '.') ? nullptr : openWithExtension(path, length);
}

void* librarySymbol(void* library, const char* name)
{
    return library ? dlsym(library, name) : nullptr;
}

void libraryClose(void* library)
{
    if (library)
        dlclose(library);
}

const char* libraryError()
{
    static thread_local char text[1024];
    const char* const error = dlerror();
    strncpy(text, error ? error : "", sizeof text - 1);
    const size_t length = strlen(text);
    if (length && text[length - 1] == '\n')
        text[length - 1] = '\0';
    return text;
}

} // namespace rv
