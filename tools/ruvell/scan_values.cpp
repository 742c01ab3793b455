// The values of parameters: numbers, words, references and arrays.
#include "scan.h"
#include "scan_words.h"
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace ruvell {

static constexpr int max_array_depth = 64;    // as the reader has it
static constexpr size_t max_strings = 100000; // of an array whose text is looked at
static constexpr const char* quoted_number = "a quoted number counts as 0";

// Whether the parameter may be linked by naming a node in place of a value.
static bool takesLinks(int type)
{
    return numbersOf(type) > 0 || type == RV_TYPE_BOOLEAN || type == RV_TYPE_STRING;
}

// ---- Single values ----

void SceneScan::scanValue(Input& in, Block& block, const Parameter& parameter)
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
    case RV_TYPE_ARRAY: scanArray(in, block, parameter, 0); return;
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
                                       ? FileUse::kindOf(block.node->entry, parameter.declared_name)
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
               boolean_words);
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
        if (startsAsNumber(token)) {
            report(Topic::other, Weight::warning, parameter.place,
                   inQuotes(parameter.name) + ": " + inQuotes(token) + " is not a plain number");
            continue;
        }
        const Elements elements{ { parameter.type, 1, false },
                                 static_cast<uint64_t>(count),
                                 static_cast<uint64_t>(i) };
        if (!goesOn(in, block, parameter, elements, token))
            return;
        reportElement(in, block, Topic::other, parameter.place,
                      tooFew(parameter, elements) + inQuotes(token),
                      token.starts_with('"') ? quoted_number : "");
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
    const FileUse::Kind kind = FileUse::kindOf(block.node->entry, parameter.declared_name);
    if (kind != FileUse::none)
        takeString({ kind, value, parameter.place });
}

// Pointers of plug-ins may be pointers to nodes; who does not trust the scene takes no risk.
bool SceneScan::isAddress(const RtNodeEntry* entry, const Parameter& parameter) const
{
    const bool is_built_in = !*RvNodeEntryGetFilename(entry);
    return parameter.type == RV_TYPE_POINTER && parameter.declared_name &&
           (is_built_in || options.safe);
}

void SceneScan::scanNodeName(Input& in, Block& block, const Parameter& parameter)
{
    const std::string target = in.text.readWord();
    if (target.empty() || (target == "}" && !in.text.wasQuoted()))
        return lostStructure(&block, parameter.place, noValue(parameter.name));
    if (isAddress(block.node->entry, parameter) && target != "NULL")
        return report(Topic::address, Weight::error, parameter.place,
                      inQuotes(parameter.name) +
                          " is the address of code or data, which no scene file can give: " +
                          inQuotes(target),
                      "only a program can set it", options.safe ? Effect::forbidden : Effect::none);
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

// The count that a text stands for in a header. False when it makes the header none.
static bool readCount(const std::string& text, uint64_t* count)
{
    errno = 0;
    const long value = std::strtol(text.c_str(), nullptr, 10);
    *count = value > 0 ? static_cast<uint64_t>(value) : 0;
    return errno == 0;
}

static uint64_t saturatedProduct(uint64_t a, uint64_t b)
{
    uint64_t product;
    return __builtin_mul_overflow(a, b, &product) ? UINT64_MAX : product;
}

// False when the reader gives the value up.
bool SceneScan::scanArray(Input& in, Block& block, const Parameter& parameter, int depth)
{
    const std::string a = in.text.readClosedToken();
    const std::string b = in.text.readClosedToken();
    const std::string c = in.text.readClosedToken();
    uint64_t count = 0, keys = 0;
    const bool is_first_valid = readCount(a, &count), is_second_valid = readCount(b, &keys);
    Header header{ typeOfName(c), saturatedProduct(count, keys), true };
    if (is_first_valid && is_second_valid && header.type != RV_TYPE_NONE)
        checkHeader(parameter, a, b, count, keys);
    else {
        if (a.empty() || a == "}")
            lostStructure(&block, parameter.place, noValue(parameter.name));
        in.text.pushBack(a, b, c);
        header = { parameter.element, 1, false };
    }
    if (depth > max_array_depth) {
        report(Topic::array, Weight::error, parameter.place,
               inQuotes(parameter.name) + ": arrays inside arrays without end");
        return false;
    }
    return scanElements(in, block, parameter, header, depth);
}

void SceneScan::checkHeader(const Parameter& parameter, const std::string& a, const std::string& b,
                            uint64_t elements, uint64_t keys)
{
    if (!isNumeric(a) || !isNumeric(b))
        report(Topic::array, Weight::error, parameter.place,
               inQuotes(parameter.name) + ": " + inQuotes(a + " " + b) +
                   " in its header are no numbers",
               "it is the number of elements, of keys, and the type");
    else if (a[0] == '-' || b[0] == '-')
        report(Topic::array, Weight::error, parameter.place,
               inQuotes(parameter.name) + ": negative number of elements or keys");
    else if (elements > 0 && keys == 0)
        report(Topic::array, Weight::error, parameter.place,
               inQuotes(parameter.name) + ": array with zero motion keys");
}

std::string SceneScan::tooFew(const Parameter& parameter, const Elements& elements)
{
    const char* what = numbersOf(elements.header.type) ? " number" : " value";
    return inQuotes(parameter.name) +
           (elements.header.is_given ? ": the header announces " : " needs ") +
           std::to_string(elements.count) + what + (elements.count == 1 ? "" : "s") + ", found " +
           std::to_string(elements.found) + " before ";
}

bool SceneScan::scanElements(Input& in, Block& block, const Parameter& parameter,
                             const Header& header, int depth)
{
    Elements elements{ header, header.count, 0 };
    switch (header.type) {
    case RV_TYPE_ARRAY: return scanArrayElements(in, block, parameter, header, depth);
    case RV_TYPE_BOOLEAN: scanBooleanElements(in, block, parameter, elements); return true;
    case RV_TYPE_STRING:
    case RV_TYPE_NODE:
    case RV_TYPE_POINTER: scanTextElements(in, block, parameter, elements); return true;
    default: break;
    }
    if (const int numbers = numbersOf(header.type)) {
        elements.count = saturatedProduct(header.count, static_cast<uint64_t>(numbers));
        scanNumberElements(in, block, parameter, elements);
        return true;
    }
    report(Topic::array, Weight::error, parameter.place,
           inQuotes(parameter.name) + " needs an array with its header",
           "the number of elements, of keys, and the type");
    block.quiet_line = in.text.tokenLine();
    return false;
}

bool SceneScan::scanArrayElements(Input& in, Block& block, const Parameter& parameter,
                                  const Header& header, int depth)
{
    static constexpr uint64_t max_elements = INT32_MAX / sizeof(void*);
    if (header.count > max_elements) {
        report(Topic::array, Weight::error, parameter.place,
               inQuotes(parameter.name) + ": too many elements");
        return false;
    }
    for (uint64_t i = 0; i < header.count; ++i)
        if (!scanArray(in, block, parameter, depth + 1) || in.text.atEnd())
            return false;
    return true;
}

// Looks at a token for what ends an array before its time. False at the end of the input, where
// nothing more is read.
bool SceneScan::goesOn(Input& in, Block& block, const Parameter& parameter,
                       const Elements& elements, std::string_view token)
{
    const bool is_end = token.empty() && in.text.atEnd();
    if (is_end || token == "}")
        lostStructure(&block, parameter.place,
                      tooFew(parameter, elements) + (is_end ? "the end of the file" : "'}'"),
                      is_end ? "" : "the reader takes '}' for one of them");
    return !is_end;
}

void SceneScan::scanNumberElements(Input& in, Block& block, const Parameter& parameter,
                                   Elements& elements)
{
    for (; elements.found < elements.count; ++elements.found) {
        const std::string_view token = in.text.readToken();
        if (isNumeric(token))
            continue;
        if (!goesOn(in, block, parameter, elements, token))
            return;
        if (startsAsNumber(token))
            continue;
        reportElement(in, block, Topic::array, parameter.place,
                      tooFew(parameter, elements) + inQuotes(token),
                      token.starts_with('"') ? quoted_number : "");
    }
}

void SceneScan::scanBooleanElements(Input& in, Block& block, const Parameter& parameter,
                                    Elements& elements)
{
    for (; elements.found < elements.count; ++elements.found) {
        const std::string token(in.text.readToken());
        if (isBoolean(token))
            continue;
        if (!goesOn(in, block, parameter, elements, token))
            return;
        reportElement(in, block, Topic::bad_boolean, here(in),
                      inQuotes(parameter.name) + ": " + inQuotes(token) +
                          " is neither true nor false",
                      boolean_words);
    }
}

// Strings and names of nodes.
void SceneScan::scanTextElements(Input& in, Block& block, const Parameter& parameter,
                                 Elements& elements)
{
    const bool is_string = elements.header.type == RV_TYPE_STRING;
    const bool is_kept = is_string && parameter.declared_name &&
                         (!std::strcmp(parameter.declared_name, "outputs") ||
                          !std::strcmp(parameter.declared_name, "ignore_list"));
    std::vector<std::string> strings;
    for (; elements.found < elements.count; ++elements.found) {
        const std::string value = in.text.readWord();
        const bool is_quoted = in.text.wasQuoted();
        if (!is_quoted && !goesOn(in, block, parameter, elements, value))
            break;
        if (!is_quoted && elements.header.is_given && elements.found > 0 && !findNode(value) &&
            declaredParameter(block.node->entry, value))
            reportElement(in, block, Topic::array, parameter.place,
                          tooFew(parameter, elements) + "the parameter " + inQuotes(value));
        else if (!is_string)
            addReference(value, block, parameter);
        else if (is_kept && strings.size() < max_strings)
            strings.push_back(value);
    }
    if (is_kept)
        takeStrings(block, parameter, std::move(strings));
}

// Of one array the first wrong element is enough.
void SceneScan::reportElement(Input& in, Block& block, Topic topic, const Place& place,
                              const std::string& message, const std::string& hint)
{
    if (!block.is_quiet && block.quiet_line == 0)
        report(topic, Weight::error, place, message, hint);
    block.quiet_line = in.text.tokenLine();
}

} // namespace ruvell
