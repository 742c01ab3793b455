// What the tests of the scene writer share.
#ifndef RV_WRITE_TOOLS_H
#define RV_WRITE_TOOLS_H

#include "dotrvs_write.h"
#include "node_tools.h"
#include "rv_scenefile.h"

namespace write_tools {

using namespace node_tools;

// What a function puts into a file.
template <class Write> std::string textOf(Write write)
{
    const TemporaryFile file("");
    RtRVSFile* const record = RvRVSOpenFile(file.path.c_str(), "w");
    EXPECT_TRUE(record);
    rv::SceneText text(record);
    write(&text);
    EXPECT_TRUE(text.finish());
    EXPECT_EQ(RvRVSCloseFile(record, "w"), 0);
    return file.read();
}

inline std::string blockOf(RtNode* node, bool only_changed = true)
{
    return textOf([&](rv::SceneText* out) { RvRVSWriteNode(out, node, only_changed); });
}

inline std::string paramsOf(const RtNode* node, bool only_changed = true)
{
    return textOf(
        [&](rv::SceneText* out) { RvRVSWriteNodeBuiltinParams(out, node, only_changed); });
}

// The array becomes the test's.
inline std::string arrayText(const RtNode* node, RtArray* array)
{
    const std::string text = textOf([&](rv::SceneText* out) { rv::writeArray(out, node, array); });
    RvArrayDestroy(array);
    return text;
}

inline const unsigned everything = RV_NODE_ALL;

// The text of a written scene, without its header.
inline std::string belowHeader(const std::string& text)
{
    const size_t end = text.find("\n\n\n\n");
    EXPECT_NE(end, std::string::npos) << text;
    return end == std::string::npos ? text : text.substr(end + 4);
}

// The blocks that the universe is written as.
inline std::string sceneText(unsigned mask = everything, bool open_procs = false)
{
    const TemporaryFile file("");
    EXPECT_EQ(RvRVSWrite(file.path.c_str(), mask, open_procs), 0);
    return belowHeader(file.read());
}

// Names of the nodes in a written text, in order.
inline std::string nodeNames(const std::string& scene)
{
    std::string names;
    std::istringstream lines(scene);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind(" name ", 0) == 0)
            names += (names.empty() ? "" : " ") + line.substr(6);
    return names;
}

} // namespace write_tools

#endif
