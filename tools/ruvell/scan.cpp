// The walk through the text: statements, blocks, parameters and their values.
#include "scan.h"
#include "report.h"
#include "scan_words.h"
#include "scene_paths.h"
#include <algorithm>
#include <cctype>
#include <cstring>

namespace ruvell {

static constexpr size_t max_open_files = 200; // as the reader has it
static constexpr size_t max_loads = 100000;

// ---- Types ----

static std::vector<std::string> parameterNames(const RtNodeEntry* entry)
{
    std::vector<std::string> names;
    for (int i = 0; i < RvNodeEntryGetNumParams(entry); ++i)
        names.emplace_back(RvParamGetName(RvNodeEntryGetParameter(entry, i)));
    return names;
}

static std::vector<std::string> typeNames()
{
    std::vector<std::string> names;
    for (int i = 0; i < RvGetNumInstalledNodes(); ++i)
        names.emplace_back(RvNodeEntryGetName(RvNodeEntryLookUpByIndex(i)));
    return names;
}

FileUse::Kind FileUse::kindOf(const RtNodeEntry* entry, const char* parameter)
{
    static constexpr struct {
        const char *type, *parameter;
        FileUse::Kind kind;
    } rows[] = { { "procedural", "dso", FileUse::procedural },
                 { "options", "texture_searchpath", FileUse::texture_path },
                 { "options", "procedural_searchpath", FileUse::procedural_path },
                 { "options", "shader_searchpath", FileUse::plugin_path } };
    for (const auto& row : rows)
        if (!std::strcmp(RvNodeEntryGetName(entry), row.type) &&
            !std::strcmp(parameter, row.parameter))
            return row.kind;
    if (std::strcmp(parameter, "filename") != 0)
        return FileUse::none;
    return RvNodeEntryGetType(entry) == RV_NODE_DRIVER ? FileUse::output : FileUse::texture;
}

// ---- The universe ----

UniverseState UniverseState::now()
{
    UniverseState state;
    RtNodeIterator* it = RvUniverseGetNodeIterator(RV_NODE_ALL);
    while (!RvNodeIteratorFinished(it)) {
        const RtNode* node = RvNodeIteratorGetNext(it);
        state.nodes.emplace_back(RvNodeGetName(node), RvNodeGetNodeEntry(node));
    }
    RvNodeIteratorDestroy(it);
    const RtNode* options = RvUniverseGetOptions();
    if (const char* path = RvNodeGetStr(options, "texture_searchpath"))
        state.texture_searchpath = path;
    if (const char* path = RvNodeGetStr(options, "procedural_searchpath"))
        state.procedural_searchpath = path;
    return state;
}

SceneScan::SceneScan(ScanOptions scan_options, const UniverseState& universe, Findings& found)
    : options(std::move(scan_options)), findings(found),
      texture_searchpath(universe.texture_searchpath),
      procedural_searchpath(universe.procedural_searchpath)
{
    for (const auto& [name, entry] : universe.nodes)
        nodes[name].entry = entry;
}

SceneScan::~SceneScan() = default;

// ---- Findings ----

void SceneScan::report(Topic topic, Weight weight, const Place& place, std::string message,
                       std::string hint, Effect effect)
{
    if (!is_out_of_time)
        findings.add({ place, weight, std::move(message), std::move(hint), topic, effect });
}

// From here on the reader takes the text otherwise than its author. In safe mode that alone is a
// reason to refuse the scene: nobody shall hide something from the eye, or from this scan.
void SceneScan::lostStructure(Block* block, const Place& place, std::string message,
                              std::string hint)
{
    if (!block || !block->is_quiet)
        report(Topic::braces, Weight::error, place,
               (options.safe ? "not allowed in safe mode: " : "") + message, hint,
               options.safe ? Effect::forbidden : Effect::none);
    if (block)
        block->is_quiet = true;
}

void SceneScan::forbid(const Place& place, const std::string& what, const std::string& hint)
{
    report(Topic::other, Weight::error, place, "not allowed in safe mode: " + what, hint,
           Effect::forbidden);
}

Place SceneScan::here(const Input& in) const
{
    return { file_names[in.file], in.text.tokenLine() };
}

uint32_t SceneScan::fileIndex(const std::string& shown)
{
    file_names.push_back(shown);
    findings.nameFile(shown);
    return static_cast<uint32_t>(file_names.size() - 1);
}

// ---- Files ----

void SceneScan::scanFile(const std::string& path, uint32_t file)
{
    const std::unique_ptr<SceneLexer> text =
        SceneLexer::openFile(path, [this] { return isOutOfTime(); });
    if (!text) {
        report(Topic::missing_file, Weight::error, { file_names[file], 0 },
               "cannot be opened: " + systemError());
        return;
    }
    const size_t first_pending = pending_strings.size();
    Input in{ *text, file, load_count++ };
    scanStatements(in);
    reportText(in);
    resolvePending(first_pending);
}

void SceneScan::reportText(const Input& in)
{
    const std::string& name = file_names[in.file];
    const Effect effect = options.safe ? Effect::forbidden : Effect::none;
    if (in.text.nulLine())
        report(Topic::text, Weight::error, { name, in.text.nulLine() },
               "a NUL byte ends the token, and the block, that it stands in", "", effect);
    if (in.text.markerLine())
        report(Topic::text, Weight::error, { name, in.text.markerLine() },
               "the byte 0xFF counts as the end of the file", "", effect);
    if (in.text.cutTokenLine())
        report(Topic::text, Weight::error, { name, in.text.cutTokenLine() },
               "a word is longer than 32767 characters and is cut", "", effect);
    if (in.text.hasReadError())
        report(Topic::text, Weight::error, { name, in.text.currentLine() },
               "cannot be read to its end: the file is damaged");
}

void SceneScan::scanStatements(Input& in)
{
    while (!is_stopped && in.text.peek() != SceneLexer::end_marker) {
        scanStatement(in);
        if (!in.text.skipBlanks())
            return;
    }
}

// ---- Statements ----

// The load ends at an include that fails; the scan goes on, to find what else is wrong.
void SceneScan::scanStatement(Input& in)
{
    const std::string word = in.text.readWord();
    if (word.empty())
        return;
    if (word == "include")
        return scanInclude(in);
    if (word == "override")
        return scanOverrides(in);
    const Place begin = here(in);
    const RtNodeEntry* entry = RvNodeEntryLookUp(word.c_str());
    if (!entry) {
        reportUnknownType(in, word);
        ignored_types.insert(word); // even if a plug-in should bring it later
        skipBlock(in, word, begin);
    } else if (ignored_types.count(word))
        skipBlock(in, word, begin);
    else
        scanBlock(in, word, entry);
}

void SceneScan::reportUnknownType(Input& in, const std::string& type)
{
    const Place place = here(in);
    if (type == "}")
        lostStructure(nullptr, place, "'}' without a block: there is one too many above");
    else if (type == "{")
        lostStructure(nullptr, place, "'{' without a node type in front of it");
    else if (type.size() > 1 && type.find_first_of("{}") != std::string::npos)
        lostStructure(nullptr, place, inQuotes(type) + " is read as one word",
                      "write a blank on both sides of '{' and '}'");
    else
        report(Topic::unknown_type, Weight::error, place, "unknown node type " + inQuotes(type),
               suggest(type, typeNames()));
}

// The reader passes over the blocks of unknown types up to the next "}", and only that stops it.
void SceneScan::skipBlock(Input& in, const std::string& type, const Place& begin)
{
    for (;;) {
        const std::string_view token = in.text.readToken();
        if (token == "}")
            return;
        if (token.empty() && in.text.atEnd()) {
            report(Topic::braces, Weight::error, begin,
                   "the block of " + inQuotes(type) + " is never closed",
                   "'}' is missing; loading the file would never end", Effect::endless);
            is_stopped = true;
            return;
        }
    }
}

// What the scan says after that would be about a text that was not read to its end.
bool SceneScan::isOutOfTime()
{
    if (is_out_of_time || !options.max_time ||
        std::chrono::steady_clock::now() - start < *options.max_time)
        return is_out_of_time;
    forbid({ file_names.empty() ? "" : file_names.back(), 0 },
           "it takes longer than " + clockText(*options.max_time) + " to look at the scene",
           "see --max-scan");
    return is_stopped = is_out_of_time = true;
}

void SceneScan::addNodes(uint64_t count, const Place& place)
{
    node_count += count;
    if (node_count <= options.max_nodes || is_stopped)
        return;
    forbid(place, "more than " + std::to_string(options.max_nodes) + " nodes", "see --max-nodes");
    is_stopped = true;
}

void SceneScan::scanBlock(Input& in, const std::string& type, const RtNodeEntry* entry)
{
    Node anonymous;
    Block block{ &anonymous, "", here(in), "" };
    addNodes(1, block.begin);
    if (!std::strcmp(RvNodeEntryGetName(entry), "options"))
        block = { &nodes["options"], "options", here(in), "" };
    block.node->entry = entry;

    const std::string open(in.text.readToken());
    if (open != "{") {
        lostStructure(&block, here(in),
                      "'{' is missing behind " + inQuotes(type) + ": found " + inQuotes(open));
    }
    while (!is_stopped && scanParameter(in, block)) {
    }
    if (block.name == "options" && options.load_plugins && !options.safe &&
        !plugin_searchpath.empty())
        RvLoadPlugins(plugin_searchpath.c_str());
}

void SceneScan::scanInclude(Input& in)
{
    std::string name = in.text.readWord();
    const Place place = here(in);
    name = SceneLexer::unquote(name);
    if (name.empty()) {
        report(Topic::missing_file, Weight::error, place, "include without a file name",
               "names of one or two letters need <angle brackets>");
        return;
    }
    const size_t load = load_count;
    std::string path;
    if (openScene(name, place, &path) == Opening::known)
        includeFile(path, place);
    load_count = std::max(load_count, load + 1);
    in.text.restartReaderLine();
    ++in.segment;
}

void SceneScan::includeFile(const std::string& path, const Place& place)
{
    if (isOutOfTime())
        return;
    const auto refuse = [&](const std::string& message) {
        report(Topic::nesting, Weight::error, place, message, "", Effect::endless);
    };
    const std::string real = realPath(path);
    if (std::find(open_files.begin(), open_files.end(), real) != open_files.end())
        return refuse(inQuotes(path) + " includes itself");
    if (open_files.size() >= max_open_files)
        return refuse("more than " + std::to_string(max_open_files) + " files inside each other");
    if (load_count >= max_loads) {
        is_stopped = true;
        return refuse("more than " + std::to_string(max_loads) + " files included");
    }
    open_files.push_back(real);
    scanFile(path, fileIndex(path));
    open_files.pop_back();
}

// ---- Overrides ----

void SceneScan::scanOverrides(Input& in)
{
    const Place begin = here(in);
    const std::string open(in.text.readToken());
    if (open != "{")
        lostStructure(nullptr, here(in),
                      "'{' is missing behind \"override\": found " + inQuotes(open));
    while (!is_stopped && scanOverride(in, begin)) {
    }
}

// One line of the block. False at its end.
bool SceneScan::scanOverride(Input& in, const Place& begin)
{
    const std::string name(in.text.readToken());
    if (name == "}")
        return false;
    if (name.empty()) {
        lostStructure(nullptr, begin, "the override block is not closed", "'}' is missing");
        return false;
    }
    Node* node = findNode(name);
    if (!node)
        return scanDelayedOverride(in, name);
    Block block{ node, name, here(in), "" };
    const bool goes_on = scanParameter(in, block);
    if (!goes_on)
        lostStructure(&block, block.begin,
                      "override of " + inQuotes(name) + " without a parameter");
    return goes_on;
}

// The value is kept as raw text, up to the end of the line. False when that ends the block.
bool SceneScan::scanDelayedOverride(Input& in, const std::string& node)
{
    std::string text(in.text.readToken());
    const Place place = here(in);
    if (text.empty() || text == "}") {
        lostStructure(nullptr, place, "override of " + inQuotes(node) + " without a parameter");
        return false;
    }
    text += ' ';
    int c;
    while ((c = in.text.readChar()) != '\n' && c != '}' && c != SceneLexer::end_marker)
        text += static_cast<char>(c);
    if (c == SceneLexer::end_marker)
        lostStructure(nullptr, place, "the override block is not closed", "'}' is missing");
    overrides.push_back({ node, text.substr(0, text.find('\0')) + '\n', place });
    return c == '\n';
}

// ---- Parameters ----

SceneScan::Parameter SceneScan::lookUp(Block& block, const std::string& name)
{
    Parameter parameter;
    parameter.name = name;
    if (const RtParamEntry* param = declaredParameter(block.node->entry, name)) {
        parameter.type = RvParamGetType(param);
        parameter.declared_name = RvParamGetName(param);
        parameter.enumeration = RvParamGetEnum(param);
        if (parameter.type == RV_TYPE_ARRAY)
            if (const RtArray* array = RvParamGetDefault(param)->ARRAY)
                parameter.element = array->type;
        return parameter;
    }
    if (block.node->user)
        if (const auto found = block.node->user->find(name); found != block.node->user->end()) {
            parameter.type = found->second.type;
            parameter.element = found->second.element;
            return parameter;
        }
    if (name == "@before")
        parameter.type = RV_TYPE_NODE;
    return parameter;
}

// One assignment. False at the end of the block.
bool SceneScan::scanParameter(Input& in, Block& block)
{
    const std::string name(in.text.readToken());
    if (name == "}")
        return false;
    if (name.empty()) {
        if (in.text.atEnd())
            lostStructure(&block, block.begin,
                          "the block of " + inQuotes(RvNodeEntryGetName(block.node->entry)) +
                              " is not closed",
                          "'}' is missing");
        return false;
    }
    Parameter parameter = lookUp(block, name);
    parameter.place = here(in);
    if (parameter.type == RV_TYPE_NONE && name == "declare")
        scanDeclaration(in, block);
    else if (parameter.type == RV_TYPE_NONE)
        reportUnknownParameter(block, name, parameter.place);
    else {
        block.quiet_line = 0;
        block.last_parameter = name;
        block.last_was_array = parameter.type == RV_TYPE_ARRAY;
        scanValue(in, block, parameter);
    }
    if (options.on_parameter)
        options.on_parameter(
            { in.load, in.segment, in.text.readerLine(), parameter.place, block.name, name });
    return true;
}

void SceneScan::reportUnknownParameter(Block& block, const std::string& name, const Place& place)
{
    if (block.is_quiet)
        return;
    const std::string type = RvNodeEntryGetName(block.node->entry);
    const bool is_value = isNumeric(name) || name.front() == '"' || isBooleanKeyword(name);
    if (block.quiet_line && (place.line == block.quiet_line || is_value))
        return;
    if (is_value && !block.last_parameter.empty())
        report(Topic::unknown_parameter, Weight::error, place,
               inQuotes(block.last_parameter) + " is followed by too many values, from " +
                   inQuotes(name) + " on",
               block.last_was_array
                   ? "an array begins with its number of elements, of keys, and its type"
                   : "");
    else if (name == "{")
        lostStructure(&block, place, "'{' inside the block of " + inQuotes(type));
    else if ((RvNodeEntryLookUp(name.c_str()) || name == "include" || name == "override") &&
             place.line != block.begin.line)
        lostStructure(&block, place,
                      inQuotes(name) + " stands inside the block of " + inQuotes(type) +
                          " of line " + std::to_string(block.begin.line),
                      "is '}' missing above?");
    else if (name.size() > 1 && name.find_first_of("{}") != std::string::npos)
        lostStructure(&block, place, inQuotes(name) + " is read as one word",
                      "write a blank on both sides of '{' and '}'");
    else
        report(Topic::unknown_parameter, Weight::error, place,
               inQuotes(type) + " has no parameter " + inQuotes(name),
               suggest(name, parameterNames(block.node->entry)));
    block.quiet_line = place.line;
}

// ---- Declarations ----

static bool isUserName(const std::string& name)
{
    if (name.empty() || isDigit(name[0]) || name[0] == '-')
        return false;
    return std::all_of(name.begin(), name.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || std::strchr("_:./|-", c);
    });
}

void SceneScan::scanDeclaration(Input& in, Block& block)
{
    const std::string name = in.text.readWord();
    const Place place = here(in);
    const std::string first = in.text.readWord(), second = in.text.readWord();
    const std::string third = upperCase(second) == "ARRAY" ? in.text.readWord() : "";
    for (const std::string& word : { name, first, second, third })
        if (word == "}")
            return lostStructure(&block, place, "a declaration needs a name, a category and a type",
                                 "the reader takes '}' for one of them");
    declare(block, name, splitWords(first + " " + second + " " + third), place);
}

void SceneScan::declare(Block& block, const std::string& name,
                        const std::vector<std::string>& words, const Place& place)
{
    const auto refuse = [&](const std::string& message, const std::string& hint = "") {
        report(Topic::declaration, Weight::error, place, message, hint);
    };
    if (!isUserName(name))
        return refuse(inQuotes(name) + " cannot be declared: not a valid name");
    const bool is_own = block.node->user && block.node->user->count(name);
    if (is_own || RvNodeEntryLookUpParameter(block.node->entry, name.c_str()))
        return refuse(inQuotes(name) + " cannot be declared: the name is taken");
    if (words.size() < 2)
        return refuse("the declaration of " + inQuotes(name) + " needs a category and a type");
    const std::string category = upperCase(words[0]);
    if (category != "CONSTANT" && category != "UNIFORM" && category != "VARYING")
        return refuse("unknown category " + inQuotes(words[0]) + " of " + inQuotes(name),
                      "one of constant, uniform, varying");
    const int code = typeOfName(words[1]);
    const size_t word_count = code == RV_TYPE_ARRAY ? 3 : 2;
    const int element = word_count == 3 && words.size() > 2 ? typeOfName(words[2]) : RV_TYPE_NONE;
    if (code == RV_TYPE_NONE)
        return refuse("unknown type " + inQuotes(words[1]) + " of " + inQuotes(name),
                      nearestTypeName(words[1]));
    if (words.size() != word_count || (word_count == 3 && element == RV_TYPE_NONE))
        return refuse("the declaration of " + inQuotes(name) + " is not understood",
                      "arrays have an element type, other types nothing behind them");
    if (category == "VARYING" && !std::strcmp(RvNodeEntryGetName(block.node->entry), "ginstance"))
        return refuse(inQuotes(name) + " cannot be declared: instances take no varying data");

    if (!block.node->user)
        block.node->user = std::make_unique<UserParameters>();
    const bool is_constant = category == "CONSTANT";
    UserParameter parameter{ is_constant ? code : RV_TYPE_ARRAY, code };
    if (code == RV_TYPE_ARRAY && is_constant)
        parameter.element = element;
    block.node->user->emplace(name, parameter);
}

} // namespace ruvell
