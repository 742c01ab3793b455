// Tests of core/src/wireframe.cpp and of the shader "wireframe" (core/src/shaders/wireframe.cpp).
#include "shader_tools.h"
#include "shaders/surface_fixture.h"

namespace {

using namespace surface_tools;
using node_tools::describe;

using rv::operator*, rv::operator+;

enum { triangle_edges, polygon_edges, patch_edges };

class Wireframes : public Surfaces {
protected:
    void SetUp() override
    {
        Surfaces::SetUp();
        shader = node_tools::named("wireframe", "wires");
    }
    void TearDown() override
    {
        shader_tools::programs().clear();
        Surfaces::TearDown();
    }

    // A square of two triangles across the z axis, whose diagonal leads through the middle.
    static RtNode* square(float size = 2)
    {
        const float h = size / 2;
        RtNode* const node = polygons({ { -h, -h, 0 }, { h, -h, 0 }, { h, h, 0 }, { -h, h, 0 } },
                                      { { 0, 1, 2, 3 } });
        prepare();
        return node;
    }
    static RtShaderGlobals at(RtNode* object, const RtPoint& point, uint32_t prim = 0)
    {
        RtShaderGlobals sg = contextOn(object, nullptr, prim);
        sg.point = sg.object_point = point;
        return sg;
    }
    static bool isLine(const RtShaderGlobals& sg, float width, int edge_type = triangle_edges,
                       bool raster_space = false)
    {
        const float value = RvWireframe(&sg, width, raster_space, edge_type);
        EXPECT_TRUE(value == 0 || value == 1) << value;
        return value == 0;
    }
};

// ---- RvWireframe ----

TEST_F(Wireframes, lines_agree_with_the_golden_vectors)
{
    for (const json& v : goldenVectors("shading", "RvWireframe")) {
        const json& in = v.at("in");
        const auto vectorOf = [](const json& numbers) {
            const std::vector<float> p = goldenFloats(numbers);
            return RtPoint{ p.at(0), p.at(1), p.at(2) };
        };
        Points vertices;
        Indices face;
        for (const json& p : in.at("vertices")) {
            face.push_back(uint32_t(vertices.size()));
            vertices.push_back(vectorOf(p));
        }
        RtNode* const mesh = polygons(vertices, { face });
        prepare();
        RtShaderGlobals sg = at(mesh, vectorOf(in.at("point")));
        const std::vector<float> matrix = goldenFloats(in.at("object_to_world"));
        std::copy(matrix.begin(), matrix.end(), &sg.object_to_world.m[0][0]);
        sg.dDdx = vectorOf(in.at("dDdx"));
        sg.dDdy = vectorOf(in.at("dDdy"));
        sg.ray_length = goldenNumber(in.at("ray_length"));
        expectGoldenNumbers(
            v, "value",
            { RvWireframe(&sg, goldenFloat(in.at("line_width")), in.at("raster_space").get<bool>(),
                          in.at("edge_type").get<int>()) });
        startAnew();
    }
}

TEST_F(Wireframes, points_on_an_edge_are_on_a_line)
{
    RtNode* const mesh = square();
    for (int type : { triangle_edges, polygon_edges, patch_edges })
        for (const RtPoint& p : { RtPoint{ 0.5f, -1, 0 }, { 1, 0.25f, 0 }, { -1, -1, 0 } })
            EXPECT_TRUE(isLine(at(mesh, p), 1e-6f, type)) << type << " " << describe(p);
}

TEST_F(Wireframes, the_width_is_in_world_units_outside_of_raster_space)
{
    RtNode* const mesh = square();
    for (float width : { 0.01f, 0.1f, 0.4f })
        for (float sign : { -1.0f, 1.0f }) { // inside of the edge and outside
            const auto sg = [&](float factor) {
                return at(mesh, { 0.25f, -1 + sign * width / 2 * factor, 0 });
            };
            EXPECT_TRUE(isLine(sg(0.99f), width)) << width;
            EXPECT_FALSE(isLine(sg(1.01f), width)) << width;
        }
}

TEST_F(Wireframes, the_width_is_measured_where_the_object_is)
{
    RtNode* const mesh = square();
    RtShaderGlobals sg = at(mesh, { 2.5f, -9.9f, 0 }); // near the lower edge
    const RtVector size = { 10, 10, 10 };
    RvM4Scaling(&sg.object_to_world, &size);
    EXPECT_FALSE(isLine(sg, 0.19f));
    EXPECT_TRUE(isLine(sg, 0.21f));
}

TEST_F(Wireframes, in_raster_space_the_width_is_in_pixels)
{
    RtNode* const mesh = square();
    RtShaderGlobals sg = at(mesh, { 0.25f, -0.95f, 0 });
    sg.dDdx = { 0, 0.003f, 0 };
    sg.dDdy = { 0.004f, 0, 0.003f }; // 0.5 * (0.003 + 0.005) * 10 = 0.04 to a pixel
    sg.ray_length = 10;
    EXPECT_TRUE(isLine(sg, 2.6f, polygon_edges, true));
    EXPECT_FALSE(isLine(sg, 2.4f, polygon_edges, true));
    sg.ray_length = 20;
    EXPECT_TRUE(isLine(sg, 1.3f, polygon_edges, true));
    EXPECT_FALSE(isLine(sg, 1.2f, polygon_edges, true));
    sg.dDdx = sg.dDdy = { 0, 0, 0 }; // of a ray without neighbours
    sg.point.y = -1;
    EXPECT_FALSE(isLine(sg, 100, polygon_edges, true));
}

TEST_F(Wireframes, only_triangles_show_the_diagonals_of_polygons)
{
    RtNode* const mesh = square();
    const RtShaderGlobals middle = at(mesh, { 0.01f, 0, 0 });
    EXPECT_TRUE(isLine(middle, 0.1f, triangle_edges));
    EXPECT_FALSE(isLine(middle, 0.1f, polygon_edges));
    EXPECT_FALSE(isLine(middle, 0.1f, patch_edges));
    for (int type : { 3, -1, 1000 }) {
        EXPECT_FALSE(isLine(middle, 0.1f, type)) << type;
        EXPECT_FALSE(isLine(at(mesh, { 0, -1, 0 }), 0.1f, type)) << type;
    }
}

TEST_F(Wireframes, polygons_of_many_corners_have_all_their_edges)
{
    constexpr int corners = 300;
    Points vertices;
    Indices face;
    for (int i = 0; i < corners; ++i) {
        const double angle = 2 * M_PI * i / corners;
        vertices.push_back({ float(cos(angle)), float(sin(angle)), 0 });
        face.push_back(uint32_t(i));
    }
    RtNode* const mesh = polygons(vertices, { face });
    prepare();
    for (int i = 0; i < corners; ++i) {
        const RtPoint edge = (vertices[size_t(i)] + vertices[size_t((i + 1) % corners)]) * 0.5f;
        EXPECT_TRUE(isLine(at(mesh, edge), 1e-4f, polygon_edges)) << i;
        EXPECT_FALSE(isLine(at(mesh, edge * 0.9f), 1e-2f, polygon_edges)) << i;
    }
}

TEST_F(Wireframes, edges_deliberately_go_on_beyond_their_ends)
{
    // An L: the edges of its inner corner point at the middle of each arm.
    RtNode* const mesh =
        polygons({ { 0, 0, 0 }, { 2, 0, 0 }, { 2, 1, 0 }, { 1, 1, 0 }, { 1, 2, 0 }, { 0, 2, 0 } },
                 { { 0, 1, 2, 3, 4, 5 } });
    prepare();
    EXPECT_TRUE(isLine(at(mesh, { 1, 0.5f, 0 }), 0.01f, polygon_edges));
    EXPECT_TRUE(isLine(at(mesh, { 0.5f, 1, 0 }), 0.01f, polygon_edges));
    EXPECT_FALSE(isLine(at(mesh, { 0.5f, 0.5f, 0 }), 0.01f, polygon_edges));
}

TEST_F(Wireframes, lines_of_any_width_are_survived)
{
    RtNode* const mesh = square();
    const RtShaderGlobals on_edge = at(mesh, { 0.5f, -1, 0 }), inside = at(mesh, { 0.5f, 0, 0 });
    EXPECT_FALSE(isLine(on_edge, 0));
    EXPECT_FALSE(isLine(inside, 0));
    EXPECT_TRUE(isLine(inside, 1e30f));
    EXPECT_TRUE(isLine(inside, INFINITY));
    EXPECT_FALSE(isLine(on_edge, NAN));
    for (float width : { 0.1f, 1e30f }) // the sign does not matter
        for (const RtShaderGlobals& sg : { on_edge, inside })
            EXPECT_EQ(isLine(sg, -width), isLine(sg, width)) << width;
    EXPECT_FALSE(isLine(at(mesh, { NAN, 0, 0 }), 1));
}

TEST_F(Wireframes, edges_without_length_are_no_lines)
{
    RtNode* const mesh =
        polygons({ { -1, -1, 0 }, { 1, -1, 0 }, { 1, -1, 0 }, { 0, 1, 0 } }, { { 0, 1, 2, 3 } });
    prepare();
    EXPECT_FALSE(isLine(at(mesh, { 0, -0.5f, 0 }), 0.1f, polygon_edges));
    EXPECT_TRUE(isLine(at(mesh, { 0, -0.99f, 0 }), 0.1f, polygon_edges));
}

TEST_F(Wireframes, edges_move_with_their_vertices)
{
    RtNode* const mesh = triangle();
    setPoints(mesh, "vlist",
              { { 0, 0, 0 }, { 1, 0, 0 }, { 0, 1, 0 }, { 0, 2, 0 }, { 1, 2, 0 }, { 0, 3, 0 } }, 2);
    prepare();
    for (int type : { triangle_edges, polygon_edges })
        for (float time : { 0.0f, 0.25f, 0.5f }) {
            RtShaderGlobals sg = at(mesh, { 0.3f, 2 * time, 0 });
            sg.time = time;
            EXPECT_TRUE(isLine(sg, 0.01f, type)) << type << " " << time;
            sg.time = time + 0.1f;
            EXPECT_FALSE(isLine(sg, 0.01f, type)) << type << " " << time;
        }
}

TEST_F(Wireframes, what_is_no_mesh_has_no_lines)
{
    EXPECT_EQ(RvWireframe(nullptr, 1, true, 0), 1);
    RtNode* const mesh = square();
    RtNode* const others[] = { nullptr,         sphere("ball", { 0, 0, 0 }, 1),
                               disc("disc", 0), node_tools::named("plane", "plane"),
                               shader,          node_tools::named("box", "box") };
    prepare();
    for (RtNode* object : others)
        for (int type : { triangle_edges, polygon_edges, patch_edges })
            EXPECT_FALSE(isLine(at(object, { 1, 0, 0 }), 1e6f, type));
    EXPECT_FALSE(isLine(at(mesh, { 0, 0, 0 }, 2), 1e6f)) << "no such triangle";
    EXPECT_FALSE(isLine(at(mesh, { 0, 0, 0 }, UINT32_MAX), 1e6f, polygon_edges));
}

// ---- The shader ----

TEST_F(Wireframes, the_shader_draws_lines_over_its_fill_color)
{
    rgb("fill_color", 0.1f, 0.2f, 0.3f);
    rgb("line_color", 0.9f, 0.8f, 0.7f);
    flt("line_width", 0.2f);
    flag("raster_space", false);
    RtNode* const mesh = square();
    setShaderOf(mesh, shader);
    const struct {
        const char* edge_type;
        RtPoint point;
        bool is_line;
    } rows[] = {
        { "triangles", { 0, 0, 0 }, true }, { "triangles", { 0.5f, 0, 0 }, false },
        { "polygons", { 0, 0, 0 }, false }, { "polygons", { 0, 0.95f, 0 }, true },
        { "patches", { 0, 0, 0 }, false },  { "patches", { 0, 0.95f, 0 }, true },
    };
    for (const auto& row : rows) {
        RvNodeSetStr(shader, "edge_type", row.edge_type);
        RtShaderGlobals sg = at(mesh, row.point);
        sg.out_opacity = { 0.3f, 0.4f, 0.5f };
        RvShaderEvaluate(shader, &sg);
        expectColor(sg.out.RGB,
                    row.is_line ? RtRGB{ 0.9f, 0.8f, 0.7f } : RtRGB{ 0.1f, 0.2f, 0.3f });
        EXPECT_EQ(describe(sg.out_opacity), "0.300000012 0.400000006 0.5");
    }
}

TEST_F(Wireframes, every_point_of_a_sphere_has_the_fill_color)
{
    rgb("fill_color", 0.1f, 0.2f, 0.3f);
    setShaderOf(sphere("ball", { 0, 0, 0 }, 1), shader);
    prepare();
    for (float x : { 0.0f, 0.3f, 0.6f, 0.9f }) {
        RtRay ray = down();
        ray.origin.x = x;
        expectColor(traced(ray).color, { 0.1f, 0.2f, 0.3f });
    }
}

TEST_F(Wireframes, inputs_of_the_shader_may_be_linked)
{
    flag("raster_space", false);
    RtNode* const mesh = square();
    RvNodeLink(shader_tools::floatShader("width", 0.5f), "line_width", shader);
    RvNodeLink(shader_tools::rgbShader("red", { 1, 0, 0 }), "line_color", shader);
    RtShaderGlobals sg = at(mesh, { 0, -0.8f, 0 });
    RvShaderEvaluate(shader, &sg);
    expectColor(sg.out.RGB, { 1, 0, 0 });
}

} // namespace
