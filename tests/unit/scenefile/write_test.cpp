// RvRVSWrite: which nodes it writes, what it tells, what it leaves of the scene and of older files.
#include "write_tools.h"

#include "frame.h"
#include "objects/gobject.h"
#include "objects/proc.h"
#include "rv_procedural.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

using namespace write_tools;

static int sync_count = 0;
static int sync_failure = 0; // as in errno

// Takes the place of the function of the system.
extern "C" int fsync(int descriptor)
{
    ++sync_count;
    errno = sync_failure;
    return sync_failure ? -1 : int(syscall(SYS_fsync, descriptor));
}

class SceneWriting : public Universe {
protected:
    void TearDown() override
    {
        rv::scene_file_line = -1;
        Universe::TearDown();
    }

    // A folder of its own that is empty at the end, hidden files included.
    struct Folder {
        Folder()
        {
            static int serial = 0;
            path = (std::filesystem::temp_directory_path() /
                    formatted("ruvell_write_%d_%d", int(getpid()), serial++))
                       .string();
            std::filesystem::create_directory(path);
        }
        ~Folder() { std::filesystem::remove_all(path); }
        Folder(const Folder&) = delete;
        Folder& operator=(const Folder&) = delete;

        std::string file(const std::string& name) const { return path + "/" + name; }
        std::string read(const std::string& name) const
        {
            std::ifstream in(file(name), std::ios::binary);
            return { std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>() };
        }
        std::vector<std::string> names() const
        {
            std::vector<std::string> found;
            for (const auto& entry : std::filesystem::directory_iterator(path))
                found.push_back(entry.path().filename().string());
            std::sort(found.begin(), found.end());
            return found;
        }

        std::string path;
    };

    // Has getters and setters ignore a parameter, "type.name".
    static void ignore(const char* param)
    {
        RtArray* const names = RvArray(1, 1, RV_TYPE_STRING, param);
        rv::the_frame->scene->setIgnored(names);
        RvArrayDestroy(names);
    }

    // Texts of plain messages that begin like this.
    static std::vector<std::string> told(const std::string& beginning)
    {
        std::vector<std::string> texts;
        for (const LoggedMessage& m : messages())
            if (m.severity == 0 && m.text.rfind(beginning, 0) == 0)
                texts.push_back(m.text);
        return texts;
    }
};

static std::string unzipped(const std::string& path)
{
    gzFile file = gzopen(path.c_str(), "rb");
    EXPECT_EQ(gzdirect(file), 0) << path << " is not compressed";
    std::string text;
    char piece[4096];
    for (int n; (n = gzread(file, piece, sizeof piece)) > 0;)
        text.append(piece, size_t(n));
    EXPECT_EQ(gzclose(file), Z_OK);
    return text;
}

// ---- The file ----

TEST_F(SceneWriting, the_header_tells_time_and_version)
{
    const Folder folder;
    EXPECT_EQ(RvRVSWrite(folder.file("a.rvs").c_str(), RV_NODE_CAMERA, false), 0);
    EXPECT_TRUE(matches(folder.read("a.rvs"),
                        "### exported: [A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] "
                        "[0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4}\n"
                        "### from:     Ruvell 3\\.3\\.6\\.0 [^\n]*\n\n\n\n"))
        << folder.read("a.rvs");
    EXPECT_NE(folder.read("a.rvs").find(RvGetVersionInfo()), std::string::npos);
}

TEST_F(SceneWriting, names_ending_in_gz_are_compressed)
{
    const Folder folder;
    named("lambert", "l");
    ASSERT_EQ(RvRVSWrite(folder.file("a.rvs.gz").c_str(), RV_NODE_SHADER, false), 0);
    EXPECT_EQ(belowHeader(unzipped(folder.file("a.rvs.gz"))), "lambert\n{\n name l\n}\n\n");
    EXPECT_EQ(folder.names(), std::vector<std::string>{ "a.rvs.gz" });
}

TEST_F(SceneWriting, large_scenes_compress_whole)
{
    const Folder folder;
    RvNodeSetBool(RvUniverseGetOptions(), "preserve_scene_data", true);
    RtNode* const node = named("lambert", "l");
    RvNodeDeclare(node, "data", "constant ARRAY FLOAT");
    RtArray* const array = RvArrayAllocate(300000, 1, RV_TYPE_FLOAT);
    for (unsigned i = 0; i < 300000; ++i)
        RvArraySetFlt(array, i, float(i) / 7);
    RvNodeSetArray(node, "data", array);
    ASSERT_EQ(RvRVSWrite(folder.file("a.gz").c_str(), RV_NODE_SHADER, false), 0);
    ASSERT_EQ(RvRVSWrite(folder.file("a").c_str(), RV_NODE_SHADER, false), 0);
    EXPECT_EQ(belowHeader(unzipped(folder.file("a.gz"))), belowHeader(folder.read("a")));
    EXPECT_GT(folder.read("a").size(), 2000000u);
}

TEST_F(SceneWriting, an_older_file_is_replaced)
{
    const Folder folder;
    std::ofstream(folder.file("a.rvs")) << std::string(100000, 'x');
    EXPECT_EQ(RvRVSWrite(folder.file("a.rvs").c_str(), RV_NODE_CAMERA, false), 0);
    EXPECT_EQ(folder.read("a.rvs").substr(0, 13), "### exported:");
    EXPECT_LT(folder.read("a.rvs").size(), 200u);
    EXPECT_EQ(folder.names(), std::vector<std::string>{ "a.rvs" });
}

TEST_F(SceneWriting, links_stay_and_the_file_they_lead_to_is_replaced)
{
    const Folder folder;
    std::ofstream(folder.file("real")) << "old";
    std::filesystem::create_symlink("real", folder.file("link.gz"));
    EXPECT_EQ(RvRVSWrite(folder.file("link.gz").c_str(), RV_NODE_CAMERA, false), 0);
    EXPECT_TRUE(std::filesystem::is_symlink(folder.file("link.gz")));
    EXPECT_EQ(unzipped(folder.file("real")).substr(0, 13), "### exported:");
}

TEST_F(SceneWriting, a_replaced_file_keeps_its_permissions)
{
    const Folder folder;
    for (const char* const name : { "a.rvs", "a.gz" })
        for (const mode_t mode : { 0600, 0664, 0755 }) {
            std::ofstream(folder.file(name)) << "old";
            ASSERT_EQ(chmod(folder.file(name).c_str(), mode), 0);
            EXPECT_EQ(RvRVSWrite(folder.file(name).c_str(), RV_NODE_CAMERA, false), 0);
            EXPECT_NE(folder.read(name), "old");
            EXPECT_EQ(std::filesystem::status(folder.file(name)).permissions(),
                      std::filesystem::perms(mode))
                << name;
        }
}

namespace {

// Files are refused for the scope as they are to a user without privileges.
struct WithoutPrivileges {
    WithoutPrivileges() : user(geteuid())
    {
        constexpr uid_t nobody = 65534;
        EXPECT_EQ(user == 0 ? seteuid(nobody) : 0, 0);
    }
    ~WithoutPrivileges()
    {
        if (user == 0) {
            EXPECT_EQ(seteuid(user), 0);
            prctl(PR_SET_DUMPABLE, 1); // the search for leaks needs it
        }
    }
    WithoutPrivileges(const WithoutPrivileges&) = delete;
    WithoutPrivileges& operator=(const WithoutPrivileges&) = delete;

    uid_t user;
};

} // namespace

TEST_F(SceneWriting, a_file_in_a_folder_that_takes_no_new_ones_is_written_directly)
{
    const Folder folder;
    for (const char* const name : { "a.rvs", "a.gz" }) {
        std::ofstream(folder.file(name)) << std::string(100000, 'x');
        ASSERT_EQ(chmod(folder.file(name).c_str(), 0666), 0);
    }
    std::ofstream(folder.file("fixed.rvs")) << "old";
    ASSERT_EQ(chmod(folder.file("fixed.rvs").c_str(), 0444), 0);
    ASSERT_EQ(chmod(folder.path.c_str(), 0555), 0);
    {
        const WithoutPrivileges nobody;
        for (const char* const name : { "a.rvs", "a.gz" })
            EXPECT_EQ(RvRVSWrite(folder.file(name).c_str(), RV_NODE_CAMERA, false), 0);
        EXPECT_EQ(takeProblem(), "");
        for (const char* const name : { "new.rvs", "fixed.rvs" }) {
            EXPECT_EQ(RvRVSWrite(folder.file(name).c_str(), RV_NODE_CAMERA, false), RV_ERROR);
            EXPECT_EQ(takeProblem(), "can't open .rvs file \"" + folder.file(name) + "\"");
        }
    }
    ASSERT_EQ(chmod(folder.path.c_str(), 0755), 0);
    EXPECT_EQ(belowHeader(folder.read("a.rvs")), "");
    EXPECT_EQ(belowHeader(unzipped(folder.file("a.gz"))), "");
    EXPECT_EQ(folder.read("fixed.rvs"), "old");
    EXPECT_EQ(folder.names(), (std::vector<std::string>{ "a.gz", "a.rvs", "fixed.rvs" }));
}

TEST_F(SceneWriting, a_file_is_on_the_disk_before_it_replaces_the_older_one)
{
    const Folder folder;
    for (const char* const name : { "a.rvs", "a.gz" }) {
        std::ofstream(folder.file(name)) << "old";
        sync_count = 0;
        sync_failure = EIO;
        EXPECT_EQ(RvRVSWrite(folder.file(name).c_str(), RV_NODE_CAMERA, false), RV_ERROR);
        sync_failure = 0;
        EXPECT_EQ(sync_count, 1);
        EXPECT_EQ(takeProblem(),
                  "can't write .rvs file \"" + folder.file(name) + "\": Input/output error");
        EXPECT_EQ(folder.read(name), "old");
        EXPECT_EQ(RvRVSWrite(folder.file(name).c_str(), RV_NODE_CAMERA, false), 0);
        EXPECT_EQ(sync_count, 2);
        EXPECT_NE(folder.read(name), "old");
    }
    EXPECT_EQ(folder.names(), (std::vector<std::string>{ "a.gz", "a.rvs" }));
}

TEST_F(SceneWriting, what_cannot_be_opened_is_an_error)
{
    const Folder folder;
    for (const std::string& name : { folder.path, folder.file("none/a.rvs"), folder.file("") }) {
        EXPECT_EQ(RvRVSWrite(name.c_str(), everything, false), RV_ERROR);
        EXPECT_EQ(takeProblem(), "can't open .rvs file \"" + name + "\"");
    }
    EXPECT_TRUE(folder.names().empty());
}

namespace {

// The system refuses files beyond this size for the scope, as a full disk does.
struct FileSizeLimit {
    explicit FileSizeLimit(rlim_t bytes)
    {
        getrlimit(RLIMIT_FSIZE, &before);
        rlimit limit = before;
        limit.rlim_cur = bytes;
        handler = signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &before);
        signal(SIGXFSZ, handler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

    rlimit before;
    void (*handler)(int);
};

} // namespace

TEST_F(SceneWriting, a_failing_write_leaves_the_older_file)
{
    const Folder folder;
    RvNodeSetBool(RvUniverseGetOptions(), "preserve_scene_data", true);
    RtNode* const node = named("lambert", "l");
    RvNodeDeclare(node, "data", "constant ARRAY RGB");
    RtArray* const array = RvArrayAllocate(100000, 1, RV_TYPE_RGB);
    uint32_t state = 1;
    for (unsigned i = 0; i < 100000; ++i) {
        state = state * 1664525 + 1013904223;
        const RtRGB color = { float(state) / 7e8f, float(state >> 3) / 9e7f, 0.1f };
        RvArraySetRGB(array, i, color);
    }
    RvNodeSetArray(node, "data", array);
    for (const char* const name : { "a.rvs", "a.gz" }) {
        std::ofstream(folder.file(name)) << "old";
        // At the end, in the middle and at once. The time in the header makes a compressed file
        // a byte or two longer or shorter.
        ASSERT_EQ(RvRVSWrite(folder.file("whole").append(name).c_str(), everything, false), 0);
        const auto size = std::filesystem::file_size(folder.file("whole").append(name));
        std::filesystem::remove(folder.file("whole").append(name));
        messages().clear();
        for (const rlim_t limit : { rlim_t(size - 6), rlim_t(size / 2), rlim_t(1) }) {
            int result;
            {
                const FileSizeLimit full(limit);
                result = RvRVSWrite(folder.file(name).c_str(), everything, false);
            }
            EXPECT_EQ(result, RV_ERROR) << name << " " << limit;
            EXPECT_EQ(told("wrote"), std::vector<std::string>{});
            EXPECT_EQ(takeProblem(),
                      "can't write .rvs file \"" + folder.file(name) + "\": File too large");
            EXPECT_EQ(folder.read(name), "old");
        }
    }
    EXPECT_EQ(folder.names(), (std::vector<std::string>{ "a.gz", "a.rvs" }));
}

TEST_F(SceneWriting, a_close_that_cannot_write_the_last_bytes_fails)
{
    const Folder folder;
    for (const char* const name : { "a.rvs", "a.gz" }) {
        RtRVSFile* const file = RvRVSOpenFile(folder.file(name).c_str(), "w");
        ASSERT_TRUE(file);
        EXPECT_GE(file->gzip ? gzputs(file->gzip, "text") : fputs("text", file->plain), 0);
        const FileSizeLimit full(1);
        EXPECT_EQ(RvRVSCloseFile(file, "w"), -1) << name;
        EXPECT_EQ(errno, EFBIG) << name;
        RvRVSDestroyFile(file);
    }
}

// The end of the writing is told when all is handed to the system and the file not yet closed.
TEST_F(SceneWriting, a_failing_close_leaves_the_older_file)
{
    const Folder folder;
    for (const char* const name : { "a.rvs", "a.gz" }) {
        std::ofstream(folder.file(name)) << "old";
        static std::string problem;
        problem.clear();
        RvMsgSetCallback([](int, int severity, const char* text, int) {
            if (severity > 0)
                problem += text;
            if (strncmp(text, "wrote ", 6) != 0)
                return;
            for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
                std::error_code error;
                const auto target = std::filesystem::read_symlink(entry.path(), error).string();
                if (target.find("/.part-") != std::string::npos)
                    close(std::stoi(entry.path().filename().string()));
            }
        });
        EXPECT_EQ(RvRVSWrite(folder.file(name).c_str(), RV_NODE_CAMERA, false), RV_ERROR);
        EXPECT_EQ(problem,
                  "can't write .rvs file \"" + folder.file(name) + "\": Bad file descriptor");
        EXPECT_EQ(folder.read(name), "old");
        RvMsgResetCallback();
    }
    EXPECT_EQ(folder.names(), (std::vector<std::string>{ "a.gz", "a.rvs" }));
}

TEST_F(SceneWriting, a_full_device_is_an_error)
{
    if (!std::filesystem::exists("/dev/full"))
        return;
    EXPECT_EQ(RvRVSWrite("/dev/full", everything, false), RV_ERROR);
    EXPECT_EQ(takeProblem(), "can't write .rvs file \"/dev/full\": No space left on device");
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/full"));
}

TEST_F(SceneWriting, a_command_gets_the_scene)
{
    const Folder folder;
    named("lambert", "l");
    EXPECT_EQ(RvRVSWrite(("|cat > " + folder.file("a")).c_str(), RV_NODE_SHADER, false), 0);
    EXPECT_EQ(belowHeader(folder.read("a")), "lambert\n{\n name l\n}\n\n");
}

TEST_F(SceneWriting, a_failing_command_is_an_error)
{
    EXPECT_EQ(RvRVSWrite("|cat > /dev/null; false", RV_NODE_SHADER, false), RV_ERROR);
    EXPECT_EQ(takeProblem(),
              "can't write .rvs file \"|cat > /dev/null; false\": the command failed");
}

TEST_F(SceneWriting, a_command_that_does_not_read_ends_the_writing)
{
    RtNode* const node = named("lambert", "l");
    RvNodeDeclare(node, "data", "constant ARRAY RGB");
    RvNodeSetArray(node, "data", RvArrayAllocate(1000000, 1, RV_TYPE_RGB));
    EXPECT_EQ(RvRVSWrite("|true", RV_NODE_SHADER, false), RV_ERROR);
    EXPECT_EQ(takeProblem(), "can't write .rvs file \"|true\": Broken pipe");
}

// ---- Messages ----

TEST_F(SceneWriting, begin_and_end_are_told)
{
    const Folder folder;
    named("lambert", "a");
    named("lambert", "b");
    rv::scene_file_line = -1;
    const std::string name = folder.file("a.rvs");
    ASSERT_EQ(RvRVSWrite(name.c_str(), 0x1F, false), 0);
    EXPECT_EQ(told("writing"), std::vector<std::string>{ "writing " + name + " (mask=0x1F) ..." });
    ASSERT_EQ(told("wrote").size(), 1u);
    EXPECT_TRUE(matches(told("wrote")[0], "wrote 3 nodes in 19 lines in 0:[0-9]{2}\\.[0-9]{2}"))
        << told("wrote")[0];
    const std::string text = folder.read("a.rvs");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 20); // one more than was told
    for (const LoggedMessage& m : messages())
        EXPECT_EQ(m.tab, 0) << m.text;
    ASSERT_EQ(RvRVSWrite(name.c_str(), 0x1F, false), 0);
    EXPECT_TRUE(matches(told("wrote")[1], "wrote 3 nodes in 39 lines in 0:.*")) << told("wrote")[1];
}

TEST_F(SceneWriting, messages_on_the_way_are_indented)
{
    const Folder folder;
    ASSERT_TRUE(RvNodeDeclare(named("lambert", "a"), "gone", "uniform FLOAT"));
    rv::disableUserParam(&RvNodeLookUpByName("a")->user_params[0]);
    ASSERT_EQ(RvRVSWrite(folder.file("a").c_str(), everything, false), 0);
    for (const LoggedMessage& m : messages())
        EXPECT_EQ(m.tab, m.severity > 0 ? 1 : 0) << m.text;
    EXPECT_EQ(takeProblems().size(), 1u);
}

TEST_F(SceneWriting, every_ten_thousand_nodes_are_told)
{
    for (int i = 0; i < 20000; ++i)
        RvNode("lambert");
    sceneText(RV_NODE_SHADER);
    std::vector<std::string> texts;
    for (const LoggedMessage& m : messages())
        if (m.mask & RV_LOG_LOADING)
            texts.push_back(m.text);
    EXPECT_EQ(texts, (std::vector<std::string>{ "10000 nodes ...", "20000 nodes ..." }));
    ASSERT_EQ(told("wrote").size(), 1u);
    EXPECT_EQ(told("wrote")[0].substr(0, 17), "wrote 20000 nodes");
}

// ---- Consumed scenes ----

TEST_F(SceneWriting, a_failed_write_consumes_the_scene_too)
{
    for (const char* name : { static_cast<const char*>(nullptr), "" }) {
        rv::the_frame->scene->consumed = false;
        EXPECT_EQ(RvRVSWrite(name, everything, false), RV_ERROR);
        EXPECT_TRUE(rv::the_frame->scene->consumed);
        EXPECT_EQ(takeProblem(), "");
        EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), RV_ERROR_UNRENDERABLE);
        EXPECT_EQ(takeProblem(), "scenegraph is unrenderable:  cannot call RvRender() after a call "
                                 "to RvRVSWrite() - try enabling preserve_scene_data");
    }
    RvNodeSetBool(RvUniverseGetOptions(), "preserve_scene_data", true);
    EXPECT_NE(RvRender(RV_RENDER_MODE_CAMERA), RV_ERROR_UNRENDERABLE);
    takeProblems();
}

TEST_F(SceneWriting, without_a_universe_nothing_is_written)
{
    RvEnd();
    EXPECT_EQ(RvRVSWrite("never.rvs", everything, false), RV_ERROR);
    RvBegin();
}

TEST_F(SceneWriting, a_scene_that_is_rendering_is_not_written)
{
    HookOverride hooks;
    hooks.hooks.rendering = [] { return true; };
    EXPECT_EQ(RvRVSWrite("never.rvs", everything, false), RV_ERROR);
    EXPECT_EQ(takeProblem(),
              "cannot write the scene while rendering; ignoring call to RvRVSWrite()");
    EXPECT_FALSE(rv::the_frame->scene->consumed);
}

TEST_F(SceneWriting, arrays_of_every_passed_node_are_emptied)
{
    RtNode* const mesh = named("polymesh", "m");
    RtNode* const sphere = named("sphere", "s");
    RvNodeSetArray(mesh, "vlist", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 1, 2, 3 }));
    RvNodeSetArray(sphere, "trace_sets", RvArray(1, 1, RV_TYPE_STRING, "set"));
    EXPECT_EQ(nodeNames(sceneText(RV_NODE_SHADER)), ""); // neither is written
    EXPECT_EQ(describe(RvNodeGetArray(mesh, "vlist")), "NONE 0x0:");
    EXPECT_EQ(describe(RvNodeGetArray(sphere, "trace_sets")), "NONE 0x0:");
    EXPECT_EQ(describe(RvNodeGetArray(sphere, "matrix")), "NONE 0x0:");
}

TEST_F(SceneWriting, preserved_scenes_keep_their_arrays)
{
    RvNodeSetBool(RvUniverseGetOptions(), "preserve_scene_data", true);
    RtNode* const mesh = named("polymesh", "m");
    RvNodeSetArray(mesh, "vlist", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 1, 2, 3 }));
    const std::string first = sceneText();
    EXPECT_EQ(describe(RvNodeGetArray(mesh, "vlist")), "POINT 1x1: 1 2 3");
    EXPECT_EQ(sceneText(), first);
}

TEST_F(SceneWriting, an_array_that_cannot_be_read_is_warned_about)
{
    RtNode* const sphere = named("sphere", "s");
    ignore("sphere.trace_sets");
    sceneText(RV_NODE_SHADER);
    EXPECT_EQ(takeProblem(), "s: could not read ARRAY parameter \"trace_sets\"");
    EXPECT_NE(sphere, nullptr);
}

// ---- Which nodes are written ----

TEST_F(SceneWriting, the_mask_chooses_kinds)
{
    named("lambert", "shader");
    named("sphere", "shape");
    named("point_light", "light");
    named("persp_camera", "camera");
    named("gaussian_filter", "filter");
    named("driver_png", "driver");
    RvNodeSetBool(RvUniverseGetOptions(), "preserve_scene_data", true);
    static const struct {
        unsigned mask;
        const char* names;
    } rows[] = {
        { RV_NODE_OPTIONS, "options" },
        { RV_NODE_CAMERA, "camera" },
        { RV_NODE_LIGHT, "light" },
        { RV_NODE_SHAPE, "shape" },
        { RV_NODE_SHADER, "shader" },
        { RV_NODE_DRIVER, "driver" },
        { RV_NODE_FILTER, "filter" },
        { 0, "" },
        { RV_NODE_ALL, "options shader shape light camera filter driver" },
    };
    for (const auto& row : rows)
        EXPECT_EQ(nodeNames(sceneText(row.mask)), row.names);
}

TEST_F(SceneWriting, internal_nodes_are_left_out)
{
    named("list_aggregate", "list");
    named("utility", "own");
    EXPECT_EQ(nodeNames(sceneText(RV_NODE_SHADER | RV_NODE_SHAPE)), "own");
}

TEST_F(SceneWriting, instances_of_nothing_are_left_out)
{
    named("ginstance", "empty");
    RtNode* const filled = named("ginstance", "filled");
    RvNodeSetPtr(filled, "node", named("sphere", "ball"));
    EXPECT_EQ(nodeNames(sceneText(RV_NODE_SHAPE)), "filled ball");
}

TEST_F(SceneWriting, nodes_that_lights_refer_to_are_written_with_them)
{
    for (const char* type : { "spot_light", "point_light" }) {
        RtNode* const light = named(type, type);
        RvNodeSetPtr(light, "volume_density", named("noise", formatted("n_%s", type).c_str()));
    }
    RtNode* const quad = named("quad_light", "quad");
    RvNodeSetPtr(quad, "volume_density", named("noise", "not_by_this_type"));
    RvNodeSetBool(RvUniverseGetOptions(), "preserve_scene_data", true);
    EXPECT_EQ(nodeNames(sceneText(RV_NODE_LIGHT)),
              "spot_light n_spot_light point_light n_point_light quad");
    EXPECT_EQ(nodeNames(sceneText(RV_NODE_CAMERA)), "");
    RvNodeSetBool(RvUniverseGetOptions(), "ignore_lights", true);
    EXPECT_EQ(nodeNames(sceneText(RV_NODE_LIGHT)), "spot_light point_light quad");
}

TEST_F(SceneWriting, falloff_nodes_of_lights_are_written_with_them)
{
    installType(
        "one", [](RtList* p, RtMetaDataStore*) { RvNodeParamPTR(p, -1, "falloff", nullptr); },
        RV_NODE_LIGHT, RV_TYPE_NONE);
    installType(
        "many",
        [](RtList* p, RtMetaDataStore*) {
            RvNodeParamARRAY(p, -1, "falloff", RvArrayAllocate(0, 1, RV_TYPE_POINTER));
        },
        RV_NODE_LIGHT, RV_TYPE_NONE);
    installType(
        "number", [](RtList* p, RtMetaDataStore*) { RvNodeParamFLT(p, -1, "falloff", 1); },
        RV_NODE_LIGHT, RV_TYPE_NONE);
    RtNode* const one = named("one", "one");
    RtNode* const many = named("many", "many");
    named("number", "number");
    named("lambert", "other");
    RvNodeSetPtr(one, "falloff", named("lambert", "a"));
    // The array of the light is emptied before these are reached.
    RtNode* const b = named("lambert", "b");
    RtNode* const c = named("lambert", "c");
    RvNodeSetArray(many, "falloff", RvArray(2, 1, RV_TYPE_POINTER, b, c));
    EXPECT_EQ(nodeNames(sceneText(RV_NODE_LIGHT)), "one many number a b c");
}

TEST_F(SceneWriting, a_light_parameter_that_cannot_be_read_is_warned_about)
{
    named("spot_light", "spot");
    installType(
        "many",
        [](RtList* p, RtMetaDataStore*) {
            RvNodeParamARRAY(p, -1, "falloff", RvArrayAllocate(0, 1, RV_TYPE_FLOAT));
        },
        RV_NODE_LIGHT, RV_TYPE_NONE);
    named("many", "floats");
    ignore("spot_light.volume_density");
    EXPECT_EQ(nodeNames(sceneText(RV_NODE_LIGHT)), "spot floats");
    EXPECT_EQ(takeProblem(), "spot: could not read POINTER parameter \"volume_density\" | "
                             "floats: could not read POINTER parameter \"falloff\"");
}

// ---- Procedurals ----

namespace {

// User code that makes what `recipe` makes.
using Recipe = std::vector<RtNode* (*)()>;
Recipe recipe;

int loadRecipe(RtProcVtable* table)
{
    strcpy(table->version, RV_VERSION);
    table->Init = [](RtNode*, void**) { return 1; };
    table->Cleanup = [](void*) { return 1; };
    table->NumNodes = [](void*) { return int(recipe.size()); };
    table->GetNode = [](void*, int i) { return recipe[size_t(i)](); };
    return 1;
}

} // namespace

static RtNode* proceduralNode(const char* name, RtProcLoaderFunc loader)
{
    RtNode* const node = named("procedural", name);
    RvNodeSetPtr(node, "funcptr", reinterpret_cast<void*>(loader));
    return node;
}

TEST_F(SceneWriting, open_procedurals_are_replaced_by_what_they_create)
{
    recipe = { [] { return named("sphere", "made_1"); }, [] { return named("disc", "made_2"); } };
    const RtVector by = { 1, 2, 3 };
    RtMatrix matrix;
    RvM4Translation(&matrix, &by);
    RtNode* const maker = proceduralNode("maker", loadRecipe);
    RvNodeSetArray(maker, "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &matrix));
    named("sphere", "after");
    const std::string text = sceneText(everything, true);
    // Required: where the procedural stands, before the nodes that follow it.
    EXPECT_EQ(nodeNames(text), "options made_1 made_2 after");
    EXPECT_NE(text.find("### created by maker\nsphere\n{\n name made_1\n matrix \n  1 0 0 0"
                        "\n  0 1 0 0\n  0 0 1 0\n  1 2 3 1 \n}\n\n"),
              std::string::npos)
        << text;
    ASSERT_EQ(told("wrote").size(), 1u);
    EXPECT_EQ(told("wrote")[0].substr(0, 13), "wrote 4 nodes");
}

TEST_F(SceneWriting, closed_procedurals_are_written_themselves)
{
    named("procedural", "closed");
    EXPECT_EQ(nodeNames(sceneText(RV_NODE_SHAPE)), "closed");
}

TEST_F(SceneWriting, nodes_that_procedurals_create_pass_the_same_mask)
{
    recipe = { [] { return named("sphere", "made_1"); },
               [] { return named("lambert", "made_2"); } };
    proceduralNode("maker", loadRecipe);
    EXPECT_EQ(nodeNames(sceneText(RV_NODE_SHADER, true)), "made_2");
}

TEST_F(SceneWriting, procedurals_inside_procedurals_are_opened)
{
    recipe = { [] { return named("sphere", "made"); } };
    static const auto outer = [](RtProcVtable* table) {
        loadRecipe(table);
        table->NumNodes = [](void*) { return 1; };
        table->GetNode = [](void*, int) { return proceduralNode("inner", loadRecipe); };
        return 1;
    };
    proceduralNode("outer", outer);
    EXPECT_EQ(nodeNames(sceneText(RV_NODE_SHAPE, true)), "made");
}

TEST_F(SceneWriting, lights_that_procedurals_create_bring_their_nodes)
{
    recipe = { [] {
        RtNode* const light = named("spot_light", "made");
        RvNodeSetPtr(light, "volume_density", RvNodeLookUpByName("haze"));
        return light;
    } };
    proceduralNode("maker", loadRecipe);
    named("noise", "haze");
    EXPECT_EQ(nodeNames(sceneText(RV_NODE_LIGHT, true)), "made haze");
}

TEST_F(SceneWriting, a_loaded_procedural_is_left_out_and_its_nodes_are_written)
{
    recipe = { [] { return named("sphere", "made"); } };
    RtNode* const maker = proceduralNode("maker", loadRecipe);
    RvNodeSetBool(maker, "load_at_init", true);
    RtNode* const instance = named("ginstance", "again");
    RvNodeSetPtr(instance, "node", maker);
    rv::RvNodeInitialize(maker);
    rv::RvNodeInitialize(instance);
    EXPECT_EQ(nodeNames(sceneText(RV_NODE_SHAPE)), "made");
}

TEST_F(SceneWriting, an_opened_procedural_is_left_out_of_later_files)
{
    recipe = { [] { return named("sphere", "made"); } };
    for (const bool preserves : { false, true }) {
        RvNodeSetBool(RvUniverseGetOptions(), "preserve_scene_data", preserves);
        proceduralNode("maker", loadRecipe);
        EXPECT_EQ(nodeNames(sceneText(RV_NODE_SHAPE, true)), "made");
        EXPECT_EQ(nodeNames(sceneText(RV_NODE_SHAPE, false)), "made");
        EXPECT_EQ(nodeNames(sceneText(RV_NODE_SHAPE, true)), "made");
        EXPECT_EQ(takeProblem(), "");
        TearDown();
        SetUp();
    }
}

TEST_F(SceneWriting, a_procedural_that_cannot_be_told_to_load_is_warned_about)
{
    recipe = { [] { return named("sphere", "made"); } };
    RtNode* const maker = proceduralNode("maker", loadRecipe);
    RvNodeSetPnt(maker, "min", -1, -1, -1);
    RvNodeSetPnt(maker, "max", 1, 1, 1);
    ignore("procedural.load_at_init");
    EXPECT_EQ(nodeNames(sceneText(RV_NODE_SHAPE, true)), "made");
    EXPECT_EQ(takeProblem(), "maker: could not set BOOL parameter \"load_at_init\"");
}

// Of types that a plug-in put in the place of the built-in one.
TEST_F(SceneWriting, load_at_init_may_be_a_user_parameter_or_an_array)
{
    RvNodeSetBool(RvUniverseGetOptions(), "preserve_scene_data", true);
    RvNodeUninstall("procedural");
    ASSERT_TRUE(installType("procedural"));
    RtNode* const maker = named("procedural", "maker");
    ASSERT_TRUE(RvNodeDeclare(maker, "load_at_init", "constant BOOL"));
    EXPECT_EQ(nodeNames(sceneText(RV_NODE_SHADER, true)), "");
    EXPECT_EQ(takeProblem(), "");
    EXPECT_TRUE(RvNodeGetBool(maker, "load_at_init"));
    RvNodeDestroy(maker);

    RvNodeUninstall("procedural");
    ASSERT_TRUE(installType("procedural", [](RtList* params, RtMetaDataStore*) {
        RvNodeParamARRAY(params, -1, "load_at_init", RvArray(0, 1, RV_TYPE_BOOLEAN));
    }));
    RtNode* const empty = named("procedural", "empty");
    RtNode* const three = named("procedural", "three");
    RvNodeSetArray(three, "load_at_init", RvArray(3, 1, RV_TYPE_BOOLEAN, 0, 1, 0));
    EXPECT_EQ(nodeNames(sceneText(RV_NODE_SHADER, true)), "");
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(describe(RvNodeGetArray(empty, "load_at_init")), "BOOL 1x1: 1");
    EXPECT_EQ(describe(RvNodeGetArray(three, "load_at_init")), "BOOL 3x1: 1, 1, 1");
}

// The built-in type stops earlier. This one makes the next of its kind without end.
TEST_F(SceneWriting, procedurals_are_opened_a_hundred_deep)
{
    static int serial;
    serial = 0;
    static const auto makeNext = [] { named("procedural", formatted("p%d", serial++).c_str()); };
    static const RtCommonMethods common = {
        .Parameters = [](RtList*, RtMetaDataStore*) {},
        .Initialize = [](RtNode*, void*) { makeNext(); },
        .Update = [](RtNode*, void*) {},
        .Finish = [](RtNode*) {},
    };
    static const RtNodeMethods methods = { &common, nullptr };
    RvNodeUninstall("procedural");
    RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "procedural", nullptr, &methods, RV_VERSION);
    makeNext();
    named("lambert", "after");
    EXPECT_EQ(nodeNames(sceneText(RV_NODE_SHADER, true)), "after");
    const std::vector<std::string> problems = takeProblems();
    ASSERT_FALSE(problems.empty());
    EXPECT_EQ(problems.back(), "writing rvs: p100 is not written, it is inside 100 procedurals");
    EXPECT_EQ(serial, 101);
}

// Required: the reader and the writer share the counter, which a loaded file leaves at -1.
TEST_F(SceneWriting, required_lines_are_counted_anew_after_a_procedural_of_a_scene_file)
{
    const Folder folder;
    std::ofstream(folder.file("part.rvs")) << "sphere\n{\n name made\n radius 2\n}\n\n\n\n";
    RtNode* const maker = named("procedural", "maker");
    RvNodeSetStr(maker, "dso", folder.file("part.rvs").c_str());
    named("sphere", "after");
    ASSERT_EQ(RvRVSWrite(folder.file("a.rvs").c_str(), everything, true), 0);
    const std::string text = folder.read("a.rvs");
    EXPECT_EQ(nodeNames(text), "options made after");
    const auto made = text.begin() + ptrdiff_t(text.find("### created by maker"));
    const auto lines = int(std::count(made, text.end(), '\n'));
    ASSERT_EQ(told("wrote").size(), 1u);
    const std::string expected = formatted("wrote 3 nodes in %d lines in ", lines - 1);
    EXPECT_EQ(told("wrote")[0].substr(0, expected.size()), expected);
    EXPECT_EQ(takeProblem(), "");
}

// Rays may not have come to it yet.
TEST_F(SceneWriting, a_procedural_that_waits_for_rays_is_opened)
{
    recipe = { [] { return named("sphere", "made"); } };
    for (const bool preserves : { false, true }) {
        RvNodeSetBool(RvUniverseGetOptions(), "preserve_scene_data", preserves);
        RtNode* const maker = proceduralNode("maker", loadRecipe);
        RvNodeSetPnt(maker, "min", -0.5f, -0.5f, -0.5f);
        RvNodeSetPnt(maker, "max", 0.5f, 0.5f, 0.5f);
        rv::RvNodeInitialize(maker);
        ASSERT_TRUE(rv::objectOf(maker));
        EXPECT_EQ(nodeNames(sceneText(RV_NODE_SHAPE, true)), "made");
        EXPECT_EQ(takeProblem(), "");
        TearDown();
        SetUp();
    }
}
