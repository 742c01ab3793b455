// The walk through the text: statements, blocks, parameters and their values.
#include "scan.h"
#include "report.h"
#include "scan_words.h"
#include "scene_paths.h"
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace ruvell {

static constexpr size_t max_include_depth = 500;
static constexpr size_t max_loads = 100000;
static constexpr int max_array_depth = 32;
static constexpr size_t max_strings = 100000; // of an array whose text is looked at

// ---- Words ----

static bool isNumeric(std::string_view token)
{
    return !token.empty() && token.find_first_not_of("0123456789.eE+-") == std::string_view::npos &&
           token.find_first_of("0123456789") != std::string_view::npos &&
           (std::isalpha(static_cast<unsigned char>(token[0])) == 0);
}

// What atof() makes a number of, if only of its beginning.
static bool startsAsNumber(std::string_view token)
{
    if (isNumeric(token))
        return true;
    const std::string text(token.substr(0, 64));
    char* end;
    std::strtod(text.c_str(), &end);
    return end != text.c_str();
}

static bool isDigit(char c) { return c >= '0' && c <= '9'; }

static bool isBooleanKeyword(std::string_view token)
{
    return token == "yes" || token == "no" || token == "on" || token == "off" || token == "true" ||
           token == "false";
}

static bool isBoolean(std::string_view token)
{
    return isBooleanKeyword(token) || (!token.empty() && isDigit(token[0]));
}

// Whether the parameter may be linked by naming a node in place of a value.
static bool takesLinks(int type)
{
    return numbersOf(type) > 0 || type == RV_TYPE_BOOLEAN || type == RV_TYPE_STRING;
}

static bool isComponent(int type, char letter)
{
    static constexpr struct {
        int type;
        const char* letters;
    } rows[] = { { RV_TYPE_RGB, "rgb" },
                 { RV_TYPE_RGBA, "rgba" },
                 { RV_TYPE_VECTOR, "xyz" },
                 { RV_TYPE_POINT, "xyz" },
                 { RV_TYPE_POINT2, "xy" } };
    for (const auto& row : rows)
        if (row.type == type)
            return letter && std::strchr(row.letters, letter);
    return false;
}

// The parameter that a name means, with or without a component; null when the type has none.
static const RtParamEntry* declaredParameter(const RtNodeEntry* entry, const std::string& name)
{
    const size_t dot = name.find('.');
    const RtParamEntry* param = RvNodeEntryLookUpParameter(entry, name.substr(0, dot).c_str());
    if (!param || dot == std::string::npos)
        return param;
    const bool one_letter =
        dot + 1 < name.size() && (dot + 2 == name.size() || name[dot + 2] == '.');
    return one_letter && isComponent(RvParamGetType(param), name[dot + 1]) ? param : nullptr;
}

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

static FileUse::Kind fileKind(const RtNodeEntry* entry, const char* parameter)
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

void SceneScan::forbid(const Place& place, const std::string& what)
{
    report(Topic::other, Weight::error, place, "not allowed in safe mode: " + what, "",
           Effect::forbidden);
}

Place SceneScan::here(const Input& in) const
{
    return { file_names[in.file], in.text.tokenLine() };
}

uint32_t SceneScan::fileIndex(const std::string& shown)
{
    file_names.push_back(shown);
    return static_cast<uint32_t>(file_names.size() - 1);
}

// ---- Files ----

void SceneScan::scanFile(const std::string& path, uint32_t file)
{
    const std::unique_ptr<SceneLexer> text = SceneLexer::openFile(path);
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
    if (in.text.peek() == SceneLexer::end_marker)
        return;
    do {
        if (!scanStatement(in) || is_stopped)
            return;
        in.text.skipBlanks();
    } while (in.text.peek() != SceneLexer::end_marker);
}

// ---- Statements ----

// False when the load fails here.
bool SceneScan::scanStatement(Input& in)
{
    const std::string word = in.text.readWord();
    if (word.empty())
        return true;
    if (word == "include")
        return scanInclude(in);
    if (word == "override") {
        scanOverrides(in);
        return true;
    }
    const Place begin = here(in);
    const RtNodeEntry* entry = RvNodeEntryLookUp(word.c_str());
    if (!entry) {
        reportUnknownType(in, word);
        skipBlock(in, word, begin);
    } else if (ignored_types.count(word))
        skipBlock(in, word, begin);
    else
        scanBlock(in, word, entry);
    return true;
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
               didYouMean(nearestNames(type, typeNames())));
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

void SceneScan::addNodes(uint64_t count, const Place& place)
{
    node_count += count;
    if (node_count <= options.max_nodes || is_stopped)
        return;
    report(Topic::other, Weight::error, place,
           "not allowed in safe mode: more than " + std::to_string(options.max_nodes) + " nodes",
           "see --max-nodes", Effect::forbidden);
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

bool SceneScan::scanInclude(Input& in)
{
    std::string name = in.text.readWord();
    const Place place = here(in);
    name = SceneLexer::unquote(name);
    if (name.empty()) {
        report(Topic::missing_file, Weight::error, place, "include without a file name",
               "names of one or two letters need <angle brackets>", Effect::none);
        return false;
    }
    const size_t load = load_count;
    std::string path;
    const Opening opening = openScene(name, place, &path);
    if (opening == Opening::known)
        includeFile(path, place);
    load_count = std::max(load_count, load + 1);
    in.text.restartReaderLine();
    ++in.segment;
    return opening != Opening::fails && !is_stopped;
}

void SceneScan::includeFile(const std::string& path, const Place& place)
{
    const auto refuse = [&](const std::string& message) {
        report(Topic::other, Weight::error, place, message, "loading it would never end",
               Effect::endless);
        is_stopped = true;
    };
    const std::string real = realPath(path);
    if (std::find(open_files.begin(), open_files.end(), real) != open_files.end())
        return refuse(inQuotes(path) + " includes itself");
    if (open_files.size() >= max_include_depth)
        return refuse("more than " + std::to_string(max_include_depth) +
                      " files included inside each other");
    if (load_count >= max_loads)
        return refuse("more than " + std::to_string(max_loads) + " files included");
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
    while (!is_stopped) {
        const std::string name(in.text.readToken());
        if (name == "}")
            return;
        if (name.empty()) {
            lostStructure(nullptr, begin, "the override block is not closed", "'}' is missing");
            return;
        }
        Node* node = findNode(name);
        if (!node) {
            if (scanDelayedOverride(in, name))
                return;
            continue;
        }
        Block block{ node, name, here(in), "" };
        in.is_deferred = true;
        const bool goes_on = scanParameter(in, block);
        in.is_deferred = false;
        if (!goes_on)
            lostStructure(nullptr, block.begin,
                          "override of " + inQuotes(name) + " without a parameter");
    }
}

// Kept as raw text, to the end of the line. True when it closes the block.
bool SceneScan::scanDelayedOverride(Input& in, const std::string& node)
{
    std::string text(in.text.readToken());
    const Place place = here(in);
    text += ' ';
    for (;;) {
        const int c = in.text.readChar();
        if (c == '\n' || c == '}' || c == SceneLexer::end_marker) {
            overrides.push_back({ node, text + '\n', place });
            if (c == SceneLexer::end_marker)
                lostStructure(nullptr, place, "the override block is not closed", "'}' is missing");
            return c != '\n';
        }
        text += static_cast<char>(c);
    }
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
            parameter.user = &found->second;
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
               didYouMean(nearestNames(name, parameterNames(block.node->entry))));
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
    const std::string category = upperCase(in.text.readWord());
    const std::string type = upperCase(in.text.readWord());
    const std::string element = type == "ARRAY" ? in.text.readWord() : "";

    for (const std::string& word : { name, category, type, element })
        if (word == "}")
            lostStructure(&block, place, "a declaration needs a name, a category and a type",
                          "the reader takes '}' for one of them");
    const auto refuse = [&](const std::string& message, const std::string& hint = "") {
        report(Topic::declaration, Weight::error, place, message, hint);
    };
    const int code = typeOfName(type);
    const int element_code = typeOfName(element);
    if (!isUserName(name))
        return refuse(inQuotes(name) + " cannot be declared: not a valid name");
    if (lookUp(block, name).type != RV_TYPE_NONE)
        return refuse(inQuotes(name) + " cannot be declared: the name is taken");
    if (category != "CONSTANT" && category != "UNIFORM" && category != "VARYING")
        return refuse("unknown category " + inQuotes(category) + " of " + inQuotes(name),
                      "one of constant, uniform, varying");
    if (code == RV_TYPE_NONE || (code == RV_TYPE_ARRAY && element_code == RV_TYPE_NONE)) {
        const std::string& wrong = code == RV_TYPE_NONE ? type : element;
        return refuse("unknown type " + inQuotes(wrong) + " of " + inQuotes(name),
                      nearestTypeName(wrong));
    }
    if (category == "VARYING" && !std::strcmp(RvNodeEntryGetName(block.node->entry), "ginstance"))
        return refuse(inQuotes(name) + " cannot be declared: instances take no varying data");

    if (!block.node->user)
        block.node->user = std::make_unique<UserParameters>();
    const bool is_array = code == RV_TYPE_ARRAY || category != "CONSTANT";
    block.node->user->emplace(name,
                              UserParameter{ is_array ? RV_TYPE_ARRAY : code,
                                             code == RV_TYPE_ARRAY ? element_code : RV_TYPE_NONE });
}

// ---- Values ----

void SceneScan::scanValue(Input& in, Block& block, Parameter& parameter)
{
    if (parameter.name != "name" && takesLinks(parameter.type)) {
        in.text.skipBlanks();
        const int c = in.text.peek();
        const bool is_literal = (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '"';
        if (!is_literal)
            return scanReference(in, block, parameter);
    }
    switch (parameter.type) {
    case RV_TYPE_BOOLEAN: return scanBoolean(in, block, parameter);
    case RV_TYPE_STRING: return scanString(in, block, parameter);
    case RV_TYPE_POINTER:
    case RV_TYPE_NODE: return scanNodeName(in, block, parameter);
    case RV_TYPE_ENUM: return scanEnumeration(in, block, parameter);
    case RV_TYPE_ARRAY: return scanArray(in, block, parameter, 0);
    default: return scanNumbers(in, block, parameter, numbersOf(parameter.type));
    }
}

static std::string noValue(const std::string& parameter)
{
    return inQuotes(parameter) + " has no value: the reader takes '}' for it";
}

void SceneScan::scanReference(Input& in, Block& block, const Parameter& parameter)
{
    const std::string target(in.text.readToken());
    if (parameter.type == RV_TYPE_BOOLEAN && isBooleanKeyword(target))
        return;
    if (target == "}" || target.empty())
        return lostStructure(&block, parameter.place, noValue(parameter.name));
    if (parameter.type == RV_TYPE_STRING) {
        const FileUse::Kind kind = parameter.declared_name
                                       ? fileKind(block.node->entry, parameter.declared_name)
                                       : FileUse::none;
        std::string text = target;
        std::replace(text.begin(), text.end(), '\\', '/');
        if (kind != FileUse::none)
            pending_strings.push_back({ { kind, text, parameter.place } });
        return; // no node of that name: then the word is the string
    }
    addReference(target, block, parameter);
}

void SceneScan::scanBoolean(Input& in, Block& block, const Parameter& parameter)
{
    const std::string token(in.text.readToken());
    if (token == "}" || token.empty())
        return lostStructure(&block, parameter.place, noValue(parameter.name));
    if (!isBoolean(token))
        report(Topic::bad_boolean, Weight::error, parameter.place,
               inQuotes(parameter.name) + ": " + inQuotes(token) + " is neither true nor false",
               "one of yes, no, on, off, true, false, 1, 0");
}

void SceneScan::scanNumbers(Input& in, Block& block, const Parameter& parameter, int count)
{
    for (int i = 0; i < count; ++i) {
        const std::string_view token = in.text.readToken();
        if (isNumeric(token)) {
            const bool is_whole = parameter.type == RV_TYPE_BYTE || parameter.type == RV_TYPE_INT ||
                                  parameter.type == RV_TYPE_UINT;
            if (is_whole && token.find_first_of(".eE") != std::string_view::npos)
                report(Topic::other, Weight::warning, parameter.place,
                       inQuotes(parameter.name) + ": " + inQuotes(token) + " is not a whole number",
                       "what follows the first digits is dropped");
            continue;
        }
        const std::string wanted = inQuotes(parameter.name) + " needs " +
                                   (count == 1 ? "a number" : std::to_string(count) + " numbers");
        const std::string found =
            count == 1 ? ", found " : ", found " + std::to_string(i) + " and then ";
        if (token == "}" || token.empty())
            return lostStructure(&block, parameter.place,
                                 wanted + found + (token.empty() ? "nothing" : "'}'"),
                                 token.empty() ? "" : "the reader takes '}' for one of them");
        if (startsAsNumber(token)) {
            report(Topic::other, Weight::warning, parameter.place,
                   inQuotes(parameter.name) + ": " + inQuotes(token) + " is not a plain number");
            continue;
        }
        if (!block.is_quiet)
            report(Topic::other, Weight::error, parameter.place, wanted + found + inQuotes(token),
                   token.front() == '"' ? "a quoted number counts as 0" : "");
        block.quiet_line = in.text.tokenLine();
    }
}

void SceneScan::scanString(Input& in, Block& block, const Parameter& parameter)
{
    const std::string value = in.text.readWord();
    if (value == "}" && !in.text.wasQuoted())
        return lostStructure(&block, parameter.place, noValue(parameter.name));
    if (!parameter.declared_name)
        return;
    if (!std::strcmp(parameter.declared_name, "name"))
        return rename(block, value, in.file, parameter.place);
    const FileUse::Kind kind = fileKind(block.node->entry, parameter.declared_name);
    if (kind != FileUse::none)
        takeString({ kind, value, parameter.place });
}

void SceneScan::scanNodeName(Input& in, Block& block, const Parameter& parameter)
{
    const std::string target = in.text.readWord();
    if (target.empty() || (target == "}" && !in.text.wasQuoted()))
        return lostStructure(&block, parameter.place, noValue(parameter.name));
    addReference(target, block, parameter);
}

void SceneScan::scanEnumeration(Input& in, Block& block, const Parameter& parameter)
{
    const std::string value = in.text.readWord();
    if (value == "}" && !in.text.wasQuoted())
        return lostStructure(&block, parameter.place, noValue(parameter.name));
    if (RvEnumGetValue(parameter.enumeration, value.c_str()) >= 0 &&
        RvEnumValueIsValid(parameter.enumeration,
                           RvEnumGetValue(parameter.enumeration, value.c_str())))
        return;
    std::string allowed;
    for (int i = 0; const char* name = RvEnumGetString(parameter.enumeration, i); ++i)
        (allowed += i ? ", " : "one of ") += name;
    report(Topic::bad_enumeration, Weight::error, parameter.place,
           inQuotes(parameter.name) + " cannot be " + inQuotes(value), allowed);
}

// ---- Arrays ----

struct ArrayCounts {
    uint64_t elements, keys;
    bool are_valid;
};

static ArrayCounts readCounts(const std::string& elements, const std::string& keys)
{
    errno = 0;
    const long n = std::strtol(elements.c_str(), nullptr, 10);
    const long k = std::strtol(keys.c_str(), nullptr, 10);
    return { static_cast<uint32_t>(n), static_cast<uint32_t>(k), errno == 0 };
}

void SceneScan::scanArray(Input& in, Block& block, Parameter& parameter, int depth)
{
    if (depth > max_array_depth) {
        report(Topic::array, Weight::error, parameter.place,
               inQuotes(parameter.name) + ": arrays inside arrays without end", "",
               Effect::endless);
        is_stopped = true;
        return;
    }
    const std::string a = in.text.readClosedToken();
    const std::string b = in.text.readClosedToken();
    const std::string c = in.text.readClosedToken();
    const int type = typeOfName(c);
    const ArrayCounts counts = readCounts(a, b);
    if (type == RV_TYPE_NONE || !counts.are_valid) {
        if (a == "}" || a.empty())
            return lostStructure(&block, parameter.place, noValue(parameter.name));
        in.text.pushBack(a, b, c);
        return scanElements(in, block, parameter, parameter.element, 1, false, depth);
    }
    if (!isNumeric(a) || !isNumeric(b))
        report(Topic::array, Weight::error, parameter.place,
               inQuotes(parameter.name) + ": " + inQuotes(a + " " + b + " " + c) +
                   " is no header of an array",
               "it is the number of elements, of keys, and the type");
    else if (a[0] == '-' || b[0] == '-')
        report(Topic::array, Weight::error, parameter.place,
               inQuotes(parameter.name) + ": negative number of elements or keys");
    else if (counts.elements > 0 && counts.keys == 0)
        report(Topic::array, Weight::error, parameter.place,
               inQuotes(parameter.name) + ": array with zero motion keys");
    if (parameter.user)
        parameter.user->element = type;
    scanElements(in, block, parameter, type, counts.elements * counts.keys, true, depth);
}

void SceneScan::scanElements(Input& in, Block& block, const Parameter& parameter, int type,
                             uint64_t count, bool has_header, int depth)
{
    const bool keeps_strings = type == RV_TYPE_STRING && parameter.declared_name &&
                               (!std::strcmp(parameter.declared_name, "outputs") ||
                                !std::strcmp(parameter.declared_name, "ignore_list"));
    std::vector<std::string> strings;
    const int numbers = numbersOf(type);
    if (!numbers && type != RV_TYPE_BOOLEAN && type != RV_TYPE_STRING && type != RV_TYPE_NODE &&
        type != RV_TYPE_POINTER && type != RV_TYPE_ARRAY) {
        report(Topic::array, Weight::error, parameter.place,
               inQuotes(parameter.name) + " needs an array with its header",
               "the number of elements, of keys, and the type");
        block.quiet_line = in.text.tokenLine();
        return;
    }
    const uint64_t total = numbers ? count * static_cast<uint64_t>(numbers) : count;
    const auto announced = [&] {
        return inQuotes(parameter.name) + ": the header announces " + std::to_string(total) +
               (numbers ? " numbers" : " values") + ", found ";
    };
    for (uint64_t i = 0; i < total && !is_stopped; ++i) {
        if (type == RV_TYPE_ARRAY) {
            Parameter nested = parameter;
            nested.user = nullptr;
            scanArray(in, block, nested, depth + 1);
            if (in.text.atEnd())
                break;
            continue;
        }
        const std::string_view token = in.text.readToken();
        if (numbers && isNumeric(token))
            continue;
        if (token.empty() && in.text.atEnd()) {
            lostStructure(&block, parameter.place,
                          announced() + std::to_string(i) + " and the end of the file");
            return;
        }
        if (token == "}") {
            lostStructure(&block, parameter.place, announced() + std::to_string(i) + " and '}'",
                          "the reader takes '}' for one of them");
            continue;
        }
        const bool is_text =
            type == RV_TYPE_STRING || type == RV_TYPE_NODE || type == RV_TYPE_POINTER;
        if (is_text) {
            const bool is_quoted = token.front() == '"';
            std::string value = is_quoted ? SceneLexer::unquote(token) : std::string(token);
            if (has_header && !is_quoted && i > 0 && token != "name" &&
                declaredParameter(block.node->entry, value) && !findNode(value)) {
                if (!block.quiet_line)
                    report(Topic::array, Weight::error, parameter.place,
                           announced() + std::to_string(i) + " before the parameter " +
                               inQuotes(value));
                block.quiet_line = in.text.tokenLine();
            } else if (type != RV_TYPE_STRING) {
                std::replace(value.begin(), value.end(), '\\', '/');
                addReference(value, block, parameter);
            } else if (keeps_strings && strings.size() < max_strings)
                strings.push_back(value);
            continue;
        }
        if (type == RV_TYPE_BOOLEAN ? isBoolean(token) : startsAsNumber(token))
            continue;
        if (!block.is_quiet && block.quiet_line == 0) {
            if (type == RV_TYPE_BOOLEAN)
                report(Topic::bad_boolean, Weight::error, here(in),
                       inQuotes(parameter.name) + ": " + inQuotes(token) +
                           " is neither true nor false",
                       "one of yes, no, on, off, true, false, 1, 0");
            else
                report(Topic::array, Weight::error, parameter.place,
                       has_header ? announced() + std::to_string(i) + " and then " + inQuotes(token)
                                  : inQuotes(parameter.name) + " needs a number, found " +
                                        inQuotes(token));
        }
        block.quiet_line = in.text.tokenLine();
    }
    if (keeps_strings)
        takeStrings(block, parameter, std::move(strings));
}

} // namespace ruvell
