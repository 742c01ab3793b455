// What the tests of renders share: a universe whose log is read line by line, node types that act
// when they are prepared, and replaced steps of a render.
#ifndef RV_RENDER_TOOLS_H
#define RV_RENDER_TOOLS_H

#include "node_tools.h"
#include "render_session.h"
#include "render_steps.h"

#include <functional>

namespace render_tools {

using Names = std::vector<std::string>;

// What nodes of type "actor" do.
struct Actions {
    std::function<void(RtNode*)> initialize, update;
};

inline Actions& actions()
{
    static Actions all;
    return all;
}

inline void act(const std::function<void(RtNode*)>& action, RtNode* node)
{
    if (action)
        action(node);
}

// Replaces steps of renders for the length of a scope.
struct StepsOverride {
    StepsOverride() : steps(rv::present_steps) { rv::render_steps = &steps; }
    ~StepsOverride() { rv::render_steps = &rv::present_steps; }
    StepsOverride(const StepsOverride&) = delete;
    StepsOverride& operator=(const StepsOverride&) = delete;

    rv::RenderSteps steps;
};

// A universe that records every line, empty ones too: "tab text", with "W " or "E " before the
// text of warnings and errors, "D " before that of debug messages, and "*" for durations.
class RenderLog : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(RvUniverseIsActive());
        actions() = {};
        RvBegin();
        RvMsgSetConsoleFlags(RV_LOG_ALL & ~(RV_LOG_TIMESTAMP | RV_LOG_MEMORY));
        RvMsgSetMaxWarnings(1000000);
        RvMsgSetCallback(record);
        RvMsgInfo("first"); // after the header of the log
        set("threads", 1);
        takeLines();
    }
    void TearDown() override
    {
        rv::limitAllocations(-1);
        if (RvUniverseIsActive())
            RvEnd();
        actions() = {};
        takeLines();
    }

    static RtScene* scene() { return rv::the_frame->scene; }
    static RtRenderSession* session() { return rv::the_frame->session; }
    static void set(const char* option, int value)
    {
        RvNodeSetInt(RvUniverseGetOptions(), option, value);
    }
    static void setFlag(const char* option, bool value)
    {
        RvNodeSetBool(RvUniverseGetOptions(), option, value);
    }

    static void installActor()
    {
        static const RtCommonMethods common = {
            .Parameters = nullptr,
            .Initialize = [](RtNode* node, void*) { act(actions().initialize, node); },
            .Update = [](RtNode* node, void*) { act(actions().update, node); },
            .Finish = nullptr,
        };
        static const RtNodeMethods methods = { &common, nullptr };
        RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "actor", "", &methods, RV_VERSION);
    }

    // The lines since the last call.
    static Names takeLines()
    {
        const std::lock_guard<std::mutex> guard(lock());
        return std::exchange(lines(), {});
    }

    static bool contains(const Names& all, const std::string& line)
    {
        return std::find(all.begin(), all.end(), line) != all.end();
    }

    // The warnings and errors among the lines since the last call, joined by " | ".
    static std::string takeProblems()
    {
        std::string all;
        for (const std::string& line : takeLines()) {
            const size_t at = line.find(' ') + 1;
            if (line.compare(at, 2, "W ") == 0 || line.compare(at, 2, "E ") == 0)
                all += (all.empty() ? "" : " | ") + line.substr(at);
        }
        return all;
    }

private:
    static Names& lines()
    {
        static Names all;
        return all;
    }
    static std::mutex& lock()
    {
        static std::mutex mutex;
        return mutex;
    }
    static void record(int mask, int severity, const char* text, int tab)
    {
        static const char* const marks[] = { "", "W ", "E ", "F " };
        std::string line = std::to_string(tab) + " ";
        line += severity == 0 && (mask & RV_LOG_DEBUG) ? "D " : marks[severity];
        line += text;
        const size_t duration = line.find(" done in ");
        if (duration != std::string::npos) {
            line.resize(duration + 9);
            line += '*';
        }
        const std::lock_guard<std::mutex> guard(lock());
        lines().push_back(line);
    }
};

} // namespace render_tools

#endif
