// skydome: the "skydome_light" light node, an environment around the whole scene.
#include "lights/skydome.h"

#include "array.h"
#include "environment_formats.h"
#include "lights/light_keys.h"
#include "lights/light_loop.h"
#include "lights/light_map.h"
#include "maths.h"
#include "rays.h"
#include "rv_brdf.h"
#include "vec3d.h"

#include <algorithm>

static const char* const module_path = "core\\src\\lights\\skydome";

namespace rv {

struct SkydomeLight {
    int resolution; // side of the importance table; below 1 the light is disabled
    int format;     // EnvironmentFormat
    LightParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<SkydomeLight>(metadata);
    RvNodeParamINT(params, RV_FIELD(SkydomeLight, resolution), 1000);
    RvNodeParamENUM(params, RV_FIELD(SkydomeLight, format), angular, environment_format_names);
}

// ---- The square and the sphere ----

static constexpr float pi = 3.14159265f;
static constexpr float sphere = 12.566371f; // steradians

RtVector skyDirection(float u, float v)
{
    const float a = 2 * u - 1, b = 2 * v - 1;
    float p, q, offset;
    if (b >= 0) {
        p = a >= 0 ? a : b;
        q = a >= 0 ? b : -a;
        offset = a >= 0 ? 0 : pi / 2;
    } else {
        p = a < 0 ? -a : -b;
        q = a < 0 ? -b : a;
        offset = a < 0 ? pi : 3 * pi / 2;
    }
    const float s = p + q;
    const float r = s <= 1 ? s : 2 - s;
    const float z = s <= 1 ? 1 - r * r : r * r - 1;
    const float phi = offset + pi / 4 * (r > 0 ? (q - p) / r + 1 : 0);
    const float across = r * sqrtf(std::max(0.0f, 2 - r * r));
    return { across * cosf(phi), across * sinf(phi), z };
}

// sqrt(1 - |z|), from the other components near the poles, where the difference loses its digits.
static float poleDistance(const RtVector& d)
{
    const float across_sq = d.x * d.x + d.y * d.y;
    return sqrtf(std::min(1.0f, across_sq / (1 + fabsf(d.z))));
}

RtPoint2 skySquare(const RtVector& dir)
{
    const float r = poleDistance(dir);
    float phi = atan2f(dir.y, dir.x);
    if (phi < 0)
        phi += 2 * pi;
    const int quadrant = std::min(int(phi / (pi / 2)), 3);
    const float base = dir.z >= 0 ? r : 2 - r;
    const float t = ((4 / pi * (phi - float(quadrant) * (pi / 2)) - 1) * r + base) / 2;
    const float s = base - t;
    const RtPoint2 places[] = { { s, t }, { -t, s }, { -s, -t }, { t, -s } };
    const RtPoint2 p = places[quadrant];
    return { std::clamp(p.x / 2 + 0.5f, 0.0f, 1.0f), std::clamp(p.y / 2 + 0.5f, 0.0f, 1.0f) };
}

// ---- Orientation ----

// The light's space at one time, in units of the largest element of its matrix: directions do not
// depend on that, and no product of elements leaves the range of numbers.
struct SkyFrame {
    Vec3d axes[3];    // of the light in the world
    Vec3d inverse[3]; // an axis of the light is the product with these; of any common length
    double volume;    // of the cube between the axes; 0 when the matrix has no inverse
};

static SkyFrame frameOf(const RtMatrix& to_world)
{
    const auto& m = to_world.m;
    float largest = 0;
    for (int i = 0; i < 9; ++i)
        largest = std::max(largest, fabsf(m[i / 3][i % 3]));
    SkyFrame frame = {};
    if (!(largest > 0))
        return frame;
    for (int i = 0; i < 3; ++i)
        frame.axes[i] = vec3d(RtVector{ m[i][0], m[i][1], m[i][2] }) * (1 / double(largest));
    const auto& [x, y, z] = frame.axes;
    const double volume = dot(cross(x, y), z);
    if (!isfinite(volume)) // nor NaN
        return frame;
    const double sign = volume < 0 ? -1 : 1;
    frame.inverse[0] = cross(y, z) * sign;
    frame.inverse[1] = cross(z, x) * sign;
    frame.inverse[2] = cross(x, y) * sign;
    frame.volume = fabs(volume);
    return frame;
}

static RtMatrix blend(const RtMatrix& a, const RtMatrix& b, float weight)
{
    RtMatrix m;
    for (int i = 0; i < 16; ++i)
        m.m[i / 4][i % 4] = a.m[i / 4][i % 4] * (1 - weight) + b.m[i / 4][i % 4] * weight;
    return m;
}

// ---- Local data ----

struct SkydomeData {
    SkydomeData(const RtNode* light, const RtLightMapType& type) : map(light, type) {}
    ~SkydomeData() { releaseKeys(&matrices); }
    SkydomeData(const SkydomeData&) = delete;
    SkydomeData& operator=(const SkydomeData&) = delete;

    RtLightMap map;
    int format = angular;
    bool is_disabled = false;
    bool is_identity = false; // at every key
    LightKeyArray<RtMatrix> matrices = {};
    SkyFrame frame = {}; // at the first key
};

struct SkydomePoint : RtLightPoint {
    const SkydomeData* data;
    const RtImportanceTable* table;
    LightColor* color; // null before it is first needed
    const SkyFrame* frame;
    SkyFrame moving; // at the time of the context, of a light with several keys
    float intensity;
    float sample_count;
};

static SkydomeData* dataOf(const RtNode* node) { return lightTypeData<SkydomeData>(node); }

extern const RtLightMapType skydome_map;

static void initialize(RtNode* node, void*)
{
    initializeMappedLight<SkydomeData, SkydomePoint>(node, RV_LIGHT_SKYDOME, skydome_map,
                                                     module_path);
}

static void updateMatrices(SkydomeData* data, const RtNode* node)
{
    data->is_identity = true;
    if (!allocateKeys(&data->matrices, matrixKeyCount(node), module_path))
        return;
    for (unsigned k = 0; k < data->matrices.count; ++k) {
        data->matrices.keys[k] = worldMatrix(node, k);
        data->is_identity &= !memcmp(&data->matrices.keys[k], &RV_M4_IDENTITY, sizeof(RtMatrix));
    }
    data->frame = frameOf(data->matrices.keys[0]);
}

static void update(RtNode* node, void* params)
{
    SkydomeData* const data = dataOf(node);
    if (!data)
        return;
    const SkydomeLight& light = *static_cast<const SkydomeLight*>(params);
    RvLightUpdate(node, true, false);
    updateMatrices(data, node);
    data->is_disabled = light.resolution < 1;
    if (light.format != data->format) {
        invalidateLightMap(&data->map);
        data->format = light.format;
    }
    updateLightMap(&data->map, light.resolution);
}

// ---- Colour ----

// Where an image tears, at a pole, the way around it is wider than any filter can be without
// becoming wide across or leaving the way. A part of it shows as much.
static void limitWidth(float* du, float* dv)
{
    constexpr float most = 0.25f;
    const float width = hypotf(*du, *dv);
    if (!(width > most))
        return;
    *du *= most / width;
    *dv *= most / width;
}

// In light space. Filters over the solid angle of a cell of the table, which all cells share.
static RtRGB colorTowards(LightColor* place, const SkydomeData& data, const RtVector& dir)
{
    RtShaderGlobals& sg = place->sg;
    const float width = sqrtf(sphere) / float(data.map.resolution);
    RvBuildLocalFrameShirley(&sg.dDdx, &sg.dDdy, &dir);
    sg.dDdx = sg.dDdx * width;
    sg.dDdy = sg.dDdy * width;
    sg.ray_dir = dir;
    if (const EnvironmentMapping map = environmentMapping(data.format))
        map(&dir, &sg.dDdx, &sg.dDdy, &sg.u, &sg.v, &sg.dudx, &sg.dudy, &sg.dvdx, &sg.dvdy);
    limitWidth(&sg.dudx, &sg.dvdx);
    limitWidth(&sg.dudy, &sg.dvdy);
    sg.bary_u = sg.u;
    sg.bary_v = sg.v;
    return place->evaluate();
}

static RtRGB colorTowards(SkydomePoint* point, const RtShaderGlobals& sg, const RtVector& dir)
{
    const SkydomeData& data = *point->data;
    if (!data.map.is_linked)
        return plainColor(data.map);
    LightColor* const place = requireColor(&point->color, data.map, sg);
    return place ? colorTowards(place, data, dir) : RV_RGB_BLACK;
}

static void fillRow(const RtNode* node, int thread, const RtImportanceTable& table, int row,
                    float* cells)
{
    const SkydomeData& data = *dataOf(node);
    const float v = cellCenter(table, row);
    if (!data.map.is_linked) {
        std::fill_n(cells, table.n, importanceOf(plainColor(data.map), sphere));
        return;
    }
    LightColor place(data.map, thread, 0);
    for (int i = 0; i < table.n; ++i)
        cells[i] =
            importanceOf(colorTowards(&place, data, skyDirection(cellCenter(table, i), v)), sphere);
}

const RtLightMapType skydome_map = {
    .bytes = &RtStats::skydome_map_bytes,
    .names_light = false,
    .subject = "",
    .complaint = "Skydome light source over too homogenous background",
    .measure = [](const RtNode*) { return sphere; },
    .fillRow = fillRow,
};

// ---- Lighting ----

static void aim(SkydomePoint* point, const SkydomeData& data, const RtNode* node,
                const RtShaderGlobals& sg)
{
    point->data = &data;
    point->frame = &data.frame;
    if (data.matrices.count > 1) {
        const LightKeys at = lightKeysAt(node, data.matrices.count, sg.time);
        const RtMatrix* const keys = data.matrices.keys + at.key;
        point->moving = frameOf(at.weight > 0 ? blend(keys[0], keys[1], at.weight) : keys[0]);
        point->frame = &point->moving;
    }
    // Required: without "bounce_factor", which other lights bring to a bounce.
    point->intensity = point->light->intensity;
    point->sample_count = sg.light_sample_count;
}

static bool isUsable(const SkydomeData* data)
{
    return data && !data->is_disabled && data->matrices.count && !isHiddenLight(data->map);
}

static void prepare(RtNode* node, RtShaderGlobals* sg)
{
    SkydomeData* const data = dataOf(node);
    auto* const point = lightPoint<SkydomePoint>(sg);
    if (isUsable(data) && point->light->intensity != 0)
        point->table = requireLightMap(&data->map, sg->thread_index);
    if (!point->table) {
        refuseSamples(sg);
        return;
    }
    aim(point, *data, node, *sg);
    if (!(point->frame->volume > 0))
        refuseSamples(sg);
}

// A direction of the light in the world, and how much denser directions lie there than in the
// light: 1 for matrices that only turn.
struct WorldDirection {
    RtVector dir;
    float crowding;
};

static WorldDirection toWorld(const SkydomePoint& point, const RtVector& dir)
{
    if (point.data->is_identity)
        return { dir, 1 };
    const auto& [x, y, z] = point.frame->axes;
    const Vec3d world = x * double(dir.x) + y * double(dir.y) + z * double(dir.z);
    const double l = length(world);
    return { single(normalized(world)), float(l * l * l / point.frame->volume) };
}

static RtVector toLight(const SkydomePoint& point, const RtVector& dir)
{
    if (point.data->is_identity)
        return unitPrecise(dir);
    const auto& [x, y, z] = point.frame->inverse;
    const Vec3d world = vec3d(dir);
    return single(normalized({ dot(world, x), dot(world, y), dot(world, z) }));
}

// Light from a direction, which is `local` to the light.
static void shine(SkydomePoint* point, RtShaderGlobals* sg, const RtVector& local)
{
    sg->light_unoccluded = colorTowards(point, *sg, local) * point->intensity;
    sg->light_shadow = RV_RGB_BLACK;
    shineThroughFilters(sg, nullptr);
}

static constexpr float distance = 1e12f;

static bool sample(RtNode*, RtShaderGlobals* sg)
{
    SkydomePoint& point = *lightPoint<SkydomePoint>(sg);
    RtLightMIS& mis = sg->state->lights.mis;
    const ImportanceSample at = sampleImportance(*point.table, point.sample.x, point.sample.y);
    const RtVector local = skyDirection(at.u, at.v);
    const WorldDirection world = toWorld(point, local);
    const float pdf = at.density / sphere * world.crowding * point.sample_count;
    sg->light_dir = world.dir;
    sg->light_dist = distance;
    sg->light_weight = 1 / pdf;
    if (!(pdf > 0) || !isfinite(pdf) || !isfinite(sg->light_weight))
        return false;
    if (!isBelow(*sg, world.dir))
        shine(&point, sg, local);
    mis = { sg->light_sample_index, point.light->mis, sg->light_radiance, pdf };
    // A black sample counts, too, because a sample of the BRDF goes with it.
    return mis.active || !isNegligible(sg->light_radiance);
}

static bool intersect(RtNode*, RtShaderGlobals* sg, const RtRay* ray)
{
    SkydomePoint& point = *lightPoint<SkydomePoint>(sg);
    const RtVector local = toLight(point, ray->dir);
    if (!(dot(local, local) > 0)) // not so for NaN
        return false;
    RtLightMIS& mis = sg->state->lights.mis;
    const RtPoint2 at = skySquare(local);
    const float density = importanceDensity(*point.table, at.x, at.y);
    sg->light_dir = ray->dir;
    sg->light_dist = distance;
    shine(&point, sg, local);
    mis.active = true;
    mis.radiance = sg->light_radiance;
    mis.pdf = density / sphere * toWorld(point, local).crowding * point.sample_count;
    return true;
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = update,
    .Finish = finishLight,
};

static const RtLightMethods light = {
    .LightPrepare = prepare,
    .LightSample = sample,
    .LightAmbient = do_nothing,
    .LightIntersect = intersect,
    .LightBounds = do_nothing,
};

const RtNodeMethods skydome_light_methods = { &common, &light };

} // namespace rv
