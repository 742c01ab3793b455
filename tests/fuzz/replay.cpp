// Runs a fuzz target over files: the seed corpus and every input that once failed.
#include "fuzz_tools.h"

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

static std::vector<std::filesystem::path> filesBelow(const char* name)
{
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(name))
        if (entry.is_regular_file())
            files.push_back(std::filesystem::absolute(entry.path()));
    return files;
}

int main(int argc, char** argv)
{
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i)
        for (const std::filesystem::path& file : filesBelow(argv[i]))
            files.push_back(file);
    for (const std::filesystem::path& file : files) {
        printf("%s\n", file.c_str());
        fflush(stdout);
        std::ifstream in(file, std::ios::binary);
        const std::string data{ std::istreambuf_iterator<char>(in), {} };
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(data.data()), data.size());
    }
    return files.empty();
}
