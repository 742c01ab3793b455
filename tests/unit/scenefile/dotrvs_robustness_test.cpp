// Tests of the scene reader with hostile and broken files: whatever it reads, it returns.
#include "scene_fixture.h"

#include <random>

// Every statement and value that there is. Blocks of types that are missing would make a cut file
// endless, so there are none.
static const char good_scene[] = R"(### a scene
options
{
 xres 64 # pixels
 outputs 1 1 STRING "RGBA RGBA \"my filter\" driver"
 AA_samples 2
}
persp_camera { name cam fov 45 position 0 0 8 matrix 1 2 MATRIX
  1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1
  1 0 0 0 0 1 0 0 0 0 1 0 1 0 0 1 }
polymesh
{
 name mesh
 nsides 3
 vidxs 3 1 UINT 0 1 2
 vlist 3 1 POINT 0 0 0 1.5e0 0 0 0 1 -0.5
 shader 2 1 NODE red later
 shidxs 1 1 BYTE 0
 smoothing on
 declare tag constant STRING
 tag "some \"text\""
 declare weights varying FLOAT
 weights 3 1 FLOAT 1 2 3
 declare lists constant ARRAY ARRAY
 lists 2 1 ARRAY 1 1 INT 5 2 1 BOOL yes no
}
lambert { name red Kd 0.5 Kd_color 1 0 0 Kd_color.r later @before later }
image { name img filename textures\a.tx sflip maybe filter bilinear }
flat { name later }
override
{
 red Kd 0.25
 future radius 2
 future center 1 2 3
}
include nowhere
)";

TEST_F(SceneFiles, a_good_scene_cut_anywhere_is_loaded)
{
    const std::string text = good_scene;
    for (size_t length = 0; length <= text.size(); ++length) {
        const std::string name = write("cut.rvs", text.substr(0, length));
        // The first letters of a keyword or type are a missing type, which is never closed.
        const bool ends_open = [&] {
            TextInput input(text.substr(0, length));
            int depth = 0;
            std::string type;
            for (std::string token; !(token = input.token()).empty();) {
                if (depth == 0 && token != "}" && token != "{")
                    type = token;
                depth += token == "{" ? 1 : token == "}" ? -1 : 0;
            }
            return depth == 0 && !type.empty() && !RvNodeEntryLookUp(type.c_str()) &&
                   type != "include" && type != "override" && type != "nowhere";
        }();
        if (!ends_open)
            RvRVSLoad(name.c_str());
        RvMsgSetMaxWarnings(1000000);
    }
    EXPECT_EQ(RvRVSLoad(write("whole.rvs", text.substr(0, text.rfind("include"))).c_str()), 0);
    EXPECT_NE(node("mesh"), nullptr);
}

// The tail closes what the damage left open: a quote, and then blocks, each of its lines one.
TEST_F(SceneFiles, damaged_scenes_are_survived)
{
    std::string tail = "\n#\n\"#\n";
    for (int i = 0; i < 20; ++i)
        tail += "sphere { }\n";
    std::mt19937 random(7);
    const std::string text = good_scene;
    static const char pieces[] = "\0\xff\r\n#\"\\{}@ .-0ex\t";
    for (int i = 0; i < 600; ++i) {
        std::string damaged = text;
        for (int k = 0; k < 1 + i % 9; ++k) {
            const size_t at = random() % damaged.size();
            if (random() % 3 == 0)
                damaged.erase(at, random() % 40);
            else if (random() % 2)
                damaged[at] = pieces[random() % (sizeof pieces - 1)];
            else
                damaged.insert(at, damaged.substr(random() % damaged.size(), random() % 60));
        }
        load(damaged + tail);
        messages().clear();
    }
}

TEST_F(SceneFiles, zeros_and_end_markers_are_no_trap)
{
    using namespace std::string_literals;
    loadWell("sphere { name a\0 radius 2 }"s.substr(0, 0) + "sphere { name a }\n\xff junk");
    EXPECT_NE(node("a"), nullptr);
    load("\0\0\0sphere { name b }\0\0"s);
    EXPECT_NE(node("b"), nullptr);
    load("\xff sphere { name c }");
    EXPECT_EQ(node("c"), nullptr); // the input ends at its first byte
    load("sphere\r\n{\r\nname d\r\nradius 2\r\n}\r\n");
    EXPECT_EQ(value("d", "radius"), "FLOAT 1x1: 2");
}

TEST_F(SceneFiles, endless_lines_are_survived)
{
    const std::string endless(2000000, 'x');
    problemsOf("sphere { name s " + endless + " }");
    problemsOf("sphere { name \"" + endless + "\" }");
    problemsOf("#" + endless);
    problemsOf("override { s2 radius " + endless + "\n}");
    problemsOf("image { name i filename " + endless + " }");
    load("sphere { name t radius 2 }");
    EXPECT_EQ(value("t", "radius"), "FLOAT 1x1: 2");
}

TEST_F(SceneFiles, a_file_may_vanish_while_it_is_read)
{
    const std::string name = write("main.rvs", "sphere { name s }");
    RtRVSFile* const file = RvRVSOpenFile(name.c_str(), "r");
    ASSERT_NE(file, nullptr);
    std::filesystem::remove(name);
    EXPECT_EQ(rv::readChar(file), 's');
    EXPECT_EQ(RvRVSCloseFile(file, "r"), 0);
    EXPECT_EQ(RvRVSLoad(name.c_str()), -1);
}

TEST_F(SceneFiles, a_thousand_missing_types_are_reported_once_each)
{
    std::string text;
    for (int i = 0; i < 1000; ++i)
        text += "missing" + std::to_string(i) + " { a }\n";
    load(text + text);
    EXPECT_EQ(takeProblems().size(), 1000u);
    EXPECT_EQ(rv::the_frame->scene->missing_types->nelements, 1000u);
}

// ---- Size ----

TEST_F(SceneFiles, a_line_of_a_hundred_megabytes_is_read_like_any_other)
{
    constexpr size_t length = 100000000;
    loadWell("# " + std::string(length, 'x') + "\nsphere { name after_comment }\n");
    EXPECT_TRUE(node("after_comment"));

    loadWell("sphere { name after_blanks" + std::string(length, ' ') + "radius 3 }\n");
    EXPECT_EQ(value("after_blanks", "radius"), "FLOAT 1x1: 3");

    std::string numbers = "polymesh { name mesh vidxs 25000000 1 UINT ";
    for (size_t i = 0; i < length / 4; ++i)
        numbers += "123 ";
    loadWell(numbers + "smoothing on }\n");
    const RtArray* const read = RvNodeGetArray(node("mesh"), "vidxs");
    ASSERT_EQ(read->nelements, 25000000u);
    EXPECT_EQ(RvArrayGetUInt(read, 24999999), 123u);
    EXPECT_EQ(value("mesh", "smoothing"), "1");
}

TEST_F(SceneFiles, ten_thousand_files_inside_each_other_are_refused_in_the_end)
{
    constexpr int files = 10000;
    for (int i = 0; i < files; ++i)
        write(node_tools::formatted("%d.rvs", i),
              node_tools::formatted("sphere { name s%d }\ninclude ", i) +
                  path(node_tools::formatted("%d.rvs", i + 1)) + "\n");
    EXPECT_EQ(RvRVSLoad(path("0.rvs").c_str()), -1);
    const auto problems = takeProblems();
    ASSERT_FALSE(problems.empty());
    EXPECT_NE(problems[0].find("scene files are nested deeper than 200"), std::string::npos);
    EXPECT_TRUE(node("s199"));
    loadWell("sphere { name afterwards }");
}
