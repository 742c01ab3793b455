// dotrvs_write: scene files are written (rv_scenefile.h).
//
// Writing consumes the scene: the arrays of every node that was passed are emptied, unless the
// option "preserve_scene_data" is on.
#include "dotrvs_write.h"

#include "array.h"
#include "duration.h"
#include "frame.h"
#include "objects/gobject.h"
#include "objects/proc.h"
#include "options.h"
#include "rv_plugins.h"
#include "rv_render.h"
#include "rv_universe.h"
#include "scene.h"
#include "system/broken_pipe.h"
#include "system/clock.h"
#include "system/part_file.h"

#include <algorithm>
#include <errno.h>
#include <exception>
#include <utility>
#include <vector>

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

static void writeArrayLine(SceneText* out, const RtNode* node, const char* param,
                           const RtArray* array)
{
    beginLine(out, param);
    writeArray(out, node, array);
    out->newline();
}

static void writeValueLine(SceneText* out, const char* param, int type, const void* value,
                           const char* const* enum_names)
{
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

// Of a copy. What the source does not have, "node" and "inherit_xform", is said by the line that
// names the source and by the transform relative to it.
static bool differsFromSource(const RtNode* node, const RtParamEntry& param,
                              const RtParamValue& value)
{
    const RtParamEntry* const other = findParameter(node->source->entry, param.name).param;
    if (!other || other->type != param.type)
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
            writeValueLine(out, param.name, param.type, bytes, nullptr);
    } else {
        writeValueLine(out, param.name, param.type, &value, param.enum_names);
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
        writeValueLine(out, user.name, user.type, &user.value, nullptr);
    else if (user.value.pMTX) // it was set
        writeValueLine(out, user.name, user.type, user.value.pMTX, nullptr);
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

namespace rv {

namespace {

// ---- The file ----

// A file that is replaced when the new one is complete. What is no file, pipes and devices, is
// written to directly.
class OutputFile {
public:
    OutputFile() = default;
    ~OutputFile() { discard(); }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Null when it cannot be opened.
    RtRVSFile* open(const char* name);
    // Closes it and gives it its name. False after an error, see errno.
    bool finish();
    // Closes it and leaves an older file as it was.
    void discard();

private:
    bool createPartFor(const char* name);

    std::filesystem::path place, part; // empty when there is no part
    RtRVSFile* file = nullptr;
};

} // namespace

static bool isFile(const char* name)
{
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(name, error);
    return *name != '|' && strcmp(name, "-") != 0 &&
           (!std::filesystem::exists(status) || std::filesystem::is_regular_file(status));
}

// The end of a name that has the file compressed, as RvRVSOpenFile finds it.
static bool isCompressedName(const std::string& name)
{
    constexpr size_t too_long = 1024;
    const size_t dot = name.rfind('.');
    return name.size() < too_long && dot != std::string::npos && name.substr(dot) == ".gz";
}

// Where the part goes, so that it is compressed if the file is. False when there can be none.
bool OutputFile::createPartFor(const char* name)
{
    place = placeOf(name);
    if (!place.has_filename() || !isReplaceable(place))
        return false;
    FILE* const empty = createPart(place, isCompressedName(name) ? ".gz" : "", &part);
    if (!empty) {
        part.clear();
        return false;
    }
    fclose(empty);
    if (isCompressedName(name) == isCompressedName(part))
        return true;
    remove(part.c_str());
    part.clear();
    return true;
}

RtRVSFile* OutputFile::open(const char* name)
{
    if (!isFile(name) || createPartFor(name))
        file = RvRVSOpenFile(part.empty() ? name : part.c_str(), "w");
    return file;
}

bool OutputFile::finish()
{
    RtRVSFile* const closing = std::exchange(file, nullptr);
    errno = 0;
    if (RvRVSCloseFile(closing, "w") != 0) {
        RvRVSDestroyFile(closing);
        return false;
    }
    if (part.empty())
        return true;
    errno = 0;
    const bool renamed = rename(part.c_str(), place.c_str()) == 0;
    if (renamed)
        part.clear();
    return renamed;
}

void OutputFile::discard()
{
    if (RtRVSFile* const closing = std::exchange(file, nullptr))
        if (RvRVSCloseFile(closing, "w") != 0)
            RvRVSDestroyFile(closing);
    if (!part.empty())
        remove(part.c_str());
    part.clear();
}

// ---- Which nodes ----

namespace {

// The nodes that lights refer to. Read once, before the arrays of the lights are emptied.
class LightReferences {
public:
    bool contains(const RtNode* node);

private:
    void add(const RtNode* light, const char* param);
    void addLight(const RtNode* light);

    std::vector<const RtNode*> nodes; // sorted
    int light_count = 0;              // lights that were read
};

} // namespace

static void reportUnreadable(const RtNode* light, const char* param)
{
    RvMsgWarning("%s: could not read %s parameter \"%s\"", RvNodeGetName(light), "POINTER", param);
}

static bool holdsPointers(int type) { return type == RV_TYPE_POINTER || type == RV_TYPE_NODE; }

void LightReferences::add(const RtNode* light, const char* name)
{
    const RtParamEntry* const param = findParameter(light->entry, name).param;
    if (!param)
        return;
    if (holdsPointers(param->type)) {
        nodes.push_back(static_cast<const RtNode*>(RvNodeGetPtr(light, name)));
    } else if (param->type == RV_TYPE_ARRAY) {
        const RtArray* const array = loadArray(light, param);
        if (!array || !holdsPointers(array->type))
            reportUnreadable(light, name);
        else
            nodes.insert(nodes.end(), elementsOf<RtNode*>(array),
                         elementsOf<RtNode*>(array) + totalElements(array));
    }
}

void LightReferences::addLight(const RtNode* light)
{
    add(light, "falloff");
    if (RvNodeIs(light, "spot_light") || RvNodeIs(light, "point_light"))
        add(light, "volume_density");
}

bool LightReferences::contains(const RtNode* node)
{
    const int count = RvUniverseGetNumLights();
    if (light_count < count) { // procedurals create lights, too
        for (; light_count < count; ++light_count)
            addLight(RvUniverseGetLights()[light_count]);
        std::sort(nodes.begin(), nodes.end());
    }
    return std::binary_search(nodes.begin(), nodes.end(), node);
}

static bool isInternal(const RtScene& scene, const RtNode* node)
{
    return RvNodeIs(node, "list_aggregate") || node == scene.error_shader ||
           node == scene.bad_shader || node == scene.default_reflection_shader;
}

static bool isLoaded(const RtNode* node)
{
    const RtGObject* const object =
        node->entry->type == RV_NODE_SHAPE ? shapeObject(node) : nullptr;
    return object && object->kind == RV_KIND_PROCEDURAL && isLoadedProcedural(geometryNode(node));
}

// ---- The walk ----

namespace {

class SceneWriter {
public:
    SceneWriter(RtScene* s, SceneText* text, unsigned kinds, bool opens_procedurals)
        : scene(s), out(text), mask(kinds), open_procs(opens_procedurals),
          preserves(render_options && render_options->preserve_scene_data)
    {
    }

    // Number of nodes that were written.
    int writeAll()
    {
        walk(RvListHead(scene->nodes));
        return node_count;
    }

private:
    void walk(const RtListNode* first);
    void expand(RtNode* procedural);
    bool isWanted(const RtNode* node);
    void writeNode(RtNode* node);

    RtScene* scene;
    SceneText* out;
    unsigned mask;
    bool open_procs;
    bool preserves;
    LightReferences light_references;
    int node_count = 0;
    int depth = 0; // procedurals that are open inside each other
};

} // namespace

bool SceneWriter::isWanted(const RtNode* node)
{
    if ((mask & RV_NODE_LIGHT) && light_references.contains(node))
        return true;
    if (!(mask & unsigned(node->entry->type)) || isInternal(*scene, node) || isLoaded(node))
        return false;
    return !RvNodeIs(node, "ginstance") || RvNodeGetPtr(node, "node");
}

void SceneWriter::writeNode(RtNode* node)
{
    constexpr int nodes_per_report = 10000;
    RvRVSWriteNode(out, node, true);
    if (++node_count % nodes_per_report == 0)
        RvMsgInfoMasked(RV_LOG_LOADING, "%d nodes ...", node_count);
}

void SceneWriter::expand(RtNode* procedural)
{
    constexpr int max_depth = 100;
    if (depth == max_depth) {
        RvMsgError("writing rvs: %s is not written, it is inside %d procedurals",
                   RvNodeGetName(procedural), max_depth);
        return;
    }
    RvNodeSetBool(procedural, "load_at_init", true);
    const RtListNode* const last = RvListTail(scene->nodes);
    RvNodeInitialize(procedural);
    ++depth;
    if (last->next)
        walk(last->next);
    --depth;
}

static void releaseArrays(const RtNode* node)
{
    for (unsigned i = 0; i < node->entry->num_params; ++i) {
        const RtParamEntry& param = node->entry->params[i];
        if (param.type == RV_TYPE_ARRAY)
            if (RtArray* const array = RvNodeGetArray(node, param.name))
                RvArrayReset(array);
    }
}

// From an element to the present end of the list.
void SceneWriter::walk(const RtListNode* first)
{
    const RtListNode* const last = RvListTail(scene->nodes);
    for (const RtListNode* element = first; element; element = element->next) {
        RtNode* const node = static_cast<RtNode*>(element->data);
        if (open_procs && RvNodeIs(node, "procedural"))
            expand(node);
        else if (isWanted(node))
            writeNode(node);
        if (!preserves)
            releaseArrays(node);
        if (element == last)
            break;
    }
}

static void writeHeader(SceneText* out)
{
    char now[32];
    localTimeText(now);
    out->write("### exported: ");
    out->write(now);
    out->write("\n### from:     ");
    out->write(RvGetVersionInfo());
    out->write("\n\n\n\n");
}

namespace {

struct LogIndentation {
    LogIndentation() { RvMsgTab(1); }
    ~LogIndentation() { RvMsgTab(-1); }
    LogIndentation(const LogIndentation&) = delete;
    LogIndentation& operator=(const LogIndentation&) = delete;
};

} // namespace

static int writeNodes(SceneText* out, unsigned mask, bool open_procs)
{
    const LogIndentation indentation;
    return SceneWriter(the_frame->scene, out, mask, open_procs).writeAll();
}

// True when everything has reached the file.
static bool writeScene(SceneText* out, const char* filename, unsigned mask, bool open_procs)
{
    writeHeader(out);
    RvMsgInfo("writing %s (mask=0x%X) ...", filename, mask);
    const uint32_t start = wallMilliseconds();
    const int node_count = writeNodes(out, mask, open_procs);
    const bool is_complete = out->finish();
    // Required: the line counter goes on from where it stood.
    if (is_complete)
        RvMsgInfo("wrote %d nodes in %d lines in %s", node_count, scene_file_line.load(),
                  RvDurationString(wallMilliseconds() - start));
    return is_complete;
}

static int writeFile(const char* filename, unsigned mask, bool open_procs)
{
    OutputFile output;
    RtRVSFile* const file = output.open(filename);
    if (!file) {
        RvMsgError("can't open .rvs file \"%s\"", filename);
        return RV_ERROR;
    }
    const BrokenPipesFail broken_pipes_fail; // not for the command, which is open already
    SceneText text(file);
    const bool is_written = writeScene(&text, filename, mask, open_procs);
    if (is_written && output.finish())
        return RV_SUCCESS;
    const int reason = is_written ? errno : text.failure();
    output.discard();
    RvMsgError("can't write .rvs file \"%s\": %s", filename,
               reason ? strerror(reason) : "the command failed");
    return RV_ERROR;
}

} // namespace rv

int RvRVSWrite(const char* filename, unsigned int mask, bool open_procs)
{
    RtScene* const scene = rv::the_frame ? rv::the_frame->scene : nullptr;
    if (!scene)
        return RV_ERROR;
    if (rv::the_frame->hooks->rendering()) {
        RvMsgWarning("cannot write the scene while rendering; ignoring call to RvRVSWrite()");
        return RV_ERROR;
    }
    scene->consumed = true; // Required: also when nothing can be written
    if (!filename || !*filename)
        return RV_ERROR;
    try {
        return rv::writeFile(filename, mask, open_procs);
    } catch (const std::exception& error) {
        RvMsgError("RvRVSWrite: %s", error.what());
        return RV_ERROR;
    }
}
