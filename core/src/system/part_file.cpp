// part_file: names and links of files that are replaced in one step.
#include "system/part_file.h"

#include <errno.h>
#include <random>

namespace rv {

namespace fs = std::filesystem;

fs::path placeOf(const std::string& name)
{
    constexpr int max_links = 40;
    std::error_code error;
    fs::path place = fs::absolute(name, error);
    for (int i = 0; i < max_links && !error && fs::is_symlink(place, error); ++i)
        place = place.parent_path() / fs::read_symlink(place, error);
    return place;
}

bool isReplaceable(const fs::path& place)
{
    std::error_code error;
    const fs::file_status status = fs::status(place, error);
    if (!fs::exists(status))
        return status.type() == fs::file_type::not_found;
    FILE* const file = fs::is_regular_file(status) ? fopen(place.c_str(), "r+b") : nullptr;
    if (file)
        fclose(file);
    return file;
}

FILE* createPart(const fs::path& place, const std::string& extension, fs::path* part)
{
    constexpr int attempts = 100;
    std::random_device random;
    for (int i = 0; i < attempts; ++i) {
        char name[64];
        snprintf(name, sizeof name, ".part-%08x%08x", random(), random());
        *part = place.parent_path() / (name + extension);
        if (FILE* const file = fopen(part->c_str(), "w+bx"))
            return file;
        if (errno != EEXIST)
            return nullptr;
    }
    return nullptr;
}

} // namespace rv
