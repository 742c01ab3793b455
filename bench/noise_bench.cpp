// Question: what does a call of each noise function cost? Points are scattered over a few hundred
// cells to both sides of the origin, as on the surfaces of a scene.
#include "bench.h"

#include "rv_noise.h"

#include <random>

struct Sample {
    RtPoint p;
    float t;
};

static std::vector<Sample> scatteredPoints()
{
    std::mt19937 random(1);
    std::uniform_real_distribution<float> coordinate(-300, 300);
    std::vector<Sample> samples(4096);
    for (Sample& s : samples)
        s = { { coordinate(random), coordinate(random), coordinate(random) }, coordinate(random) };
    return samples;
}

class Calls {
public:
    explicit Calls(const bench::Options& options) : figures(options), runs(options.runs) {}

    // Nanoseconds per call of noise(sample).
    void measure(const char* name, auto noise)
    {
        static constexpr int passes = 64;
        const double ns = bench::median(runs, [&] {
            return 1e9 / (passes * double(samples.size())) * bench::seconds([&] {
                       for (int pass = 0; pass < passes; ++pass)
                           for (const Sample& s : samples)
                               bench::consume(noise(s));
                   });
        });
        figures.add(std::string("noise.") + name, ns, "ns");
    }

private:
    bench::Report figures;
    const int runs;
    const std::vector<Sample> samples = scatteredPoints();
};

int main(int argc, char** argv)
{
    Calls calls(bench::parseOptions(argc, argv));
    const auto flat = [](const Sample& s) { return RtPoint2{ s.p.x, s.p.y }; };
    calls.measure("perlin.2", [&](const Sample& s) { return RvPerlin2(flat(s)); });
    calls.measure("perlin.3", [](const Sample& s) { return RvPerlin3(&s.p); });
    calls.measure("perlin.4", [](const Sample& s) { return RvPerlin4(&s.p, s.t); });
    calls.measure("periodic.2", [&](const Sample& s) { return RvPeriodicPerlin2(flat(s), 7, 16); });
    calls.measure("periodic.3", [](const Sample& s) { return RvPeriodicPerlin3(&s.p, 7, 16, 5); });
    calls.measure("periodic.4",
                  [](const Sample& s) { return RvPeriodicPerlin4(&s.p, s.t, 7, 16, 5, 9); });
    calls.measure("fractal.2.4_octaves",
                  [&](const Sample& s) { return RvNoise2(flat(s), 4, 0, 1.92f); });
    calls.measure("fractal.3.4_octaves",
                  [](const Sample& s) { return RvNoise3(&s.p, 4, 0, 1.92f); });
    calls.measure("fractal.4.4_octaves",
                  [](const Sample& s) { return RvNoise4(&s.p, s.t, 4, 0, 1.92f); });
    calls.measure("fractal.3.4_octaves.distorted",
                  [](const Sample& s) { return RvNoise3(&s.p, 4, 1, 1.92f); });
    calls.measure("vector.2.1_octave",
                  [&](const Sample& s) { return RvVNoise2(flat(s), 1, 0, 1.92f); });
    calls.measure("vector.3.1_octave",
                  [](const Sample& s) { return RvVNoise3(&s.p, 1, 0, 1.92f); });
    calls.measure("vector.4.1_octave",
                  [](const Sample& s) { return RvVNoise4(&s.p, s.t, 1, 0, 1.92f); });
    calls.measure("cell.2", [&](const Sample& s) { return RvCellNoise2(flat(s)); });
    calls.measure("cell.3", [](const Sample& s) { return RvCellNoise3(&s.p); });
    calls.measure("cell.4", [](const Sample& s) { return RvCellNoise4(&s.p, s.t); });
    calls.measure("cell_vector.2", [&](const Sample& s) { return RvVCellNoise2(flat(s)); });
    calls.measure("cell_vector.3", [](const Sample& s) { return RvVCellNoise3(&s.p); });
    calls.measure("cell_vector.4", [](const Sample& s) { return RvVCellNoise4(&s.p, s.t); });
    calls.measure("cellular", [](const Sample& s) { return RvCellular(&s.p); });
    return 0;
}
