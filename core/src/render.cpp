// render: opening and closing the universe, the render call and stop requests (rv_render.h).
#include "rv_render.h"

#include "aovs/sample_store.h"
#include "builtin.h"
#include "cameras/camera.h"
#include "counters.h"
#include "declare.h"
#include "dotrvs.h"
#include "dotrvs_references.h"
#include "hemi_tables.h"
#include "lights/light_map.h"
#include "lights/lights.h"
#include "list.h"
#include "metadata.h"
#include "msg.h"
#include "nodeentry.h"
#include "objects/gobject.h"
#include "objects/proc.h"
#include "options.h"
#include "plugins.h"
#include "render_session.h"
#include "render_steps.h"
#include "report_once.h"
#include "rv_universe.h"
#include "scene.h"
#include "scene_passes.h"
#include "shaderglobals.h"
#include "sss.h"
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

static const RtHooks hooks = {
    .errorLogged = abortOnError,
    .cameraParameters = cameraParameters,
    .lightParameters = lightParameters,
    .shapeParameters = shapeParameters,
    .shapeChanged = shapeChanged,
    .shapeTeardown = shapeTeardown,
    .lightTeardown = finishLight,
    .shapeVertexCount = shapeVertexCount,
    .rendering = RvRendering,
    .applyOverrides = RvRVSApplyDelayedOverrides,
    .rootBounds = rootBounds,
    .flushShape = flushShape,
    .flushLight = flushLight,
    .shadeSurface = shadeSurface,
    .shadeBackground = shadeBackground,
    .applyAtmosphere = applyAtmosphere,
    .recordSample = recordSample,
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
    if (!createSceneFiles(frame))
        return false;
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
    destroySceneFiles(frame);
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
    RvInitializeHemiTables();
    if (!sceneCreate(frame))
        return false;
    frame->session = sessionCreate(frame->scene);
    return frame->session && createOptions(frame->scene);
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

// ---- Rendering ----

// One render: nothing else may run from here to the end of the scope, which is the one way out.
class RenderScope {
public:
    explicit RenderScope(RtRenderSession* session) : session_(session)
    {
        makeUpForFlushes();
        startPointClouds(&session->abort_flag);
        startLightMaps(&session->abort_flag);
    }
    ~RenderScope()
    {
        endLightMaps();
        endPointClouds();
        image_geometry = nullptr;
        session_->scene->releaseLights();
        if (session_->mode == RV_RENDER_MODE_CAMERA)
            session_->releaseSamplers();
        RvCritSecEnter(&session_->lock);
        session_->rendering = false;
        session_->abort_flag = RV_STOP_NONE;
        RvCritSecLeave(&session_->lock);
        makeUpForFlushes();
    }
    RenderScope(const RenderScope&) = delete;
    RenderScope& operator=(const RenderScope&) = delete;

private:
    RtRenderSession* session_;
};

struct Elapsed {
    int64_t wall_ms, user_ms;
};

// Time since the last call.
static Elapsed readClocks(RtRenderSession* session)
{
    const uint32_t wall_ms = wallMilliseconds();
    const uint32_t user_ms = processUserMilliseconds();
    const Elapsed elapsed = { uint32_t(wall_ms - session->last_wall_ms),
                              uint32_t(user_ms - session->last_user_ms) };
    session->last_wall_ms = wall_ms;
    session->last_user_ms = user_ms;
    return elapsed;
}

// The time so far was the host's; what was counted so far belongs to earlier renders.
static void startCounting(RtRenderSession* session)
{
    const Elapsed elapsed = readClocks(session);
    threadStats()->scene_ms += elapsed.wall_ms;
    threadStats()->scene_user_ms += elapsed.user_ms;
    for (RtStats* record : the_frame->stats) {
        static_cast<RtRenderCounters&>(*record) = {};
        record->poor_bounds_displaced = record->poor_bounds_procedural = 0;
    }
}

static void countRenderTime(RtRenderSession* session)
{
    const Elapsed elapsed = readClocks(session);
    threadStats()->render_ms += elapsed.wall_ms;
    threadStats()->render_user_ms += elapsed.user_ms;
}

// What the first render of a universe makes: thread slots and the root.
static int prepareTracing(RtRenderSession* session)
{
    if (isStopPending(session))
        return stopResult("aborting render-setup", session->abort_flag);
    const uint32_t start = wallMilliseconds();
    const bool has_slots =
        session->thread_slots || createThreadSlots(session, render_options->max_shader_messages);
    if (!session->scene->root)
        buildRootList(session->scene);
    hostStats()->setup_ms += wallMilliseconds() - start;
    if (has_slots && !isStopPending(session))
        return RV_SUCCESS;
    // Required: whatever stops this phase, the result is that of an unknown reason.
    return stopResult("failure during render-setup", RV_STOP_NONE);
}

// The root goes when the host destroys its node.
static void restoreRoot(RtScene* scene)
{
    if (!scene->root)
        buildRootList(scene);
}

// The render went through to its end, or to where it was asked to stop.
static int finishRender(RtRenderSession* session)
{
    ++session->setup_count;
    const int request = session->abort_flag;
    switch (request) {
    case RV_STOP_NONE: return RV_SUCCESS;
    case RV_STOP_ABORT: return RV_ABORT;
    case RV_STOP_INTERRUPT: return RV_INTERRUPT;
    default: break;
    }
    static std::atomic<bool> is_reported; // once in the process
    if (isFirst(is_reported))
        RvMsgWarning("unknown render abort flag: %d", request);
    return RV_ERROR;
}

static int prepareForHost(RtRenderSession* session)
{
    updateNodes(session->scene);
    if (session->setup_count > 0)
        restoreRoot(session->scene);
    else if (const int code = prepareTracing(session))
        return code;
    return finishRender(session);
}

static int prepareScene(RtRenderSession* session)
{
    if (session->setup_count == 0) {
        initializeNodes(session->scene);
        if (const int code = prepareTracing(session))
            return code;
    }
    updateNodes(session->scene);
    restoreRoot(session->scene);
    session->scene->holdLights();
    return RV_SUCCESS;
}

static bool prepareImage(RtRenderSession* session)
{
    session->bucket_renderer = render_steps->createBucketRenderer(session);
    return render_options->outputs && render_steps->prepareOutputs(session);
}

static void releaseBucketRenderer(RtRenderSession* session)
{
    render_steps->destroyBucketRenderer(session->bucket_renderer);
    session->bucket_renderer = nullptr;
}

static void renderImage(RtRenderSession* session)
{
    if (RtNode* const root = session->scene->root)
        RvGObjectBuildAccel(root, 0);
    render_steps->runBuckets(session);
    RvMsgTab(-1);
    RvMsgInfo("render done");
    render_steps->closeOutputs(session);
    releaseBucketRenderer(session);
}

static bool hasCamera()
{
    const RtNode* const camera = render_options->camera;
    return camera && camera->entry->type == RV_NODE_CAMERA;
}

static int renderCamera(RtRenderSession* session)
{
    if (const int code = setUpRegion(session, *render_options))
        return code;
    if (!hasCamera()) {
        RvMsgError("there is no camera!");
        return RV_ERROR_NO_CAMERA;
    }
    image_geometry = session;
    reportImage(*session, *render_options);
    RvMsgTab(1);
    if (const int code = prepareScene(session)) {
        RvMsgTab(-1);
        return code;
    }
    if (!prepareImage(session)) {
        // Required: the indentation stays raised.
        releaseBucketRenderer(session);
        return RV_ERROR_NO_OUTPUTS;
    }
    renderImage(session);
    countRenderTime(session);
    render_steps->printStatistics();
    return finishRender(session);
}

static int renderScene(RtRenderSession* session)
{
    if (session->setup_count == 0 && !isStopPending(session))
        reportSceneSummary();
    RvMsgInfo("%s", "");
    startCounting(session);
    startReportingSelection();
    startReportingNesting();
    checkOptions(*session->scene, *render_options);
    session->initSamplers();
    if (isStopPending(session))
        return stopResult("render aborted", session->abort_flag);
    threadStats()->threads = render_options->threads;
    const int code =
        session->mode == RV_RENDER_MODE_CAMERA ? renderCamera(session) : prepareForHost(session);
    readClocks(session); // from here on it is the host's time again
    return code;
}

static int render(RtRenderSession* session, int mode)
{
    const RenderScope scope(session);
    session->mode = mode;
    render_steps->applyTextureOptions();
    if (session->scene->consumed && !render_options->preserve_scene_data) {
        RvMsgError("scenegraph is unrenderable:  cannot call RvRender() after a call to "
                   "RvRVSWrite() - try enabling preserve_scene_data");
        return RV_ERROR_UNRENDERABLE;
    }
    return renderScene(session);
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
    if (frame->session->rendering) {
        RvMsgWarning("RvEnd() ignored:  a render is running");
        return;
    }
    if (frame->session->mode != RV_RENDER_MODE_CAMERA) {
        frame->session->releaseSamplers();
        rv::render_steps->printStatistics();
    }
    RvMsgInfo("%s", "");
    RvMsgInfo("releasing resources");
    RvMsgTab(1);
    rv::sessionDestroy(frame->session);
    frame->session = nullptr;
    rv::destroySceneFiles(frame);
    const bool unload_plugins = !rv::render_options || rv::render_options->unload_plugins;
    rv::sceneDestroy(frame->scene);
    rv::scene_file_line = -1;
    rv::uninstallPlugins();
    rv::unloadPlugins(unload_plugins);
    rv::destroyProcedurals(unload_plugins);
    rv::releaseContents(frame);
    RvMsgTab(-1);
    RvMsgInfo("Ruvell shutdown");
    rv::freeFrame(frame);
}

int RvRender(int mode)
{
    RtRenderSession* const session = rv::the_frame ? rv::the_frame->session : nullptr;
    if (!session || !rv::render_options)
        return RV_ERROR;
    if (session->rendering.exchange(true)) {
        RvMsgWarning("RvRender() ignored:  a render is already running");
        return RV_ERROR;
    }
    return rv::render(session, mode);
}

void RvRenderAbort(void) { rv::requestStop(RV_STOP_ABORT); }

void RvRenderInterrupt(void) { rv::requestStop(RV_STOP_INTERRUPT); }

bool RvRendering(void)
{
    return rv::the_frame && rv::the_frame->session && rv::the_frame->session->rendering;
}
