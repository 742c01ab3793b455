// What the tests of scene files share: loading texts, and what was logged on which line.
#ifndef RV_SCENE_FIXTURE_H
#define RV_SCENE_FIXTURE_H

#include "dotrvs.h"
#include "dotrvs_input.h"
#include "node_tools.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

class SceneFiles : public Universe {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        folder = std::filesystem::temp_directory_path() /
                 node_tools::formatted("ruvell_scenes_%d", int(getpid()));
        std::filesystem::create_directories(folder);
    }
    void TearDown() override
    {
        Universe::TearDown();
        std::filesystem::remove_all(folder);
    }

    std::string path(const std::string& name) const { return (folder / name).string(); }

    std::string write(const std::string& name, const std::string& text) const
    {
        std::filesystem::create_directories((folder / name).parent_path());
        std::ofstream(folder / name, std::ios::binary) << text;
        return path(name);
    }

    int load(const std::string& text) { return RvRVSLoad(write("main.rvs", text).c_str()); }

    // Loads a text that must be free of problems.
    void loadWell(const std::string& text)
    {
        EXPECT_EQ(load(text), 0) << text;
        EXPECT_EQ(takeProblem(), "") << text;
    }

    // The problems that loading a text reports.
    std::string problemsOf(const std::string& text)
    {
        takeProblem();
        load(text);
        return takeProblem();
    }

    // The texts of plain messages that begin so.
    static std::vector<std::string> infos(const std::string& beginning)
    {
        std::vector<std::string> found;
        for (const LoggedMessage& m : messages())
            if (m.severity == 0 && m.text.rfind(beginning, 0) == 0)
                found.push_back(m.text);
        return found;
    }

    static RtNode* node(const char* name) { return RvNodeLookUpByName(name); }

    // What a parameter holds, in words; "none" without the node.
    static std::string value(const char* name, const char* param)
    {
        const RtNode* const n = node(name);
        const RtParamEntry* const entry = n ? RvNodeEntryLookUpParameter(n->entry, param) : nullptr;
        if (!entry)
            return "none";
        if (entry->type == RV_TYPE_ARRAY)
            return node_tools::describe(rv::loadArray(n, entry));
        return node_tools::describeElement(entry->type, rv::paramStorage(n, entry));
    }

    static std::string link(const char* name, const char* param)
    {
        const RtNode* const source = RvNodeGetLink(node(name), param);
        return source ? RvNodeGetName(source) : "null";
    }

    static std::string nodeName(const void* n)
    {
        return n ? RvNodeGetName(static_cast<const RtNode*>(n)) : "null";
    }

    // The names in an array of nodes.
    static std::string nodesOf(const char* name, const char* param)
    {
        const RtArray* const array = RvNodeGetArray(node(name), param);
        std::string text;
        for (unsigned i = 0; array && i < rv::totalElements(array); ++i)
            text.append(i ? " " : "").append(nodeName(rv::elementsOf<void*>(array)[i]));
        return text;
    }

    std::filesystem::path folder;
};

// An open input over a text, closed at the end of the scope.
struct TextInput {
    explicit TextInput(const std::string& t) : text(t), file(RvRVSCreateFile("text"))
    {
        rv::readFromText(file, text.data(), text.size());
        rv::scene_file_line = 0;
    }
    ~TextInput()
    {
        RvRVSDestroyFile(file);
        rv::scene_file_line = -1;
    }
    TextInput(const TextInput&) = delete;
    TextInput& operator=(const TextInput&) = delete;

    std::string token()
    {
        std::vector<char> area(rv::scene_token_size);
        RvRVSReadToken(file, area.data());
        return area.data();
    }
    std::string word()
    {
        std::vector<char> area(rv::scene_token_size);
        RvRVSReadWord(file, area.data());
        return area.data();
    }

    const std::string text;
    RtRVSFile* file;
};

#endif
