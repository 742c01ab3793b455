// Questions: does a node cost the same in a small and in a large scene, how much memory does it
// take beyond its parameter record, and what does reading a parameter by name cost beside a look-up
// of the same name in a std::unordered_map?
#include "bench.h"

#include "counters.h"
#include "nodes.h"
#include "rv.h"

#include <unordered_map>

static void makeSphere(int i)
{
    char name[32];
    snprintf(name, sizeof name, "sphere_%d", i);
    RtNode* const node = RvNode("sphere");
    RvNodeSetStr(node, "name", name);
    RvNodeSetFlt(node, "radius", 0.25f);
    RvNodeSetPnt(node, "center", static_cast<float>(i), 0, 0);
    RvNodeSetInt(node, "visibility", 255);
}

// Nanoseconds per node; universes with few nodes are repeated up to 100,000 nodes.
static double creationCost(int count)
{
    const int repeats = std::max(1, 100000 / count);
    double total = 0;
    for (int r = 0; r < repeats; ++r) {
        bench::startFresh();
        RvBegin();
        total += bench::seconds([&] {
            for (int i = 0; i < count; ++i)
                makeSphere(i);
        });
        RvEnd();
    }
    return total * 1e9 / (static_cast<double>(repeats) * count);
}

static void reportCreation(bench::Report& figures, int runs)
{
    const double small = bench::median(runs, [] { return creationCost(10000); });
    const double large = bench::median(runs, [] { return creationCost(1000000); });
    figures.add("nodes.create.10k.sphere", small, "ns");
    figures.add("nodes.create.1m.sphere", large, "ns");
    figures.add("nodes.growth.1m.sphere", large / small, "x of 10k");
}

static void reportMemory(bench::Report& figures)
{
    const int count = 100000;
    RvBegin();
    const size_t heap_before = mallinfo2().uordblks;
    const int64_t counted_before = rv::hostStats()->node_overhead_bytes;
    for (int i = 0; i < count; ++i)
        makeSphere(i);
    const double heap = static_cast<double>(mallinfo2().uordblks - heap_before) / count;
    const double counted =
        static_cast<double>(rv::hostStats()->node_overhead_bytes - counted_before) / count;
    const double record = rv::paramStorageSize(rv::findNodeEntry("sphere").entry);
    RvEnd();
    figures.add("nodes.record.100k.sphere", record, "bytes");
    figures.add("nodes.overhead.100k.sphere", counted - record, "bytes beyond the record");
    figures.add("nodes.heap.100k.sphere", heap - record,
                "bytes beyond the record, with names, arrays and tables");
}

static double timePerLookup(int runs, float (*lookUp)(void*), void* data)
{
    const int count = 5000000;
    return bench::median(runs, [&] {
        return bench::seconds([&] {
                   float sum = 0;
                   for (int i = 0; i < count; ++i)
                       sum += lookUp(data);
                   bench::consume(sum);
               }) *
               1e9 / count;
    });
}

static void reportLookup(bench::Report& figures, int runs)
{
    RvBegin();
    RtNode* const sphere = RvNode("sphere");
    const RtNodeEntry* const entry = RvNodeGetNodeEntry(sphere);
    std::unordered_map<std::string, float> map;
    for (int i = 0; i < RvNodeEntryGetNumParams(entry); ++i)
        map[RvParamGetName(RvNodeEntryGetParameter(entry, i))] = static_cast<float>(i);
    const auto get = [](void* node) {
        return RvNodeGetFlt(static_cast<const RtNode*>(node), "ray_bias");
    };
    static const std::string key = "ray_bias";
    const auto find = [](void* m) {
        return static_cast<std::unordered_map<std::string, float>*>(m)->find(key)->second;
    };
    const double ours = timePerLookup(runs, get, sphere);
    const double theirs = timePerLookup(runs, find, &map);
    figures.addTimeWithPeer("nodes.get_flt.by_name", ours, "ns", "std::unordered_map", theirs);
    // Names that stand at ever new addresses, such as those of a file being read.
    const auto get_moving = [](void* node) {
        static char text[4096];
        static size_t place = 0;
        place = (place + 16) % (sizeof text - 16);
        return RvNodeGetFlt(static_cast<const RtNode*>(node),
                            static_cast<const char*>(memcpy(text + place, "ray_bias", 9)));
    };
    figures.add("nodes.get_flt.moving_name", timePerLookup(runs, get_moving, sphere), "ns");
    RvEnd();
}

int main(int argc, char** argv)
{
    const bench::Options options = bench::parseOptions(argc, argv);
    bench::Report figures(options);
    reportCreation(figures, options.runs);
    reportMemory(figures);
    reportLookup(figures, options.runs);
    return 0;
}
