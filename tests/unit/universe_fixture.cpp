// The universe that tests open, and what it logs.
#include "universe_fixture.h"

#include <string.h>

static std::vector<LoggedMessage>& allMessages()
{
    static std::vector<LoggedMessage> all;
    return all;
}

static bool isOfTheHeader(int severity, const char* text)
{
    return severity == 0 &&
           (!strncmp(text, "log started", 11) || !strncmp(text, "running on", 10) ||
            !strncmp(text, "Ruvell 3.3.6.0", 14) || !*text);
}

static void record(int mask, int severity, const char* text, int tab)
{
    static std::mutex lock;
    const std::lock_guard<std::mutex> guard(lock);
    if (!isOfTheHeader(severity, text))
        allMessages().push_back({ mask, severity, text, tab });
}

void Universe::SetUp()
{
    RvBegin();
    RvMsgSetConsoleFlags(RV_LOG_ALL & ~(RV_LOG_TIMESTAMP | RV_LOG_MEMORY));
    RvMsgSetMaxWarnings(1000000);
    RvMsgSetCallback(record);
    messages().clear();
}

void Universe::TearDown()
{
    messages().clear();
    RvEnd();
    for (const LoggedMessage& m : messages())
        EXPECT_TRUE(leaks_expected || m.text.rfind("[strpool]", 0) != 0) << m.text;
    messages().clear();
}

std::vector<LoggedMessage>& Universe::messages() { return allMessages(); }

std::vector<std::string> Universe::takeProblems()
{
    std::vector<std::string> texts;
    for (const LoggedMessage& m : messages())
        if (m.severity > 0)
            texts.push_back(m.text);
    messages().clear();
    return texts;
}

std::string Universe::takeProblem()
{
    std::string all;
    for (const std::string& text : takeProblems())
        all += all.empty() ? text : " | " + text;
    return all;
}
