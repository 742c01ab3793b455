// node_access: typed setters and getters of node values (rv_node.h), with their type rules,
// conversions and messages.
#include "array.h"
#include "frame.h"
#include "maths.h"
#include "msg.h"
#include "nodes.h"
#include "options.h"
#include "scene.h"
#include "strpool.h"

#include <stdio.h>

// Messages of internal errors name the module that declares the interface.
static const char* const module_path = "core\\src\\nodes";

namespace rv {

// ---- Resolution of parameters ----

static constexpr int any_type = -1;

static const char* typeName(int type)
{
    const char* const name = type == RV_TYPE_ENUM ? "ENUM" : silentTypeName(type);
    return name ? name : "";
}

// The ignore list may name single parameters as "type.param".
static bool hasIgnoreList()
{
    const RtScene* const scene = the_frame->scene;
    return scene && scene->missing_types && scene->missing_types->nelements;
}

static bool isIgnoredParam(const RtNode* node, const char* name)
{
    if (!hasIgnoreList() || !strcmp(name, "name") || !strcmp(name, "ignore_list"))
        return false;
    char text[4200]; // type and parameter names hold at most 32 and 4,095 characters
    snprintf(text, sizeof text, "%s.%s", node->entry->name, name);
    return the_frame->scene->isIgnored(text);
}

static bool acceptsElement(int element_type, int type)
{
    return element_type == type || (element_type == RV_TYPE_UINT && type == RV_TYPE_INT) ||
           (element_type == RV_TYPE_NODE && type == RV_TYPE_POINTER);
}

// Whether a value of `type` may be read from or written to the parameter; mismatches are logged.
static bool acceptsType(const RtNode* node, const RtParamEntry* param, int type)
{
    const int declared = param->type;
    if (declared == type || type == any_type)
        return true;
    if ((declared == RV_TYPE_NODE && type == RV_TYPE_POINTER) ||
        (declared == RV_TYPE_ENUM && type == RV_TYPE_INT))
        return true;
    if ((declared == RV_TYPE_STRING && type == RV_TYPE_INT) || type == RV_TYPE_ARRAY)
        return false;
    if (declared == RV_TYPE_ARRAY) {
        const RtArray* const array = loadArray(node, param);
        if (array && acceptsElement(array->type, type))
            return true;
    }
    RvMsgWarning("%s.%s: use type %s, not %s", RvNodeGetName(node), param->name, typeName(declared),
                 typeName(type));
    return false;
}

static const RtParamEntry* resolve(const RtNode* node, const char* name, int type)
{
    if (!name || isIgnoredParam(node, name))
        return nullptr;
    const ParamMatch match = findParameter(node->entry, name);
    if (!match.param)
        return nullptr;
    if (match.by_synonym)
        RvMsgWarning("%s: parameter \"%s\" is deprecated, use \"%s\"", RvNodeGetName(node), name,
                     match.param->name);
    return acceptsType(node, match.param, type) ? match.param : nullptr;
}

static bool isNullNode(const RtNode* node, const char* param)
{
    if (!node)
        RvMsgError("asking a NULL node for parameter %s", param ? param : "");
    return !node;
}

// ---- Value checks ----

static constexpr int matrix_floats = 16;

// Floats that a value of this type consists of; 0 for the types without.
static int floatCount(int type)
{
    switch (type) {
    case RV_TYPE_FLOAT: return 1;
    case RV_TYPE_POINT2: return 2;
    case RV_TYPE_RGB:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT: return 3;
    case RV_TYPE_RGBA: return 4;
    case RV_TYPE_MATRIX: return matrix_floats;
    default: return 0;
    }
}

static void reportBadFloats(const RtNode* node, const char* param, int type, const float* f)
{
    const char* const name = RvNodeGetName(node);
    switch (type) {
    case RV_TYPE_FLOAT:
        RvMsgWarning("ignoring parameter %s on %s (found bad float: %f)", param, name, f[0]);
        break;
    case RV_TYPE_RGB:
        RvMsgWarning("ignoring parameter %s on %s (found bad float: %f %f %f)", param, name, f[0],
                     f[1], f[2]);
        break;
    case RV_TYPE_RGBA:
        RvMsgWarning("ignoring parameter %s on %s (found bad float: %f %f %f %f)", param, name,
                     f[0], f[1], f[2], f[3]);
        break;
    case RV_TYPE_POINT2:
        RvMsgWarning("ignoring parameter %s on %s (found bad float: %f %f)", param, name, f[0],
                     f[1]);
        break;
    case RV_TYPE_MATRIX:
        RvMsgWarning("ignoring parameter %s on %s (found bad matrix)", param, name);
        break;
    default: // VECTOR and POINT. Required: the conversion differs from that of colours.
        RvMsgWarning("ignoring parameter %s on %s (found bad float: %g %g %g)", param, name, f[0],
                     f[1], f[2]);
    }
}

static bool hasBadFloats(const RtNode* node, const char* param, int type, const RtParamValue& value)
{
    const int count = floatCount(type);
    float f[matrix_floats];
    if (type == RV_TYPE_MATRIX)
        memcpy(f, value.pMTX, sizeof f);
    else
        memcpy(f, static_cast<const void*>(&value), static_cast<size_t>(count) * sizeof(float));
    for (int i = 0; i < count; ++i)
        if (!isUsableFloat(f[i])) {
            reportBadFloats(node, param ? param : "", type, f);
            return true;
        }
    return false;
}

// ---- Arrays as targets of single values ----

static void writeElements(RtArray* array, int type, const RtParamValue& value)
{
    const unsigned total = totalElements(array);
    if (type == RV_TYPE_STRING) {
        for (unsigned i = 0; i < total; ++i)
            RvArraySetStr(array, i, value.STR);
        return;
    }
    const unsigned size = typeSize(type);
    const void* const bytes =
        type == RV_TYPE_MATRIX ? value.pMTX : static_cast<const void*>(&value);
    char* to = static_cast<char*>(array->data);
    for (unsigned i = 0; i < total; ++i, to += size)
        memcpy(to, bytes, size);
}

// An array of one element and one key; null when the heap is exhausted.
static RtArray* arrayOfOne(int type, const RtParamValue& value)
{
    RtArray* const array = RvArrayAllocate(1, 1, type);
    if (array && !array->data) {
        RvArrayDestroy(array);
        return nullptr;
    }
    if (array)
        writeElements(array, type, value);
    return array;
}

// ---- Arrays as values ----

static int floatsPerElement(int type)
{
    return type == RV_TYPE_POINT || type == RV_TYPE_VECTOR ? 3 : type == RV_TYPE_POINT2 ? 2 : 0;
}

static bool mayConvert(const RtArray* array, int type)
{
    switch (type) {
    case RV_TYPE_BYTE: return array->type == RV_TYPE_UINT;
    case RV_TYPE_UINT: return array->type == RV_TYPE_INT || array->type == RV_TYPE_BYTE;
    case RV_TYPE_NODE: return array->type == RV_TYPE_POINTER;
    case RV_TYPE_POINT:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT2:
        return array->type == RV_TYPE_FLOAT &&
               array->nelements % static_cast<unsigned>(floatsPerElement(type)) == 0;
    default: return false;
    }
}

// Elements change their size: the array gets storage of its own.
template <class To, class From> static bool convertElements(RtArray* array)
{
    const unsigned total = totalElements(array);
    To* const converted = static_cast<To*>(RvMalloc_func(total * static_cast<unsigned>(sizeof(To)),
                                                         module_path, __LINE__, "RvNodeSetArray"));
    if (total && !converted)
        return false;
    for (unsigned i = 0; i < total; ++i)
        converted[i] = static_cast<To>(elementsOf<From>(array)[i]);
    if (array->owns_data)
        RvFree_func(array->data);
    array->data = converted;
    array->owns_data = true;
    return true;
}

// Turns the array into one of the wanted element type in place. False when that is not possible.
static bool convertArray(RtArray* array, int type)
{
    if (array->type == type)
        return true;
    if (!mayConvert(array, type))
        return false;
    if (array->type == RV_TYPE_UINT && !convertElements<uint8_t, uint32_t>(array))
        return false;
    if (array->type == RV_TYPE_BYTE && !convertElements<uint32_t, uint8_t>(array))
        return false;
    if (array->type == RV_TYPE_FLOAT)
        array->nelements /= static_cast<unsigned>(floatsPerElement(type));
    array->type = static_cast<uint8_t>(type);
    return true;
}

// Converts and checks an array meant for a parameter of the given element type.
static bool prepareArray(const RtNode* node, const char* param, RtArray* array, int element_type)
{
    if (!convertArray(array, element_type)) {
        RvMsgError("%s: parameter %s is an array of type %s, not %s", RvNodeGetName(node), param,
                   typeName(element_type), typeName(array->type));
        return false;
    }
    if (!RvArrayCheckSanity(array)) {
        RvMsgWarning("ignoring parameter %s on %s (found: nans or infs)", param,
                     RvNodeGetName(node));
        return false;
    }
    return true;
}

// ---- Setting declared parameters ----

// What follows a successful set.
static void markSet(RtNode* node, const RtParamEntry* param)
{
    node->set_flags[param->index] = 1;
    if (node->entry->type == RV_NODE_SHAPE && node->local_data)
        the_frame->hooks->shapeChanged(node, param);
    if (node->entry->type == RV_NODE_OPTIONS && !strcmp(param->name, "ignore_list"))
        the_frame->scene->setIgnored(loadArray(node, param));
}

static bool storeArray(RtNode* node, const RtParamEntry* param, RtArray* array)
{
    const RtArray* const declared = param->default_value.ARRAY;
    if (!prepareArray(node, param->name, array, declared ? declared->type : array->type))
        return false;
    RtArray* const old = loadArray(node, param);
    if (old != array)
        RvArrayDestroy(old);
    RtParamValue value = {};
    value.ARRAY = array;
    store(paramStorage(node, param), RV_TYPE_ARRAY, value);
    markSet(node, param);
    return true;
}

static void setElements(RtNode* node, const RtParamEntry* param, int type,
                        const RtParamValue& value)
{
    RtArray* const array = loadArray(node, param);
    if (array && totalElements(array) && array->data) {
        writeElements(array, array->type == RV_TYPE_STRING ? RV_TYPE_STRING : type, value);
        markSet(node, param);
        return;
    }
    RtArray* const fresh = arrayOfOne(type, value);
    if (fresh && !storeArray(node, param, fresh))
        RvArrayDestroy(fresh);
}

static void setString(RtNode* node, const RtParamEntry* param, const char* text)
{
    const char* const interned = internString(text);
    if (!interned)
        return;
    releaseString(loadString(node, param));
    RtParamValue value = {};
    value.STR = interned;
    store(paramStorage(node, param), RV_TYPE_STRING, value);
    markSet(node, param);
}

static void setMatrix(RtNode* node, const RtParamEntry* param, const RtMatrix* matrix)
{
    void* const bytes = matrixBytes(node, param);
    if (!bytes)
        return;
    memcpy(bytes, matrix, sizeof *matrix);
    markSet(node, param);
}

// Stores one value in a parameter whose type accepts it.
static void setDeclared(RtNode* node, const RtParamEntry* param, int type,
                        const RtParamValue& value)
{
    switch (param->type) {
    case RV_TYPE_ARRAY: setElements(node, param, type, value); return;
    case RV_TYPE_STRING: setString(node, param, value.STR); return;
    case RV_TYPE_MATRIX: setMatrix(node, param, value.pMTX); return;
    case RV_TYPE_ENUM:
        if (!RvEnumValueIsValid(param->enum_names, value.INT)) {
            RvMsgWarning("%s.%s: enumerated value %d is out of range", RvNodeGetName(node),
                         param->name, value.INT);
            return;
        }
        break;
    case RV_TYPE_NONE: reachedInError(module_path, __LINE__, "RvNodeSetBuiltInGeneric"); return;
    default: break;
    }
    store(paramStorage(node, param), param->type, value);
    markSet(node, param);
}

// ---- User parameters as a fallback ----

static bool replaceUserArray(const RtNode* node, RtUserParamEntry* user, RtArray* array)
{
    if (!prepareArray(node, user->name, array, userElementType(*user)))
        return false;
    if (user->value.ARRAY != array)
        RvArrayDestroy(user->value.ARRAY);
    user->value.ARRAY = array;
    return true;
}

static bool setUserElements(const RtNode* node, RtUserParamEntry* user, int type,
                            const RtParamValue& value)
{
    if (!acceptsElement(userElementType(*user), type))
        return false;
    RtArray* const array = user->value.ARRAY;
    if (array && totalElements(array) && array->data) {
        writeElements(array, array->type == RV_TYPE_STRING ? RV_TYPE_STRING : type, value);
        return true;
    }
    RtArray* const fresh = arrayOfOne(type, value);
    if (!fresh)
        return false;
    if (replaceUserArray(node, user, fresh))
        return true;
    RvArrayDestroy(fresh);
    return false;
}

static bool setUserString(RtUserParamEntry* user, const char* text)
{
    const char* const interned = internString(text);
    if (!interned)
        return false;
    releaseString(user->value.STR);
    user->value.STR = interned;
    return true;
}

static bool setUserMatrix(RtUserParamEntry* user, const RtMatrix* matrix)
{
    if (!user->value.pMTX)
        user->value.PTR =
            RvMalloc_func(sizeof(RtMatrix), module_path, __LINE__, "RvNodeSetUserDataGeneric");
    if (user->value.pMTX)
        *user->value.pMTX = *matrix;
    return user->value.pMTX != nullptr;
}

static bool setUser(const RtNode* node, const char* name, int type, const RtParamValue& value)
{
    RtUserParamEntry* const user = findUserParam(node, name, false);
    if (!user)
        return false;
    if (holdsArray(*user))
        return setUserElements(node, user, type, value);
    if (user->type != type && !(user->type == RV_TYPE_NODE && type == RV_TYPE_POINTER))
        return false;
    switch (type) {
    case RV_TYPE_STRING: return setUserString(user, value.STR);
    case RV_TYPE_MATRIX: return setUserMatrix(user, value.pMTX);
    default: user->value = value; return true;
    }
}

static bool getUser(const RtNode* node, const char* name, int type, RtParamValue* out)
{
    const RtUserParamEntry* const user = findUserParam(node, name, true);
    if (!user)
        return false;
    if (type == RV_TYPE_ARRAY && holdsArray(*user)) {
        *out = user->value;
        return true;
    }
    if (holdsArray(*user) ||
        (user->type != type && !(user->type == RV_TYPE_NODE && type == RV_TYPE_POINTER)))
        return false;
    if (type == RV_TYPE_MATRIX && !user->value.pMTX)
        return false;
    *out = user->value;
    return true;
}

// ---- The one setter and the one getter behind the exports ----

static void setValue(RtNode* node, const char* name, int type, const RtParamValue& value)
{
    if (isNullNode(node, name) || hasBadFloats(node, name, type, value))
        return;
    if (const RtParamEntry* const param = resolve(node, name, type))
        setDeclared(node, param, type, value);
    else if (!setUser(node, name, type, value))
        RvMsgWarning("%s: could not set %s parameter \"%s\"", RvNodeGetName(node), typeName(type),
                     name ? name : "");
}

static bool firstElement(const RtArray* array, int type, RtParamValue* out)
{
    if (!array || !array->data || !totalElements(array) || !acceptsElement(array->type, type))
        return false;
    if (type == RV_TYPE_MATRIX)
        out->PTR = array->data;
    else
        copyElement(out, array->data, type);
    return true;
}

static bool getDeclared(const RtNode* node, const RtParamEntry* param, int type, RtParamValue* out)
{
    if (param->type == RV_TYPE_ARRAY && type != RV_TYPE_ARRAY)
        return firstElement(loadArray(node, param), type, out);
    if (param->type == RV_TYPE_MATRIX)
        return (out->PTR = matrixBytes(node, param)) != nullptr;
    *out = load(paramStorage(node, param), param->type);
    return true;
}

// Reading a parameter with its own type under its own name is what programs do all day.
template <int type, class T> static bool getAtOnce(const RtNode* node, const char* name, T* out)
{
    if (!node || !name || hasIgnoreList())
        return false;
    const RtParamEntry* const param = recentParameter(node->entry, name);
    if (!param || param->type != type)
        return false;
    memcpy(out, paramStorage(node, param), sizeof *out);
    return true;
}

static RtParamValue getValue(const RtNode* node, const char* name, int type)
{
    RtParamValue value = {};
    if (isNullNode(node, name))
        return value;
    const RtParamEntry* const param = resolve(node, name, type);
    if (param && getDeclared(node, param, type, &value))
        return value;
    if (!getUser(node, name, type, &value))
        RvMsgWarning("%s: could not read %s parameter \"%s\"", RvNodeGetName(node), typeName(type),
                     name ? name : "");
    return value;
}

// ---- Colours ----

// Colours given to shaders are decoded with the option "shader_gamma".
static bool wantsGamma(const RtNode* node, const char* name)
{
    if (!node || node->entry->type != RV_NODE_SHADER || !render_options ||
        render_options->shader_gamma == 1)
        return false;
    const RtParamEntry* const param = findParameter(node->entry, name).param;
    return !param || !metaDataBool(node->entry, param->name, "always_linear", false);
}

// Applied to good values only; what becomes unusable by it is refused by the setter.
static void applyGamma(const RtNode* node, const char* name, float* rgb)
{
    if (!wantsGamma(node, name))
        return;
    for (int i = 0; i < 3; ++i)
        if (isUsableFloat(rgb[i]))
            rgb[i] = powf(rgb[i], render_options->shader_gamma);
}

// False, after an error, for the one text that is no value.
static bool setStringParam(RtNode* node, const RtParamEntry* param, const char* text)
{
    if (!strcmp(text, "NULL")) {
        RvMsgError("parameter \"%s\" set to an invalid string: \"%s\"", param->name, text);
        return false;
    }
    RtParamValue value = {};
    value.STR = text;
    setDeclared(node, param, RV_TYPE_STRING, value);
    return true;
}

// Of several threads that want one name only one gets it.
static void rename(RtNode* node, const char* name)
{
    const SceneGuard guard(the_frame->scene);
    if (mayRename(node, name) && setStringParam(node, nameParam(node), name))
        registerName(node, nameParam(node));
}

} // namespace rv

// ---- Exports: setters ----

#define RV_SCALAR_ACCESS(X) /* suffix, C type, member, type code */                                \
    X(Byte, uint8_t, BYTE, RV_TYPE_BYTE)                                                           \
    X(Int, int, INT, RV_TYPE_INT)                                                                  \
    X(UInt, unsigned int, UINT, RV_TYPE_UINT)                                                      \
    X(Bool, bool, BOOL, RV_TYPE_BOOLEAN)                                                           \
    X(Flt, float, FLT, RV_TYPE_FLOAT)                                                              \
    X(Ptr, void*, PTR, RV_TYPE_POINTER)

#define RV_DEFINE_SET(Suffix, Type, member, code)                                                  \
    void RvNodeSet##Suffix(RtNode* node, const char* param, Type value)                            \
    {                                                                                              \
        RtParamValue v = {};                                                                       \
        v.member = value;                                                                          \
        rv::setValue(node, param, code, v);                                                        \
    }
RV_SCALAR_ACCESS(RV_DEFINE_SET)

void RvNodeSetRGB(RtNode* node, const char* param, float r, float g, float b)
{
    RtParamValue v = {};
    v.RGB = { r, g, b };
    rv::applyGamma(node, param, &v.RGB.r);
    rv::setValue(node, param, RV_TYPE_RGB, v);
}

void RvNodeSetRGBA(RtNode* node, const char* param, float r, float g, float b, float a)
{
    RtParamValue v = {};
    v.RGBA = { r, g, b, a };
    rv::applyGamma(node, param, &v.RGBA.r);
    rv::setValue(node, param, RV_TYPE_RGBA, v);
}

void RvNodeSetVec(RtNode* node, const char* param, float x, float y, float z)
{
    RtParamValue v = {};
    v.VEC = { x, y, z };
    rv::setValue(node, param, RV_TYPE_VECTOR, v);
}

void RvNodeSetPnt(RtNode* node, const char* param, float x, float y, float z)
{
    RtParamValue v = {};
    v.PNT = { x, y, z };
    rv::setValue(node, param, RV_TYPE_POINT, v);
}

void RvNodeSetPnt2(RtNode* node, const char* param, float x, float y)
{
    RtParamValue v = {};
    v.PNT2 = { x, y };
    rv::setValue(node, param, RV_TYPE_POINT2, v);
}

void RvNodeSetStr(RtNode* node, const char* param, const char* value)
{
    if (rv::isNullNode(node, param))
        return;
    const RtParamEntry* const declared = rv::findParameter(node->entry, param).param;
    if (declared && declared->type == RV_TYPE_ENUM) {
        RvNodeSetInt(node, param, RvEnumGetValue(declared->enum_names, value));
        return;
    }
    const char* const text = value ? value : "";
    RtParamValue v = {};
    v.STR = text;
    if (!declared || declared->type != RV_TYPE_STRING)
        rv::setValue(node, param, RV_TYPE_STRING, v);
    else if (const RtParamEntry* const found = rv::resolve(node, param, RV_TYPE_STRING))
        found == rv::nameParam(node) ? rv::rename(node, text)
                                     : void(rv::setStringParam(node, found, text));
    else // on the ignore list
        RvMsgWarning("%s: could not set %s parameter \"%s\"", RvNodeGetName(node), "STRING", param);
}

void RvNodeSetArray(RtNode* node, const char* param, RtArray* array)
{
    if (rv::isNullNode(node, param))
        return;
    const RtParamEntry* const found = array ? rv::resolve(node, param, RV_TYPE_ARRAY) : nullptr;
    if (found) {
        rv::storeArray(node, found, array);
        return;
    }
    RtUserParamEntry* const user = array ? rv::findUserParam(node, param, false) : nullptr;
    if (user && rv::holdsArray(*user))
        rv::replaceUserArray(node, user, array);
    else
        RvMsgWarning("%s: could not set ARRAY parameter \"%s\"", RvNodeGetName(node),
                     param ? param : "");
}

void RvNodeSetMatrix(RtNode* node, const char* param, const RtMatrix* matrix)
{
    if (!matrix)
        return;
    RtMatrix copy = *matrix; // the value union holds a pointer to changeable storage
    RtParamValue v = {};
    v.pMTX = &copy;
    rv::setValue(node, param, RV_TYPE_MATRIX, v);
}

// ---- Exports: getters ----

#define RV_DEFINE_GET(Suffix, Type, member, code)                                                  \
    Type RvNodeGet##Suffix(const RtNode* node, const char* param)                                  \
    {                                                                                              \
        Type value;                                                                                \
        return rv::getAtOnce<code>(node, param, &value) ? value                                    \
                                                        : rv::getValue(node, param, code).member;  \
    }
RV_SCALAR_ACCESS(RV_DEFINE_GET)
RV_DEFINE_GET(RGB, RtRGB, RGB, RV_TYPE_RGB)
RV_DEFINE_GET(RGBA, RtRGBA, RGBA, RV_TYPE_RGBA)
RV_DEFINE_GET(Vec, RtVector, VEC, RV_TYPE_VECTOR)
RV_DEFINE_GET(Pnt, RtPoint, PNT, RV_TYPE_POINT)
RV_DEFINE_GET(Pnt2, RtPoint2, PNT2, RV_TYPE_POINT2)
RV_DEFINE_GET(Str, const char*, STR, RV_TYPE_STRING)
RV_DEFINE_GET(Array, RtArray*, ARRAY, RV_TYPE_ARRAY)

void RvNodeGetMatrix(const RtNode* node, const char* param, RtMatrix* out)
{
    const RtParamValue value = rv::getValue(node, param, RV_TYPE_MATRIX);
    if (value.PTR && out)
        memcpy(out, value.PTR, sizeof *out);
}
