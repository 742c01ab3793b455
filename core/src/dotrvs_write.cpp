// dotrvs_write: which nodes go into a scene file, and the file itself (rv_scenefile.h).
//
// Writing consumes the scene: the arrays of every node that was passed are emptied, unless the
// option "preserve_scene_data" is on.
#include "dotrvs_blocks.h"

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

namespace rv {

namespace {

// ---- The file ----

// A file that is replaced when the new one is complete. What is no file, pipes and devices, is
// written to directly, and so is a file in a folder that takes no new ones.
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

static bool isRefusal(int reason) { return reason == EACCES || reason == EPERM || reason == EROFS; }

// Where the part goes, so that it is compressed if the file is. False when nothing can be written.
bool OutputFile::createPartFor(const char* name)
{
    place = placeOf(name);
    if (!place.has_filename() || !isReplaceable(place))
        return false;
    FILE* const empty = createPart(place, isCompressedName(name) ? ".gz" : "", &part);
    if (!empty) {
        const int reason = errno;
        part.clear();
        return isRefusal(reason) && std::filesystem::exists(place);
    }
    fclose(empty);
    if (isCompressedName(name) == isCompressedName(part))
        return true;
    removePart(part);
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
    const bool finished = finishPart(part, place);
    if (finished)
        part.clear();
    return finished;
}

void OutputFile::discard()
{
    if (RtRVSFile* const closing = std::exchange(file, nullptr))
        if (RvRVSCloseFile(closing, "w") != 0)
            RvRVSDestroyFile(closing);
    if (!part.empty())
        removePart(part);
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
    if (isLeftover(node))
        return false;
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
    if (RtGObject* const object = shapeObject(procedural))
        loadProcedural(object, LoadedFor::scene); // it was prepared before, for rays to load it
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
