// `ruvell nodes`: node types and their parameters, for reading, as a page of documentation and as
// JSON.
#include "command.h"
#include "node_types.h"
#include "report.h"
#include "scene.h"
#include "text.h"
#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace ruvell {

using Json = nlohmann::ordered_json;

namespace {

struct NodesSettings {
    SceneSettings scene;
    std::string type;
    bool is_markdown = false;
    bool is_json = false;
};

} // namespace

static NodesSettings settings;

static void setup(CLI::App& app)
{
    app.add_option("TYPE", settings.type, "A node type; without one, all of them")->type_name("");
    CLI::Option* markdown =
        app.add_flag("--markdown", settings.is_markdown, "Print a page of documentation");
    app.add_flag("--json", settings.is_json, "Print JSON")->excludes(markdown);
    addPluginOption(app, settings.scene);
    addSafeFlag(app, settings.scene.safety);
}

// ---- For reading ----

static void printList(const std::vector<TypeInfo>& types)
{
    std::printf("%-26s%-10s%-8s%10s\n", "TYPE", "KIND", "OUTPUT", "PARAMETERS");
    for (const KindTitle& kind : kind_titles)
        for (const TypeInfo& type : types)
            if (type.kind == kind.kind)
                std::printf("%-26s%-10s%-8s%10zu\n", type.name.c_str(), type.kind.c_str(),
                            type.output.c_str(), type.params.size());
}

static void printType(const TypeInfo& type)
{
    std::printf("%s: %s", type.name.c_str(), type.kind.c_str());
    if (type.output != "none")
        std::printf(", gives %s", type.output.c_str());
    if (!type.plugin.empty())
        std::printf(", from %s", type.plugin.c_str());
    std::printf("\n\n%-34s%-18s%s\n", "PARAMETER", "TYPE", "DEFAULT");
    for (const ParamInfo& param : type.params) {
        std::printf("%-34s%-18s%s\n", param.name.c_str(), param.type.c_str(),
                    param.default_value.c_str());
        if (!param.allowed.empty())
            std::printf("%-34s%s\n", "", ("one of " + joined(param.allowed, ", ")).c_str());
    }
}

// ---- Markdown ----

static void printMarkdownType(const TypeInfo& type)
{
    std::printf("\n### %s\n\n", type.name.c_str());
    if (type.output != "none")
        std::printf("Output: %s.\n\n", type.output.c_str());
    std::printf("| Parameter | Type | Default | Allowed values |\n|---|---|---|---|\n");
    for (const ParamInfo& param : type.params) {
        const std::string allowed =
            param.allowed.empty() ? "" : quoted(joined(param.allowed, "`, `"), '`');
        std::printf("| `%s` | %s | `%s` | %s |\n", param.name.c_str(), param.type.c_str(),
                    param.default_value.c_str(), allowed.c_str());
    }
}

static void printMarkdown(const std::vector<TypeInfo>& types)
{
    std::printf("# Node types\n\n"
                "Every node type with its parameters. `ruvell nodes --markdown` writes this page; "
                "values are written as\nin a scene file.\n");
    for (const KindTitle& kind : kind_titles) {
        const auto is_of_kind = [&](const TypeInfo& type) { return type.kind == kind.kind; };
        if (std::none_of(types.begin(), types.end(), is_of_kind))
            continue;
        std::printf("\n## %s\n", kind.title);
        for (const TypeInfo& type : types)
            if (is_of_kind(type))
                printMarkdownType(type);
    }
}

// ---- JSON ----

static Json jsonOf(const TypeInfo& type)
{
    Json params = Json::array();
    for (const ParamInfo& param : type.params) {
        Json record{ { "name", param.name },
                     { "type", param.type },
                     { "default", param.default_value } };
        if (!param.allowed.empty())
            record["allowed"] = param.allowed;
        params.push_back(record);
    }
    return { { "name", type.name },
             { "kind", type.kind },
             { "output", type.output },
             { "plugin", type.plugin.empty() ? Json() : Json(type.plugin) },
             { "parameters", params } };
}

static void printJson(const std::vector<TypeInfo>& types)
{
    Json list = Json::array();
    for (const TypeInfo& type : types)
        list.push_back(jsonOf(type));
    std::puts(list.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

// ---- The command ----

// The types that were asked for; none, with an error, when there is no such type.
static std::vector<TypeInfo> chosenTypes()
{
    if (settings.type.empty())
        return describeAllTypes();
    if (const RtNodeEntry* entry = RvNodeEntryLookUp(settings.type.c_str()))
        return { describeType(entry) };
    std::vector<std::string> names;
    for (const TypeInfo& type : describeAllTypes())
        names.push_back(type.name);
    reportError("there is no node type '" + settings.type + "'" +
                suggestion(nearestNames(settings.type, names)));
    return {};
}

static int run(CLI::App&)
{
    const Universe universe(settings.scene);
    confineWithoutScenes(settings.scene.safety, trustedPaths(settings.scene));
    const auto types = chosenTypes();
    if (types.empty())
        return exit_failure;
    if (settings.is_markdown)
        printMarkdown(types);
    else if (settings.is_json)
        printJson(types);
    else if (settings.type.empty())
        printList(types);
    else
        printType(types.front());
    return exit_success;
}

const Command command_nodes = {
    .name = "nodes",
    .summary = "List node types and their parameters",
    .setup = setup,
    .run = run,
    .footer = "Examples:\n"
              "  ruvell nodes\n"
              "  ruvell nodes standard\n"
              "  ruvell nodes --markdown > nodes.md",
};

} // namespace ruvell
