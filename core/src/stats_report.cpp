// stats_report: the text of the statistics report and its performance warnings. Declared by
// stats.h.
//
// Titles stand at the left; rows one step to the right, so that their columns meet the brackets of
// the title. Whatever is divided by zero is 0.
#include "duration.h"
#include "msg.h"
#include "stats.h"

#include <algorithm>
#include <stdio.h>
#include <string.h>

namespace rv {

using Count = unsigned long long; // as printf knows it

static constexpr int mask = RV_LOG_STATS;
static constexpr int accel_mask = RV_LOG_STATS | RV_LOG_DEBUG;

// ---- Numbers ----

template <class A, class B> static double ratio(A part, B whole)
{
    return whole ? double(part) / double(whole) : 0;
}

template <class A, class B> static double percent(A part, B whole)
{
    return whole ? double(part) * 100 / double(whole) : 0;
}

static double megabytes(int64_t bytes) { return double(bytes) * 9.536743e-07; }

struct TimeText {
    char text[16];
};

// The columns hold eight characters before the fraction of a second.
static TimeText timeText(int64_t milliseconds)
{
    TimeText time;
    const int64_t shown = std::clamp<int64_t>(milliseconds, 0, UINT32_MAX);
    snprintf(time.text, sizeof time.text, "%11s", RvDurationString(uint32_t(shown)));
    return time;
}

// Wall clock and processor time of some work, and on how many threads it ran.
struct Work {
    int64_t wall_ms, processor_ms, threads;

    double utilization() const { return wall_ms ? percent(processor_ms, wall_ms * threads) : 100; }
};

static int64_t threadCount(const RtStats& counts) { return std::max<int64_t>(counts.threads, 1); }

static Work sceneWork(const RtStats& counts)
{
    return { counts.scene_ms, counts.scene_user_ms, threadCount(counts) };
}

static Work renderWork(const RtStats& counts)
{
    return { counts.render_ms, counts.render_user_ms, threadCount(counts) };
}

// ---- Lines ----

// The lines of the scope stand one step further to the right.
class Rows {
public:
    Rows() { RvMsgTab(1); }
    ~Rows() { RvMsgTab(-1); }
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;
};

static void separator()
{
    RvMsgInfoMasked(mask, "---------------------------------------------"
                          "--------------------------------------------");
}

enum Shown { when_not_zero, always };

// ---- Times ----

struct TimeRow {
    const char* label;
    int64_t ms;
    Shown shown = when_not_zero;
    const char* suffix = "";
};

template <size_t n> static void printTimes(const TimeRow (&rows)[n])
{
    for (const TimeRow& row : rows)
        if (row.ms || row.shown == always)
            RvMsgInfoMasked(mask, "%-25s%s%s", row.label, timeText(row.ms).text, row.suffix);
}

static void printTotal(const Work& work)
{
    const int64_t unaccounted = work.wall_ms - work.processor_ms / work.threads;
    if (unaccounted > 0)
        RvMsgInfoMasked(mask, "%-25s%s", "system/unaccounted", timeText(unaccounted).text);
    RvMsgInfoMasked(mask, "%-25s%s  (%5.2f%% machine utilization)", "total",
                    timeText(work.wall_ms).text, work.utilization());
}

static void printCreation(const Report& report)
{
    RvMsgInfoMasked(mask, "scene creation time:");
    const Rows rows;
    printTimes({
        { "plugin loading", report.counts.plugin_ms },
        { ".rvs parsing", report.counts.parse_ms },
    });
    printTotal(sceneWork(report.counts));
}

static int64_t pointCloudTime(const RtStats& counts)
{
    return counts.sss_distribution_ms + counts.sss_irradiance_ms + counts.sss_octree_ms;
}

// What remains of the bucket phase. Building adds up over threads and may exceed it.
static int64_t pixelTime(const RtStats& counts)
{
    const int64_t rest = counts.bucket_ms - counts.subdivision_ms - counts.displacement_ms -
                         counts.accel_ms - counts.procedural_ms - pointCloudTime(counts) -
                         counts.hair_cache_ms;
    return std::max<int64_t>(rest, 0);
}

static void printRender(const Report& report)
{
    if (!report.has_image)
        return;
    const RtStats& s = report.counts;
    static constexpr int64_t hidden_sanity_ms = 20;
    const int64_t clouds = pointCloudTime(s);
    const Shown cloud_parts = clouds ? always : when_not_zero;
    const char* const remark =
        s.threads > 1 ? "  (multi-threaded render, this value may not be reliable)" : "";
    separator();
    RvMsgInfoMasked(mask, "render time:");
    const Rows rows;
    printTimes({
        { "node init", s.setup_ms },
        { " sanity checks", s.sanity_ms > hidden_sanity_ms ? s.sanity_ms : 0 },
        { "bucket rendering", s.bucket_ms, always },
        { " subdivision", s.subdivision_ms },
        { " displacement", s.displacement_ms },
        { " accel. building", s.accel_ms, always },
        { " procedural expansion", s.procedural_ms },
        { " point cloud building", clouds },
        { "  sample distribution", s.sss_distribution_ms, cloud_parts },
        { "  irradiance caching", s.sss_irradiance_ms, cloud_parts },
        { "  octree build", s.sss_octree_ms, cloud_parts },
        { " hair light caching", s.hair_cache_ms },
        { " pixel rendering", pixelTime(s), always, remark },
    });
    printTotal(renderWork(s));
}

// ---- Memory ----

struct MemoryRow {
    const char* label; // of a part of the row above, when it begins with a blank
    int64_t bytes;
    Shown shown = when_not_zero;
    const char* remark = nullptr;
};

static void printMemoryRow(const MemoryRow& row)
{
    if (!row.bytes && row.shown != always)
        return;
    if (row.remark)
        RvMsgInfoMasked(mask, "%-28s%8.2f (%s)", row.label, megabytes(row.bytes), row.remark);
    else
        RvMsgInfoMasked(mask, "%-28s%8.2f", row.label, megabytes(row.bytes));
}

// Prints the rows and returns what they add up to.
template <size_t n> static int64_t printMemoryRows(const MemoryRow (&rows)[n])
{
    int64_t sum = 0;
    for (const MemoryRow& row : rows) {
        printMemoryRow(row);
        sum += *row.label == ' ' ? 0 : row.bytes;
    }
    return sum;
}

static void printMemory(const Report& report)
{
    const RtStats& s = report.counts;
    separator();
    RvMsgInfoMasked(mask, "memory consumed in mb:");
    const Rows rows;
    const int64_t listed = printMemoryRows({
        { "at startup", report.startup_bytes, always },
        { "plugins", s.plugin_bytes },
        { "AOV samples", s.sample_bytes, always },
        { "output buffers", s.output_bytes, always },
        { "node overhead", s.node_overhead_bytes, always },
        { "instance overhead", s.instance_overhead_bytes },
        { "message passing", s.message_bytes },
        { "memory pools", s.pool_bytes },
        { "geometry", s.geometry_bytes },
        { "  polymesh", s.geometry[RV_GEOMETRY_POLYMESHES].bytes() },
        { "  subdivs", s.geometry[RV_GEOMETRY_SUBDIVS].bytes() },
        { "  nurbs", s.geometry[RV_GEOMETRY_NURBS].bytes() },
        { "  points", s.geometry[RV_GEOMETRY_POINTS].bytes() },
        { "  curves", s.geometry[RV_GEOMETRY_CURVES].bytes() },
        { "accel. structs", s.accel_bytes },
        { "skydome importance map", s.skydome_map_bytes },
        { "quad importance map", s.quad_map_bytes },
        { "sss", s.sss_bytes },
        { "hair light cache", s.hair_cache_bytes },
        { "sss memory pools", s.sss_pool_bytes },
        { "displacement memory pools", s.displacement_pool_bytes },
        { "hair light cache mem. pools", s.hair_cache_pool_bytes },
        { "string pool", report.string_bytes, when_not_zero, report.string_summary },
        { "texture cache", report.texture_bytes },
    });
    printMemoryRow({ "unaccounted", std::max<int64_t>(s.peak_bytes - listed, 0) });
    printMemoryRow({ "total peak", s.peak_bytes, always });
}

// ---- Rays ----

struct RayType {
    const char* name;
    RtRayRow row;
};

static const RayType ray_types[] = {
    { "camera", RV_ROW_CAMERA },
    { "shadow", RV_ROW_SHADOW },
    { "volume_shadow", RV_ROW_VOLUME_SHADOW },
    { "reflection", RV_ROW_REFLECTION },
    { "refraction", RV_ROW_REFRACTION },
    { "diffuse", RV_ROW_DIFFUSE },
    { "glossy", RV_ROW_GLOSSY },
    { "user", RV_ROW_USER },
    { "total", RV_ROW_TOTAL },
};

// Calls print(name, count) for each type that has rays, and always for their total.
template <class Counts, class Print> static void forRayTypes(const Counts& counts, Print print)
{
    for (const RayType& type : ray_types)
        if (counts[type.row].rays || type.row == RV_ROW_TOTAL)
            print(type.name, counts[type.row]);
}

static void printMaxDepth(const RtStats& s)
{
    RvMsgInfoMasked(mask, "max depth                   %8lu",
                    static_cast<unsigned long>(s.rays.max_depth));
}

static void printPackets(const Report& report)
{
    static constexpr uint64_t packet_rays = 256; // at most
    const RtStats& s = report.counts;
    const auto& counts = s.rays.packets;
    if (!counts[RV_ROW_CAMERA].packets)
        return;
    separator();
    RvMsgInfoMasked(mask, "ray packet counts:                    (rays/pixel, rays/sample) (%% "
                          "total) (avg. size) (avg. util%%)");
    const Rows rows;
    forRayTypes(counts, [&](const char* name, const RtPacketCount& count) {
        RvMsgInfoMasked(
            mask, "%-13s           %12llu (%10.2f, %11.2f) (%6.2f%%) (%9.2f) (%9.2f%%)", name,
            Count(count.packets), ratio(count.rays, s.pixels), ratio(count.rays, s.samples),
            percent(count.packets, counts[RV_ROW_TOTAL].packets), ratio(count.rays, count.packets),
            percent(count.rays, count.packets * packet_rays));
    });
    printMaxDepth(s);
}

static void printRays(const Report& report)
{
    const RtStats& s = report.counts;
    const auto& counts = s.rays.rows[RV_PASS_PIXELS];
    if (!counts[RV_ROW_CAMERA].rays)
        return;
    separator();
    RvMsgInfoMasked(mask, "ray counts:                           (/pixel , /sample) (%% total) "
                          "(avg. hits) (max hits)");
    const Rows rows;
    forRayTypes(counts, [&](const char* name, const RtRayCount& count) {
        RvMsgInfoMasked(mask, "%-13s           %12llu (%7.2f, %7.2f) (%6.2f%%) (%9.2f) (%8d)", name,
                        Count(count.rays), ratio(count.rays, s.pixels),
                        ratio(count.rays, s.samples),
                        percent(count.rays, counts[RV_ROW_TOTAL].rays),
                        ratio(count.hits, count.rays), int(count.max_hits));
    });
    printMaxDepth(s);
}

// ---- Shading ----

static void printLighting(const Report& report)
{
    static const struct {
        const char* name;
        RtLightingRow row;
        bool opens_section;
    } types[] = {
        { "light loops", RV_LIGHTING_LOOPS, true },
        { "  cached", RV_LIGHTING_CACHED, false },
        { "indirect diffuse", RV_LIGHTING_DIFFUSE, true },
        { "indirect glossy", RV_LIGHTING_GLOSSY, true },
        { "custom sampler", RV_LIGHTING_CUSTOM, true },
    };
    const RtStats& s = report.counts;
    if (std::none_of(std::begin(types), std::end(types), [&](const auto& type) {
            return type.opens_section && s.lighting[type.row].primary;
        }))
        return;
    separator();
    RvMsgInfoMasked(mask, "lighting calculations:                (/pixel , /sample)    secondary "
                          "(/pixel , /sample)");
    const Rows rows;
    for (const auto& type : types) {
        const RtLightingCount& count = s.lighting[type.row];
        if (count.primary || count.secondary)
            RvMsgInfoMasked(mask, "%-16s        %12llu (%7.2f, %7.2f) %12llu (%7.2f, %7.2f)",
                            type.name, Count(count.primary), ratio(count.primary, s.pixels),
                            ratio(count.primary, s.samples), Count(count.secondary),
                            ratio(count.secondary, s.pixels), ratio(count.secondary, s.samples));
    }
}

using ShaderCalls = uint64_t[RV_CALL_ROWS];

static uint64_t totalCalls(const ShaderCalls& calls)
{
    uint64_t sum = 0;
    for (uint64_t count : calls)
        sum += count;
    return sum;
}

// Calls print(name, count, percentage) for every kind of call and for their total.
template <class Print> static void forShaderCalls(const ShaderCalls& calls, Print print)
{
    static const char* const names[RV_CALL_ROWS] = { "primary",     "before",     "shadow",
                                                     "quickgi",     "background", "atmosphere",
                                                     "light_filter" };
    const uint64_t total = totalCalls(calls);
    for (int row = 0; row < RV_CALL_ROWS; ++row)
        print(names[row], Count(calls[row]), percent(calls[row], total));
    print("total", Count(total), percent(total, total));
}

static void printShaderCalls(const Report& report)
{
    const RtStats& s = report.counts;
    const ShaderCalls& calls = s.shader_calls[RV_PASS_PIXELS];
    if (!totalCalls(calls))
        return;
    RvMsgInfoMasked(mask, "shader calls:                         (/pixel , /sample) (%% total)");
    const Rows rows;
    forShaderCalls(calls, [&](const char* name, Count count, double share) {
        RvMsgInfoMasked(mask, "%-12s            %12llu (%7.2f, %7.2f) (%6.2f%%)", name, count,
                        ratio(count, s.pixels), ratio(count, s.samples), share);
    });
}

// ---- Caches of light ----

// Rays traced and shaders called to make that many points.
static void printPointTables(const RtStats& s, RtPass pass, uint64_t points)
{
    const auto& counts = s.rays.rows[pass];
    RvMsgInfoMasked(mask, "ray counts:                          (/point ) (%% total) (avg. hits) "
                          "(max hits)");
    {
        const Rows rows;
        forRayTypes(counts, [&](const char* name, const RtRayCount& count) {
            RvMsgInfoMasked(mask, "%-13s          %12llu (%7.2f) (%6.2f%%) (%9.2f) (%8d)", name,
                            Count(count.rays), ratio(count.rays, points),
                            percent(count.rays, counts[RV_ROW_TOTAL].rays),
                            ratio(count.hits, count.rays), int(count.max_hits));
        });
    }
    RvMsgInfoMasked(mask, "shader calls:                        (/point ) (%% total)");
    const Rows rows;
    forShaderCalls(s.shader_calls[pass], [&](const char* name, Count count, double share) {
        RvMsgInfoMasked(mask, "%-12s           %12llu (%7.2f) (%6.2f%%)", name, count,
                        ratio(count, points), share);
    });
}

static void printLookups(const RtStats& s, uint64_t lookups)
{
    RvMsgInfoMasked(mask, "lookups                     %8llu (%7.2f, %7.2f)", Count(lookups),
                    ratio(lookups, s.pixels), ratio(lookups, s.samples));
}

static void printPointClouds(const Report& report)
{
    const RtStats& s = report.counts;
    const RtElementCount& stored = s.sss_stored;
    if (!s.sss_lookups)
        return;
    separator();
    RvMsgInfoMasked(mask, "sss lookups:                          (/pixel , /sample)");
    const Rows rows;
    printLookups(s, s.sss_lookups);
    if (s.sss_computed)
        RvMsgInfoMasked(mask, "  computed samples          %8llu (%6.2f%%)", Count(s.sss_computed),
                        percent(s.sss_computed, stored.total));
    if (!stored.objects)
        return;
    RvMsgInfoMasked(mask, "point clouds                %8u", unsigned(stored.objects));
    RvMsgInfoMasked(mask, "generated points            %8llu (%6.2f%% non-zero samples)",
                    Count(s.sss_generated), percent(stored.total, s.sss_generated));
    RvMsgInfoMasked(mask, "stored points               %8llu (min: %u, avg: %.2f, max: %u)",
                    Count(stored.total), stored.least, ratio(stored.total, stored.objects),
                    stored.most);
    printPointTables(s, RV_PASS_SSS, s.sss_generated);
}

static void printHairCaches(const Report& report)
{
    const RtStats& s = report.counts;
    if (!s.hair_lookups)
        return;
    separator();
    RvMsgInfoMasked(mask, "hair cache lookups:                   (/pixel , /sample)");
    const Rows rows;
    printLookups(s, s.hair_lookups);
    if (s.hair_caches) {
        RvMsgInfoMasked(mask, "hair caches                 %8u", unsigned(s.hair_caches));
        RvMsgInfoMasked(mask, "generated points            %8llu", Count(s.hair_generated));
        RvMsgInfoMasked(mask, "computed points             %8llu (%6.2f%%)", Count(s.hair_computed),
                        percent(s.hair_computed, s.hair_generated));
    }
    if (s.rays.rows[RV_PASS_HAIR][RV_ROW_TOTAL].rays)
        printPointTables(s, RV_PASS_HAIR, s.hair_generated);
}

static void printDisplacement(const Report& report)
{
    if (!report.counts.displaced_meshes)
        return;
    RvMsgInfoMasked(mask, "displacement:");
    const Rows rows;
    RvMsgInfoMasked(mask, "meshes                      %8u",
                    unsigned(report.counts.displaced_meshes));
    RvMsgInfoMasked(mask, "shader calls            %12llu",
                    Count(report.counts.displacement_calls));
}

// ---- Geometry ----

static void printGeometryRow(const char* name, const RtGeometryCount& count)
{
    if (count.objects)
        RvMsgInfoMasked(mask, "%-12s               %9u (%5.1f%%) (%9u) (%10.2f, %10.2f)", name,
                        count.objects, percent(count.objects_hit, count.objects),
                        unsigned(count.instances), megabytes(count.initial_bytes),
                        megabytes(count.bytes()));
}

static void printGeometry(const Report& report)
{
    static const char* const names[RV_GEOMETRY_ROWS] = {
        "lists", "procs", "polymeshes", "subdivs", "nurbs", "curves", "points", "simple"
    };
    separator();
    RvMsgInfoMasked(
        mask,
        "geometry:                             (%% hit ) (instances) (  init mem,  final mem)");
    const Rows rows;
    RtGeometryCount total = {};
    for (int row = 0; row < RV_GEOMETRY_ROWS; ++row) {
        printGeometryRow(names[row], report.counts.geometry[row]);
        total.add(report.counts.geometry[row]);
    }
    printGeometryRow("total", total);
}

static void printElements(const Report& report)
{
    static const struct {
        const char* name;
        RtElementCount RtStats::*elements;
        RtGeometryRow objects;
    } kinds[] = {
        { "objects (top level)", &RtStats::list_children, RV_GEOMETRY_LISTS },
        { "objects (procs)", &RtStats::procedural_children, RV_GEOMETRY_PROCS },
        { "polygons", &RtStats::polygons, RV_GEOMETRY_POLYMESHES },
        { "subdiv patches", &RtStats::subdiv_patches, RV_GEOMETRY_SUBDIVS },
        { "nurbs patches", &RtStats::nurbs_patches, RV_GEOMETRY_NURBS },
        { "curve segments", &RtStats::curve_segments, RV_GEOMETRY_CURVES },
        { "points", &RtStats::points, RV_GEOMETRY_POINTS },
    };
    const RtStats& s = report.counts;
    if (std::none_of(std::begin(kinds), std::end(kinds),
                     [&](const auto& kind) { return (s.*kind.elements).total; }))
        return;
    separator();
    RvMsgInfoMasked(mask,
                    "geometric elements:                   (      min) (       avg.) (      max)");
    const Rows rows;
    for (const auto& kind : kinds) {
        const RtElementCount& elements = s.*kind.elements;
        if (elements.total)
            RvMsgInfoMasked(mask, "%-20s    %12llu (%9u) (%11.1f) (%9u)", kind.name,
                            Count(elements.total), elements.least,
                            ratio(elements.total, s.geometry[kind.objects].objects), elements.most);
    }
}

static void printTriangleRow(const char* name, const RtElementCount& triangles, uint64_t elements,
                             const char* suffix)
{
    if (triangles.objects)
        RvMsgInfoMasked(mask, "%-16s        %12llu (%9u) (%11.1f) (%9u) (%9.2f)%s", name,
                        Count(triangles.total), triangles.least,
                        ratio(triangles.total, triangles.objects), triangles.most,
                        ratio(triangles.total, elements), suffix);
}

static void printSubdivisions(const RtStats& s)
{
    static const char* const names[RV_SUBDIVISION_ROWS] = { " iterations 0", " iterations 1",
                                                            " iterations 2", " iterations 3+",
                                                            " adaptive" };
    RtElementCount triangles = {};
    uint64_t patches = 0;
    for (const RtSubdivisionCount& kind : s.subdivisions) {
        triangles.add(kind.triangles);
        patches += kind.patches;
    }
    printTriangleRow("subdivs", triangles, patches, "");
    for (int row = 0; row < RV_SUBDIVISION_ROWS; ++row) {
        const RtSubdivisionCount& kind = s.subdivisions[row];
        char share[32];
        snprintf(share, sizeof share, " (%6.2f%%)",
                 percent(kind.triangles.total, s.unique_triangles));
        printTriangleRow(names[row], kind.triangles, kind.patches, share);
    }
}

static void printTriangles(const Report& report)
{
    const RtStats& s = report.counts;
    if (!s.unique_triangles)
        return;
    separator();
    RvMsgInfoMasked(mask, "triangle tesselation:                 (      min) (       avg.) (      "
                          "max) (/ element) (%% total)");
    const Rows rows;
    printTriangleRow("polymeshes", s.triangles, s.polygons.total, "");
    printSubdivisions(s);
    RvMsgInfoMasked(mask, "unique triangles:       %12llu", Count(s.unique_triangles));
    if (s.visible_triangles != s.unique_triangles)
        RvMsgInfoMasked(mask, "visible triangles:      %12llu", Count(s.visible_triangles));
}

static void printMeshMemory(const Report& report)
{
    static const char* const labels[RV_MESH_MEMORY_ROWS] = {
        "  vertices",
        "  vertex indices",
        "  polygon base offsets",
        "  polygon IDs",
        "  triangulation",
        "  normals",
        "  packed normals",
        "  normal indices",
        "  shader indices",
        "  uv coords",
        "  uv coords idxs",
        "  P reference (autobump)",
        "  N reference (autobump)",
        "  crease data",
        "  uniform indices",
        "  userdata",
    };
    const RtStats& s = report.counts;
    int64_t bytes[RV_MESH_MEMORY_ROWS], of_meshes = 0;
    for (int row = 0; row < RV_MESH_MEMORY_ROWS; ++row)
        of_meshes += bytes[row] = s.mesh_bytes[row];
    if (!of_meshes)
        return;
    bytes[RV_MESH_USER_DATA] += s.user_data_bytes; // that of other shapes has no row of its own
    const Rows rows;
    printMemoryRow({ "memory use (in mb)", of_meshes + s.user_data_bytes });
    for (int row = 0; row < RV_MESH_MEMORY_ROWS; ++row)
        printMemoryRow(
            { labels[row], bytes[row], row <= RV_MESH_VERTEX_INDICES ? always : when_not_zero });
}

static void printAccels(const Report& report)
{
    static const char* const names[RV_ACCEL_ROWS] = { "null", "list", "bvh", "bvh motion (2 keys)",
                                                      "bvh motion (3+ keys)" };
    uint32_t total = 0;
    for (uint32_t count : report.counts.accels)
        total += count;
    if (!total)
        return;
    const auto printRow = [total](const char* name, uint32_t count) {
        if (count)
            RvMsgInfoMasked(accel_mask, "%-20s    %12u (%6.2f%%)", name, count,
                            percent(count, total));
    };
    RvMsgInfoMasked(accel_mask, "acceleration structures:              (%% total)");
    const Rows rows;
    for (int row = 0; row < RV_ACCEL_ROWS; ++row)
        printRow(names[row], report.counts.accels[row]);
    printRow("total", total);
}

// ---- Textures ----

static void printTextures(const Report& report)
{
    separator();
    const char* const end = report.textures.data() + report.textures.size();
    for (const char* line = report.textures.data(); line < end;) {
        const char* const line_end = std::find(line, end, '\n');
        RvMsgInfoMasked(mask, "%.*s", int(line_end - line), line);
        line = line_end + 1;
    }
}

// ---- Performance warnings ----

// What can be wrong with a render. Nothing is said unless one of the first four is.
struct Problems {
    double rays_per_pixel;
    bool traces_much;
    bool has_poor_bounds;
    bool wastes_threads;
    double creation_percentage;
    bool creates_slowly;

    bool any() const { return traces_much || has_poor_bounds || wastes_threads || creates_slowly; }
};

static Problems findProblems(const RtStats& s)
{
    static constexpr double most_rays_per_pixel = 2000;
    static constexpr double least_utilization = 50, most_creation = 20; // percent
    static constexpr int64_t long_render_ms = 20 * 60000, long_creation_ms = 10 * 60000;
    const double rays = ratio(s.rays.rows[RV_PASS_PIXELS][RV_ROW_TOTAL].rays, s.pixels);
    const double creation = percent(s.scene_ms, s.render_ms + s.scene_ms);
    return {
        .rays_per_pixel = rays,
        .traces_much = rays > most_rays_per_pixel,
        .has_poor_bounds = s.poor_bounds_displaced || s.poor_bounds_procedural,
        .wastes_threads =
            renderWork(s).utilization() < least_utilization && s.render_ms > long_render_ms,
        .creation_percentage = creation,
        .creates_slowly = creation > most_creation && s.scene_ms > long_creation_ms,
    };
}

static const char* haveEnding(uint32_t count) { return count == 1 ? " has" : "s have"; }

static void warnOfPoorBounds(const RtStats& s)
{
    if (s.poor_bounds_displaced)
        RvMsgWarningMasked(
            mask,
            "%d displaced object%s very poor bounds. This can severely affect ray tracing "
            "performance. You should check the \"height\" parameter on your displaced objects.",
            int(s.poor_bounds_displaced), haveEnding(s.poor_bounds_displaced));
    if (s.poor_bounds_procedural)
        RvMsgWarningMasked(
            mask,
            "%d on-demand procedural%s very poor bounds. This can severely affect ray tracing "
            "performance. You should check the bounds being passed from the host application.",
            int(s.poor_bounds_procedural), haveEnding(s.poor_bounds_procedural));
}

static void warnOfSlowCreation(const RtStats& s)
{
    const struct {
        uint32_t count;
        const char* text;
    } issues[] = {
        { s.identical_motion_matrices,
          "matrices were motion blurred even though they were identical." },
        { s.identity_matrices, "matrices were identity - skipping these will save some memory "
                               "allocations and reduce fragmentation" },
        { s.static_motion_meshes, "meshes were motion blurred even though they were static" },
        { s.static_motion_curves,
          "curves objects were motion blurred even though they were static" },
        { s.static_motion_points,
          "points objects were motion blurred even though they were static" },
        { s.curves_with_motion_radius, "curves objects had motion blurred radius information which "
                                       "is not supported and ignored" },
    };
    if (std::none_of(std::begin(issues), std::end(issues),
                     [](const auto& issue) { return issue.count; }))
        return;
    RvMsgWarningMasked(mask,
                       "Scene creation time could be reduced by fixing the following issues:");
    for (const auto& issue : issues)
        if (issue.count)
            RvMsgWarningMasked(mask, "%d %s", int(issue.count), issue.text);
}

// Required: issues of scene creation by themselves are not worth the block.
static void printWarnings(const Report& report)
{
    const RtStats& s = report.counts;
    const Problems problems = findProblems(s);
    if (!problems.any())
        return;
    separator();
    RvMsgWarningMasked(mask, "performance warnings:");
    const Rows rows;
    if (problems.traces_much)
        RvMsgWarningMasked(mask,
                           "You are tracing %.00f rays per pixel. You may want to double check "
                           "your sampling settings.",
                           problems.rays_per_pixel);
    warnOfPoorBounds(s);
    if (problems.wastes_threads)
        RvMsgWarningMasked(mask,
                           "Rendering utilization was only %.00f%%. Your render may be bound by a "
                           "single threaded process or I/O.",
                           renderWork(s).utilization());
    if (problems.creates_slowly)
        RvMsgWarningMasked(mask,
                           "Scene creation was a significant amount of total time (%.00f%%). "
                           "Consider optimizing this process first.",
                           problems.creation_percentage);
    warnOfSlowCreation(s);
}

// ---- The report ----

void printReport(const Report& report)
{
    RvMsgInfoMasked(mask, "%s", "");
    separator();
    for (const auto printSection :
         { printCreation, printRender, printMemory, printPackets, printRays, printLighting,
           printShaderCalls, printPointClouds, printHairCaches, printDisplacement, printGeometry,
           printElements, printTriangles, printMeshMemory, printAccels, printTextures,
           printWarnings })
        printSection(report);
    separator();
}

} // namespace rv
