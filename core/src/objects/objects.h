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

extern const RtNodeMethods sphere_methods, cylinder_methods, cone_methods, disc_methods,
    plane_methods, polymesh_methods, nurbs_methods, box_methods, curves_methods, points_methods,
    implicit_methods, ginstance_methods, procedural_methods, list_aggregate_methods;

} // namespace rv

#endif
