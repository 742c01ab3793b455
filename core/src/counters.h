// The statistics records: one for each worker slot and one for the host thread. Every thread
// writes its own record only, so counting takes no lock. Subsystems add their counters here, and
// the rule by which the records are summed in stats.cpp; nothing may be padded.
#ifndef RV_COUNTERS_H
#define RV_COUNTERS_H

#include "frame.h"

// Rows of the ray statistics; a ray counts in the total and in every row its type matches.
enum RtRayRow {
    RV_ROW_TOTAL,
    RV_ROW_CAMERA,
    RV_ROW_SHADOW,
    RV_ROW_VOLUME_SHADOW,
    RV_ROW_REFLECTION,
    RV_ROW_REFRACTION,
    RV_ROW_DIFFUSE,
    RV_ROW_GLOSSY,
    RV_ROW_USER,
    RV_ROW_COUNT
};

// What the rays of a group were traced for.
enum RtPass : uint8_t { RV_PASS_PIXELS, RV_PASS_SSS, RV_PASS_HAIR, RV_PASS_COUNT };

struct RtRayCount {
    uint64_t rays;
    uint64_t hits;
    uint64_t max_hits; // of one ray
};

// Rays that were traced together. They do not count among the others.
struct RtPacketCount {
    uint64_t packets;
    uint64_t rays;
};

struct RtRayStats {
    RtRayCount rows[RV_PASS_COUNT][RV_ROW_COUNT];
    RtPacketCount packets[RV_ROW_COUNT];
    uint64_t max_depth; // largest level of a traced ray
};

// What shaders are called for.
enum RtShaderCallRow {
    RV_CALL_PRIMARY,
    RV_CALL_BEFORE,
    RV_CALL_SHADOW,
    RV_CALL_QUICKGI,
    RV_CALL_BACKGROUND,
    RV_CALL_ATMOSPHERE,
    RV_CALL_LIGHT_FILTER,
    RV_CALL_ROWS
};

// Calculations of light that shaders ask for.
enum RtLightingRow {
    RV_LIGHTING_LOOPS,
    RV_LIGHTING_CACHED,
    RV_LIGHTING_DIFFUSE,
    RV_LIGHTING_GLOSSY,
    RV_LIGHTING_CUSTOM, // samplers of shaders themselves
    RV_LIGHTING_ROWS
};

struct RtLightingCount {
    uint64_t primary;
    uint64_t secondary; // within the loop of another sampler
};

// Kinds of geometry that the report tells apart.
enum RtGeometryRow {
    RV_GEOMETRY_LISTS,
    RV_GEOMETRY_PROCS,
    RV_GEOMETRY_POLYMESHES,
    RV_GEOMETRY_SUBDIVS,
    RV_GEOMETRY_NURBS,
    RV_GEOMETRY_CURVES,
    RV_GEOMETRY_POINTS,
    RV_GEOMETRY_SIMPLE,
    RV_GEOMETRY_ROWS
};

struct RtGeometryCount {
    uint32_t objects;
    uint32_t objects_hit; // of these, by a ray at least
    uint64_t instances;
    int64_t initial_bytes;
    int64_t freed_bytes;
    int64_t added_bytes; // after initialisation

    int64_t bytes() const { return initial_bytes - freed_bytes + added_bytes; }
    void add(const RtGeometryCount& other)
    {
        objects += other.objects;
        objects_hit += other.objects_hit;
        instances += other.instances;
        initial_bytes += other.initial_bytes;
        freed_bytes += other.freed_bytes;
        added_bytes += other.added_bytes;
    }
};

// Elements (children, polygons, segments, ...) of the objects of one kind.
struct RtElementCount {
    uint64_t total;
    uint32_t least; // per object; meaningful when `objects` is not 0
    uint32_t most;
    uint64_t objects;

    void add(uint32_t elements) { add({ elements, elements, elements, 1 }); }
    void add(const RtElementCount& other)
    {
        if (other.objects == 0)
            return;
        total += other.total;
        least = objects && least < other.least ? least : other.least;
        most = most > other.most ? most : other.most;
        objects += other.objects;
    }
};

// Refined meshes, by how often all their patches were divided; adaptive ones apart.
enum RtSubdivisionRow {
    RV_SUBDIVISION_0,
    RV_SUBDIVISION_1,
    RV_SUBDIVISION_2,
    RV_SUBDIVISION_3, // and more
    RV_SUBDIVISION_ADAPTIVE,
    RV_SUBDIVISION_ROWS
};

struct RtSubdivisionCount {
    RtElementCount triangles; // per mesh
    uint64_t patches;
};

// Arrays of polygon meshes, in the order of the report.
enum RtMeshMemoryRow {
    RV_MESH_VERTICES,
    RV_MESH_VERTEX_INDICES,
    RV_MESH_BASE_OFFSETS,
    RV_MESH_POLYGON_IDS,
    RV_MESH_TRIANGULATION,
    RV_MESH_NORMALS,
    RV_MESH_PACKED_NORMALS,
    RV_MESH_NORMAL_INDICES,
    RV_MESH_SHADER_INDICES,
    RV_MESH_UVS,
    RV_MESH_UV_INDICES,
    RV_MESH_P_REFERENCE,
    RV_MESH_N_REFERENCE,
    RV_MESH_CREASES,
    RV_MESH_UNIFORM_INDICES,
    RV_MESH_USER_DATA,
    RV_MESH_MEMORY_ROWS
};

// Acceleration structures, in the order of the report.
enum RtAccelRow {
    RV_ACCEL_NULL,
    RV_ACCEL_LIST,
    RV_ACCEL_BVH,
    RV_ACCEL_BVH_MOTION2,
    RV_ACCEL_BVH_MOTION3,
    RV_ACCEL_ROWS
};

// What describes one render; cleared when a render starts.
struct RtRenderCounters {
    RtRayStats rays;
    uint64_t shader_calls[RV_PASS_COUNT][RV_CALL_ROWS];
    RtLightingCount lighting[RV_LIGHTING_ROWS];
    uint64_t pixels;  // rendered, borders of buckets included
    uint64_t samples; // of the camera

    // Sub-surface scattering.
    uint64_t sss_lookups;
    uint64_t sss_computed;     // lookups that did not find their result in the cache
    uint64_t sss_generated;    // points
    RtElementCount sss_stored; // points with light, per cloud

    // Light stored along curves.
    uint64_t hair_lookups;
    uint64_t hair_caches;
    uint64_t hair_generated; // points
    uint64_t hair_computed;  // of these

    uint64_t displaced_meshes;
    uint64_t displacement_calls; // of shaders

    int64_t setup_ms;            // node passes, thread slots and the root object list
    int64_t sanity_ms;           // of these, checking meshes
    int64_t bucket_ms;           // wall clock of the bucket phase
    int64_t subdivision_ms;      // refining meshes
    int64_t displacement_ms;     // moving their vertices
    int64_t accel_ms;            // building acceleration structures
    int64_t procedural_ms;       // loading procedurals
    int64_t sss_distribution_ms; // placing the points of clouds
    int64_t sss_irradiance_ms;   // lighting them
    int64_t sss_octree_ms;       // and sorting them
    int64_t hair_cache_ms;       // lighting curves
    int64_t render_ms;           // wall clock of the render
    int64_t render_user_ms;      // processor time of the same
    int64_t threads;

    int64_t peak_bytes;   // resident memory of the process, at most
    int64_t pool_bytes;   // of the thread's shading pools, at most
    int64_t sample_bytes; // sample stores
    int64_t output_bytes; // pixels on their way to the drivers
};

// The rest describes the scene and accumulates over the renders of a universe.
struct RtStats : RtRenderCounters {
    // Since the last report.
    int64_t scene_ms;      // wall clock the host spent between renders
    int64_t scene_user_ms; // processor time of the same
    int64_t plugin_ms;     // loading plug-in libraries
    int64_t parse_ms;      // reading scene files

    int64_t plugin_bytes;        // of plug-in libraries
    int64_t node_overhead_bytes; // node records, parameter storage, flags and link tables
    int64_t instance_overhead_bytes;
    int64_t message_bytes; // message banks
    int64_t geometry_bytes;
    int64_t user_data_bytes;
    int64_t accel_bytes;
    int64_t skydome_map_bytes;
    int64_t quad_map_bytes;
    int64_t sss_bytes; // point clouds
    int64_t hair_cache_bytes;
    int64_t sss_pool_bytes; // scratch memory
    int64_t displacement_pool_bytes;
    int64_t hair_cache_pool_bytes;
    int64_t mesh_bytes[RV_MESH_MEMORY_ROWS];
    RtGeometryCount geometry[RV_GEOMETRY_ROWS];
    RtElementCount list_children;
    RtElementCount procedural_children;
    RtElementCount polygons; // of polygon meshes
    RtElementCount subdiv_patches;
    RtElementCount nurbs_patches;
    RtElementCount curve_segments;
    RtElementCount points;
    RtElementCount triangles; // of polygon meshes
    RtSubdivisionCount subdivisions[RV_SUBDIVISION_ROWS];
    uint64_t unique_triangles;  // of whatever is made of triangles
    uint64_t visible_triangles; // the same, hidden objects left out and with those of instances
    uint32_t accels[RV_ACCEL_ROWS];
    uint32_t degenerate_polygons;

    // Scenes that could be made faster.
    uint32_t poor_bounds_displaced;
    uint32_t poor_bounds_procedural;
    uint32_t identical_motion_matrices;
    uint32_t identity_matrices;
    uint32_t static_motion_meshes;
    uint32_t static_motion_curves;
    uint32_t static_motion_points;
    uint32_t curves_with_motion_radius;
};

namespace rv {

// Slot of the calling thread: workers set theirs when they start, everybody else is the host.
inline thread_local int stats_slot = host_stats_slot;

// The bytes of nodes change under the scene lock only: all threads of the host share one record,
// and link tables always count for the host.
inline RtStats* hostStats() { return the_frame->stats[host_stats_slot]; }
inline RtStats* threadStats() { return the_frame->stats[stats_slot]; }

} // namespace rv

#endif
