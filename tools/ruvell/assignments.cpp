// Assignments from the command line.
//
// The reader of scene files knows how values are written, so an assignment becomes an override
// block that it reads. What it would accept in a scene file but would not mean here is found
// first: a value that is too short or too long, words for numbers, links to nodes that do not
// exist.
#include "assignments.h"
#include "library_log.h"
#include "option_values.h"
#include "report.h"
#include "scan_words.h"
#include "scene.h"
#include <charconv>
#include <cstring>
#include <optional>
#include <ruvell/rv.h>
#include <sys/mman.h>
#include <unistd.h>

namespace ruvell {

namespace {

struct Assignment {
    std::string node;
    std::string param;
    std::string value;
};

// What is to be set: the type of the parameter, and of its elements when it is an array.
struct Target {
    int type = RV_TYPE_NONE;
    int element_type = RV_TYPE_NONE;
    const char* const* enum_names = nullptr;
    bool is_component = false; // "Kd_color.r": can be linked, not set
};

// Thrown with what is wrong; caught by applyAssignments.
struct BadAssignment {
    std::string why;
};

} // namespace

// ---- Splitting ----

std::string checkAssignment(const std::string& text)
{
    const size_t equals = text.find('=');
    const size_t dot = text.substr(0, equals).find('.');
    if (equals == std::string::npos || dot == std::string::npos || dot == 0 || dot + 1 == equals)
        return "'" + text + "' is not of the form NODE.PARAM=VALUE";
    return "";
}

// Names of nodes and components of parameters may both hold dots: the longest name of an existing
// node wins, and without one the first dot counts.
static Assignment split(const std::string& text)
{
    const size_t equals = text.find('=');
    const std::string path = text.substr(0, equals);
    size_t dot = path.find('.');
    for (size_t at = path.rfind('.'); at != std::string::npos && at > 0;
         at = path.rfind('.', at - 1))
        if (RvNodeLookUpByName(path.substr(0, at).c_str())) {
            dot = at;
            break;
        }
    return { path.substr(0, dot), path.substr(dot + 1), text.substr(equals + 1) };
}

// ---- The parameter ----

static std::vector<std::string> paramNames(const RtNodeEntry* entry)
{
    std::vector<std::string> names;
    for (int i = 0; i < RvNodeEntryGetNumParams(entry); ++i)
        names.emplace_back(RvParamGetName(RvNodeEntryGetParameter(entry, i)));
    return names;
}

static Target declaredTarget(const RtParamEntry* param)
{
    Target target;
    target.type = RvParamGetType(param);
    target.enum_names = RvParamGetEnum(param);
    if (target.type == RV_TYPE_ARRAY)
        if (const RtArray* array = RvParamGetDefault(param)->ARRAY)
            target.element_type = array->type;
    return target;
}

static Target userTarget(const RtUserParamEntry* param)
{
    Target target;
    const bool is_constant = RvUserParamGetCategory(param) == RV_USERDEF_CONSTANT;
    target.type = is_constant ? RvUserParamGetType(param) : RV_TYPE_ARRAY;
    target.element_type = RvUserParamGetType(param) == RV_TYPE_ARRAY
                              ? RvUserParamGetArrayType(param)
                              : RvUserParamGetType(param);
    return target;
}

static bool hasComponent(int type, char letter)
{
    switch (type) {
    case RV_TYPE_RGB: return std::strchr("rgb", letter);
    case RV_TYPE_RGBA: return std::strchr("rgba", letter);
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT: return std::strchr("xyz", letter);
    case RV_TYPE_POINT2: return std::strchr("xy", letter);
    default: return false;
    }
}

static std::optional<Target> componentTarget(const RtNodeEntry* entry, const std::string& name)
{
    if (name.size() < 3 || name[name.size() - 2] != '.')
        return std::nullopt;
    const RtParamEntry* param =
        RvNodeEntryLookUpParameter(entry, name.substr(0, name.size() - 2).c_str());
    if (!param || !hasComponent(RvParamGetType(param), name.back()))
        return std::nullopt;
    Target target = declaredTarget(param);
    target.is_component = true;
    return target;
}

static Target findTarget(const RtNode* node, const std::string& name)
{
    const RtNodeEntry* entry = RvNodeGetNodeEntry(node);
    if (const RtParamEntry* param = RvNodeEntryLookUpParameter(entry, name.c_str()))
        return declaredTarget(param);
    if (const auto target = componentTarget(entry, name))
        return *target;
    if (const RtUserParamEntry* param = RvNodeLookUpUserParameter(node, name.c_str()))
        return userTarget(param);
    if (name == "@before")
        return { .type = RV_TYPE_NODE };
    const char* type = RvNodeEntryGetName(entry);
    throw BadAssignment{ std::string("a ") + type + " has no parameter '" + name + "'" +
                         suggestion(nearestNames(name, paramNames(entry))) };
}

// ---- The value ----

// Words as the reader of scene files separates them: blanks end one, except between quotes.
static std::vector<std::string> words(const std::string& value)
{
    std::vector<std::string> list;
    std::string word;
    bool is_quoted = false;
    for (size_t i = 0; i < value.size(); ++i) {
        const char c = value[i];
        const bool is_blank = c == ' ' || c == '\t' || c == '\n' || c == '\r';
        if (is_blank && !is_quoted) {
            if (!word.empty())
                list.push_back(std::exchange(word, ""));
            continue;
        }
        word += c;
        if (c == '\\' && i + 1 < value.size())
            word += value[++i];
        else if (c == '"' && word.size() == 1)
            is_quoted = true;
        else if (c == '"' && is_quoted) {
            is_quoted = false;
            list.push_back(std::exchange(word, ""));
        }
    }
    if (is_quoted)
        throw BadAssignment{ "a quote is not closed" };
    if (!word.empty())
        list.push_back(word);
    return list;
}

static std::string typeName(int type)
{
    const char* name = RvParamGetTypeName(type);
    return name ? name : "a value";
}

// Only what begins like this passes for a number in a scene file; other words are names.
static bool isNumber(const std::string& word)
{
    static const std::string first_letters = "0123456789.-";
    double number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    return !word.empty() && first_letters.find(word[0]) != std::string::npos &&
           error == std::errc() && end == word.data() + word.size();
}

static bool isInteger(const std::string& word)
{
    return isNumber(word) && word.find_first_not_of("0123456789-") == std::string::npos;
}

static bool isBoolean(const std::string& word)
{
    for (const char* keyword : { "yes", "no", "on", "off", "true", "false" })
        if (word == keyword)
            return true;
    return isNumber(word);
}

static void requireCount(const std::vector<std::string>& value, size_t count, int type)
{
    if (value.size() != count)
        throw BadAssignment{ typeName(type) + " takes " + std::to_string(count) +
                             (count == 1 ? " value" : " values") + ", not " +
                             std::to_string(value.size()) };
}

static int64_t smallest(int type) { return type == RV_TYPE_INT ? INT32_MIN : 0; }

// The reader takes no larger UINT either.
static int64_t largest(int type) { return type == RV_TYPE_BYTE ? UINT8_MAX : INT32_MAX; }

static void requireNumbers(const std::vector<std::string>& value, size_t first, int type)
{
    const bool is_whole = type == RV_TYPE_BYTE || type == RV_TYPE_INT || type == RV_TYPE_UINT;
    for (size_t i = first; i < value.size(); ++i) {
        if (!isNumber(value[i]))
            throw BadAssignment{ "'" + value[i] + "' is not a number" };
        if (is_whole && !isInteger(value[i]))
            throw BadAssignment{ "'" + value[i] + "' is not a whole number" };
        if (is_whole && !parseWhole(value[i], smallest(type), largest(type)))
            throw BadAssignment{ "'" + value[i] + "' is not within " +
                                 std::to_string(smallest(type)) + " to " +
                                 std::to_string(largest(type)) + ", as " + typeName(type) + " is" };
    }
}

[[noreturn]] static void noSuchNode(const std::string& name)
{
    throw BadAssignment{ "there is no node '" + name + "'" +
                         suggestion(nearestNames(name, namesOf(nodesOfKind(RV_NODE_ALL)))) };
}

// The reader lets procedurals make nodes that are not there yet.
static bool mayAppearLater() { return RvNodeEntryGetCount(RvNodeEntryLookUp("procedural")) > 0; }

static void requireNode(const std::string& name)
{
    if (name != "NULL" && !RvNodeLookUpByName(name.c_str()) && !mayAppearLater())
        noSuchNode(name);
}

static std::string unquoted(const std::string& word)
{
    return word.size() >= 2 && word[0] == '"' ? word.substr(1, word.size() - 2) : word;
}

static void requireEnumName(const std::string& word, const char* const* names)
{
    if (RvEnumGetValue(names, word.c_str()) >= 0)
        return;
    std::string list;
    for (const char* const* name = names; names && *name; ++name)
        list += std::string(list.empty() ? "" : ", ") + *name;
    throw BadAssignment{ "'" + word + "' is none of " + list };
}

// n k TYPE and n * k elements, or one element alone.
static void checkArray(const std::vector<std::string>& value, int element_type)
{
    static constexpr size_t max_elements = 1 << 24;
    const bool has_header = value.size() >= 3 && isInteger(value[0]) && isInteger(value[1]) &&
                            !isNumber(value[2]) && value[2][0] != '"';
    size_t count = 1, first = 0;
    if (has_header) {
        const double elements =
            std::strtod(value[0].c_str(), nullptr) * std::strtod(value[1].c_str(), nullptr);
        if (!(elements >= 0 && elements <= double(max_elements)))
            throw BadAssignment{ "an array of " + value[0] + " times " + value[1] + " elements" };
        count = static_cast<size_t>(elements);
        first = 3;
    }
    if (element_type == RV_TYPE_ARRAY)
        return; // each element has a header of its own: left to the reader
    const size_t numbers = numbersOf(element_type);
    requireCount(std::vector(value.begin() + static_cast<ptrdiff_t>(first), value.end()),
                 count * std::max<size_t>(numbers, 1), element_type);
    if (numbers > 0)
        requireNumbers(value, first, element_type);
    if (element_type == RV_TYPE_NODE || element_type == RV_TYPE_POINTER)
        for (size_t i = first; i < value.size(); ++i)
            requireNode(unquoted(value[i]));
}

static void checkNumbers(const std::vector<std::string>& value, int type)
{
    if (value.size() == 1 && !isNumber(value[0]))
        return requireNode(value[0]); // a link
    requireCount(value, numbersOf(type), type);
    requireNumbers(value, 0, type);
}

static void checkValue(const std::vector<std::string>& value, const Target& target)
{
    if (value.empty())
        throw BadAssignment{ "there is no value" };
    if (target.type == RV_TYPE_ARRAY)
        return checkArray(value, target.element_type);
    if (target.is_component) {
        requireCount(value, 1, RV_TYPE_NODE);
        return requireNode(value[0]);
    }
    if (numbersOf(target.type) > 0)
        return checkNumbers(value, target.type);
    requireCount(value, 1, target.type);
    if (target.type == RV_TYPE_ENUM)
        requireEnumName(unquoted(value[0]), target.enum_names);
    else if (target.type != RV_TYPE_BOOLEAN || !isBoolean(value[0]))
        requireNode(unquoted(value[0]));
}

// ---- Applying ----

// The reader would end the statement, or cut it, at these.
static void requireOneLine(const std::string& value)
{
    if (value.find_first_of("#\n}") != std::string::npos)
        throw BadAssignment{ "'#', '}' and line ends cannot be part of the value" };
}

namespace {

// A file without a name, for the reader.
class TextFile {
public:
    explicit TextFile(const std::string& text)
        : descriptor(memfd_create("ruvell-override", MFD_CLOEXEC))
    {
        for (size_t at = 0; at < text.size();) {
            const ssize_t written = write(descriptor, text.data() + at, text.size() - at);
            if (written <= 0)
                throw BadAssignment{ std::string("no memory: ") + std::strerror(errno) };
            at += static_cast<size_t>(written);
        }
    }
    ~TextFile() { close(descriptor); }
    TextFile(const TextFile&) = delete;
    TextFile& operator=(const TextFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor); }

private:
    int descriptor;
};

} // namespace

static void loadOverride(const Assignment& assignment)
{
    requireOneLine(assignment.value);
    const TextFile file("override\n{\n" + assignment.node + " " + assignment.param + " " +
                        assignment.value + "\n}\n");
    int result = 0;
    const auto messages = captureMessages([&] { result = RvRVSLoad(file.path().c_str()); });
    for (const LoadMessage& message : messages)
        if (message.severity != severity_plain)
            throw BadAssignment{ message.text };
    if (result != 0)
        throw BadAssignment{ "cannot be set" };
}

// Strings need no quotes here, and may hold what would end a statement in a scene file. Without
// quotes the name of a node makes a link, as it does there.
static bool isPlainString(const Assignment& assignment, const Target& target)
{
    if (target.type != RV_TYPE_STRING || target.is_component)
        return false;
    return assignment.value.starts_with('"') || !RvNodeLookUpByName(assignment.value.c_str());
}

static void setString(RtNode* node, const Assignment& assignment)
{
    std::string text = assignment.value;
    if (text.starts_with('"')) {
        const auto list = words(text);
        requireCount(list, 1, RV_TYPE_STRING);
        text = unquoted(list[0]);
        for (size_t at = 0; (at = text.find("\\\"", at)) != std::string::npos; ++at)
            text.erase(at, 1);
    }
    const auto messages =
        captureMessages([&] { RvNodeSetStr(node, assignment.param.c_str(), text.c_str()); });
    for (const LoadMessage& message : messages)
        if (message.severity != severity_plain)
            throw BadAssignment{ message.text };
}

static void apply(const Assignment& assignment)
{
    RtNode* node = RvNodeLookUpByName(assignment.node.c_str());
    if (!node && !mayAppearLater())
        noSuchNode(assignment.node);
    if (node) {
        const Target target = findTarget(node, assignment.param);
        if (isPlainString(assignment, target))
            return setString(node, assignment);
        checkValue(words(assignment.value), target);
    }
    loadOverride(assignment);
}

bool applyAssignments(const std::vector<std::string>& assignments)
{
    for (const std::string& text : assignments) {
        try {
            apply(split(text));
        } catch (const BadAssignment& bad) {
            reportError("-D " + text + ": " + bad.why);
            return false;
        }
    }
    return true;
}

} // namespace ruvell
