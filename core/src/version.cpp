// version: the library's own version and what it was built with (rv_plugins.h).
#include "rv_plugins.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const char* const architecture = "3";
static const char* const major_version = "3";
static const char* const minor_version = "6";
static const char* const fix_version = "0";
static const long first_incompatible_minor = 7;

const char* RvGetVersion(char* arch, char* major, char* minor, char* fix)
{
    const struct {
        char* out;
        const char* text;
    } parts[] = {
        { arch, architecture },
        { major, major_version },
        { minor, minor_version },
        { fix, fix_version },
    };
    for (const auto& part : parts)
        if (part.out)
            memcpy(part.out, part.text, 2);
    return RV_VERSION;
}

// Required: the text is that of the interface's version, not of this build.
const char* RvGetCompileOptions(void)
{
    static char text[128];
    snprintf(text, sizeof text, "windows %d-bit icc oiio sse (build date: May 18 2011 12:57:19)",
             64);
    return text;
}

const char* RvGetVersionInfo(void)
{
    static char text[192];
    snprintf(text, sizeof text, "Ruvell %s %s", RV_VERSION, RvGetCompileOptions());
    return text;
}

bool RvCheckAPIVersion(const char* arch, const char* major, const char* minor)
{
    if (!arch || !major || !minor || strcmp(arch, architecture) || strcmp(major, major_version))
        return false;
    char* end = nullptr;
    const long number = strtol(minor, &end, 10);
    return end != minor && !*end && number < first_incompatible_minor;
}
