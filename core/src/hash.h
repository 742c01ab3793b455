// The string hash of the pool, the tables, user parameters and trace sets.
#ifndef RV_HASH_H
#define RV_HASH_H

#include <stdint.h>
#include <string.h>

namespace rv {

// SuperFastHash (Paul Hsieh, 2004) over length bytes, with the length as initial value, 16-bit
// little-endian reads and a signed tail. The empty string gives 0.
uint32_t stringHash(const char* text, size_t length);

inline uint32_t stringHash(const char* text) { return stringHash(text, strlen(text)); }

} // namespace rv

#endif
