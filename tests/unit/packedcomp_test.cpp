// Compressed normals and texture coordinates.
#include "golden.h"
#include "mesh_tools.h"

#include <cmath>
#include <random>

namespace {

float distance(const RtVector& a, const RtVector& b)
{
    const RtVector d = rv::operator-(a, b);
    return std::sqrt(rv::dot(d, d));
}

} // namespace

class CompressedMeshes : public Meshes {
protected:
    // A mesh with the given normals, one per vertex; `keys` motion keys.
    static RtPolyMesh* withNormals(const Points& normals, int keys = 1)
    {
        const uint32_t count = uint32_t(normals.size()) / unsigned(keys);
        RtNode* const node = meshNode();
        setPoints(node, "vlist", Points(normals.size(), { 1, 2, 3 }), keys);
        setIndices(node, "vidxs", Indices(3, 0));
        setPoints(node, "nlist", normals, keys);
        setIndices(node, "nidxs", { 0, count / 2, count - 1 });
        RvNodeSetBool(node, "smoothing", true);
        RtPolyMesh* const mesh = initialized(node);
        messages().clear();
        return mesh;
    }
};

TEST_F(CompressedMeshes, normals_are_stored_as_two_angles)
{
    for (const auto& v : goldenVectors("meshes", "RvCompressNormalsArray")) {
        const std::vector<float> n = goldenFloats(v.at("in").at("normal"));
        RtPolyMesh* const mesh = withNormals({ { n[0], n[1], n[2] } });
        RvCompressNormalsArray(mesh);
        EXPECT_EQ(mesh->normals, nullptr);
        expectGolden(v, "value", mesh->packed_normals[0]);
        const RtVector read = rv::meshNormal(*mesh, 0, 0);
        RvUncompressNormalsArray(mesh);
        EXPECT_EQ(mesh->packed_normals, nullptr);
        const RtVector restored = mesh->normals[0];
        EXPECT_EQ(memcmp(&read, &restored, sizeof read), 0);
        expectGoldenNumbers(v, "restored", { restored.x, restored.y, restored.z });
    }
}

TEST_F(CompressedMeshes, normals_of_every_key_survive_within_0_0002)
{
    std::mt19937 generator(2);
    std::normal_distribution<float> gauss;
    Points normals(3000);
    for (RtVector& n : normals) {
        n = { gauss(generator), gauss(generator), gauss(generator) };
        n = rv::operator*(n, 1 / std::sqrt(rv::dot(n, n)));
    }
    normals[0] = { 0, 0, 1 };
    normals[1] = { 0, 0, -1 };
    RtPolyMesh* const mesh = withNormals(normals, 3);
    RvCompressNormalsArray(mesh);
    for (uint32_t i = 0; i < 3000; ++i)
        ASSERT_LT(distance(rv::meshNormal(*mesh, i % 1000, i / 1000), normals[i]), 0.0002f) << i;
    RvUncompressNormalsArray(mesh);
    for (uint32_t i = 0; i < 3000; ++i)
        ASSERT_LT(distance(mesh->normals[i], normals[i]), 0.0002f) << i;
}

TEST_F(CompressedMeshes, normals_that_are_no_directions_are_survived)
{
    RtPolyMesh* const mesh = withNormals({ { 0, 0, 0 }, { 0, 0, 0 } });
    mesh->normals[0] = { std::nanf(""), 0, std::nanf("") };
    mesh->normals[1] = { 1e30f, -1e30f, 7 };
    RvCompressNormalsArray(mesh);
    EXPECT_TRUE(std::isfinite(rv::meshNormal(*mesh, 0, 0).x));
    EXPECT_EQ(rv::meshNormal(*mesh, 1, 0).z, 1);
}

TEST_F(CompressedMeshes, texture_coordinates_are_stored_relative_to_their_bounds)
{
    for (const auto& v : goldenVectors("meshes", "RvPackedUVCompressArray")) {
        const std::vector<float> f = goldenFloats(v.at("in").at("uv"));
        std::vector<RtPoint2> uvs(f.size() / 2);
        memcpy(static_cast<void*>(uvs.data()), f.data(), f.size() * sizeof(float));
        RtNode* const node = triangle();
        setUVs(node, uvs);
        setIndices(node, "uvidxs", { 0, 1, 2 });
        RtPolyMesh* const mesh = initialized(node);
        RvPackedUVCompressArray(mesh);
        EXPECT_EQ(mesh->uvs, nullptr);
        expectGoldenNumbers(v, "bounds",
                            { mesh->uv_min.x, mesh->uv_min.y, mesh->uv_max.x, mesh->uv_max.y });
        nlohmann::json values;
        std::vector<float> restored;
        for (uint32_t i = 0; i < mesh->nuvs; ++i) {
            values.push_back({ mesh->packed_uvs[i].u, mesh->packed_uvs[i].v });
            restored.push_back(rv::meshUV(*mesh, i).x);
            restored.push_back(rv::meshUV(*mesh, i).y);
        }
        expectGolden(v, "values", values);
        expectGoldenNumbers(v, "restored", restored);
    }
}

TEST_F(CompressedMeshes, equal_texture_coordinates_survive)
{
    RtNode* const node = triangle();
    setUVs(node, { { 0.25f, 7 }, { 0.25f, 7 } });
    setIndices(node, "uvidxs", { 0, 1, 0 });
    RtPolyMesh* const mesh = initialized(node);
    RvPackedUVCompressArray(mesh);
    EXPECT_EQ(rv::meshUV(*mesh, 1).x, 0.25f);
    EXPECT_EQ(rv::meshUV(*mesh, 1).y, 7);
}

TEST_F(CompressedMeshes, an_exhausted_heap_leaves_everything_as_it_was)
{
    RtPolyMesh* const mesh = withNormals({ { 0, 0, 1 } });
    {
        node_tools::AllocationLimit limit(0);
        RvCompressNormalsArray(mesh);
    }
    EXPECT_TRUE(node_tools::reportsFailure(takeProblem(), "core\\src\\packedcomp",
                                           "RvCompressNormalsArray"));
    EXPECT_TRUE(mesh->normals);
    RvCompressNormalsArray(mesh);
    {
        node_tools::AllocationLimit limit(0);
        RvUncompressNormalsArray(mesh);
    }
    EXPECT_TRUE(node_tools::reportsFailure(takeProblem(), "core\\src\\packedcomp",
                                           "RvUncompressNormalsArray"));
    EXPECT_TRUE(mesh->packed_normals);

    RtNode* const node = triangle();
    setUVs(node, { { 0, 0 }, { 1, 1 } });
    setIndices(node, "uvidxs", { 0, 1, 0 });
    RtPolyMesh* const textured = initialized(node);
    messages().clear();
    {
        node_tools::AllocationLimit limit(0);
        RvPackedUVCompressArray(textured);
    }
    EXPECT_TRUE(node_tools::reportsFailure(takeProblem(), "core\\src\\packedcomp",
                                           "RvPackedUVCompressArray"));
    EXPECT_TRUE(textured->uvs);
}
