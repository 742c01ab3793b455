// What the tests of the foundation share: a bare frame without nodes or renderer, which records
// every message.
#ifndef RV_FRAME_FIXTURE_H
#define RV_FRAME_FIXTURE_H

#include "counters.h"
#include "declare.h"
#include "frame.h"
#include "msg.h"
#include "strpool.h"
#include "system/clock.h"
#include "system/memory.h"
#include "universe_fixture.h"

#include <atomic>
#include <regex.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

class BareFrame : public ::testing::Test {
protected:
    void SetUp() override
    {
        frame.hooks = &hooks;
        frame.start_ms = rv::wallMilliseconds();
        for (RtStats*& record : frame.stats)
            record = &stats;
        rv::the_frame = &frame;
        frame.msg = rv::msgStateCreate();
        frame.msg->header_done = true;
        RvMsgSetConsoleFlags(RV_LOG_ALL & ~(RV_LOG_TIMESTAMP | RV_LOG_MEMORY));
        RvMsgSetMaxWarnings(1000000);
        RvMsgSetCallback(record);
        frame.strings = RtStringPool::create(8000);
        messages().clear();
        errors_logged = 0;
    }
    void TearDown() override
    {
        rv::limitAllocations(-1);
        messages().clear();
        RtStringPool::destroy(frame.strings);
        EXPECT_EQ(takeProblem(), "") << "strings were left in the pool";
        rv::the_frame = nullptr;
        rv::msgStateDestroy(frame.msg);
        rv::scene_file_line = -1;
    }

    // Replaces the message state by a fresh one with its default settings, but recording.
    void freshMessageState()
    {
        rv::limitAllocations(-1);
        rv::msgStateDestroy(std::exchange(frame.msg, nullptr));
        frame.msg = rv::msgStateCreate();
        RvMsgSetCallback(record);
        messages().clear();
    }

    static std::vector<LoggedMessage>& messages()
    {
        static std::vector<LoggedMessage> all;
        return all;
    }

    // Texts of the warnings and errors since the last call.
    static std::vector<std::string> takeProblems()
    {
        std::vector<std::string> texts;
        for (const LoggedMessage& m : messages())
            if (m.severity > 0)
                texts.push_back(m.text);
        messages().clear();
        return texts;
    }

    // The same, joined by " | ".
    static std::string takeProblem()
    {
        std::string all;
        for (const std::string& text : takeProblems())
            all += (all.empty() ? "" : " | ") + text;
        return all;
    }

    // The same without the line numbers that end the reports of the checked allocator.
    static std::string takeProblemWithoutLines()
    {
        std::string text = takeProblem();
        for (size_t at = text.find("():"); at != std::string::npos; at = text.find("():", at + 3)) {
            size_t end = at + 3;
            while (end < text.size() && isdigit(static_cast<unsigned char>(text[end])))
                ++end;
            EXPECT_GT(end, at + 3) << "no line number in " << text;
            text.erase(at + 3, end - at - 3);
        }
        return text;
    }

    static void record(int mask, int severity, const char* text, int tab)
    {
        static std::mutex lock;
        const std::lock_guard<std::mutex> guard(lock);
        messages().push_back({ mask, severity, text, tab });
    }

    // A path for a file of this test.
    static std::string tempPath(const std::string& name)
    {
        const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
        return ::testing::TempDir() + test->test_suite_name() + "." + test->name() + "." +
               std::to_string(getpid()) + "." + name;
    }

    static inline std::atomic<int> errors_logged = 0;

    RtFrame frame{};

private:
    static constexpr RtHooks hooks = {
        .errorLogged = [] { ++errors_logged; },
        .cameraParameters = rv::do_nothing,
        .lightParameters = rv::do_nothing,
        .shapeParameters = rv::do_nothing,
        .shapeChanged = rv::do_nothing,
        .shapeTeardown = rv::do_nothing,
        .lightTeardown = rv::do_nothing,
        .shapeVertexCount = rv::do_nothing,
        .rendering = rv::do_nothing,
        .applyOverrides = rv::do_nothing,
        .rootBounds = rv::do_nothing,
        .flushShape = rv::do_nothing,
        .flushLight = rv::do_nothing,
        .shadeSurface = [](RtShaderGlobals*) { return RV_TYPE_NONE; },
        .shadeBackground = [](RtShaderGlobals*) { return RV_TYPE_NONE; },
        .applyAtmosphere = rv::do_nothing,
        .recordSample = rv::do_nothing,
    };
    RtStats stats{};
};

// Runs work(thread index) on several threads at once and waits for all of them.
template <class Work> void onThreads(int count, Work work)
{
    std::atomic<int> waiting = count;
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back([&, i] {
            for (--waiting; waiting > 0;)
                std::this_thread::yield();
            work(i);
        });
    for (std::thread& thread : threads)
        thread.join();
}

// Whether the whole text has the form of a POSIX extended regular expression.
inline bool matches(const std::string& text, const std::string& pattern)
{
    regex_t compiled;
    EXPECT_EQ(regcomp(&compiled, ("^(" + pattern + ")$").c_str(), REG_EXTENDED | REG_NOSUB), 0);
    const bool found = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&compiled);
    return found;
}

// The form of ctime() without its newline.
inline constexpr char ctime_pattern[] =
    "[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4}";

// A printf format with one integer, as the golden vectors give key names.
inline std::string numbered(const std::string& format, int number)
{
    char text[256];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    snprintf(text, sizeof text, format.c_str(), number);
#pragma GCC diagnostic pop
    return text;
}

#endif
