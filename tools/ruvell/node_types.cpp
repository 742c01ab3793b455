// Describing node types and the defaults of their parameters.
#include "node_types.h"
#include "text.h"
#include <cstdio>

namespace ruvell {

const std::vector<KindTitle> kind_titles = {
    { "options", "Options" }, { "camera", "Cameras" },     { "light", "Lights" },
    { "shape", "Shapes" },    { "shader", "Shaders" },     { "filter", "Filters" },
    { "driver", "Drivers" },  { "override", "Overrides" },
};

static std::string typeName(int type)
{
    if (type == RV_TYPE_NONE)
        return "none";
    const char* name = RvParamGetTypeName(type);
    return name ? name : "unknown";
}

static std::string typeNameOf(const RtParamEntry* entry)
{
    const int type = RvParamGetType(entry);
    if (type != RV_TYPE_ARRAY)
        return typeName(type);
    const RtArray* array = RvParamGetDefault(entry)->ARRAY;
    return array && array->type != RV_TYPE_NONE ? "ARRAY of " + typeName(array->type) : "ARRAY";
}

// ---- Values ----

// Shortest of up to nine digits that reads back as the same float.
static std::string numberText(float value)
{
    char text[32];
    for (int digits = 6; digits <= 9; ++digits) {
        std::snprintf(text, sizeof text, "%.*g", digits, double(value));
        if (std::strtof(text, nullptr) == value)
            break;
    }
    return text;
}

static std::string numbersText(std::initializer_list<float> values)
{
    std::vector<std::string> words;
    for (const float value : values)
        words.push_back(numberText(value));
    return joined(words, " ");
}

static std::string matrixText(const RtMatrix* matrix)
{
    if (!matrix)
        return "";
    std::vector<std::string> words;
    bool is_identity = true;
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column) {
            const float value = matrix->m[row][column];
            is_identity = is_identity && value == (row == column ? 1.f : 0.f);
            words.push_back(numberText(value));
        }
    return is_identity ? "identity" : joined(words, " ");
}

static std::string arrayText(const RtArray* array)
{
    if (!array || array->nelements == 0)
        return "empty";
    const unsigned int i = 0;
    if (array->nelements * array->nkeys != 1)
        return std::to_string(array->nelements) + " elements";
    switch (array->type) {
    case RV_TYPE_BYTE: return std::to_string(RvArrayGetByte(array, i));
    case RV_TYPE_INT: return std::to_string(RvArrayGetInt(array, i));
    case RV_TYPE_UINT: return std::to_string(RvArrayGetUInt(array, i));
    case RV_TYPE_BOOLEAN: return RvArrayGetBool(array, i) ? "on" : "off";
    case RV_TYPE_FLOAT: return numberText(RvArrayGetFlt(array, i));
    case RV_TYPE_RGB: {
        const RtRGB c = RvArrayGetRGB(array, i);
        return numbersText({ c.r, c.g, c.b });
    }
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT: {
        const RtPoint p =
            array->type == RV_TYPE_POINT ? RvArrayGetPnt(array, i) : RvArrayGetVec(array, i);
        return numbersText({ p.x, p.y, p.z });
    }
    case RV_TYPE_POINT2: {
        const RtPoint2 p = RvArrayGetPnt2(array, i);
        return numbersText({ p.x, p.y });
    }
    case RV_TYPE_STRING: return quoted(RvArrayGetStr(array, i));
    case RV_TYPE_MATRIX: {
        RtMatrix matrix;
        RvArrayGetMtx(array, i, &matrix);
        return matrixText(&matrix);
    }
    default: return "1 element";
    }
}

static std::string defaultText(const RtParamEntry* entry)
{
    const RtParamValue* value = RvParamGetDefault(entry);
    switch (RvParamGetType(entry)) {
    case RV_TYPE_BYTE: return std::to_string(value->BYTE);
    case RV_TYPE_INT: return std::to_string(value->INT);
    case RV_TYPE_UINT: return std::to_string(value->UINT);
    case RV_TYPE_BOOLEAN: return value->BOOL ? "on" : "off";
    case RV_TYPE_FLOAT: return numberText(value->FLT);
    case RV_TYPE_RGB: return numbersText({ value->RGB.r, value->RGB.g, value->RGB.b });
    case RV_TYPE_RGBA:
        return numbersText({ value->RGBA.r, value->RGBA.g, value->RGBA.b, value->RGBA.a });
    case RV_TYPE_VECTOR: return numbersText({ value->VEC.x, value->VEC.y, value->VEC.z });
    case RV_TYPE_POINT: return numbersText({ value->PNT.x, value->PNT.y, value->PNT.z });
    case RV_TYPE_POINT2: return numbersText({ value->PNT2.x, value->PNT2.y });
    case RV_TYPE_STRING: return quoted(value->STR ? value->STR : "");
    case RV_TYPE_POINTER:
    case RV_TYPE_NODE: return "NULL";
    case RV_TYPE_ARRAY: return arrayText(value->ARRAY);
    case RV_TYPE_MATRIX: return matrixText(value->pMTX);
    case RV_TYPE_ENUM: {
        const char* name = RvEnumGetString(RvParamGetEnum(entry), value->ENUM);
        return name ? name : std::to_string(value->ENUM);
    }
    default: return "";
    }
}

// ---- Types ----

static ParamInfo describeParam(const RtParamEntry* entry)
{
    ParamInfo param{ RvParamGetName(entry), typeNameOf(entry), defaultText(entry), {} };
    const char* const* name = RvParamGetEnum(entry);
    for (; name && *name; ++name)
        param.allowed.emplace_back(*name);
    return param;
}

TypeInfo describeType(const RtNodeEntry* entry)
{
    TypeInfo type{ RvNodeEntryGetName(entry),
                   RvNodeEntryGetTypeName(entry),
                   typeName(RvNodeEntryGetOutputType(entry)),
                   RvNodeEntryGetFilename(entry),
                   {} };
    for (int i = 0; i < RvNodeEntryGetNumParams(entry); ++i)
        type.params.push_back(describeParam(RvNodeEntryGetParameter(entry, i)));
    return type;
}

std::vector<TypeInfo> describeAllTypes()
{
    std::vector<TypeInfo> types;
    RtNodeEntryIterator* it = RvUniverseGetNodeEntryIterator(RV_NODE_ALL);
    while (!RvNodeEntryIteratorFinished(it))
        types.push_back(describeType(RvNodeEntryIteratorGetNext(it)));
    RvNodeEntryIteratorDestroy(it);
    return types;
}

} // namespace ruvell
