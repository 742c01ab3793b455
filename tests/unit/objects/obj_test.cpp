// The reader of OBJ files: statements, groups, numbers and odd lines.
#include "objects/obj.h"

#include "golden.h"
#include "image_tools.h"
#include "node_tools.h"

#include <fstream>
#include <random>
#include <zlib.h>

namespace {

using nlohmann::json;
using node_tools::describe;
using node_tools::formatted;

class Obj : public Universe {
protected:
    void TearDown() override
    {
        remove(path().c_str());
        Universe::TearDown();
    }
    static std::string path()
    {
        const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
        return ::testing::TempDir() + "obj." + test->name() + "." + std::to_string(getpid()) +
               ".obj";
    }

    // The nodes that a text makes.
    static std::vector<RtNode*> nodesOf(const std::string& text)
    {
        std::ofstream(path(), std::ios::binary) << text;
        return nodesOfFile();
    }
    static std::vector<RtNode*> nodesOfFile()
    {
        RtList* const list = RvList(nullptr);
        RtObjReader reader;
        EXPECT_EQ(reader.read(path().c_str(), list), 1);
        std::vector<RtNode*> nodes;
        for (RtListNode* e = RvListHead(list); e; e = e->next)
            nodes.push_back(static_cast<RtNode*>(e->data));
        RvListDestroy(list);
        return nodes;
    }
    static RtNode* nodeOf(const std::string& text)
    {
        const std::vector<RtNode*> nodes = nodesOf(text);
        EXPECT_EQ(nodes.size(), 1u);
        return nodes.at(0);
    }
    static std::string arrayOf(const RtNode* node, const char* param)
    {
        return describe(static_cast<const RtArray*>(RvNodeGetArray(node, param)));
    }
    // Vertex indices as signed numbers.
    static std::string indicesOf(const RtNode* node, const char* param)
    {
        const RtArray* const array = RvNodeGetArray(node, param);
        std::string text;
        for (unsigned i = 0; i < array->nelements; ++i)
            text += formatted(i ? " %d" : "%d", int(RvArrayGetUInt(array, i)));
        return text;
    }
    static int readNothing(const char* name)
    {
        RtObjReader reader;
        return reader.read(name, nullptr);
    }
    // The last message without its duration.
    static std::string summary()
    {
        const std::string text = messages().back().text;
        return text.substr(0, text.rfind(' '));
    }
};

json elements(const RtNode* node, const char* param, int width)
{
    json all = json::array();
    const RtArray* const array = RvNodeGetArray(node, param);
    for (unsigned i = 0; i < array->nelements; ++i) {
        json one = json::array();
        for (int k = 0; k < width; ++k)
            one.push_back(rv::elementsOf<float>(array)[i * unsigned(width) + unsigned(k)]);
        all.push_back(one);
    }
    return all;
}

json indices(const RtNode* node, const char* param)
{
    json all = json::array();
    const RtArray* const array = RvNodeGetArray(node, param);
    for (unsigned i = 0; i < array->nelements; ++i)
        all.push_back(RvArrayGetUInt(array, i));
    return all;
}

json nameOf(const RtNode* node)
{
    const std::string name = RvNodeGetName(node);
    return name.rfind("polymesh_", 0) == 0 ? json() : json(name);
}

json shaderOf(const RtNode* node)
{
    const RtNode* const shader =
        static_cast<RtNode*>(RvArrayGetPtr(RvNodeGetArray(node, "shader"), 0));
    const std::string name = RvNodeGetName(shader);
    return name == "rv_default_reflection_shader" ? json() : json(name);
}

} // namespace

TEST_F(Obj, golden_files)
{
    node_tools::named("lambert", "existing_shader");
    for (const auto& v : goldenVectors("scenefile", "read_obj")) {
        json groups = json::array();
        for (const RtNode* node : nodesOf(v.at("in").at("text")))
            groups.push_back({ { "name", nameOf(node) },
                               { "vlist", elements(node, "vlist", 3) },
                               { "nlist", elements(node, "nlist", 3) },
                               { "uvlist", elements(node, "uvlist", 2) },
                               { "vidxs", indices(node, "vidxs") },
                               { "nidxs", indices(node, "nidxs") },
                               { "uvidxs", indices(node, "uvidxs") },
                               { "nsides", indices(node, "nsides") },
                               { "smoothing", RvNodeGetBool(node, "smoothing") },
                               { "shader", shaderOf(node) } });
        expectGolden(v, "groups", groups);
        const std::string parsed =
            formatted("[obj] parsed %d nodes in %d lines in", v.at("out").at("nodes").get<int>(),
                      v.at("out").at("lines").get<int>());
        EXPECT_EQ(summary(), parsed) << goldenId(v);
        while (RtNode* const b = RvNodeLookUpByName("b"))
            RvNodeDestroy(b);
        for (const char* name : { "c", "n" })
            RvNodeDestroy(RvNodeLookUpByName(name));
    }
}

// ---- Opening ----

TEST_F(Obj, a_file_needs_a_name)
{
    for (const char* name : { static_cast<const char*>(nullptr), "" }) {
        EXPECT_EQ(readNothing(name), 0);
        ASSERT_FALSE(messages().empty());
        EXPECT_EQ(messages().back().severity, 2);
        EXPECT_EQ(takeProblem(), "can't open file, no filename supplied");
    }
}

TEST_F(Obj, a_name_may_have_1023_characters)
{
    const std::string longest(1023, 'x');
    EXPECT_EQ(readNothing(longest.c_str()), 0);
    EXPECT_EQ(takeProblem(), "Could not open .obj file " + longest);
    EXPECT_EQ(readNothing((longest + "x").c_str()), 0);
    EXPECT_EQ(takeProblem(), "filename too long (size is 1024, max is 1024): " + longest + "x");
}

TEST_F(Obj, a_file_that_cannot_be_opened_is_reported)
{
    EXPECT_EQ(readNothing("/nowhere/x.obj"), 0);
    ASSERT_EQ(messages().size(), 1u);
    EXPECT_EQ(messages().back().severity, 2);
    EXPECT_EQ(takeProblem(), "Could not open .obj file /nowhere/x.obj");
}

TEST_F(Obj, nothing_is_read_without_a_universe)
{
    RvEnd();
    messages().clear();
    EXPECT_EQ(readNothing(""), 0);
    EXPECT_TRUE(messages().empty());
}

TEST_F(Obj, an_empty_file_makes_one_empty_mesh)
{
    const RtNode* const node = nodeOf("");
    for (const char* param : { "vidxs", "nidxs", "uvidxs", "nsides" })
        EXPECT_EQ(arrayOf(node, param), "UINT 0x1:") << param;
    EXPECT_EQ(arrayOf(node, "vlist"), "POINT 0x1:");
    EXPECT_EQ(arrayOf(node, "nlist"), "VECTOR 0x1:");
    EXPECT_EQ(arrayOf(node, "uvlist"), "POINT2 0x1:");
    EXPECT_EQ(messages().back().mask, RV_LOG_INFO);
    EXPECT_EQ(summary(), "[obj] parsed 1 nodes in 0 lines in");
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Obj, a_compressed_file_is_read_like_a_plain_one)
{
    std::string text;
    for (int i = 0; i < 20000; ++i)
        text += formatted("v %d %g 3\n", i, i * 0.25);
    text += "f 1 2 3\n";
    const gzFile file = gzopen(path().c_str(), "wb");
    gzwrite(file, text.data(), unsigned(text.size()));
    gzclose(file);
    const RtNode* const packed = nodesOfFile().at(0);
    EXPECT_EQ(summary(), "[obj] parsed 1 nodes in 20001 lines in");
    const RtNode* const plain = nodeOf(text);
    EXPECT_EQ(arrayOf(packed, "vlist"), arrayOf(plain, "vlist"));
    EXPECT_EQ(arrayOf(packed, "vidxs"), "UINT 3x1: 0, 1, 2");
}

TEST_F(Obj, a_damaged_file_is_read_up_to_the_fault)
{
    std::string text;
    std::mt19937 random(1);
    for (int i = 0; i < 30000; ++i)
        text += formatted("v %d %u 3\n", i, unsigned(random()));
    gzFile file = gzopen(path().c_str(), "wb");
    gzwrite(file, text.data(), unsigned(text.size()));
    gzclose(file);
    std::filesystem::resize_file(path(), std::filesystem::file_size(path()) / 2);
    const RtNode* const node = nodesOfFile().at(0);
    EXPECT_GT(RvNodeGetArray(node, "vlist")->nelements, 1000u);
    EXPECT_LT(RvNodeGetArray(node, "vlist")->nelements, 30000u);
    EXPECT_NE(takeProblem().find(": the file is read up to a fault: "), std::string::npos);
}

TEST_F(Obj, a_folder_holds_no_text)
{
    std::filesystem::create_directory(path());
    const RtNode* const node = nodesOfFile().at(0);
    EXPECT_EQ(arrayOf(node, "vlist"), "POINT 0x1:");
    EXPECT_NE(takeProblem().find(": the file is read up to a fault: "), std::string::npos);
}

// ---- Groups ----

TEST_F(Obj, indices_of_each_group_begin_at_its_own_elements)
{
    const std::vector<RtNode*> nodes = nodesOf("g a\n"
                                               "v 0 0 0\nv 1 0 0\nv 0 1 0\n"
                                               "vn 0 0 1\nvn 0 0 2\n"
                                               "vt 0 0\n"
                                               "f 1/1/1 2/1/2 3/1/1\n"
                                               "g b\n"
                                               "v 5 0 0\nv 6 0 0\nv 5 1 0\n"
                                               "vn 0 0 3\n"
                                               "vt 1 0\nvt 1 1\n"
                                               "f 4/2/3 5/3/3 6/2/3\n");
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_STREQ(RvNodeGetName(nodes[0]), "a");
    EXPECT_STREQ(RvNodeGetName(nodes[1]), "b");
    EXPECT_EQ(arrayOf(nodes[0], "vidxs"), "UINT 3x1: 0, 1, 2");
    EXPECT_EQ(arrayOf(nodes[0], "nidxs"), "UINT 3x1: 0, 1, 0");
    EXPECT_EQ(arrayOf(nodes[0], "uvidxs"), "UINT 3x1: 0, 0, 0");
    EXPECT_EQ(arrayOf(nodes[1], "vidxs"), "UINT 3x1: 0, 1, 2");
    EXPECT_EQ(arrayOf(nodes[1], "nidxs"), "UINT 3x1: 0, 0, 0");
    EXPECT_EQ(arrayOf(nodes[1], "uvidxs"), "UINT 3x1: 0, 1, 0");
    EXPECT_EQ(arrayOf(nodes[1], "vlist"), "POINT 3x1: 5 0 0, 6 0 0, 5 1 0");
    EXPECT_EQ(arrayOf(nodes[1], "nlist"), "VECTOR 1x1: 0 0 3");
    EXPECT_EQ(arrayOf(nodes[1], "uvlist"), "POINT2 2x1: 1 0, 1 1");
    EXPECT_EQ(arrayOf(nodes[1], "nsides"), "UINT 1x1: 3");
}

TEST_F(Obj, faces_without_a_group_make_one_unnamed_mesh)
{
    const RtNode* const node = nodeOf("v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
    EXPECT_TRUE(nameOf(node).is_null());
    EXPECT_EQ(arrayOf(node, "nsides"), "UINT 1x1: 3");
}

TEST_F(Obj, a_group_without_faces_goes_on_under_the_next_name)
{
    const RtNode* const node = nodeOf("g a\nv 0 0 0\ng b\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
    EXPECT_STREQ(RvNodeGetName(node), "b");
    EXPECT_EQ(arrayOf(node, "vidxs"), "UINT 3x1: 0, 1, 2");
    EXPECT_TRUE(nameOf(nodeOf("g a\ng\nv 0 0 0\n")).is_null());
}

TEST_F(Obj, the_last_group_needs_no_faces)
{
    const std::vector<RtNode*> nodes = nodesOf("v 0 0 0\nf 1 1 1\ng last\n");
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_STREQ(RvNodeGetName(nodes[1]), "last");
    EXPECT_EQ(summary(), "[obj] parsed 2 nodes in 3 lines in");
}

TEST_F(Obj, smoothing_and_shader_last_until_they_change)
{
    node_tools::named("lambert", "red");
    const std::vector<RtNode*> nodes = nodesOf("s 1\nusemtl red\nv 0 0 0\nf 1 1 1\n"
                                               "g b\nf 1 1 1\n"
                                               "g c\ns off\nusemtl missing\nf 1 1 1\n");
    ASSERT_EQ(nodes.size(), 3u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(RvNodeGetBool(nodes[size_t(i)], "smoothing"), i < 2) << i;
        EXPECT_EQ(shaderOf(nodes[size_t(i)]), i < 2 ? json("red") : json()) << i;
    }
}

TEST_F(Obj, only_1_turns_smoothing_on)
{
    static const struct {
        const char* line;
        bool smoothing;
    } cases[] = {
        { "s 1", true }, { "s on", false },   { "s off", false }, { "s 0", false },
        { "s", false },  { "s 01", false },   { "s 1 2", true },  { "s  1\r", true },
        { "s1", false }, { "s 1\ns", false }, { "s 2", false },   { "s 1x", false },
    };
    for (const auto& c : cases)
        EXPECT_EQ(RvNodeGetBool(nodeOf(c.line), "smoothing"), c.smoothing) << c.line;
}

TEST_F(Obj, a_material_is_the_name_of_a_node)
{
    node_tools::named("lambert", "red");
    EXPECT_EQ(shaderOf(nodeOf("usemtl red\n")), "red");
    EXPECT_EQ(shaderOf(nodeOf("usemtl missing\n")), json());
    EXPECT_EQ(shaderOf(nodeOf("usemtl red\nusemtl\n")), json());
    EXPECT_EQ(takeProblem(), "");
}

// ---- Faces ----

TEST_F(Obj, corners_give_the_indices_that_their_form_reads)
{
    static const struct {
        const char *faces, *vidxs, *nidxs, *uvidxs;
    } cases[] = {
        { "f 1 2 3", "0 1 2", "", "" },
        { "f 1//1 2//2", "0 1", "", "" },
        { "f 4/5/6", "3", "5", "4" },
        // Required: of a pair the normal is the last one that was read, none yet being 0.
        { "f 1/2", "0", "-1", "" },
        { "f 1/2/3 4/5", "0 3", "2 2", "1" },
        { "f 1/2/3\nf 4/5\nf 6/7/8 9/1", "0 3 5 8", "2 2 7 7", "1 6" },
        // Required: nothing is tested, so indices wrap below zero.
        { "f 0 -1", "-1 -2", "", "" },
        { "f 4294967296 4294967297", "-1 0", "", "" },
        { "f 1/2/3x 1.5 2/x 3/4/", "0 0 1 2", "2 2", "1" },
        { "f 7 x y/1", "6 6 6", "", "" },
        { "f +1/+2/+3", "0", "2", "1" },
    };
    for (const auto& c : cases) {
        const RtNode* const node = nodeOf(c.faces);
        EXPECT_EQ(indicesOf(node, "vidxs"), c.vidxs) << c.faces;
        EXPECT_EQ(indicesOf(node, "nidxs"), c.nidxs) << c.faces;
        EXPECT_EQ(indicesOf(node, "uvidxs"), c.uvidxs) << c.faces;
    }
}

TEST_F(Obj, faces_have_as_many_sides_as_tokens)
{
    EXPECT_EQ(indicesOf(nodeOf("f\nf 1\n f  1 2\t3 \r\nf 1 2 3 4 \n"), "nsides"), "0 1 3 4");
}

TEST_F(Obj, long_lines_are_read_in_pieces)
{
    // Pieces of 299 characters: the numbers after the first piece begin no statement.
    std::string line = "f";
    for (int i = 0; i < 99; ++i)
        line += " 11";
    ASSERT_EQ(line.size(), 298u);
    EXPECT_EQ(indicesOf(nodeOf(line + "\n"), "nsides"), "99");
    EXPECT_EQ(summary(), "[obj] parsed 1 nodes in 1 lines in");
    const RtNode* const cut = nodeOf(line + " 22 33\n");
    EXPECT_EQ(indicesOf(cut, "nsides"), "99");
    EXPECT_EQ(summary(), "[obj] parsed 1 nodes in 2 lines in");
    // A piece may happen to look like a statement.
    const RtNode* const odd = nodeOf(std::string(299, '#') + "v 1 2 3\n");
    EXPECT_EQ(arrayOf(odd, "vlist"), "POINT 1x1: 1 2 3");
    EXPECT_EQ(summary(), "[obj] parsed 1 nodes in 2 lines in");
    EXPECT_EQ(arrayOf(nodeOf(std::string(298, '#') + "\nv 1 2 3"), "vlist"), "POINT 1x1: 1 2 3");
    EXPECT_EQ(summary(), "[obj] parsed 1 nodes in 2 lines in");
}

TEST_F(Obj, lines_across_the_reading_buffer_are_whole)
{
    for (int shift = 0; shift < 40; ++shift) {
        std::string text(size_t(shift), '#');
        text += "\n";
        int count = 0;
        while (text.size() < 600000)
            text += formatted("v %d 0.5 -2.25\n", count++);
        const RtArray* const points = RvNodeGetArray(nodeOf(text), "vlist");
        ASSERT_EQ(points->nelements, unsigned(count));
        for (unsigned i = 0; i < points->nelements; ++i)
            ASSERT_EQ(RvArrayGetPnt(points, i).x, float(i)) << shift;
    }
}

TEST_F(Obj, statements_it_does_not_know_are_passed_over)
{
    const RtNode* const node =
        nodeOf("# v 1 1 1\no thing\nmtllib x.mtl\nvp 1 2\nl 1 2\np 1\n\n   \nv\t1 2 3\nV 1 1 1\n");
    EXPECT_EQ(arrayOf(node, "vlist"), "POINT 1x1: 1 2 3");
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Obj, numbers_are_read_as_far_as_they_go)
{
    static const struct {
        const char *line, *point;
    } cases[] = {
        { "v 1 2 3", "1 2 3" },
        { "v 1 2", "1 2 0" },
        { "v", "0 0 0" },
        { "v x 1 2", "0 0 0" },
        { "v 1 x 2", "1 0 0" },
        { "v 1,2,3", "1 0 0" },
        { "v 1e2 -.5 +3.", "100 -0.5 3" },
        { "v 1.5.25 3", "1.5 0.25 3" },
        { "v 0x10 0x1p-1 2", "16 0.5 2" },
        { "  v  1   2\t3  \r", "1 2 3" },
        { "v 1 2 3 4 5 6", "1 2 3" },
        { "v 1e-50 1e-42 0", "0 1.0005271e-42 0" },
    };
    for (const auto& c : cases)
        EXPECT_EQ(arrayOf(nodeOf(c.line), "vlist"), std::string("POINT 1x1: ") + c.point) << c.line;
    EXPECT_EQ(arrayOf(nodeOf("vt 0.5 0.25 9\nvt 1"), "uvlist"), "POINT2 2x1: 0.5 0.25, 1 0");
}

TEST_F(Obj, numbers_that_no_node_takes_leave_its_default)
{
    const RtNode* const node = nodeOf("v 1e99 0 0\nvn nan 0 0\nvt 1 2\n");
    EXPECT_EQ(takeProblems(), (std::vector<std::string>{
                                  formatted("ignoring parameter vlist on %s (found: nans or infs)",
                                            RvNodeGetName(node)),
                                  formatted("ignoring parameter nlist on %s (found: nans or infs)",
                                            RvNodeGetName(node)) }));
    EXPECT_EQ(arrayOf(node, "uvlist"), "POINT2 1x1: 1 2");
}

TEST_F(Obj, zero_bytes_end_the_line_they_are_in)
{
    const std::string text("v 1 2\0 3\nv 4 5 6\n\0v 1 1 1\n", 26);
    EXPECT_EQ(arrayOf(nodeOf(text), "vlist"), "POINT 2x1: 1 2 0, 4 5 6");
}

TEST_F(Obj, a_type_on_the_ignore_list_makes_no_nodes)
{
    RtArray* const ignored = RvArray(1, 1, RV_TYPE_STRING, "polymesh");
    rv::the_frame->scene->setIgnored(ignored);
    RvArrayDestroy(ignored);
    EXPECT_TRUE(nodesOf("v 0 0 0\nf 1 1 1\n").empty());
    EXPECT_EQ(summary(), "[obj] parsed 1 nodes in 2 lines in");
}

TEST_F(Obj, an_exhausted_heap_is_a_failure_without_harm)
{
    std::string text = "g a\n";
    for (int i = 0; i < 300; ++i)
        text += "v 1 2 3\nvt 1 2\nvn 1 2 3\nf 1/2/3 4/5/6 7/8/9\n";
    std::ofstream(path()) << text;
    int failures = 0;
    for (int allowed = 0; allowed < 120; ++allowed) {
        RtList* const list = RvList(nullptr);
        rv::limitAllocations(allowed);
        {
            RtObjReader reader;
            failures += !reader.read(path().c_str(), list);
        }
        rv::limitAllocations(-1);
        for (RtListNode* e = RvListHead(list); e; e = e->next)
            RvNodeDestroy(static_cast<RtNode*>(e->data));
        RvListDestroy(list);
    }
    EXPECT_GT(failures, 10);
    EXPECT_LT(failures, 119);
}

TEST_F(Obj, a_reader_starts_anew_with_every_file)
{
    node_tools::named("lambert", "red");
    RtList* const list = RvList(nullptr);
    RtObjReader reader;
    std::ofstream(path()) << "g a\ns 1\nusemtl red\nv 1 2 3\nv 4 5 6\nvn 0 0 1\nvt 0 1\nf 1/1/1\n";
    EXPECT_EQ(reader.read(path().c_str(), list), 1);
    std::ofstream(path()) << "v 7 8 9\nf 1/\n";
    EXPECT_EQ(reader.read(path().c_str(), list), 1);
    EXPECT_EQ(summary(), "[obj] parsed 1 nodes in 2 lines in");
    ASSERT_EQ(RvListSize(list), 2u);
    const RtNode* const second = static_cast<RtNode*>(RvListTail(list)->data);
    RvListDestroy(list);
    EXPECT_EQ(nameOf(second), json());
    EXPECT_EQ(shaderOf(second), json());
    EXPECT_FALSE(RvNodeGetBool(second, "smoothing"));
    EXPECT_EQ(RvNodeGetArray(second, "vlist")->nelements, 1u);
    EXPECT_EQ(indicesOf(second, "vidxs"), "0");
}

// ---- Numbers ----

namespace {

// Texts around the notations of numbers, from their characters.
std::string oddText(std::mt19937& random)
{
    static const char* const parts[] = {
        "0",
        "1",
        "12",
        "9",
        "345678",
        "0000",
        ".",
        "-",
        "+",
        "e",
        "E",
        "e5",
        "e-3",
        "E+7",
        "x",
        "0x",
        "0x1a",
        "p3",
        "inf",
        "infinity",
        "nan",
        "nan(1)",
        " ",
        "\t",
        "/",
        "//",
        ",",
        "a",
        "e400",
        "-0",
        "99999999999999999999",
        "i",
        "n",
        "\v",
        "\f",
        "1e39",
        "1e-46",
        "3.4028235e38",
        "1.17549435e-38",
        "16777217",
    };
    std::string text;
    for (int n = int(random() % 9); n >= 0; --n)
        text += parts[random() % std::size(parts)];
    return text;
}

} // namespace

TEST(ObjNumbers, floats_are_those_of_the_c_library)
{
    std::mt19937 random(1);
    for (int i = 0; i < 400000; ++i) {
        const std::string text = oddText(random);
        float want[3] = { 7, 8, 9 }, got[3] = { 7, 8, 9 };
        const int read =
            std::max(sscanf(text.c_str(), "%f %f %f", &want[0], &want[1], &want[2]), 0);
        ASSERT_EQ(rv::scanFloats(text.c_str(), got, 3), read) << '"' << text << '"';
        ASSERT_EQ(memcmp(got, want, sizeof want), 0) << '"' << text << '"';
    }
}

TEST(ObjNumbers, decimal_floats_are_those_of_the_c_library)
{
    std::mt19937_64 random(2);
    for (int i = 0; i < 400000; ++i) {
        const uint64_t bits = random();
        float value;
        memcpy(&value, &bits, sizeof value);
        static const char* const formats[] = { "%.9g", "%.6f", "%.3e", "%.17g", "%.8g", "%+.12f" };
        char text[128];
        snprintf(text, sizeof text, formats[bits >> 32 & 3],
                 double(std::isfinite(value) ? value : 1.5f));
        float want = 0, got = 0;
        ASSERT_EQ(sscanf(text, "%f", &want), 1);
        ASSERT_EQ(rv::scanFloats(text, &got, 1), 1) << text;
        ASSERT_EQ(memcmp(&got, &want, sizeof want), 0) << text;
    }
}

TEST(ObjNumbers, corners_are_those_of_the_c_library)
{
    std::mt19937 random(3);
    for (int i = 0; i < 400000; ++i) {
        const std::string text = oddText(random);
        uint32_t want[3] = { 7, 8, 9 }, got[3] = { 7, 8, 9 };
        const int read =
            std::max(sscanf(text.c_str(), "%u/%u/%u", &want[0], &want[1], &want[2]), 0);
        ASSERT_EQ(rv::scanCorner(text.c_str(), got), read) << '"' << text << '"';
        ASSERT_EQ(memcmp(got, want, sizeof want), 0) << '"' << text << '"';
    }
}

// ---- Renders ----

namespace {
class ObjInRender : public render_tools::RenderLog {};
} // namespace

TEST_F(ObjInRender, the_summary_names_the_file_and_belongs_to_loading)
{
    const std::string path = ::testing::TempDir() + "obj.render." + std::to_string(getpid());
    std::ofstream(path) << "v 0 0 0\n";
    installActor();
    RvNode("actor");
    static std::vector<std::pair<int, std::string>> seen;
    seen.clear();
    render_tools::actions().initialize = [&](RtNode*) {
        RvMsgSetCallback([](int mask, int, const char* text, int) {
            seen.push_back({ mask, text });
        });
        RtList* const list = RvList(nullptr);
        RtObjReader reader;
        EXPECT_EQ(reader.read(path.c_str(), list), 1);
        RvListDestroy(list);
        RvMsgSetCallback([](int, int, const char*, int) {});
    };
    RvRender(RV_RENDER_MODE_SETUP);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].first, RV_LOG_LOADING);
    EXPECT_EQ(seen[0].second.rfind("[obj] " + path + ": parsed 1 nodes in 1 lines in ", 0), 0u);
    std::filesystem::remove(path);
}
