// quad: the "quad_light" light node, a planar four-sided emitter.
#include "array.h"
#include "lights/cone_light.h"
#include "lights/light_keys.h"
#include "lights/light_loop.h"
#include "lights/light_map.h"
#include "lights/quad_sphere.h"
#include "rays.h"
#include "rv_msg.h"

#include <algorithm>

static const char* const module_path = "core\\src\\lights\\quad";

namespace rv {

struct QuadLight {
    RtArray* vertices; // POINT, four corners in order around the quad, per motion key
    LightVolumeParams volume;
    bool umbrate;
    int resolution; // side of the importance table; 0 and below for none
    LightParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<QuadLight>(metadata);
    RvNodeParamARRAY(params, RV_FIELD(QuadLight, vertices),
                     RvArray(4, 1, RV_TYPE_POINT, RtPoint{ -1, -1, 0 }, RtPoint{ -1, 1, 0 },
                             RtPoint{ 1, 1, 0 }, RtPoint{ 1, -1, 0 }));
    lightVolumeParameters(params, metadata, offsetof(QuadLight, volume));
    RvNodeParamBOOL(params, RV_FIELD(QuadLight, umbrate), false);
    RvNodeParamINT(params, RV_FIELD(QuadLight, resolution), 512);
}

// ---- Local data ----

struct QuadLightData {
    QuadLightData(const RtNode* light, const RtLightMapType& type) : map(light, type) {}
    ~QuadLightData() { releaseKeys(&quads); }
    QuadLightData(const QuadLightData&) = delete;
    QuadLightData& operator=(const QuadLightData&) = delete;

    RtLightMap map;
    bool umbrate = false;
    bool importance = false;                // places are sampled by their colour
    LightKeyArray<QuadGeometry> quads = {}; // in the world; none when one of them is no quad
    RtPoint mapped[4] = {};                 // corners at the first key, where the table was made
};

struct QuadLightPoint : RtLightPoint {
    const QuadLightData* data;
    const RtImportanceTable* table; // by which places are sampled, or null
    LightColor* color;              // null before it is first needed
    const QuadGeometry* quad;
    QuadGeometry moving;  // at the time of the context, of a light with several keys
    bool by_angle;        // samples directions, not places
    SphericalQuad sphere; // then only
    float intensity;
    float sample_count;
};

static QuadLightData* dataOf(const RtNode* node) { return lightTypeData<QuadLightData>(node); }

extern const RtLightMapType quad_map;

static void initialize(RtNode* node, void*)
{
    initializeMappedLight<QuadLightData, QuadLightPoint>(node, RV_LIGHT_QUAD, quad_map,
                                                         module_path);
}

// ---- Geometry ----

// Of a motion key, in the world. False unless there are four of them.
static bool cornersAt(const RtNode* node, const RtArray* vertices, unsigned key, RtPoint corners[4])
{
    if (!vertices || vertices->type != RV_TYPE_POINT || vertices->nelements < 4 || !vertices->data)
        return false;
    const unsigned own_key = std::min(key, keyCount(vertices) - 1);
    const RtPoint* const points = elementsOf<RtPoint>(vertices) + own_key * vertices->nelements;
    for (int i = 0; i < 4; ++i)
        corners[i] = worldPoint(node, key, points[i]);
    return true;
}

static bool makeKey(const RtNode* node, const RtArray* vertices, unsigned key, QuadGeometry* quad)
{
    RtPoint corners[4];
    const QuadFault fault =
        cornersAt(node, vertices, key, corners) ? makeQuad(corners, quad) : quad_is_degenerate;
    if (fault == quad_is_degenerate)
        RvMsgError("%s: degenerate quad area light", RvNodeGetName(node));
    else if (fault == quad_is_not_planar)
        RvMsgError("%s: non-planar quad area lights are not supported", RvNodeGetName(node));
    return fault == quad_is_fine;
}

static void updateGeometry(QuadLightData* data, const RtNode* node, const RtArray* vertices)
{
    const unsigned count = std::max(keyCount(vertices), matrixKeyCount(node));
    if (!allocateKeys(&data->quads, count, module_path))
        return;
    for (unsigned k = 0; k < count; ++k)
        if (!makeKey(node, vertices, k, &data->quads.keys[k])) {
            releaseKeys(&data->quads);
            return;
        }
}

// The colours of a table may depend on where they are seen.
static void updateTable(QuadLightData* data, int resolution)
{
    if (data->quads.count && memcmp(data->mapped, data->quads.keys[0].p, sizeof data->mapped)) {
        std::copy_n(data->quads.keys[0].p, 4, data->mapped);
        invalidateLightMap(&data->map);
    }
    updateLightMap(&data->map, resolution);
}

static void update(RtNode* node, void* params)
{
    QuadLightData* const data = dataOf(node);
    if (!data)
        return;
    const QuadLight& light = *static_cast<const QuadLight*>(params);
    RvLightUpdate(node, true, light.volume.affect_volumetrics);
    setVolume(node, light.volume);
    updateGeometry(data, node, light.vertices);
    updateTable(data, light.resolution);
    data->umbrate = light.umbrate;
    data->importance = light.resolution > 0 && data->map.is_linked;
}

// Null when the light has collapsed at that time.
static const QuadGeometry* quadAt(const RtNode* node, const QuadLightData& data, float time,
                                  QuadGeometry* moving)
{
    const LightKeys at = lightKeysAt(node, data.quads.count, time);
    const QuadGeometry* const keys = data.quads.keys + at.key;
    if (!(at.weight > 0))
        return keys;
    RtPoint corners[4];
    for (int i = 0; i < 4; ++i)
        corners[i] = keys[0].p[i] * (1 - at.weight) + keys[1].p[i] * at.weight;
    // Corners that each go their own way may leave the plane a little between two keys.
    return makeQuad(corners, moving) != quad_is_degenerate && moving->area > 0 ? moving : nullptr;
}

// ---- Colour ----

static RtRGB colorAt(LightColor* place, const QuadLightData& data, const QuadGeometry& quad,
                     float u, float v)
{
    RtShaderGlobals& sg = place->sg;
    const float width = data.importance ? 1 / float(data.map.resolution) : 0;
    sg.u = sg.bary_u = u;
    sg.v = sg.bary_v = v;
    sg.dudx = sg.dvdy = width;
    sg.dudy = sg.dvdx = 0;
    sg.point = sg.object_point = quadPoint(quad, u, v);
    sg.normal = sg.facing_normal = sg.smooth_normal = quad.normal;
    sg.geometric_normal = sg.facing_geometric_normal = quad.normal;
    return place->evaluate();
}

static RtRGB colorAt(QuadLightPoint* point, const RtShaderGlobals& sg, float u, float v)
{
    const QuadLightData& data = *point->data;
    if (!data.map.is_linked)
        return plainColor(data.map);
    LightColor* const place = requireColor(&point->color, data.map, sg);
    return place ? colorAt(place, data, *point->quad, u, v) : RV_RGB_BLACK;
}

// The table of a light that moves is that of its first key, whoever makes it at whatever time.
static void fillRow(const RtNode* node, int thread, const RtImportanceTable& table, int row,
                    float* cells)
{
    const QuadLightData& data = *dataOf(node);
    const QuadGeometry& quad = data.quads.keys[0];
    const float v = cellCenter(table, row);
    LightColor place(data.map, thread, 0);
    for (int i = 0; i < table.n; ++i) {
        const float u = cellCenter(table, i);
        cells[i] = importanceOf(colorAt(&place, data, quad, u, v), quad.jacobian.at(u, v));
    }
}

const RtLightMapType quad_map = {
    .bytes = &RtStats::quad_map_bytes,
    .names_light = true,
    .subject = "quad light ",
    .complaint = "quad light importance sampling over too homogenous shader",
    .measure = [](const RtNode* light) { return dataOf(light)->quads.keys[0].area; },
    .fillRow = fillRow,
};

// ---- A point ----

// Below that, in steradians, places serve instead of directions. The rounding errors of the areas
// of spherical triangles are about 1e-5 there, of those areas, and grow fast for smaller ones.
static constexpr double least_extent = 1e-7;

static bool isUsable(const QuadLightData* data)
{
    return data && data->quads.count && !isHiddenLight(data->map);
}

// Looks at the light from the point of the context. False when there is nothing to see.
static bool aim(RtNode* node, RtShaderGlobals* sg)
{
    QuadLightData* const data = dataOf(node);
    if (!isUsable(data))
        return false;
    auto* const point = lightPoint<QuadLightPoint>(sg);
    const RtLightData& light = *point->light;
    point->data = data;
    point->quad = quadAt(node, *data, sg->time, &point->moving);
    // What is behind the horizon as a whole would only give black samples.
    if (!point->quad || !(distanceInFront(*point->quad, sg->point) > 0) ||
        isBehind(*sg, point->quad->centre, point->quad->radius))
        return false;
    point->table = data->importance ? requireLightMap(&data->map, sg->thread_index) : nullptr;
    if (data->importance && !point->table)
        return false;
    if (data->umbrate)
        point->sphere = projectQuad(*point->quad, sg->point);
    point->by_angle = data->umbrate && point->sphere.extent() > least_extent;
    point->intensity = light.intensity * (light.normalize ? 1 : point->quad->area) *
                       (sg->diffuse_depth > 0 ? light.bounce_factor : 1);
    point->sample_count = sg->light_sample_count;
    return true;
}

static void prepare(RtNode* node, RtShaderGlobals* sg)
{
    if (sg->stage != RV_STAGE_VOLUME && !aim(node, sg))
        refuseSamples(sg);
}

// ---- Samples ----

// What leads from a point to a place of the quad.
struct QuadWay {
    float u, v;
    float density; // of the place by area
    float cosine;  // at the quad
    float share;   // of the light's intensity that comes this way
};

static void setDirection(RtShaderGlobals* sg, const Vec3d& way)
{
    const double distance = length(way);
    sg->light_dir = single(way * (1 / distance));
    sg->light_dist = float(distance);
}

static float cosineAt(const QuadGeometry& quad, const RtVector& dir)
{
    return float(fabs(dot(vec3d(quad.normal), vec3d(dir))));
}

static QuadSample samplePlace(const QuadLightPoint& point)
{
    const QuadJacobian& jacobian = point.quad->jacobian;
    if (!point.table)
        return sampleQuadArea(jacobian, point.sample.x, point.sample.y);
    const ImportanceSample at = sampleImportance(*point.table, point.sample.x, point.sample.y);
    return { at.u, at.v, at.density / jacobian.at(at.u, at.v) };
}

static bool goToPlace(const QuadLightPoint& point, RtShaderGlobals* sg, QuadWay* way)
{
    const QuadSample at = samplePlace(point);
    const RtPoint place = quadPoint(*point.quad, at.u, at.v);
    setDirection(sg, vec3d(place) - vec3d(sg->point));
    sg->light_weight = 1 / (at.density * point.quad->area * point.sample_count);
    const float cosine = cosineAt(*point.quad, sg->light_dir);
    *way = { at.u, at.v, at.density, cosine, cosine };
    return at.density > 0 && sg->light_dist > 0;
}

static bool goByAngle(const QuadLightPoint& point, RtShaderGlobals* sg, QuadWay* way)
{
    const QuadGeometry& quad = *point.quad;
    const Vec3d dir = sphericalDirection(point.sphere, point.sample.x, point.sample.y);
    const double approach = -dot(dir, vec3d(quad.normal));
    const double distance = distanceInFront(quad, sg->point) / approach;
    if (!(approach > 0) || !(distance < HUGE_VAL))
        return false;
    // Rounding may carry a direction over an edge, where any place of the quad will do.
    way->u = point.sample.x;
    way->v = point.sample.y;
    placeOnQuad(quad, vec3d(sg->point) + dir * distance, &way->u, &way->v);
    setDirection(sg, dir * distance);
    sg->light_weight = 1 / point.sample_count;
    way->density = 1 / quad.area;
    way->cosine = float(approach);
    way->share = float(distance * distance * point.sphere.extent() / double(quad.area));
    return true;
}

// The light of a place of the quad.
static void shine(QuadLightPoint* point, RtShaderGlobals* sg, float u, float v, float share)
{
    sg->light_unoccluded = colorAt(point, *sg, u, v) * (point->intensity * share);
    sg->light_shadow = RV_RGB_BLACK;
    shineThroughFilters(sg, nullptr);
}

// Smaller lights leave nothing for a BRDF to find.
static constexpr float least_mis_size = 0.0001f; // steradians

// For a place that has that density by area.
static void setMIS(const QuadLightPoint& point, RtShaderGlobals* sg, float size, float density)
{
    RtLightMIS& mis = sg->state->lights.mis;
    mis.radiance = sg->light_radiance * (1 / size);
    mis.pdf = point.sample_count / size * (density * point.quad->area);
}

static bool sample(RtNode* node, RtShaderGlobals* sg)
{
    if (sg->stage == RV_STAGE_VOLUME && !aim(node, sg))
        return false;
    QuadLightPoint& point = *lightPoint<QuadLightPoint>(sg);
    RtLightMIS& mis = sg->state->lights.mis;
    mis.active = false;
    QuadWay way;
    if (!(point.by_angle ? goByAngle(point, sg, &way) : goToPlace(point, sg, &way)))
        return false;
    if (!isBelow(*sg, sg->light_dir))
        shine(&point, sg, way.u, way.v, way.share);
    const float size = apparentSize(point.quad->area, way.cosine, sg->light_dist);
    mis.active = point.light->mis && size > least_mis_size;
    if (!mis.active)
        return !isNegligible(sg->light_radiance);
    // A black sample counts, too, because a sample of the BRDF goes with it.
    mis.sample_index = sg->light_sample_index;
    setMIS(point, sg, size, way.density);
    return true;
}

// The density by area with which samples meet a place.
static float densityAt(const QuadLightPoint& point, float u, float v)
{
    if (!point.table || point.by_angle)
        return 1 / point.quad->area;
    const float measure = point.quad->jacobian.at(u, v);
    return measure > 0 ? importanceDensity(*point.table, u, v) / measure : 0;
}

static bool intersect(RtNode*, RtShaderGlobals* sg, const RtRay* ray)
{
    QuadLightPoint& point = *lightPoint<QuadLightPoint>(sg);
    QuadHit hit;
    if (!point.light->mis || !intersectQuad(*point.quad, ray->origin, ray->dir, &hit))
        return false;
    sg->light_dir = ray->dir;
    sg->light_dist = hit.distance;
    const float cosine = cosineAt(*point.quad, ray->dir);
    const float size = apparentSize(point.quad->area, cosine, hit.distance);
    if (!(size > 0))
        return false;
    // The cosine counts for "umbrate", too: what a ray sees does not depend on how the light
    // samples, and only so both techniques have the same mean.
    shine(&point, sg, hit.u, hit.v, cosine);
    sg->state->lights.mis.active = true;
    setMIS(point, sg, size, densityAt(point, hit.u, hit.v));
    return true;
}

// ---- Volumes ----

static bool bounds(RtNode* node, RtLightBounds* bounds, const RtRay* ray)
{
    const QuadLightData* const data = dataOf(node);
    if (!data || !data->quads.count || !reachesVolumes(node))
        return false;
    QuadGeometry moving;
    const QuadGeometry* const quad = quadAt(node, *data, ray->time, &moving);
    if (!quad)
        return false;
    const float reach = quad->radius + sqrtf(lightData(node)->cutoff_sq);
    RaySpan span;
    return spanInSphere(ray->origin - quad->centre, ray->dir, double(reach) * reach, &span) &&
           setBounds(span, *ray, quad->centre, reach, bounds);
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
    .LightBounds = bounds,
};

const RtNodeMethods quad_light_methods = { &common, &light };

} // namespace rv
