// version: what this library is, and which plug-ins it accepts. Declared by rv_plugins.h.
#include "version.h"

#include "rv_plugins.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

// Required: this line is part of the interface's version. It names the reference build, whichever
// compiler and platform made the running library.
#define COMPILE_OPTIONS "windows 64-bit icc oiio sse (build date: May 18 2011 12:57:19)"
static_assert(sizeof(void*) == 8, "the compile options state the width of a pointer");

// Plug-ins built against 3.3.0 up to, and without, this minor version are accepted.
static constexpr long first_incompatible_minor = 7;

const char* RvGetVersion(char* arch, char* major, char* minor, char* fix)
{
    if (arch)
        strcpy(arch, "3");
    if (major)
        strcpy(major, "3");
    if (minor)
        strcpy(minor, "6");
    if (fix)
        strcpy(fix, "0");
    return RV_VERSION;
}

const char* RvGetVersionInfo(void)
{
    static const char info[] = "Ruvell " RV_VERSION " " COMPILE_OPTIONS;
    return info;
}

const char* RvGetCompileOptions(void)
{
    static const char options[] = COMPILE_OPTIONS;
    return options;
}

// Required: the fix number plays no part.
bool RvCheckAPIVersion(const char* arch, const char* major, const char* minor)
{
    if (!arch || !major || !minor || strcmp(arch, "3") != 0 || strcmp(major, "3") != 0)
        return false;
    char* end;
    errno = 0;
    const long number = strtol(minor, &end, 10);
    const bool is_whole_number = end != minor && *end == '\0' && errno == 0;
    return is_whole_number && number < first_incompatible_minor;
}

namespace rv {

// Copies the text up to the next dot, cut to the size, and returns what follows the dot.
template <size_t size> static const char* takeComponent(const char* text, char (&component)[size])
{
    const size_t length = strcspn(text, ".");
    const size_t kept = length < size ? length : size - 1;
    memcpy(component, text, kept);
    component[kept] = '\0';
    return text[length] ? text + length + 1 : text + length;
}

bool acceptsVersion(const char* text)
{
    char arch[64], major[64], minor[64];
    text = takeComponent(text, arch);
    text = takeComponent(text, major);
    takeComponent(text, minor);
    return RvCheckAPIVersion(arch, major, minor);
}

} // namespace rv
