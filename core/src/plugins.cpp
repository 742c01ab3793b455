// plugins: loads libraries of node types (rv_plugins.h) and gives them back at the end.
//
// Invariant: while a node type of a library is installed its library stays loaded, because the type
// points to method tables inside.
#include "plugins.h"

#include "counters.h"
#include "duration.h"
#include "list.h"
#include "msg.h"
#include "rv_metadata.h"
#include "rv_plugins.h"
#include "rv_render.h"
#include "strpool.h"
#include "system/clock.h"
#include "system/dyn_library.h"
#include "system/file_tools.h"
#include "system/machine.h"
#include "version.h"

#include <algorithm>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string_view>

static const char* const module_path = "core\\src\\plugins";

namespace rv {

// A library whose NodeLoader never comes to an end lists no more than this.
static constexpr int max_listed_types = 4096;

static constexpr int unload_mask = RV_LOG_DEBUG | RV_LOG_PLUGINS;

static const char* const plugin_extensions[] = { "so" };

// Libraries that lie beside plug-ins and are none: this one, under the names it may have.
static const char* const skipped_names[] = { "rv", "librv" };

// ---- Paths ----

// The file name, without folders.
static std::string_view fileName(std::string_view path)
{
    const size_t separator = path.find_last_of("\\/:");
    return separator == path.npos ? path : path.substr(separator + 1);
}

// Without the last extension of its file name.
static std::string_view withoutExtension(std::string_view path)
{
    const std::string_view name = fileName(path);
    const size_t dot = name.rfind('.');
    return dot == name.npos ? path : path.substr(0, path.size() - (name.size() - dot));
}

static bool isSkipped(const char* path)
{
    const std::string_view name = fileName(withoutExtension(path));
    return std::find(std::begin(skipped_names), std::end(skipped_names), name) !=
           std::end(skipped_names);
}

// ---- Records ----

static bool isLoaded(const char* path)
{
    for (const RtListNode* e = RvListHead(the_frame->libraries); e; e = e->next) {
        const RtLibrary& library = *static_cast<const RtLibrary*>(e->data);
        // Records hold no more of a path than this.
        if (!library.is_refused && !strncmp(library.path, path, sizeof library.path - 1))
            return true;
    }
    return false;
}

static void destroyRecord(RtLibrary* library)
{
    for (const RtListNode* e = RvListHead(library->types); e; e = e->next)
        releaseString(static_cast<const char*>(e->data));
    RvListDestroy(library->types);
    RvFree_func(library);
}

// The record of an open library in the frame's list; null when the heap is exhausted.
static RtLibrary* addRecord(void* handle, const char* path)
{
    auto* const library = static_cast<RtLibrary*>(
        RvMalloc_func(sizeof(RtLibrary), module_path, __LINE__, "RvLoadPluginsFromLib"));
    if (!library)
        return nullptr;
    *library = {};
    library->handle = handle;
    snprintf(library->path, sizeof library->path, "%s", path);
    library->types = RvList(nullptr);
    if (library->types && RvListAdd(the_frame->libraries, library))
        return library;
    if (library->types)
        RvListDestroy(library->types);
    RvFree_func(library);
    return nullptr;
}

static void refuse(RtLibrary* library)
{
    if (!RvListEmpty(library->types)) {
        library->is_refused = true;
        return;
    }
    RvListDelete(the_frame->libraries, library);
    libraryClose(library->handle);
    destroyRecord(library);
}

// ---- Node types ----

static bool isAccepted(const char* version)
{
    return getenv("RUVELL_DISABLE_NODE_VERSION_CHECK") || acceptsVersion(version);
}

// Installs a type and remembers that it came from the library, unless the name was refused.
static void install(RtLibrary* library, const char* path, const RtNodeLoader& type)
{
    const int before = RvGetNumInstalledNodes();
    RvNodeInstall(type.node_type, type.output_type, type.name, path, type.methods, type.version);
    if (RvGetNumInstalledNodes() == before)
        return;
    const char* const name = internString(type.name);
    if (!name || !RvListAdd(library->types, const_cast<char*>(name))) {
        releaseString(name);
        RvNodeUninstall(type.name); // nobody would do so when the library is closed
    }
}

// Asks the library for its types, one after the other, and installs them. False when one of them
// makes the library unusable, which ends its record unless earlier types need it.
static bool installTypes(RtLibrary* library, const char* path, RtNodeLoaderFunc nodeLoader,
                         int* count)
{
    for (*count = 0; *count < max_listed_types; ++*count) {
        RtNodeLoader type = {};
        strcpy(type.version, "UNKNOWN VERSION");
        if (!nodeLoader(*count, &type))
            return true;
        type.version[sizeof type.version - 1] = '\0';
        if (!isAccepted(type.version)) {
            RvMsgError("%s was compiled against non-compatible Ruvell %s", path, type.version);
            refuse(library);
            return false;
        }
        RvMsgInfoMasked(RV_LOG_PLUGINS, "%s: %s uses Ruvell %s", path,
                        type.name ? type.name : "(null)", type.version);
        install(library, path, type);
    }
    RvMsgWarning("%s: more than %d node types are listed; ignoring the others", path,
                 max_listed_types);
    return true;
}

static void loadMetadata(const char* path)
{
    char name[1024];
    const std::string_view stem = withoutExtension(path);
    const int length =
        snprintf(name, sizeof name, "%.*s.mtd", static_cast<int>(stem.size()), stem.data());
    if (size_t(length) < sizeof name) // a cut name is that of another file
        RvMetaDataLoadFile(name);
}

} // namespace rv

int RvLoadPluginsFromLib(const char* path)
{
    if (rv::isSkipped(path))
        return 0;
    void* const handle = rv::libraryLoad(path);
    if (!handle) {
        RvMsgWarning("unable to load dynamic library: %s", rv::libraryError());
        return 0;
    }
    const auto nodeLoader =
        reinterpret_cast<RtNodeLoaderFunc>(rv::librarySymbol(handle, "NodeLoader"));
    RtLibrary* const library = nodeLoader ? rv::addRecord(handle, path) : nullptr;
    if (!library) {
        rv::libraryClose(handle);
        return 0;
    }
    int count;
    if (rv::installTypes(library, path, nodeLoader, &count))
        rv::loadMetadata(path);
    return count;
}

namespace rv {

// ---- Loading ----

struct Loaded {
    int plugins;
    int libraries; // with a plug-in at least
};

static void loadFolder(const char* folder, const char* extension, Loaded* loaded)
{
    unsigned count;
    char** const files = RvFindFiles(folder, extension, &count);
    for (unsigned i = 0; i < count; ++i) {
        const int plugins = isLoaded(files[i]) ? 0 : RvLoadPluginsFromLib(files[i]);
        loaded->plugins += plugins;
        loaded->libraries += plugins > 0;
    }
    RvFree_func(files);
}

static Loaded loadFolders(const char* directories)
{
    Loaded loaded = {};
    char folder[1024];
    while (const size_t length = nextWholePath(directories, folder, sizeof folder)) {
        directories += length;
        for (const char* extension : plugin_extensions)
            loadFolder(folder, extension, &loaded);
    }
    return loaded;
}

// True when plug-ins may be loaded now: the types they bring are read by all render threads.
static bool mayLoad(const char* function)
{
    if (RvRendering())
        RvMsgWarning("%s() ignored:  a render is running", function);
    return !RvRendering();
}

// Counts what loading plug-ins takes while it is in scope.
class LoadingCost {
public:
    ~LoadingCost()
    {
        const int64_t grown = int64_t(residentMemory()) - int64_t(bytes_before);
        hostStats()->plugin_bytes += std::max<int64_t>(grown, 0);
    }
    // Milliseconds so far, which count as time spent on plug-ins.
    uint32_t countTime() const
    {
        const uint32_t elapsed = wallMilliseconds() - start;
        hostStats()->plugin_ms += elapsed;
        return elapsed;
    }

private:
    const uint32_t start = wallMilliseconds();
    const uint64_t bytes_before = residentMemory();
};

} // namespace rv

void RvLoadPlugins(const char* directories)
{
    if (!rv::the_frame || !directories || !rv::mayLoad("RvLoadPlugins"))
        return;
    RvMsgInfo("loading plugins from %s ...", directories);
    const rv::LoadingCost cost;
    RvMsgTab(1);
    const rv::Loaded loaded = rv::loadFolders(directories);
    RvMsgTab(-1);
    const uint32_t elapsed = cost.countTime();
    if (loaded.plugins == 0)
        RvMsgInfo("no plugins loaded");
    else
        RvMsgInfo("loaded %d plugins from %d libs in %s", loaded.plugins, loaded.libraries,
                  RvDurationString(elapsed));
}

void RvLoadPlugin(const char* path)
{
    if (!rv::the_frame || !path || !rv::mayLoad("RvLoadPlugin"))
        return;
    RvMsgInfo("loading plugin: %s ...", path);
    if (rv::isLoaded(path))
        return;
    const rv::LoadingCost cost;
    const int count = RvLoadPluginsFromLib(path);
    const uint32_t elapsed = cost.countTime();
    if (count == 0)
        RvMsgInfo("no plugins loaded");
    else
        RvMsgInfo("loaded %d plugins in %s", count, RvDurationString(elapsed));
}

namespace rv {

// ---- The end ----

void uninstallPlugins()
{
    for (const RtListNode* e = RvListHead(the_frame->libraries); e; e = e->next) {
        const RtLibrary& library = *static_cast<const RtLibrary*>(e->data);
        for (const RtListNode* type = RvListHead(library.types); type; type = type->next)
            RvNodeUninstall(static_cast<const char*>(type->data));
    }
}

// Refused libraries are closed too, but were never said to be loaded.
static void closeLibraries()
{
    int count = 0;
    for (const RtListNode* e = RvListHead(the_frame->libraries); e; e = e->next)
        count += !static_cast<const RtLibrary*>(e->data)->is_refused;
    RvMsgInfoMasked(unload_mask, "unloading %d plugin%s", count, count == 1 ? "" : "s");
    for (const RtListNode* e = RvListHead(the_frame->libraries); e; e = e->next) {
        const RtLibrary& library = *static_cast<const RtLibrary*>(e->data);
        if (!library.is_refused)
            RvMsgInfoMasked(unload_mask, "closing %s ...", library.path);
        libraryClose(library.handle);
    }
    RvMsgInfoMasked(unload_mask, "unloading plugins done");
}

void unloadPlugins(bool close_libraries)
{
    if (close_libraries)
        closeLibraries();
    else
        RvMsgInfoMasked(unload_mask, "skipping plugin unloading because unload_plugins=FALSE");
    for (const RtListNode* e = RvListHead(the_frame->libraries); e; e = e->next)
        destroyRecord(static_cast<RtLibrary*>(e->data));
    RvListDestroy(the_frame->libraries);
    the_frame->libraries = nullptr;
}

} // namespace rv
