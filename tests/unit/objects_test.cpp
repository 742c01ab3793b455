#include "objects/objects.h"

#include "nodes.h"
#include "rv_rays.h"
#include "universe_fixture.h"

namespace {

const char* const shape_types[] = { "sphere",     "cylinder",      "cone",     "disc",
                                    "plane",      "polymesh",      "nurbs",    "box",
                                    "curves",     "points",        "implicit", "ginstance",
                                    "procedural", "list_aggregate" };

const RtNodeEntry* typeNamed(const char* name)
{
    const RtNodeEntry* const entry = RvNodeEntryLookUp(name);
    EXPECT_TRUE(entry) << name;
    return entry;
}

// The common block of a shape node.
const rv::ShapeParams* commonOf(const RtNode* node)
{
    return reinterpret_cast<const rv::ShapeParams*>(static_cast<const char*>(node->params) +
                                                    node->entry->base_offset);
}

using Objects = Universe;

TEST_F(Objects, every_shape_declares_the_common_parameters_behind_its_own_in_order)
{
    static const struct {
        const char* name;
        int type;
        int element_type; // of an ARRAY
    } common[] = {
        { "visibility", RV_TYPE_INT, 0 },
        { "sidedness", RV_TYPE_INT, 0 },
        { "receive_shadows", RV_TYPE_BOOLEAN, 0 },
        { "self_shadows", RV_TYPE_BOOLEAN, 0 },
        { "invert_normals", RV_TYPE_BOOLEAN, 0 },
        { "ray_bias", RV_TYPE_FLOAT, 0 },
        { "matrix", RV_TYPE_ARRAY, RV_TYPE_MATRIX },
        { "shader", RV_TYPE_ARRAY, RV_TYPE_NODE },
        { "opaque", RV_TYPE_BOOLEAN, 0 },
        { "use_light_group", RV_TYPE_BOOLEAN, 0 },
        { "light_group", RV_TYPE_ARRAY, RV_TYPE_NODE },
        { "use_shadow_group", RV_TYPE_BOOLEAN, 0 },
        { "shadow_group", RV_TYPE_ARRAY, RV_TYPE_NODE },
        { "trace_sets", RV_TYPE_ARRAY, RV_TYPE_STRING },
        { "unbounded", RV_TYPE_BOOLEAN, 0 },
        { "transform_time_samples", RV_TYPE_ARRAY, RV_TYPE_FLOAT },
        { "deform_time_samples", RV_TYPE_ARRAY, RV_TYPE_FLOAT },
        { "sss_sample_spacing", RV_TYPE_FLOAT, 0 },
        { "sss_max_samples", RV_TYPE_INT, 0 },
        { "sss_use_gi", RV_TYPE_BOOLEAN, 0 },
        { "id", RV_TYPE_INT, 0 },
        { "autobump", RV_TYPE_BOOLEAN, 0 },
    };
    for (const char* type : shape_types) {
        SCOPED_TRACE(type);
        const RtNodeEntry* const entry = typeNamed(type);
        const int first = entry->own_param_count;
        ASSERT_EQ(RvNodeEntryGetNumParams(entry), first + static_cast<int>(std::size(common)) + 1);
        int i = first;
        for (const auto& c : common) {
            const RtParamEntry* const param = RvNodeEntryGetParameter(entry, i++);
            EXPECT_STREQ(RvParamGetName(param), c.name);
            EXPECT_EQ(RvParamGetType(param), c.type) << c.name;
            if (c.type == RV_TYPE_ARRAY) {
                EXPECT_EQ(RvParamGetDefault(param)->ARRAY->type, c.element_type) << c.name;
            }
        }
    }
}

TEST_F(Objects, rendering_reads_the_common_parameters_of_every_shape_as_plain_fields)
{
    for (const char* type : shape_types) {
        SCOPED_TRACE(type);
        RtNode* const node = RvNode(type);
        ASSERT_TRUE(node);
        const rv::ShapeParams* const common = commonOf(node);
        EXPECT_EQ(common->visibility, RV_RAY_ALL);
        EXPECT_EQ(common->sidedness, RV_RAY_ALL);
        EXPECT_TRUE(common->receive_shadows && common->self_shadows && common->opaque);
        EXPECT_FALSE(common->unbounded);
        EXPECT_EQ(common->ray_bias, 1e-6f);
        EXPECT_EQ(common->matrix->nelements, 0u);
        EXPECT_EQ(common->transform_time_samples->nelements, 2u);
        EXPECT_EQ(RvArrayGetFlt(common->deform_time_samples, 1), 1);
        EXPECT_EQ(common->sss_max_samples, 100000);
        RvNodeSetBool(node, "invert_normals", true);
        RvNodeSetInt(node, "id", 7);
        RvNodeSetFlt(node, "sss_sample_spacing", 0.25f);
        EXPECT_TRUE(common->invert_normals);
        EXPECT_EQ(common->id, 7);
        EXPECT_EQ(common->sss_sample_spacing, 0.25f);
        EXPECT_FALSE(common->autobump);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Objects, a_procedural_declares_its_own_parameters_first_at_published_offsets)
{
    static const struct {
        const char* name;
        int type;
        int offset;
    } own[] = {
        { "dso", RV_TYPE_STRING, 0 },
        { "data", RV_TYPE_STRING, 8 },
        { "load_at_init", RV_TYPE_BOOLEAN, 16 },
        { "min", RV_TYPE_POINT, 20 },
        { "max", RV_TYPE_POINT, 32 },
        { "userptr", RV_TYPE_POINTER, 48 },
        { "funcptr", RV_TYPE_POINTER, 56 },
        { "unload_dso", RV_TYPE_BOOLEAN, 64 },
    };
    const RtNodeEntry* const entry = typeNamed("procedural");
    ASSERT_EQ(entry->own_param_count, std::size(own));
    int i = 0;
    for (const auto& o : own) {
        const RtParamEntry* const param = RvNodeEntryGetParameter(entry, i++);
        EXPECT_STREQ(RvParamGetName(param), o.name);
        EXPECT_EQ(RvParamGetType(param), o.type) << o.name;
        EXPECT_EQ(param->offset, o.offset) << o.name;
    }
    static const struct {
        const char* key;
        int value;
    } layout[] = { { "_baseoffset", 72 }, { "_baseoffset2", 176 }, { "_struct_size", 184 } };
    for (const auto& l : layout) {
        int value = 0;
        EXPECT_TRUE(RvMetaDataGetInt(entry, nullptr, l.key, &value)) << l.key;
        EXPECT_EQ(value, l.value) << l.key;
    }
}

TEST_F(Objects, a_new_procedural_loads_nothing_yet_and_will_unload_its_library)
{
    RtNode* const node = RvNode("procedural");
    EXPECT_STREQ(RvNodeGetStr(node, "dso"), "");
    EXPECT_STREQ(RvNodeGetStr(node, "data"), "");
    EXPECT_FALSE(RvNodeGetBool(node, "load_at_init"));
    for (const char* corner : { "min", "max" }) {
        const RtPoint p = RvNodeGetPnt(node, corner);
        EXPECT_TRUE(p.x == 0 && p.y == 0 && p.z == 0) << corner;
    }
    EXPECT_EQ(RvNodeGetPtr(node, "userptr"), nullptr);
    EXPECT_EQ(RvNodeGetPtr(node, "funcptr"), nullptr);
    EXPECT_TRUE(RvNodeGetBool(node, "unload_dso"));
}

TEST_F(Objects, every_shape_supports_rebuilding_and_a_new_matrix_asks_for_it)
{
    for (const char* type : shape_types) {
        const RtNodeEntry* const entry = typeNamed(type);
        bool supported = false, asked = false;
        EXPECT_TRUE(RvMetaDataGetBool(entry, nullptr, "_supports_rebuild", &supported)) << type;
        EXPECT_TRUE(RvMetaDataGetBool(entry, "matrix", "_triggers_rebuild", &asked)) << type;
        EXPECT_TRUE(supported && asked) << type;
    }
}

// Required: a polymesh is displaced by one unit unless told otherwise, a nurbs is not displaced.
TEST_F(Objects, the_default_displacement_height_is_1_for_polymesh_and_0_for_nurbs)
{
    EXPECT_EQ(RvNodeGetFlt(RvNode("polymesh"), "disp_height"), 1);
    EXPECT_EQ(RvNodeGetFlt(RvNode("nurbs"), "disp_height"), 0);
}

TEST_F(Objects, an_instance_copies_settings_but_shares_geometry_arrays)
{
    static const struct {
        const char* type;
        const char* array;
        int element_type;
        bool copied;
    } cases[] = {
        { "polymesh", "nsides", RV_TYPE_UINT, false },
        { "polymesh", "vidxs", RV_TYPE_UINT, false },
        { "polymesh", "nidxs", RV_TYPE_UINT, false },
        { "polymesh", "uvidxs", RV_TYPE_UINT, false },
        { "polymesh", "crease_idxs", RV_TYPE_UINT, false },
        { "polymesh", "shidxs", RV_TYPE_BYTE, false },
        { "polymesh", "vlist", RV_TYPE_POINT, false },
        { "polymesh", "nlist", RV_TYPE_VECTOR, false },
        { "polymesh", "uvlist", RV_TYPE_POINT2, false },
        { "polymesh", "deform_time_samples", RV_TYPE_FLOAT, true },
        { "curves", "num_points", RV_TYPE_UINT, false },
        { "curves", "points", RV_TYPE_POINT, false },
        { "curves", "radius", RV_TYPE_FLOAT, false },
        { "points", "points", RV_TYPE_POINT, false },
        { "points", "radius", RV_TYPE_FLOAT, false },
        { "points", "aspect", RV_TYPE_FLOAT, false },
        { "points", "rotation", RV_TYPE_FLOAT, false },
        { "nurbs", "cvs", RV_TYPE_FLOAT, true },
        { "sphere", "radius", RV_TYPE_FLOAT, true },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.type) + "." + c.array);
        RtNode* const original = RvNode(c.type);
        RtNode* const copy = RvNode(c.type);
        RvNodeSetArray(original, c.array, RvArrayAllocate(5, 1, c.element_type));
        RvNodeSetInt(original, "id", 3);
        rv::RvNodeCopy(copy, original, rv::CopyMode::instance);
        EXPECT_EQ(RvNodeGetArray(copy, c.array)->nelements == 5, c.copied);
        EXPECT_EQ(RvNodeGetInt(copy, "id"), 3);
    }
    EXPECT_EQ(takeProblem(), "");
}

// ---- Slots that tracing never calls ----

enum Slot { local_geometry, bbox, texture_coordinates, user_data, intersection };
const char* const slot_names[] = { "ShapeLocalGeometry", "ShapeBBox", "ShapeTextureCoordinates",
                                   "ShapePrepareUserData", "ShapePrepareIntersection" };

// What the slots write and return, poisoned before the call.
struct SlotResults {
    RtLocalGeometry geometry = { RV_V3_ONE, RV_V3_ONE, RV_V3_ONE, RV_V3_ONE };
    RtBBox bbox = RV_BBOX_UNIT;
    float u = 1, v = 1;
    void* user_data = this;
    void* accel = this;
};

void call(const RtNodeMethods& methods, Slot slot, SlotResults* results)
{
    const auto* const shape = static_cast<const RtShapeMethods*>(methods.kind_methods);
    switch (slot) {
    case local_geometry:
        shape->ShapeLocalGeometry(&RV_V3_X, 0, &RV_M4_IDENTITY, nullptr, &RV_P3_ZERO,
                                  &results->geometry);
        break;
    case bbox: shape->ShapeBBox(nullptr, &results->bbox, -1); break;
    case texture_coordinates:
        shape->ShapeTextureCoordinates(nullptr, 0, 0, 0, &results->u, &results->v);
        break;
    case user_data: results->user_data = shape->ShapePrepareUserData(nullptr, 0, 0, 0, 0); break;
    case intersection: results->accel = shape->ShapePrepareIntersection(nullptr, 0); break;
    }
}

TEST_F(Objects, calling_a_slot_that_is_never_reached_is_fatal)
{
    static const struct {
        const char* type;
        const RtNodeMethods& methods;
        std::vector<Slot> slots;
    } cases[] = {
        { "ginstance",
          rv::ginstance_methods,
          { local_geometry, bbox, texture_coordinates, user_data, intersection } },
        { "list_aggregate",
          rv::list_aggregate_methods,
          { local_geometry, texture_coordinates, user_data } },
        { "procedural",
          rv::procedural_methods,
          { local_geometry, texture_coordinates, user_data } },
        { "points", rv::points_methods, { local_geometry } },
    };
    // Death tests look at the standard error stream.
    RvMsgSetCallback([](int, int severity, const char* text, int) {
        if (severity == 3)
            fprintf(stderr, "fatal: %s\n", text);
    });
    SlotResults results;
    for (const auto& c : cases)
        for (const Slot slot : c.slots) {
            SCOPED_TRACE(std::string(c.type) + " " + slot_names[slot]);
            EXPECT_DEATH(call(c.methods, slot, &results), "fatal: reached code line in error: "
                                                          "core.src.objects.objects:[0-9]+ \\(in " +
                                                              std::string(slot_names[slot]) +
                                                              "\\)");
        }
}

TEST_F(Objects, a_slot_that_is_never_reached_gives_zeros_when_errors_are_shown_nowhere)
{
    RvMsgSetConsoleFlags(0);
    SlotResults results;
    for (const Slot slot : { local_geometry, bbox, texture_coordinates, user_data, intersection })
        call(rv::ginstance_methods, slot, &results);
    for (const RtVector& vector : { results.geometry.Ng, results.geometry.N, results.geometry.dPdu,
                                    results.geometry.dPdv, results.bbox.min, results.bbox.max })
        EXPECT_TRUE(vector.x == 0 && vector.y == 0 && vector.z == 0);
    EXPECT_EQ(results.u, 0);
    EXPECT_EQ(results.v, 0);
    EXPECT_EQ(results.user_data, nullptr);
    EXPECT_EQ(results.accel, nullptr);
}

} // namespace
