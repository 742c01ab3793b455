// Limits that the kernel keeps for the rest of the process, whatever code runs in it.
#ifndef RUVELL_CONFINE_H
#define RUVELL_CONFINE_H

#include <cstdint>
#include <string>
#include <vector>

namespace ruvell {

struct Confinement {
    std::vector<std::string> readable; // files and folders, besides those of the system
    std::vector<std::string> writable; // folders
    bool may_load_code = false;        // libraries, after this call
};

// From here on this thread, and those it starts, can open only these files, start no program, and
// load no library. Returns what this system cannot enforce, empty when all is in force.
std::string confineProcess(const Confinement& confinement);

// Bounds the memory the process may still allocate, in bytes altogether. False when refused.
bool limitMemory(uint64_t bytes);
uint64_t physicalMemory();

} // namespace ruvell

#endif
