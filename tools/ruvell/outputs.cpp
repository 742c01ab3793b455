// Output statements, drivers chosen by extension, and the folders that images go to.
#include "outputs.h"
#include "frames.h"
#include "report.h"
#include "scene.h"
#include "scene_paths.h"
#include "text.h"
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <sstream>
#include <unistd.h>

namespace ruvell {

static const char* const own_driver_name = "ruvell_output_driver";
static const char* const own_filter_name = "ruvell_output_filter";

// ---- Statements ----

static OutputStatement parseStatement(const std::string& text)
{
    OutputStatement statement{ text, "", "", "", "" };
    std::istringstream words(text);
    std::string first;
    words >> first;
    if (words >> statement.type >> statement.filter >> statement.driver)
        statement.variable = first;
    else
        statement.driver = first;
    return statement;
}

std::vector<OutputStatement> outputStatements()
{
    std::vector<OutputStatement> statements;
    const RtArray* outputs = RvNodeGetArray(RvUniverseGetOptions(), "outputs");
    if (!outputs || outputs->type != RV_TYPE_STRING)
        return statements;
    for (unsigned int i = 0; i < outputs->nelements; ++i)
        if (const char* text = RvArrayGetStr(outputs, i))
            statements.push_back(parseStatement(text));
    return statements;
}

static bool writesFiles(const RtNode* driver)
{
    const RtParamEntry* file = RvNodeEntryLookUpParameter(RvNodeGetNodeEntry(driver), "filename");
    return file && RvParamGetType(file) == RV_TYPE_STRING;
}

std::string outputFile(const OutputStatement& statement)
{
    const RtNode* driver = RvNodeLookUpByName(statement.driver.c_str());
    return driver && writesFiles(driver) ? RvNodeGetStr(driver, "filename") : "";
}

// ---- The driver for a file ----

// Lower case, without the dot; the longer spellings are those of the drivers.
static std::string extensionOf(const std::string& file)
{
    std::string extension = lowered(std::filesystem::path(file).extension().string());
    extension.erase(0, 1);
    return extension == "jpeg" ? "jpg" : extension == "tiff" ? "tif" : extension;
}

static std::string knownExtensions()
{
    std::string list;
    RtNodeEntryIterator* it = RvUniverseGetNodeEntryIterator(RV_NODE_DRIVER);
    while (const RtNodeEntry* type = RvNodeEntryIteratorGetNext(it))
        for (const char** name = RvDriverExtension(type); name && *name; ++name)
            list += (list.empty() ? "" : ", ") + std::string(*name);
    RvNodeEntryIteratorDestroy(it);
    return list;
}

std::string checkOutputName(const std::string& file)
{
    const std::string extension = extensionOf(file);
    if (!extension.empty() && RvFindDriverType(extension.c_str()))
        return "";
    return "no driver writes files like '" + file + "'; extensions: " + knownExtensions();
}

static RtNode* makeNode(const char* type, const char* name)
{
    RtNode* node = RvNode(type);
    RvNodeSetStr(node, "name", name);
    return node;
}

// Files of eight bits are made to be looked at, so they get the gamma of screens.
static RtNode* makeDriver(const RtNodeEntry* type)
{
    RtNode* driver = makeNode(RvNodeEntryGetName(type), own_driver_name);
    if (RvNodeEntryLookUpParameter(type, "gamma"))
        RvNodeSetFlt(driver, "gamma", 2.2f);
    return driver;
}

// The filter that the scene uses, so that only the file changes; a new one for a scene without.
static std::string chooseFilter(const std::vector<OutputStatement>& statements)
{
    for (const OutputStatement& statement : statements)
        if (RvNodeLookUpByName(statement.filter.c_str()))
            return statement.filter;
    return RvNodeGetName(makeNode("gaussian_filter", own_filter_name));
}

static RtNode* soleDriver(const std::vector<OutputStatement>& statements)
{
    std::set<std::string> drivers;
    for (const OutputStatement& statement : statements)
        drivers.insert(statement.driver);
    return drivers.size() == 1 ? RvNodeLookUpByName(drivers.begin()->c_str()) : nullptr;
}

static void replaceOutputs(const std::string& file, const RtNodeEntry* type,
                           const std::vector<OutputStatement>& statements)
{
    RtNode* driver = makeDriver(type);
    RvNodeSetStr(driver, "filename", file.c_str());
    const std::string variable = RvNodeIs(driver, "driver_jpeg") ? "RGB RGB " : "RGBA RGBA ";
    const std::string statement = variable + chooseFilter(statements) + " " + own_driver_name;
    RvNodeSetArray(RvUniverseGetOptions(), "outputs",
                   RvArray(1, 1, RV_TYPE_STRING, statement.c_str()));
}

void redirectOutputs(const std::string& file)
{
    const RtNodeEntry* type = RvFindDriverType(extensionOf(file).c_str());
    const auto statements = outputStatements();
    RtNode* driver = soleDriver(statements);
    if (driver && RvNodeGetNodeEntry(driver) == type)
        RvNodeSetStr(driver, "filename", file.c_str());
    else
        replaceOutputs(file, type, statements);
}

void numberOutputs(int frame)
{
    for (RtNode* driver : nodesOfKind(RV_NODE_DRIVER))
        if (writesFiles(driver))
            RvNodeSetStr(driver, "filename",
                         withFrame(RvNodeGetStr(driver, "filename"), frame).c_str());
}

// ---- Folders ----

// The only sure way to know is to make a file there.
static int tryToWriteIn(const std::string& folder)
{
    std::string name = folder + "/.ruvell-XXXXXX";
    const int file = mkostemp(name.data(), O_CLOEXEC);
    if (file < 0)
        return errno;
    close(file);
    unlink(name.c_str());
    return 0;
}

// Images, and scenes where they can, grow beside the file that they replace, which a link may lead
// to.
static int whyNotWritable(const std::string& file, bool needs_folder)
{
    const std::string place = realPath(file);
    if (isFolder(place))
        return EISDIR;
    if (exists(place) && access(place.c_str(), W_OK) != 0)
        return errno;
    return needs_folder || !exists(place) ? tryToWriteIn(folderOf(place)) : 0;
}

static bool checkFile(const std::string& file, bool needs_folder)
{
    const int error = whyNotWritable(file, needs_folder);
    if (error != 0)
        reportError("cannot write " + file + ": " + std::strerror(error));
    return error == 0;
}

bool checkImageFile(const std::string& file) { return checkFile(file, true); }

bool checkSceneFile(const std::string& file) { return checkFile(file, false); }

bool checkOutputFolders()
{
    const auto statements = outputStatements();
    if (statements.empty()) {
        reportError("the scene has no outputs; name an image file with --output");
        return false;
    }
    std::set<std::string> files;
    for (const OutputStatement& statement : statements)
        if (const std::string file = outputFile(statement); !file.empty())
            files.insert(file);
    return std::count_if(files.begin(), files.end(), checkImageFile) ==
           static_cast<ptrdiff_t>(files.size());
}

} // namespace ruvell
