// scene_passes: preparation of the scene for a render. Declared by scene_passes.h.
//
// Methods of nodes may create nodes, from any thread. New nodes join the end of the list, so the
// passes reach them too; no node goes away while a render runs.
#include "scene_passes.h"

#include "counters.h"
#include "duration.h"
#include "objects/gobject.h"
#include "rv_msg.h"
#include "rv_universe.h"
#include "scene.h"
#include "system/clock.h"

namespace rv {

// ---- Summary ----

// Required: discs, boxes and list aggregates are not counted.
static const struct {
    const char* type;
    const char* line;
} summary_rows[] = {
    { "polymesh", "%d polymeshes" }, { "nurbs", "%d nurbs" },
    { "ginstance", "%d instances" }, { "procedural", "%d procedurals" },
    { "points", "%d points" },       { "curves", "%d curves" },
    { "cylinder", "%d cylinders" },  { "cone", "%d cones" },
    { "plane", "%d planes" },        { "sphere", "%d spheres" },
    { "implicit", "%d implicits" },
};

static int nodeCount(const char* type)
{
    const RtNodeEntry* const entry = RvNodeEntryLookUp(type);
    return entry ? RvNodeEntryGetCount(entry) : 0;
}

void reportSceneSummary()
{
    const int lights = RvUniverseGetNumLights();
    const int objects = RvUniverseGetNumGObjects();
    if (lights == 0 && objects == 0)
        return;
    RvMsgInfo("%s", "");
    RvMsgInfo("there are %d lights and %d objects:", lights, objects);
    RvMsgTab(1);
    for (const auto& row : summary_rows)
        if (const int count = nodeCount(row.type))
            RvMsgInfo(row.line, count);
    RvMsgTab(-1);
}

// ---- Passes ----

// Any thread may append to the list meanwhile, so links are read under the scene lock.
static RtListNode* firstElement(RtScene* scene)
{
    const SceneGuard guard(scene);
    return RvListHead(scene->nodes);
}

static RtListNode* nextElement(RtScene* scene, const RtListNode* element)
{
    const SceneGuard guard(scene);
    return element->next;
}

static unsigned sceneSize(RtScene* scene)
{
    const SceneGuard guard(scene);
    return RvListSize(scene->nodes);
}

// Runs a pass over all nodes between two messages. `doing` goes with a number, as in
// "updating %d nodes ...".
static void runPass(RtScene* scene, const char* doing, const char* done, void (*visit)(RtNode*))
{
    const uint32_t start = wallMilliseconds();
    RvMsgInfo("%s %d nodes ...", doing, int(sceneSize(scene)));
    RvMsgTab(1);
    for (RtListNode* at = firstElement(scene); at; at = nextElement(scene, at))
        visit(static_cast<RtNode*>(at->data));
    RvMsgTab(-1);
    const uint32_t elapsed = wallMilliseconds() - start;
    hostStats()->setup_ms += elapsed;
    RvMsgInfo("%s done in %s", done, RvDurationString(elapsed));
}

static void updateNode(RtNode* node)
{
    RvNodeInitialize(node);
    if (node->entry->methods && node->entry->methods->Update)
        node->entry->methods->Update(node, node->params);
}

void initializeNodes(RtScene* scene)
{
    runPass(scene, "initializing", "node initialization", RvNodeInitialize);
}

void updateNodes(RtScene* scene) { runPass(scene, "updating", "node update", updateNode); }

// ---- Root ----

static RtNode* createAggregate(RtScene* scene, RtList* objects, bool unbounded)
{
    RtNode* const node = scene->createNode("list_aggregate");
    if (!node)
        return nullptr;
    RvNodeSetPtr(node, "obj_list", objects);
    RvNodeSetBool(node, "unbounded", unbounded);
    RvNodeInitialize(node);
    return node;
}

// The one node that stands for all of a list: none, its only one, or an aggregate.
static RtNode* aggregate(RtScene* scene, RtList* objects, bool unbounded)
{
    if (RvListEmpty(objects))
        return nullptr;
    if (RvListSize(objects) == 1)
        return static_cast<RtNode*>(RvListHead(objects)->data);
    return createAggregate(scene, objects, unbounded);
}

// Hidden, so that its lack of extent is not reported: an empty scene is no mistake.
static RtNode* createEmptyRoot()
{
    RtNode* const node = RvNode("list_aggregate");
    if (!node)
        return nullptr;
    RvNodeSetInt(node, "visibility", 0);
    RvNodeInitialize(node);
    return node;
}

static RtNode* joinRoots(RtScene* scene)
{
    RtList* const both = RvList(nullptr);
    if (!both)
        return nullptr;
    RtNode* root = nullptr;
    if (RvListAdd(both, scene->unbounded_root) && RvListAdd(both, scene->bounded_root))
        root = aggregate(scene, both, true);
    RvListDestroy(both);
    return root;
}

static RtNode* findRoot(RtScene* scene)
{
    if (scene->bounded_root && scene->unbounded_root)
        return joinRoots(scene);
    if (scene->bounded_root)
        return scene->bounded_root;
    return scene->unbounded_root ? scene->unbounded_root : createEmptyRoot();
}

static void reportBounds(const RtNode* root)
{
    const RtBBox box = root ? rootBounds(root) : empty_bbox;
    if (isEmpty(box))
        RvMsgInfo("no objects");
    else
        RvMsgInfo("scene bounds: (%g %g %g) -> (%g %g %g)", box.min.x, box.min.y, box.min.z,
                  box.max.x, box.max.y, box.max.z);
}

void buildRootList(RtScene* scene)
{
    RvMsgInfo("creating root object list ...");
    RvMsgTab(1);
    scene->bounded_root = aggregate(scene, scene->bounded_objects, false);
    scene->unbounded_root = aggregate(scene, scene->unbounded_objects, true);
    scene->root = findRoot(scene);
    reportBounds(scene->root);
    RvMsgTab(-1);
}

} // namespace rv
