// What many tests share: an open universe that records every message, and golden numbers.
#ifndef RV_UNIVERSE_FIXTURE_H
#define RV_UNIVERSE_FIXTURE_H

#include "msg.h"
#include "rv.h"
#include "test_data.h"

#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

struct LoggedMessage {
    int mask;
    int severity; // 0 plain, 1 warning, 2 error, 3 fatal
    std::string text;
    int tab;
};

// Opens a universe whose messages go to `messages` and nowhere else.
class Universe : public ::testing::Test {
protected:
    void SetUp() override
    {
        RvBegin();
        RvMsgSetConsoleFlags(RV_LOG_ALL & ~(RV_LOG_TIMESTAMP | RV_LOG_MEMORY));
        RvMsgSetMaxWarnings(1000000);
        RvMsgSetCallback(record);
        messages().clear();
    }
    void TearDown() override
    {
        messages().clear();
        RvEnd();
        for (const LoggedMessage& m : messages())
            EXPECT_TRUE(leaks_expected || m.text.rfind("[strpool]", 0) != 0) << m.text;
        messages().clear();
    }

    bool leaks_expected = false; // set by a test that leaves strings behind on purpose

    // Every message since SetUp, the start-of-log header left out.
    static std::vector<LoggedMessage>& messages()
    {
        static std::vector<LoggedMessage> all;
        return all;
    }

    // Texts of warnings, errors and fatal errors, in order; they are forgotten.
    static std::vector<std::string> takeProblems()
    {
        std::vector<std::string> texts;
        for (const LoggedMessage& m : messages())
            if (m.severity > 0)
                texts.push_back(m.text);
        messages().clear();
        return texts;
    }

    // The one problem logged since the last call; "" when there was none, all of them joined
    // when there were several.
    static std::string takeProblem()
    {
        std::string all;
        for (const std::string& text : takeProblems())
            all += all.empty() ? text : " | " + text;
        return all;
    }

private:
    static void record(int mask, int severity, const char* text, int tab)
    {
        static std::mutex lock;
        std::lock_guard<std::mutex> guard(lock);
        const bool header = severity == 0 && (!strncmp(text, "log started", 11) ||
                                              !strncmp(text, "running on", 10) ||
                                              !strncmp(text, "Ruvell 3.3.6.0", 14) || !*text);
        if (!header)
            messages().push_back({ mask, severity, text, tab });
    }
};

// The vectors of one function of a file of golden numbers under tests/data/vectors.
inline std::vector<nlohmann::json> goldenVectors(const std::string& area, const std::string& fn)
{
    static std::map<std::string, nlohmann::json> files;
    nlohmann::json& file = files[area];
    if (file.is_null())
        std::ifstream(std::string(testData()) + "/vectors/" + area + ".json") >> file;
    std::vector<nlohmann::json> found;
    for (const nlohmann::json& v : file.at("vectors"))
        if (v.at("fn") == fn)
            found.push_back(v);
    EXPECT_FALSE(found.empty()) << "no vectors for " << fn;
    return found;
}

#endif
