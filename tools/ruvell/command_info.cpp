// `ruvell info`: what is in a scene.
#include "activity.h"
#include "command.h"
#include "outputs.h"
#include "report.h"
#include "scene.h"
#include "statistics.h"
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <numeric>

namespace ruvell {

using Json = nlohmann::ordered_json;

namespace {

struct InfoSettings {
    SceneSettings scene;
    std::vector<std::string> files;
    bool is_json = false;
};

struct TypeCount {
    std::string type;
    int count;
};

struct NamedNode {
    std::string name, type;
};

struct SceneInfo {
    std::vector<TypeCount> types;
    uint64_t polygons = 0;
    uint64_t vertices = 0;
    uint64_t memory = 0;      // bytes that the scene takes, as loaded
    uint64_t peak_memory = 0; // bytes of the process, bounds included
    RtBBox bounds{};
    bool has_bounds = false;
    int width = 0, height = 0;
    std::string camera; // the one that renders
    std::vector<NamedNode> cameras;
    std::vector<NamedNode> lights;
    std::vector<OutputStatement> outputs;
    std::vector<std::string> output_files; // one for each output
};

} // namespace

static InfoSettings settings;

static void setup(CLI::App& app)
{
    addSceneArguments(app, settings.files, settings.is_json, settings.scene);
}

// ---- Gathering ----

// The renderer adds nodes of its own to every universe; they are not the scene's.
static std::map<std::string, int> countTypes()
{
    std::map<std::string, int> counts;
    for (const RtNode* node : nodesOfKind(RV_NODE_ALL))
        ++counts[RvNodeEntryGetName(RvNodeGetNodeEntry(node))];
    return counts;
}

static std::vector<TypeCount> typesSince(const std::map<std::string, int>& before)
{
    std::vector<TypeCount> types;
    for (const auto& [type, count] : countTypes()) {
        const auto own = before.find(type);
        const int added = count - (own == before.end() ? 0 : own->second);
        if (added > 0)
            types.push_back({ type, added });
    }
    return types;
}

static uint32_t elementCount(const RtNode* node, const char* param)
{
    const RtArray* array = RvNodeGetArray(node, param);
    return array ? array->nelements : 0;
}

// A mesh that does not say how many sides its polygons have is made of triangles.
static uint64_t polygonCount(const RtNode* mesh)
{
    const uint32_t sides = elementCount(mesh, "nsides");
    return sides > 0 ? sides : elementCount(mesh, "vidxs") / 3;
}

static void addMeshes(SceneInfo& info)
{
    for (const RtNode* shape : nodesOfKind(RV_NODE_SHAPE)) {
        if (!RvNodeIs(shape, "polymesh"))
            continue;
        info.polygons += polygonCount(shape);
        info.vertices += elementCount(shape, "vlist");
    }
}

static std::vector<NamedNode> namedNodes(unsigned int mask)
{
    std::vector<NamedNode> nodes;
    for (const RtNode* node : nodesOfKind(mask))
        nodes.push_back({ RvNodeGetName(node), RvNodeEntryGetName(RvNodeGetNodeEntry(node)) });
    return nodes;
}

// Bounds exist once the scene is prepared for tracing.
static void addBounds(SceneInfo& info)
{
    const Activity activity("measuring the scene", settings.scene.log.quiet);
    if (RvRender(RV_RENDER_MODE_SETUP) != RV_SUCCESS)
        return;
    info.bounds = RvUniverseGetSceneBounds();
    const auto& [low, high] = info.bounds;
    info.has_bounds = low.x <= high.x && low.y <= high.y && low.z <= high.z &&
                      (low.x < high.x || low.y < high.y || low.z < high.z);
}

static void addOptions(SceneInfo& info)
{
    const RtNode* options = RvUniverseGetOptions();
    info.width = RvNodeGetInt(options, "xres");
    info.height = RvNodeGetInt(options, "yres");
    if (const RtNode* camera = RvUniverseGetCamera())
        info.camera = RvNodeGetName(camera);
    info.outputs = outputStatements();
    for (const OutputStatement& statement : info.outputs)
        info.output_files.push_back(outputFile(statement));
}

static bool gather(SceneInfo& info)
{
    const auto own_nodes = countTypes();
    const uint64_t memory_before = RvMsgUtilGetUsedMemory();
    if (!loadScenes(settings.scene, settings.files))
        return false;
    const uint64_t memory_after = RvMsgUtilGetUsedMemory();
    info.memory = memory_after > memory_before ? memory_after - memory_before : 0;
    info.types = typesSince(own_nodes);
    info.cameras = namedNodes(RV_NODE_CAMERA);
    info.lights = namedNodes(RV_NODE_LIGHT);
    addMeshes(info);
    addOptions(info);
    addBounds(info);
    info.peak_memory = peakMemory();
    return true;
}

// ---- Text ----

static void printNodes(const char* title, const std::vector<NamedNode>& nodes,
                       const std::string& chosen)
{
    std::printf("%s: %zu\n", title, nodes.size());
    for (const NamedNode& node : nodes)
        std::printf("  %-30s %s%s\n", node.name.c_str(), node.type.c_str(),
                    !chosen.empty() && node.name == chosen ? "  (renders)" : "");
}

static void printText(const SceneInfo& info)
{
    std::printf("nodes: %d\n",
                std::accumulate(info.types.begin(), info.types.end(), 0,
                                [](int sum, const TypeCount& type) { return sum + type.count; }));
    for (const TypeCount& type : info.types)
        std::printf("  %-30s %d\n", type.type.c_str(), type.count);
    std::printf("polygons: %" PRIu64 ", of %" PRIu64 " vertices\n", info.polygons, info.vertices);
    std::printf("memory: %.1f MB for the scene, %.1f MB at most for the process\n",
                double(info.memory) / (1 << 20), double(info.peak_memory) / (1 << 20));
    const auto& [low, high] = info.bounds;
    if (info.has_bounds)
        std::printf("bounds: (%g, %g, %g) to (%g, %g, %g)\n", double(low.x), double(low.y),
                    double(low.z), double(high.x), double(high.y), double(high.z));
    else
        std::printf("bounds: none\n");
    printNodes("cameras", info.cameras, info.camera);
    printNodes("lights", info.lights, "");
    std::printf("image: %d x %d\noutputs: %zu\n", info.width, info.height, info.outputs.size());
    for (size_t i = 0; i < info.outputs.size(); ++i)
        std::printf("  %-30s %s\n", info.outputs[i].text.c_str(), info.output_files[i].c_str());
}

// ---- JSON ----

static Json jsonOf(const std::vector<NamedNode>& nodes)
{
    Json list = Json::array();
    for (const NamedNode& node : nodes)
        list.push_back({ { "name", node.name }, { "type", node.type } });
    return list;
}

static Json jsonOf(const RtPoint& p) { return Json::array({ p.x, p.y, p.z }); }

static void printJson(const SceneInfo& info)
{
    Json types = Json::object(), outputs = Json::array(), bounds;
    for (const TypeCount& type : info.types)
        types[type.type] = type.count;
    for (size_t i = 0; i < info.outputs.size(); ++i)
        outputs.push_back({ { "statement", info.outputs[i].text },
                            { "driver", info.outputs[i].driver },
                            { "file", info.output_files[i] } });
    if (info.has_bounds)
        bounds = { { "min", jsonOf(info.bounds.min) }, { "max", jsonOf(info.bounds.max) } };
    const Json document{ { "scenes", settings.files },
                         { "nodes", types },
                         { "polygons", info.polygons },
                         { "vertices", info.vertices },
                         { "memory_bytes", info.memory },
                         { "peak_memory_bytes", info.peak_memory },
                         { "bounds", bounds },
                         { "camera", info.camera.empty() ? Json() : Json(info.camera) },
                         { "cameras", jsonOf(info.cameras) },
                         { "lights", jsonOf(info.lights) },
                         { "width", info.width },
                         { "height", info.height },
                         { "outputs", outputs } };
    std::puts(document.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

// ---- The command ----

static int run(CLI::App&)
{
    if (!openLog(settings.scene.log))
        return exit_failure;
    const Universe universe(settings.scene);
    SceneInfo info;
    if (!gather(info))
        return exit_failure;
    if (settings.is_json)
        printJson(info);
    else
        printText(info);
    return exit_success;
}

const Command command_info = {
    .name = "info",
    .summary = "Show what is in a scene",
    .setup = setup,
    .run = run,
    .footer = "Examples:\n"
              "  ruvell info room.rvs\n"
              "  ruvell info --json room.rvs lights.rvs.gz",
};

} // namespace ruvell
