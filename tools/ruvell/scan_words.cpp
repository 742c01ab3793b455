// Words of findings, and the names of types.
#include "scan_words.h"
#include "report.h"
#include <cctype>
#include <ruvell/rv.h>

namespace ruvell {

std::string upperCase(std::string_view text)
{
    std::string result(text);
    for (char& c : result)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return result;
}

std::string inQuotes(std::string_view text)
{
    static constexpr size_t max_shown = 80;
    if (text.size() <= max_shown)
        return '"' + std::string(text) + '"';
    return '"' + std::string(text.substr(0, max_shown)) + "...\"";
}

std::string didYouMean(const std::vector<std::string>& names)
{
    const std::string text = suggestion(names); // in brackets
    return text.empty() ? "" : text.substr(2, text.size() - 3);
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

std::string nearestTypeName(std::string_view wrong)
{
    std::vector<std::string> known;
    for (const TypeName& row : type_names)
        known.emplace_back(row.name);
    return didYouMean(nearestNames(upperCase(wrong), known));
}

} // namespace ruvell
