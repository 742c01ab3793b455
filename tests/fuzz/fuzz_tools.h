// What the fuzz targets share: silence, a folder of their own and a file for the input.
#ifndef RV_FUZZ_TOOLS_H
#define RV_FUZZ_TOOLS_H

#include "rv.h"

#include <filesystem>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fuzz {

// A universe that formats every message and shows none.
struct SilentUniverse {
    SilentUniverse()
    {
        RvBegin();
        RvMsgSetCallback([](int, int, const char*, int) {});
        RvMsgSetConsoleFlags(RV_LOG_ALL);
        RvMsgSetMaxWarnings(1 << 30);
    }
    ~SilentUniverse() { RvEnd(); }
    SilentUniverse(const SilentUniverse&) = delete;
    SilentUniverse& operator=(const SilentUniverse&) = delete;
};

// An empty folder until the end of the process. Relative names in an input lead nowhere else, and
// standard input is empty.
class Folder {
public:
    Folder()
    {
        char name[] = "/tmp/ruvell_fuzz_XXXXXX";
        if (!mkdtemp(name) || !freopen("/dev/null", "r", stdin))
            abort();
        path = name;
        enter();
    }
    ~Folder() { std::filesystem::remove_all(path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    // Makes it the current folder.
    void enter() const { std::filesystem::current_path(path); }

    // Writes a file in the folder.
    void write(const char* name, const void* data, size_t size) const
    {
        FILE* const file = fopen((path / name).c_str(), "wb");
        if (!file || fwrite(data, 1, size, file) != size || fclose(file) != 0)
            abort();
    }

private:
    std::filesystem::path path;
};

} // namespace fuzz

#endif
