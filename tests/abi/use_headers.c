// Host and plug-in code as users of the library write it, compiled as C and as C++ but not linked,
// and the layouts that such code may rely on.
#include "rv.h"

#include <assert.h>
#include <string.h>

#define CHECK(x) static_assert(x, #x)
CHECK(sizeof(bool) == 1);
CHECK(sizeof(RtRGB) == 12 && sizeof(RtRGBA) == 16 && sizeof(RtVector) == 12);
CHECK(sizeof(RtPoint2) == 8 && sizeof(RtMatrix) == 64 && sizeof(RtBBox) == 24);
CHECK(sizeof(RtArray) == 16 && sizeof(RtParamValue) == 16 && sizeof(RtCritSec) == sizeof(void*));
CHECK(sizeof(RtShaderGlobals) == 600);
CHECK(sizeof(RtNodeMethods) == 2 * sizeof(void*));
CHECK(sizeof(RtCommonMethods) == 4 * sizeof(void*));
CHECK(sizeof(RtCameraMethods) == 1 * sizeof(void*) && sizeof(RtLightMethods) == 5 * sizeof(void*));
CHECK(sizeof(RtShaderMethods) == 1 * sizeof(void*) && sizeof(RtShapeMethods) == 5 * sizeof(void*));
CHECK(sizeof(RtFilterMethods) == 2 * sizeof(void*) && sizeof(RtDriverMethods) == 6 * sizeof(void*));
CHECK(offsetof(RtRay, origin) == 24 && offsetof(RtRay, mindist) == 48);
CHECK(RV_LOG_ALL == 0x1FFF && RV_RAY_ALL == 0xFFFF && (RV_NODE_ALL & RV_NODE_FILTER) != 0);

static const char* mode_names[] = { "plain", "fancy", NULL };

static void declare(RtList* params, RtMetaDataStore* metadata)
{
    RvNodeParamFLT(params, -1, "gain", 1.0f);
    RvNodeParamRGB(params, -1, "tint", 1.0f, 1.0f, 1.0f);
    RvNodeParamENUM(params, -1, "mode", 0, mode_names);
    RvNodeParamARRAY(params, -1, "weights", RvArray(2, 1, RV_TYPE_FLOAT, 0.25, 0.75));
    RvMetaDataSetStr(metadata, "gain", "synonym", "amount");
    RvMetaDataSetRGB(metadata, NULL, "swatch", RV_RGB_RED);
}

static float height(RtShaderGlobals* sg, void* data) { return sg->out.FLT * *(const float*)data; }

static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    float gain = RvShaderEvalParamFuncFlt(sg, node, 0), scale = 2.0f;
    RtVector n = RvShaderGlobalsEvaluateBump(sg, height, &scale);
    void* data = RvWardDuerMISCreateData(sg, &sg->dPdu, &sg->dPdv, 0.1f, 0.2f);
    RtRay ray;
    RtScrSample sample;
    RtRGB sum = RV_RGB_BLACK;
    RvLightsPrepare(sg);
    while (RvLightsGetSample(sg)) {
        RtRGB s = RvEvaluateLightSample(sg, data, RvWardDuerMISSample, RvWardDuerMISBRDF,
                                        RvWardDuerMISPDF);
        sum.r += s.r * gain * n.x;
    }
    RvMakeRay(&ray, RV_RAY_GLOSSY | RV_RAY_DIFFUSE, &sg->point, &n, RV_BIG, sg);
    if (RvTrace(&ray, &sample))
        sum.g += sample.color.g;
    RvAOVSetRGB(sg, "mine", sum);
    sg->out.RGB = sum;
}

static const RtCommonMethods common = { declare, NULL, NULL, NULL };
static const RtShaderMethods shader = { evaluate };
static const RtNodeMethods methods = { &common, &shader };

RV_PLUGIN_EXPORT bool NodeLoader(int i, RtNodeLoader* loader);
RV_PLUGIN_EXPORT bool NodeLoader(int i, RtNodeLoader* loader)
{
    if (i > 0)
        return false;
    loader->node_type = RV_NODE_SHADER;
    loader->output_type = RV_TYPE_RGB;
    loader->name = "check_shader";
    loader->methods = &methods;
    strcpy(loader->version, RV_VERSION);
    return true;
}

static int init(RtNode* node, void** user_ptr)
{
    *user_ptr = node;
    return 1;
}
static int cleanup(void* user_ptr) { return user_ptr != NULL; }
static int num_nodes(void* user_ptr)
{
    (void)user_ptr;
    return 1;
}
static RtNode* get_node(void* user_ptr, int i)
{
    RtNode* node = RvNode("sphere");
    (void)user_ptr;
    RvNodeSetInt(node, "id", i);
    return node;
}

RV_PLUGIN_EXPORT int ProcLoader(RtProcVtable* vtable);
RV_PLUGIN_EXPORT int ProcLoader(RtProcVtable* vtable)
{
    vtable->Init = init;
    vtable->Cleanup = cleanup;
    vtable->NumNodes = num_nodes;
    vtable->GetNode = get_node;
    strcpy(vtable->version, RV_VERSION);
    return 1;
}

static unsigned int worker(void* data)
{
    RvMsgInfo("%p", data);
    return 0;
}

int rv_check_use(void);
int rv_check_use(void)
{
    RtMatrix a = RV_M4_IDENTITY, b;
    RtPoint p = RV_V3_X;
    RtArray* array = RvArray(1, 1, RV_TYPE_MATRIX, &a);
    void* block = RvRealloc(RvMalloc(8), 16);
    void* thread = RvThreadCreate(worker, block, 2);
    RtNodeIterator* it = RvUniverseGetNodeIterator(RV_NODE_ALL);
    RvThreadWait(thread);
    RvThreadClose(thread);
    RvFree(block);
    RvArrayGetMtx(array, 0, &b);
    RvArraySetFlt(array, 0, RvArrayGetFlt(array, 0));
    RvM4PointByMatrixMult(&p, &b, &p);
    while (!RvNodeIteratorFinished(it))
        if (RvNodeIs(RvNodeIteratorGetNext(it), "camera"))
            break;
    RvNodeIteratorDestroy(it);
    RvNodeSetArray(RvUniverseGetOptions(), "outputs",
                   RvArray(1, 1, RV_TYPE_STRING, "RGBA RGBA box_filter out"));
    return RvRender(RV_RENDER_MODE_CAMERA) == RV_SUCCESS ? RvEnumGetValue(mode_names, "fancy") : 1;
}
