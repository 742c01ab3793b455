// Tests of metadata: setting and reading annotations, iterating over them, and metadata files.
#include "node_tools.h"

#include <chrono>
#include <random>

using namespace node_tools;

namespace {

using Names = std::vector<std::string>;

class MetaData : public Universe {
protected:
    static RtMetaDataStore* storeOf(const char* type) { return RvNodeEntryLookUp(type)->metadata; }

    // The annotations that the iterator visits, as "param|name|TYPE|value".
    static Names visited(const RtNodeEntry* entry, const char* param)
    {
        Names all;
        RtMetaDataIterator* it = RvNodeEntryGetMetaDataIterator(entry, param);
        while (!RvMetaDataIteratorFinished(it)) {
            const RtMetaDataEntry* e = RvMetaDataIteratorGetNext(it);
            all.push_back(formatted("%s|%s|%s|%s", e->param, e->name, type_names[e->type],
                                    describeElement(e->type, &e->value).c_str()));
        }
        EXPECT_FALSE(RvMetaDataIteratorGetNext(it));
        RvMetaDataIteratorDestroy(it);
        return all;
    }

    // All annotations of a type and its parameters.
    static std::set<std::string> everything(const RtNodeEntry* entry)
    {
        std::set<std::string> all;
        for (const std::string& text : visited(entry, nullptr))
            all.insert(text);
        for (int i = 0; i < RvNodeEntryGetNumParams(entry); ++i)
            for (const std::string& text :
                 visited(entry, RvParamGetName(RvNodeEntryGetParameter(entry, i))))
                all.insert(text);
        return all;
    }

    static std::set<std::string> everything()
    {
        std::set<std::string> all;
        for (int i = 0; i < RvGetNumInstalledNodes(); ++i) {
            const RtNodeEntry* entry = RvNodeEntryLookUpByIndex(i);
            for (const std::string& text : everything(entry))
                all.insert(RvNodeEntryGetName(entry) + ("|" + text));
        }
        return all;
    }

    // Loads text as a metadata file; `problem` receives what was logged, {file} for its name.
    static bool load(const std::string& text, std::string* problem = nullptr)
    {
        const TemporaryFile file(text);
        const bool ok = RvMetaDataLoadFile(file.path.c_str());
        std::string logged = takeProblem();
        const size_t at = logged.find(file.path);
        if (at != std::string::npos)
            logged.replace(at, file.path.size(), "{file}");
        if (problem)
            *problem = logged;
        return ok;
    }

    static std::string problemOf(const std::string& text)
    {
        std::string problem;
        EXPECT_FALSE(load(text, &problem)) << text;
        return problem;
    }

    static std::string describeJson(const nlohmann::json& value)
    {
        if (value.is_string())
            return describe(value.get<std::string>().c_str());
        if (value.is_boolean())
            return describe(value.get<bool>());
        if (value.is_number())
            return describe(double(value.get<float>()));
        std::string text;
        for (const auto& component : value)
            text.append(text.empty() ? "" : " ").append(describeJson(component));
        return text;
    }
};

} // namespace

// ---- Setting and reading ----

TEST_F(MetaData, every_type_keeps_its_value_on_types_and_on_parameters)
{
    const RtNodeEntry* entry = RvNodeEntryLookUp("lambert");
    RtMetaDataStore* store = storeOf("lambert");
    for (const char* param : { static_cast<const char*>(nullptr), "Kd" }) {
        RvMetaDataSetBool(store, param, "b", true);
        RvMetaDataSetInt(store, param, "i", -7);
        RvMetaDataSetFlt(store, param, "f", 0.25f);
        RvMetaDataSetPnt(store, param, "p", RtPoint{ 1, 2, 3 });
        RvMetaDataSetVec(store, param, "v", RtVector{ 4, 5, 6 });
        RvMetaDataSetPnt2(store, param, "q", RtPoint2{ 7, 8 });
        RvMetaDataSetRGB(store, param, "c", RtRGB{ 0.5f, 0.25f, 1 });
        RvMetaDataSetStr(store, param, "s", "text");

        bool b = false;
        int i = 0;
        float f = 0;
        RtPoint p = {};
        RtVector v = {};
        RtPoint2 q = {};
        RtRGB c = {};
        const char* s = nullptr;
        EXPECT_TRUE(RvMetaDataGetBool(entry, param, "b", &b) && b);
        EXPECT_TRUE(RvMetaDataGetInt(entry, param, "i", &i) && i == -7);
        EXPECT_TRUE(RvMetaDataGetFlt(entry, param, "f", &f) && f == 0.25f);
        EXPECT_TRUE(RvMetaDataGetPnt(entry, param, "p", &p));
        EXPECT_EQ(describe(p), "1 2 3");
        EXPECT_TRUE(RvMetaDataGetVec(entry, param, "v", &v));
        EXPECT_EQ(describe(v), "4 5 6");
        EXPECT_TRUE(RvMetaDataGetPnt2(entry, param, "q", &q));
        EXPECT_EQ(describe(q), "7 8");
        EXPECT_TRUE(RvMetaDataGetRGB(entry, param, "c", &c));
        EXPECT_EQ(describe(c), "0.5 0.25 1");
        EXPECT_TRUE(RvMetaDataGetStr(entry, param, "s", &s));
        EXPECT_STREQ(s, "text");
    }
    EXPECT_TRUE(messages().empty());
}

TEST_F(MetaData, one_name_keeps_a_value_of_each_type)
{
    const RtNodeEntry* entry = RvNodeEntryLookUp("sphere");
    RvMetaDataSetInt(storeOf("sphere"), nullptr, "x", 5);
    RvMetaDataSetFlt(storeOf("sphere"), nullptr, "x", 0.5f);
    RvMetaDataSetPnt(storeOf("sphere"), nullptr, "x", RtPoint{ 1, 2, 3 });
    RvMetaDataSetVec(storeOf("sphere"), nullptr, "x", RtVector{ 4, 5, 6 });
    int i = 0;
    float f = 0;
    RtPoint p = {};
    RtVector v = {};
    EXPECT_TRUE(RvMetaDataGetInt(entry, nullptr, "x", &i) && i == 5);
    EXPECT_TRUE(RvMetaDataGetFlt(entry, nullptr, "x", &f) && f == 0.5f);
    EXPECT_TRUE(RvMetaDataGetPnt(entry, nullptr, "x", &p));
    EXPECT_TRUE(RvMetaDataGetVec(entry, nullptr, "x", &v));
    EXPECT_EQ(describe(p), "1 2 3");
    EXPECT_EQ(describe(v), "4 5 6");
}

TEST_F(MetaData, a_lookup_asks_for_parameter_name_and_type)
{
    const RtNodeEntry* entry = RvNodeEntryLookUp("lambert");
    RvMetaDataSetInt(storeOf("lambert"), "Kd", "i", 5);
    int i = 77;
    float f = 77;
    EXPECT_FALSE(RvMetaDataGetInt(entry, nullptr, "i", &i));
    EXPECT_FALSE(RvMetaDataGetInt(entry, "opacity", "i", &i));
    EXPECT_FALSE(RvMetaDataGetInt(entry, "Kd", "I", &i));
    EXPECT_FALSE(RvMetaDataGetInt(entry, "Kd", "", &i));
    EXPECT_FALSE(RvMetaDataGetFlt(entry, "Kd", "i", &f));
    EXPECT_FALSE(RvMetaDataGetInt(RvNodeEntryLookUp("standard"), "Kd", "i", &i));
    EXPECT_EQ(i, 77);
    EXPECT_EQ(f, 77);
}

TEST_F(MetaData, null_arguments_do_no_harm)
{
    const RtNodeEntry* entry = RvNodeEntryLookUp("lambert");
    RtMetaDataStore* store = storeOf("lambert");
    int i = 77;
    EXPECT_FALSE(RvMetaDataGetInt(nullptr, nullptr, "i", &i));
    EXPECT_FALSE(RvMetaDataGetInt(entry, nullptr, nullptr, &i));
    EXPECT_EQ(i, 77);
    RvMetaDataSetInt(store, nullptr, "i", 1);
    RvMetaDataGetInt(entry, nullptr, "i", nullptr);
    const auto before = everything();
    RvMetaDataSetInt(nullptr, nullptr, "i", 1);
    RvMetaDataSetInt(store, nullptr, nullptr, 1);
    RvMetaDataSetStr(nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(everything(), before);
    RvMetaDataSetStr(store, nullptr, "s", nullptr);
    const char* s = "untouched";
    RvMetaDataGetStr(entry, nullptr, "s", &s);
    EXPECT_TRUE(RvMetaDataIteratorFinished(nullptr));
    EXPECT_FALSE(RvMetaDataIteratorGetNext(nullptr));
    RvMetaDataIteratorDestroy(nullptr);
    EXPECT_FALSE(RvMetaDataLoadFile(nullptr));
    EXPECT_FALSE(RvMetaDataLoadFile(""));
}

TEST_F(MetaData, a_value_set_again_replaces_the_first)
{
    const RtNodeEntry* entry = RvNodeEntryLookUp("sphere");
    RtMetaDataStore* store = storeOf("sphere");
    const size_t before = visited(entry, nullptr).size();
    for (const char* text : { "first", "second", "second", "third" })
        RvMetaDataSetStr(store, nullptr, "s", text);
    const char* s = nullptr;
    EXPECT_TRUE(RvMetaDataGetStr(entry, nullptr, "s", &s));
    EXPECT_STREQ(s, "third");
    RvMetaDataSetStr(store, nullptr, "s", s); // its own text
    EXPECT_TRUE(RvMetaDataGetStr(entry, nullptr, "s", &s));
    EXPECT_STREQ(s, "third");
    RvMetaDataSetInt(store, nullptr, "i", 1);
    RvMetaDataSetInt(store, nullptr, "i", 2);
    EXPECT_EQ(visited(entry, nullptr).size(), before + 2);
}

TEST_F(MetaData, strings_are_interned)
{
    const std::string text = "a text", name = "a name";
    RvMetaDataSetStr(storeOf("sphere"), nullptr, name.c_str(), text.c_str());
    RvMetaDataSetStr(storeOf("lambert"), "Kd", std::string(name).c_str(),
                     std::string(text).c_str());
    const char* first = nullptr;
    const char* second = nullptr;
    ASSERT_TRUE(RvMetaDataGetStr(RvNodeEntryLookUp("sphere"), nullptr, "a name", &first));
    ASSERT_TRUE(RvMetaDataGetStr(RvNodeEntryLookUp("lambert"), "Kd", "a name", &second));
    EXPECT_EQ(first, second);
    EXPECT_NE(first, text.c_str());
}

TEST_F(MetaData, the_iterator_visits_one_parameter_in_the_order_of_the_map)
{
    const RtNodeEntry* entry = installType("annotated", [](RtList* params, RtMetaDataStore* store) {
        RvNodeParamFLT(params, -1, "a", 0);
        RvNodeParamFLT(params, -1, "b", 0);
        RvMetaDataSetStr(store, nullptr, "z", "of the type");
        RvMetaDataSetInt(store, nullptr, "m", 2);
        RvMetaDataSetFlt(store, "b", "y", 0.5f);
        RvMetaDataSetFlt(store, "b", "x", 1.5f);
        RvMetaDataSetInt(store, "b", "x", 3);
        RvMetaDataSetBool(store, "a", "x", true);
    });
    EXPECT_EQ(visited(entry, nullptr), (Names{ "|m|INT|2", "|z|STRING|\"of the type\"" }));
    EXPECT_EQ(visited(entry, "a"), Names{ "a|x|BOOL|1" });
    EXPECT_EQ(visited(entry, "b"), (Names{ "b|x|INT|3", "b|x|FLOAT|1.5", "b|y|FLOAT|0.5" }));
    EXPECT_TRUE(visited(entry, "name").empty());
    EXPECT_TRUE(visited(entry, "no_such").empty());
}

TEST_F(MetaData, annotations_die_with_their_type)
{
    installType("annotated", [](RtList*, RtMetaDataStore* store) {
        for (int i = 0; i < 50; ++i)
            RvMetaDataSetStr(store, i % 2 ? "param" : nullptr, formatted("key %d", i).c_str(),
                             formatted("value %d", i).c_str());
    });
    RvNodeUninstall("annotated");
    EXPECT_EQ(takeProblem(), "");
}

// ---- Files ----

TEST_F(MetaData, files_are_read_as_they_should_be)
{
    for (const auto& v : goldenVectors("datamodel", "RvMetaDataLoadFile")) {
        const auto before = everything();
        std::string problem;
        const bool ok = load(v["in"]["text"], &problem);
        EXPECT_EQ(ok, v["out"]["ok"].get<bool>()) << v["id"];
        const auto& error = v["out"]["error"];
        const std::string expected = error.is_null() ? "" : error.get<std::string>();
        if (!expected.empty() && expected.back() == '(') // the shown key is left open
            problem.resize(std::min(problem.size(), expected.size()));
        EXPECT_EQ(problem, expected) << v["id"];
        std::set<std::string> entries;
        for (const auto& e : v["out"]["entries"])
            entries.insert(
                formatted("%s|%s|%s|%s|%s", e["node"].get<std::string>().c_str(),
                          e["param"].is_null() ? "" : e["param"].get<std::string>().c_str(),
                          e["name"].get<std::string>().c_str(),
                          e["type"].get<std::string>().c_str(), describeJson(e["value"]).c_str()));
        std::set<std::string> added;
        for (const std::string& text : everything())
            if (!before.count(text))
                added.insert(text);
        EXPECT_EQ(added, entries) << v["id"];
        // A fresh universe for the next row.
        TearDown();
        SetUp();
    }
}

TEST_F(MetaData, a_missing_file_is_no_event)
{
    for (const auto& v : goldenVectors("datamodel", "RvMetaDataLoadFile_missing"))
        EXPECT_EQ(RvMetaDataLoadFile(v["in"]["path"].get<std::string>().c_str()),
                  v["out"]["ok"].get<bool>())
            << v["id"];
    EXPECT_FALSE(RvMetaDataLoadFile("no_such_file.mtd"));
    EXPECT_TRUE(messages().empty());
}

TEST_F(MetaData, a_directory_is_no_metadata_file)
{
    EXPECT_FALSE(RvMetaDataLoadFile(std::filesystem::temp_directory_path().c_str()));
    EXPECT_TRUE(messages().empty());
    EXPECT_TRUE(load("")) << "an empty file is one";
}

TEST_F(MetaData, loading_a_file_is_announced)
{
    const TemporaryFile file("[node sphere]\n");
    EXPECT_TRUE(RvMetaDataLoadFile(file.path.c_str()));
    ASSERT_EQ(messages().size(), 1u);
    EXPECT_EQ(messages()[0].text, "[METADATA] Loading metadata file: " + file.path);
    EXPECT_EQ(messages()[0].mask, RV_LOG_INFO);
}

TEST_F(MetaData, errors_name_the_file_and_the_line)
{
    static const struct {
        const char* text;
        const char* problem;
    } cases[] = {
        { "[node sphere\nx INT 1\n", "({file}:1). Wrong format for node name (sphere)" },
        { "\n\n[node sphere x INT 1\n", "({file}:3). Wrong format for node name (sphere)" },
        { "[node nothere]\n", "({file}:1). Node entry does not exist (nothere)" },
        { "[node lambert]\n[attr Kd\n", "({file}:2). Wrong format for attribute name (Kd)" },
        { "key BOOL true\n", "({file}:1). Found metadata outside node section (key)" },
        { "# comment\n\nkey BOOL true\n", "({file}:3). Found metadata outside node section (key)" },
        { "[node sphere]\nx DOUBLE 1\n", "({file}:2). Unknown metadata type (DOUBLE)" },
        { "[node sphere]\nx NODE n\n", "({file}:2). Unknown metadata type (NODE)" },
        { "[node sphere]\nx RGBA 1 2 3 4\n", "({file}:2). Unknown metadata type (RGBA)" },
        { "[node sphere]\nx bool true\n", "({file}:2). Unknown metadata type (bool)" },
        { "[node sphere]\nx BOOL maybe\n", "({file}:2). Not a valid boolean value (maybe)" },
        { "[node sphere]\n\n\nx STRING\n", "({file}:4). Missing string value" },
        { "[node sphere]\nx STRING text\n", "({file}:2). String value should be quoted" },
        { "[node sphere]\nx STRING \"text\n", "({file}:2). String value should be quoted" },
        { "[node sphere]\nx STRING text\"\n", "({file}:2). String value should be quoted" },
    };
    for (const auto& c : cases)
        EXPECT_EQ(problemOf(c.text),
                  std::string("[METADATA] Error parsing metadata file ") + c.problem)
            << c.text;
}

TEST_F(MetaData, unknown_sections_name_the_file_and_the_line)
{
    for (const char* section :
         { "[foo bar]", "[NODE sphere]", "[Attr Kd]", "[]", "[", "[ node x]" }) {
        const std::string problem = problemOf(std::string("[node sphere]\n") + section + "\n");
        EXPECT_EQ(problem.rfind("[METADATA] Error parsing metadata file ({file}:2). "
                                "Unknown key type (",
                                0),
                  0u)
            << problem;
    }
}

TEST_F(MetaData, the_first_error_ends_the_loading_and_keeps_what_came_before)
{
    EXPECT_FALSE(load("[node sphere]\nbefore INT 1\nx BOOL maybe\nafter INT 2\n"));
    int i = 0;
    EXPECT_TRUE(RvMetaDataGetInt(RvNodeEntryLookUp("sphere"), nullptr, "before", &i));
    EXPECT_FALSE(RvMetaDataGetInt(RvNodeEntryLookUp("sphere"), nullptr, "after", &i));
}

TEST_F(MetaData, a_node_name_of_32_characters_is_read_and_one_of_33_refused)
{
    const std::string longest(32, 'n');
    installType(longest.c_str());
    EXPECT_TRUE(load("[node " + longest + "]\nx INT 1\n"));
    int i = 0;
    EXPECT_TRUE(RvMetaDataGetInt(RvNodeEntryLookUp(longest.c_str()), nullptr, "x", &i));
    EXPECT_EQ(problemOf("[node " + longest + "n]\n").rfind("[METADATA] Error parsing", 0), 0u);
}

TEST_F(MetaData, an_attribute_section_ends_with_the_next_node_section)
{
    EXPECT_TRUE(load("[node lambert]\n[attr Kd]\na INT 1\n[node lambert]\nb INT 2\n"));
    const RtNodeEntry* entry = RvNodeEntryLookUp("lambert");
    int i = 0;
    EXPECT_TRUE(RvMetaDataGetInt(entry, "Kd", "a", &i) && i == 1);
    EXPECT_TRUE(RvMetaDataGetInt(entry, nullptr, "b", &i) && i == 2);
    EXPECT_FALSE(RvMetaDataGetInt(entry, "Kd", "b", &i));
}

TEST_F(MetaData, an_attribute_section_before_any_node_section_does_no_harm)
{
    load("[attr Kd]\nx INT 1\n");
    load("[attr Kd] x INT 1");
}

TEST_F(MetaData, carriage_returns_end_lines_too)
{
    EXPECT_TRUE(load("[node sphere]\r\nflag BOOL YES\r\ni INT 12\r\ns STRING \"text\"\r\n"));
    const RtNodeEntry* entry = RvNodeEntryLookUp("sphere");
    bool flag = false;
    int i = 0;
    const char* s = nullptr;
    EXPECT_TRUE(RvMetaDataGetBool(entry, nullptr, "flag", &flag) && flag);
    EXPECT_TRUE(RvMetaDataGetInt(entry, nullptr, "i", &i) && i == 12);
    ASSERT_TRUE(RvMetaDataGetStr(entry, nullptr, "s", &s));
    EXPECT_STREQ(s, "text");
}

TEST_F(MetaData, an_entry_of_a_file_replaces_an_older_one)
{
    EXPECT_TRUE(load("[node sphere]\ns STRING \"old\"\ns STRING \"new\"\n"));
    EXPECT_TRUE(load("[node sphere]\ns STRING \"newest\"\n"));
    const char* s = nullptr;
    EXPECT_TRUE(RvMetaDataGetStr(RvNodeEntryLookUp("sphere"), nullptr, "s", &s));
    EXPECT_STREQ(s, "newest");
}

TEST_F(MetaData, a_synonym_from_a_file_works)
{
    EXPECT_TRUE(load("[node lambert]\nsynonym STRING \"matte\"\n"
                     "[attr Kd]\nsynonym STRING \"diffuse\"\n"));
    RtNode* node = RvNode("matte");
    EXPECT_EQ(takeProblem(), "node entry \"matte\" is deprecated, use \"lambert\"");
    ASSERT_TRUE(node);
    EXPECT_EQ(RvNodeGetFlt(node, "diffuse"), 0.7f);
    EXPECT_EQ(takeProblem(), formatted("%s: parameter \"diffuse\" is deprecated, use \"Kd\"",
                                       RvNodeGetName(node)));
    RvNodeUninstall("lambert");
}

TEST_F(MetaData, missing_numbers_do_no_harm)
{
    for (const char* entry :
         { "x INT", "x FLOAT", "x POINT", "x POINT 1", "x POINT 1 2", "x VECTOR 1 2", "x RGB",
           "x POINT2 1", "x BOOL", "x", "x INT \t", "x FLOAT nothing", "x INT 99999999999999999999",
           "x FLOAT 1e999", "x INT 0xFFFFFFFFFFFFFFFFFF", "x FLOAT nan" })
        load(std::string("[node sphere]\n") + entry + "\nend INT 1\n");
}

TEST_F(MetaData, layout_keys_from_a_file_do_not_move_a_living_type)
{
    RtNode* node = named("lambert", "n");
    EXPECT_TRUE(load("[node lambert]\n_struct_size INT 4\n_baseoffset2 INT 900\n"));
    RvNodeSetFlt(node, "Kd", 0.5f);
    RtNode* later = RvNode("lambert");
    EXPECT_EQ(RvNodeGetFlt(node, "Kd"), 0.5f);
    EXPECT_EQ(RvNodeGetFlt(later, "Kd"), 0.7f);
    EXPECT_EQ(takeProblem(), "");
}

// ---- Hostile files ----

namespace {

const char good_file[] = "# every kind of line\n"
                         "[node sphere]\n"
                         "desc STRING \"a \"quoted\" sphere\"\n"
                         "flag BOOL YES\n"
                         "n INT 0x1F\n"
                         "[attr radius] min FLOAT 0.5\n"
                         "p POINT 1 2 3\n"
                         "v VECTOR -1 -2 -3\n"
                         "[node lambert]\n"
                         "q POINT2 4 5\n"
                         "[attr Kd_color]\n"
                         "c RGB 0.1 0.2 0.3\n"
                         "label STRING \"Diffuse\"\n";

// Every problem of a metadata file begins with the same words and gives file and line.
void expectLocated(const std::string& problem, const std::string& context)
{
    static const char form[] = "\\[METADATA\\] Error parsing metadata file "
                               "\\(\\{file\\}:[1-9][0-9]*\\)\\. .*";
    EXPECT_TRUE(matches(problem.substr(0, 200), form)) << context << ": " << problem;
}

} // namespace

TEST_F(MetaData, a_file_cut_anywhere_is_read_or_refused)
{
    const std::string whole = good_file;
    EXPECT_TRUE(load(whole));
    for (size_t length = 0; length < whole.size(); ++length) {
        std::string problem;
        if (!load(whole.substr(0, length), &problem))
            expectLocated(problem, formatted("cut at %zu", length));
        else
            EXPECT_EQ(problem, "") << length;
    }
}

TEST_F(MetaData, a_file_with_one_byte_changed_is_read_or_refused)
{
    std::mt19937 random(7);
    const std::string whole = good_file;
    for (int i = 0; i < 500; ++i) {
        std::string text = whole, problem;
        text[random() % text.size()] = char(random() % 256);
        if (!load(text, &problem))
            expectLocated(problem, formatted("mutant %d", i));
    }
}

TEST_F(MetaData, random_bytes_are_read_or_refused)
{
    std::mt19937 random(42);
    for (int i = 0; i < 300; ++i) {
        std::string text(random() % 2000, '\0'), problem;
        for (char& c : text)
            c = char(random() % 256);
        if (i % 3 == 0) // some that get past the first line
            text = "[node sphere]\n" + text;
        if (!load(text, &problem))
            expectLocated(problem, formatted("file %d", i));
    }
}

TEST_F(MetaData, random_words_are_read_or_refused)
{
    static const char* const words[] = {
        "[node", "sphere]", "lambert]", "[attr",  "Kd]", "x",   "y",    "BOOL", "INT",
        "FLOAT", "POINT",   "RGB",      "STRING", "1",   "0x2", "true", "\"",   "\"a b\"",
        "#",     "]",       "[",        "\n",     "\n",  "\n",  "\t",   "-1e5", "synonym"
    };
    std::mt19937 random(99);
    for (int i = 0; i < 500; ++i) {
        std::string text = "[node sphere]\n", problem;
        for (int k = 0; k < 60; ++k)
            text += words[random() % std::size(words)] + std::string(random() % 2, ' ');
        if (!load(text, &problem))
            expectLocated(problem, formatted("file %d", i));
    }
}

TEST_F(MetaData, endless_lines_are_read_or_refused_in_good_time)
{
    const auto start = std::chrono::steady_clock::now();
    const std::string endless(10 << 20, 'w');
    for (const std::string& text : {
             endless,
             "[node " + endless,
             "[node " + endless + "]\n",
             "[node sphere]\n[attr " + endless + "]\nx INT 1\n",
             "[node sphere]\n" + endless + " INT 1\n",
             "[node sphere]\nx " + endless + " 1\n",
             "[node sphere]\nx INT " + endless + "\n",
             "[node sphere]\nx STRING \"" + endless + "\"\n",
             "[node sphere]\nx BOOL " + endless + "\n",
             "# " + endless + "\n[node sphere]\nx INT 1\n",
             std::string(10 << 20, '\n'),
             std::string(10 << 20, '['),
             std::string(10 << 20, '"'),
             std::string(10 << 20, '\0'),
         }) {
        std::string problem;
        if (!load(text, &problem))
            expectLocated(problem, text.substr(0, 30));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
}

TEST_F(MetaData, a_line_of_511_characters_is_read_whole)
{
    const std::string head = "s STRING \"";
    const std::string text(511 - head.size() - 1, 't');
    EXPECT_TRUE(load("[node sphere]\n" + head + text + "\"\nnext INT 4\n"));
    const char* s = nullptr;
    int next = 0;
    ASSERT_TRUE(RvMetaDataGetStr(RvNodeEntryLookUp("sphere"), nullptr, "s", &s));
    EXPECT_EQ(s, text);
    EXPECT_TRUE(RvMetaDataGetInt(RvNodeEntryLookUp("sphere"), nullptr, "next", &next));
    EXPECT_EQ(next, 4);
}

// ---- The exhausted heap ----

TEST_F(MetaData, setting_without_memory_keeps_the_old_value_or_the_new_one)
{
    const RtNodeEntry* entry = RvNodeEntryLookUp("sphere");
    RtMetaDataStore* store = storeOf("sphere");
    RvMetaDataSetStr(store, nullptr, "replaced", "old");
    problemsOfFailingHeap(
        [&] {
            RvMetaDataSetStr(store, nullptr, "replaced", "new");
            const char* s = nullptr;
            ASSERT_TRUE(RvMetaDataGetStr(entry, nullptr, "replaced", &s));
            ASSERT_TRUE(s);
            EXPECT_TRUE(!strcmp(s, "old") || !strcmp(s, "new")) << s;
            RvMetaDataSetStr(store, "radius", "added", "value");
            RvMetaDataSetInt(store, "radius", "added", 5);
        },
        takeProblems);
    const char* s = nullptr;
    EXPECT_TRUE(RvMetaDataGetStr(entry, nullptr, "replaced", &s));
    EXPECT_STREQ(s, "new");
    EXPECT_TRUE(RvMetaDataGetStr(entry, "radius", "added", &s));
    EXPECT_STREQ(s, "value");
}

TEST_F(MetaData, files_load_without_memory_as_far_as_they_can)
{
    const TemporaryFile file(good_file);
    problemsOfFailingHeap([&] { RvMetaDataLoadFile(file.path.c_str()); }, takeProblems);
    EXPECT_TRUE(RvMetaDataLoadFile(file.path.c_str()));
    EXPECT_EQ(takeProblem(), "");
}
