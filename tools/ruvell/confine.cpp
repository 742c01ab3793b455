// Landlock for files, a system call filter for programs and libraries, a resource limit for memory.
//
// Landlock is spoken to by its numbers: the C library of the systems we build on knows neither its
// calls nor all of its rights.
#include "confine.h"
#include "scene_paths.h"
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace ruvell {

// ---- Files ----

namespace {

// As in linux/landlock.h.
enum LandlockCall { create_ruleset = 444, add_rule = 445, restrict_self = 446 };
constexpr unsigned query_version = 1;
constexpr int rule_path_beneath = 1;

constexpr uint64_t execute = 1 << 0, write_file = 1 << 1, read_file = 1 << 2, read_dir = 1 << 3,
                   remove_file = 1 << 5, make_regular = 1 << 8, refer = 1 << 13,
                   truncate_file = 1 << 14, device_control = 1 << 15;
constexpr uint64_t first_rights = (1 << 13) - 1; // of version 1
constexpr uint64_t rights_of_files =
    execute | write_file | read_file | truncate_file | device_control;

struct RulesetAttributes {
    uint64_t handled;
};

struct [[gnu::packed]] PathAttributes {
    uint64_t allowed;
    int32_t parent;
};

} // namespace

// Every right that this version of Landlock knows is handled, so that what no rule allows is
// denied.
static uint64_t handledRights(long version)
{
    return first_rights | (version >= 2 ? refer : 0) | (version >= 3 ? truncate_file : 0) |
           (version >= 5 ? device_control : 0);
}

static void allow(int ruleset, uint64_t handled, const std::string& path, uint64_t rights)
{
    const int parent = open(path.c_str(), O_PATH | O_CLOEXEC);
    if (parent < 0)
        return; // nothing there, nothing to allow
    rights &= handled & (isFolder(path) ? ~uint64_t{ 0 } : rights_of_files);
    const PathAttributes rule = { rights, parent };
    syscall(add_rule, ruleset, rule_path_beneath, &rule, 0);
    close(parent);
}

// What the C library and our own queries of memory, processors and time read.
static const char* const system_paths[] = {
    "/lib",           "/lib64",
    "/usr/lib",       "/usr/lib64",
    "/usr/local/lib", "/usr/share/zoneinfo",
    "/etc/localtime", "/etc/ld.so.cache",
    "/proc/self",     "/proc/meminfo",
    "/proc/cpuinfo",  "/proc/stat",
    "/dev/urandom",   "/sys/devices/system/cpu",
};

static bool confineFiles(const Confinement& confinement)
{
    const long version = syscall(create_ruleset, nullptr, 0, query_version);
    if (version < 1)
        return false;
    const RulesetAttributes attributes = { handledRights(version) };
    const int ruleset =
        static_cast<int>(syscall(create_ruleset, &attributes, sizeof attributes, 0));
    if (ruleset < 0)
        return false;
    const uint64_t reading = read_file | read_dir;
    for (const char* path : system_paths)
        allow(ruleset, attributes.handled, path, reading);
    allow(ruleset, attributes.handled, "/dev/null", reading | write_file | truncate_file);
    for (const std::string& path : confinement.readable)
        allow(ruleset, attributes.handled, path, reading);
    for (const std::string& path : confinement.writable) // TIFF is read while it is written
        allow(ruleset, attributes.handled, path,
              reading | write_file | make_regular | remove_file | truncate_file | refer);
    const bool done = syscall(restrict_self, ruleset, 0) == 0;
    close(ruleset);
    return done;
}

// ---- Programs and libraries ----

#define FILTER_RETURN(action)           BPF_STMT(BPF_RET | BPF_K, (action))
#define FILTER_LOAD(field)              BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, field))
#define FILTER_IF(test, value, yes, no) BPF_JUMP(BPF_JMP | (test) | BPF_K, (value), (yes), (no))

// Refuses to start programs and, unless code may be loaded, to make memory executable.
static bool filterSystemCalls(bool may_load_code)
{
    constexpr unsigned deny = SECCOMP_RET_ERRNO | EPERM;
    constexpr unsigned x32_calls = 0x40000000; // a second numbering of the same calls
    const auto code_call = [&](unsigned number) { return may_load_code ? ~0u : number; };
    sock_filter program[] = {
        FILTER_LOAD(arch),
        FILTER_IF(BPF_JEQ, AUDIT_ARCH_X86_64, 1, 0),
        FILTER_RETURN(deny),
        FILTER_LOAD(nr),
        FILTER_IF(BPF_JGE, x32_calls, 5, 0),
        FILTER_IF(BPF_JEQ, SYS_execve, 4, 0),
        FILTER_IF(BPF_JEQ, SYS_execveat, 3, 0),
        FILTER_IF(BPF_JEQ, code_call(SYS_mmap), 3, 0),
        FILTER_IF(BPF_JEQ, code_call(SYS_mprotect), 2, 0),
        FILTER_IF(BPF_JEQ, code_call(SYS_pkey_mprotect), 1, 4),
        FILTER_RETURN(deny),
        FILTER_LOAD(args[2]), // the protection, in all three
        FILTER_IF(BPF_JSET, PROT_EXEC, 0, 1),
        FILTER_RETURN(deny),
        FILTER_RETURN(SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter = { sizeof program / sizeof *program, program };
    return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

std::string confineProcess(const Confinement& confinement)
{
    std::string missing;
    const bool is_settled = prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
    if (!is_settled || !confineFiles(confinement))
        missing = "access to files";
    if (!is_settled || !filterSystemCalls(confinement.may_load_code))
        missing += (missing.empty() ? "" : " and ") + std::string("starting programs");
    return missing;
}

// ---- Memory ----

uint64_t physicalMemory()
{
    const long pages = sysconf(_SC_PHYS_PAGES), page = sysconf(_SC_PAGE_SIZE);
    return pages > 0 && page > 0 ? static_cast<uint64_t>(pages) * static_cast<uint64_t>(page) : 0;
}

bool limitMemory(uint64_t bytes)
{
    rlimit limit;
    if (getrlimit(RLIMIT_DATA, &limit) != 0)
        return false;
    limit.rlim_cur = limit.rlim_max = bytes < limit.rlim_max ? bytes : limit.rlim_max;
    return setrlimit(RLIMIT_DATA, &limit) == 0;
}

} // namespace ruvell
