// The message log.
#include "msg.h"

#include "frame_fixture.h"
#include "rv_plugins.h"
#include "system/machine.h"

#include <sstream>
#include <sys/mman.h>
#include <sys/resource.h>

class MessageLog : public BareFrame {
protected:
    void SetUp() override
    {
        BareFrame::SetUp();
        freshMessageState();
    }
    void TearDown() override
    {
        freshMessageState(); // closes the log file
        RvMsgSetConsoleFlags(RV_LOG_WARNINGS | RV_LOG_ERRORS);
        for (const std::string& path : log_files)
            remove(path.c_str());
        BareFrame::TearDown();
    }

    // Path of a log file that is removed after the test.
    std::string logPath(const std::string& name)
    {
        log_files.push_back(tempPath(name));
        return log_files.back();
    }

    static std::vector<std::string> linesOf(const std::string& path)
    {
        std::ifstream file(path);
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);)
            lines.push_back(line);
        return lines;
    }

    // Writes to a log file without header and decorations.
    std::string plainLogFile()
    {
        const std::string path = logPath("log");
        RvMsgResetCallback();
        RvMsgSetLogFileFlags(RV_LOG_ALL & ~(RV_LOG_TIMESTAMP | RV_LOG_MEMORY));
        RvMsgSetLogFileName(path.c_str());
        frame.msg->header_done = true;
        return path;
    }

    static std::vector<std::string> texts()
    {
        std::vector<std::string> all;
        for (const LoggedMessage& m : messages())
            all.push_back(m.text);
        return all;
    }

    std::vector<std::string> log_files;
};

// ------------------------------------------------------------------------------- defaults

TEST_F(MessageLog, starts_with_the_defaults)
{
    EXPECT_EQ(frame.msg->log_file, nullptr);
    EXPECT_EQ(frame.msg->console_flags, 0u);
    EXPECT_EQ(frame.msg->log_file_flags, 0x1FFFu);
    EXPECT_EQ(frame.msg->tab, 0);
    EXPECT_EQ(frame.msg->warning_count, 0u);
    EXPECT_EQ(frame.msg->max_warnings, 100u);
    EXPECT_FALSE(frame.msg->header_done);
}

// Hosts write these numbers into files and command lines.
TEST_F(MessageLog, bits_of_masks_and_flags_have_their_values)
{
    EXPECT_EQ(RV_LOG_INFO, 0x0001);
    EXPECT_EQ(RV_LOG_WARNINGS, 0x0002);
    EXPECT_EQ(RV_LOG_ERRORS, 0x0004);
    EXPECT_EQ(RV_LOG_DEBUG, 0x0008);
    EXPECT_EQ(RV_LOG_STATS, 0x0010);
    EXPECT_EQ(RV_LOG_LOADING, 0x0020);
    EXPECT_EQ(RV_LOG_PLUGINS, 0x0040);
    EXPECT_EQ(RV_LOG_PROGRESS, 0x0080);
    EXPECT_EQ(RV_LOG_NAN, 0x0100);
    EXPECT_EQ(RV_LOG_TIMESTAMP, 0x0200);
    EXPECT_EQ(RV_LOG_MEMORY, 0x0800);
    EXPECT_EQ(RV_LOG_COLOR, 0x1000);
    EXPECT_EQ(RV_LOG_ALL, 0x1FFF);
}

static void logOneOfEach()
{
    RvMsgInfo("info");
    RvMsgDebug("debug");
    RvMsgWarning("warning");
    RvMsgError("error");
    for (const int mask : { RV_LOG_STATS, RV_LOG_LOADING, RV_LOG_PLUGINS, RV_LOG_PROGRESS,
                            RV_LOG_DEBUG | RV_LOG_STATS, RV_LOG_DEBUG | RV_LOG_PLUGINS })
        RvMsgInfoMasked(mask, "masked info %#x", unsigned(mask));
    for (const int mask : { RV_LOG_STATS, RV_LOG_NAN, RV_LOG_DEBUG })
        RvMsgWarningMasked(mask, "masked warning %#x", unsigned(mask));
}

TEST_F(MessageLog, by_default_shows_nothing_on_standard_output)
{
    RvMsgResetCallback();
    testing::internal::CaptureStdout();
    logOneOfEach();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_FALSE(frame.msg->header_done);
}

TEST_F(MessageLog, named_log_file_gets_every_category_with_time_and_memory)
{
    const std::string path = logPath("log");
    RvMsgResetCallback();
    RvMsgSetLogFileName(path.c_str());
    testing::internal::CaptureStdout();
    logOneOfEach();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    const std::vector<std::string> lines = linesOf(path);
    ASSERT_EQ(lines.size(), 4u + 4 + 6 + 3); // header, calls, masked
    for (const std::string& line : lines)
        EXPECT_TRUE(matches(line, "[0-9]{2}:[0-9]{2}:[0-9]{2} [ 0-9]{4}mb .{7} \\| .*")) << line;
    EXPECT_NE(lines[6].find("WARNING | warning"), std::string::npos);
    EXPECT_NE(lines[7].find("ERROR   | error"), std::string::npos);
}

TEST_F(MessageLog, shows_a_message_only_where_every_bit_of_its_mask_is_enabled)
{
    const std::string path = plainLogFile();
    RvMsgSetConsoleFlags(RV_LOG_DEBUG | RV_LOG_INFO);
    RvMsgSetLogFileFlags(RV_LOG_DEBUG | RV_LOG_STATS);
    testing::internal::CaptureStdout();
    RvMsgInfo("info");
    RvMsgDebug("debug");
    RvMsgInfoMasked(RV_LOG_DEBUG | RV_LOG_STATS, "debug and stats");
    RvMsgInfoMasked(RV_LOG_STATS, "stats");
    RvMsgWarning("warning");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "        | info\n        | debug\n");
    EXPECT_EQ(linesOf(path),
              (std::vector<std::string>{ "        | debug", "        | debug and stats",
                                         "        | stats" }));
}

TEST_F(MessageLog, tells_whether_anybody_would_read_a_message)
{
    const int mask = RV_LOG_DEBUG | RV_LOG_STATS;
    RvMsgSetLogFileFlags(0);
    RvMsgSetConsoleFlags(RV_LOG_STATS);
    EXPECT_FALSE(rv::isLogged(mask));
    EXPECT_TRUE(rv::isLogged(RV_LOG_STATS));
    RvMsgSetConsoleFlags(mask);
    EXPECT_TRUE(rv::isLogged(mask));
    RvMsgSetCallback(nullptr);
    EXPECT_FALSE(rv::isLogged(mask)) << "nobody is called";
    RvMsgResetCallback();
    RvMsgSetConsoleFlags(0);
    RvMsgSetLogFileFlags(mask);
    EXPECT_FALSE(rv::isLogged(mask)) << "there is no log file";
    plainLogFile();
    RvMsgSetLogFileFlags(mask);
    EXPECT_TRUE(rv::isLogged(mask));
    rv::the_frame = nullptr;
    EXPECT_FALSE(rv::isLogged(mask));
    rv::the_frame = &frame;
}

TEST_F(MessageLog, passes_mask_severity_text_and_level_to_the_callback)
{
    RvMsgSetConsoleFlags(RV_LOG_ALL & ~RV_LOG_INFO);
    RvMsgTab(2);
    RvMsgDebug("d %d", 1);
    RvMsgWarning("w %s", "two");
    RvMsgError("e %.1f", 3.0);
    RvMsgInfoMasked(RV_LOG_PROGRESS, "%3d%% done", 4);
    RvMsgWarningMasked(RV_LOG_NAN, "n");
    static const struct {
        int mask, severity;
        const char* text;
    } expected[] = {
        { RV_LOG_DEBUG, 0, "d 1" },    { RV_LOG_WARNINGS, 1, "w two" },
        { RV_LOG_ERRORS, 2, "e 3.0" }, { RV_LOG_PROGRESS, 0, "  4% done" },
        { RV_LOG_NAN, 1, "n" },
    };
    ASSERT_EQ(messages().size(), std::size(expected));
    for (size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ(messages()[i].mask, expected[i].mask);
        EXPECT_EQ(messages()[i].severity, expected[i].severity);
        EXPECT_EQ(messages()[i].text, expected[i].text);
        EXPECT_EQ(messages()[i].tab, 2);
    }
}

TEST_F(MessageLog, is_silenced_by_a_null_callback)
{
    const std::string path = plainLogFile();
    RvMsgSetCallback(nullptr);
    RvMsgSetConsoleFlags(RV_LOG_ALL);
    testing::internal::CaptureStdout();
    logOneOfEach();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(linesOf(path).empty());
    RvMsgSetConsoleFlags(0);
    RvMsgResetCallback();
    RvMsgInfo("back");
    EXPECT_EQ(linesOf(path), std::vector<std::string>{ "        | back" });
}

TEST_F(MessageLog, callback_replaces_console_and_log_file_until_it_is_reset)
{
    const std::string path = plainLogFile();
    RvMsgSetCallback(record);
    RvMsgInfo("for the log file alone");
    RvMsgSetConsoleFlags(RV_LOG_ALL & ~(RV_LOG_TIMESTAMP | RV_LOG_MEMORY));
    testing::internal::CaptureStdout();
    RvMsgInfo("for both");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(texts(), (std::vector<std::string>{ "for the log file alone", "for both" }));
    EXPECT_TRUE(linesOf(path).empty());
    RvMsgResetCallback();
    testing::internal::CaptureStdout();
    RvMsgInfo("by the default callback");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "        | by the default callback\n");
    EXPECT_EQ(linesOf(path), std::vector<std::string>{ "        | by the default callback" });
    EXPECT_EQ(messages().size(), 2u);
}

TEST_F(MessageLog, calls_no_callback_for_what_nobody_wants)
{
    logOneOfEach();
    EXPECT_TRUE(messages().empty());
}

// ------------------------------------------------------------------------------- log file

TEST_F(MessageLog, keeps_writing_to_the_first_log_file)
{
    const std::string first = plainLogFile();
    const std::string second = logPath("second");
    RvMsgInfo("one");
    RvMsgSetLogFileName(second.c_str());
    RvMsgInfo("two");
    EXPECT_EQ(linesOf(first), (std::vector<std::string>{ "        | one", "        | two" }));
    EXPECT_FALSE(std::ifstream(second).is_open());
}

TEST_F(MessageLog, ignores_a_log_file_that_cannot_be_opened)
{
    RvMsgSetConsoleFlags(RV_LOG_WARNINGS | RV_LOG_ERRORS);
    RvMsgSetLogFileName((tempPath("missing") + "/folder/log").c_str());
    EXPECT_EQ(frame.msg->log_file, nullptr);
    EXPECT_TRUE(messages().empty());
    RvMsgWarning("still on the console");
    EXPECT_EQ(takeProblem(), "still on the console");
    const std::string path = plainLogFile(); // and a later one may still succeed
    RvMsgInfo("written");
    EXPECT_EQ(linesOf(path).size(), 1u);
}

TEST_F(MessageLog, ignores_a_null_or_empty_log_file_name)
{
    RvMsgSetLogFileName(nullptr);
    RvMsgSetLogFileName("");
    EXPECT_EQ(frame.msg->log_file, nullptr);
}

TEST_F(MessageLog, truncates_an_old_log_file)
{
    const std::string path = logPath("log");
    std::ofstream(path) << "old content\n";
    RvMsgSetLogFileName(path.c_str());
    EXPECT_TRUE(linesOf(path).empty());
}

TEST_F(MessageLog, has_every_line_in_the_file_at_once)
{
    const std::string path = plainLogFile();
    for (size_t i = 1; i <= 3; ++i) {
        RvMsgInfo("line");
        EXPECT_EQ(linesOf(path).size(), i);
    }
}

// --------------------------------------------------------------------------------- header

TEST_F(MessageLog, header_precedes_the_first_message_once)
{
    RvMsgSetConsoleFlags(RV_LOG_ALL);
    RvMsgWarning("first");
    RvMsgWarning("second");
    const std::vector<std::string> lines = texts();
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_TRUE(matches(lines[0], std::string("log started ") + ctime_pattern)) << lines[0];
    EXPECT_EQ(lines[1],
              "Ruvell 3.3.6.0 windows 64-bit icc oiio sse (build date: May 18 2011 12:57:19)");
    EXPECT_EQ(lines[1], RvGetVersionInfo());
    EXPECT_EQ(lines[3], "");
    EXPECT_EQ(lines[4], "first");
    EXPECT_EQ(lines[5], "second");
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(messages()[size_t(i)].mask, RV_LOG_INFO);
        EXPECT_EQ(messages()[size_t(i)].severity, 0);
    }
}

TEST_F(MessageLog, header_describes_this_machine)
{
    RvMsgSetConsoleFlags(RV_LOG_INFO);
    RvMsgInfo("first");
    char host[256], vendor[256];
    const bool has_host = rv::hostName(host, sizeof host);
    rv::processorVendor(vendor, sizeof vendor);
    std::ostringstream expected; // the clock of the processor may change between two readings
    expected << "running on " << (has_host ? host : "") << (has_host ? ", " : "")
             << rv::processorCount() << " x ";
    const std::string line = texts()[2];
    EXPECT_EQ(line.rfind(expected.str(), 0), 0u) << line;
    std::ostringstream ending;
    ending << " mhz " << vendor << " with " << (rv::physicalMemory() >> 20) << " mb";
    EXPECT_EQ(line.substr(line.size() - ending.str().size()), ending.str());
    const std::string mhz = line.substr(expected.str().size());
    EXPECT_NE(std::stoi(mhz), 0) << line;
}

TEST_F(MessageLog, header_is_lost_where_information_is_not_wanted)
{
    RvMsgSetConsoleFlags(RV_LOG_WARNINGS);
    RvMsgWarning("w");
    RvMsgSetConsoleFlags(RV_LOG_WARNINGS | RV_LOG_INFO);
    RvMsgInfo("no header any more");
    EXPECT_EQ(texts(), (std::vector<std::string>{ "w", "no header any more" }));
}

TEST_F(MessageLog, message_for_nobody_does_not_use_up_the_header)
{
    RvMsgInfo("for nobody");
    EXPECT_FALSE(frame.msg->header_done);
    RvMsgSetConsoleFlags(RV_LOG_INFO);
    RvMsgInfo("first");
    EXPECT_EQ(messages().size(), 5u);
}

TEST_F(MessageLog, suppressed_warning_does_not_use_up_the_header)
{
    RvMsgSetConsoleFlags(RV_LOG_ALL);
    RvMsgSetMaxWarnings(0);
    RvMsgWarning("suppressed");
    EXPECT_FALSE(frame.msg->header_done);
    EXPECT_TRUE(messages().empty());
}

// -------------------------------------------------------------------------- warning limit

static void perform(const nlohmann::json& op)
{
    const std::string name = op[0];
    if (name == "console")
        RvMsgSetConsoleFlags(op[1]);
    else if (name == "logflags")
        RvMsgSetLogFileFlags(op[1]);
    else if (name == "max")
        RvMsgSetMaxWarnings(op[1]);
    else if (name == "tab")
        RvMsgTab(op[1]);
    else if (name == "info")
        RvMsgInfo("%s", op[1].get<std::string>().c_str());
    else if (name == "debug")
        RvMsgDebug("%s", op[1].get<std::string>().c_str());
    else if (name == "infom")
        RvMsgInfoMasked(op[1], "%s", op[2].get<std::string>().c_str());
    else if (name == "warning")
        RvMsgWarning("%s", op[1].get<std::string>().c_str());
    else if (name == "fatal")
        RvMsgFatal("%s", op[1].get<std::string>().c_str());
    else
        FAIL() << op;
}

TEST_F(MessageLog, agrees_with_the_golden_sequences)
{
    for (const auto& v : goldenVectors("foundation", "message_sequence")) {
        freshMessageState();
        for (const auto& op : v["in"]["ops"])
            perform(op);
        nlohmann::json events = nlohmann::json::array();
        for (const LoggedMessage& m : messages())
            events.push_back({ m.mask, m.severity, m.text, m.tab });
        const auto& out = v["out"];
        EXPECT_EQ(events, out["events"]) << v["id"];
        EXPECT_EQ(frame.msg->warning_count.load(), out["warning_count"]) << v["id"];
        EXPECT_EQ(frame.msg->max_warnings.load(), out["max_warnings"]) << v["id"];
        EXPECT_EQ(out["terminated"], false) << v["id"]; // or this line would not be reached
    }
}

TEST_F(MessageLog, limit_of_0_suppresses_every_warning_and_the_notice)
{
    RvMsgSetConsoleFlags(RV_LOG_WARNINGS);
    RvMsgSetMaxWarnings(0);
    for (int i = 0; i < 10; ++i)
        RvMsgWarning("w");
    EXPECT_TRUE(messages().empty());
    EXPECT_EQ(frame.msg->warning_count, 10u);
}

// Required: the notice takes the place of the last warning, counts itself and says one more.
TEST_F(MessageLog, limit_of_3_shows_two_warnings_and_a_notice_that_says_4)
{
    RvMsgSetConsoleFlags(RV_LOG_WARNINGS | RV_LOG_ERRORS);
    RvMsgSetMaxWarnings(3);
    for (int i = 1; i <= 6; ++i)
        RvMsgWarning("w%d", i);
    EXPECT_EQ(frame.msg->max_warnings, 3u);
    RvMsgError("errors still print");
    EXPECT_EQ(takeProblem(), "w1 | w2 | too many warnings (4) | errors still print");
}

TEST_F(MessageLog, default_limit_shows_99_warnings_and_a_notice_that_says_101)
{
    RvMsgSetConsoleFlags(RV_LOG_WARNINGS);
    for (int i = 0; i < 150; ++i)
        RvMsgWarning("w");
    const std::vector<std::string> problems = takeProblems();
    ASSERT_EQ(problems.size(), 100u);
    EXPECT_EQ(std::count(problems.begin(), problems.end(), "w"), 99);
    EXPECT_EQ(problems.back(), "too many warnings (101)");
}

TEST_F(MessageLog, masked_warnings_share_the_limit)
{
    RvMsgSetConsoleFlags(RV_LOG_WARNINGS | RV_LOG_NAN);
    RvMsgSetMaxWarnings(3);
    RvMsgWarningMasked(RV_LOG_NAN, "a");
    RvMsgWarning("b");
    RvMsgWarningMasked(RV_LOG_NAN, "c");
    EXPECT_EQ(messages().back().mask, RV_LOG_WARNINGS);
    EXPECT_EQ(takeProblem(), "a | b | too many warnings (4)");
}

TEST_F(MessageLog, warnings_wanted_nowhere_are_neither_suppressed_nor_counted)
{
    RvMsgSetConsoleFlags(RV_LOG_WARNINGS);
    RvMsgSetLogFileFlags(RV_LOG_STATS);
    RvMsgWarningMasked(RV_LOG_NAN, "a");
    RvMsgWarningMasked(RV_LOG_WARNINGS | RV_LOG_STATS, "each bit is wanted somewhere else");
    EXPECT_EQ(frame.msg->warning_count, 0u);
    RvMsgWarningMasked(RV_LOG_STATS, "wanted by a log file that is not open");
    EXPECT_EQ(frame.msg->warning_count, 1u);
    EXPECT_TRUE(messages().empty());
}

TEST_F(MessageLog, notice_is_lost_where_plain_warnings_are_not_wanted)
{
    RvMsgSetConsoleFlags(RV_LOG_NAN);
    RvMsgSetLogFileFlags(0);
    RvMsgSetMaxWarnings(3);
    for (int i = 1; i <= 5; ++i)
        RvMsgWarningMasked(RV_LOG_NAN, "n%d", i);
    EXPECT_EQ(takeProblem(), "n1 | n2");
    EXPECT_EQ(frame.msg->max_warnings, 3u);
    EXPECT_EQ(frame.msg->warning_count, 5u);
}

TEST_F(MessageLog, errors_and_information_are_neither_limited_nor_counted)
{
    RvMsgSetConsoleFlags(RV_LOG_ALL);
    frame.msg->header_done = true;
    RvMsgSetMaxWarnings(1);
    for (int i = 0; i < 5; ++i) {
        RvMsgError("e");
        RvMsgInfo("i");
        RvMsgDebug("d");
    }
    EXPECT_EQ(messages().size(), 15u);
    EXPECT_EQ(frame.msg->warning_count, 0u);
}

// --------------------------------------------------------------------------- line formats

TEST_F(MessageLog, formats_lines_as_the_golden_vectors_say)
{
    for (const auto& v : goldenVectors("foundation", "format_line")) {
        const auto& in = v["in"];
        const rv::LineContext context = { .elapsed_ms = in["elapsed_ms"],
                                          .resident_bytes = in["resident_bytes"],
                                          .scene_line = in["scene_line"] };
        const std::string text = in["text"];
        for (const bool allow_color : { false, true }) { // all colours are empty
            char line[200];
            const size_t length =
                rv::formatLine(line, sizeof line, in["flags"], in["mask"], in["severity"],
                               text.c_str(), in["tab"], allow_color, context);
            EXPECT_EQ(line, v["out"]["line"].get<std::string>()) << v["id"];
            EXPECT_EQ(length, strlen(line)) << v["id"];
        }
    }
}

static std::string formatted(size_t size, int severity, const char* text, int tab, int scene_line)
{
    std::string line(size, '#');
    const rv::LineContext context = { .elapsed_ms = 0,
                                      .resident_bytes = 0,
                                      .scene_line = scene_line };
    const size_t length = rv::formatLine(line.data(), size, RV_LOG_ALL & ~0xA00u, RV_LOG_WARNINGS,
                                         severity, text, tab, true, context);
    EXPECT_LT(length, size);
    EXPECT_EQ(line[length], '\0');
    return line.substr(0, length);
}

TEST_F(MessageLog, line_that_does_not_fit_is_cut_and_still_ends)
{
    const std::string whole = "WARNING | some text\n";
    EXPECT_EQ(formatted(100, 1, "some text", 0, -1), whole);
    EXPECT_EQ(formatted(whole.size() + 1, 1, "some text", 0, -1), whole);
    EXPECT_EQ(formatted(whole.size(), 1, "some text", 0, -1), "WARNING | some tex\n");
    EXPECT_EQ(formatted(5, 1, "some text", 0, -1), "WAR\n");
    EXPECT_EQ(formatted(2, 1, "some text", 0, -1), "\n");
    EXPECT_EQ(formatted(1, 1, "some text", 0, -1), "");
    const rv::LineContext context = {};
    EXPECT_EQ(rv::formatLine(nullptr, 0, 0, 0, 0, "text", 0, false, context), 0u);
}

TEST_F(MessageLog, prefix_of_a_line_is_bounded)
{
    const std::string line = formatted(4000, 1, "text", 1000000, 11);
    EXPECT_EQ(line.size(), 1023 + strlen("text\n"));
    EXPECT_EQ(line.substr(line.size() - 6), " text\n");
    EXPECT_EQ(formatted(100, 1, "text", INT_MAX, -1).size(), 99u);
    EXPECT_EQ(formatted(100, 1, "text", INT_MIN, -1), "WARNING |text\n");
    EXPECT_EQ(formatted(100, 2, "text", 0, INT_MAX - 1), "ERROR   | line 2147483647: text\n");
    EXPECT_EQ(formatted(100, 2, "text", 0, INT_MAX), "ERROR   | line 2147483648: text\n");
}

TEST_F(MessageLog, line_of_an_unknown_severity_has_no_column)
{
    EXPECT_EQ(formatted(100, 4, "text", 0, -1), " text\n");
    EXPECT_EQ(formatted(100, -1, "text", 0, 4), " line 5: text\n");
    EXPECT_EQ(formatted(100, 0, nullptr, 0, -1), "        | \n");
}

TEST_F(MessageLog, writes_the_lines_that_the_formatter_describes)
{
    const std::string path = plainLogFile();
    rv::scene_file_line = 11;
    RvMsgTab(1);
    RvMsgWarning("100%% of %s", "it");
    const rv::LineContext context = { .elapsed_ms = 0, .resident_bytes = 0, .scene_line = 11 };
    char line[100];
    rv::formatLine(line, sizeof line, RV_LOG_ALL & ~0xA00u, RV_LOG_WARNINGS, 1, "100% of it", 1,
                   false, context);
    ASSERT_EQ(linesOf(path).size(), 1u);
    EXPECT_EQ(linesOf(path)[0] + "\n", line);
}

TEST_F(MessageLog, warnings_carry_the_scene_file_line_and_information_never_does)
{
    const std::string path = plainLogFile();
    rv::scene_file_line = 11;
    RvMsgWarning("text");
    RvMsgInfo("text");
    RvMsgError("text");
    rv::scene_file_line = -1;
    RvMsgWarning("text");
    EXPECT_EQ(linesOf(path),
              (std::vector<std::string>{ "WARNING | line 12: text", "        | text",
                                         "ERROR   | line 12: text", "WARNING | text" }));
}

TEST_F(MessageLog, level_below_0_prints_as_level_0_and_stays_negative)
{
    RvMsgSetConsoleFlags(RV_LOG_WARNINGS);
    const int deltas[] = { -1, 1, 1, -4, 2, 3 };
    const int shown[] = { 0, 0, 1, 0, 0, 2 };
    for (size_t i = 0; i < std::size(deltas); ++i) {
        RvMsgTab(deltas[i]);
        RvMsgWarning("w");
        EXPECT_EQ(messages().back().tab, shown[i]) << i;
    }
    EXPECT_EQ(frame.msg->tab, 2);
}

TEST_F(MessageLog, indents_by_one_blank_per_level)
{
    const std::string path = plainLogFile();
    RvMsgInfo("a");
    RvMsgTab(2);
    RvMsgInfo("b");
    RvMsgTab(-2);
    RvMsgInfo("c");
    EXPECT_EQ(linesOf(path),
              (std::vector<std::string>{ "        | a", "        |   b", "        | c" }));
}

TEST_F(MessageLog, colour_changes_nothing_here)
{
    RvMsgResetCallback();
    frame.msg->header_done = true;
    std::string shown[2];
    for (const int color : { 0, RV_LOG_COLOR }) {
        RvMsgSetConsoleFlags(RV_LOG_WARNINGS | RV_LOG_PROGRESS | color);
        testing::internal::CaptureStdout();
        RvMsgWarning("w");
        RvMsgInfoMasked(RV_LOG_PROGRESS, "p");
        shown[color != 0] = testing::internal::GetCapturedStdout();
    }
    EXPECT_EQ(shown[0], "WARNING | w\n        | p\n");
    EXPECT_EQ(shown[1], shown[0]);
}

// ----------------------------------------------------------------------------- long texts

TEST_F(MessageLog, cuts_texts_at_65535_characters)
{
    RvMsgSetConsoleFlags(RV_LOG_WARNINGS | RV_LOG_ERRORS);
    static const struct {
        size_t given, kept;
    } cases[] = { { 65534, 65534 }, { 65535, 65535 }, { 65536, 65535 }, { 1000000, 65535 } };
    for (const auto& c : cases) {
        const std::string text(c.given, 'x');
        RvMsgWarning("%s", text.c_str());
        EXPECT_EQ(takeProblem(), std::string(c.kept, 'x'));
        RvMsgError("%s", text.c_str());
        EXPECT_EQ(takeProblem().size(), c.kept);
    }
}

TEST_F(MessageLog, writes_the_longest_text_whole)
{
    const std::string path = plainLogFile();
    RvMsgInfo("%s", std::string(65535, 'x').c_str());
    ASSERT_EQ(linesOf(path).size(), 1u);
    EXPECT_EQ(linesOf(path)[0], "        | " + std::string(65535, 'x'));
}

// ------------------------------------------------------------------------ errors, fatality

TEST_F(MessageLog, every_error_asks_for_the_abort_whether_or_not_it_is_shown)
{
    RvMsgError("for nobody");
    EXPECT_EQ(errors_logged, 1);
    RvMsgSetConsoleFlags(RV_LOG_ERRORS);
    RvMsgError("shown");
    EXPECT_EQ(errors_logged, 2);
    RvMsgWarning("no error");
    RvMsgInfo("no error");
    EXPECT_EQ(errors_logged, 2);
    takeProblem();
}

TEST_F(MessageLog, error_is_shown_before_it_asks_for_the_abort)
{
    RvMsgSetConsoleFlags(RV_LOG_ERRORS);
    RvMsgSetCallback([](int, int, const char*, int) { EXPECT_EQ(errors_logged, 0); });
    RvMsgError("shown");
    EXPECT_EQ(errors_logged, 1);
}

// Required: where nobody wants errors a fatal one returns.
TEST_F(MessageLog, fatal_message_for_nobody_returns_and_asks_for_the_abort)
{
    RvMsgSetConsoleFlags(RV_LOG_ALL & ~RV_LOG_ERRORS);
    RvMsgSetLogFileFlags(RV_LOG_ALL & ~RV_LOG_ERRORS);
    RvMsgFatal("not shown");
    EXPECT_EQ(errors_logged, 1);
    EXPECT_TRUE(messages().empty());
}

TEST_F(MessageLog, fatal_message_returns_while_no_log_file_is_open)
{
    // The log file's flags include errors, but there is no file.
    RvMsgFatal("not shown");
    EXPECT_EQ(errors_logged, 1);
}

// Death tests start a new process that runs only the test, up to the statement.
class MessageLogDeath : public MessageLog {
protected:
    void SetUp() override
    {
        testing::FLAGS_gtest_death_test_style = "threadsafe";
        MessageLog::SetUp();
        RvMsgSetCallback([](int mask, int severity, const char* text, int) {
            fprintf(stderr, "%d %d %s\n", mask, severity, text);
        });
    }
};

TEST_F(MessageLogDeath, fatal_message_ends_the_process)
{
    RvMsgSetConsoleFlags(RV_LOG_ERRORS);
    EXPECT_EXIT(RvMsgFatal("the end %d", 1), testing::KilledBySignal(SIGABRT), "4 3 the end 1");
}

TEST_F(MessageLogDeath, fatal_message_ends_the_process_even_with_a_null_callback)
{
    RvMsgSetConsoleFlags(RV_LOG_ERRORS);
    RvMsgSetCallback(nullptr);
    EXPECT_EXIT(RvMsgFatal("the end"), testing::KilledBySignal(SIGABRT), "");
}

TEST_F(MessageLogDeath, fatal_message_reaches_the_log_file_before_the_end)
{
    // The process that dies learns the path from its environment.
    const char* const inherited = getenv("RV_TEST_FATAL_LOG");
    const std::string path = inherited ? inherited : logPath("log");
    setenv("RV_TEST_FATAL_LOG", path.c_str(), 1);
    RvMsgResetCallback();
    EXPECT_EXIT(
        {
            RvMsgSetLogFileName(path.c_str());
            RvMsgFatal("the end");
        },
        testing::KilledBySignal(SIGABRT), "");
    const std::vector<std::string> lines = linesOf(path);
    ASSERT_FALSE(lines.empty());
    EXPECT_NE(lines.back().find("FATAL   | the end"), std::string::npos) << lines.back();
    unsetenv("RV_TEST_FATAL_LOG");
}

TEST_F(MessageLogDeath, broken_invariant_is_fatal)
{
    RvMsgSetConsoleFlags(RV_LOG_ERRORS);
    EXPECT_EXIT(rv::reachedInError("core\\src\\nodes", 12, "RvNodeSetBuiltInGeneric"),
                testing::KilledBySignal(SIGABRT),
                "4 3 reached code line in error: core.src.nodes:12 .in RvNodeSetBuiltInGeneric.");
}

// -------------------------------------------------------------------------- without frame

TEST_F(MessageLog, without_a_frame_every_call_is_ignored)
{
    rv::the_frame = nullptr;
    logOneOfEach();
    RvMsgFatal("ignored");
    RvMsgTab(1);
    RvMsgSetConsoleFlags(RV_LOG_ALL);
    RvMsgSetLogFileFlags(0);
    RvMsgSetLogFileName(tempPath("never").c_str());
    RvMsgSetMaxWarnings(1);
    RvMsgSetCallback(record);
    RvMsgResetCallback();
    EXPECT_EQ(RvMsgUtilGetElapsedTime(), 0u);
    EXPECT_GT(RvMsgUtilGetUsedMemory(), 0u);
    rv::the_frame = &frame;
    EXPECT_TRUE(messages().empty());
    EXPECT_EQ(errors_logged, 0);
    EXPECT_EQ(frame.msg->console_flags, 0u);
    EXPECT_FALSE(std::ifstream(tempPath("never")).is_open());
}

TEST_F(MessageLog, without_message_state_every_call_is_ignored)
{
    RtMsgState* const kept = frame.msg;
    frame.msg = nullptr;
    logOneOfEach();
    RvMsgFatal("ignored");
    RvMsgTab(1);
    frame.msg = kept;
    EXPECT_EQ(errors_logged, 0);
}

TEST_F(MessageLog, state_reports_an_exhausted_heap)
{
    RvMsgSetConsoleFlags(RV_LOG_ERRORS);
    rv::limitAllocations(0);
    EXPECT_EQ(rv::msgStateCreate(), nullptr);
    EXPECT_EQ(takeProblemWithoutLines(), "can't allocate " + std::to_string(sizeof(RtMsgState)) +
                                             " bytes in core\\src\\msg:msgStateCreate():");
    rv::msgStateDestroy(nullptr);
}

// --------------------------------------------------------------------------- measurements

TEST_F(MessageLog, elapsed_time_counts_from_the_frame)
{
    frame.start_ms = rv::wallMilliseconds() - 5000;
    EXPECT_GE(RvMsgUtilGetElapsedTime(), 5000u);
    EXPECT_LT(RvMsgUtilGetElapsedTime(), 65000u);
    frame.start_ms = rv::wallMilliseconds() + 1000 - UINT32_MAX; // the counter may wrap
    EXPECT_GT(RvMsgUtilGetElapsedTime(), 0u);
}

TEST_F(MessageLog, used_memory_follows_the_process)
{
    // Fresh pages: the heap may still hold what earlier tests gave back.
    constexpr size_t size = 64 << 20;
    const uint64_t before = RvMsgUtilGetUsedMemory();
    void* const pages =
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    memset(pages, 1, size);
    EXPECT_GE(RvMsgUtilGetUsedMemory(), before + (60u << 20));
    munmap(pages, size);
}

// ---------------------------------------------------------------------------- concurrency

TEST_F(MessageLog, concurrent_warnings_respect_the_limit)
{
    RvMsgSetConsoleFlags(RV_LOG_WARNINGS);
    onThreads(4, [](int thread) {
        for (int i = 0; i < 200; ++i)
            RvMsgWarning("warning %d of thread %d", i, thread);
    });
    const std::vector<std::string> problems = takeProblems();
    EXPECT_EQ(problems.size(), 100u);
    EXPECT_EQ(std::count(problems.begin(), problems.end(), "too many warnings (101)"), 1);
    EXPECT_EQ(frame.msg->warning_count, 800u);
}

TEST_F(MessageLog, concurrent_messages_stay_whole_behind_one_header)
{
    const std::string path = logPath("log");
    RvMsgResetCallback();
    RvMsgSetLogFileName(path.c_str());
    onThreads(4, [](int thread) {
        for (int i = 0; i < 50; ++i) {
            RvMsgTab(1);
            RvMsgInfo("[thread %d message %d]", thread, i);
            RvMsgError("[thread %d error %d]", thread, i);
            RvMsgTab(-1);
        }
    });
    const std::vector<std::string> lines = linesOf(path);
    EXPECT_EQ(lines.size(), 4u + 400u);
    const auto is_message = [](const std::string& line) {
        return matches(line, ".*\\| +\\[thread [0-9] (message|error) [0-9]+\\]");
    };
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(), is_message), 400);
    EXPECT_EQ(frame.msg->tab, 0);
    EXPECT_EQ(errors_logged, 200);
}

TEST_F(MessageLog, concurrent_settings_and_messages_do_not_race)
{
    const std::string path = logPath("log");
    onThreads(4, [&](int thread) {
        for (int i = 0; i < 50; ++i) {
            RvMsgSetConsoleFlags(i % 2 ? RV_LOG_WARNINGS : 0);
            RvMsgSetMaxWarnings(100 + i);
            RvMsgSetLogFileName(path.c_str());
            RvMsgWarning("thread %d", thread);
            if (i % 3)
                RvMsgSetCallback(record);
            else
                RvMsgSetCallback(nullptr);
        }
    });
}
