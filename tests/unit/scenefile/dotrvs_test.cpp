// Tests of dotrvs: loading files: names, search paths, nesting, messages and the golden vectors.
#include "scene_fixture.h"

#include "counters.h"
#include "golden.h"

#include <cmath>

using nlohmann::json;
using node_tools::formatted;

// ---- Golden vectors ----

namespace {

struct LocatedMessage {
    std::string severity;
    std::string text;
    int line;
};

} // namespace

static std::vector<LocatedMessage> located;

static void recordLocated(int, int severity, const char* text, int)
{
    static const char* const names[] = { "info", "warning", "error", "fatal" };
    located.push_back({ names[severity], text, rv::scene_file_line + 1 });
}

static json elementValue(int type, const void* at)
{
    const float* const f = static_cast<const float*>(at);
    const auto floats = [&](int n) { return json(std::vector<float>(f, f + n)); };
    switch (type) {
    case RV_TYPE_BYTE: return *static_cast<const uint8_t*>(at);
    case RV_TYPE_INT:
    case RV_TYPE_ENUM: return *static_cast<const int*>(at);
    case RV_TYPE_UINT: return *static_cast<const unsigned*>(at);
    case RV_TYPE_BOOLEAN: return *static_cast<const bool*>(at);
    case RV_TYPE_FLOAT: return *f;
    case RV_TYPE_RGB:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT: return floats(3);
    case RV_TYPE_RGBA: return floats(4);
    case RV_TYPE_POINT2: return floats(2);
    case RV_TYPE_MATRIX: return floats(16);
    case RV_TYPE_STRING: return *static_cast<const char* const*>(at);
    default: {
        const auto* const node = *static_cast<const RtNode* const*>(at);
        return node ? json(RvNodeGetName(node)) : json(nullptr);
    }
    }
}

static json arrayValue(const RtArray* array)
{
    json values = json::array();
    for (unsigned i = 0; i < rv::totalElements(array); ++i)
        values.push_back(elementValue(array->type, static_cast<const char*>(array->data) +
                                                       i * rv::typeSize(array->type)));
    return { { "type", node_tools::type_names[array->type] },
             { "nelements", array->nelements },
             { "nkeys", array->nkeys },
             { "values", values } };
}

// What was set on a node, its name aside.
static json setParameters(const RtNode* node)
{
    json params = json::object();
    for (unsigned i = 0; i < node->entry->num_params; ++i) {
        const RtParamEntry* const param = &node->entry->params[i];
        if (!node->set_flags[i] || !strcmp(param->name, "name"))
            continue;
        params[param->name] = param->type == RV_TYPE_ARRAY
                                  ? arrayValue(rv::loadArray(node, param))
                                  : elementValue(param->type, rv::paramStorage(node, param));
    }
    return params;
}

static json linksOf(RtNode* node)
{
    json links = json::object();
    for (unsigned i = 0; i < node->entry->num_params; ++i)
        if (const RtNode* const source = RvNodeGetLink(node, node->entry->params[i].name))
            links[node->entry->params[i].name] = RvNodeGetName(source);
    return links;
}

static json userParameters(const RtNode* node)
{
    json all = json::object();
    for (unsigned i = 0; i < node->user_param_count; ++i) {
        const RtUserParamEntry& user = node->user_params[i];
        const bool has_elements = user.array_type != RV_TYPE_NONE;
        all[user.name] = { { "category", user.category },
                           { "type", node_tools::type_names[user.type] },
                           { "array_type",
                             has_elements ? node_tools::type_names[user.array_type] : "NONE" },
                           { "value", elementValue(user.type, &user.value) } };
    }
    return all;
}

static json describeNode(RtNode* node)
{
    json all = { { "type", node->entry->name },
                 { "name", RvNodeGetName(node) },
                 { "params", setParameters(node) },
                 { "links", linksOf(node) } };
    if (node->before)
        all["before"] = RvNodeGetName(node->before);
    if (node->user_param_count)
        all["user"] = userParameters(node);
    return all;
}

static json describeOverride(const RtNode* node)
{
    const RtArray* const names = RvNodeGetArray(node, "param_name");
    const RtArray* const values = RvNodeGetArray(node, "param_value");
    const int count = RvNodeGetInt(node, "param_count");
    json all = { { "count", count },
                 { "array_length", names->nelements },
                 { "names", json::array() },
                 { "values", json::array() } };
    EXPECT_EQ(names->nelements, values->nelements);
    for (unsigned i = 0; i < unsigned(count); ++i) {
        all["names"].push_back(RvArrayGetStr(names, i));
        const RtArray* const text = RvArrayGetArray(values, i);
        EXPECT_EQ(text->type, RV_TYPE_BYTE);
        EXPECT_EQ(static_cast<const char*>(text->data)[text->nelements - 1], '\0');
        all["values"].push_back(static_cast<const char*>(text->data));
    }
    return all;
}

// Equal but for numbers, which may differ by a millionth of their size; "?" is any text.
static bool isClose(const json& got, const json& want)
{
    if (want == "?")
        return got.is_string();
    if (want.is_number() && got.is_number())
        return std::fabs(got.get<double>() - want.get<double>()) <=
               1e-6 * std::fabs(want.get<double>());
    if (got.size() != want.size() || got.type() != want.type() || !want.is_structured())
        return got == want;
    for (auto w = want.begin(); w != want.end(); ++w) {
        if (want.is_object() && !got.contains(w.key()))
            return false;
        const json& g = want.is_object() ? got[w.key()] : got[size_t(w - want.begin())];
        if (!isClose(g, *w))
            return false;
    }
    return true;
}

static bool isInternal(const RtNode* node)
{
    return node->entry->type == RV_NODE_OPTIONS || !strncmp(RvNodeGetName(node), "rv_", 3);
}

// Everything that a vector tells about the universe after a load.
static json describeUniverse()
{
    json all = { { "nodes", json::array() },
                 { "overrides", json::object() },
                 { "options_set", setParameters(RvUniverseGetOptions()) },
                 { "missing_types", json::array() } };
    all["options_set"].erase("camera");
    for (RtListNode* e = RvListHead(rv::the_frame->scene->nodes); e; e = e->next) {
        auto* const node = static_cast<RtNode*>(e->data);
        if (node->entry->type == RV_NODE_OVERRIDE)
            all["overrides"][RvNodeGetStr(node, "node_name")] = describeOverride(node);
        else if (!isInternal(node))
            all["nodes"].push_back(describeNode(node));
    }
    if (const RtArray* const missing = rv::the_frame->scene->missing_types)
        all["missing_types"] = arrayValue(missing)["values"];
    return all;
}

static json describeLog(const json& files)
{
    json problems = json::array(), summaries = json::array();
    std::vector<std::string> open;
    for (const LocatedMessage& m : located) {
        int nodes, lines;
        if (m.text.rfind("loading ", 0) == 0) {
            const std::string path = m.text.substr(8, m.text.size() - 12);
            open.push_back(path.substr(path.rfind('/') + 1));
            EXPECT_TRUE(files.contains(open.back()));
        } else if (sscanf(m.text.c_str(), "parsed %d nodes in %d lines in", &nodes, &lines) == 2) {
            summaries.push_back(
                { { "file", open.back() }, { "nodes", nodes }, { "lines", lines } });
            open.pop_back();
        } else if (m.severity != "info") {
            problems.push_back(json::array({ m.severity, m.text, m.line }));
        }
    }
    return { { "messages", problems }, { "summaries", summaries } };
}

static void expectMessages(const json& v, const json& got)
{
    const json& want = v["out"]["messages"];
    ASSERT_EQ(got.size(), want.size()) << goldenId(v) << got;
    for (size_t i = 0; i < want.size(); ++i) {
        EXPECT_EQ(got[i][0], want[i][0]) << goldenId(v);
        EXPECT_EQ(got[i][1].get<std::string>().rfind(want[i][1].get<std::string>(), 0), 0u)
            << goldenId(v) << got[i] << want[i];
        EXPECT_EQ(got[i][2], want[i][2]) << goldenId(v) << got[i];
    }
}

TEST_F(SceneFiles, loading_follows_the_golden_vectors)
{
    const std::filesystem::path before = std::filesystem::current_path();
    for (const auto& v : goldenVectors("scenefile", "load_scene")) {
        RvEnd();
        RvBegin();
        RvMsgSetConsoleFlags(RV_LOG_ALL & ~(RV_LOG_TIMESTAMP | RV_LOG_MEMORY));
        for (const auto& file : v["in"]["files"].items())
            write(file.key(), file.value().get<std::string>());
        std::filesystem::current_path(folder);
        RtList* const list = RvList(nullptr);
        RvMsgSetCallback(recordLocated);
        located.clear();
        const int result = RvRVSLoadList(v["in"]["load"].get<std::string>().c_str(), list);
        std::filesystem::current_path(before);

        json got = describeUniverse();
        got.update(describeLog(v["in"]["files"]));
        got["result"] = result;
        got["listed_nodes"] = json::array();
        for (RtListNode* e = RvListHead(list); e; e = e->next)
            got["listed_nodes"].push_back(RvNodeGetName(static_cast<RtNode*>(e->data)));
        RvListDestroy(list);
        expectMessages(v, got["messages"]);
        for (const auto& out : v["out"].items())
            if (out.key() != "messages") {
                EXPECT_TRUE(isClose(got[out.key()], out.value()))
                    << goldenId(v) << " " << out.key() << "\n got " << got[out.key()] << "\nwant "
                    << out.value();
            }
    }
}

TEST_F(SceneFiles, names_that_are_too_long_follow_the_golden_vectors)
{
    for (const auto& v : goldenVectors("scenefile", "load_name_length")) {
        const std::string name(v["in"]["length"].get<size_t>(),
                               v["in"]["character"].get<std::string>()[0]);
        expectGolden(v, "result", RvRVSLoad(name.c_str()));
        const std::string problem = takeProblem();
        const json& prefix = v["out"]["message_prefix"];
        const std::string complaint = prefix.is_null() ? name + ": " : prefix.get<std::string>();
        EXPECT_EQ(problem.rfind(complaint, 0), 0u) << problem;
    }
}

// Each attempt is seen by making its file the only one there is.
TEST_F(SceneFiles, files_are_looked_for_as_the_golden_vectors_say)
{
    const std::filesystem::path before = std::filesystem::current_path();
    for (const auto& v : goldenVectors("scenefile", "open_attempts")) {
        const json& order = v["out"]["order"];
        for (size_t first = 0; first < order.size(); ++first) {
            std::filesystem::remove_all(folder);
            std::filesystem::create_directories(folder);
            for (size_t i = first; i < order.size(); ++i)
                write(order[i].get<std::string>(),
                      formatted("sphere { name found_%d_%d }", int(first), int(i)));
            std::filesystem::current_path(folder);
            RvNodeSetStr(RvUniverseGetOptions(), "procedural_searchpath",
                         v["in"]["procedural_searchpath"].get<std::string>().c_str());
            EXPECT_EQ(RvRVSLoad(v["in"]["name"].get<std::string>().c_str()), 0);
            std::filesystem::current_path(before);
            RtNode* const found = node(formatted("found_%d_%d", int(first), int(first)).c_str());
            EXPECT_NE(found, nullptr) << goldenId(v) << " " << order[first];
            RvNodeDestroy(found);
        }
    }
}

// ---- Names ----

TEST_F(SceneFiles, nothing_is_loaded_without_a_universe_or_a_name)
{
    EXPECT_EQ(RvRVSLoad(nullptr), -1);
    EXPECT_EQ(takeProblem(), "can't open .rvs file, no filename supplied");
    EXPECT_EQ(RvRVSLoad(""), -1);
    EXPECT_EQ(takeProblem(), "can't open .rvs file, no filename supplied");
    RvEnd();
    messages().clear();
    EXPECT_EQ(RvRVSLoad(write("a.rvs", "").c_str()), -1);
    EXPECT_TRUE(messages().empty());
    RvBegin();
}

TEST_F(SceneFiles, a_name_of_1024_characters_is_too_long)
{
    EXPECT_EQ(RvRVSLoad(std::string(1024, 'n').c_str()), -1);
    EXPECT_EQ(takeProblem(),
              "filename too long (size is 1024, max is 1024): " + std::string(1024, 'n'));
    EXPECT_EQ(RvRVSLoad(std::string(1023, 'n').c_str()), -1);
    EXPECT_EQ(takeProblem(), std::string(1023, 'n') + ": " + strerror(ENAMETOOLONG));
}

TEST_F(SceneFiles, what_cannot_be_opened_is_reported_with_its_reason)
{
    EXPECT_EQ(RvRVSLoad(path("none.rvs").c_str()), -1);
    EXPECT_EQ(takeProblem(), path("none.rvs") + ": No such file or directory");
    EXPECT_EQ(RvRVSLoad(folder.string().c_str()), -1);
    EXPECT_EQ(takeProblem(), folder.string() + ": Is a directory");
    EXPECT_EQ(rv::the_frame->msg->tab, 0);
}

TEST_F(SceneFiles, a_search_path_may_hold_endless_entries)
{
    write("deep/found.rvs", "sphere { name found }");
    const std::string search = std::string(5000, 'x') + ";" + path("deep");
    RvNodeSetStr(RvUniverseGetOptions(), "procedural_searchpath", search.c_str());
    EXPECT_EQ(RvRVSLoad("found.rvs"), 0);
    EXPECT_NE(node("found"), nullptr);
}

// ---- Messages ----

TEST_F(SceneFiles, an_empty_file_is_no_failure)
{
    EXPECT_EQ(load(""), 0);
    EXPECT_EQ(infos("loading "),
              std::vector<std::string>{ "loading " + path("main.rvs") + " ..." });
    ASSERT_EQ(infos("parsed ").size(), 1u);
    EXPECT_EQ(infos("parsed ")[0].rfind("parsed 0 nodes in 0 lines in 0:0", 0), 0u);
    EXPECT_EQ(rv::scene_file_line, -1);
}

TEST_F(SceneFiles, messages_of_a_load_are_indented)
{
    load("notatype { }");
    for (const LoggedMessage& m : messages())
        EXPECT_EQ(m.tab, m.severity > 0 ? 1 : 0) << m.text;
    EXPECT_EQ(rv::the_frame->msg->tab, 0);
}

TEST_F(SceneFiles, a_render_in_progress_hides_and_names_its_loads)
{
    node_tools::HookOverride hooks;
    hooks.hooks.rendering = [] { return true; };
    EXPECT_EQ(load("sphere { name s }"), 0);
    const auto started = infos("loading "),
               ended = infos(path("main.rvs") + ": parsed 1 nodes in ");
    ASSERT_EQ(started.size(), 1u);
    ASSERT_EQ(ended.size(), 1u);
    for (const LoggedMessage& m : messages()) {
        EXPECT_EQ(m.mask, RV_LOG_LOADING) << m.text;
        EXPECT_EQ(m.tab, 0) << m.text;
    }
}

TEST_F(SceneFiles, every_ten_thousand_statements_are_told)
{
    std::string text;
    for (int i = 0; i < 20000; ++i)
        text += "override { }\n";
    loadWell(text);
    load(text);
    EXPECT_EQ(infos("10000 nodes ...").size(), 1u);
    EXPECT_EQ(infos("20000 nodes ...").size(), 1u);
    EXPECT_EQ(infos("parsed 20000 nodes in 20000 lines").size(), 1u);
}

TEST_F(SceneFiles, the_time_of_loading_is_counted_once)
{
    const int64_t before = rv::hostStats()->parse_ms;
    write("inc.rvs", "");
    EXPECT_EQ(RvRVSLoad("|sleep 0.05"), 0);
    EXPECT_GE(rv::hostStats()->parse_ms, before + 50);
    const int64_t after = rv::hostStats()->parse_ms;
    ++rv::include_depth;
    EXPECT_EQ(RvRVSLoad("|sleep 0.02"), 0);
    --rv::include_depth;
    EXPECT_EQ(rv::hostStats()->parse_ms, after);
}

TEST_F(SceneFiles, standard_input_is_read_under_the_name_of_a_dash)
{
    const std::string name = write("in.rvs", "sphere { name from_stdin }\n");
    const int kept = dup(0);
    ASSERT_NE(freopen(name.c_str(), "r", stdin), nullptr);
    EXPECT_EQ(RvRVSLoad("-"), 0);
    EXPECT_NE(node("from_stdin"), nullptr);
    EXPECT_EQ(infos("reading from stdin ...").size(), 1u);
    dup2(kept, 0);
    close(kept);
    clearerr(stdin);
}

TEST_F(SceneFiles, pipes_are_loaded_and_their_failure_is_that_of_the_load)
{
    EXPECT_EQ(RvRVSLoad("|echo 'sphere { name a }'"), 0);
    EXPECT_NE(node("a"), nullptr);
    EXPECT_EQ(infos("parsed ").size(), 1u);
    EXPECT_EQ(RvRVSLoad("|echo 'sphere { name b }'; exit 2"), -1);
    EXPECT_NE(node("b"), nullptr);
    EXPECT_EQ(infos("parsed ").size(), 1u);
    EXPECT_EQ(rv::scene_file_line, -1);
}

// ---- Included files ----

TEST_F(SceneFiles, a_failing_include_fails_every_file_around_it)
{
    const std::string inner = write("inner.rvs", "sphere { name s }\ninclude nowhere.rvs\n");
    const std::string outer = write("outer.rvs", "include \"" + inner + "\"\nsphere { name t }");
    EXPECT_EQ(RvRVSLoad(outer.c_str()), -1);
    EXPECT_EQ(takeProblem(), "nowhere.rvs: No such file or directory | error loading " + inner +
                                 " | error loading " + outer);
    EXPECT_NE(node("s"), nullptr);
    EXPECT_EQ(node("t"), nullptr);
    EXPECT_EQ(rv::include_depth, 0);
}

TEST_F(SceneFiles, required_the_name_of_an_include_is_unquoted_twice)
{
    EXPECT_EQ(problemsOf("include ab"),
              "can't open .rvs file, no filename supplied | error loading " + path("main.rvs"));
    const std::string inner = write("inner.rvs", "sphere { name s }");
    loadWell("include <" + inner + ">");
    RvNodeDestroy(node("s"));
    loadWell("include \"<" + inner + ">\"");
    EXPECT_NE(node("s"), nullptr);
}

TEST_F(SceneFiles, required_lines_count_anew_after_an_include)
{
    const std::string inner = write("inner.rvs", "\n\n\n");
    messages().clear();
    RvMsgSetCallback(recordLocated);
    located.clear();
    load("\n\ninclude " + inner + "\n\nnotatype { }\n");
    std::vector<int> lines;
    for (const LocatedMessage& m : located)
        if (m.severity == "warning")
            lines.push_back(m.line);
    EXPECT_EQ(lines, std::vector<int>{ 1 });
}

TEST_F(SceneFiles, a_file_that_includes_itself_is_refused_in_the_end)
{
    const std::string name = path("main.rvs");
    EXPECT_EQ(load("include " + name + "\n"), -1);
    const auto problems = takeProblems();
    ASSERT_FALSE(problems.empty());
    EXPECT_EQ(problems[0],
              name + ": scene files are nested deeper than 200; does one include itself?");
    for (size_t i = 1; i < problems.size(); ++i)
        EXPECT_EQ(problems[i], "error loading " + name);
    loadWell("sphere { name afterwards }");
}

TEST_F(SceneFiles, many_files_may_be_included_one_after_another)
{
    std::string text;
    const std::string inner = write("inner.rvs", "lambert { }\n");
    for (int i = 0; i < 1000; ++i)
        text += "include " + inner + "\n";
    loadWell(text);
    EXPECT_EQ(RvNodeEntryGetCount(RvNodeEntryLookUp("lambert")), 1000);
}

TEST_F(SceneFiles, a_list_receives_the_nodes_of_included_files_too)
{
    const std::string inner = write("inner.rvs", "lambert { name a }\n");
    const std::string outer =
        write("outer.rvs", "include " + inner + "\nsphere { name b }\noptions { }\n");
    RtList* const list = RvList(nullptr);
    EXPECT_EQ(RvRVSLoadList(outer.c_str(), list), 0);
    std::string names;
    for (RtListNode* e = RvListHead(list); e; e = e->next)
        names += nodeName(e->data) + " ";
    EXPECT_EQ(names, "a b options ");
    RvListDestroy(list);
}
