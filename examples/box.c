// Renders a box of diffuse walls with a knot, a glossy sphere and a glass sphere under a spherical
// light, three diffuse bounces deep, to box.png and, with layers of its own for each kind of light,
// to box.exr.
//
//     box [FOLDER [SIZE [AA_SAMPLES]]]    defaults: the current folder, 128 pixels, 2 x 2 samples
#include <math.h>
#include <ruvell/rv.h>
#include <stdio.h>
#include <stdlib.h>

static const float pi = 3.14159265f;

static RtNode* makeNode(const char* type, const char* name)
{
    RtNode* node = RvNode(type);
    RvNodeSetStr(node, "name", name);
    return node;
}

// ---- Surfaces ----

static RtNode* makeDiffuse(const char* name, float r, float g, float b)
{
    RtNode* shader = makeNode("standard", name);
    RvNodeSetFlt(shader, "Kd", 0.75f);
    RvNodeSetRGB(shader, "Kd_color", r, g, b);
    return shader;
}

static RtNode* makeGlossy(void)
{
    RtNode* shader = makeDiffuse("brass", 0.9f, 0.65f, 0.25f);
    RvNodeSetFlt(shader, "Kd", 0.15f);
    RvNodeSetFlt(shader, "Ks", 0.7f);
    RvNodeSetRGB(shader, "Ks_color", 1, 0.8f, 0.45f);
    RvNodeSetStr(shader, "specular_brdf", "cook_torrance");
    RvNodeSetFlt(shader, "specular_roughness", 0.35f);
    return shader;
}

static RtNode* makeGlass(void)
{
    RtNode* shader = makeNode("standard", "glass");
    RvNodeSetFlt(shader, "Kd", 0);
    RvNodeSetFlt(shader, "Kr", 1);
    RvNodeSetBool(shader, "Fresnel", true);
    RvNodeSetFlt(shader, "Krn", 0.04f);
    RvNodeSetFlt(shader, "Kt", 1);
    RvNodeSetFlt(shader, "IOR", 1.5f);
    RvNodeSetRGB(shader, "transmittance", 0.9f, 0.97f, 0.95f);
    return shader;
}

static void setShader(RtNode* shape, RtNode* shader) { RvNodeSetPtr(shape, "shader", shader); }

// ---- Shapes ----

static void makeWall(const char* name, const RtPoint corners[4], RtNode* shader)
{
    RtNode* wall = makeNode("polymesh", name);
    RvNodeSetArray(wall, "nsides", RvArray(1, 1, RV_TYPE_UINT, 4u));
    RvNodeSetArray(wall, "vidxs", RvArray(4, 1, RV_TYPE_UINT, 0u, 1u, 2u, 3u));
    RvNodeSetArray(wall, "vlist", RvArrayConvert(4, 1, RV_TYPE_POINT, (void*)corners, true));
    setShader(wall, shader);
}

// The room is two units wide and high, open towards the camera.
static void makeRoom(void)
{
    RtNode* white = makeDiffuse("white", 1, 1, 1);
    RtNode* red = makeDiffuse("red", 0.85f, 0.15f, 0.1f);
    RtNode* green = makeDiffuse("green", 0.2f, 0.65f, 0.25f);
    makeWall("floor", (RtPoint[]){ { -1, -1, 1 }, { 1, -1, 1 }, { 1, -1, -1 }, { -1, -1, -1 } },
             white);
    makeWall("ceiling", (RtPoint[]){ { -1, 1, -1 }, { 1, 1, -1 }, { 1, 1, 1 }, { -1, 1, 1 } },
             white);
    makeWall("back", (RtPoint[]){ { -1, -1, -1 }, { 1, -1, -1 }, { 1, 1, -1 }, { -1, 1, -1 } },
             white);
    makeWall("left", (RtPoint[]){ { -1, -1, 1 }, { -1, -1, -1 }, { -1, 1, -1 }, { -1, 1, 1 } },
             red);
    makeWall("right", (RtPoint[]){ { 1, -1, -1 }, { 1, -1, 1 }, { 1, 1, 1 }, { 1, 1, -1 } }, green);
}

static void makeSphere(const char* name, RtPoint center, float radius, RtNode* shader)
{
    RtNode* sphere = makeNode("sphere", name);
    RvNodeSetArray(sphere, "center", RvArray(1, 1, RV_TYPE_POINT, center));
    RvNodeSetArray(sphere, "radius", RvArray(1, 1, RV_TYPE_FLOAT, (double)radius));
    setShader(sphere, shader);
}

static RtPoint knotCurve(float t)
{
    const float r = 2 + cosf(3 * t);
    return (RtPoint){ r * cosf(2 * t), sinf(3 * t), r * sinf(2 * t) };
}

static RtVector between(RtPoint a, RtPoint b)
{
    return (RtVector){ b.x - a.x, b.y - a.y, b.z - a.z };
}

static RtVector unit(RtVector v)
{
    const float length = sqrtf(v.x * v.x + v.y * v.y + v.z * v.z);
    return (RtVector){ v.x / length, v.y / length, v.z / length };
}

static RtVector cross(RtVector a, RtVector b)
{
    return (RtVector){ a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x };
}

// A point of the tube around a trefoil knot: t runs along it, s around it.
static RtPoint knotPoint(float t, float s)
{
    const float tube = 0.55f;
    const RtPoint center = knotCurve(t);
    const RtVector along = unit(between(knotCurve(t - 0.001f), knotCurve(t + 0.001f)));
    const RtVector side = unit(cross(along, (RtVector){ 0, 1, 0 }));
    const RtVector up = cross(side, along);
    const float c = tube * cosf(s), d = tube * sinf(s);
    return (RtPoint){ center.x + c * side.x + d * up.x, center.y + c * side.y + d * up.y,
                      center.z + c * side.z + d * up.z };
}

static void makeKnot(RtPoint place, float scale, RtNode* shader)
{
    enum { steps = 240, around = 24, count = steps * around };
    RtArray* points = RvArrayAllocate(count, 1, RV_TYPE_POINT);
    RtArray* sides = RvArrayAllocate(count, 1, RV_TYPE_UINT);
    RtArray* corners = RvArrayAllocate(4 * count, 1, RV_TYPE_UINT);
    for (unsigned i = 0; i < count; ++i) {
        const unsigned step = i / around, spoke = i % around;
        const unsigned next_step = (step + 1) % steps, next_spoke = (spoke + 1) % around;
        const RtPoint p = knotPoint(2 * pi * (float)step / steps, 2 * pi * (float)spoke / around);
        RvArraySetPnt(
            points, i,
            ((RtPoint){ place.x + scale * p.x, place.y + scale * p.y, place.z + scale * p.z }));
        RvArraySetUInt(sides, i, 4);
        RvArraySetUInt(corners, 4 * i, step * around + spoke);
        RvArraySetUInt(corners, 4 * i + 1, step * around + next_spoke);
        RvArraySetUInt(corners, 4 * i + 2, next_step * around + next_spoke);
        RvArraySetUInt(corners, 4 * i + 3, next_step * around + spoke);
    }
    RtNode* knot = makeNode("polymesh", "knot");
    RvNodeSetArray(knot, "vlist", points);
    RvNodeSetArray(knot, "nsides", sides);
    RvNodeSetArray(knot, "vidxs", corners);
    RvNodeSetBool(knot, "smoothing", true);
    setShader(knot, shader);
}

// ---- Light, camera and outputs ----

static void makeLight(void)
{
    RtNode* light = makeNode("point_light", "lamp");
    RvNodeSetArray(light, "position", RvArray(1, 1, RV_TYPE_POINT, (RtPoint){ 0, 0.8f, 0.1f }));
    RvNodeSetFlt(light, "radius", 0.15f);
    RvNodeSetFlt(light, "intensity", 2.2f);
    RvNodeSetRGB(light, "color", 1, 0.93f, 0.82f);
    RvNodeSetInt(light, "samples", 2);
}

static RtNode* makeCamera(void)
{
    RtNode* camera = makeNode("persp_camera", "eye");
    RvNodeSetArray(camera, "position", RvArray(1, 1, RV_TYPE_POINT, (RtPoint){ 0, 0, 3.6f }));
    RvNodeSetArray(camera, "fov", RvArray(1, 1, RV_TYPE_FLOAT, 42.0));
    return camera;
}

static void makeDriver(const char* type, const char* name, const char* folder)
{
    char path[1024];
    RtNode* driver = makeNode(type, name);
    snprintf(path, sizeof path, "%s/%s", folder, name);
    RvNodeSetStr(driver, "filename", path);
}

static void setOutputs(RtNode* options, const char* folder)
{
    makeNode("gaussian_filter", "filter");
    makeDriver("driver_png", "box.png", folder);
    makeDriver("driver_exr", "box.exr", folder);
    RvNodeSetFlt(RvNodeLookUpByName("box.png"), "gamma", 2.2f);
    RvNodeSetBool(RvNodeLookUpByName("box.exr"), "preserve_layer_name", true);
    RvNodeSetArray(options, "outputs",
                   RvArray(6, 1, RV_TYPE_STRING, "RGBA RGBA filter box.png",
                           "RGBA RGBA filter box.exr", "direct_diffuse RGB filter box.exr",
                           "indirect_diffuse RGB filter box.exr", "refraction RGB filter box.exr",
                           "Z FLOAT filter box.exr"));
}

static void setOptions(const char* folder, int size, int aa_samples)
{
    RtNode* options = RvUniverseGetOptions();
    RvNodeSetInt(options, "xres", size);
    RvNodeSetInt(options, "yres", size);
    RvNodeSetInt(options, "AA_samples", aa_samples);
    RvNodeSetStr(options, "thread_priority", "normal"); // by default renders give way to others
    RvNodeSetInt(options, "GI_diffuse_depth", 3);
    RvNodeSetInt(options, "GI_diffuse_samples", 2);
    RvNodeSetInt(options, "GI_glossy_depth", 1);
    RvNodeSetInt(options, "GI_glossy_samples", 2);
    RvNodeSetInt(options, "GI_reflection_depth", 3);
    RvNodeSetInt(options, "GI_refraction_depth", 4);
    RvNodeSetPtr(options, "camera", makeCamera());
    setOutputs(options, folder);
}

int main(int argc, char** argv)
{
    const char* folder = argc > 1 ? argv[1] : ".";
    const int size = argc > 2 ? atoi(argv[2]) : 128;
    const int aa_samples = argc > 3 ? atoi(argv[3]) : 2;

    RvBegin();
    RvMsgSetConsoleFlags(RV_LOG_WARNINGS | RV_LOG_ERRORS | RV_LOG_PROGRESS);
    makeRoom();
    makeKnot((RtPoint){ 0, -0.1f, -0.5f }, 0.135f, makeDiffuse("clay", 0.35f, 0.5f, 0.9f));
    makeSphere("glossy ball", (RtPoint){ -0.5f, -0.68f, 0.1f }, 0.32f, makeGlossy());
    makeSphere("glass ball", (RtPoint){ 0.48f, -0.66f, 0.3f }, 0.34f, makeGlass());
    makeLight();
    setOptions(folder, size, aa_samples);
    const int result = RvRender(RV_RENDER_MODE_CAMERA);
    RvEnd();

    if (result == RV_SUCCESS)
        printf("wrote %s/box.png and %s/box.exr\n", folder, folder);
    else
        fprintf(stderr, "rendering failed with code %d\n", result);
    return result == RV_SUCCESS ? 0 : 1;
}
