// Question: does interning a string cost the same in a small and in a large scene? Adds and
// removes distinct names, and repeated ones, at 10,000 and at 1,000,000.
#include "bench.h"

#include "strpool.h"

static std::vector<std::string> makeNames(int count, int distinct)
{
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i)
        names.push_back("/scene/group/shape_" + std::to_string(i % distinct));
    return names;
}

struct Cost {
    double add, remove; // nanoseconds per operation
};

// One pass over all names in a fresh pool; small sizes are repeated up to a million operations.
static Cost measure(const std::vector<std::string>& names)
{
    const size_t repeats = std::max<size_t>(1, 1000000 / names.size());
    Cost total = {};
    for (size_t r = 0; r < repeats; ++r) {
        bench::startFresh();
        RtStringPool* const pool = RtStringPool::create(8000);
        total.add += bench::seconds([&] {
            for (const std::string& name : names)
                bench::consume(pool->Add(name.c_str()));
        });
        total.remove += bench::seconds([&] {
            for (const std::string& name : names)
                pool->Remove(name.c_str());
        });
        RtStringPool::destroy(pool);
    }
    const double scale = 1e9 / static_cast<double>(repeats * names.size());
    return { total.add * scale, total.remove * scale };
}

static double report(bench::Report& figures, int runs, const char* size, const char* variant,
                     const std::vector<std::string>& names)
{
    std::vector<Cost> costs;
    for (int i = 0; i < runs; ++i)
        costs.push_back(measure(names));
    const auto medianOf = [&](auto cost) {
        size_t next = 0;
        return bench::median(runs, [&] { return cost(costs[next++]); });
    };
    const double both = medianOf([](const Cost& c) { return (c.add + c.remove) / 2; });
    const std::string suffix = std::string(".") + size + "." + variant;
    figures.add("strpool.add" + suffix, medianOf([](const Cost& c) { return c.add; }), "ns");
    figures.add("strpool.remove" + suffix, medianOf([](const Cost& c) { return c.remove; }), "ns");
    figures.add("strpool.both" + suffix, both, "ns");
    return both;
}

int main(int argc, char** argv)
{
    const bench::Options options = bench::parseOptions(argc, argv);
    bench::Report figures(options);
    const int small = 10000, large = 1000000, repeated = 1000;
    const double distinct_small =
        report(figures, options.runs, "10k", "distinct", makeNames(small, small));
    const double distinct_large =
        report(figures, options.runs, "1m", "distinct", makeNames(large, large));
    const double repeated_small =
        report(figures, options.runs, "10k", "repeated", makeNames(small, repeated));
    const double repeated_large =
        report(figures, options.runs, "1m", "repeated", makeNames(large, repeated));
    figures.add("strpool.growth.1m.distinct", distinct_large / distinct_small, "x of 10k");
    figures.add("strpool.growth.1m.repeated", repeated_large / repeated_small, "x of 10k");
    return 0;
}
