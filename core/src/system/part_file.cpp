// part_file: names and links of files that are replaced in one step.
#include "system/part_file.h"

#include <atomic>
#include <errno.h>
#include <fcntl.h>
#include <mutex>
#include <random>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace rv {

namespace fs = std::filesystem;

// ---- Parts under way ----

namespace {

enum class Entry { free, used, taken }; // taken: by the end of the process, for good

struct PartUnderWay {
    std::atomic<Entry> state;
    char name[4096]; // fixed while the entry is used
};

} // namespace

// What is beyond the table stays when the process is interrupted.
static PartUnderWay parts_under_way[64];
static std::mutex parts_mutex; // of the threads that note and forget; the end waits for nobody
static_assert(std::atomic<Entry>::is_always_lock_free);

static void removePartsUnderWay()
{
    for (PartUnderWay& part : parts_under_way)
        if (Entry used = Entry::used; part.state.compare_exchange_strong(used, Entry::taken))
            unlink(part.name);
}

static void notePart(const fs::path& path)
{
    [[maybe_unused]] static const int registered = at_quick_exit(removePartsUnderWay);
    const size_t size = strlen(path.c_str()) + 1;
    const std::lock_guard guard(parts_mutex);
    for (PartUnderWay& part : parts_under_way)
        if (part.state == Entry::free && size <= sizeof part.name) {
            memcpy(part.name, path.c_str(), size);
            part.state = Entry::used;
            return;
        }
}

static void forgetPart(const fs::path& path)
{
    const std::lock_guard guard(parts_mutex);
    for (PartUnderWay& part : parts_under_way)
        if (part.state == Entry::used && !strcmp(part.name, path.c_str())) {
            Entry used = Entry::used;
            part.state.compare_exchange_strong(used, Entry::free);
            return;
        }
}

// ---- Places ----

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

// ---- Parts ----

// Whoever could use an older file still can. The part of another's file is ours when it cannot be
// given away; then the owner has to be able to write it. Some file systems know no permissions.
static void takePermissions(const fs::path& place, FILE* part)
{
    struct stat older;
    if (stat(place.c_str(), &older) != 0)
        return;
    const mode_t mode = older.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO);
    const bool has_same_owner = fchown(fileno(part), older.st_uid, older.st_gid) == 0;
    fchmod(fileno(part), has_same_owner ? mode : mode | S_IRUSR | S_IWUSR);
}

FILE* createPart(const fs::path& place, const std::string& extension, fs::path* part)
{
    constexpr int attempts = 100;
    std::random_device random;
    for (int i = 0; i < attempts; ++i) {
        char name[64];
        snprintf(name, sizeof name, ".part-%08x%08x", random(), random());
        *part = place.parent_path() / (name + extension);
        notePart(*part); // before there is anything to be left behind
        if (FILE* const file = fopen(part->c_str(), "w+bx")) {
            takePermissions(place, file);
            return file;
        }
        const int reason = errno;
        forgetPart(*part);
        errno = reason;
        if (reason != EEXIST)
            return nullptr;
    }
    return nullptr;
}

static bool isOnDisk(const fs::path& file)
{
    const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    const bool synced = fsync(descriptor) == 0;
    const int reason = errno;
    close(descriptor);
    errno = reason;
    return synced;
}

bool movePart(const fs::path& part, const fs::path& place)
{
    if (rename(part.c_str(), place.c_str()) != 0)
        return false;
    forgetPart(part);
    return true;
}

bool finishPart(const fs::path& part, const fs::path& place)
{
    return isOnDisk(part) && movePart(part, place);
}

void removePart(const fs::path& part)
{
    remove(part.c_str());
    forgetPart(part);
}

} // namespace rv
