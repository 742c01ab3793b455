// stats: adds up the statistics records of all threads and gathers what the report tells beside
// them. Declared by stats.h; the text is made in stats_report.cpp.
#include "stats.h"

#include "msg.h"
#include "options.h"
#include "render_session.h"
#include "render_steps.h"
#include "rv_render.h"
#include "strpool.h"
#include "texture.h"

#include <algorithm>
#include <type_traits>

namespace rv {

// ---- Summing ----

// Padding would escape the test that no counter is left out below.
static_assert(std::has_unique_object_representations_v<RtStats>);

template <class T>
requires std::is_integral_v<T>
static void add(T& sum, T value) { sum += value; }

static void add(RtRayCount& sum, const RtRayCount& count)
{
    sum.rays += count.rays;
    sum.hits += count.hits;
    sum.max_hits = std::max(sum.max_hits, count.max_hits);
}

static void add(RtPacketCount& sum, const RtPacketCount& count)
{
    sum.packets += count.packets;
    sum.rays += count.rays;
}

static void add(RtLightingCount& sum, const RtLightingCount& count)
{
    sum.primary += count.primary;
    sum.secondary += count.secondary;
}

static void add(RtSubdivisionCount& sum, const RtSubdivisionCount& count)
{
    sum.triangles.add(count.triangles);
    sum.patches += count.patches;
}

static void add(RtElementCount& sum, const RtElementCount& count) { sum.add(count); }
static void add(RtGeometryCount& sum, const RtGeometryCount& count) { sum.add(count); }

template <class T, size_t n> static void add(T (&sums)[n], const T (&values)[n])
{
    for (size_t i = 0; i < n; ++i)
        add(sums[i], values[i]);
}

static void add(RtRayStats& sum, const RtRayStats& stats)
{
    add(sum.rows, stats.rows);
    add(sum.packets, stats.packets);
    sum.max_depth = std::max(sum.max_depth, stats.max_depth);
}

template <auto... fields> static void addFields(RtStats& sum, const RtStats& record)
{
    (add(sum.*fields, record.*fields), ...);
}

template <auto... fields> static void takeLarger(RtStats& sum, const RtStats& record)
{
    ((sum.*fields = std::max(sum.*fields, record.*fields)), ...);
}

void addStats(RtStats* sum, const RtStats& record)
{
    using S = RtStats;
    takeLarger<&S::threads, &S::peak_bytes>(*sum, record);
    addFields<&S::rays, &S::shader_calls, &S::lighting, &S::pixels, &S::samples>(*sum, record);
    addFields<&S::sss_lookups, &S::sss_computed, &S::sss_generated, &S::sss_stored>(*sum, record);
    addFields<&S::hair_lookups, &S::hair_caches, &S::hair_generated, &S::hair_computed,
              &S::displaced_meshes, &S::displacement_calls>(*sum, record);
    addFields<&S::setup_ms, &S::sanity_ms, &S::bucket_ms, &S::subdivision_ms, &S::displacement_ms,
              &S::accel_ms, &S::procedural_ms, &S::sss_distribution_ms, &S::sss_irradiance_ms,
              &S::sss_octree_ms, &S::hair_cache_ms, &S::render_ms, &S::render_user_ms>(*sum,
                                                                                       record);
    addFields<&S::pool_bytes, &S::sample_bytes, &S::output_bytes>(*sum, record);
    addFields<&S::scene_ms, &S::scene_user_ms, &S::plugin_ms, &S::parse_ms>(*sum, record);
    addFields<&S::plugin_bytes, &S::node_overhead_bytes, &S::instance_overhead_bytes,
              &S::message_bytes, &S::geometry_bytes, &S::user_data_bytes, &S::accel_bytes,
              &S::skydome_map_bytes, &S::quad_map_bytes, &S::sss_bytes, &S::hair_cache_bytes,
              &S::sss_pool_bytes, &S::displacement_pool_bytes, &S::hair_cache_pool_bytes,
              &S::mesh_bytes>(*sum, record);
    addFields<&S::geometry, &S::list_children, &S::procedural_children, &S::polygons,
              &S::subdiv_patches, &S::nurbs_patches, &S::curve_segments, &S::points, &S::triangles,
              &S::subdivisions, &S::unique_triangles, &S::visible_triangles, &S::accels,
              &S::degenerate_polygons>(*sum, record);
    addFields<&S::poor_bounds_displaced, &S::poor_bounds_procedural, &S::identical_motion_matrices,
              &S::identity_matrices, &S::static_motion_meshes, &S::static_motion_curves,
              &S::static_motion_points, &S::curves_with_motion_radius>(*sum, record);
}

// ---- The step ----

static Report gatherReport(const RtFrame& frame)
{
    Report report = {};
    for (const RtStats* record : frame.stats)
        addStats(&report.counts, *record);
    // Without buckets nobody has measured it.
    report.counts.peak_bytes =
        std::max(report.counts.peak_bytes, int64_t(RvMsgUtilGetUsedMemory()));
    report.has_image = frame.session->mode == RV_RENDER_MODE_CAMERA;
    report.startup_bytes = int64_t(frame.start_memory);
    report.string_bytes = frame.strings ? frame.strings->bytes() : 0;
    report.string_summary = frame.strings ? frame.strings->Summary() : "";
    report.texture_bytes = textureCacheBytes();
    const bool per_file = render_options && render_options->texture_per_file_stats;
    report.textures = textureStatistics(per_file ? 2 : 1);
    return report;
}

// The next report tells of the time after this one.
static void restartCreationTimes(const RtFrame& frame)
{
    for (RtStats* record : frame.stats)
        record->scene_ms = record->scene_user_ms = record->plugin_ms = record->parse_ms = 0;
}

void printStatistics()
{
    if (isLogged(RV_LOG_STATS))
        printReport(gatherReport(*the_frame));
    restartCreationTimes(*the_frame);
}

} // namespace rv
