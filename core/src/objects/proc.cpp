// proc: the "procedural" shape node, geometry that is created when a ray first reaches its bounds,
// or when the node is initialised: from a scene file, an OBJ file, a library or a function.
//
// One lock of the universe serialises all loading. It is recursive, because what is being loaded
// may hold procedurals that load at once. It is never taken with the lock of an object held.
// Invariant: the object lists of procedurals never lead back to a procedural that they belong to.
#include "objects/proc.h"

#include "array.h"
#include "dotrvs.h"
#include "dotrvs_references.h"
#include "list.h"
#include "msg.h"
#include "objects/listobj.h"
#include "objects/obj.h"
#include "options.h"
#include "rv_procedural.h"
#include "scene.h"
#include "system/clock.h"
#include "system/critical_section.h"
#include "system/dyn_library.h"
#include "system/file_tools.h"
#include "version.h"

#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <stdio.h>
#include <vector>

static const char* const module_path = "core\\src\\objects\\proc";

// What the procedurals of a universe share; made with the first of them.
struct RtProcedurals {
    RtCritSec lock; // held while a procedural loads; guards what follows
    RtList* libraries;
    int depth;      // loads inside each other
    bool at_render; // one of these was asked for by a ray
};

namespace rv {

struct Procedural {
    const char* dso;  // scene file, OBJ file or library
    const char* data; // for user code
    bool load_at_init;
    RtPoint min;
    RtPoint max;
    void* userptr; // for user code
    void* funcptr; // RtProcLoaderFunc, instead of a library
    bool unload_dso;
    ShapeParams common;
    const char* name;
};

// Required: these offsets are published as metadata of the type.
static_assert(offsetof(Procedural, common) == 72);
static_assert(offsetof(Procedural, name) == 176);
static_assert(sizeof(Procedural) == 184);

namespace {

enum class Stage : uint8_t { unloaded, loading, loaded };

// RtGObject::data.
struct ProcData {
    std::atomic<Stage> stage; // changed under the lock of all procedurals
    bool is_on_demand;        // the bounds are the user's
    RtAggrList* list;         // null before loading; fixed while workers run after that
    uint32_t adopted;         // nodes that it was loaded with
    bool is_creator;          // there are, or were, nodes that it is the creator of
    bool has_leftovers;       // and they come from a file that could not be read to its end
};

// A library that procedurals created nodes from. Nodes may hold pointers into it, so it stays until
// the end of the universe.
struct ProcLibrary {
    void* handle;
    bool may_close; // every procedural that loaded it wanted so
    char name[1024];
};

struct Adopted {
    RtNode* node;
    bool was_initialized; // before the procedural got it
};
using AdoptedNodes = std::vector<Adopted, CheckedAllocator<Adopted>>;

} // namespace

static const Procedural& paramsOf(const RtNode* proc)
{
    return *static_cast<const Procedural*>(proc->params);
}

// Never null.
static const char* dsoOf(const RtNode* proc)
{
    const char* const dso = paramsOf(proc).dso;
    return dso ? dso : "";
}

static ProcData* dataOf(const RtGObject* object) { return static_cast<ProcData*>(object->data); }

// ---- The universe's record ----

static RtProcedurals* createProcedurals()
{
    void* const memory =
        RvMalloc_func(sizeof(RtProcedurals), module_path, __LINE__, "RtProcedurals");
    if (!memory)
        return nullptr;
    RtProcedurals* const all = new (memory) RtProcedurals{};
    RvCritSecInitRecursive(&all->lock);
    all->libraries = RvList(nullptr);
    if (all->lock.handle && all->libraries)
        return all;
    if (all->libraries)
        RvListDestroy(all->libraries);
    RvCritSecClose(&all->lock);
    RvFree_func(all);
    return nullptr;
}

// Null when the heap is exhausted.
static RtProcedurals* procedurals()
{
    const SceneGuard guard(the_frame->scene);
    if (!the_frame->procedurals)
        the_frame->procedurals = createProcedurals();
    return the_frame->procedurals;
}

static void giveBackLibrary(ProcLibrary* library, bool close_libraries)
{
    if (!close_libraries)
        RvMsgInfoMasked(RV_LOG_DEBUG | RV_LOG_PLUGINS,
                        "skipping procedural unloading of \"%s\" because unload_plugins=FALSE",
                        library->name);
    else if (library->may_close)
        libraryClose(library->handle);
    RvFree_func(library);
}

void destroyProcedurals(bool close_libraries)
{
    RtProcedurals* const all = the_frame->procedurals;
    if (!all)
        return;
    the_frame->procedurals = nullptr;
    for (const RtListNode* e = RvListHead(all->libraries); e; e = e->next)
        giveBackLibrary(static_cast<ProcLibrary*>(e->data), close_libraries);
    RvListDestroy(all->libraries);
    RvCritSecClose(&all->lock);
    RvFree_func(all);
}

// ---- Libraries ----

// Tries the name as it is, then in each folder of the search path.
static void* openLibrary(const char* name)
{
    void* library = libraryLoad(name);
    const char* folders = render_options ? render_options->procedural_searchpath : nullptr;
    char folder[1024], path[2048];
    while (!library && folders && *name) {
        const size_t length = nextWholePath(folders, folder, sizeof folder);
        if (length == 0)
            break;
        folders += length;
        const char last = folder[strlen(folder) - 1];
        const char* const separator = last == '/' || last == '\\' ? "" : "/";
        if (size_t(snprintf(path, sizeof path, "%s%s%s", folder, separator, name)) < sizeof path)
            library = libraryLoad(path);
    }
    return library;
}

// Keeps an open library for the universe, once however many procedurals open it. False when the
// heap is exhausted; the library is then closed.
static bool keepLibrary(void* handle, const RtNode* proc)
{
    const bool may_close = paramsOf(proc).unload_dso;
    RtList* const libraries = the_frame->procedurals->libraries;
    for (const RtListNode* e = RvListHead(libraries); e; e = e->next) {
        ProcLibrary* const known = static_cast<ProcLibrary*>(e->data);
        if (known->handle != handle)
            continue;
        known->may_close = known->may_close && may_close;
        libraryClose(handle); // one of the two
        return true;
    }
    ProcLibrary* const library = static_cast<ProcLibrary*>(
        RvMalloc_func(sizeof(ProcLibrary), module_path, __LINE__, "ProcLibrary"));
    if (library && RvListAdd(libraries, library)) {
        *library = { handle, may_close, {} };
        snprintf(library->name, sizeof library->name, "%s", dsoOf(proc));
        return true;
    }
    RvFree_func(library);
    libraryClose(handle);
    return false;
}

static RtProcLoaderFunc loaderOfLibrary(const RtNode* proc)
{
    const char* const dso = dsoOf(proc);
    void* const library = openLibrary(dso);
    if (!library) {
        RvMsgError("[proc] %s: error reading dynamic library from %s: %s", RvNodeGetName(proc), dso,
                   libraryError());
        return nullptr;
    }
    void* const symbol = librarySymbol(library, "ProcLoader");
    if (!symbol) {
        RvMsgError("[proc] %s: unable to get symbol from dynamic library %s: %s",
                   RvNodeGetName(proc), dso, libraryError());
        libraryClose(library);
        return nullptr;
    }
    return keepLibrary(library, proc) ? reinterpret_cast<RtProcLoaderFunc>(symbol) : nullptr;
}

// ---- Content ----

namespace {

// What the nodes of a procedural come from. Both ways of making one may fail; the nodes are asked
// for once, in order.
class Content {
public:
    Content(RtNode* proc, ProcData* data) : proc_(proc), data_(data) {}
    // Has user code release what it prepared, and gets rid of nodes of a file that nobody took.
    ~Content();
    Content(const Content&) = delete;
    Content& operator=(const Content&) = delete;

    bool openFile(bool (*read)(const char* name, RtList* nodes));
    bool openCode(RtProcLoaderFunc loader);

    int count() const { return count_; }
    RtNode* next();

private:
    void abandonRest();
    bool mayDestroyRest() const;
    void leaveOver(RtNode* node);

    RtNode* const proc_;
    ProcData* const data_;
    RtList* nodes_ = nullptr;             // of a file
    const RtListNode* element_ = nullptr; // of these, the next
    bool is_referable_ = false;           // these, by nodes from elsewhere
    RtProcVtable code_ = {};
    bool is_prepared_ = false; // by user code
    void* user_ptr_ = nullptr;
    int count_ = 0;
    int next_ = 0;
};

} // namespace

// Code of others runs during a load, which may throw anything.
template <class Body> static void guarded(const RtNode* proc, Body body)
{
    try {
        body();
    } catch (const std::bad_alloc&) { // reported by the allocator
    } catch (const std::exception& error) {
        RvMsgError("[proc] %s: %s", RvNodeGetName(proc), error.what());
    } catch (...) {
        RvMsgError("[proc] %s: unknown exception", RvNodeGetName(proc));
    }
}

Content::~Content()
{
    if (is_prepared_ && code_.Cleanup)
        guarded(proc_, [this] { code_.Cleanup(user_ptr_); });
    abandonRest();
    if (nodes_)
        RvListDestroy(nodes_);
}

bool Content::openFile(bool (*read)(const char* name, RtList* nodes))
{
    const char* const data = paramsOf(proc_).data;
    if (data && *data)
        RvMsgWarning("[proc] %s: user data will be ignored", RvNodeGetName(proc_));
    is_referable_ = hasWaitingReferences();
    nodes_ = RvList(nullptr);
    if (!nodes_)
        return false;
    const bool is_read = read(dsoOf(proc_), nodes_);
    element_ = RvListHead(nodes_);
    count_ = int(RvListSize(nodes_));
    return is_read;
}

static bool isOptions(const RtNode* node) { return node->entry->type == RV_NODE_OPTIONS; }

// Nodes from elsewhere refer to new ones when they waited for them, and the options when the file
// has a block of these. Pointers to nodes that are gone would be followed.
bool Content::mayDestroyRest() const
{
    if (is_referable_ || the_frame->hooks->rendering())
        return false;
    for (const RtListNode* e = element_; e; e = e->next)
        if (isOptions(static_cast<const RtNode*>(e->data)))
            return false;
    return true;
}

// Keeps a node out of everything: with a creator a shape is not at the top level, and it is hidden
// in case it outlives that one.
void Content::leaveOver(RtNode* node)
{
    if (node->creator || isOptions(node))
        return;
    data_->is_creator = data_->has_leftovers = true;
    node->creator = proc_;
    if (node->entry->type == RV_NODE_SHAPE)
        RvNodeSetInt(node, "visibility", 0);
    RtScene* const scene = the_frame->scene;
    const SceneGuard guard(scene);
    std::erase(scene->lights, node);
}

void Content::abandonRest()
{
    const bool may_destroy = mayDestroyRest();
    for (; element_; element_ = element_->next) {
        RtNode* const node = static_cast<RtNode*>(element_->data);
        if (may_destroy)
            RvNodeDestroy(node);
        else
            leaveOver(node);
    }
}

// A function that the loader did not fill in does nothing and is no failure.
bool Content::openCode(RtProcLoaderFunc loader)
{
    const char* const name = RvNodeGetName(proc_);
    strcpy(code_.version, "UNKNOWN VERSION");
    loader(&code_);
    code_.version[sizeof code_.version - 1] = '\0';
    const bool is_strict = !render_options || render_options->strict_procedural_compatibility;
    if (is_strict && !acceptsVersion(code_.version)) {
        RvMsgError("[proc] %s: was compiled against non-compatible Ruvell %s", name, code_.version);
        return false;
    }
    if (code_.Init && !code_.Init(proc_, &user_ptr_)) {
        RvMsgError("[proc] %s: error in user init from %s", name, dsoOf(proc_));
        return false;
    }
    is_prepared_ = true;
    count_ = code_.NumNodes ? code_.NumNodes(user_ptr_) : 0;
    return true;
}

RtNode* Content::next()
{
    const int i = next_++;
    if (!nodes_)
        return code_.GetNode ? code_.GetNode(user_ptr_, i) : nullptr;
    RtNode* const node = static_cast<RtNode*>(element_->data);
    element_ = element_->next;
    return node;
}

static bool readSceneFile(const char* name, RtList* nodes) { return loadNested(name, nodes) == 0; }

static bool readObjFile(const char* name, RtList* nodes)
{
    RtObjReader reader;
    return reader.read(name, nodes) != 0;
}

static bool openContent(RtNode* proc, Content* content)
{
    const char* const name = RvNodeGetName(proc);
    const char* const dso = dsoOf(proc);
    if (void* const function = paramsOf(proc).funcptr) {
        RvMsgDebug("[proc] %s: loading via function ptr=%p", name, function);
        if (*dso)
            RvMsgWarning("[proc] %s: both 'dso' and 'funcptr' are set, defaulting to 'funcptr'",
                         name);
        return content->openCode(reinterpret_cast<RtProcLoaderFunc>(function));
    }
    RvMsgDebug("[proc] %s: loading %s", name, dso);
    if (RvCheckFileExtension(dso, "rvs", true))
        return content->openFile(readSceneFile);
    if (RvCheckFileExtension(dso, "obj", true))
        return content->openFile(readObjFile);
    const RtProcLoaderFunc loader = loaderOfLibrary(proc);
    return loader && content->openCode(loader);
}

// ---- Nesting ----

// Procedurals that create procedurals; the innermost of more than these stay empty.
static constexpr int max_nesting = 64;

static bool isFromSceneFile(const RtNode* proc)
{
    return !paramsOf(proc).funcptr && RvCheckFileExtension(dsoOf(proc), "rvs", true);
}

// A scene file that is being expanded must not be expanded inside itself: it would never end.
static bool mayExpand(const RtNode* proc)
{
    if (isLeftover(proc))
        return false;
    const bool is_scene = isFromSceneFile(proc);
    int nesting = 1;
    for (const RtNode* outer = proc->creator; outer; outer = outer->creator, ++nesting)
        if (is_scene && isFromSceneFile(outer) && !strcmp(dsoOf(outer), dsoOf(proc))) {
            RvMsgError("[proc] %s: %s contains itself", RvNodeGetName(proc), dsoOf(proc));
            return false;
        }
    if (nesting <= max_nesting)
        return true;
    RvMsgError("[proc] %s: more than %d procedurals are inside each other", RvNodeGetName(proc),
               max_nesting);
    return false;
}

// Whether a node is the procedural itself or one that it is inside of.
static bool isAncestor(const RtNode* node, const RtNode* proc)
{
    while (proc && proc != node)
        proc = proc->creator;
    return proc;
}

static const RtAggrList* childrenOf(const RtGObject* object)
{
    if (object->kind == RV_KIND_LIST)
        return static_cast<const RtAggrList*>(object->data);
    return object->kind == RV_KIND_PROCEDURAL && object->data ? dataOf(object)->list : nullptr;
}

namespace {

// Finds the objects through which a ray inside of a procedural would enter it again.
class CycleSearch {
public:
    explicit CycleSearch(const RtNode* proc) : proc_(proc) {}
    bool leadsBack(const RtGObject* object, uint32_t depth = 0);

private:
    const RtNode* const proc_;
    std::set<const RtGObject*, std::less<>, CheckedAllocator<const RtGObject*>> harmless_;
};

} // namespace

bool CycleSearch::leadsBack(const RtGObject* object, uint32_t depth)
{
    if (!object->node || !isContainer(object) || depth > rv_nesting_limit)
        return false;
    const RtNode* const shape = geometryNode(object->node);
    if (isAncestor(shape, proc_))
        return true;
    const RtGObject* const original = objectOf(shape);
    const RtAggrList* const list = original ? childrenOf(original) : nullptr;
    if (!list || list->container_count == 0 || harmless_.count(original))
        return false;
    for (uint32_t i = 0; i < list->container_count; ++i)
        if (leadsBack(list->containers[i], depth + 1))
            return true;
    harmless_.insert(original);
    return false;
}

// ---- Adoption ----

static bool mayAdopt(const RtNode* proc, const RtNode* node)
{
    const char* const name = RvNodeGetName(proc);
    if (node->creator) {
        RvMsgWarning("[proc] %s: node %s was already created by %s -- ignoring", name,
                     RvNodeGetName(node), RvNodeGetName(node->creator));
        return false;
    }
    // The one options node exists before any procedural.
    if (isOptions(node))
        return false;
    if (!isAncestor(node, proc))
        return true;
    RvMsgWarning("[proc] %s: node %s cannot be inside of itself -- ignoring", name,
                 RvNodeGetName(node));
    return false;
}

// Becomes the creator of all nodes before any of them is initialised: nodes may refer to later
// ones, which must not enter the scene as if nobody had created them.
static AdoptedNodes adoptNodes(RtNode* proc, ProcData* data, Content* content)
{
    AdoptedNodes nodes;
    for (int i = 0; i < content->count(); ++i) {
        RtNode* const node = content->next();
        if (!node || !mayAdopt(proc, node))
            continue;
        nodes.push_back({ node, node->initialized });
        node->creator = proc;
        data->is_creator = true;
        ++data->adopted;
    }
    return nodes;
}

// A render in progress has updated its nodes already.
static void prepareNode(const Adopted& adopted, bool at_render)
{
    RtNode* const node = adopted.node;
    RvNodeInitialize(node);
    if (at_render && !adopted.was_initialized && node->entry->methods &&
        node->entry->methods->Update)
        node->entry->methods->Update(node, node->params);
}

static void gatherShape(RtNode* proc, RtNode* node, CycleSearch* cycles, RtList* shapes)
{
    const RtGObject* const object = shapeObject(node);
    if (!object)
        return;
    if (cycles->leadsBack(object))
        RvMsgWarning("[proc] %s: %s leads back to the procedural -- ignoring", RvNodeGetName(proc),
                     RvNodeGetName(node));
    else
        RvListAdd(shapes, node);
}

static void prepareNodes(RtNode* proc, const AdoptedNodes& nodes, RtList* shapes)
{
    const bool at_render = the_frame->procedurals->at_render;
    CycleSearch cycles(proc);
    for (const Adopted& adopted : nodes) {
        prepareNode(adopted, at_render);
        gatherShape(proc, adopted.node, &cycles, shapes);
    }
}

// ---- Loading ----

// After a scene write nothing is prepared for tracing any more, unless the scene survived it.
static bool isConsumed()
{
    return the_frame->scene->consumed && !(render_options && render_options->preserve_scene_data);
}

static void expand(RtNode* proc, ProcData* data, RtList* shapes)
{
    Content content(proc, data);
    if (!mayExpand(proc) || !openContent(proc, &content))
        return;
    const AdoptedNodes nodes = adoptNodes(proc, data, &content);
    if (!isConsumed())
        prepareNodes(proc, nodes, shapes);
}

static void checkBounds(const RtNode* proc, const RtAggrList& list)
{
    const RtBBox given = { paramsOf(proc).min, paramsOf(proc).max }, generated = listBounds(list);
    RvCheckUserBounds("proc", RvNodeGetName(proc), &given, &generated);
}

// The list is made even when nothing was created or prepared, so that rays find an empty one and
// go on.
static void buildList(RtNode* proc, ProcData* data, const RtList* shapes)
{
    data->list = createAggrList(proc, shapes);
    if (!data->list)
        return;
    countAggrList(*data->list, RV_GEOMETRY_PROCS);
    if (data->is_on_demand)
        checkBounds(proc, *data->list);
}

static void expandAndBuild(RtNode* proc, ProcData* data)
{
    RtList* const shapes = RvList(nullptr);
    if (!shapes)
        return;
    guarded(proc, [=] { expand(proc, data, shapes); });
    guarded(proc, [=] { buildList(proc, data, shapes); });
    RvListDestroy(shapes);
}

// Several threads would disturb each other's indentation.
static int loadIndentation() { return render_options && render_options->threads < 2 ? 1 : 0; }

namespace {

// A load, with the lock held; its end on every way out.
class LoadScope {
public:
    LoadScope(RtProcedurals* all, ProcData* data, LoadedFor who) : all_(all), data_(data)
    {
        data->stage = Stage::loading;
        all->at_render = outer_at_render_ || who == LoadedFor::ray;
        ++all->depth;
        RvMsgTab(indentation_);
    }
    ~LoadScope()
    {
        RvMsgTab(-indentation_);
        all_->at_render = outer_at_render_;
        if (--all_->depth == 0) // else the time is part of the outer procedural's
            threadStats()->procedural_ms += wallMilliseconds() - start_;
        data_->stage = Stage::loaded;
    }
    LoadScope(const LoadScope&) = delete;
    LoadScope& operator=(const LoadScope&) = delete;

private:
    RtProcedurals* const all_;
    ProcData* const data_;
    const bool outer_at_render_ = all_->at_render;
    const int indentation_ = loadIndentation();
    const uint32_t start_ = wallMilliseconds();
};

} // namespace

struct LoadCounts {
    int nodes, objects;
};

// What was loaded; nothing when somebody else has done it, or is doing it on this thread.
static std::optional<LoadCounts> loadOnce(RtProcedurals* all, RtNode* proc, ProcData* data,
                                          LoadedFor who)
{
    const CritSecLock guard(&all->lock);
    if (data->stage != Stage::unloaded)
        return std::nullopt;
    const LoadScope scope(all, data, who);
    expandAndBuild(proc, data);
    // Counted here: once the lock is free, others trace into the list and may thin it out.
    return LoadCounts{ int(data->adopted), data->list ? int(data->list->count) : 0 };
}

static void load(RtNode* proc, ProcData* data, LoadedFor who)
{
    RtProcedurals* const all = procedurals();
    if (!all)
        return;
    if (const auto counts = loadOnce(all, proc, data, who))
        RvMsgDebug("[proc] %s: loaded %d nodes (%d objects)", RvNodeGetName(proc), counts->nodes,
                   counts->objects);
}

void loadProcedural(RtGObject* object, LoadedFor who)
{
    ProcData* const data = dataOf(object);
    if (data->stage != Stage::loaded)
        load(object->node, data, who);
}

// The data of a procedural that has any, or null.
static const ProcData* dataOfNode(const RtNode* node)
{
    const RtGObject* const object = shapeObject(node);
    return object && object->kind == RV_KIND_PROCEDURAL ? dataOf(object) : nullptr;
}

bool isLoadedProcedural(const RtNode* node)
{
    const ProcData* const data = dataOfNode(node);
    return data && data->stage == Stage::loaded;
}

bool isLeftover(const RtNode* node)
{
    const ProcData* const data = dataOfNode(node->creator);
    return data && data->has_leftovers;
}

// ---- The node type ----

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Procedural>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamSTR(params, RV_FIELD(Procedural, dso), "");
    RvNodeParamSTR(params, RV_FIELD(Procedural, data), "");
    RvNodeParamBOOL(params, RV_FIELD(Procedural, load_at_init), false);
    RvNodeParamPNT(params, RV_FIELD(Procedural, min), 0, 0, 0);
    RvNodeParamPNT(params, RV_FIELD(Procedural, max), 0, 0, 0);
    RvNodeParamPTR(params, RV_FIELD(Procedural, userptr), nullptr);
    RvNodeParamPTR(params, RV_FIELD(Procedural, funcptr), nullptr);
    RvNodeParamBOOL(params, RV_FIELD(Procedural, unload_dso), true);
}

static bool isSet(const RtNode* node, const char* param)
{
    return node->set_flags[RvNodeEntryLookUpParameter(node->entry, param)->index];
}

static bool hasBounds(const RtNode* proc)
{
    const Procedural& self = paramsOf(proc);
    if (!isSet(proc, "min") || !isSet(proc, "max")) {
        RvMsgWarning("[proc] missing bounds on %s", RvNodeGetName(proc));
        return false;
    }
    if (isEmpty({ self.min, self.max })) {
        RvMsgWarning("[proc] empty bounds on %s", RvNodeGetName(proc));
        return false;
    }
    return true;
}

static void destroyData(ProcData* data)
{
    destroyAggrList(data->list, RV_GEOMETRY_PROCS);
    RvFree_func(data);
}

static ProcData* createData(bool is_on_demand)
{
    void* const memory = RvMalloc_func(sizeof(ProcData), module_path, __LINE__, "ProcData");
    if (!memory)
        return nullptr;
    ProcData* const data = new (memory) ProcData{};
    data->is_on_demand = is_on_demand;
    return data;
}

// Nodes must not point to a creator that is gone. At the end of the universe all of them go.
static void disown(const RtNode* proc, const ProcData& data)
{
    if (!the_frame->session || !data.is_creator)
        return;
    const SceneGuard guard(the_frame->scene);
    for (const RtListNode* e = RvListHead(the_frame->scene->nodes); e; e = e->next)
        if (RtNode* const node = static_cast<RtNode*>(e->data); node->creator == proc)
            node->creator = nullptr;
}

// False when it can never be loaded.
static bool prepare(RtNode* proc, ProcData* data)
{
    if (!procedurals())
        return false;
    if (data->is_on_demand)
        return hasBounds(proc);
    load(proc, data, LoadedFor::scene);
    return true;
}

// Even when nothing is there to trace the object says that the procedural is loaded. After a scene
// write it is hidden, so that its lack of extent is not reported: that is no mistake.
static bool createObject(RtNode* proc, ProcData* data)
{
    auto& visibility = shapeParams(proc).visibility;
    const auto given = visibility;
    if (!data->is_on_demand && isConsumed())
        visibility = 0;
    const bool is_created = RvGObjectInitialize(proc, RV_KIND_PROCEDURAL, data, 1, 0, 0);
    visibility = given;
    return is_created;
}

static void initialize(RtNode* proc, void* params)
{
    ProcData* const data = createData(!static_cast<const Procedural*>(params)->load_at_init);
    if (!data || (prepare(proc, data) && createObject(proc, data)))
        return;
    disown(proc, *data);
    destroyData(data);
}

static void update(RtNode* proc, void*)
{
    RtGObject* const object = objectOf(proc);
    if (!object)
        return;
    RtAggrList* const list = dataOf(object)->list;
    if (list && updateChildren(list)) {
        optimizeMotion(list);
        object->rebuild = RV_REBUILD_GEOMETRY;
    }
    RvGObjectUpdate(proc);
}

static void finish(RtNode* proc)
{
    RtGObject* const object = objectOf(proc);
    if (!object)
        return;
    disown(proc, *dataOf(object));
    destroyData(dataOf(object));
    object->data = nullptr;
}

static void boundProcedural(RtGObject* object, RtBBox* bbox, int)
{
    const Procedural& self = paramsOf(object->node);
    const ProcData& data = *dataOf(object);
    if (data.is_on_demand)
        *bbox = { self.min, self.max };
    else
        *bbox = data.list ? listBounds(*data.list) : empty_bbox;
}

namespace {

// The children behind the user's bounds. What sticks out of these is cut off for every ray alike;
// otherwise it would show or not, depending on which ray was the first.
struct BoundedAccel : SimpleAccel {
    explicit BoundedAccel(std::unique_ptr<RtAccel> accel) : inner(std::move(accel)) {}
    const char* name() const override { return inner->name(); }
    size_t memory() const override { return inner->memory(); }
    void intersect(RtGObject* object, const RtTraversal& traversal, const RtObjectRay& ray,
                   RtHitList& hits) const override
    {
        if (slabTest(object->local_bbox, ray, hits.maxdist))
            inner->intersect(object, traversal, ray, hits);
    }
    const std::unique_ptr<RtAccel> inner;
};

} // namespace

static RtAccel* prepareIntersection(RtGObject* object, int thread)
{
    ProcData& data = *dataOf(object);
    if (data.stage != Stage::loaded || !data.list)
        return nullptr; // this ray was sent while loading, by the thread that loads
    std::unique_ptr<RtAccel> accel(createChildAccel(object, data.list, thread));
    return data.is_on_demand && accel ? new BoundedAccel(std::move(accel)) : accel.release();
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = update,
    .Finish = finish,
};

static const RtShapeMethods shape = {
    .ShapeLocalGeometry = unreachable::ShapeLocalGeometry,
    .ShapeBBox = boundProcedural,
    .ShapeTextureCoordinates = unreachable::ShapeTextureCoordinates,
    .ShapePrepareUserData = unreachable::ShapePrepareUserData,
    .ShapePrepareIntersection = prepareIntersection,
};

const RtNodeMethods procedural_methods = { &common, &shape };

} // namespace rv
