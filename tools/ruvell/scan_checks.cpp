// What only the whole scene can tell: names that lead nowhere, outputs, procedurals and files.
#include "frames.h"
#include "report.h"
#include "scan.h"
#include "scan_words.h"
#include "scene_paths.h"
#include "text.h"
#include <algorithm>
#include <cstring>
#include <unistd.h>

namespace ruvell {

static constexpr size_t max_sites = 20;        // listed of one name that nothing defines
static constexpr size_t max_candidates = 5000; // names searched for one that is near
static constexpr size_t max_procedural_depth = 64;

// ---- Names ----

SceneScan::Node* SceneScan::findNode(const std::string& name)
{
    const auto found = nodes.find(name);
    return found == nodes.end() ? nullptr : &found->second;
}

std::string SceneScan::suggest(const std::string& wrong, const std::vector<std::string>& known)
{
    if (suggestions_left == 0)
        return "";
    --suggestions_left;
    return didYouMean(nearestNames(wrong, known));
}

// The nearest names of nodes whose kind is in the mask.
std::string SceneScan::nearestNode(const std::string& name, int kind)
{
    if (suggestions_left == 0)
        return "";
    std::vector<std::string> names;
    for (const auto& [known, node] : nodes)
        if ((RvNodeEntryGetType(node.entry) & kind) && names.size() < max_candidates)
            names.push_back(known);
    return suggest(name, names);
}

void SceneScan::rename(Block& block, const std::string& name, uint32_t file, const Place& place)
{
    if (Node* other = findNode(name)) {
        if (other == block.node)
            return;
        report(Topic::duplicate_name, Weight::error, place,
               "the name " + inQuotes(name) + " is used already" +
                   (other->line
                        ? ", by " + file_names[other->file] + ":" + std::to_string(other->line)
                        : ""));
        return;
    }
    if (name.empty() || name == "NULL") {
        report(Topic::other, Weight::error, place, inQuotes(name) + " cannot be a node's name");
        return;
    }
    Node node = std::move(*block.node);
    if (!block.name.empty())
        nodes.erase(block.name);
    node.file = file;
    node.line = place.line;
    block.node = &(nodes[name] = std::move(node));
    block.name = name;
}

void SceneScan::addReference(const std::string& target, const Block& block,
                             const Parameter& parameter)
{
    if (target == "NULL" || findNode(target))
        return;
    std::vector<Reference>& sites = references[target];
    ++reference_counts[target];
    if (sites.size() < max_sites)
        sites.push_back(
            { parameter.place,
              inQuotes(parameter.name) + (block.name.empty() ? "" : " of " + inQuotes(block.name)),
              parameter.type == RV_TYPE_BOOLEAN });
}

void SceneScan::checkReferences()
{
    for (const auto& [target, sites] : references) {
        if (isOutOfTime())
            return;
        if (findNode(target))
            continue;
        const bool may_come = has_unseen_nodes;
        const std::string near = may_come ? "" : nearestNode(target, RV_NODE_ALL);
        for (const Reference& site : sites) {
            if (site.is_boolean)
                report(Topic::bad_boolean, Weight::error, site.place,
                       site.what + ": " + inQuotes(target) + " is neither true nor false",
                       boolean_words);
            else if (!may_come)
                report(Topic::undefined_name, Weight::error, site.place,
                       site.what + " names " + inQuotes(target) + ", which no block defines", near);
        }
        const uint64_t more = reference_counts[target] - sites.size();
        if (more > 0 && !may_come)
            report(Topic::undefined_name, Weight::error, sites.back().place,
                   inQuotes(target) + " is named " + std::to_string(more) + " more times");
    }
}

// ---- Strings that matter ----

void SceneScan::takeString(const FileUse& use)
{
    if (use.kind == FileUse::texture_path)
        texture_searchpath = use.name;
    else if (use.kind == FileUse::procedural_path)
        procedural_searchpath = use.name;
    else if (use.kind == FileUse::plugin_path)
        plugin_searchpath = use.name;
    uses.push_back(use);
}

void SceneScan::takeStrings(const Block& block, const Parameter& parameter,
                            std::vector<std::string> values)
{
    if (block.name != "options")
        return;
    if (!std::strcmp(parameter.declared_name, "ignore_list"))
        ignored_types = { values.begin(), values.end() };
    else {
        outputs = std::move(values);
        outputs_place = parameter.place;
    }
}

// Unquoted words that no node claims are strings from the end of the load on.
void SceneScan::resolvePending(size_t first)
{
    for (size_t i = first; i < pending_strings.size(); ++i)
        if (!findNode(pending_strings[i].use.name))
            takeString(pending_strings[i].use);
    pending_strings.resize(first);
}

// As the command does before and after each scene it loads.
void SceneScan::extendSearchPaths()
{
    for (std::string* path : { &texture_searchpath, &procedural_searchpath }) {
        const std::vector<std::string> entries = searchPathEntries(*path);
        for (const std::string& dir : options.search_dirs)
            if (std::find(entries.begin(), entries.end(), dir) == entries.end())
                *path += (path->empty() ? "" : ";") + dir;
    }
}

// ---- Scene files ----

SceneScan::Opening SceneScan::openScene(const std::string& name, const Place& place,
                                        std::string* path)
{
    static constexpr size_t max_name = 1024;
    if (name.starts_with('|') || name == "-") {
        const std::string what = name == "-" ? "standard input" : "the command " + inQuotes(name);
        has_unseen_nodes = true;
        if (options.safe)
            forbid(place, "reading from " + what);
        else
            report(Topic::unseen, Weight::warning, place,
                   "what comes from " + what + " cannot be checked");
        return options.safe ? Opening::fails : Opening::unseen;
    }
    if (name.size() >= max_name) {
        report(Topic::missing_file, Weight::error, place, "file name too long: " + inQuotes(name));
        return Opening::fails;
    }
    *path = firstReadable(sceneCandidates(name, procedural_searchpath));
    if (path->empty()) {
        const char* reason = isFolder(name) ? "it is a folder"
                             : exists(name) ? "not allowed to read it"
                                            : "not found";
        report(Topic::missing_file, Weight::error, place,
               "cannot open " + inQuotes(name) + ": " + reason,
               name.starts_with('/')
                   ? ""
                   : "looked for in the current folder and in \"procedural_searchpath\"");
        return Opening::fails;
    }
    if (options.safe)
        if (const std::string reason = options.refuseReading(*path); !reason.empty()) {
            forbid(place, reason);
            return Opening::fails;
        }
    if (isRegularFile(*path))
        return Opening::known;
    has_unseen_nodes = true;
    if (options.safe)
        forbid(place, inQuotes(name) + " is no regular file");
    else
        report(Topic::unseen, Weight::warning, place,
               inQuotes(name) + " is no regular file and cannot be checked");
    return options.safe ? Opening::fails : Opening::unseen;
}

void SceneScan::scanScene(const std::string& name, const std::string& shown)
{
    const Place place{ shown.empty() ? name : shown, 0 };
    std::string path;
    extendSearchPaths();
    if (openScene(name, place, &path) != Opening::known)
        return;
    open_files = { realPath(path) };
    scanFile(path, fileIndex(shown.empty() || shown == name ? path : shown));
    open_files.clear();
    extendSearchPaths();
}

// ---- Procedurals and overrides ----

void SceneScan::finish()
{
    followProcedurals(0);
    // An override may give a node of a procedural another file, which may hold nodes again.
    while (!is_stopped && applyOverrides()) {
    }
    checkReferences();
    checkOverrides();
    checkOutputs();
    for (size_t i = 0; i < uses.size() && !isOutOfTime(); ++i)
        checkFile(uses[i]);
}

// The scene files that procedurals name, from this use on.
void SceneScan::followProcedurals(size_t first_use)
{
    for (size_t i = first_use; i < uses.size() && !is_stopped && !isOutOfTime(); ++i)
        if (uses[i].kind == FileUse::procedural && !uses[i].name.empty()) {
            const FileUse use = uses[i]; // the list grows
            followProcedural(use);
        }
}

void SceneScan::followProcedural(const FileUse& use)
{
    if (!hasExtension(use.name, "rvs", true)) {
        has_unseen_nodes = true;
        return; // what else it may be is looked at with the other files
    }
    std::string path;
    if (openScene(use.name, use.place, &path) != Opening::known)
        return;
    const std::string real = realPath(path);
    if (std::find(open_files.begin(), open_files.end(), real) != open_files.end() ||
        open_files.size() >= max_procedural_depth) {
        report(Topic::other, Weight::error, use.place,
               "the procedural " + inQuotes(use.name) + " loads itself",
               "rendering would never end", Effect::endless);
        is_stopped = true;
        return;
    }
    if (const auto known = procedural_nodes.find(real); known != procedural_nodes.end()) {
        addNodes(known->second, use.place);
        return;
    }
    const uint64_t nodes_before = node_count;
    const size_t uses_before = uses.size();
    open_files.push_back(real);
    scanFile(path, fileIndex(path));
    followProcedurals(uses_before);
    open_files.pop_back();
    procedural_nodes[real] = node_count - nodes_before;
}

// Reads what override blocks said of nodes that exist by now. True when that named more files.
bool SceneScan::applyOverrides()
{
    const size_t uses_before = uses.size();
    std::vector<DelayedOverride> waiting;
    waiting.swap(overrides);
    for (DelayedOverride& delayed : waiting) {
        Node* node = isOutOfTime() ? nullptr : findNode(delayed.node);
        if (!node) {
            overrides.push_back(std::move(delayed));
            continue;
        }
        const std::unique_ptr<SceneLexer> text =
            SceneLexer::overText(delayed.text, delayed.place.line);
        Input in{ *text, fileIndex(delayed.place.file), 0 };
        Block block{ node, delayed.node, delayed.place, "" };
        const size_t first_pending = pending_strings.size();
        scanParameter(in, block);
        resolvePending(first_pending);
    }
    followProcedurals(uses_before);
    return uses.size() > uses_before;
}

void SceneScan::checkOverrides()
{
    if (has_unseen_nodes)
        return;
    for (const DelayedOverride& delayed : overrides)
        report(Topic::undefined_name, Weight::error, delayed.place,
               "override of " + inQuotes(delayed.node) + ", which no block defines",
               nearestNode(delayed.node, RV_NODE_ALL));
}

// ---- Outputs ----

void SceneScan::checkOutputNode(const std::string& statement, const std::string& name, int kind)
{
    const char* what = kind == RV_NODE_DRIVER ? "driver" : "filter";
    const Node* node = findNode(name);
    if (!node && has_unseen_nodes)
        return;
    if (!node)
        report(Topic::undefined_name, Weight::error, outputs_place,
               "output " + inQuotes(statement) + ": there is no " + what + " " + inQuotes(name),
               nearestNode(name, kind));
    else if (RvNodeEntryGetType(node->entry) != kind)
        report(Topic::other, Weight::error, outputs_place,
               "output " + inQuotes(statement) + ": " + inQuotes(name) + " is no " + what +
                   " but " + RvNodeEntryGetName(node->entry),
               nearestNode(name, kind));
}

void SceneScan::checkOutputs()
{
    for (const std::string& statement : outputs) {
        const std::vector<std::string> parts = splitWords(statement);
        if (parts.size() != 1 && parts.size() != 4) {
            report(Topic::other, Weight::error, outputs_place,
                   "output " + inQuotes(statement) + " has " + std::to_string(parts.size()) +
                       " words",
                   "write NAME TYPE FILTER DRIVER, or the name of a raw driver");
            continue;
        }
        if (parts.size() == 4) {
            if (typeOfName(parts[1]) == RV_TYPE_NONE)
                report(Topic::other, Weight::error, outputs_place,
                       "output " + inQuotes(statement) + ": unknown type " + inQuotes(parts[1]),
                       nearestTypeName(parts[1]));
            checkOutputNode(statement, parts[2], RV_NODE_FILTER);
        }
        checkOutputNode(statement, parts.back(), RV_NODE_DRIVER);
    }
}

// ---- Files ----

std::vector<std::string> SceneScan::outputFiles() const
{
    std::vector<std::string> files;
    for (const FileUse& use : uses)
        if (use.kind == FileUse::output && !use.name.empty())
            files.push_back(use.name);
    return files;
}

void SceneScan::checkFile(const FileUse& use)
{
    switch (use.kind) {
    case FileUse::texture: return checkTexture(use);
    case FileUse::output: return checkOutputFile(use);
    case FileUse::procedural: return checkProcedural(use);
    case FileUse::texture_path:
    case FileUse::procedural_path:
    case FileUse::plugin_path: return checkFolders(use);
    case FileUse::none: break;
    }
}

bool SceneScan::mayRead(const std::string& path, const Place& place)
{
    if (!options.safe)
        return true;
    const std::string reason = options.refuseReading(path);
    if (!reason.empty())
        forbid(place, reason);
    return reason.empty();
}

// Where the texture system looks for a file, in this order. Names from the root, or from "." and
// "..", are not searched for.
std::vector<std::string> SceneScan::textureCandidates(const std::string& name) const
{
    std::vector<std::string> paths = { name };
    const bool is_fixed =
        name.starts_with('/') || name.starts_with("./") || name.starts_with("../");
    if (!is_fixed)
        for (const std::string& entry : texturePathEntries(texture_searchpath))
            paths.push_back(joinPath(entry, name));
    return paths;
}

static bool holdsAny(const std::string& name, std::initializer_list<const char*> marks)
{
    return std::any_of(marks.begin(), marks.end(),
                       [&](const char* mark) { return name.find(mark) != std::string::npos; });
}

// Names that the library takes for a set of files, one for each tile of the coordinates.
static bool isTileSet(const std::string& name)
{
    return holdsAny(name, { "<UDIM>", "%(UDIM)d", "<uvtile>", "<UVTILE>" });
}

// Names that only the image library takes for such a set, which nobody can look up, unless a file
// is called so.
static bool isForeignTileSet(const std::string& name)
{
    return holdsAny(name, { "<u>", "<v>", "<U>", "<V>" });
}

static void replaceAll(std::string& text, const std::string& mark, const std::string& value)
{
    for (size_t at = 0; (at = text.find(mark, at)) != std::string::npos; at += value.size())
        text.replace(at, mark.size(), value);
}

static std::string tileName(std::string set, int column, int row)
{
    const std::string number = std::to_string(1001 + column + 10 * row);
    const auto tile = [](int u, int v) {
        return "u" + std::to_string(u) + "_v" + std::to_string(v);
    };
    replaceAll(set, "<UDIM>", number);
    replaceAll(set, "%(UDIM)d", number);
    replaceAll(set, "<UVTILE>", tile(column + 1, row + 1));
    replaceAll(set, "<uvtile>", tile(column, row));
    return set;
}

// Those that a look-up may open, in the order of the coordinates.
static std::vector<std::string> tileNames(const std::string& set)
{
    static constexpr int columns = 10, rows = 100;
    std::vector<std::string> names;
    for (int row = 0; row < rows; ++row)
        for (int column = 0; column < columns; ++column)
            names.push_back(tileName(set, column, row));
    return names;
}

// Names of which the image library would make pixels, of any number. They are refused, although a
// file may be called so.
static bool isMadeUp(const std::string& name)
{
    const std::string path = lowered(name.substr(0, name.find('?')));
    return path.ends_with(".null") || path.ends_with(".nul");
}

void SceneScan::checkTexture(const FileUse& use)
{
    if (use.name.empty())
        return;
    if (isTileSet(use.name))
        checkTiles(use);
    else
        checkTextureFile(use);
}

// Of a set only those tiles count that are there.
void SceneScan::checkTiles(const FileUse& use)
{
    bool is_any = false;
    for (const std::string& name : tileNames(use.name)) {
        if (isOutOfTime())
            return;
        if (firstExisting(textureCandidates(name)).empty())
            continue;
        checkTextureFile({ use.kind, name, use.place });
        is_any = true;
    }
    if (is_any)
        return;
    const std::string first = tileName(use.name, 0, 0);
    if (mayRead(first, use.place))
        report(Topic::missing_file, Weight::error, use.place,
               "texture " + inQuotes(use.name) + ": no tile found",
               "the first would be " + inQuotes(first));
}

// In safe mode a texture has to be a plain file: what is none may be a pipe that never ends, or
// something that the image library looks for elsewhere than among files.
void SceneScan::checkTextureFile(const FileUse& use)
{
    const std::vector<std::string> paths = textureCandidates(use.name);
    const bool is_somewhere = !firstExisting(paths).empty();
    if (!is_somewhere && !mayRead(use.name, use.place))
        return;
    for (const std::string& path : paths)
        if (exists(path) && !mayRead(path, use.place))
            return;
    const auto found = std::find_if(paths.begin(), paths.end(), isRegularFile);
    const std::string what = "texture " + inQuotes(use.name);
    if (options.safe && (found == paths.end() || isMadeUp(use.name)))
        forbid(use.place, what + ", which is no plain file");
    else if (isMadeUp(use.name))
        report(Topic::missing_file, Weight::error, use.place, what + " is not an image file");
    else if (!is_somewhere && isForeignTileSet(use.name))
        report(Topic::missing_file, Weight::error, use.place,
               what + " names a set of tiles that cannot be looked up", "a name with <UDIM> can");
    else if (found == paths.end())
        report(Topic::missing_file, Weight::error, use.place,
               what + (is_somewhere ? " cannot be read" : " not found"));
    else if (access(found->c_str(), R_OK) != 0)
        report(Topic::missing_file, Weight::error, use.place, what + " cannot be read");
}

// Scene files are looked at where they are followed.
void SceneScan::checkProcedural(const FileUse& use)
{
    if (use.name.empty() || hasExtension(use.name, "rvs", true))
        return;
    if (hasExtension(use.name, "obj", false)) {
        if (!mayRead(use.name, use.place))
            return;
        if (!isRegularFile(use.name))
            report(Topic::missing_file, Weight::error, use.place,
                   "OBJ file " + inQuotes(use.name) + " not found",
                   "relative names count from the current folder");
        return;
    }
    if (options.safe)
        return forbid(use.place, "loading the library " + inQuotes(use.name));
    std::vector<std::string> paths = { use.name, use.name + ".so" };
    for (const std::string& entry : searchPathEntries(procedural_searchpath))
        for (const char* suffix : { "", ".so" })
            paths.push_back(joinPath(entry, use.name) + suffix);
    if (firstExisting(paths).empty())
        report(Topic::missing_file, Weight::error, use.place,
               "procedural " + inQuotes(use.name) + " not found",
               "it is neither a scene file (.rvs) nor an OBJ file, so it must be a library");
}

void SceneScan::checkOutputFile(const FileUse& use)
{
    if (use.name.empty())
        return report(Topic::missing_file, Weight::error, use.place, "an empty output file name");
    const std::string file = options.frame ? withFrame(use.name, *options.frame) : use.name;
    if (options.safe)
        if (const std::string reason = options.refuseWriting(file); !reason.empty())
            return forbid(use.place, reason);
    const std::string folder = folderOf(file);
    if (!isFolder(folder))
        report(Topic::missing_file, Weight::error, use.place,
               "output folder " + inQuotes(folder) + " does not exist");
    else if (access(folder.c_str(), W_OK) != 0)
        report(Topic::missing_file, Weight::error, use.place,
               "output folder " + inQuotes(folder) + " cannot be written to");
    else if (isFolder(file))
        report(Topic::missing_file, Weight::error, use.place,
               "output file " + inQuotes(file) + " is a folder");
}

void SceneScan::checkFolders(const FileUse& use)
{
    if (options.safe && use.kind == FileUse::plugin_path) {
        if (!searchPathEntries(use.name).empty())
            forbid(use.place, "loading plug-ins from " + inQuotes(use.name));
        return;
    }
    const bool is_texture_path = use.kind == FileUse::texture_path;
    for (const std::string& entry :
         is_texture_path ? texturePathEntries(use.name) : searchPathEntries(use.name))
        if (mayRead(entry, use.place) && !isFolder(entry))
            report(Topic::missing_file, Weight::error, use.place,
                   "folder " + inQuotes(entry) + " does not exist");
}

} // namespace ruvell
