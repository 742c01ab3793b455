// Tests of what all analytic shapes share: their objects, structures, user data and statistics, and
// that no parameter and no ray upsets them.
#include "objects/simple.h"
#include "render_session.h"
#include "rv_shaderglobals.h"
#include "shading_state.h"
#include "shape_tools.h"

using namespace shape_tools;

namespace {

class SimpleShapes : public Shapes {
protected:
    static constexpr struct {
        const char* type;
        RtObjectKind kind;
    } types[] = {
        { "plane", RV_KIND_PLANE },       { "disc", RV_KIND_DISC }, { "sphere", RV_KIND_SPHERE },
        { "cylinder", RV_KIND_CYLINDER }, { "cone", RV_KIND_CONE }, { "box", RV_KIND_BOX },
        { "implicit", RV_KIND_IMPLICIT },
    };

    // What a shading point on the shape reads under a name.
    static RtUserDataHit* userData(RtNode* node)
    {
        return static_cast<RtUserDataHit*>(
            rv::shapeMethods(node).ShapePrepareUserData(rv::objectOf(node), 0, 0.25f, 0.75f, 0));
    }

    static void poke(RtNode* node, const RtParamEntry* param, float value)
    {
        void* const at = rv::paramStorage(node, param);
        const float values[3] = { value, value, value };
        switch (param->type) {
        case RV_TYPE_FLOAT: memcpy(at, values, sizeof(float)); break;
        case RV_TYPE_POINT:
        case RV_TYPE_VECTOR: memcpy(at, values, sizeof values); break;
        case RV_TYPE_ARRAY: {
            RtArray* const array = *static_cast<RtArray**>(at);
            memcpy(array->data, values, rv::typeSize(array->type));
            break;
        }
        default: break;
        }
    }
};

} // namespace

TEST_F(SimpleShapes, objects_are_of_their_kind_and_admit_one_element_of_uniform_data)
{
    for (const auto& t : types) {
        RtNode* const node = shape(t.type);
        const RtGObject* const object = prepared(node);
        ASSERT_TRUE(object) << t.type;
        EXPECT_EQ(object->kind, t.kind) << t.type;
        EXPECT_EQ(object->node, node) << t.type;
        EXPECT_FALSE(object->data) << t.type;
        EXPECT_EQ(object->nkeys_shape, 1u) << t.type;
        EXPECT_EQ(object->nuniform, 1u) << t.type;
        EXPECT_EQ(object->nvarying, 0u) << t.type;
    }
    EXPECT_EQ(rv::threadStats()->geometry[RV_GEOMETRY_SIMPLE].objects, std::size(types));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(SimpleShapes, structures_are_called_simple_and_counted_once)
{
    for (const auto& t : types) {
        RtNode* const node = shape(t.type);
        ASSERT_TRUE(prepared(node));
        RvGObjectBuildAccel(node, 0);
        RvGObjectBuildAccel(node, 0);
        const RtAccel* const accel = rv::objectOf(node)->accel;
        ASSERT_TRUE(accel) << t.type;
        EXPECT_STREQ(accel->name(), "simple") << t.type;
        EXPECT_EQ(rv::threadStats()->accels[RV_ACCEL_NULL], 1u) << t.type;
        EXPECT_EQ(rv::threadStats()->accel_bytes, int64_t(accel->memory())) << t.type;
        RvNodeDestroy(node);
        EXPECT_EQ(rv::threadStats()->accel_bytes, 0) << t.type;
        rv::threadStats()->accels[RV_ACCEL_NULL] = 0;
    }
}

TEST_F(SimpleShapes, an_exhausted_heap_leaves_no_object_or_no_structure)
{
    for (const auto& t : types) {
        RtNode* const node = shape(t.type);
        ASSERT_TRUE(prepared(node));
        delete rv::objectOf(node)->accel.exchange(nullptr);
        {
            node_tools::AllocationLimit limit(0);
            RvGObjectBuildAccel(node, 0);
        }
        EXPECT_FALSE(rv::objectOf(node)->accel.load()) << t.type;
        EXPECT_TRUE(node_tools::reportsFailure(takeProblem(), "core\\src\\objects\\simple",
                                               "ShapePrepareIntersection"))
            << t.type;
        rv::threadStats()->accel_bytes = 0;
        const auto initialize = [&t] {
            RtNode* const fresh = shape(t.type);
            if (fresh) {
                rv::RvNodeInitialize(fresh);
                RvNodeDestroy(fresh);
            }
        };
        node_tools::problemsOfFailingHeap(initialize, [] { return takeProblems(); });
    }
}

TEST_F(SimpleShapes, an_opaque_shape_ends_the_list_at_its_nearest_hit)
{
    RtNode* const node = shape("sphere");
    RvNodeSetBool(node, "opaque", true);
    ASSERT_TRUE(prepared(node));
    EXPECT_EQ(distances(node, { { 0, 0, 2 }, { 0, 0, -1 } }), std::vector<float>{ 1.5f });
}

// ---- User data ----

TEST_F(SimpleShapes, user_data_needs_user_parameters)
{
    ASSERT_TRUE(rv::createThreadSlots(rv::the_frame->session, 4));
    for (const auto& t : types) {
        RtNode* const node = shape(t.type);
        ASSERT_TRUE(prepared(node));
        EXPECT_FALSE(userData(node)) << t.type;
        RvNodeDestroy(node);
    }
}

TEST_F(SimpleShapes, constant_and_one_element_uniform_user_data_is_read_at_a_hit)
{
    ASSERT_TRUE(rv::createThreadSlots(rv::the_frame->session, 4));
    for (const auto& t : types) {
        RtNode* const node = shape(t.type);
        RvNodeDeclare(node, "size", "constant FLOAT");
        RvNodeSetFlt(node, "size", 2.5f);
        RvNodeDeclare(node, "list", "constant ARRAY INT");
        RvNodeSetArray(node, "list", RvArray(2, 1, RV_TYPE_INT, 3, 4));
        RvNodeDeclare(node, "tint", "uniform RGB");
        RvNodeSetArray(node, "tint", RvArray(1, 1, RV_TYPE_RGB, RtRGB{ 1, 2, 3 }));
        ASSERT_TRUE(prepared(node)) << t.type;
        RtUserDataHit* const hit = userData(node);
        ASSERT_TRUE(hit) << t.type;
        EXPECT_EQ(hit->node, node);
        RtShadingState state = {};
        state.user_data = hit;
        RtShaderGlobals sg = {};
        sg.state = &state;
        sg.object = node;
        sg.prim_index = 7; // the handle knows better than the context
        float size = 0;
        RtRGB tint = {};
        RtArray* list = nullptr;
        EXPECT_TRUE(RvUserGetFltFunc("size", &sg, &size)) << t.type;
        EXPECT_EQ(size, 2.5f);
        EXPECT_TRUE(RvUserGetRGBFunc("tint", &sg, &tint)) << t.type;
        EXPECT_EQ(tint.b, 3);
        EXPECT_TRUE(RvUserGetArrayFunc("list", &sg, &list)) << t.type;
        ASSERT_TRUE(list);
        EXPECT_EQ(RvArrayGetInt(list, 1), 4);
        int integer = 0;
        EXPECT_FALSE(RvUserGetIntFunc("size", &sg, &integer)) << t.type;
        EXPECT_EQ(takeProblem(), "") << t.type;
        EXPECT_FALSE(RvUserGetIntFunc("tint", &sg, &integer)) << t.type;
        EXPECT_EQ(takeProblem(), "reading user-data():  value mismatch problem:  attempting to get "
                                 "a 'INT' value from a 'RGB' array");
        RvNodeDestroy(node);
    }
}

TEST_F(SimpleShapes, any_byte_but_zero_of_uniform_boolean_data_is_true)
{
    ASSERT_TRUE(rv::createThreadSlots(rv::the_frame->session, 4));
    RtNode* const node = shape("sphere");
    RvNodeDeclare(node, "flag", "uniform BOOL");
    RtArray* const flags = RvArray(1, 1, RV_TYPE_BOOLEAN, 1);
    *static_cast<uint8_t*>(flags->data) = 2;
    RvNodeSetArray(node, "flag", flags);
    ASSERT_TRUE(prepared(node));
    RtShadingState state = {};
    state.user_data = userData(node);
    RtShaderGlobals sg = {};
    sg.state = &state;
    sg.object = node;
    bool value = false;
    ASSERT_TRUE(RvUserGetBoolFunc("flag", &sg, &value));
    uint8_t byte = 0;
    memcpy(&byte, &value, 1);
    EXPECT_EQ(byte, 1);
}

TEST_F(SimpleShapes, user_data_of_other_sizes_is_refused)
{
    RtNode* const node = shape("box");
    RvNodeDeclare(node, "two", "uniform FLOAT");
    RvNodeSetArray(node, "two", RvArray(2, 1, RV_TYPE_FLOAT, 1.0, 2.0));
    RvNodeDeclare(node, "corner", "varying FLOAT");
    RvNodeSetArray(node, "corner", RvArray(1, 1, RV_TYPE_FLOAT, 1.0));
    ASSERT_TRUE(prepared(node));
    EXPECT_EQ(takeProblem(),
              "it: uniform user-data count wrong! (found 2 expected 1) -- disabling user-data "
              "'two' | it: varying user-data count wrong! (found 1 expected 0) -- disabling "
              "user-data 'corner'");
    EXPECT_FALSE(RvNodeLookUpUserParameter(node, "two"));
}

TEST_F(SimpleShapes, user_data_counts_its_bytes)
{
    RtNode* const node = shape("disc");
    RvNodeDeclare(node, "size", "constant FLOAT");
    RvNodeDeclare(node, "list", "constant ARRAY RGB");
    RvNodeSetArray(node, "list", RvArrayAllocate(3, 2, RV_TYPE_RGB));
    RvNodeDeclare(node, "frame", "constant MATRIX");
    RvNodeSetMatrix(node, "frame", &RV_M4_IDENTITY);
    const int64_t before = rv::threadStats()->user_data_bytes;
    ASSERT_TRUE(prepared(node));
    EXPECT_EQ(rv::threadStats()->user_data_bytes - before,
              int64_t(3 * 2 * sizeof(RtRGB) + sizeof(RtMatrix) + sizeof(RtUserParamEntry)));
}

TEST_F(SimpleShapes, without_thread_slots_there_is_no_user_data)
{
    RtNode* const node = shape("disc");
    RvNodeDeclare(node, "size", "constant FLOAT");
    ASSERT_TRUE(prepared(node));
    EXPECT_FALSE(userData(node));
}

// ---- Whatever comes ----

TEST_F(SimpleShapes, no_number_upsets_a_shape)
{
    static const float numbers[] = { NAN,   INFINITY, -INFINITY, 0,     -1,    1e-30f,
                                     1e-7f, 1e30f,    -1e30f,    3e38f, 0.25f, 1e-45f };
    static const ShotRay rays[] = {
        { { 0, 0, 5 }, { 0, 0, -1 } },
        { { 0, 0, 0 }, { 0, 0, 0 } },
        { { 0, 0, 0 }, { 0, 1, 0 } },
        { { 0.25f, 0.25f, 0.25f }, { 1, 1, 1 } },
        { { 1e30f, 0, 0 }, { -1e30f, 0, 0 } },
        { { 0.1f, 0.2f, 5 }, { 1e-30f, 1e-30f, -1e-30f } },
        { { NAN, 0, 0 }, { 0, 0, 1 } },
        { { 0, 0, 0 }, { NAN, 0, 1 } },
        { { 0, INFINITY, 0 }, { 0, -INFINITY, 1 } },
    };
    for (const auto& t : types) {
        const RtNodeEntry* const entry = RvNodeEntryLookUp(t.type);
        for (int i = 0; i < entry->own_param_count; ++i)
            for (float number : numbers) {
                RtNode* const node = shape(t.type);
                poke(node, &entry->params[i], number);
                if (RtGObject* const object = prepared(node)) {
                    boundsOf(node);
                    for (ShotRay ray : rays)
                        for (bool leaves : { false, true }) {
                            ray.leaves_shape = leaves;
                            for (const RtHit& hit : shoot(node, ray)) {
                                EXPECT_TRUE(hit.t > ray.mindist && hit.t < ray.maxdist)
                                    << t.type << " " << entry->params[i].name << " " << number;
                                EXPECT_EQ(hit.object, object);
                                geometryAt(node, pointAt(ray, hit.t));
                            }
                        }
                }
                RvNodeDestroy(node);
            }
    }
    takeProblems();
}

TEST_F(SimpleShapes, metadata_may_make_any_parameter_rebuild_a_shape)
{
    RtNode* const node = shape("cylinder");
    RvMetaDataSetBool(node->entry->metadata, "radius", "_triggers_rebuild", true);
    ASSERT_TRUE(prepared(node));
    const ShotRay ray = { { 5, 0, 0 }, { -1, 0, 0 } };
    ASSERT_EQ(distances(node, ray)[0], 4.5f);
    RvNodeSetFlt(node, "radius", 1);
    node->entry->methods->Update(node, node->params);
    EXPECT_EQ(distances(node, ray)[0], 4);
    EXPECT_FLOAT_EQ(rv::objectOf(node)->local_bbox.max.x, 1.000001f);
}
