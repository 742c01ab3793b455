// The "polymesh" node: from arrays to a mesh, its geometry, user data and structure.
#include "frame_fixture.h"
#include "golden.h"
#include "mesh_tools.h"
#include "render_session.h"
#include "rv_shaderglobals.h"
#include "shading_state.h"

#include <chrono>
#include <cmath>
#include <random>

namespace {

const std::vector<RtPoint> square = { { 0, 0, 0 }, { 1, 0, 0 }, { 1, 1, 0 }, { 0, 1, 0 } };

std::vector<RtPoint> pointsOf(const nlohmann::json& value)
{
    const std::vector<float> f = goldenFloats(value);
    std::vector<RtPoint> points(f.size() / 3);
    memcpy(static_cast<void*>(points.data()), f.data(), f.size() * sizeof(float));
    return points;
}

std::vector<float> floats(const RtVector& v) { return { v.x, v.y, v.z }; }

bool same(const RtVector& a, const RtVector& b) { return a.x == b.x && a.y == b.y && a.z == b.z; }

} // namespace

// ---- Initialize ----

class PolyMeshes : public Meshes {
protected:
    static RtNode* fromGolden(const nlohmann::json& in)
    {
        const auto count = [&](const char* key) { return in.at(key).get<uint32_t>(); };
        const auto fill = [](RtNode* node, const char* param, uint32_t n) {
            Indices values;
            for (uint32_t i = 0; i < n; ++i)
                values.push_back(i % 3);
            setIndices(node, param, values);
        };
        RtNode* const node = meshNode();
        const Points spread = { { 0, 0, 0 }, { 1, 0, 0 }, { 0, 1, 0 }, { 1, 1, 1 } };
        Points vertices, normals;
        for (uint32_t i = 0; i < count("vlist") * count("vkeys"); ++i)
            vertices.push_back(spread[i % 4]);
        normals.assign(count("nlist") * count("nkeys"), { 0, 0, 1 });
        setPoints(node, "vlist", vertices, int(count("vkeys")));
        setPoints(node, "nlist", normals, int(count("nkeys")));
        setUVs(node, std::vector<RtPoint2>(count("uvlist")));
        setIndices(node, "nsides", in.at("nsides").get<Indices>());
        fill(node, "vidxs", count("vidxs"));
        fill(node, "nidxs", count("nidxs"));
        fill(node, "uvidxs", count("uvidxs"));
        fill(node, "crease_idxs", count("crease"));
        RvNodeSetBool(node, "smoothing", in.at("smoothing").get<bool>());
        RvNodeSetStr(node, "subdiv_type", in.at("subdiv").get<std::string>().c_str());
        return node;
    }

    static RtLocalGeometry geometry(RtNode* node, uint32_t prim, float u, float v, float time = 0)
    {
        RtHit hit = {};
        hit.object = rv::objectOf(node);
        hit.prim = prim;
        hit.u = u;
        hit.v = v;
        RtLocalGeometry out;
        rv::shapeMethods(node).ShapeLocalGeometry(nullptr, time, nullptr, &hit, nullptr, &out);
        return out;
    }

    static RtPoint2 textureAt(RtNode* node, uint32_t prim, float u, float v)
    {
        RtPoint2 uv;
        rv::shapeMethods(node).ShapeTextureCoordinates(rv::objectOf(node), prim, u, v, &uv.x,
                                                       &uv.y);
        return uv;
    }

    static RtBBox bounds(RtNode* node, int key)
    {
        RtBBox box;
        rv::shapeMethods(node).ShapeBBox(rv::objectOf(node), &box, key);
        return box;
    }

    // Builds what the first ray would build.
    static RtAccel* built(RtNode* node)
    {
        rv::RvNodeInitialize(node);
        RvGObjectBuildAccel(node, 0);
        return rv::objectOf(node)->accel;
    }

    // The distance of the nearest hit along z from z = 5, or -1.
    static float depthAt(RtNode* node, float x, float y, float time = 0)
    {
        RtHit hits[1];
        RtHitList list = {};
        list.capacity = 1;
        list.maxdist = 1e30f;
        list.hits = hits;
        RtTraversal traversal = {};
        traversal.ray_type = RV_RAY_CAMERA;
        traversal.from_prim = rv_no_primitive;
        RtObjectRay ray = {};
        ray.origin = { x, y, 5 };
        ray.dir = { 0, 0, -1 };
        ray.time = time;
        ray.ignore_prim = rv_no_primitive;
        RvIntersectObject(rv::objectOf(node), traversal, ray, list);
        return list.count ? hits[0].t : -1;
    }
};

TEST_F(PolyMeshes, arrays_make_the_mesh_or_a_message)
{
    for (const auto& v : goldenVectors("meshes", "polymesh_initialize")) {
        RtNode* const node = fromGolden(v.at("in"));
        const RtPolyMesh* const mesh = initialized(node);
        expectGolden(v, "messages", takeMarkedProblems());
        expectGolden(v, "object_created", mesh != nullptr);
        expectGolden(v, "nsides", mesh ? nlohmann::json(sides(mesh)) : nlohmann::json());
        RvNodeDestroy(node);
    }
}

TEST_F(PolyMeshes, without_nsides_a_multiple_of_three_indices_makes_triangles)
{
    RtNode* const node = meshNode();
    setPoints(node, "vlist", square);
    setIndices(node, "vidxs", { 0, 1, 2, 0, 2, 3 });
    EXPECT_EQ(triangles(initialized(node)), (std::vector<Indices>{ { 0, 1, 2 }, { 0, 2, 3 } }));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(PolyMeshes, wrong_counts_name_what_was_given_and_what_is_needed)
{
    static const struct {
        const char* param;
        uint32_t given;
        const char* problem;
    } cases[] = {
        { "vidxs", 6, "m: wrong number of vertex indices (6, should be 7)" },
        { "nidxs", 8, "m: wrong number of normal indices (8, should be 7)" },
        { "uvidxs", 1, "m: wrong number of UV indices (1, should be 7)" },
        { "crease_idxs", 5, "m: wrong number of crease indices (5, should be even)" },
    };
    for (const auto& c : cases) {
        RtNode* const node = polygons(square, { { 0, 1, 2, 3 }, { 0, 1, 2 } });
        setIndices(node, c.param, Indices(c.given, 0));
        EXPECT_EQ(initialized(node), nullptr);
        EXPECT_EQ(takeProblem(), c.problem);
        RvNodeDestroy(node);
    }
}

TEST_F(PolyMeshes, sides_that_overflow_32_bits_in_sum_are_refused)
{
    RtNode* const node = meshNode();
    setPoints(node, "vlist", square);
    setIndices(node, "vidxs", { 0, 1, 2 });
    setIndices(node, "nsides", { 0xFFFFFFFF, 4 }); // 3 when added in 32 bits
    EXPECT_EQ(initialized(node), nullptr);
    EXPECT_EQ(takeProblem(), "m: wrong number of vertex indices (3, should be 2147483647)");
}

TEST_F(PolyMeshes, normals_have_as_many_keys_as_vertices)
{
    RtNode* const node = triangle();
    setPoints(node, "nlist", Points(4, { 0, 0, 1 }), 2);
    EXPECT_EQ(initialized(node), nullptr);
    EXPECT_EQ(takeProblem(), "m: different number of motion keys in vertex/normal arrays: #normal "
                             "keys: 2, #vertex keys: 1");
}

TEST_F(PolyMeshes, only_vertices_and_normals_have_motion_keys)
{
    for (const char* param : { "vidxs", "uvlist", "nidxs", "uvidxs", "crease_idxs", "shidxs" }) {
        RtNode* const node = triangle();
        const int type = !strcmp(param, "uvlist")   ? RV_TYPE_POINT2
                         : !strcmp(param, "shidxs") ? RV_TYPE_BYTE
                                                    : RV_TYPE_UINT;
        node_tools::giveArray(node, param, RvArrayAllocate(3, 2, type));
        EXPECT_EQ(initialized(node), nullptr) << param;
        EXPECT_EQ(takeProblem(),
                  "m: non-animatable polymesh parameter has more than one motion key");
        RvNodeDestroy(node);
    }
}

TEST_F(PolyMeshes, given_normals_are_kept_only_where_they_are_used)
{
    static const struct {
        bool list, indices, smoothing, subdivided, ignored;
        bool kept;
        const char* problem;
    } cases[] = {
        { true, true, true, false, false, true, "" },
        { true, true, false, false, false, false, "" },
        { true, true, true, false, true, false, "" },
        { true, true, false, true, false, false,
          "m: user normals are not supported on subdivision surfaces" },
        { true, false, true, false, false, false,
          "m: incomplete vertex normal specification: ignoring" },
        { false, true, true, false, false, false,
          "m: incomplete vertex normal specification: ignoring" },
    };
    for (const auto& c : cases) {
        setOption("ignore_smoothing", c.ignored);
        RtNode* const node = triangle();
        RvNodeSetBool(node, "smoothing", c.smoothing);
        RvNodeSetInt(node, "subdiv_type", c.subdivided);
        if (c.list)
            setPoints(node, "nlist", { { 0, 0, 1 } });
        if (c.indices)
            setIndices(node, "nidxs", { 0, 0, 0 });
        const RtPolyMesh* const mesh = initialized(node);
        EXPECT_EQ(takeProblem(), c.problem);
        EXPECT_EQ(mesh->nnormals, c.kept ? 1u : 0u);
        EXPECT_EQ(mesh->nidxs.count, c.kept ? 3u : 0u);
        RvNodeDestroy(node);
    }
}

TEST_F(PolyMeshes, the_input_arrays_are_released)
{
    RtNode* const node = triangle();
    setUVs(node, { { 0, 0 } });
    setIndices(node, "uvidxs", { 0, 0, 0 });
    initialized(node);
    EXPECT_FALSE(rv::hasMeshInputs(rv::polymeshParams(node)));
    for (const char* param : { "nsides", "vidxs", "uvidxs", "vlist", "uvlist" }) {
        const RtArray* const array = RvNodeGetArray(node, param);
        EXPECT_EQ(array->data, nullptr);
        EXPECT_EQ(array->nkeys, 1);
    }
    EXPECT_EQ(RvNodeGetArray(node, "vlist")->type, RV_TYPE_POINT) << "and can be set again";
}

TEST_F(PolyMeshes, arrays_that_changed_their_shape_after_they_were_set_are_not_believed)
{
    RtNode* const node = triangle();
    RvArrayModify(rv::polymeshParams(node).vlist, 1, 1, RV_TYPE_FLOAT, 1.0);
    messages().clear();
    EXPECT_EQ(initialized(node), nullptr);
    EXPECT_EQ(takeProblem(), "m: empty polymesh node");
    RtNode* const other = triangle();
    rv::polymeshParams(other).vidxs->nelements = 0;
    EXPECT_EQ(initialized(other), nullptr);
}

TEST_F(PolyMeshes, an_exhausted_heap_makes_no_mesh_and_leaves_nothing_behind)
{
    std::set<std::string> problems;
    for (long allowed = 0; allowed < 60; ++allowed) {
        RtNode* const node = polygons(square, { { 0, 1, 2 }, { 0, 1, 2, 3 }, { 0, 1 } });
        setUVs(node, { { 0, 0 } });
        setIndices(node, "uvidxs", Indices(9, 0));
        setShaders(node, 2);
        setBytes(node, "shidxs", { 0, 1, 0 });
        RvNodeSetBool(node, "smoothing", true);
        messages().clear();
        {
            node_tools::AllocationLimit limit(allowed);
            const RtPolyMesh* const mesh = initialized(node);
            if (mesh && mesh->object)
                RvPolyMeshSmooth(record(node));
        }
        for (const std::string& text : takeProblems())
            problems.insert(text);
        RvNodeDestroy(node);
    }
    EXPECT_TRUE(
        node_tools::anyReportsFailure(problems, "core\\src\\objects\\polymesh", "RvPolyMesh"));
    EXPECT_TRUE(
        node_tools::anyReportsFailure(problems, "core\\src\\packedarray", "RvPackedArrayAllocate"));
    EXPECT_TRUE(node_tools::anyReportsFailure(problems, "core\\src\\objects\\triangulate",
                                              "RvPolyMeshTriangulate"));
    EXPECT_TRUE(node_tools::anyReportsFailure(problems, "core\\src\\objects\\meshutil",
                                              "RvPolyMeshSmooth"));
}

TEST_F(PolyMeshes, making_and_destroying_meshes_leaves_no_memory)
{
    EXPECT_FALSE(node_tools::leaksMemory([] {
        RtNode* const node = polygons(square, { { 0, 1, 2 }, { 0, 1, 2, 3 }, { 0, 1 } });
        setUVs(node, { { 0, 0 } });
        setIndices(node, "uvidxs", Indices(9, 0));
        RvNodeSetBool(node, "smoothing", true);
        RvNodeSetBool(node, "double_precision_intersector", true);
        built(node);
        setPoints(node, "vlist", square);
        update(node);
        RvPolyMeshCopyReferences(record(node));
        RvNodeDestroy(node);
        messages().clear();
    }));
}

// ---- Triangles ----

TEST_F(PolyMeshes, triangles_are_located_by_the_common_size)
{
    for (const auto& v : goldenVectors("meshes", "locate_triangle")) {
        RtPolyMesh mesh = {};
        mesh.polygon_size = v.at("in").at("common_size").get<uint16_t>();
        expectGolden(v, "base", rv::triangleBase(mesh, v.at("in").at("triangle").get<uint32_t>()));
    }
    for (const auto& v : goldenVectors("meshes", "locate_triangle_uniform")) {
        RtPolyMesh mesh = {};
        mesh.uniform_sides = v.at("in").at("sides").get<uint32_t>();
        const uint32_t triangle = v.at("in").at("triangle").get<uint32_t>();
        expectGolden(v, "base", rv::triangleBase(mesh, triangle));
        expectGolden(v, "polygon", rv::trianglePolygon(mesh, triangle));
    }
}

TEST_F(PolyMeshes, every_triangle_knows_its_polygon_and_corners)
{
    const std::vector<std::vector<Indices>> meshes = {
        { { 0, 1, 2 }, { 2, 3, 4 } },
        { { 0, 1, 2, 3 }, { 1, 2, 3, 4 } },
        { { 0, 1, 2, 3, 4 }, { 5, 6, 7, 8, 9 }, { 0, 1, 2, 3, 4 } },
        { { 0, 1, 2, 3, 4 }, { 0, 1, 2 }, { 5, 6, 7, 8 }, { 9, 8, 7, 6, 5, 0 } },
    };
    Points vertices;
    for (int i = 0; i < 10; ++i) {
        const float angle = float(2 * M_PI / 5) * float(i % 5);
        vertices.push_back({ cosf(angle), sinf(angle), float(i / 5) });
    }
    for (const auto& faces : meshes) {
        RtNode* const node = polygons(vertices, faces);
        const RtPolyMesh* const mesh = initialized(node);
        std::vector<uint32_t> triangles_of(faces.size());
        const std::vector<Indices> all = triangles(mesh);
        for (uint32_t i = 0; i < mesh->ntriangles; ++i) {
            const Indices& face = faces[rv::trianglePolygon(*mesh, i)];
            ++triangles_of[rv::trianglePolygon(*mesh, i)];
            for (uint32_t vertex : all[i])
                EXPECT_TRUE(std::count(face.begin(), face.end(), vertex));
        }
        for (size_t i = 0; i < faces.size(); ++i)
            EXPECT_TRUE(triangles_of[i] == faces[i].size() - 2 || faces[i].size() == 6);
        RvNodeDestroy(node);
    }
}

TEST_F(PolyMeshes, polygons_of_one_size_need_no_tables)
{
    const RtPolyMesh* const triangles_only = initialized(triangle());
    EXPECT_EQ(triangles_only->triangulation.data, nullptr);
    EXPECT_EQ(triangles_only->nsides.data, nullptr);
    const RtPolyMesh* const quads = initialized(polygons(square, { { 0, 1, 2, 3 } }));
    EXPECT_EQ(quads->polygon_size, 4);
    EXPECT_EQ(quads->base_offsets.data, nullptr);
    EXPECT_EQ(quads->polygon_ids.data, nullptr);
    const Points pentagon = { { 0, 0, 0 }, { 2, 0, 0 }, { 3, 2, 0 }, { 1, 3, 0 }, { -1, 2, 0 } };
    const RtPolyMesh* const pentagons =
        initialized(polygons(pentagon, { { 0, 1, 2, 3, 4 }, { 0, 1, 2, 3, 4 } }));
    EXPECT_EQ(pentagons->polygon_size, 0);
    EXPECT_EQ(pentagons->ntriangles, 6u);
    EXPECT_EQ(pentagons->base_offsets.data, nullptr);
    EXPECT_EQ(pentagons->polygon_ids.data, nullptr);
}

TEST_F(PolyMeshes, polygons_that_cannot_be_cut_leave_no_gap)
{
    const Points points = { { 0, 0, 0 }, { 2, 0, 0 }, { 3, 2, 0 }, { 1, 3, 0 }, { -1, 2, 0 } };
    const RtPolyMesh* const mesh =
        initialized(polygons(points, { { 0, 1, 2, 3, 4 }, { 0, 0, 0, 0, 0 }, { 0, 1, 2, 3, 4 } }));
    ASSERT_EQ(mesh->ntriangles, 6u);
    EXPECT_EQ(rv::trianglePolygon(*mesh, 2), 0u);
    EXPECT_EQ(rv::trianglePolygon(*mesh, 3), 2u);
    EXPECT_EQ(rv::triangleBase(*mesh, 3), 10u);
}

// ---- Smoothing ----

TEST_F(PolyMeshes, computed_normals_are_weighted_by_area)
{
    for (const auto& v : goldenVectors("meshes", "RvPolyMeshSmooth")) {
        setOption("CCW_points", v.at("in").at("CCW_points").get<bool>());
        RtNode* const node = polygons(pointsOf(v.at("in").at("vertices")),
                                      v.at("in").at("triangles").get<std::vector<Indices>>());
        RtPolyMesh* const mesh = initialized(node);
        EXPECT_EQ(takeProblem(), "");
        RvPolyMeshSmooth(mesh);
        const int patched = v.at("out").at("patched").get<int>();
        EXPECT_EQ(takeProblem(),
                  patched ? "m: " + std::to_string(patched) +
                                " zero vertex normals patched to (1 0 0) to avoid problems"
                          : "");
        std::vector<float> normals(&mesh->normals->x, &mesh->normals->x + 3 * mesh->nnormals);
        expectGoldenNumbers(v, "normals", normals);
        EXPECT_EQ(unpacked(mesh->nidxs), unpacked(mesh->vidxs));
        EXPECT_EQ(mesh->nidxs.data, mesh->vidxs.data) << "stored once";
        RvNodeDestroy(node);
    }
}

TEST_F(PolyMeshes, every_key_gets_normals_of_its_own)
{
    RtNode* const node = triangle();
    setPoints(node, "vlist",
              { { 0, 0, 0 }, { 1, 0, 0 }, { 0, 1, 0 }, { 0, 0, 0 }, { 0, 1, 0 }, { 0, 0, 1 } }, 2);
    RvNodeSetBool(node, "smoothing", true);
    built(node);
    const RtPolyMesh* const mesh = record(node);
    EXPECT_TRUE(same(mesh->normals[2], { 0, 0, 1 }));
    EXPECT_TRUE(same(mesh->normals[3], { 1, 0, 0 }));
}

TEST_F(PolyMeshes, tiny_and_huge_triangles_keep_their_normals)
{
    for (float scale : { 1e-15f, 1e15f }) {
        RtNode* const node =
            polygons({ { 0, 0, 0 }, { scale, 0, 0 }, { 0, scale, 0 } }, { { 0, 1, 2 } });
        RtPolyMesh* const mesh = initialized(node);
        messages().clear();
        RvPolyMeshSmooth(mesh);
        EXPECT_EQ(takeProblem(), "");
        EXPECT_TRUE(same(mesh->normals[1], { 0, 0, 1 }));
        RvNodeDestroy(node);
    }
}

TEST_F(PolyMeshes, the_first_ray_smooths_meshes_that_ask_for_it)
{
    RtNode* const plain = triangle();
    built(plain);
    EXPECT_EQ(record(plain)->nnormals, 0u);
    RtNode* const smooth = triangle();
    RvNodeSetBool(smooth, "smoothing", true);
    initialized(smooth);
    EXPECT_EQ(record(smooth)->nnormals, 0u);
    built(smooth);
    EXPECT_EQ(record(smooth)->nnormals, 3u);
    RtNode* const given = triangle();
    RvNodeSetBool(given, "smoothing", true);
    setPoints(given, "nlist", { { 1, 0, 0 } });
    setIndices(given, "nidxs", { 0, 0, 0 });
    built(given);
    EXPECT_EQ(record(given)->nnormals, 1u);
    setOption("ignore_smoothing", true);
    RtNode* const ignored = triangle();
    RvNodeSetBool(ignored, "smoothing", true);
    built(ignored);
    EXPECT_EQ(record(ignored)->nnormals, 0u);
}

// ---- Shading ----

TEST_F(PolyMeshes, a_hit_has_the_geometry_of_its_triangle)
{
    for (const auto& v : goldenVectors("meshes", "mesh_hit_geometry")) {
        const auto& in = v.at("in");
        setOption("CCW_points", in.at("CCW_points").get<bool>());
        RtNode* const node = polygons(pointsOf(in.at("p")), { { 0, 1, 2 } });
        if (!in.at("normals").is_null()) {
            RvNodeSetBool(node, "smoothing", true);
            setPoints(node, "nlist", pointsOf(in.at("normals")));
            setIndices(node, "nidxs", { 0, 1, 2 });
        }
        if (!in.at("st").is_null()) {
            const std::vector<float> st = goldenFloats(in.at("st"));
            setUVs(node, { { st[0], st[1] }, { st[2], st[3] }, { st[4], st[5] } });
            setIndices(node, "uvidxs", { 0, 1, 2 });
        }
        initialized(node);
        const float hit_u = goldenFloat(in.at("u")), hit_v = goldenFloat(in.at("v"));
        const RtLocalGeometry g = geometry(node, 0, hit_u, hit_v);
        expectGoldenNumbers(v, "Ng", floats(g.Ng));
        expectGoldenNumbers(v, "N", floats(g.N));
        expectGoldenNumbers(v, "dPdu", floats(g.dPdu));
        expectGoldenNumbers(v, "dPdv", floats(g.dPdv));
        const RtPoint2 uv = textureAt(node, 0, hit_u, hit_v);
        expectGoldenNumbers(v, "uv", { uv.x, uv.y });
        RvNodeDestroy(node);
    }
}

TEST_F(PolyMeshes, normals_that_cancel_give_way_to_the_geometric_normal)
{
    RtNode* const node = triangle();
    RvNodeSetBool(node, "smoothing", true);
    setPoints(node, "nlist", { { 0, 1, 0 }, { 0, -1, 0 } });
    setIndices(node, "nidxs", { 0, 1, 0 });
    initialized(node);
    EXPECT_TRUE(same(geometry(node, 0, 0.5f, 0).N, { 0, 0, 1 }));
    EXPECT_TRUE(same(geometry(node, 0, 0, 0.25f).N, { 0, 1, 0 }));
    setOption("ignore_smoothing", true);
    EXPECT_TRUE(same(geometry(node, 0, 0, 0.25f).N, { 0, 0, 1 }));
}

TEST_F(PolyMeshes, texture_coordinates_that_do_not_span_the_triangle_give_no_derivatives)
{
    RtNode* const node = triangle();
    setUVs(node, { { 0, 0 }, { 1, 1 }, { 2, 2 } });
    setIndices(node, "uvidxs", { 0, 1, 2 });
    initialized(node);
    EXPECT_TRUE(same(geometry(node, 0, 0, 0).dPdu, RV_V3_ZERO));
    EXPECT_TRUE(same(geometry(node, 0, 0, 0).dPdv, RV_V3_ZERO));
}

TEST_F(PolyMeshes, geometry_moves_between_the_keys)
{
    RtNode* const node = triangle();
    Points vertices;
    for (float size : { 1.0f, 2.0f, 4.0f })
        for (const RtPoint& p : { RtPoint{ 0, 0, 0 }, { size, 0, 0 }, { 0, size, 0 } })
            vertices.push_back(p);
    setPoints(node, "vlist", vertices, 3);
    RvNodeSetBool(node, "smoothing", true);
    Points normals = { { 0, 0, 1 }, { 0, 0, 3 }, { 0, 0, 5 } };
    setPoints(node, "nlist", normals, 3);
    setIndices(node, "nidxs", { 0, 0, 0 });
    initialized(node);
    static const struct {
        float time, size, normal;
    } cases[] = { { 0, 1, 1 }, { 0.25f, 1.5f, 2 }, { 0.5f, 2, 3 }, { 0.75f, 3, 4 }, { 1, 4, 5 } };
    for (const auto& c : cases) {
        const RtLocalGeometry g = geometry(node, 0, 0, 0, c.time);
        EXPECT_NEAR(g.Ng.z, c.size * c.size, 1e-4f) << c.time;
        EXPECT_NEAR(g.N.z, c.normal, 1e-4f) << c.time;
    }
    EXPECT_EQ(bounds(node, -1).max.x, 4);
    EXPECT_EQ(bounds(node, 0).max.x, 1);
    EXPECT_EQ(bounds(node, 2).max.x, 4);
    EXPECT_EQ(bounds(node, 99).max.x, 4);
}

TEST_F(PolyMeshes, derivatives_of_references_and_normals_follow_the_same_rule)
{
    RtNode* const node = polygons({ { 0, 0, 0 }, { 2, 0, 0 }, { 0, 2, 0 } }, { { 0, 1, 2 } });
    RvNodeSetBool(node, "smoothing", true);
    setPoints(node, "nlist", { { 0, 0, 1 }, { 1, 0, 1 }, { 0, 1, 1 } });
    setIndices(node, "nidxs", { 0, 1, 2 });
    setUVs(node, { { 0, 0 }, { 1, 0 }, { 0, 1 } });
    setIndices(node, "uvidxs", { 0, 1, 2 });
    RtPolyMesh* const mesh = initialized(node);
    rv::MeshDerivatives d = rv::meshDerivatives(*mesh, 0, 0);
    EXPECT_TRUE(same(d.position.du, { 2, 0, 0 }));
    EXPECT_TRUE(same(d.reference_position.dv, { 0, 2, 0 })) << "without references the position";
    EXPECT_TRUE(same(d.normal.du, { 1, 0, 0 }));
    EXPECT_TRUE(same(d.reference_normal.du, RV_V3_ZERO));
    RvPolyMeshCopyReferences(mesh);
    mesh->vertices[1].x = 7;
    RvPolyMeshSmooth(mesh);
    d = rv::meshDerivatives(*mesh, 0, 0);
    EXPECT_TRUE(same(d.position.du, { 7, 0, 0 }));
    EXPECT_TRUE(same(d.reference_position.du, { 2, 0, 0 }));
    EXPECT_TRUE(same(d.normal.du, RV_V3_ZERO));
    EXPECT_TRUE(same(d.reference_normal.dv, { 0, 1, 0 }));
}

TEST_F(PolyMeshes, positions_that_are_not_finite_stay_out_of_the_bounds)
{
    RtNode* const node = polygons(square, { { 0, 1, 2, 3 } });
    RtPoint* const points = rv::elementsOf<RtPoint>(rv::polymeshParams(node).vlist);
    points[0].x = std::nanf("");
    points[2].y = INFINITY;
    ASSERT_TRUE(initialized(node));
    const RtBBox box = bounds(node, -1);
    EXPECT_TRUE(same(box.min, { 0, 0, 0 }));
    EXPECT_TRUE(same(box.max, { 1, 1, 0 }));
    EXPECT_TRUE(built(node));
    depthAt(node, 0.5f, 0.5f);
}

// ---- User data ----

class MeshUserDataTest : public PolyMeshes {
protected:
    void SetUp() override
    {
        PolyMeshes::SetUp();
        ASSERT_TRUE(rv::createThreadSlots(rv::the_frame->session, 10));
        rv::the_frame->thread_slots = rv::the_frame->session->thread_slots;
    }

    // Puts a shading context at a hit.
    void shadeAt(RtNode* node, uint32_t prim, float u, float v)
    {
        sg = {};
        state = {};
        sg.state = &state;
        sg.object = node;
        sg.prim_index = prim;
        state.user_data = static_cast<RtUserDataHit*>(
            rv::shapeMethods(node).ShapePrepareUserData(rv::objectOf(node), prim, u, v, 0));
    }

    RtShaderGlobals sg;
    RtShadingState state;
};

TEST_F(MeshUserDataTest, varying_data_is_interpolated_with_the_three_weights)
{
    RtNode* const node = polygons(square, { { 0, 1, 2, 3 } });
    declare(node, "f", "varying FLOAT", RV_TYPE_FLOAT, std::vector<float>{ 0, 1, 10, 100 });
    declare(node, "c", "varying RGB", RV_TYPE_RGB,
            std::vector<RtRGB>{ { 0, 0, 0 }, { 4, 0, 0 }, { 0, 4, 0 }, { 0, 0, 4 } });
    declare(node, "p", "varying POINT2", RV_TYPE_POINT2,
            std::vector<RtPoint2>{ { 0, 1 }, { 0, 1 }, { 4, 1 }, { 0, 1 } });
    declare(node, "i", "varying INT", RV_TYPE_INT, std::vector<int>{ 0, -10, 4, 4 });
    declare(node, "b", "varying BOOL", RV_TYPE_BOOLEAN, std::vector<char>{ 0, 1, 0, 0 });
    initialized(node);
    shadeAt(node, 0, 0.5f, 0.25f); // weights 1/4, 1/2, 1/4 of vertices 0, 1, 2
    float f = -1;
    EXPECT_TRUE(RvUserGetFltFunc("f", &sg, &f));
    EXPECT_EQ(f, 3);
    RtRGB c = {};
    EXPECT_TRUE(RvUserGetRGBFunc("c", &sg, &c));
    EXPECT_EQ(c.r, 2);
    EXPECT_EQ(c.g, 1);
    RtPoint2 p = {};
    EXPECT_TRUE(RvUserGetPnt2Func("p", &sg, &p));
    EXPECT_EQ(p.x, 1);
    EXPECT_EQ(p.y, 1);
    int i = 0;
    EXPECT_TRUE(RvUserGetIntFunc("i", &sg, &i));
    EXPECT_EQ(i, -4);
    bool b = false;
    EXPECT_TRUE(RvUserGetBoolFunc("b", &sg, &b));
    EXPECT_TRUE(b) << "the value of the nearest corner";
    shadeAt(node, 1, 0, 1); // vertices 0, 2, 3
    EXPECT_TRUE(RvUserGetFltFunc("f", &sg, &f));
    EXPECT_EQ(f, 100);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(MeshUserDataTest, uniform_data_is_that_of_the_polygon)
{
    RtNode* const node = polygons(square, { { 0, 1 }, { 0, 1, 2, 3 }, { 0, 1, 2 }, { 0, 2, 3 } });
    declare(node, "f", "uniform FLOAT", RV_TYPE_FLOAT, std::vector<float>{ 0, 1, 2, 3 });
    declare(node, "s", "uniform STRING", RV_TYPE_STRING,
            std::vector<const char*>{ "a", "b", "c", "d" });
    declare(node, "face_visibility", "uniform BOOL", RV_TYPE_BOOLEAN,
            std::vector<char>{ 1, 1, 0, 1 });
    initialized(node);
    messages().clear();
    static const struct {
        uint32_t triangle;
        float value;
        const char* text;
    } cases[] = { { 0, 1, "b" }, { 1, 1, "b" }, { 2, 3, "d" } };
    for (const auto& c : cases) {
        shadeAt(node, c.triangle, 0.3f, 0.3f);
        float f = -1;
        EXPECT_TRUE(RvUserGetFltFunc("f", &sg, &f));
        EXPECT_EQ(f, c.value);
        const char* s = nullptr;
        EXPECT_TRUE(RvUserGetStrFunc("s", &sg, &s));
        EXPECT_STREQ(s, c.text);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(MeshUserDataTest, constants_and_wrong_types_are_handled_as_on_any_node)
{
    RtNode* const node = triangle();
    ASSERT_TRUE(RvNodeDeclare(node, "k", "constant FLOAT"));
    RvNodeSetFlt(node, "k", 8);
    declare(node, "v", "varying FLOAT", RV_TYPE_FLOAT, std::vector<float>{ 0, 1, 2 });
    initialized(node);
    shadeAt(node, 0, 0, 0);
    float f = 0;
    EXPECT_TRUE(RvUserGetFltFunc("k", &sg, &f));
    EXPECT_EQ(f, 8);
    EXPECT_EQ(takeProblem(), "");
    int i = 0;
    EXPECT_FALSE(RvUserGetIntFunc("v", &sg, &i));
    EXPECT_EQ(takeProblem(), "reading user-data():  value mismatch problem:  attempting to get a "
                             "'INT' value from a 'FLOAT' array");
    RvArrayDestroy(rv::findUserParam(node, "v", false)->value.ARRAY);
    rv::findUserParam(node, "v", false)->value.ARRAY = RvArray(1, 1, RV_TYPE_FLOAT, 3.0);
    EXPECT_TRUE(RvUserGetFltFunc("v", &sg, &f)) << "too few elements: as without the hit";
}

TEST_F(MeshUserDataTest, nodes_without_user_data_prepare_nothing)
{
    RtNode* const node = triangle();
    initialized(node);
    shadeAt(node, 0, 0, 0);
    EXPECT_EQ(state.user_data, nullptr);
}

TEST_F(MeshUserDataTest, user_data_of_the_wrong_length_is_lost_and_the_mesh_stays)
{
    RtNode* const node = triangle();
    declare(node, "u", "uniform FLOAT", RV_TYPE_FLOAT, std::vector<float>{ 0, 1 });
    EXPECT_TRUE(initialized(node));
    EXPECT_EQ(takeProblem(), "m: uniform user-data count wrong! (found 2 expected 1) -- disabling "
                             "user-data 'u'");
}

// ---- Structures ----

TEST_F(PolyMeshes, rays_hit_the_triangles)
{
    for (bool precise : { false, true }) {
        RtNode* const node = polygons(
            { { 0, 0, 0 }, { 2, 0, 0 }, { 2, 1, 0 }, { 1, 1, 0 }, { 1, 2, 0 }, { 0, 2, 0 } },
            { { 0, 1, 2, 3, 4, 5 } });
        RvNodeSetBool(node, "double_precision_intersector", precise);
        ASSERT_TRUE(built(node));
        EXPECT_EQ(record(node)->double_vertices != nullptr, precise);
        EXPECT_EQ(depthAt(node, 0.5f, 1.5f), 5);
        EXPECT_EQ(depthAt(node, 1.5f, 0.5f), 5);
        EXPECT_EQ(depthAt(node, 1.5f, 1.5f), -1);
        RvNodeDestroy(node);
    }
}

TEST_F(PolyMeshes, an_unbounded_mesh_is_a_list)
{
    RtNode* const node = polygons(square, std::vector<Indices>(50, { 0, 1, 2, 3 }));
    EXPECT_STREQ(built(node)->name(), "bvh4");
    RtNode* const unbounded = polygons(square, std::vector<Indices>(50, { 0, 1, 2, 3 }));
    RvNodeSetBool(unbounded, "unbounded", true);
    EXPECT_STREQ(built(unbounded)->name(), "list");
}

TEST_F(PolyMeshes, without_memory_for_double_precision_single_precision_is_used)
{
    RtNode* const node = triangle();
    RvNodeSetBool(node, "double_precision_intersector", true);
    RtPolyMesh* const mesh = initialized(node);
    {
        node_tools::AllocationLimit limit(0);
        rv::createDoubleVertices(mesh);
    }
    EXPECT_EQ(mesh->double_vertices, nullptr);
}

// ---- Updates ----

TEST_F(PolyMeshes, setting_vlist_again_moves_the_vertices)
{
    RtNode* const node = polygons(square, { { 0, 1, 2, 3 } });
    RvNodeSetBool(node, "smoothing", true);
    setUVs(node, { { 0, 0 }, { 1, 0 } });
    setIndices(node, "uvidxs", { 0, 1, 1, 0 });
    setShaders(node, 2);
    setBytes(node, "shidxs", { 1 });
    built(node);
    EXPECT_EQ(depthAt(node, 0.5f, 0.5f), 5);
    RtNode* const instance = RvNode("ginstance");
    RvNodeSetPtr(instance, "node", node);
    rv::RvNodeInitialize(instance);
    RtPolyMesh* const before = record(node);

    Points moved = square;
    for (RtPoint& p : moved)
        p.z = 2;
    setPoints(node, "vlist", moved);
    update(node);
    EXPECT_EQ(takeProblem(), "");
    RtPolyMesh* const mesh = record(node);
    EXPECT_EQ(mesh, before) << "instances refer to it";
    EXPECT_EQ(unpacked(mesh->vidxs), (Indices{ 0, 1, 2, 3 }));
    EXPECT_EQ(unpacked(mesh->uvidxs), (Indices{ 0, 1, 1, 0 }));
    EXPECT_EQ(mesh->uvs[1].x, 1);
    EXPECT_EQ(mesh->shidxs[0], 1);
    EXPECT_FALSE(rv::hasMeshInputs(rv::polymeshParams(node)));
    EXPECT_EQ(rv::objectOf(node)->local_bbox.max.z, 2);
    EXPECT_EQ(rv::objectOf(node)->rebuild, uint32_t(RV_REBUILD_NONE));
    RvGObjectBuildAccel(node, 0);
    EXPECT_EQ(depthAt(node, 0.5f, 0.5f), 3);
    EXPECT_EQ(depthAt(instance, 0.5f, 0.5f), 3);
    EXPECT_EQ(mesh->nnormals, 4u) << "computed again";
}

TEST_F(PolyMeshes, given_normals_and_removed_faces_survive_an_update)
{
    RtNode* const node = polygons(square, { { 0, 1 }, { 0, 1, 2 }, { 0, 2, 3 } });
    RvNodeSetBool(node, "smoothing", true);
    setPoints(node, "nlist", { { 0, 0, 1 }, { 1, 0, 0 } });
    setIndices(node, "nidxs", { 0, 0, 1, 0, 1, 0, 0, 1 });
    initialized(node);
    messages().clear();
    setPoints(node, "vlist", square);
    update(node);
    EXPECT_EQ(takeProblem(), "");
    const RtPolyMesh* const mesh = record(node);
    EXPECT_EQ(unpacked(mesh->nidxs), (Indices{ 1, 0, 1, 0, 0, 1 }));
    EXPECT_TRUE(same(mesh->normals[1], { 1, 0, 0 }));
    EXPECT_EQ(unpacked(mesh->uniform_idxs), (Indices{ 1, 2 }));
    setPoints(node, "nlist", { { 0, 1, 0 }, { 0, 1, 1 } });
    update(node);
    EXPECT_TRUE(same(mesh->normals[0], { 0, 1, 0 }));
}

TEST_F(PolyMeshes, setting_the_polygons_again_replaces_the_mesh)
{
    RtNode* const node = polygons(square, { { 0, 1, 2, 3 } });
    setUVs(node, { { 0, 0 } });
    setIndices(node, "uvidxs", { 0, 0, 0, 0 });
    initialized(node);
    setIndices(node, "vidxs", { 0, 1, 2, 0, 2, 3, 0, 1, 3 });
    update(node);
    EXPECT_EQ(takeProblem(), "");
    const RtPolyMesh* const mesh = record(node);
    EXPECT_EQ(mesh->npolygons, 3u) << "triangles, as there is no nsides";
    EXPECT_EQ(mesh->nvertices, 4u) << "the vertices stay";
    EXPECT_EQ(mesh->nuvs, 0u) << "texture indices belong to the old corners";
    EXPECT_EQ(rv::objectOf(node)->nuniform, 3u);
}

TEST_F(PolyMeshes, an_update_that_makes_no_mesh_keeps_the_old_one)
{
    RtNode* const node = polygons(square, { { 0, 1, 2, 3 } });
    initialized(node);
    setIndices(node, "nsides", { 7 });
    setIndices(node, "vidxs", { 0, 1 });
    update(node);
    EXPECT_EQ(takeProblem(), "m: wrong number of vertex indices (2, should be 7)");
    EXPECT_EQ(record(node)->npolygons, 1u);
    EXPECT_FALSE(rv::hasMeshInputs(rv::polymeshParams(node)));
    update(node);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(PolyMeshes, an_update_marks_the_lists_at_the_root)
{
    RtNode* const node = polygons(square, { { 0, 1, 2, 3 } });
    RtNode* const root = triangle();
    initialized(node);
    initialized(root);
    rv::objectOf(root)->kind = RV_KIND_LIST; // the part that counts here
    rv::the_frame->scene->bounded_root = root;
    setPoints(node, "vlist", square);
    update(node);
    EXPECT_EQ(rv::objectOf(root)->rebuild, uint32_t(RV_REBUILD_TRANSFORM));
    rv::the_frame->scene->bounded_root = nullptr;
    rv::objectOf(root)->kind = RV_KIND_POLYMESH;
}

TEST_F(PolyMeshes, an_update_without_new_arrays_changes_nothing)
{
    RtNode* const node = triangle();
    const RtAccel* const accel = built(node);
    update(node);
    EXPECT_EQ(rv::objectOf(node)->accel, accel);
    RtNode* const empty = meshNode();
    initialized(empty);
    messages().clear();
    setPoints(empty, "vlist", square);
    update(empty);
    EXPECT_EQ(rv::objectOf(empty), nullptr);
    EXPECT_EQ(takeProblem(), "");
}

// ---- Hostile input ----

TEST_F(PolyMeshes, whatever_the_arrays_hold_no_index_leaves_its_elements)
{
    std::mt19937 generator(9);
    const auto random = [&](uint32_t n) { return uint32_t(generator() % n); };
    const float coordinates[] = { 0, 1, -1, 0.5f, 1e30f, -1e30f, 1e-30f, NAN, INFINITY, -INFINITY };
    const auto coordinate = [&] { return coordinates[random(10)]; };
    int made = 0;
    for (int round = 0; round < 2000; ++round) {
        setOption("mesh_sanity", round % 2);
        RtNode* const node = meshNode();
        const uint32_t nvertices = 1 + random(6), keys = 1 + random(3);
        Indices nsides, corners;
        for (uint32_t i = random(5); i > 0; --i)
            nsides.push_back(random(9));
        for (uint32_t sides : nsides)
            for (uint32_t i = 0; i < sides; ++i)
                corners.push_back(random(20) ? random(nvertices) : random(0xFFFFFFFF));
        setPoints(node, "vlist", Points(nvertices * keys), int(keys));
        for (uint32_t i = 0; i < nvertices * keys; ++i)
            rv::elementsOf<RtPoint>(
                rv::polymeshParams(node).vlist)[i] = { coordinate(), coordinate(), coordinate() };
        setIndices(node, "nsides", nsides);
        setIndices(node, "vidxs", corners);
        RvNodeSetBool(node, "smoothing", random(2));
        RvNodeSetBool(node, "double_precision_intersector", random(2));
        if (random(2)) {
            setPoints(node, "nlist", Points(2 * keys, { 0, 0, 1 }), int(keys));
            setIndices(node, "nidxs", corners);
        }
        if (random(2)) {
            setUVs(node, { { 0, 0 }, { 1, 0 }, { 0, 1 } });
            setIndices(node, "uvidxs", corners);
        }
        setShaders(node, random(4));
        setBytes(node, "shidxs", std::vector<uint8_t>(random(6), uint8_t(random(256))));
        declare(node, "face_visibility", "uniform BOOL", RV_TYPE_BOOLEAN,
                std::vector<char>(nsides.size(), char(random(2))));
        if (const RtPolyMesh* const mesh = initialized(node)) {
            ++made;
            RvGObjectBuildAccel(node, 0);
            for (uint32_t i = 0; i < mesh->ntriangles; ++i) {
                ASSERT_LT(rv::trianglePolygon(*mesh, i), mesh->npolygons);
                uint32_t vertices[3];
                rv::triangleVertices(*mesh, i, vertices);
                for (uint32_t vertex : vertices)
                    ASSERT_LT(vertex, mesh->nvertices);
                geometry(node, i, 0.25f, 0.5f, 0.7f);
                textureAt(node, i, 0.25f, 0.5f);
                rv::meshDerivatives(*mesh, i, 0.7f);
            }
            depthAt(node, 0.1f, 0.1f, 0.7f);
        }
        RvNodeDestroy(node);
        messages().clear();
    }
    EXPECT_GT(made, 1000);
}

// ---- Statistics ----

TEST_F(PolyMeshes, polygons_triangles_and_memory_are_counted)
{
    const RtStats before = *rv::hostStats();
    RtNode* const node = polygons(square, { { 0, 1, 2, 3 }, { 0, 1, 2 } });
    RvNodeSetBool(node, "smoothing", true);
    setUVs(node, { { 0, 0 } });
    setIndices(node, "uvidxs", Indices(7, 0));
    declare(node, "v", "varying FLOAT", RV_TYPE_FLOAT, std::vector<float>{ 0, 1, 2, 3 });
    initialized(node);
    const RtStats& stats = *rv::hostStats();
    const auto bytes = [&](RtMeshMemoryRow row) {
        return stats.mesh_bytes[row] - before.mesh_bytes[row];
    };
    EXPECT_EQ(stats.geometry[RV_GEOMETRY_POLYMESHES].objects, 1u);
    EXPECT_EQ(stats.polygons.total, 2u);
    EXPECT_EQ(stats.triangles.total, 3u);
    EXPECT_EQ(bytes(RV_MESH_VERTICES), 48);
    EXPECT_EQ(bytes(RV_MESH_VERTEX_INDICES), 9); // and the sides
    EXPECT_EQ(bytes(RV_MESH_BASE_OFFSETS), 3);
    EXPECT_EQ(bytes(RV_MESH_POLYGON_IDS), 3);
    EXPECT_EQ(bytes(RV_MESH_TRIANGULATION), 5);
    EXPECT_EQ(bytes(RV_MESH_UVS), 8);
    EXPECT_EQ(bytes(RV_MESH_UV_INDICES), 7);
    EXPECT_EQ(bytes(RV_MESH_USER_DATA), 16);
    EXPECT_EQ(bytes(RV_MESH_NORMALS), 0);
    const RtGeometryCount& row = stats.geometry[RV_GEOMETRY_POLYMESHES];
    EXPECT_EQ(row.initial_bytes, 99);
    built(node);
    EXPECT_EQ(bytes(RV_MESH_NORMALS), 48);
    EXPECT_EQ(bytes(RV_MESH_NORMAL_INDICES), 0) << "shared with the vertices";
    EXPECT_EQ(row.added_bytes, 48);
    RvNodeDestroy(node);
    for (int i = 0; i < RV_MESH_MEMORY_ROWS; ++i)
        EXPECT_EQ(bytes(RtMeshMemoryRow(i)), 0) << i;
    EXPECT_EQ(row.freed_bytes, 147);
}

TEST_F(PolyMeshes, equal_keys_are_counted_as_static)
{
    for (float z : { 0.0f, 1.0f }) {
        const uint32_t before = rv::hostStats()->static_motion_meshes;
        RtNode* const node = triangle();
        setPoints(node, "vlist",
                  { { 0, 0, 0 }, { 1, 0, 0 }, { 0, 1, 0 }, { 0, 0, 0 }, { 1, 0, 0 }, { 0, 1, z } },
                  2);
        initialized(node);
        EXPECT_EQ(rv::hostStats()->static_motion_meshes - before, z == 0 ? 1u : 0u);
        RvNodeDestroy(node);
    }
}

TEST_F(PolyMeshes, a_mesh_that_a_nurbs_node_made_counts_as_nurbs)
{
    RvNodeSetStr(RvNode("nurbs"), "name", "patch");
    RtNode* const node = triangle();
    RvNodeSetStr(node, "name", "poly_patch");
    EXPECT_EQ(initialized(node)->row, RV_GEOMETRY_NURBS);
    RtNode* const other = triangle();
    RvNodeSetStr(other, "name", "poly_other");
    EXPECT_EQ(initialized(other)->row, RV_GEOMETRY_POLYMESHES);
}

TEST_F(PolyMeshes, four_million_triangles_are_ready_in_well_under_two_seconds)
{
    const uint32_t n = 1414; // squares a side
    Points vertices;
    Indices vidxs;
    for (uint32_t y = 0; y <= n; ++y)
        for (uint32_t x = 0; x <= n; ++x)
            vertices.push_back({ float(x), float(y), float((x * y) % 7) });
    for (uint32_t y = 0; y < n; ++y)
        for (uint32_t x = 0; x < n; ++x) {
            const uint32_t a = y * (n + 1) + x, b = a + 1, c = b + n + 1, d = a + n + 1;
            vidxs.insert(vidxs.end(), { a, b, c, a, c, d });
        }
    for (bool quads : { false, true }) {
        RtNode* const node = meshNode();
        setPoints(node, "vlist", vertices);
        if (quads) {
            Indices corners;
            for (size_t i = 0; i < vidxs.size(); i += 6)
                corners.insert(corners.end(),
                               { vidxs[i], vidxs[i + 1], vidxs[i + 2], vidxs[i + 5] });
            setIndices(node, "vidxs", corners);
            setIndices(node, "nsides", Indices(n * n, 4));
        } else {
            setIndices(node, "vidxs", vidxs);
        }
        const auto start = std::chrono::steady_clock::now();
        const RtPolyMesh* const mesh = initialized(node);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        ASSERT_EQ(mesh->ntriangles, 2 * n * n);
        EXPECT_LT(seconds, 10) << "on a busy machine, and with sanitizers";
        RecordProperty(quads ? "quads" : "triangles", std::to_string(seconds));
        EXPECT_EQ(mesh->vidxs.encoding, RV_PACKED_ENCODING_21BITS);
        int64_t bytes = 0;
        for (int64_t row : mesh->bytes)
            bytes += row;
        EXPECT_LT(bytes, quads ? 55'000'000 : 57'000'000);
        RvNodeDestroy(node);
    }
}
