// dotrvs: loading scene files into the universe (rv_scenefile.h).
#include "dotrvs.h"

#include "counters.h"
#include "dotrvs_parse.h"
#include "dotrvs_references.h"
#include "duration.h"
#include "msg.h"
#include "options.h"
#include "system/clock.h"
#include "system/file_tools.h"

#include <algorithm>
#include <errno.h>
#include <string.h>

namespace rv {

static constexpr int max_name_size = 1024;
static constexpr int statements_per_report = 10000;

// Files that load files: each level holds a file open and half a megabyte of buffers.
static constexpr int max_nesting = 200;
static thread_local int nesting = 0;

// ---- Messages ----

static bool isRendering() { return the_frame->hooks->rendering(); }

static void reportStart(const char* name)
{
    if (!strcmp(name, "-"))
        RvMsgInfo("reading from stdin ...");
    else if (isRendering())
        RvMsgInfoMasked(RV_LOG_LOADING, "loading %s ...", name);
    else
        RvMsgInfo("loading %s ...", name);
}

static void reportEnd(const char* name, int statements, uint32_t elapsed_ms)
{
    const int lines = std::max(scene_file_line.load(), 0);
    const char* const duration = RvDurationString(elapsed_ms);
    if (isRendering())
        RvMsgInfoMasked(RV_LOG_LOADING, "%s: parsed %d nodes in %d lines in %s", name, statements,
                        lines, duration);
    else
        RvMsgInfo("parsed %d nodes in %d lines in %s", statements, lines, duration);
}

// ---- Opening ----

namespace {

// Tries to open one file after another, and keeps why it could not: that there is no such file
// says least.
struct Opener {
    RtRVSFile* file = nullptr;
    int reason = ENOENT;

    bool tryOpen(const char* path)
    {
        file = RvRVSOpenFile(path, "r");
        if (!file && errno != 0 && errno != ENOENT)
            reason = errno;
        return file != nullptr;
    }
};

} // namespace

static bool openAlong(Opener* opener, const char* search_path, const char* name, const char* suffix)
{
    char folder[4096];
    char path[sizeof folder + max_name_size + 8];
    while (const size_t consumed = nextWholePath(search_path, folder, sizeof folder)) {
        search_path += consumed;
        const size_t length = strlen(folder);
        const bool is_closed = folder[length - 1] == '/' || folder[length - 1] == '\\';
        snprintf(path, sizeof path, "%s%s%s%s", folder, is_closed ? "" : "/", name, suffix);
        if (opener->tryOpen(path))
            return true;
    }
    return false;
}

static RtRVSFile* openScene(const char* name)
{
    char compressed[max_name_size + 4];
    snprintf(compressed, sizeof compressed, "%s.gz", name);
    const char* const search_path = render_options ? render_options->procedural_searchpath : "";
    Opener opener;
    if (!opener.tryOpen(name) && !opener.tryOpen(compressed) &&
        !openAlong(&opener, search_path, name, "") && !openAlong(&opener, search_path, name, ".gz"))
        RvMsgError("%s: %s", name, strerror(opener.reason));
    return opener.file;
}

// ---- Reading ----

static int parseFile(RtRVSFile* file, const char* name, RtList* list, int* statements)
{
    while (peekChar(file) != end_marker) {
        if (!RvRVSParseStatement(file, list)) {
            RvMsgError("error loading %s", name);
            return -1;
        }
        const bool goes_on = skipBlanks(file);
        if (++*statements % statements_per_report == 0)
            RvMsgInfoMasked(RV_LOG_LOADING, "%d nodes ...", *statements);
        if (!goes_on)
            break;
    }
    RvRVSResolveForwardRefs();
    return 0;
}

// The level of indentation while a file is loaded.
static int loadingTab() { return isRendering() ? 0 : 1; }

static int loadOpened(RtRVSFile* file, const char* name, RtList* list, uint32_t start_ms, int tab)
{
    scene_file_line = 0;
    int statements = 0;
    int result = parseFile(file, name, list, &statements);
    RvMsgTab(-tab);
    const uint32_t elapsed_ms = wallMilliseconds() - start_ms;
    if (include_depth == 0)
        hostStats()->parse_ms += elapsed_ms;
    if (RvRVSCloseFile(file, "r") == 0) {
        reportEnd(name, statements, elapsed_ms);
    } else {
        RvRVSDestroyFile(file);
        result = -1;
    }
    // Required: there is one line number, so a file that goes on after an included one counts its
    // lines from here.
    scene_file_line = -1;
    return result;
}

static bool isNameUsable(const char* name)
{
    if (!name || !*name) {
        RvMsgError("can't open .rvs file, no filename supplied");
        return false;
    }
    const size_t length = strlen(name);
    if (length < max_name_size)
        return true;
    RvMsgError("filename too long (size is %d, max is %d): %s", int(length), max_name_size, name);
    return false;
}

static int load(const char* name, RtList* list)
{
    if (nesting > max_nesting) {
        RvMsgError("%s: scene files are nested deeper than %d; does one include itself?", name,
                   max_nesting);
        return -1;
    }
    const uint32_t start_ms = wallMilliseconds();
    reportStart(name);
    const int tab = loadingTab();
    RvMsgTab(tab);
    if (RtRVSFile* const file = openScene(name))
        return loadOpened(file, name, list, start_ms, tab);
    RvMsgTab(-tab);
    return -1;
}

} // namespace rv

int RvRVSLoadList(const char* filename, RtList* list)
{
    if (!rv::the_frame || !rv::the_frame->scene)
        return -1;
    if (!rv::isNameUsable(filename))
        return -1;
    ++rv::nesting;
    const int result = rv::load(filename, list);
    --rv::nesting;
    return result;
}

int rv::loadNested(const char* filename, RtList* list)
{
    ++include_depth;
    const int result = RvRVSLoadList(filename, list);
    --include_depth;
    return result;
}

int RvRVSLoad(const char* filename) { return RvRVSLoadList(filename, nullptr); }
