// What the machine and the process are: host name, processor, memory, module path.
#ifndef RV_SYSTEM_MACHINE_H
#define RV_SYSTEM_MACHINE_H

#include <stddef.h>
#include <stdint.h>

namespace rv {

// Host name, at most size - 1 characters; false when the system does not tell.
bool hostName(char* out, size_t size);

int processorCount();

// Clock of the first processor in MHz, -1 when unknown.
int processorMHz();

// Vendor of the processor ("GenuineIntel", ...), or "not identified".
void processorVendor(char* out, size_t size);

// Physical memory of the machine and resident memory of the process, in bytes.
uint64_t physicalMemory();
uint64_t residentMemory();

// Lets the process hold that many files open beside a few of its own, as far as the system allows.
// Returns how many of the count it may.
int allowOpenFiles(int count);

// Folder of the file that holds this code, ending in '/', symbolic links not followed; false when
// it cannot be told or does not fit.
bool libraryFolder(char* out, size_t size);

} // namespace rv

#endif
