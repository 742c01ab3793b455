// The consistency check of polygon meshes, and the removal of faces.
#include "golden.h"
#include "mesh_tools.h"
#include "objects/mesh_faces.h"

#include <cmath>

namespace {

const std::vector<RtPoint> square = { { 0, 0, 0 }, { 1, 0, 0 }, { 1, 1, 0 }, { 0, 1, 0 } };

const char* shaderName(const RtNode* node)
{
    const RtArray* const shaders = rv::shapeParams(node).shader;
    return shaders->nelements == 1 ? RvNodeGetName(rv::elementsOf<RtNode*>(shaders)[0]) : "several";
}

} // namespace

TEST_F(Meshes, an_index_beyond_its_elements_is_reported_replaced_and_shows_the_bad_mesh_colour)
{
    for (const auto& v : goldenVectors("meshes", "polymesh_index_range")) {
        const auto& in = v.at("in");
        const std::string kind = in.at("kind").get<std::string>();
        const uint32_t count = in.at("count").get<uint32_t>(),
                       index = in.at("index").get<uint32_t>();
        RtNode* const node = meshNode();
        setPoints(node, "vlist", Points(kind == "vertex" ? count : 3, RtPoint{ 1, 2, 3 }));
        setIndices(node, "vidxs", { 0, 1, kind == "vertex" ? index : 2 });
        RvNodeSetBool(node, "smoothing", true);
        if (kind == "normal") {
            setPoints(node, "nlist", Points(count, RtPoint{ 0, 0, 1 }));
            setIndices(node, "nidxs", { 0, 1, index });
        }
        if (kind == "UV") {
            setUVs(node, std::vector<RtPoint2>(count));
            setIndices(node, "uvidxs", { 0, 1, index });
        }
        if (kind == "crease")
            setIndices(node, "crease_idxs", { 0, index });
        const RtPolyMesh* const mesh = initialized(node);
        ASSERT_TRUE(mesh);
        const std::vector<std::string> problems = takeMarkedProblems();
        EXPECT_EQ(std::count(problems.begin(), problems.end(), v.at("out").at("message")), 1);
        const std::map<std::string, uint32_t> replaced = {
            { "vertex", mesh->vidxs[2] },
            { "normal", kind == "normal" ? mesh->nidxs[2] : 0 },
            { "UV", kind == "UV" ? mesh->uvidxs[2] : 0 },
            { "crease", kind == "crease" ? mesh->crease_idxs[1] : 0 },
        };
        expectGolden(v, "replaced_by", replaced.at(kind));
        expectGolden(v, "shader", shaderName(node));
        RvNodeDestroy(node);
    }
}

TEST_F(Meshes, a_shader_index_beyond_the_shaders_is_reported_and_shows_the_bad_mesh_colour)
{
    RtNode* const node = polygons(square, { { 0, 1, 2 }, { 0, 2, 3 } });
    setShaders(node, 2);
    setBytes(node, "shidxs", { 1, 2 });
    const RtPolyMesh* const mesh = initialized(node);
    EXPECT_EQ(takeProblem(), "m: out-of-range shader index (2/2)");
    EXPECT_STREQ(shaderName(node), "rv_error_shader");
    EXPECT_EQ(mesh->nshaders, 1u);
    EXPECT_EQ(mesh->shidxs, nullptr);
}

TEST_F(Meshes, without_the_sanity_option_bad_indices_are_repaired_in_silence)
{
    setOption("mesh_sanity", false);
    RtNode* const node = polygons(square, { { 0, 1, 0xFFFFFFFF }, { 0, 2, 4 } });
    RvNodeSetBool(node, "smoothing", true);
    setPoints(node, "nlist", { { 0, 0, 1 } });
    setIndices(node, "nidxs", { 0, 1, 0, 0, 0, 70000 });
    setUVs(node, { { 0, 0 } });
    setIndices(node, "uvidxs", { 0, 0, 0, 300, 0, 0 });
    setShaders(node, 2);
    setBytes(node, "shidxs", { 1, 255 });
    const RtPolyMesh* const mesh = initialized(node);
    ASSERT_TRUE(mesh);
    EXPECT_EQ(takeProblem(), "");
    EXPECT_STREQ(shaderName(node), "several");
    EXPECT_EQ(unpacked(mesh->vidxs), (Indices{ 0, 1, 0, 0, 2, 0 }));
    EXPECT_EQ(unpacked(mesh->nidxs), (Indices{ 0, 0, 0, 0, 0, 0 }));
    EXPECT_EQ(unpacked(mesh->uvidxs), (Indices{ 0, 0, 0, 0, 0, 0 }));
    EXPECT_EQ(mesh->shidxs[0], 1);
    EXPECT_EQ(mesh->shidxs[1], 0);
}

TEST_F(Meshes, a_flood_of_bad_indices_is_reported_a_hundred_times)
{
    initialized(polygons(square, std::vector<Indices>(1000, { 7, 8, 9 })));
    EXPECT_EQ(takeProblems().size(), 101u); // and the faces are degenerate
}

TEST_F(Meshes, shaders_need_indices_and_are_at_most_255)
{
    for (const auto& v : goldenVectors("meshes", "polymesh_shaders")) {
        RtNode* const node = triangle();
        setShaders(node, v.at("in").at("shaders").get<unsigned>());
        if (v.at("in").at("has_shidxs").get<bool>())
            setBytes(node, "shidxs", { 0 });
        initialized(node);
        const std::string problem = takeProblem();
        expectGolden(v, "message", problem.empty() ? nlohmann::json() : nlohmann::json(problem));
        RvNodeDestroy(node);
    }
    static const struct {
        unsigned shaders;
        bool indexed;
        const char* problem;
    } cases[] = {
        { 2, false, "m: incorrectly defined shaders" },
        { 256, false, "m: incorrectly defined shaders" },
        { 256, true, "m: too many shaders (256), max per-mesh is 255" },
        { 2, true, "" },
    };
    for (const auto& c : cases) {
        RtNode* const node = triangle();
        setShaders(node, c.shaders);
        if (c.indexed)
            setBytes(node, "shidxs", { 1 });
        const RtPolyMesh* const mesh = initialized(node);
        EXPECT_EQ(takeProblem(), c.problem);
        EXPECT_EQ(mesh->nshaders, *c.problem ? 1u : c.shaders);
        EXPECT_EQ(mesh->shidxs == nullptr, *c.problem != 0);
        RvNodeDestroy(node);
    }
}

TEST_F(Meshes, texture_coordinates_need_indices_and_the_reverse)
{
    RtNode* const node = triangle();
    setUVs(node, { { 0, 0 }, { 1, 0 } });
    EXPECT_EQ(initialized(node)->nuvs, 0u);
    EXPECT_EQ(takeProblem(), "m: incorrectly defined uv coordinates");
    RvNodeDestroy(node);
    RtNode* const other = triangle();
    setIndices(other, "uvidxs", { 0, 0, 0 });
    EXPECT_EQ(initialized(other)->uvidxs.count, 0u);
    EXPECT_EQ(takeProblem(), "m: incorrectly defined uv coordinates");
}

TEST_F(Meshes, normals_without_indices_in_the_record_are_dropped)
{
    RtNode* const node = triangle();
    RtPolyMesh* const mesh = initialized(node);
    ASSERT_TRUE(RvPackedArrayAllocate(&mesh->nidxs, 3, 1));
    RvPolyMeshConsistencyCheck(mesh);
    EXPECT_EQ(takeProblem(), "m: incorrectly defined normals");
    EXPECT_EQ(mesh->nidxs.count, 0u);
}

TEST_F(Meshes, faces_of_few_sides_are_named_and_removed_with_their_data)
{
    for (const auto& v : goldenVectors("meshes", "polymesh_few_sides")) {
        std::vector<Indices> faces;
        for (unsigned sides : v.at("in").at("nsides").get<std::vector<unsigned>>())
            faces.push_back(Indices(sides, 0));
        RtNode* const node = polygons(square, faces);
        const RtPolyMesh* const mesh = initialized(node);
        expectGolden(v, "messages", takeMarkedProblems());
        expectGolden(v, "remaining_nsides", sides(mesh));
        RvNodeDestroy(node);
    }
    RtNode* const node = polygons(square, { { 0, 1 }, { 0, 1, 2 }, { 3 }, { 0, 2, 3 } });
    RvNodeSetBool(node, "smoothing", true);
    setPoints(node, "nlist", { { 0, 0, 1 }, { 0, 1, 0 } });
    setIndices(node, "nidxs", { 0, 0, 1, 1, 1, 0, 1, 0, 1 });
    setUVs(node, { { 0, 0 }, { 1, 0 } });
    setIndices(node, "uvidxs", { 0, 0, 0, 1, 0, 0, 1, 1, 0 });
    setShaders(node, 4);
    setBytes(node, "shidxs", { 0, 1, 2, 3 });
    declare(node, "u", "uniform FLOAT", RV_TYPE_FLOAT, std::vector<float>{ 0, 10, 20, 30 });
    const RtPolyMesh* const mesh = initialized(node);
    EXPECT_EQ(takeProblem(), "m: face 0 has only 2 sides | m: face 2 has only 1 sides | "
                             "m: removing degenerate faces ...");
    EXPECT_EQ(sides(mesh), (Indices{ 3, 3 }));
    EXPECT_EQ(mesh->polygon_size, 3);
    EXPECT_EQ(unpacked(mesh->vidxs), (Indices{ 0, 1, 2, 0, 2, 3 }));
    EXPECT_EQ(unpacked(mesh->nidxs), (Indices{ 1, 1, 1, 1, 0, 1 }));
    EXPECT_EQ(unpacked(mesh->uvidxs), (Indices{ 0, 1, 0, 1, 1, 0 }));
    EXPECT_EQ(mesh->shidxs[0], 1);
    EXPECT_EQ(mesh->shidxs[1], 3);
    EXPECT_EQ(unpacked(mesh->uniform_idxs), (Indices{ 1, 3 }));
    EXPECT_EQ(triangles(mesh), (std::vector<Indices>{ { 0, 1, 2 }, { 0, 2, 3 } }));
}

TEST_F(Meshes, without_the_sanity_option_faces_of_few_sides_give_no_triangles)
{
    setOption("mesh_sanity", false);
    const RtPolyMesh* const mesh =
        initialized(polygons(square, { { 0, 1 }, { 0, 1, 2 }, { 3 }, { 0, 1, 2, 3 } }));
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(mesh->npolygons, 4u);
    EXPECT_EQ(triangles(mesh), (std::vector<Indices>{ { 0, 1, 2 }, { 0, 1, 2 }, { 0, 2, 3 } }));
    EXPECT_EQ(rv::trianglePolygon(*mesh, 0), 1u);
    EXPECT_EQ(rv::trianglePolygon(*mesh, 2), 3u);
}

TEST_F(Meshes, a_mesh_whose_faces_are_all_invisible_is_hidden)
{
    RtNode* const node = polygons(square, { { 0, 1, 2 }, { 0, 2, 3 } });
    declare(node, "face_visibility", "uniform BOOL", RV_TYPE_BOOLEAN, std::vector<char>{ 0, 0 });
    const RtPolyMesh* const mesh = initialized(node);
    EXPECT_EQ(takeProblem(), "m: all faces are invisible (ignoring mesh)");
    EXPECT_EQ(rv::objectOf(node)->visibility, 0);
    EXPECT_EQ(mesh->ntriangles, 0u);
}

TEST_F(Meshes, invisible_faces_are_left_out_of_the_triangles)
{
    RtNode* const node = polygons(square, { { 0, 1, 2, 3 }, { 0, 1, 2 }, { 0, 2, 3 } });
    declare(node, "face_visibility", "uniform BOOL", RV_TYPE_BOOLEAN, std::vector<char>{ 0, 1, 1 });
    const RtPolyMesh* const mesh = initialized(node);
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(triangles(mesh), (std::vector<Indices>{ { 0, 1, 2 }, { 0, 2, 3 } }));
    EXPECT_EQ(mesh->polygon_size, 3);
    EXPECT_EQ(unpacked(mesh->uniform_idxs), (Indices{ 1, 2 }));
    RvPolyMeshTriangulate(record(node));
    EXPECT_EQ(mesh->ntriangles, 2u) << "the second time there is nothing left to remove";
}

TEST_F(Meshes, face_visibility_of_another_kind_is_ignored)
{
    RtNode* const node = triangle();
    declare(node, "face_visibility", "varying BOOL", RV_TYPE_BOOLEAN, std::vector<char>{ 0, 0, 0 });
    EXPECT_EQ(initialized(node)->ntriangles, 1u);
    EXPECT_EQ(takeProblem(), "m: face_visibility must be of uniform type - ignoring");
    RvNodeDestroy(node);
    RtNode* const other = triangle();
    declare(other, "face_visibility", "uniform BYTE", RV_TYPE_BYTE, std::vector<uint8_t>{ 0 });
    EXPECT_EQ(initialized(other)->ntriangles, 1u);
    EXPECT_EQ(takeProblem(), "m: face_visibility attribute must be of type BOOLEAN - ignoring");
}

TEST_F(Meshes, faces_can_be_removed_by_either_flag)
{
    RtNode* const node = polygons(square, { { 0, 1, 2 }, { 0, 2, 3 }, { 0, 1, 3 } });
    RtPolyMesh* const mesh = initialized(node);
    RtArray* const visibility = RvArray(3, 1, RV_TYPE_BOOLEAN, 1, 0, 1);
    RvPolyMeshRemoveInvisibleFaces(mesh, visibility, false);
    EXPECT_EQ(unpacked(mesh->vidxs), (Indices{ 0, 2, 3 }));
    RvPolyMeshRemoveInvisibleFaces(mesh, nullptr, false);
    EXPECT_EQ(mesh->npolygons, 1u);
    RvArrayDestroy(visibility);
}

TEST_F(Meshes, polygons_on_one_line_are_counted_as_degenerate_and_kept)
{
    for (const auto& v : goldenVectors("meshes", "degenerate_polygon")) {
        const std::vector<float> f = goldenFloats(v.at("in").at("points"));
        Points points(f.size() / 3);
        memcpy(static_cast<void*>(points.data()), f.data(), f.size() * sizeof(float));
        Indices face;
        for (uint32_t i = 0; i < points.size(); ++i)
            face.push_back(i);
        const uint32_t before = rv::hostStats()->degenerate_polygons;
        RtNode* const node = polygons(points, { face });
        EXPECT_EQ(initialized(node)->npolygons, 1u);
        expectGolden(v, "value", rv::hostStats()->degenerate_polygons == before + 1);
        EXPECT_EQ(messages().front().mask, RV_LOG_DEBUG);
        EXPECT_EQ(takeProblem(), "m: 1 degenerate polygons");
        RvNodeDestroy(node);
    }
}

TEST_F(Meshes, one_sound_corner_makes_a_polygon_sound)
{
    initialized(
        polygons({ { 0, 0, 0 }, { 1, 0, 0 }, { 2, 0, 0 }, { 2, 1, 0 } }, { { 0, 1, 2, 3 } }));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Meshes, zero_length_normals_are_counted)
{
    RtNode* const node = triangle();
    RvNodeSetBool(node, "smoothing", true);
    setPoints(node, "nlist", { { 0, 0, 0 }, { 0, 0, 1 }, { 0, 0, 0 } });
    setIndices(node, "nidxs", { 0, 1, 2 });
    initialized(node);
    ASSERT_FALSE(messages().empty());
    EXPECT_EQ(messages().front().mask, RV_LOG_DEBUG);
    EXPECT_EQ(takeProblem(), "m: mesh references 2 zero-length vertex normals");
}

TEST_F(Meshes, texture_coordinates_that_are_not_usable_are_reported_and_become_zero)
{
    RtNode* const node = triangle();
    setUVs(node, { { 0.5f, 0.5f }, { 1, 0 }, { 0, 1 } });
    setIndices(node, "uvidxs", { 0, 1, 2 });
    // Values that setting the array would refuse, written later.
    RtPoint2* const uvs = rv::elementsOf<RtPoint2>(rv::polymeshParams(node).uvlist);
    uvs[1] = { 1e30f, 0 };
    uvs[2] = { 0, std::nanf("") };
    const RtPolyMesh* const mesh = initialized(node);
    EXPECT_EQ(takeProblem(),
              "m: bad UV coordinate, u=1000000015047466219876688855040.000000 v=0.000000 | "
              "m: bad UV coordinate, u=0.000000 v=nan");
    EXPECT_EQ(mesh->uvs[0].x, 0.5f);
    EXPECT_EQ(mesh->uvs[1].x, 0);
    EXPECT_EQ(mesh->uvs[2].y, 0);
}

TEST_F(Meshes, faces_stay_when_there_is_no_memory_to_remove_some)
{
    RtNode* const node = polygons(square, { { 0, 1, 2 }, { 0, 2, 3 } });
    RtPolyMesh* const mesh = initialized(node);
    for (long allowed = 0; allowed < 2; ++allowed) {
        {
            node_tools::AllocationLimit limit(allowed);
            rv::keepFaces(mesh, [](uint32_t face) { return face == 1; });
        }
        EXPECT_EQ(mesh->npolygons, 2u);
        EXPECT_NE(takeProblem(), "");
    }
    rv::keepFaces(mesh, [](uint32_t face) { return face == 1; });
    EXPECT_EQ(unpacked(mesh->vidxs), (Indices{ 0, 2, 3 }));
}
