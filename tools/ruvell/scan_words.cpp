// Words of findings, and the names of types.
#include "scan_words.h"
#include "report.h"
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <ruvell/rv.h>
#include <sstream>

namespace ruvell {

std::string upperCase(std::string_view text)
{
    std::string result(text);
    for (char& c : result)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return result;
}

std::string didYouMean(const std::vector<std::string>& names)
{
    const std::string text = suggestion(names); // in brackets
    return text.empty() ? "" : text.substr(2, text.size() - 3);
}

// ---- Tokens ----

bool isNumeric(std::string_view token)
{
    bool has_digit = false;
    for (const char c : token) {
        if (isDigit(c))
            has_digit = true;
        else if (c != '.' && c != '-' && c != 'e' && c != 'E' && c != '+')
            return false;
    }
    return has_digit && token[0] != 'e' && token[0] != 'E';
}

bool startsAsNumber(std::string_view token)
{
    if (isNumeric(token))
        return true;
    const std::string text(token.substr(0, 64));
    char* end;
    std::strtod(text.c_str(), &end);
    return end != text.c_str();
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool isBooleanKeyword(std::string_view token)
{
    return token == "yes" || token == "no" || token == "on" || token == "off" || token == "true" ||
           token == "false";
}

bool isBoolean(std::string_view token)
{
    return isBooleanKeyword(token) || (!token.empty() && isDigit(token[0]));
}

// ---- Types ----

struct TypeName {
    const char* name;
    int type;
};

static constexpr TypeName type_names[] = {
    { "BYTE", RV_TYPE_BYTE },     { "INT", RV_TYPE_INT },         { "UINT", RV_TYPE_UINT },
    { "BOOL", RV_TYPE_BOOLEAN },  { "FLOAT", RV_TYPE_FLOAT },     { "RGB", RV_TYPE_RGB },
    { "RGBA", RV_TYPE_RGBA },     { "VECTOR", RV_TYPE_VECTOR },   { "POINT", RV_TYPE_POINT },
    { "POINT2", RV_TYPE_POINT2 }, { "MATRIX", RV_TYPE_MATRIX },   { "STRING", RV_TYPE_STRING },
    { "ARRAY", RV_TYPE_ARRAY },   { "POINTER", RV_TYPE_POINTER }, { "NODE", RV_TYPE_NODE },
    { "LONG", RV_TYPE_UINT },     { "ABSRGB", RV_TYPE_RGB },
};

int typeOfName(std::string_view name)
{
    const std::string upper = upperCase(name);
    for (const TypeName& row : type_names)
        if (upper == row.name)
            return row.type;
    return RV_TYPE_NONE;
}

// Numbers that one value of the type takes; 0 when it is no number.
int numbersOf(int type)
{
    switch (type) {
    case RV_TYPE_BYTE:
    case RV_TYPE_INT:
    case RV_TYPE_UINT:
    case RV_TYPE_FLOAT: return 1;
    case RV_TYPE_POINT2: return 2;
    case RV_TYPE_RGB:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT: return 3;
    case RV_TYPE_RGBA: return 4;
    case RV_TYPE_MATRIX: return 16;
    default: return 0;
    }
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

const RtParamEntry* declaredParameter(const RtNodeEntry* entry, const std::string& name)
{
    const size_t dot = name.find('.');
    const RtParamEntry* param = RvNodeEntryLookUpParameter(entry, name.substr(0, dot).c_str());
    if (!param || dot == std::string::npos)
        return param;
    const bool one_letter =
        dot + 1 < name.size() && (dot + 2 == name.size() || name[dot + 2] == '.');
    return one_letter && isComponent(RvParamGetType(param), name[dot + 1]) ? param : nullptr;
}

std::string nearestTypeName(std::string_view wrong)
{
    std::vector<std::string> known;
    for (const TypeName& row : type_names)
        known.emplace_back(row.name);
    return didYouMean(nearestNames(upperCase(wrong), known));
}

std::vector<std::string> splitWords(const std::string& text)
{
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

} // namespace ruvell
