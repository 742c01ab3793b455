// Reads scene files as the library's reader does, without making any node, and notes what is wrong
// with them. Follows includes, and after the last scene what the procedurals name.
//
// What the reader makes of broken text is followed to the letter: a scan that read on differently
// from the load could not tell where the load would hang, nor what a hostile scene hides.
#ifndef RUVELL_SCAN_H
#define RUVELL_SCAN_H

#include "duration.h"
#include "findings.h"
#include "scene_lexer.h"
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <ruvell/rv.h>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace ruvell {

// A file or folder that the scene names.
struct FileUse {
    enum Kind {
        none,
        texture,
        output,
        procedural,
        texture_path,    // a list of folders, separated by ";" or ":"
        procedural_path, // separated by ";" only, as the next one
        plugin_path
    };
    Kind kind = none;
    std::string name;
    Place place;

    // What a string parameter of a type names.
    static Kind kindOf(const RtNodeEntry* entry, const char* parameter);
};

// One parameter assignment as it was read.
struct ParameterSpan {
    size_t load;     // the how-manieth file of this scan, includes counted where they stand
    int segment;     // includes of that file before it
    int reader_line; // the library's line counter behind it
    Place place;
    const std::string& node; // its name, perhaps empty
    const std::string& parameter;
};

struct ScanOptions {
    bool load_plugins = false; // from the folders that options blocks name, as the reader does
    std::vector<std::string> search_dirs; // both search paths are extended with them
    bool safe = false;
    // In safe mode: why this file may not be read or written, empty when it may.
    std::function<std::string(const std::string&)> refuseReading;
    std::function<std::string(const std::string&)> refuseWriting;
    uint64_t max_nodes = UINT64_MAX;
    std::optional<Milliseconds> max_time; // for the whole scan
    std::optional<int> frame;             // whose number goes into the names of outputs
    std::function<void(const ParameterSpan&)> on_parameter; // may be empty
};

// What the universe holds before the scenes are loaded.
struct UniverseState {
    std::vector<std::pair<std::string, const RtNodeEntry*>> nodes;
    std::string texture_searchpath, procedural_searchpath;

    static UniverseState now();
};

class SceneScan {
public:
    SceneScan(ScanOptions options, const UniverseState& universe, Findings& findings);
    ~SceneScan();

    // Scans one scene, found as the library finds it. `shown` is the name to report, when it is
    // another one.
    void scanScene(const std::string& name, const std::string& shown = "");
    // Follows procedurals and checks what only the whole scene can tell: names, outputs, files.
    void finish();

    // Files the scene writes to, with places for the numbers of frames as they are.
    std::vector<std::string> outputFiles() const;

private:
    struct UserParameter {
        int type;    // as the reader sees it: RV_TYPE_ARRAY for whatever takes an array
        int element; // of the array
    };
    using UserParameters = std::unordered_map<std::string, UserParameter>;

    struct Node {
        const RtNodeEntry* entry = nullptr;
        uint32_t file = 0;
        int line = 0;
        std::unique_ptr<UserParameters> user;
    };

    // A file being read.
    struct Input {
        SceneLexer& text;
        uint32_t file; // index into file_names
        size_t load;
        int segment = 0;
    };

    // The node whose parameters are being read.
    struct Block {
        Node* node;
        std::string name;
        Place begin;
        std::string last_parameter; // the last one that the type has
        bool last_was_array = false;
        int quiet_line = 0;    // an unknown name stands here: what follows on the line is its value
        bool is_quiet = false; // the structure is lost; nothing more is said until the block ends
    };

    struct Parameter {
        int type = RV_TYPE_NONE;
        int element = RV_TYPE_NONE;
        std::string name;                    // as written
        const char* declared_name = nullptr; // null for a user parameter
        const char* const* enumeration = nullptr;
        Place place;
    };

    struct Header {
        int type;
        uint64_t count; // of all keys
        bool is_given;  // false when a single value stands in place of an array
    };

    // The elements of an array as they are read, in numbers where an element takes several.
    struct Elements {
        Header header;
        uint64_t count, found;
    };

    struct Reference {
        Place place;
        std::string what; // "shader of "ball""
        bool is_boolean;
    };

    struct DelayedOverride {
        std::string node, text;
        Place place;
    };

    struct PendingString { // an unquoted word that is a string unless a node has that name
        FileUse use;
    };

    // Reading
    void scanFile(const std::string& path, uint32_t file);
    void scanStatements(Input& in);
    void scanStatement(Input& in);
    void scanBlock(Input& in, const std::string& type, const RtNodeEntry* entry);
    void skipBlock(Input& in, const std::string& type, const Place& begin);
    void reportUnknownType(Input& in, const std::string& type);
    void scanInclude(Input& in);
    void includeFile(const std::string& path, const Place& place);
    void scanOverrides(Input& in);
    bool scanOverride(Input& in, const Place& begin);
    bool scanDelayedOverride(Input& in, const std::string& node);
    bool scanParameter(Input& in, Block& block);
    Parameter lookUp(Block& block, const std::string& name);
    void scanDeclaration(Input& in, Block& block);
    void declare(Block& block, const std::string& name, const std::vector<std::string>& words,
                 const Place& place);
    void scanValue(Input& in, Block& block, const Parameter& parameter);
    void scanReference(Input& in, Block& block, const Parameter& parameter);
    void scanBoolean(Input& in, Block& block, const Parameter& parameter);
    void scanNumbers(Input& in, Block& block, const Parameter& parameter, int count);
    void scanString(Input& in, Block& block, const Parameter& parameter);
    bool isAddress(const RtNodeEntry* entry, const Parameter& parameter) const;
    void scanNodeName(Input& in, Block& block, const Parameter& parameter);
    void scanEnumeration(Input& in, Block& block, const Parameter& parameter);
    bool scanArray(Input& in, Block& block, const Parameter& parameter, int depth);
    void checkHeader(const Parameter& parameter, const std::string& a, const std::string& b,
                     uint64_t elements, uint64_t keys);
    bool scanElements(Input& in, Block& block, const Parameter& parameter, const Header& header,
                      int depth);
    bool scanArrayElements(Input& in, Block& block, const Parameter& parameter,
                           const Header& header, int depth);
    void scanNumberElements(Input& in, Block& block, const Parameter& parameter,
                            Elements& elements);
    void scanBooleanElements(Input& in, Block& block, const Parameter& parameter,
                             Elements& elements);
    void scanTextElements(Input& in, Block& block, const Parameter& parameter, Elements& elements);
    bool goesOn(Input& in, Block& block, const Parameter& parameter, const Elements& elements,
                std::string_view token);
    void reportElement(Input& in, Block& block, Topic topic, const Place& place,
                       const std::string& message, const std::string& hint = "");
    static std::string tooFew(const Parameter& parameter, const Elements& elements);
    void reportUnknownParameter(Block& block, const std::string& name, const Place& place);
    void reportText(const Input& in);

    // Meaning
    void rename(Block& block, const std::string& name, uint32_t file, const Place& place);
    Node* findNode(const std::string& name);
    void addReference(const std::string& target, const Block& block, const Parameter& parameter);
    void takeString(const FileUse& use);
    void takeStrings(const Block& block, const Parameter& parameter,
                     std::vector<std::string> values);
    void resolvePending(size_t first);
    void extendSearchPaths();
    void addNodes(uint64_t count, const Place& place);
    bool isOutOfTime();

    // The whole scene
    void followProcedurals(size_t first_use);
    void followProcedural(const FileUse& use);
    bool applyOverrides();
    void checkReferences();
    void checkOverrides();
    void checkOutputs();
    void checkOutputNode(const std::string& statement, const std::string& name, int kind);
    void checkFiles();
    void checkFile(const FileUse& use);
    std::vector<std::string> textureCandidates(const std::string& name) const;
    void checkTexture(const FileUse& use);
    void checkTextureFile(const FileUse& use);
    void checkTiles(const FileUse& use);
    void checkProcedural(const FileUse& use);
    void checkOutputFile(const FileUse& use);
    void checkFolders(const FileUse& use);

    // Files
    enum class Opening { known, unseen, fails };
    Opening openScene(const std::string& name, const Place& place, std::string* path);
    bool mayRead(const std::string& path, const Place& place);
    uint32_t fileIndex(const std::string& shown);
    Place here(const Input& in) const;

    // Findings
    void report(Topic topic, Weight weight, const Place& place, std::string message,
                std::string hint = "", Effect effect = Effect::none);
    void lostStructure(Block* block, const Place& place, std::string message,
                       std::string hint = "");
    void forbid(const Place& place, const std::string& what, const std::string& hint = "");
    std::string nearestNode(const std::string& name, int kind);
    // As didYouMean; empty after many, because each costs a look at all names.
    std::string suggest(const std::string& wrong, const std::vector<std::string>& known);
    int suggestions_left = 100;

    ScanOptions options;
    Findings& findings;
    const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    std::vector<std::string> file_names;
    std::unordered_map<std::string, Node> nodes;
    std::unordered_map<std::string, std::vector<Reference>> references; // by the unknown name
    std::unordered_map<std::string, uint64_t> reference_counts;
    std::vector<DelayedOverride> overrides;
    std::vector<PendingString> pending_strings;
    std::vector<FileUse> uses;
    std::set<std::string> ignored_types;
    std::string texture_searchpath, procedural_searchpath, plugin_searchpath;
    std::vector<std::string> outputs;
    Place outputs_place;
    std::vector<std::string> open_files; // real paths of the includes being read
    std::unordered_map<std::string, uint64_t> procedural_nodes; // nodes below, by real path
    uint64_t node_count = 0;
    size_t load_count = 0;
    bool is_stopped = false;       // a limit was reached
    bool is_out_of_time = false;   // that of time: nothing more is said
    bool has_unseen_nodes = false; // some procedural makes nodes that cannot be known
};

} // namespace ruvell

#endif
