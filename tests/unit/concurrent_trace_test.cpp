// Many threads send rays into a scene whose structures nobody has built yet.
#include "mesh_tools.h"
#include "objects/gobject.h"
#include "rv_rays.h"

#include <random>
#include <thread>

namespace {

class ConcurrentTrace : public Meshes {
protected:
    static constexpr int thread_count = 16;

    // Meshes, still and moving, instances of them, spheres and a plane.
    static void buildScene()
    {
        std::mt19937 random(1);
        std::uniform_real_distribution<float> uniform(-1, 1);
        for (int i = 0; i < 12; ++i) {
            const int keys = 1 + i % 3;
            const RtPoint center = { 6 * uniform(random), 6 * uniform(random),
                                     6 * uniform(random) };
            Points points;
            Indices vidxs;
            for (int k = 0; k < 300 * keys; ++k)
                points.push_back({ center.x + uniform(random), center.y + uniform(random),
                                   center.z + uniform(random) });
            for (uint32_t k = 0; k < 300; ++k)
                vidxs.push_back(k);
            RtNode* const mesh = RvNode("polymesh");
            setPoints(mesh, "vlist", points, keys);
            setIndices(mesh, "vidxs", vidxs);
            for (int k = 0; k < 4; ++k) {
                RtMatrix matrix;
                const RtVector place = { 3 * uniform(random), 3 * uniform(random),
                                         3 * uniform(random) };
                RvM4Translation(&matrix, &place);
                RtNode* const instance = RvNode("ginstance");
                RvNodeSetPtr(instance, "node", mesh);
                RvNodeSetArray(instance, "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &matrix));
            }
            RtNode* const sphere = RvNode("sphere");
            RvNodeSetArray(sphere, "center", RvArray(1, 1, RV_TYPE_POINT, center));
        }
        RtNode* const plane = RvNode("plane");
        RvNodeSetPnt(plane, "point", 0, -9, 0);
        RvNodeSetVec(plane, "normal", 0, 1, 0);
    }

    // Distances at which the rays of one thread hit, -1 for a miss.
    static std::vector<double> probe(int thread, int rays)
    {
        std::mt19937 random(7);
        std::uniform_real_distribution<float> uniform(-1, 1);
        std::vector<double> distances;
        for (int i = 0; i < rays; ++i) {
            RtShaderGlobals from = {}, hit = {};
            from.thread_index = uint8_t(thread);
            from.time = 0.5f + 0.5f * uniform(random);
            const RtPoint origin = { 9 * uniform(random), 9 * uniform(random),
                                     9 * uniform(random) };
            const RtVector dir = { uniform(random), uniform(random), uniform(random) };
            RtRay ray;
            RvMakeRay(&ray, RV_RAY_CAMERA, &origin, &dir, 1e30, &from);
            distances.push_back(RvTraceProbe(&ray, &hit) ? hit.ray_length : -1);
        }
        return distances;
    }
};

} // namespace

TEST_F(ConcurrentTrace, concurrent_probes_race_to_build_the_structures_and_agree)
{
    buildScene();
    rv::render_options->threads = 4;
    ASSERT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
    std::vector<double> found[thread_count];
    std::vector<std::thread> threads;
    for (int thread = 0; thread < thread_count; ++thread)
        threads.emplace_back([&found, thread] { found[thread] = probe(thread, 400); });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GT(std::count_if(found[0].begin(), found[0].end(), [](double t) { return t > 0; }), 100);
    for (int thread = 1; thread < thread_count; ++thread)
        EXPECT_EQ(found[thread], found[0]);
    EXPECT_EQ(probe(0, 400), found[0]); // and so does one thread alone, afterwards
}
