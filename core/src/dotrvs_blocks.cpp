// dotrvs_blocks: the block of a node in a scene file: its changed parameters, links, user
// parameters and, for shapes, the transform in the world.
#include "dotrvs_blocks.h"

#include "array.h"
#include "objects/gobject.h"
#include "options.h"
#include "override.h"

#include <algorithm>

static const char* const module_path = "core\\src\\dotrvs";

namespace rv {

// ---- Lines ----

// A parameter's line: its name between blanks, then the value.
static void beginLine(SceneText* out, const char* param)
{
    out->write(' ');
    out->write(param);
    out->write(' ');
}

static const char* nameOf(const RtNode* node)
{
    const char* const name = RvNodeGetName(node);
    return name ? name : "NULL";
}

static void writeNodeLine(SceneText* out, const char* param, const RtNode* node)
{
    beginLine(out, param);
    out->write(nameOf(node));
    out->newline();
}

// Quotes alone are escaped, so the reader takes the last backslash and the quote behind it for one
// that belongs to the text.
static bool endsInBackslash(const char* text)
{
    const size_t length = text ? strlen(text) : 0;
    return length > 0 && text[length - 1] == '\\';
}

static bool hasBackslashAtEnd(const RtArray* array)
{
    if (!array || !array->data)
        return false;
    const unsigned total = totalElements(array);
    switch (array->type) {
    case RV_TYPE_STRING: {
        const char* const* const texts = elementsOf<const char*>(array);
        return std::any_of(texts, texts + total, endsInBackslash);
    }
    case RV_TYPE_ARRAY: {
        const RtArray* const* const arrays = elementsOf<const RtArray*>(array);
        return std::any_of(arrays, arrays + total, hasBackslashAtEnd);
    }
    default: return false;
    }
}

static void warnOfBackslash(const RtNode* node, const char* param)
{
    RvMsgWarning("%s: \"%s\" has a text that ends in a backslash and will not read back",
                 RvNodeGetName(node), param);
}

static void writeArrayLine(SceneText* out, const RtNode* node, const char* param,
                           const RtArray* array)
{
    if (hasBackslashAtEnd(array))
        warnOfBackslash(node, param);
    beginLine(out, param);
    writeArray(out, node, array);
    out->newline();
}

static void writeValueLine(SceneText* out, const RtNode* node, const char* param, int type,
                           const void* value, const char* const* enum_names = nullptr)
{
    if (type == RV_TYPE_STRING && endsInBackslash(load(value, type).STR))
        warnOfBackslash(node, param);
    beginLine(out, param);
    writeValue(out, type, value, enum_names);
    out->newline();
}

// ---- Links ----

static char componentLetter(int type, int component)
{
    switch (type) {
    case RV_TYPE_RGB:
    case RV_TYPE_RGBA: return "rgba"[component];
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT:
    case RV_TYPE_POINT2: return "xyz?"[component];
    default: return '?';
    }
}

static RtNode* linkedNode(uintptr_t slot)
{
    return reinterpret_cast<RtNode*>(slot & ~component_marker); // NOLINT: tagged pointer
}

static bool isLinked(const RtNode* node, const RtParamEntry& param)
{
    if (!node->links)
        return false;
    const RtLinkRecord& record = node->links[param.index];
    if (!(record.slot[0] & component_marker))
        return record.slot[0] != 0;
    return std::any_of(std::begin(record.slot), std::end(record.slot), linkedNode);
}

// Required: a parameter with linked components loses what its other components were set to.
static void writeLinks(SceneText* out, const RtNode* node, const RtParamEntry& param)
{
    const RtLinkRecord& record = node->links[param.index];
    if (!(record.slot[0] & component_marker)) {
        writeNodeLine(out, param.name, linkedNode(record.slot[0]));
        return;
    }
    for (int i = 0; i < 4; ++i)
        if (const RtNode* const source = linkedNode(record.slot[i])) {
            out->write(' ');
            out->write(param.name);
            out->write('.');
            out->write(componentLetter(param.type, i));
            out->write(' ');
            out->write(nameOf(source));
            out->newline();
        }
}

// ---- Declared parameters ----

static bool floatsDiffer(const void* a, const void* b, int count)
{
    for (int i = 0; i < count; ++i) {
        float x, y;
        memcpy(&x, static_cast<const float*>(a) + i, sizeof x);
        memcpy(&y, static_cast<const float*>(b) + i, sizeof y);
        if (!(x == y))
            return true;
    }
    return false;
}

static bool valuesDiffer(int type, const RtParamValue& a, const RtParamValue& b)
{
    switch (type) {
    case RV_TYPE_BYTE:
    case RV_TYPE_BOOLEAN: return memcmp(&a, &b, 1) != 0;
    // Required: the bits of integers are compared as floats, so -1 is never its default, and the
    // least integer equals 0.
    case RV_TYPE_INT:
    case RV_TYPE_UINT:
    case RV_TYPE_ENUM:
    case RV_TYPE_FLOAT: return floatsDiffer(&a, &b, 1);
    case RV_TYPE_POINT2: return floatsDiffer(&a, &b, 2);
    case RV_TYPE_RGB:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT: return floatsDiffer(&a, &b, 3);
    case RV_TYPE_RGBA: return floatsDiffer(&a, &b, 4);
    case RV_TYPE_MATRIX: return true;
    default: return a.PTR != b.PTR;
    }
}

// What a copy says by the line that names its source and by the transform relative to it. The
// source may be a copy itself, of another node.
static bool isSaidOtherwise(const RtParamEntry& param)
{
    return !strcmp(param.name, "node") || !strcmp(param.name, "inherit_xform");
}

// Of a copy.
static bool differsFromSource(const RtNode* node, const RtParamEntry& param,
                              const RtParamValue& value)
{
    const RtParamEntry* const other = findParameter(node->source->entry, param.name).param;
    if (isSaidOtherwise(param) || !other || other->type != param.type)
        return false;
    if (param.type == RV_TYPE_ARRAY && !(value.ARRAY && totalElements(value.ARRAY)))
        return false;
    return valuesDiffer(param.type, value, load(paramStorage(node->source, other), other->type));
}

static bool isChanged(const RtNode* node, const RtParamEntry& param, const RtParamValue& value)
{
    if (!node->set_flags[param.index])
        return false;
    return node->source ? differsFromSource(node, param, value)
                        : valuesDiffer(param.type, value, param.default_value);
}

static void writeParam(SceneText* out, const RtNode* node, const RtParamEntry& param,
                       const RtParamValue& value)
{
    if (isLinked(node, param)) {
        writeLinks(out, node, param);
    } else if (param.type == RV_TYPE_ARRAY) {
        writeArrayLine(out, node, param.name, value.ARRAY);
    } else if (param.type == RV_TYPE_MATRIX) {
        if (const void* const bytes = matrixBytes(node, &param))
            writeValueLine(out, node, param.name, param.type, bytes);
    } else {
        writeValueLine(out, node, param.name, param.type, &value, param.enum_names);
    }
}

} // namespace rv

void RvRVSWriteNodeBuiltinParams(rv::SceneText* out, const RtNode* node, bool only_changed)
{
    const RtNodeEntry* const entry = node->entry;
    for (unsigned i = 0; i < entry->num_params; ++i) {
        const RtParamEntry& param = entry->params[i];
        if (i == node->name_index)
            continue;
        if (!rv::isStoredType(param.type)) {
            rv::reachedInError(module_path, __LINE__, "RvRVSWriteNodeBuiltinParams");
            continue;
        }
        const RtParamValue value = param.type == RV_TYPE_MATRIX
                                       ? RtParamValue{}
                                       : rv::load(rv::paramStorage(node, &param), param.type);
        const bool writes_all = !only_changed && !node->source;
        if (writes_all || rv::isLinked(node, param) || rv::isChanged(node, param, value))
            rv::writeParam(out, node, param, value);
    }
}

namespace rv {

// ---- User parameters ----

static const char* categoryName(int category)
{
    switch (category) {
    case RV_USERDEF_CONSTANT: return "constant";
    case RV_USERDEF_UNIFORM: return "uniform";
    case RV_USERDEF_VARYING: return "varying";
    default: return nullptr;
    }
}

static void writeDeclaration(SceneText* out, const RtUserParamEntry& user, const char* category)
{
    for (const char* word : { "declare ", user.name, " ", category, " " })
        out->write(word);
    out->write(silentTypeName(user.type));
    if (user.type == RV_TYPE_ARRAY) {
        out->write(' ');
        out->write(silentTypeName(user.array_type));
    }
    out->newline();
}

static void writeUserParam(SceneText* out, const RtNode* node, const RtUserParamEntry& user)
{
    const char* const category = categoryName(user.category);
    if (!category) {
        RvMsgError("unrecognized user-defined parameter type for parameter %s!", user.name);
        return;
    }
    writeDeclaration(out, user, category);
    if (holdsArray(user))
        writeArrayLine(out, node, user.name, user.value.ARRAY);
    else if (user.type != RV_TYPE_MATRIX)
        writeValueLine(out, node, user.name, user.type, &user.value);
    else if (user.value.pMTX) // it was set
        writeValueLine(out, node, user.name, user.type, user.value.pMTX);
}

// ---- Transforms ----

namespace {

struct MatrixKeys {
    unsigned count;
    RtMatrix key[UINT8_MAX];

    // The last one stands for those that are missing.
    const RtMatrix& at(unsigned k) const { return key[std::min(k, count - 1)]; }
};

} // namespace

static const RtArray* matrixParam(const RtNode* node)
{
    const RtParamEntry* const param = findParameter(node->entry, "matrix").param;
    const RtArray* const array =
        param && param->type == RV_TYPE_ARRAY ? loadArray(node, param) : nullptr;
    return array && array->type == RV_TYPE_MATRIX && totalElements(array) ? array : nullptr;
}

static void ownKeys(const RtNode* node, MatrixKeys* keys)
{
    const RtGObject* const object = shapeObject(node);
    if (object && object->nkeys) {
        keys->count = object->nkeys;
        std::copy_n(object->matrices, keys->count, keys->key);
    } else if (const RtArray* const array = matrixParam(node)) {
        keys->count = array->nkeys;
        for (unsigned k = 0; k < keys->count; ++k)
            keys->key[k] = elementsOf<RtMatrix>(array)[k * array->nelements];
    } else {
        keys->count = 1;
        keys->key[0] = RV_M4_IDENTITY;
    }
}

static void applyCreator(const RtNode* node, const RtNode* creator, MatrixKeys* keys)
{
    MatrixKeys outer;
    ownKeys(creator, &outer);
    if (keys->count > 1 && outer.count > 1 && keys->count != outer.count)
        RvMsgError("writing rvs: node %s has different number of matrix keys than its parent %s "
                   "(%d versus %d)",
                   RvNodeGetName(node), RvNodeGetName(creator), int(keys->count), int(outer.count));
    // Required: the creator's transform stands on the left.
    for (unsigned k = 0; k < keys->count; ++k)
        RvM4Mult(&keys->key[k], &outer.at(k), &keys->key[k]);
}

static void makeRelativeToSource(const RtNode* node, MatrixKeys* keys)
{
    MatrixKeys source;
    ownKeys(node->source, &source);
    if (keys->count != source.count)
        RvMsgWarning("writing rvs: ginstance node %s has different number of matrix keys than its "
                     "reference %s (%d versus %d)",
                     RvNodeGetName(node), RvNodeGetName(node->source), int(keys->count),
                     int(source.count));
    // Required: the inverse stands on the right.
    for (unsigned k = 0; k < keys->count; ++k) {
        RtMatrix inverse;
        RvM4Invert(&source.at(k), &inverse);
        RvM4Mult(&keys->key[k], &keys->key[k], &inverse);
    }
}

// Procedurals inside each other that are looked at; user code may make a ring of them.
static constexpr int max_creators = 1000;

static void writtenKeys(const RtNode* node, MatrixKeys* keys)
{
    ownKeys(node, keys);
    const RtNode* creator = node->creator;
    for (int i = 0; creator && i < max_creators; creator = creator->creator, ++i)
        applyCreator(node, creator, keys);
    if (node->source)
        makeRelativeToSource(node, keys);
}

// Gives a node an array, which is destroyed when the node refuses it.
static void giveArray(RtNode* node, const RtParamEntry* param, RtArray* array)
{
    if (!array)
        return;
    RvNodeSetArray(node, param->name, array);
    if (loadArray(node, param) != array)
        RvArrayDestroy(array);
}

namespace {

// "matrix" is what is written for the scope. Afterwards a scene that is to be rendered again gets
// back what the node had, where that is something else.
class WrittenTransform {
public:
    explicit WrittenTransform(RtNode* shape);
    ~WrittenTransform()
    {
        if (former)
            giveArray(node, param, former);
    }
    WrittenTransform(const WrittenTransform&) = delete;
    WrittenTransform& operator=(const WrittenTransform&) = delete;

private:
    RtNode* node;
    const RtParamEntry* param = nullptr;
    RtArray* former = nullptr;
};

} // namespace

WrittenTransform::WrittenTransform(RtNode* shape) : node(shape)
{
    if (node->entry->type != RV_NODE_SHAPE)
        return;
    param = findParameter(node->entry, "matrix").param;
    if (!param || param->type != RV_TYPE_ARRAY)
        return;
    MatrixKeys keys;
    writtenKeys(node, &keys);
    RtArray* const array = RvArrayAllocate(1, keys.count, RV_TYPE_MATRIX);
    if (!array || !array->data) {
        RvArrayDestroy(array);
        return;
    }
    memcpy(array->data, keys.key, keys.count * sizeof(RtMatrix));
    const bool is_changed = node->creator || node->source;
    if (is_changed && render_options && render_options->preserve_scene_data)
        if (const RtArray* const present = loadArray(node, param))
            former = RvArrayCopy(present);
    giveArray(node, param, array);
}

// ---- Blocks ----

} // namespace rv

void RvRVSWriteNode(rv::SceneText* out, RtNode* node, bool only_changed)
{
    if (rv::keepsOverrides(node)) {
        rv::writeOverrides(out, node);
        return;
    }
    if (node->creator) {
        out->write("### created by ");
        out->write(rv::nameOf(node->creator));
        out->newline();
    }
    out->write(node->source ? "ginstance" : node->entry->name);
    out->write("\n{\n");
    rv::writeNodeLine(out, "name", node);
    if (node->source)
        rv::writeNodeLine(out, "node", node->source);
    {
        const rv::WrittenTransform transform(node);
        RvRVSWriteNodeBuiltinParams(out, node, only_changed);
    }
    for (unsigned i = 0; i < node->user_param_count; ++i)
        rv::writeUserParam(out, node, node->user_params[i]);
    if (node->before)
        rv::writeNodeLine(out, "@before", node->before);
    out->write("}\n\n");
}
