// machine: what the machine and the process are.
#include "system/machine.h"

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace rv {

bool hostName(char* out, size_t size)
{
    if (gethostname(out, size) != 0)
        return false;
    out[size - 1] = '\0';
    return true;
}

int processorCount()
{
    const long count = sysconf(_SC_NPROCESSORS_ONLN);
    return count > 0 ? static_cast<int>(count) : 1;
}

// The value of the first line of /proc/cpuinfo that begins with `key`.
static bool processorInfo(const char* key, char* out, size_t size)
{
    FILE* const file = fopen("/proc/cpuinfo", "r");
    if (!file)
        return false;
    char line[512];
    bool found = false;
    while (!found && fgets(line, sizeof line, file)) {
        const char* const colon = strchr(line, ':');
        if (!colon || strncmp(line, key, strlen(key)) != 0)
            continue;
        snprintf(out, size, "%s", colon + 1 + strspn(colon + 1, " \t"));
        out[strcspn(out, "\n")] = '\0';
        found = true;
    }
    fclose(file);
    return found;
}

int processorMHz()
{
    char text[64];
    return processorInfo("cpu MHz", text, sizeof text) ? atoi(text) : -1;
}

void processorVendor(char* out, size_t size)
{
    if (!processorInfo("vendor_id", out, size))
        snprintf(out, size, "%s", "not identified");
}

uint64_t physicalMemory()
{
    const long pages = sysconf(_SC_PHYS_PAGES), page_size = sysconf(_SC_PAGESIZE);
    return pages > 0 && page_size > 0 ? uint64_t(pages) * uint64_t(page_size) : 0;
}

uint64_t residentMemory()
{
    FILE* const file = fopen("/proc/self/statm", "r");
    if (!file)
        return 0;
    unsigned long total = 0, resident = 0;
    const int read = fscanf(file, "%lu %lu", &total, &resident);
    fclose(file);
    return read == 2 ? uint64_t(resident) * uint64_t(sysconf(_SC_PAGESIZE)) : 0;
}

bool libraryFolder(char* out, size_t size)
{
    Dl_info info;
    if (!dladdr(reinterpret_cast<void*>(&libraryFolder), &info) || !info.dli_fname)
        return false;
    const char* const slash = strrchr(info.dli_fname, '/');
    const size_t length = slash ? static_cast<size_t>(slash - info.dli_fname) + 1 : 0;
    if (length + 1 > size)
        return false;
    memcpy(out, info.dli_fname, length);
    out[length] = '\0';
    return true;
}

} // namespace rv
