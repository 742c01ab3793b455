// What many tests share: an open universe that records every message, and golden numbers.
#ifndef RV_UNIVERSE_FIXTURE_H
#define RV_UNIVERSE_FIXTURE_H

#include "golden.h"
#include "msg.h"
#include "rv.h"

#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
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
    void SetUp() override;
    void TearDown() override;

    bool leaks_expected = false; // set by a test that leaves strings behind on purpose

    // Every message since SetUp, the start-of-log header left out.
    static std::vector<LoggedMessage>& messages();
    // Texts of warnings, errors and fatal errors, in order; they are forgotten.
    static std::vector<std::string> takeProblems();
    // The one problem logged since the last call; "" when there was none, all of them joined
    // when there were several.
    static std::string takeProblem();
};

#endif
