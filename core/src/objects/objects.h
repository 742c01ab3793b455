// What the shape node types share: the common parameters and the list of types.
#ifndef RV_OBJECTS_H
#define RV_OBJECTS_H

#include "declare.h"
#include "rv_shapes.h"

namespace rv {

// The parameters common to all shapes. The order keeps the record at 104 bytes; declaration order
// is that of shapeParameters().
struct ShapeParams {
    int visibility; // RV_RAY_* bits
    int sidedness;  // RV_RAY_* bits
    bool receive_shadows;
    bool self_shadows;
    bool invert_normals;
    float ray_bias;
    RtArray* matrix; // MATRIX, object to world, one per transform key
    RtArray* shader; // NODE
    bool opaque;
    bool use_light_group;
    bool use_shadow_group;
    bool unbounded;
    RtArray* light_group;  // NODE
    RtArray* shadow_group; // NODE
    RtArray* trace_sets;   // STRING
    RtArray* transform_time_samples;
    RtArray* deform_time_samples;
    float sss_sample_spacing;
    int sss_max_samples;
    bool sss_use_gi;
    int id;
    bool autobump;
};
static_assert(sizeof(ShapeParams) == 104);

// Declares them, with offsets into ShapeParams.
void shapeParameters(RtList* params, RtMetaDataStore* metadata);

// Shape methods, named like their slots, for the slots that tracing never calls: containers stand
// for other objects, and points fill the geometry of a hit while they are intersected. A call is a
// broken invariant and fatal; where that is not enabled on any destination they give zeros.
namespace unreachable {

void ShapeLocalGeometry(const RtVector* ray_dir, float time, const RtMatrix* world_to_object,
                        RtHit* hit, const RtPoint* point, RtLocalGeometry* out);
void ShapeBBox(RtGObject* object, RtBBox* bbox, int key);
void ShapeTextureCoordinates(RtGObject* object, uint32_t prim_index, float hit_u, float hit_v,
                             float* u, float* v);
void* ShapePrepareUserData(RtGObject* object, uint32_t prim_index, float hit_u, float hit_v,
                           int thread);
RtAccel* ShapePrepareIntersection(RtGObject* object, int thread);

} // namespace unreachable

extern const RtNodeMethods sphere_methods, cylinder_methods, cone_methods, disc_methods,
    plane_methods, polymesh_methods, nurbs_methods, box_methods, curves_methods, points_methods,
    implicit_methods, ginstance_methods, procedural_methods, list_aggregate_methods;

} // namespace rv

#endif
