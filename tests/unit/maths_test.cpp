// Tests of maths.cpp: type codes, constants, matrices, colour helpers and boxes.
#include "maths.h"

#include "golden.h"
#include "universe_fixture.h"

#include <bit>
#include <functional>

using nlohmann::json;

class Maths : public Universe {};

static RtPoint pointOf(const json& value)
{
    const std::vector<float> p = goldenFloats(value);
    return { p[0], p[1], p[2] };
}

static RtMatrix matrixOf(const json& value)
{
    const std::vector<float> numbers = goldenFloats(value);
    EXPECT_EQ(16u, numbers.size());
    RtMatrix m;
    std::copy(numbers.begin(), numbers.end(), &m.m[0][0]);
    return m;
}

static std::vector<float> floatsOf(const RtMatrix& m) { return { &m.m[0][0], &m.m[0][0] + 16 }; }
static std::vector<float> floatsOf(const RtPoint& p) { return { p.x, p.y, p.z }; }
static std::vector<float> floatsOf(const RtRGB& c) { return { c.r, c.g, c.b }; }
static std::vector<float> floatsOf(const RtRGBA& c) { return { c.r, c.g, c.b, c.a }; }

static void expectNear(const RtPoint& want, const RtPoint& got, float tolerance)
{
    EXPECT_NEAR(want.x, got.x, tolerance);
    EXPECT_NEAR(want.y, got.y, tolerance);
    EXPECT_NEAR(want.z, got.z, tolerance);
}

static void expectNear(const RtMatrix& want, const RtMatrix& got, float tolerance)
{
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            EXPECT_NEAR(want.m[i][j], got.m[i][j], tolerance) << "[" << i << "][" << j << "]";
}

// Calls a check with every vector of one function.
static void forEachVector(const char* fn, const std::function<void(const json&)>& check)
{
    for (const json& vector : goldenVectors("maths", fn))
        check(vector);
}

static const RtMatrix some_matrix = {
    { { 1, 2, 0.5f, 3 }, { -1, 4, 2, 0 }, { 0.25f, -3, 1, 1 }, { 5, 1, -2, 2 } }
};
static const RtMatrix other_matrix = {
    { { 2, -1, 3, 0 }, { 1, 1, -0.5f, 2 }, { 4, 0, 1, -1 }, { -2, 3, 0, 1 } }
};

// ---- Type codes ----

static const struct {
    int type;
    const char* name;
    int size;
} types[] = {
    { RV_TYPE_BYTE, "BYTE", 1 },      { RV_TYPE_INT, "INT", 4 },
    { RV_TYPE_UINT, "UINT", 4 },      { RV_TYPE_BOOLEAN, "BOOL", 1 },
    { RV_TYPE_FLOAT, "FLOAT", 4 },    { RV_TYPE_RGB, "RGB", 12 },
    { RV_TYPE_RGBA, "RGBA", 16 },     { RV_TYPE_VECTOR, "VECTOR", 12 },
    { RV_TYPE_POINT, "POINT", 12 },   { RV_TYPE_POINT2, "POINT2", 8 },
    { RV_TYPE_STRING, "STRING", 8 },  { RV_TYPE_POINTER, "POINTER", 8 },
    { RV_TYPE_NODE, "NODE", 8 },      { RV_TYPE_ARRAY, "ARRAY", 8 },
    { RV_TYPE_MATRIX, "MATRIX", 64 }, { RV_TYPE_ENUM, "ENUM", 4 },
};

TEST_F(Maths, every_type_has_its_name_and_size)
{
    for (const auto& t : types) {
        EXPECT_STREQ(t.name, RvParamGetTypeName(t.type));
        EXPECT_EQ(t.size, RvParamGetTypeSize(t.type)) << t.name;
        EXPECT_EQ(static_cast<unsigned>(t.size), rv::typeSize(t.type)) << t.name;
    }
    EXPECT_EQ("", takeProblem());
}

TEST_F(Maths, no_type_has_no_name_and_no_message)
{
    EXPECT_EQ(nullptr, RvParamGetTypeName(RV_TYPE_NONE));
    EXPECT_EQ("", takeProblem());
}

TEST_F(Maths, the_name_of_an_unknown_type_is_a_warning)
{
    for (int type : { 16, -1, 254, 256 }) {
        EXPECT_EQ(nullptr, RvParamGetTypeName(type));
        ASSERT_EQ(1u, messages().size()) << type;
        EXPECT_EQ(1, messages()[0].severity);
        EXPECT_EQ("RvParamGetTypeName: invalid type " + std::to_string(type), takeProblem());
    }
}

TEST_F(Maths, the_size_of_an_unknown_type_is_an_error_also_for_none)
{
    for (int type : { 255, 16, -1 }) {
        EXPECT_EQ(0, RvParamGetTypeSize(type));
        ASSERT_EQ(1u, messages().size()) << type;
        EXPECT_EQ(2, messages()[0].severity);
        EXPECT_EQ("RvParamGetTypeSize: unknown data type " + std::to_string(type) + "!",
                  takeProblem());
    }
}

TEST_F(Maths, silent_names_leave_out_enumerations_and_never_report)
{
    for (const auto& t : types) {
        if (t.type == RV_TYPE_ENUM)
            EXPECT_EQ(nullptr, rv::silentTypeName(t.type));
        else
            EXPECT_STREQ(t.name, rv::silentTypeName(t.type));
    }
    EXPECT_STREQ("UNDEFINED", rv::silentTypeName(RV_TYPE_NONE));
    for (int type : { -1, 16, 254, 256 }) {
        EXPECT_EQ(nullptr, rv::silentTypeName(type));
        EXPECT_EQ(0u, rv::typeSize(type));
    }
    EXPECT_EQ("", takeProblem());
}

TEST(MathsTypes, a_node_is_accepted_where_a_pointer_is_asked_for_and_not_the_other_way_round)
{
    EXPECT_TRUE(rv::typeAccepts(RV_TYPE_NODE, RV_TYPE_POINTER));
    EXPECT_FALSE(rv::typeAccepts(RV_TYPE_POINTER, RV_TYPE_NODE));
    EXPECT_TRUE(rv::typeAccepts(RV_TYPE_INT, RV_TYPE_INT));
    EXPECT_FALSE(rv::typeAccepts(RV_TYPE_INT, RV_TYPE_ENUM));
}

TEST(MathsTypes, floats_beyond_1e30_rounded_to_float_are_not_usable)
{
    const float bound = 1e30f;
    EXPECT_TRUE(rv::isUsableFloat(bound));
    EXPECT_TRUE(rv::isUsableFloat(-bound));
    EXPECT_FALSE(rv::isUsableFloat(nextafterf(bound, INFINITY)));
    EXPECT_FALSE(rv::isUsableFloat(-INFINITY));
    EXPECT_FALSE(rv::isUsableFloat(NAN));
}

TEST_F(Maths, golden_type_names)
{
    forEachVector("RvParamGetTypeName", [](const json& v) {
        const char* const name = RvParamGetTypeName(v["in"]["type"]);
        expectGolden(v, "value", name ? json(name) : json());
        const std::string problem = takeProblem();
        expectGolden(v, "message", problem.empty() ? json() : json("warning: " + problem));
    });
}

TEST_F(Maths, golden_type_sizes)
{
    forEachVector("RvParamGetTypeSize", [](const json& v) {
        expectGolden(v, "value", RvParamGetTypeSize(v["in"]["type"]));
        const std::string problem = takeProblem();
        expectGolden(v, "message", problem.empty() ? json() : json("error: " + problem));
    });
}

TEST_F(Maths, golden_silent_type_names)
{
    forEachVector("silent_type_name", [](const json& v) {
        const char* const name = rv::silentTypeName(v["in"]["type"]);
        expectGolden(v, "value", name ? json(name) : json());
    });
    EXPECT_EQ("", takeProblem());
}

// ---- Constants ----

static const struct {
    const char* name;
    std::vector<float> want;
    const void* constant;
} constants[] = {
    { "RV_RGB_BLACK", { 0, 0, 0 }, &RV_RGB_BLACK },
    { "RV_RGB_WHITE", { 1, 1, 1 }, &RV_RGB_WHITE },
    { "RV_RGB_RED", { 1, 0, 0 }, &RV_RGB_RED },
    { "RV_RGB_GREEN", { 0, 1, 0 }, &RV_RGB_GREEN },
    { "RV_RGB_BLUE", { 0, 0, 1 }, &RV_RGB_BLUE },
    { "RV_RGB_50GREY", { 0.5f, 0.5f, 0.5f }, &RV_RGB_50GREY },
    { "RV_RGBA_BLACK", { 0, 0, 0, 0 }, &RV_RGBA_BLACK },
    { "RV_RGBA_WHITE", { 1, 1, 1, 1 }, &RV_RGBA_WHITE },
    { "RV_RGBA_RED", { 1, 0, 0, 1 }, &RV_RGBA_RED },
    { "RV_RGBA_GREEN", { 0, 1, 0, 1 }, &RV_RGBA_GREEN },
    { "RV_RGBA_BLUE", { 0, 0, 1, 1 }, &RV_RGBA_BLUE },
    { "RV_RGBA_50GREY", { 0.5f, 0.5f, 0.5f, 1 }, &RV_RGBA_50GREY },
    { "RV_V3_ZERO", { 0, 0, 0 }, &RV_V3_ZERO },
    { "RV_V3_ONE", { 1, 1, 1 }, &RV_V3_ONE },
    { "RV_V3_HALF", { 0.5f, 0.5f, 0.5f }, &RV_V3_HALF },
    { "RV_V3_X", { 1, 0, 0 }, &RV_V3_X },
    { "RV_V3_Y", { 0, 1, 0 }, &RV_V3_Y },
    { "RV_V3_Z", { 0, 0, 1 }, &RV_V3_Z },
    { "RV_V3_NEGX", { -1, 0, 0 }, &RV_V3_NEGX },
    { "RV_V3_NEGY", { 0, -1, 0 }, &RV_V3_NEGY },
    { "RV_V3_NEGZ", { 0, 0, -1 }, &RV_V3_NEGZ },
    { "RV_P3_ZERO", { 0, 0, 0 }, &RV_P3_ZERO },
    { "RV_P2_ZERO", { 0, 0 }, &RV_P2_ZERO },
    { "RV_P2_ONE", { 1, 1 }, &RV_P2_ONE },
    { "RV_M4_IDENTITY", { 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1 }, &RV_M4_IDENTITY },
    { "RV_M4_ZERO", std::vector<float>(16, 0), &RV_M4_ZERO },
    { "RV_BBOX_ZERO", { 0, 0, 0, 0, 0, 0 }, &RV_BBOX_ZERO },
    { "RV_BBOX_UNIT", { 0, 0, 0, 1, 1, 1 }, &RV_BBOX_UNIT },
};

static std::vector<float> floatsAt(const void* address, size_t count)
{
    const float* const begin = static_cast<const float*>(address);
    return { begin, begin + count };
}

TEST(MathsConstants, every_constant_has_its_exact_value)
{
    for (const auto& c : constants)
        EXPECT_EQ(c.want, floatsAt(c.constant, c.want.size())) << c.name;
}

TEST(MathsConstants, black_with_alpha_is_transparent_unlike_the_other_colours)
{
    EXPECT_EQ(0, RV_RGBA_BLACK.a);
    for (const RtRGBA& c :
         { RV_RGBA_WHITE, RV_RGBA_RED, RV_RGBA_GREEN, RV_RGBA_BLUE, RV_RGBA_50GREY })
        EXPECT_EQ(1, c.a);
}

TEST(MathsConstants, golden_constants)
{
    forEachVector("constant", [](const json& v) {
        for (const auto& c : constants)
            if (v["in"]["name"] == c.name)
                return expectGoldenNumbers(v, "components", floatsAt(c.constant, c.want.size()));
        ADD_FAILURE() << goldenId(v) << " names no constant of the table";
    });
}

TEST(MathsConstants, numbers_have_their_exact_bits)
{
    EXPECT_EQ(0x358637BDu, std::bit_cast<uint32_t>(RV_EPSILON));
    EXPECT_EQ(0x5368D4A5u, std::bit_cast<uint32_t>(RV_BIG));
    EXPECT_EQ(static_cast<float>(sqrt(3.0)), RV_SQRT3);
    EXPECT_EQ(static_cast<float>(1 / 3.14159265358979323846), RV_ONEOVERPI);
}

TEST(MathsConstants, value_types_have_no_padding)
{
    EXPECT_EQ(12u, sizeof(RtRGB));
    EXPECT_EQ(16u, sizeof(RtRGBA));
    EXPECT_EQ(12u, sizeof(RtPoint));
    EXPECT_EQ(12u, sizeof(RtVector));
    EXPECT_EQ(8u, sizeof(RtPoint2));
    EXPECT_EQ(64u, sizeof(RtMatrix));
    EXPECT_EQ(24u, sizeof(RtBBox));
}

// ---- Matrices ----

TEST(MathsMatrix, identity_is_the_exported_constant)
{
    RtMatrix m = some_matrix;
    RvM4Identity(&m);
    EXPECT_EQ(floatsOf(RV_M4_IDENTITY), floatsOf(m));
}

TEST(MathsMatrix, copy_takes_all_elements)
{
    RtMatrix m = RV_M4_ZERO;
    RvM4Copy(&m, &some_matrix);
    EXPECT_EQ(floatsOf(some_matrix), floatsOf(m));
}

TEST(MathsMatrix, copy_to_itself_changes_nothing)
{
    RtMatrix m = some_matrix;
    RvM4Copy(&m, &m);
    EXPECT_EQ(floatsOf(some_matrix), floatsOf(m));
}

TEST(MathsMatrix, copy_ignores_null_on_either_side)
{
    RtMatrix m = some_matrix;
    RvM4Copy(&m, nullptr);
    RvM4Copy(nullptr, &m);
    EXPECT_EQ(floatsOf(some_matrix), floatsOf(m));
}

TEST(MathsMatrix, translation_stands_in_row_3)
{
    const RtVector t = { 2, 3, 4 };
    RtMatrix m;
    RvM4Translation(&m, &t);
    const RtMatrix want = { { { 1, 0, 0, 0 }, { 0, 1, 0, 0 }, { 0, 0, 1, 0 }, { 2, 3, 4, 1 } } };
    EXPECT_EQ(floatsOf(want), floatsOf(m));
}

TEST(MathsMatrix, scaling_stands_on_the_diagonal)
{
    const RtVector s = { 2, 3, 4 };
    RtMatrix m;
    RvM4Scaling(&m, &s);
    const RtMatrix want = { { { 2, 0, 0, 0 }, { 0, 3, 0, 0 }, { 0, 0, 4, 0 }, { 0, 0, 0, 1 } } };
    EXPECT_EQ(floatsOf(want), floatsOf(m));
}

TEST(MathsMatrix, every_rotation_has_the_positive_sine_above_the_diagonal)
{
    static const struct {
        void (*rotation)(RtMatrix*, float);
        int row, column;
    } rotations[] = { { RvM4RotationX, 1, 2 }, { RvM4RotationY, 0, 2 }, { RvM4RotationZ, 0, 1 } };
    for (const auto& r : rotations) {
        RtMatrix m;
        r.rotation(&m, 30);
        EXPECT_NEAR(0.5f, m.m[r.row][r.column], 1e-6f);
        EXPECT_NEAR(-0.5f, m.m[r.column][r.row], 1e-6f);
        EXPECT_NEAR(0.8660254f, m.m[r.row][r.row], 1e-6f);
        EXPECT_NEAR(0.8660254f, m.m[r.column][r.column], 1e-6f);
    }
}

static RtPoint turned(void (*rotation)(RtMatrix*, float), const RtPoint& p)
{
    RtMatrix m;
    rotation(&m, 90);
    RtPoint out;
    RvM4PointByMatrixMult(&out, &m, &p);
    return out;
}

TEST(MathsMatrix, rotation_about_z_takes_x_to_y)
{
    expectNear(RV_V3_Y, turned(RvM4RotationZ, RV_V3_X), 1e-6f);
}

TEST(MathsMatrix, rotation_about_x_takes_y_to_z)
{
    expectNear(RV_V3_Z, turned(RvM4RotationX, RV_V3_Y), 1e-6f);
}

TEST(MathsMatrix, rotation_about_y_turns_the_opposite_way_and_takes_x_to_z)
{
    expectNear(RV_V3_Z, turned(RvM4RotationY, RV_V3_X), 1e-6f);
}

TEST(MathsMatrix, a_product_applies_its_first_factor_first)
{
    const RtVector two = { 2, 2, 2 };
    RtMatrix translation, scaling, product;
    RvM4Translation(&translation, &RV_V3_X);
    RvM4Scaling(&scaling, &two);
    RvM4Mult(&product, &translation, &scaling);
    RtPoint p;
    RvM4PointByMatrixMult(&p, &product, &RV_P3_ZERO);
    EXPECT_EQ(floatsOf(RtPoint{ 2, 0, 0 }), floatsOf(p));
    RvM4Mult(&product, &scaling, &translation);
    RvM4PointByMatrixMult(&p, &product, &RV_P3_ZERO);
    EXPECT_EQ(floatsOf(RtPoint{ 1, 0, 0 }), floatsOf(p));
}

TEST(MathsMatrix, a_product_may_overwrite_either_factor)
{
    RtMatrix want;
    RvM4Mult(&want, &some_matrix, &other_matrix);
    RtMatrix m = some_matrix;
    RvM4Mult(&m, &m, &other_matrix);
    EXPECT_EQ(floatsOf(want), floatsOf(m));
    m = other_matrix;
    RvM4Mult(&m, &some_matrix, &m);
    EXPECT_EQ(floatsOf(want), floatsOf(m));
    RvM4Mult(&want, &some_matrix, &some_matrix);
    m = some_matrix;
    RvM4Mult(&m, &m, &m);
    EXPECT_EQ(floatsOf(want), floatsOf(m));
}

TEST(MathsMatrix, a_frame_measures_the_moved_point_along_its_axes)
{
    const RtPoint origin = { 1, 2, 3 };
    const RtVector u = { 0, 1, 0 }, v = { 0, 0, 2 }, w = { 1, 1, 0 };
    RtMatrix m;
    RvM4Frame(&m, &origin, &u, &v, &w);
    const RtPoint p = { 4, 5, 6 };
    RtPoint out;
    RvM4PointByMatrixMult(&out, &m, &p);
    EXPECT_EQ(floatsOf(RtPoint{ 7, 18, 12 }), floatsOf(out));
}

TEST(MathsMatrix, transposition_works_in_place)
{
    RtMatrix m = some_matrix;
    RvM4Transpose(&m, &m);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            EXPECT_EQ(some_matrix.m[i][j], m.m[j][i]);
}

TEST(MathsMatrix, a_matrix_times_its_inverse_is_the_identity)
{
    RtMatrix inverse, product;
    RvM4Invert(&some_matrix, &inverse);
    RvM4Mult(&product, &some_matrix, &inverse);
    expectNear(RV_M4_IDENTITY, product, 2e-6f);
    RvM4Mult(&product, &inverse, &some_matrix);
    expectNear(RV_M4_IDENTITY, product, 2e-6f);
}

TEST(MathsMatrix, inversion_works_in_place)
{
    RtMatrix want;
    RvM4Invert(&some_matrix, &want);
    RtMatrix m = some_matrix;
    RvM4Invert(&m, &m);
    EXPECT_EQ(floatsOf(want), floatsOf(m));
}

TEST_F(Maths, inversion_of_the_zero_matrix_gives_non_finite_values_and_no_message)
{
    RtMatrix m;
    RvM4Invert(&RV_M4_ZERO, &m);
    for (float x : floatsOf(m))
        EXPECT_FALSE(RvIsFinite(x));
    EXPECT_TRUE(messages().empty());
}

TEST(MathsMatrix, the_determinant_of_a_triangular_matrix_is_the_product_of_its_diagonal)
{
    const RtMatrix m = { { { 2, 7, 1, 3 }, { 0, -3, 4, 5 }, { 0, 0, 0.5f, 6 }, { 0, 0, 0, 4 } } };
    EXPECT_EQ(-12, RvM4Determinant(&m));
    EXPECT_EQ(1, RvM4Determinant(&RV_M4_IDENTITY));
    EXPECT_EQ(0, RvM4Determinant(&RV_M4_ZERO));
}

TEST(MathsMatrix, exchanged_rows_negate_the_determinant)
{
    RtMatrix m = some_matrix;
    std::swap(m.m[1], m.m[3]);
    EXPECT_FLOAT_EQ(-RvM4Determinant(&some_matrix), RvM4Determinant(&m));
}

TEST(MathsMatrix, the_identity_test_is_exact)
{
    EXPECT_TRUE(RvM4IsIdentity(&RV_M4_IDENTITY));
    for (int i = 0; i < 16; ++i)
        for (float wrong : { 0.5f, NAN }) {
            RtMatrix m = RV_M4_IDENTITY;
            (&m.m[0][0])[i] = wrong;
            EXPECT_FALSE(RvM4IsIdentity(&m)) << "element " << i;
        }
    RtMatrix nearly = RV_M4_IDENTITY;
    nearly.m[2][2] = nextafterf(1, 2);
    EXPECT_FALSE(RvM4IsIdentity(&nearly));
}

TEST(MathsMatrix, an_affine_blend_meets_both_ends_and_works_in_place)
{
    RtMatrix m;
    RvM4Lerp(&m, 0, &some_matrix, &other_matrix);
    EXPECT_EQ(floatsOf(some_matrix), floatsOf(m));
    RvM4Lerp(&m, 1, &some_matrix, &other_matrix);
    EXPECT_EQ(floatsOf(other_matrix), floatsOf(m));
    m = some_matrix;
    RvM4Lerp(&m, 0.5f, &m, &other_matrix);
    EXPECT_EQ(1.5f, m.m[0][0]);
}

TEST(MathsMatrix, a_barycentric_blend_meets_all_three_corners)
{
    RtMatrix m;
    RvM4Berp(0, 0, &some_matrix, &other_matrix, &RV_M4_IDENTITY, &m);
    EXPECT_EQ(floatsOf(some_matrix), floatsOf(m));
    RvM4Berp(1, 0, &some_matrix, &other_matrix, &RV_M4_IDENTITY, &m);
    EXPECT_EQ(floatsOf(other_matrix), floatsOf(m));
    RvM4Berp(0, 1, &some_matrix, &other_matrix, &RV_M4_IDENTITY, &m);
    EXPECT_EQ(floatsOf(RV_M4_IDENTITY), floatsOf(m));
}

TEST(MathsMatrix, points_are_moved_and_not_divided_by_w)
{
    const RtMatrix m = { { { 1, 0, 0, 1 }, { 0, 1, 0, 1 }, { 0, 0, 1, 1 }, { 5, 6, 7, 8 } } };
    RtPoint p = { 1, 2, 3 };
    RvM4PointByMatrixMult(&p, &m, &p);
    EXPECT_EQ(floatsOf(RtPoint{ 6, 8, 10 }), floatsOf(p));
}

TEST(MathsMatrix, homogeneous_points_keep_all_four_components)
{
    const RtMatrix m = { { { 1, 0, 0, 1 }, { 0, 1, 0, 1 }, { 0, 0, 1, 1 }, { 5, 6, 7, 8 } } };
    float p[4] = { 1, 2, 3, 2 };
    RvM4HPointByMatrixMult(p, &m, p);
    EXPECT_EQ((std::vector<float>{ 11, 14, 17, 22 }), std::vector<float>(p, p + 4));
}

TEST(MathsMatrix, vectors_are_not_moved)
{
    RtMatrix m;
    const RtVector t = { 5, 6, 7 };
    RvM4Translation(&m, &t);
    RtVector v = { 1, 2, 3 };
    RvM4VectorByMatrixMult(&v, &m, &v);
    EXPECT_EQ(floatsOf(RtVector{ 1, 2, 3 }), floatsOf(v));
}

TEST(MathsMatrix, the_transposed_inverse_keeps_normals_perpendicular)
{
    const RtMatrix m = {
        { { 1, 2, 0.5f, 0 }, { -1, 4, 2, 0 }, { 0.25f, -3, 1, 0 }, { 5, 1, -2, 1 } }
    };
    RtMatrix inverse;
    RvM4Invert(&m, &inverse);
    RtVector tangent = { 1, 1, 0 }, normal = { 1, -1, 0.5f };
    RvM4VectorByMatrixMult(&tangent, &m, &tangent);
    RvM4VectorByMatrixTMult(&normal, &inverse, &normal);
    EXPECT_NEAR(0, rv::dot(tangent, normal), 1e-5f);
    EXPECT_GT(rv::dot(normal, normal), 0.01f);
}

TEST(MathsMatrix, golden_rotations_about_x)
{
    forEachVector("RvM4RotationX", [](const json& v) {
        RtMatrix m;
        RvM4RotationX(&m, goldenFloat(v["in"]["degrees"]));
        expectGoldenNumbers(v, "matrix", floatsOf(m));
    });
}

TEST(MathsMatrix, golden_rotations_about_y)
{
    forEachVector("RvM4RotationY", [](const json& v) {
        RtMatrix m;
        RvM4RotationY(&m, goldenFloat(v["in"]["degrees"]));
        expectGoldenNumbers(v, "matrix", floatsOf(m));
    });
}

TEST(MathsMatrix, golden_rotations_about_z)
{
    forEachVector("RvM4RotationZ", [](const json& v) {
        RtMatrix m;
        RvM4RotationZ(&m, goldenFloat(v["in"]["degrees"]));
        expectGoldenNumbers(v, "matrix", floatsOf(m));
    });
}

TEST(MathsMatrix, golden_translations)
{
    forEachVector("RvM4Translation", [](const json& v) {
        const RtVector t = pointOf(v["in"]["t"]);
        RtMatrix m;
        RvM4Translation(&m, &t);
        expectGoldenNumbers(v, "matrix", floatsOf(m));
    });
}

TEST(MathsMatrix, golden_scalings)
{
    forEachVector("RvM4Scaling", [](const json& v) {
        const RtVector s = pointOf(v["in"]["s"]);
        RtMatrix m;
        RvM4Scaling(&m, &s);
        expectGoldenNumbers(v, "matrix", floatsOf(m));
    });
}

TEST(MathsMatrix, golden_frames)
{
    forEachVector("RvM4Frame", [](const json& v) {
        const RtPoint origin = pointOf(v["in"]["origin"]);
        const RtVector x = pointOf(v["in"]["u"]), y = pointOf(v["in"]["v"]),
                       z = pointOf(v["in"]["w"]);
        RtMatrix m;
        RvM4Frame(&m, &origin, &x, &y, &z);
        expectGoldenNumbers(v, "matrix", floatsOf(m));
    });
}

TEST(MathsMatrix, golden_products)
{
    forEachVector("RvM4Mult", [](const json& v) {
        const RtMatrix a = matrixOf(v["in"]["A"]), b = matrixOf(v["in"]["B"]);
        RtMatrix m;
        RvM4Mult(&m, &a, &b);
        expectGoldenNumbers(v, "matrix", floatsOf(m));
    });
}

TEST(MathsMatrix, golden_transposes)
{
    forEachVector("RvM4Transpose", [](const json& v) {
        const RtMatrix in = matrixOf(v["in"]["in"]);
        RtMatrix m;
        RvM4Transpose(&in, &m);
        expectGoldenNumbers(v, "matrix", floatsOf(m));
    });
}

TEST_F(Maths, golden_inverses)
{
    forEachVector("RvM4Invert", [](const json& v) {
        const RtMatrix in = matrixOf(v["in"]["in"]);
        RtMatrix m;
        RvM4Invert(&in, &m);
        if (v["out"].contains("matrix"))
            return expectGoldenNumbers(v, "matrix", floatsOf(m));
        bool all_finite = true;
        for (float x : floatsOf(m))
            all_finite &= RvIsFinite(x);
        expectGolden(v, "all_finite", all_finite);
        expectGolden(v, "messages", takeProblems());
    });
}

TEST(MathsMatrix, golden_determinants)
{
    forEachVector("RvM4Determinant", [](const json& v) {
        const RtMatrix m = matrixOf(v["in"]["M"]);
        expectGoldenNumbers(v, "value", { RvM4Determinant(&m) });
    });
}

TEST(MathsMatrix, golden_singularity)
{
    forEachVector("RvM4IsSingular", [](const json& v) {
        const RtMatrix m = matrixOf(v["in"]["M"]);
        expectGolden(v, "value", RvM4IsSingular(&m));
    });
}

TEST(MathsMatrix, golden_identity_tests)
{
    forEachVector("RvM4IsIdentity", [](const json& v) {
        const RtMatrix m = matrixOf(v["in"]["M"]);
        expectGolden(v, "value", RvM4IsIdentity(&m));
    });
}

TEST(MathsMatrix, golden_affine_blends)
{
    forEachVector("RvM4Lerp", [](const json& v) {
        const RtMatrix a = matrixOf(v["in"]["A"]), b = matrixOf(v["in"]["B"]);
        RtMatrix m;
        RvM4Lerp(&m, goldenFloat(v["in"]["t"]), &a, &b);
        expectGoldenNumbers(v, "matrix", floatsOf(m));
    });
}

TEST(MathsMatrix, golden_barycentric_blends)
{
    forEachVector("RvM4Berp", [](const json& v) {
        const RtMatrix a = matrixOf(v["in"]["A"]), b = matrixOf(v["in"]["B"]),
                       c = matrixOf(v["in"]["C"]);
        RtMatrix m;
        RvM4Berp(goldenFloat(v["in"]["u"]), goldenFloat(v["in"]["v"]), &a, &b, &c, &m);
        expectGoldenNumbers(v, "matrix", floatsOf(m));
    });
}

TEST(MathsMatrix, golden_points_by_matrices)
{
    forEachVector("RvM4PointByMatrixMult", [](const json& v) {
        const RtMatrix m = matrixOf(v["in"]["M"]);
        const RtPoint p = pointOf(v["in"]["p"]);
        RtPoint out;
        RvM4PointByMatrixMult(&out, &m, &p);
        expectGoldenNumbers(v, "out", floatsOf(out));
    });
}

TEST(MathsMatrix, golden_homogeneous_points_by_matrices)
{
    forEachVector("RvM4HPointByMatrixMult", [](const json& v) {
        const RtMatrix m = matrixOf(v["in"]["M"]);
        std::vector<float> p = goldenFloats(v["in"]["p"]);
        std::vector<float> out(4);
        RvM4HPointByMatrixMult(out.data(), &m, p.data());
        expectGoldenNumbers(v, "out", out);
    });
}

TEST(MathsMatrix, golden_vectors_by_matrices)
{
    forEachVector("RvM4VectorByMatrixMult", [](const json& v) {
        const RtMatrix m = matrixOf(v["in"]["M"]);
        const RtVector in = pointOf(v["in"]["v"]);
        RtVector out;
        RvM4VectorByMatrixMult(&out, &m, &in);
        expectGoldenNumbers(v, "out", floatsOf(out));
    });
}

TEST(MathsMatrix, golden_vectors_by_transposed_matrices)
{
    forEachVector("RvM4VectorByMatrixTMult", [](const json& v) {
        const RtMatrix m = matrixOf(v["in"]["M"]);
        const RtVector in = pointOf(v["in"]["v"]);
        RtVector out;
        RvM4VectorByMatrixTMult(&out, &m, &in);
        expectGoldenNumbers(v, "out", floatsOf(out));
    });
}

// ---- Colours and numbers ----

TEST(MathsColor, a_gamma_of_1_changes_not_even_a_negative_channel)
{
    RtRGB c = { -0.5f, NAN, 2 };
    RvColorGamma(&c, 1);
    EXPECT_EQ(-0.5f, c.r);
    EXPECT_TRUE(std::isnan(c.g));
    EXPECT_EQ(2, c.b);
}

TEST(MathsColor, gamma_raises_to_its_reciprocal)
{
    RtRGB c = { 0.25f, 4, 0 };
    RvColorGamma(&c, 2);
    EXPECT_FLOAT_EQ(0.5f, c.r);
    EXPECT_FLOAT_EQ(2, c.g);
    EXPECT_EQ(0, c.b);
}

TEST(MathsColor, a_gamma_of_0_is_not_guarded_against)
{
    RtRGB c = { 0.5f, 1, 2 };
    RvColorGamma(&c, 0);
    EXPECT_EQ(floatsOf(RtRGB{ 0, 1, INFINITY }), floatsOf(c));
}

TEST(MathsColor, gamma_leaves_alpha_alone)
{
    RtRGBA c = { 0.25f, 4, 1, 0.25f };
    RvRGBAGamma(&c, 2);
    EXPECT_FLOAT_EQ(0.5f, c.r);
    EXPECT_EQ(0.25f, c.a);
}

static const RtRGB ramp_colors[] = { { 0.1f, 0.2f, 0.3f }, { 0.7f, 0.6f, 0.5f }, { 1, 0, 0 } };
static const float ramp_positions[] = { 1, 2, 4 };

TEST(MathsColor, an_empty_ramp_is_magenta)
{
    EXPECT_EQ(floatsOf(RtRGB{ 1, 0, 1 }), floatsOf(RvColorHeatMap(nullptr, nullptr, 0, 0.5f)));
}

TEST(MathsColor, a_ramp_of_one_colour_is_constant)
{
    for (float t : { -5.f, 1.f, 9.f })
        EXPECT_EQ(floatsOf(ramp_colors[0]),
                  floatsOf(RvColorHeatMap(ramp_colors, ramp_positions, 1, t)));
}

TEST(MathsColor, a_ramp_is_constant_beyond_its_ends)
{
    EXPECT_EQ(floatsOf(ramp_colors[0]),
              floatsOf(RvColorHeatMap(ramp_colors, ramp_positions, 3, -7)));
    EXPECT_EQ(floatsOf(ramp_colors[2]),
              floatsOf(RvColorHeatMap(ramp_colors, ramp_positions, 3, 8)));
}

TEST(MathsColor, a_ramp_meets_every_position_exactly)
{
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(floatsOf(ramp_colors[i]),
                  floatsOf(RvColorHeatMap(ramp_colors, ramp_positions, 3, ramp_positions[i])));
}

TEST(MathsColor, a_ramp_is_linear_between_positions)
{
    const RtRGB c = RvColorHeatMap(ramp_colors, ramp_positions, 3, 3);
    EXPECT_FLOAT_EQ(0.85f, c.r);
    EXPECT_FLOAT_EQ(0.3f, c.g);
    EXPECT_FLOAT_EQ(0.25f, c.b);
}

TEST(MathsColor, a_position_that_is_no_number_stays_within_the_ramp)
{
    const RtRGB c = RvColorHeatMap(ramp_colors, ramp_positions, 3, NAN);
    EXPECT_TRUE(std::isnan(c.r));
}

TEST(MathsColor, golden_gamma)
{
    forEachVector("RvColorGamma", [](const json& v) {
        const std::vector<float> in = goldenFloats(v["in"]["color"]);
        RtRGB c = { in[0], in[1], in[2] };
        RvColorGamma(&c, goldenFloat(v["in"]["gamma"]));
        expectGoldenNumbers(v, "color", floatsOf(c));
    });
}

TEST(MathsColor, golden_gamma_with_alpha)
{
    forEachVector("RvRGBAGamma", [](const json& v) {
        const std::vector<float> in = goldenFloats(v["in"]["color"]);
        RtRGBA c = { in[0], in[1], in[2], in[3] };
        RvRGBAGamma(&c, goldenFloat(v["in"]["gamma"]));
        expectGoldenNumbers(v, "color", floatsOf(c));
    });
}

TEST(MathsColor, golden_ramps)
{
    forEachVector("RvColorHeatMap", [](const json& v) {
        std::vector<RtRGB> colors;
        for (const json& c : v["in"]["colors"])
            colors.push_back({ goldenFloat(c[0]), goldenFloat(c[1]), goldenFloat(c[2]) });
        const std::vector<float> positions = goldenFloats(v["in"]["positions"]);
        const RtRGB c =
            RvColorHeatMap(colors.data(), positions.data(), static_cast<unsigned>(colors.size()),
                           goldenFloat(v["in"]["t"]));
        expectGoldenNumbers(v, "color", floatsOf(c));
    });
}

TEST(MathsColor, finite_numbers_are_told_from_the_others)
{
    for (float x : { 0.f, -0.f, 1e-45f, -3.4e38f })
        EXPECT_TRUE(RvIsFinite(x)) << x;
    for (float x : { INFINITY, -INFINITY, NAN, -NAN })
        EXPECT_FALSE(RvIsFinite(x)) << x;
}

TEST(MathsColor, golden_finite_tests)
{
    forEachVector("RvIsFinite", [](const json& v) {
        expectGolden(v, "value", RvIsFinite(goldenFloat(v["in"]["x"])));
    });
}

// ---- Boxes ----

static RtBBox boxOf(const json& in) { return { pointOf(in["min"]), pointOf(in["max"]) }; }

TEST(MathsBox, area_and_volume_count_all_sides)
{
    const RtBBox box = { { -1, -2, -3 }, { 1, 2, 3 } };
    EXPECT_EQ(88, RvBBoxArea(box));
    EXPECT_EQ(48, RvBBoxVolume(box));
    EXPECT_EQ(0, RvBBoxArea(RV_BBOX_ZERO));
    EXPECT_EQ(0, RvBBoxVolume(RV_BBOX_ZERO));
    EXPECT_EQ(6, RvBBoxArea(RV_BBOX_UNIT));
    EXPECT_EQ(1, RvBBoxVolume(RV_BBOX_UNIT));
}

TEST(MathsBox, a_union_spans_both_boxes)
{
    const RtBBox offset = { { 1, 1, 1 }, { 2, 2, 2 } };
    const RtBBox both = RvBBoxUnion(RV_BBOX_UNIT, offset);
    EXPECT_EQ(24, RvBBoxArea(both));
    EXPECT_EQ(8, RvBBoxVolume(both));
    const RtBBox crossed =
        RvBBoxUnion({ { 0, -4, 2 }, { 1, 0, 3 } }, { { -1, 5, 0 }, { 0, 6, 9 } });
    EXPECT_EQ(floatsOf(RtPoint{ -1, -4, 0 }), floatsOf(crossed.min));
    EXPECT_EQ(floatsOf(RtPoint{ 1, 6, 9 }), floatsOf(crossed.max));
}

TEST(MathsBox, the_boundary_counts_as_inside)
{
    EXPECT_TRUE(RvBBoxInside(RV_BBOX_UNIT, { 0, 1, 0.5f }));
    EXPECT_TRUE(RvBBoxInside(RV_BBOX_UNIT, { 1, 1, 1 }));
    for (const RtPoint& p : { RtPoint{ -0.001f, 0, 0 }, RtPoint{ 0, 1.001f, 0 },
                              RtPoint{ 0, 0, -0.001f }, RtPoint{ NAN, 0, 0 } })
        EXPECT_FALSE(RvBBoxInside(RV_BBOX_UNIT, p));
}

TEST(MathsBox, interpolation_starts_at_min_and_takes_each_axis_by_itself)
{
    const RtBBox box = { { -1, 2, 0 }, { 3, 4, 8 } };
    EXPECT_EQ(floatsOf(box.min), floatsOf(RvBBoxLerp(box, RV_V3_ZERO)));
    EXPECT_EQ(floatsOf(box.max), floatsOf(RvBBoxLerp(box, RV_V3_ONE)));
    EXPECT_EQ(floatsOf(RtPoint{ 0, 3, 16 }), floatsOf(RvBBoxLerp(box, { 0.25f, 0.5f, 2 })));
    EXPECT_EQ(floatsOf(RtPoint{ 1, 3, 4 }), floatsOf(RvBBoxCenter(box)));
}

static const RtBBox ahead = { { 2, -1, -1 }, { 3, 1, 1 } };
static const RtBBox behind = { { -3, -1, -1 }, { -2, 1, 1 } };

TEST(MathsBox, a_ray_enters_and_leaves_a_box_ahead)
{
    float t0 = RV_EPSILON, t1 = RV_BIG;
    EXPECT_TRUE(RvBBoxRayIntersect(RV_P3_ZERO, RV_V3_X, ahead, &t0, &t1));
    EXPECT_EQ(2, t0);
    EXPECT_EQ(3, t1);
    EXPECT_TRUE(RvBBoxRayOverlap(RV_P3_ZERO, RV_V3_X, ahead, RV_EPSILON, RV_BIG));
}

TEST(MathsBox, a_box_behind_is_rejected_by_the_interval_which_stays_as_given)
{
    float t0 = RV_EPSILON, t1 = RV_BIG;
    EXPECT_FALSE(RvBBoxRayIntersect(RV_P3_ZERO, RV_V3_X, behind, &t0, &t1));
    EXPECT_EQ(RV_EPSILON, t0);
    EXPECT_EQ(RV_BIG, t1);
    EXPECT_FALSE(RvBBoxRayOverlap(RV_P3_ZERO, RV_V3_X, behind, RV_EPSILON, RV_BIG));
    EXPECT_TRUE(RvBBoxRayOverlap(RV_P3_ZERO, RV_V3_X, behind, -RV_BIG, RV_BIG));
}

TEST(MathsBox, the_given_interval_rejects_but_does_not_cut_the_result)
{
    float t0 = 2.25f, t1 = 2.5f;
    EXPECT_TRUE(RvBBoxRayIntersect(RV_P3_ZERO, RV_V3_X, ahead, &t0, &t1));
    EXPECT_EQ(2, t0);
    EXPECT_EQ(3, t1);
    t0 = 3.5f;
    t1 = 9;
    EXPECT_FALSE(RvBBoxRayIntersect(RV_P3_ZERO, RV_V3_X, ahead, &t0, &t1));
}

TEST(MathsBox, the_running_interval_narrows_from_axis_to_axis)
{
    // Inside all three slabs somewhere, but never in all at once.
    const RtBBox box = { { 1, 5, -1 }, { 2, 6, 1 } };
    EXPECT_FALSE(RvBBoxRayOverlap(RV_P3_ZERO, { 1, 1, 0 }, box, RV_EPSILON, RV_BIG));
    EXPECT_TRUE(RvBBoxRayOverlap(RV_P3_ZERO, { 1, 3.5f, 0 }, box, RV_EPSILON, RV_BIG));
}

TEST(MathsBox, a_ray_may_run_backwards_or_along_a_negative_zero)
{
    float t0 = RV_EPSILON, t1 = RV_BIG;
    EXPECT_TRUE(RvBBoxRayIntersect({ 5, 0, 0 }, { -1, -0.f, -0.f }, ahead, &t0, &t1));
    EXPECT_EQ(2, t0);
    EXPECT_EQ(3, t1);
}

TEST(MathsBox, a_ray_within_the_plane_of_a_face_hits)
{
    float t0 = RV_EPSILON, t1 = RV_BIG;
    EXPECT_TRUE(RvBBoxRayIntersect({ 0, 1, -1 }, RV_V3_X, ahead, &t0, &t1));
    EXPECT_EQ(2, t0);
    EXPECT_EQ(3, t1);
    EXPECT_FALSE(RvBBoxRayOverlap({ 0, 1.001f, 0 }, RV_V3_X, ahead, RV_EPSILON, RV_BIG));
}

TEST(MathsBox, golden_areas)
{
    forEachVector("RvBBoxArea", [](const json& v) {
        expectGoldenNumbers(v, "value", { RvBBoxArea(boxOf(v["in"])) });
    });
}

TEST(MathsBox, golden_volumes)
{
    forEachVector("RvBBoxVolume", [](const json& v) {
        expectGoldenNumbers(v, "value", { RvBBoxVolume(boxOf(v["in"])) });
    });
}

TEST(MathsBox, golden_inside_tests)
{
    forEachVector("RvBBoxInside", [](const json& v) {
        expectGolden(v, "value", RvBBoxInside(boxOf(v["in"]), pointOf(v["in"]["p"])));
    });
}

TEST(MathsBox, golden_centres_and_interpolations)
{
    forEachVector("bbox_centre_and_lerp", [](const json& v) {
        const RtBBox box = boxOf(v["in"]);
        expectGoldenNumbers(v, "centre", floatsOf(RvBBoxCenter(box)));
        expectGoldenNumbers(v, "lerp", floatsOf(RvBBoxLerp(box, pointOf(v["in"]["t"]))));
    });
}

TEST(MathsBox, golden_ray_intersections)
{
    forEachVector("RvBBoxRayIntersect", [](const json& v) {
        const json& in = v["in"];
        float t0 = goldenFloat(in["t0"]), t1 = goldenFloat(in["t1"]);
        expectGolden(
            v, "hit",
            RvBBoxRayIntersect(pointOf(in["origin"]), pointOf(in["dir"]), boxOf(in), &t0, &t1));
        expectGoldenNumbers(v, "t0", { t0 });
        expectGoldenNumbers(v, "t1", { t1 });
    });
}

TEST(MathsBox, golden_ray_overlaps)
{
    forEachVector("RvBBoxRayOverlap", [](const json& v) {
        const json& in = v["in"];
        expectGolden(v, "hit",
                     RvBBoxRayOverlap(pointOf(in["origin"]), pointOf(in["dir"]), boxOf(in),
                                      goldenFloat(in["t0"]), goldenFloat(in["t1"])));
    });
}
