// Files that appear whole or not at all: they grow under a hidden name in the folder of their
// place and are renamed when they are finished.
#ifndef RV_SYSTEM_PART_FILE_H
#define RV_SYSTEM_PART_FILE_H

#include <filesystem>
#include <stdio.h>
#include <string>

namespace rv {

// Where a file really lies, independent of the current folder. Links keep pointing at it, also one
// whose target does not exist yet.
std::filesystem::path placeOf(const std::string& name);

// True for a place without a file, and for a file that could be written to.
bool isReplaceable(const std::filesystem::path& place);

// A new file in the same folder, under a name that no one uses and that ends in `extension`. Null
// when there can be none.
FILE* createPart(const std::filesystem::path& place, const std::string& extension,
                 std::filesystem::path* part);

} // namespace rv

#endif
