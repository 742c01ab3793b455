// machine: what the machine and the process are.
#include "system/machine.h"

#include <algorithm>
#include <dlfcn.h>
#include <math.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

namespace rv {

bool hostName(char* out, size_t size)
{
    if (size == 0 || gethostname(out, size) != 0)
        return false;
    out[size - 1] = '\0'; // a name that was cut need not be terminated
    return out[0] != '\0';
}

int processorCount()
{
    cpu_set_t usable; // what this process may run on, which a container can limit
    if (sched_getaffinity(0, sizeof usable, &usable) == 0)
        return CPU_COUNT(&usable);
    const long online = sysconf(_SC_NPROCESSORS_ONLN);
    return online > 0 ? int(online) : 1;
}

// First line of a file, cut to size - 1 characters; false when there is none.
static bool readLine(const char* path, char* out, size_t size)
{
    FILE* const file = fopen(path, "r");
    if (!file)
        return false;
    const bool found = fgets(out, int(size), file) != nullptr;
    fclose(file);
    return found;
}

// Value of the first "name : value" line of the processor description.
static bool processorField(const char* name, char* out, size_t size)
{
    FILE* const file = fopen("/proc/cpuinfo", "r");
    if (!file)
        return false;
    const size_t name_length = strlen(name);
    char line[1024];
    bool found = false;
    while (!found && fgets(line, sizeof line, file)) {
        const char* const colon = strchr(line, ':');
        if (!colon || strncmp(line, name, name_length) != 0 ||
            strspn(line + name_length, " \t") != size_t(colon - line) - name_length)
            continue;
        const char* const value = colon + 1 + strspn(colon + 1, " \t");
        snprintf(out, size, "%.*s", int(strcspn(value, "\n")), value);
        found = true;
    }
    fclose(file);
    return found;
}

int processorMHz()
{
    char text[64];
    double mhz = 0;
    // The nominal clock where the system knows it, since the current one changes all the time.
    if (readLine("/sys/devices/system/cpu/cpu0/cpufreq/base_frequency", text, sizeof text))
        mhz = atof(text) / 1000; // from kHz
    else if (processorField("cpu MHz", text, sizeof text))
        mhz = atof(text);
    return mhz >= 1 && mhz < 1e6 ? int(lround(mhz)) : -1;
}

void processorVendor(char* out, size_t size)
{
    if (!processorField("vendor_id", out, size) || !*out)
        snprintf(out, size, "%s", "not identified");
}

static uint64_t pageSize() { return uint64_t(sysconf(_SC_PAGESIZE)); }

uint64_t physicalMemory()
{
    const long pages = sysconf(_SC_PHYS_PAGES);
    return pages > 0 ? uint64_t(pages) * pageSize() : 0;
}

uint64_t residentMemory()
{
    char text[256];
    unsigned long long resident_pages = 0;
    // Fields in pages: size, resident, shared, and more.
    if (!readLine("/proc/self/statm", text, sizeof text) ||
        sscanf(text, "%*s %llu", &resident_pages) != 1)
        return 0;
    return resident_pages * pageSize();
}

int allowOpenFiles(int count)
{
    constexpr rlim_t others = 128;
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return count;
    const rlim_t wanted = std::min(rlim_t(count) + others, limit.rlim_max);
    if (wanted > limit.rlim_cur) {
        const rlim_t before = limit.rlim_cur;
        limit.rlim_cur = wanted;
        if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
            limit.rlim_cur = before;
    }
    return int(std::min(rlim_t(count), limit.rlim_cur - std::min(limit.rlim_cur, others)));
}

bool libraryFolder(char* out, size_t size)
{
    Dl_info info;
    if (!dladdr(reinterpret_cast<const void*>(&libraryFolder), &info) || !info.dli_fname)
        return false;
    const char* const file_name = strrchr(info.dli_fname, '/');
    const int folder_length = file_name ? int(file_name - info.dli_fname) : 1;
    const char* const folder = file_name ? info.dli_fname : ".";
    const int length = snprintf(out, size, "%.*s/", folder_length, folder);
    return length >= 0 && size_t(length) < size;
}

} // namespace rv
