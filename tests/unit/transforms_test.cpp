#include "golden.h"
#include "shape_fixture.h"

namespace {

using namespace shape_fixture;
using node_tools::formatted;
using rv::objectOf;

using Transforms = Shapes;

RtMatrix matrixOf(const nlohmann::json& rows)
{
    const std::vector<float> f = goldenFloats(rows);
    RtMatrix matrix;
    memcpy(&matrix, f.data(), sizeof matrix);
    return matrix;
}

std::vector<float> floatsOf(const RtMatrix& matrix)
{
    const float* const first = &matrix.m[0][0];
    return std::vector<float>(first, first + 16);
}

// Applies keys to the object as a node's "matrix" would.
void apply(RtGObject* object, const std::vector<RtMatrix>& keys, bool concatenate)
{
    RtArray* const array = matrixKeys(keys);
    RvGObjectTransform(object, array, concatenate);
    RvArrayDestroy(array);
}

// ---- Golden vectors ----

TEST_F(Transforms, matrices_combine_as_the_golden_vectors_say)
{
    for (const nlohmann::json& v : goldenVectors("tracing", "RvGObjectTransform")) {
        RtNode* const node = RvNode("block");
        rv::RvNodeInitialize(node);
        RtGObject* const object = objectOf(node);
        for (const nlohmann::json& op : v.at("in").at("ops")) {
            std::vector<RtMatrix> keys;
            for (const nlohmann::json& m : op.at("matrices"))
                keys.push_back(matrixOf(m));
            apply(object, keys, op.at("concatenate").get<bool>());
        }
        expectGolden(v, "nkeys", object->nkeys);
        const std::string problem = takeProblem();
        expectGolden(v, "error", problem.empty() ? nlohmann::json() : nlohmann::json(problem));
        std::vector<float> all;
        for (int k = 0; k < object->nkeys; ++k)
            for (const float f : floatsOf(object->matrices[k]))
                all.push_back(f);
        expectGoldenNumbers(v, "matrices", all);
        RvNodeDestroy(node);
    }
}

TEST_F(Transforms, world_bounds_are_those_of_the_transformed_corners)
{
    for (const nlohmann::json& v : goldenVectors("tracing", "world_bounds")) {
        const nlohmann::json& in = v.at("in");
        const std::vector<float> min = goldenFloats(in.at("min")), max = goldenFloats(in.at("max"));
        RtNode* const node = RvNode("block");
        RvNodeSetPnt(node, "min", min[0], min[1], min[2]);
        RvNodeSetPnt(node, "max", max[0], max[1], max[2]);
        setMatrices(node, { matrixOf(in.at("matrix")) });
        rv::RvNodeInitialize(node);
        const RtBBox& box = objectOf(node)->world_bbox;
        expectGoldenNumbers(v, "min", { box.min.x, box.min.y, box.min.z });
        expectGoldenNumbers(v, "max", { box.max.x, box.max.y, box.max.z });
    }
}

// ---- Storage ----

TEST_F(Transforms, one_matrix_is_kept_with_its_inverse)
{
    RtNode* const node = block("b");
    RtMatrix matrix = scaling(2, 4, 8);
    matrix.m[3][0] = 6;
    setMatrices(node, { matrix });
    rv::RvNodeInitialize(node);
    const RtGObject* const object = objectOf(node);
    ASSERT_EQ(object->nkeys, 1);
    EXPECT_EQ(floatsOf(object->matrices[0]), floatsOf(matrix));
    RtMatrix expected;
    RvM4Invert(&matrix, &expected);
    EXPECT_EQ(floatsOf(object->matrices[1]), floatsOf(expected));
    EXPECT_EQ(object->matrices[1].m[3][0], -3);
}

TEST_F(Transforms, the_identity_is_not_stored_and_leaves_the_bounds_alone)
{
    RtNode* const node = block("b");
    setMatrices(node, { RV_M4_IDENTITY });
    rv::RvNodeInitialize(node);
    EXPECT_EQ(objectOf(node)->nkeys, 0);
    EXPECT_EQ(objectOf(node)->matrices, nullptr);
    EXPECT_EQ(describe(objectOf(node)->world_bbox), describe(objectOf(node)->local_bbox));
    EXPECT_EQ(stats().identity_matrices, 1u);
    EXPECT_EQ(stats().identical_motion_matrices, 0u);
}

TEST_F(Transforms, equal_motion_keys_become_one)
{
    static const struct {
        std::vector<RtMatrix> keys;
        int nkeys;
        unsigned identical, identity;
    } cases[] = {
        { { translation(1, 2, 3), translation(1, 2, 3) }, 1, 1, 0 },
        { { translation(1, 2, 3), translation(1, 2, 3), translation(1, 2, 3) }, 1, 1, 0 },
        { { RV_M4_IDENTITY, RV_M4_IDENTITY }, 0, 1, 1 },
        { { RV_M4_IDENTITY, translation(1, 2, 3) }, 2, 0, 0 },
        { { translation(1, 2, 3), translation(1, 2, 3), RV_M4_IDENTITY }, 3, 0, 0 },
    };
    for (const auto& c : cases) {
        RtStats& s = stats();
        s.identical_motion_matrices = s.identity_matrices = 0;
        RtNode* const node = RvNode("block");
        setMatrices(node, c.keys);
        rv::RvNodeInitialize(node);
        EXPECT_EQ(objectOf(node)->nkeys, c.nkeys);
        EXPECT_EQ(s.identical_motion_matrices, c.identical);
        EXPECT_EQ(s.identity_matrices, c.identity);
        if (c.nkeys == 1) {
            EXPECT_EQ(objectOf(node)->matrices[1].m[3][0], -1) << "the inverse is missing";
        }
    }
}

TEST_F(Transforms, matrices_count_as_geometry_until_they_go)
{
    RtNode* const node = readyBlock("b");
    RtGObject* const object = objectOf(node);
    const int64_t before = stats().geometry_bytes;
    const auto matrixCount = [&] {
        return (stats().geometry_bytes - before) / int64_t(sizeof(RtMatrix));
    };
    apply(object, { translation(1, 0, 0) }, false);
    EXPECT_EQ(matrixCount(), 2);
    apply(object, { translation(1, 0, 0), translation(2, 0, 0), translation(4, 0, 0) }, false);
    EXPECT_EQ(matrixCount(), 3);
    apply(object, { RV_M4_IDENTITY }, false);
    EXPECT_EQ(matrixCount(), 0);
    apply(object, { translation(1, 0, 0), translation(2, 0, 0) }, false);
    EXPECT_EQ(matrixCount(), 2);
    RvNodeDestroy(node);
    EXPECT_EQ(matrixCount(), 0);
}

TEST_F(Transforms, arrays_without_matrices_change_nothing)
{
    RtNode* const node = readyBlock("b");
    RtGObject* const object = objectOf(node);
    apply(object, { translation(1, 0, 0) }, false);
    RtArray no_keys = { nullptr, 1, RV_TYPE_MATRIX, 0, false };
    RtArray no_data = { nullptr, 1, RV_TYPE_MATRIX, 1, false };
    RtArray* const other_type = floats({ 1, 2, 3 });
    RtArray* const empty = RvArrayAllocate(0, 1, RV_TYPE_MATRIX);
    for (const RtArray* array :
         { static_cast<const RtArray*>(nullptr), static_cast<const RtArray*>(&no_keys),
           static_cast<const RtArray*>(&no_data), static_cast<const RtArray*>(other_type),
           static_cast<const RtArray*>(empty) }) {
        RvGObjectTransform(object, array, false);
        EXPECT_EQ(object->nkeys, 1);
        EXPECT_EQ(describe(object->world_bbox), "0 -1 -1 -> 2 1 1");
    }
    RvArrayDestroy(other_type);
    RvArrayDestroy(empty);
}

TEST_F(Transforms, matrices_may_lie_at_any_address_and_have_neighbours_in_their_key)
{
    std::vector<char> bytes(4 * sizeof(RtMatrix) + 1);
    const RtMatrix keys[] = { translation(1, 0, 0), translation(9, 9, 9), translation(0, 2, 0),
                              translation(9, 9, 9) };
    memcpy(bytes.data() + 1, keys, sizeof keys);
    RtArray array = { bytes.data() + 1, 2, RV_TYPE_MATRIX, 2, false };
    RtNode* const node = readyBlock("b");
    RvGObjectTransform(objectOf(node), &array, false);
    EXPECT_EQ(objectOf(node)->nkeys, 2);
    EXPECT_EQ(describe(objectOf(node)->world_bbox), "-1 -1 -1 -> 2 3 1");
}

TEST_F(Transforms, world_bounds_take_in_all_keys)
{
    RtNode* const node = block("b");
    setMatrices(node, { translation(-5, 0, 0), translation(5, 0, 0), translation(0, 7, 0) });
    rv::RvNodeInitialize(node);
    EXPECT_EQ(describe(objectOf(node)->world_bbox), "-6 -1 -1 -> 6 8 1");
}

// ---- Matrices that cannot be inverted ----

TEST_F(Transforms, a_shape_without_a_usable_matrix_is_reported_and_hidden)
{
    RtMatrix infinite = RV_M4_IDENTITY, unordered = RV_M4_IDENTITY, huge = RV_M4_IDENTITY;
    infinite.m[1][1] = INFINITY;
    unordered.m[3][2] = NAN;
    huge.m[0][0] = huge.m[1][1] = huge.m[2][2] = 1e30f;
    static const char* const report = "%s: matrix is singular or not finite (hiding shape)";
    const struct {
        const char* name;
        std::vector<RtMatrix> keys;
        bool usable;
    } cases[] = {
        { "zero", { RV_M4_ZERO }, false },
        { "flat", { scaling(1, 1, 0) }, false },
        { "infinite", { infinite }, false },
        { "nan", { unordered }, false },
        { "huge", { huge }, false }, // its determinant overflows
        { "tiny", { scaling(1e-3f, 1e-3f, 1e-3f) }, true },
        { "two zeros", { RV_M4_ZERO, scaling(0, 1, 1) }, false },
        { "nan between", { RV_M4_IDENTITY, unordered, RV_M4_IDENTITY }, false },
        { "growing from nothing", { RV_M4_ZERO, scaling(2, 2, 2) }, true },
    };
    for (const auto& c : cases) {
        // Setters refuse such numbers: they come from storage that the host kept and changed.
        std::vector<RtMatrix> storage(c.keys.size(), RV_M4_IDENTITY);
        RtNode* const node = block(c.name);
        RvNodeSetArray(
            node, "matrix",
            RvArrayConvert(1, int(storage.size()), RV_TYPE_MATRIX, storage.data(), false));
        storage.assign(c.keys.begin(), c.keys.end());
        rv::RvNodeInitialize(node);
        EXPECT_EQ(takeProblem(), c.usable ? "" : formatted(report, c.name));
        EXPECT_EQ(objectOf(node)->visibility, c.usable ? RV_RAY_ALL : 0) << c.name;
        EXPECT_EQ(objectOf(node)->scene_list != nullptr, c.usable) << c.name;
        RtMatrix between;
        rv::objectToWorldAt(objectOf(node), 0.5f, &between);
        RvNodeDestroy(node);
    }
}

TEST_F(Transforms, a_shape_comes_back_with_a_usable_matrix)
{
    RtNode* const node = readyBlock("b");
    setMatrices(node, { RV_M4_ZERO });
    RvGObjectUpdate(node);
    EXPECT_EQ(objectOf(node)->visibility, 0);
    EXPECT_EQ(takeProblem(), "b: matrix is singular or not finite (hiding shape)");
    setMatrices(node, { translation(1, 0, 0) });
    RvGObjectUpdate(node);
    EXPECT_EQ(objectOf(node)->visibility, RV_RAY_ALL);
    EXPECT_EQ(takeProblem(), "");
}

// ---- Time ----

TEST_F(Transforms, relative_times_stay_between_the_first_key_and_just_before_the_last)
{
    static const float last = 0.999999f;
    static const struct {
        std::vector<float> samples;
        float time, expected;
    } cases[] = {
        { { 0, 1 }, 0.25f, 0.25f },
        { { 0, 1 }, -1, 0 },
        { { 0, 1 }, 0, 0 },
        { { 0, 1 }, 1, last },
        { { 0, 1 }, 0.9999999f, last },
        { { 0, 1 }, 5, last },
        { { 2, 4 }, 3, 0.5f },
        { { 2, 4 }, 1, 0 },
        { { 5, 6, 9, 10 }, 7.5f, 0.5f },
        { { 5, 6, 9, 10 }, 4, 0 },
        { { 5, 6, 9, 10 }, 10, last },
        { { 0.5f }, 0.25f, 0 },
        { { 0.5f }, 0.75f, last },
        { {}, 0.5f, 0 },
        { { 0, 1 }, INFINITY, last },
        { { 0, 1 }, -INFINITY, 0 },
    };
    for (const auto& c : cases) {
        RtArray* const samples = floats(c.samples);
        EXPECT_FLOAT_EQ(rv::relativeTime(samples, c.time), c.expected)
            << c.samples.size() << " samples at " << c.time;
        RvArrayDestroy(samples);
    }
    EXPECT_EQ(rv::relativeTime(nullptr, 0.5f), 0);
}

TEST_F(Transforms, key_pairs_never_reach_beyond_the_last_key)
{
    for (const uint32_t n : { 2u, 3u, 4u, 255u })
        for (const float f : { 0.f, 0.25f, 0.5f, 0.999999f }) {
            const rv::KeyPair pair = rv::keyPair(n, f);
            EXPECT_LT(pair.key + 1, n);
            EXPECT_TRUE(pair.weight >= 0 && pair.weight < 1);
            EXPECT_NEAR(float(pair.key) + pair.weight, f * float(n - 1), 1e-4);
        }
}

TEST_F(Transforms, a_moving_object_is_between_its_keys)
{
    RtNode* const node = block("b");
    setMatrices(node, { translation(0, 0, 0), translation(4, 0, 0), translation(4, 8, 0) });
    rv::RvNodeInitialize(node);
    static const struct {
        float time, x, y;
    } cases[] = { { 0, 0, 0 }, { -1, 0, 0 }, { 0.25f, 2, 0 }, { 0.5f, 4, 0 }, { 0.75f, 4, 4 } };
    for (const auto& c : cases) {
        RtMatrix storage;
        const RtMatrix* const matrix = rv::objectToWorldAt(objectOf(node), c.time, &storage);
        ASSERT_EQ(matrix, &storage);
        EXPECT_EQ(matrix->m[3][0], c.x) << c.time;
        EXPECT_EQ(matrix->m[3][1], c.y) << c.time;
    }
    RtMatrix storage;
    EXPECT_NEAR(rv::objectToWorldAt(objectOf(node), 1, &storage)->m[3][1], 8, 1e-4);
}

TEST_F(Transforms, a_static_object_needs_no_storage_for_its_transform)
{
    RtNode* const node = readyBlock("b");
    RtMatrix storage;
    EXPECT_EQ(rv::objectToWorldAt(objectOf(node), 0.5f, &storage), nullptr);
    apply(objectOf(node), { translation(1, 0, 0) }, false);
    EXPECT_EQ(rv::objectToWorldAt(objectOf(node), 0.5f, &storage), objectOf(node)->matrices);
}

TEST_F(Transforms, infinite_boxes_stay_infinite_along_the_axes_they_are_turned_to)
{
    const float inf = INFINITY;
    const RtBBox floor = { { -inf, -inf, 0 }, { inf, inf, 1 } };
    RtMatrix quarter_turn = scaling(1, 0, 0); // z becomes y, y becomes -z
    quarter_turn.m[1][2] = -1;
    quarter_turn.m[2][1] = 1;
    const RtMatrix lift = translation(0, 0, 5);
    EXPECT_EQ(describe(rv::transformedBox(floor, &lift)), "-inf -inf 5 -> inf inf 6");
    EXPECT_EQ(describe(rv::transformedBox(floor, &quarter_turn)), "-inf 0 -inf -> inf 1 inf");
    const RtMatrix broken = scaling(NAN, 1, 1);
    EXPECT_TRUE(rv::isEmpty(rv::transformedBox(floor, &broken)));
}

TEST_F(Transforms, unions_and_transforms_of_empty_boxes_stay_empty)
{
    const RtBBox inside_out = { { 1, 1, 1 }, { 0, 2, 2 } };
    EXPECT_EQ(describe(rv::boxUnion(RV_BBOX_UNIT, inside_out)), "0 0 0 -> 1 1 1");
    EXPECT_EQ(describe(rv::boxUnion(inside_out, RV_BBOX_UNIT)), "0 0 0 -> 1 1 1");
    EXPECT_TRUE(rv::isEmpty(rv::boxUnion(inside_out, rv::empty_bbox)));
    const RtMatrix matrix = scaling(-1, 1, 1);
    EXPECT_TRUE(rv::isEmpty(rv::transformedBox(inside_out, &matrix)));
    EXPECT_FALSE(rv::isEmpty(RV_BBOX_ZERO));
}

} // namespace
