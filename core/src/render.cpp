// render: opening and closing the universe and stop requests (rv_render.h).
#include "rv_render.h"

#include "builtin.h"
#include "cameras/camera.h"
#include "counters.h"
#include "declare.h"
#include "lights/lights.h"
#include "list.h"
#include "metadata.h"
#include "msg.h"
#include "nodeentry.h"
#include "objects/gobject.h"
#include "options.h"
#include "render_session.h"
#include "rv_universe.h"
#include "scene.h"
#include "strpool.h"
#include "system/clock.h"
#include "system/machine.h"

#include <string.h>

static const char* const module_path = "core\\src\\render";

namespace rv {

static constexpr unsigned string_pool_capacity = 8000;

// Errors stop the running render unless the host asked otherwise.
static void abortOnError()
{
    if (render_options && render_options->abort_on_error)
        RvRenderAbort();
}

// Stands in for shading, which is not there yet: every surface is black and opaque.
static int runNothing(RtShaderGlobals*) { return RV_TYPE_NONE; }

static const RtHooks hooks = {
    .errorLogged = abortOnError,
    .cameraParameters = cameraParameters,
    .lightParameters = lightParameters,
    .shapeParameters = shapeParameters,
    .shapeChanged = shapeChanged,
    .shapeTeardown = shapeTeardown,
    .shapeVertexCount = shapeVertexCount,
    .rendering = RvRendering,
    .rootBounds = rootBounds,
    .flushTextures = do_nothing,
    .flushShape = flushShape,
    .flushLight = do_nothing,
    .shadeSurface = runNothing,
    .shadeBackground = runNothing,
    .applyAtmosphere = do_nothing,
};

// ---- The frame ----

static bool createStats(RtFrame* frame)
{
    for (RtStats*& record : frame->stats) {
        record = static_cast<RtStats*>(
            RvMalloc_func(sizeof(RtStats), "core\\src\\stats", __LINE__, "RvStats"));
        if (!record)
            return false;
        *record = {};
    }
    return true;
}

static bool fillFrame(RtFrame* frame)
{
    frame->hooks = &hooks;
    frame->start_ms = wallMilliseconds();
    frame->msg = msgStateCreate();
    if (!frame->msg || !createStats(frame))
        return false;
    frame->strings = RtStringPool::create(string_pool_capacity);
    frame->node_entries = RvList(nullptr);
    frame->entry_names = simpleHash_new();
    frame->libraries = RvList(nullptr);
    return frame->strings && frame->node_entries && frame->entry_names && frame->libraries;
}

static void destroyNodeTypes(RtFrame* frame)
{
    if (!frame->node_entries)
        return;
    for (RtListNode* element = RvListHead(frame->node_entries); element; element = element->next)
        destroyNodeEntry(static_cast<RtNodeEntry*>(element->data));
    RvListDestroy(frame->node_entries);
    frame->node_entries = nullptr;
}

// The message state goes last, so that everything else can still report.
static void freeFrame(RtFrame* frame)
{
    if (frame->libraries)
        RvListDestroy(frame->libraries);
    if (frame->entry_names)
        simpleHash_destroy(frame->entry_names);
    for (RtStats* record : frame->stats)
        RvFree_func(record);
    RtMsgState* const msg = frame->msg;
    the_frame = nullptr;
    RvFree_func(frame);
    if (msg)
        msgStateDestroy(msg);
}

// Scene, node types and strings, in this order: nodes need their types, both hold strings.
static void releaseContents(RtFrame* frame)
{
    sceneDestroy(frame->scene);
    destroyNodeTypes(frame);
    if (frame->strings)
        RtStringPool::destroy(frame->strings);
    frame->strings = nullptr;
}

static void discardUniverse(RtFrame* frame)
{
    sessionDestroy(frame->session);
    releaseContents(frame);
    freeFrame(frame);
}

static RtFrame* createFrame(uint64_t start_memory)
{
    RtFrame* const frame =
        static_cast<RtFrame*>(RvMalloc_func(sizeof(RtFrame), module_path, __LINE__, "RvBegin"));
    if (!frame)
        return nullptr;
    *frame = {};
    frame->start_memory = start_memory;
    the_frame = frame;
    if (fillFrame(frame))
        return frame;
    discardUniverse(frame);
    return nullptr;
}

static void loadLibraryMetadata()
{
    char path[1024];
    static const char file_name[] = "ruvell.mtd";
    if (!libraryFolder(path, sizeof path - sizeof file_name))
        return;
    strcat(path, file_name);
    RvMetaDataLoadFile(path);
}

static bool createOptions(RtScene* scene)
{
    RtNode* const options = scene->createNode("options");
    if (!options)
        return false;
    RvNodeSetStr(options, "name", "options");
    return RvNodeLookUpByName("options") == options;
}

static bool fillUniverse(RtFrame* frame)
{
    if (!installBuiltInTypes())
        return false;
    loadLibraryMetadata();
    scene_file_line = -1; // no scene file is being read
    if (!sceneCreate(frame))
        return false;
    frame->session = sessionCreate(frame->scene);
    return frame->session && createOptions(frame->scene);
}

// Plug-in libraries stay loaded when the host wants them to.
static void reportKeptPlugins()
{
    RvMsgInfoMasked(RV_LOG_DEBUG | RV_LOG_PLUGINS,
                    "skipping plugin unloading because unload_plugins=FALSE");
}

// Sets a stop request, if a render runs that has none yet.
static void requestStop(RtStopRequest request)
{
    RtRenderSession* const session = the_frame ? the_frame->session : nullptr;
    if (!session)
        return;
    RvCritSecEnter(&session->lock);
    if (session->rendering && session->abort_flag == RV_STOP_NONE)
        session->abort_flag = request;
    RvCritSecLeave(&session->lock);
}

} // namespace rv

void RvBegin(void)
{
    const uint64_t start_memory = RvMsgUtilGetUsedMemory();
    rv::render_options = nullptr;
    RtFrame* const frame = rv::createFrame(start_memory);
    if (frame && !rv::fillUniverse(frame))
        rv::discardUniverse(frame);
}

void RvEnd(void)
{
    RtFrame* const frame = rv::the_frame;
    if (!frame || !frame->session)
        return;
    RvMsgInfo("%s", "");
    RvMsgInfo("releasing resources");
    RvMsgTab(1);
    rv::sessionDestroy(frame->session);
    frame->session = nullptr;
    const bool unload_plugins = !rv::render_options || rv::render_options->unload_plugins;
    rv::sceneDestroy(frame->scene);
    rv::scene_file_line = -1;
    if (!unload_plugins)
        rv::reportKeptPlugins();
    rv::releaseContents(frame);
    RvMsgTab(-1);
    RvMsgInfo("Ruvell shutdown");
    rv::freeFrame(frame);
}

void RvRenderAbort(void) { rv::requestStop(RV_STOP_ABORT); }

void RvRenderInterrupt(void) { rv::requestStop(RV_STOP_INTERRUPT); }

bool RvRendering(void)
{
    return rv::the_frame && rv::the_frame->session && rv::the_frame->session->rendering;
}
