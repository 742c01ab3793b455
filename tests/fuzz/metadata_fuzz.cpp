// Reads the input as a metadata file.
#include "fuzz_tools.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const fuzz::Folder folder;
    folder.write("types.mtd", data, size);
    const fuzz::SilentUniverse universe;
    RvMetaDataLoadFile("types.mtd");
    return 0;
}
