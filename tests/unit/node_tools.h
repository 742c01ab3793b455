// Throw-away node types and small tools for the tests of the node model.
#ifndef RV_NODE_TOOLS_H
#define RV_NODE_TOOLS_H

#include "array.h"
#include "counters.h"
#include "metadata.h"
#include "nodes.h"
#include "options.h"
#include "scene.h"
#include "system/memory.h"
#include "universe_fixture.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <malloc.h>
#include <regex.h>
#include <set>
#include <sstream>
#include <string.h>
#include <unistd.h>

extern "C" size_t __sanitizer_get_current_allocated_bytes() __attribute__((weak));

namespace node_tools {

// ---- Types and texts ----

inline const char* const type_names[] = { "BYTE", "INT",    "UINT",   "BOOL",   "FLOAT",  "RGB",
                                          "RGBA", "VECTOR", "POINT",  "POINT2", "STRING", "POINTER",
                                          "NODE", "ARRAY",  "MATRIX", "ENUM" };
inline constexpr int type_count = 16;

inline int typeCode(const std::string& name)
{
    for (int type = 0; type < type_count; ++type)
        if (name == type_names[type])
            return type;
    EXPECT_EQ(name, "NONE");
    return RV_TYPE_NONE;
}

// The kinds by name, for rows of tables.
inline int kindCode(const std::string& name)
{
    static const char* const names[] = { "options", "camera",   "light",  "shape",
                                         "shader",  "override", "driver", "filter" };
    for (int bit = 0; bit < 8; ++bit)
        if (name == names[bit])
            return 1 << bit;
    return 0;
}

template <class... Args> std::string formatted(const char* format, Args... args)
{
    std::string text(size_t(snprintf(nullptr, 0, format, args...)), '\0');
    snprintf(text.data(), text.size() + 1, format, args...);
    return text;
}

// True when the whole text has the form of an extended regular expression.
inline bool matches(const std::string& text, const std::string& pattern)
{
    regex_t compiled;
    if (regcomp(&compiled, ("^(" + pattern + ")$").c_str(), REG_EXTENDED | REG_NOSUB) != 0) {
        ADD_FAILURE() << "bad pattern " << pattern;
        return false;
    }
    const bool found = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&compiled);
    return found;
}

inline std::string numbers(std::initializer_list<double> values)
{
    std::string text;
    for (double v : values) {
        const bool is_integer = v >= -1e15 && v <= 1e15 && v == std::floor(v);
        text.append(text.empty() ? "" : " ").append(formatted(is_integer ? "%.0f" : "%.9g", v));
    }
    return text;
}
inline std::string describe(double v) { return numbers({ v }); }
inline std::string describe(const RtRGB& c) { return numbers({ c.r, c.g, c.b }); }
inline std::string describe(const RtRGBA& c) { return numbers({ c.r, c.g, c.b, c.a }); }
inline std::string describe(const RtPoint& p) { return numbers({ p.x, p.y, p.z }); }
inline std::string describe(const RtPoint2& p) { return numbers({ p.x, p.y }); }
inline std::string describe(const char* s)
{
    std::string text = "null";
    if (s) {
        text = '"';
        text.append(s).push_back('"');
    }
    return text;
}
inline std::string describe(const void* p)
{
    std::ostringstream out;
    if (p)
        out << p;
    else
        out << "null";
    return out.str();
}
inline std::string describe(const RtMatrix& matrix)
{
    std::string text;
    for (const auto& row : matrix.m)
        text.append("[").append(numbers({ row[0], row[1], row[2], row[3] })).append("]");
    return text;
}
inline std::string describe(const RtArray* array);

// The value of one stored element of a type.
inline std::string describeElement(int type, const void* at)
{
    switch (type) {
    case RV_TYPE_BYTE: return describe(*static_cast<const uint8_t*>(at));
    case RV_TYPE_INT:
    case RV_TYPE_ENUM: return describe(*static_cast<const int*>(at));
    case RV_TYPE_UINT: return describe(*static_cast<const unsigned*>(at));
    case RV_TYPE_BOOLEAN: return describe(*static_cast<const bool*>(at));
    case RV_TYPE_FLOAT: return describe(*static_cast<const float*>(at));
    case RV_TYPE_RGB: return describe(*static_cast<const RtRGB*>(at));
    case RV_TYPE_RGBA: return describe(*static_cast<const RtRGBA*>(at));
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT: return describe(*static_cast<const RtPoint*>(at));
    case RV_TYPE_POINT2: return describe(*static_cast<const RtPoint2*>(at));
    case RV_TYPE_STRING: return describe(*static_cast<const char* const*>(at));
    case RV_TYPE_POINTER:
    case RV_TYPE_NODE: return describe(*static_cast<void* const*>(at));
    case RV_TYPE_ARRAY: return describe(*static_cast<const RtArray* const*>(at));
    case RV_TYPE_MATRIX: return describe(*static_cast<const RtMatrix*>(at));
    default: return "?";
    }
}

// As in "FLOAT 2x1: 0.5, 0.25" for two elements of one key.
inline std::string describe(const RtArray* array)
{
    if (!array)
        return "null";
    std::string text = array->type < type_count ? type_names[array->type] : "NONE";
    text += formatted(" %ux%u:", array->nelements, unsigned(array->nkeys));
    for (unsigned i = 0; array->data && i < array->nelements * array->nkeys; ++i)
        text +=
            (i ? ", " : " ") + describeElement(array->type, static_cast<const char*>(array->data) +
                                                                i * rv::typeSize(array->type));
    return text;
}

// Everything a node holds, to see that a refused call changed nothing.
inline std::string snapshot(const RtNode* node)
{
    std::ostringstream out;
    for (unsigned i = 0; i < node->entry->num_params; ++i) {
        const RtParamEntry* param = &node->entry->params[i];
        const void* at = rv::paramStorage(node, param);
        out << param->name << (node->set_flags[i] ? "! " : " ");
        if (param->type == RV_TYPE_MATRIX && !node->entry->struct_size)
            at = *static_cast<void* const*>(at);
        if (param->type == RV_TYPE_ARRAY)
            out << describe(*static_cast<const void* const*>(at)) << " ";
        out << (at ? describeElement(param->type, at) : "null") << "\n";
    }
    for (unsigned i = 0; node->links && i < node->entry->num_params; ++i)
        for (uintptr_t slot : node->links[i].slot)
            out << slot << " ";
    out << node->before << "\n";
    for (unsigned i = 0; i < node->user_param_count; ++i) {
        const RtUserParamEntry& user = node->user_params[i];
        out << user.name << " " << int(user.category) << " " << int(user.type) << " ";
        if (rv::holdsArray(user))
            out << describe(static_cast<const void*>(user.value.ARRAY)) << " "
                << describe(user.value.ARRAY);
        else if (user.type == RV_TYPE_MATRIX)
            out << (user.value.pMTX ? describe(*user.value.pMTX) : "null");
        else
            out << describeElement(user.type, &user.value);
        out << "\n";
    }
    return out.str();
}

// ---- Accessors, one row for each of the fourteen pairs ----

inline char pointees[8];

inline RtMatrix filledMatrix(float first, float step)
{
    RtMatrix matrix;
    for (int i = 0; i < 16; ++i)
        matrix.m[i / 4][i % 4] = first + step * float(i);
    return matrix;
}

// True when the node holds exactly this array.
inline bool holds(const RtNode* node, const RtArray* array)
{
    if (!node)
        return false;
    for (unsigned i = 0; i < node->entry->num_params; ++i) {
        const RtParamEntry* param = &node->entry->params[i];
        if (param->type == RV_TYPE_ARRAY &&
            *static_cast<RtArray**>(rv::paramStorage(node, param)) == array)
            return true;
    }
    for (unsigned i = 0; i < node->user_param_count; ++i)
        if (rv::holdsArray(node->user_params[i]) && node->user_params[i].value.ARRAY == array)
            return true;
    return false;
}

// Sets an array, which the caller keeps, and destroys, when the node refuses it.
inline bool giveArray(RtNode* node, const char* param, RtArray* array)
{
    if (!array)
        return false;
    RvNodeSetArray(node, param, array);
    if (holds(node, array))
        return true;
    RvArrayDestroy(array);
    return false;
}

// `set` stores a value made from a small number, `text` describes that value and `get` describes
// what the getter returns; `neutral` is what a failing getter returns.
struct Accessor {
    int type;
    std::string neutral;
    void (*set)(RtNode*, const char* param, int seed);
    std::string (*get)(const RtNode*, const char* param);
    std::string (*text)(int seed);
};

inline const std::vector<Accessor>& accessors()
{
    static const RtMatrix untouched = filledMatrix(-99, 0);
    static const std::vector<Accessor> all = {
        { RV_TYPE_BYTE, "0",
          [](RtNode* n, const char* p, int s) { RvNodeSetByte(n, p, uint8_t(40 + s)); },
          [](const RtNode* n, const char* p) { return describe(RvNodeGetByte(n, p)); },
          [](int s) { return describe(40 + s); } },
        { RV_TYPE_INT, "0", [](RtNode* n, const char* p, int s) { RvNodeSetInt(n, p, s); },
          [](const RtNode* n, const char* p) { return describe(RvNodeGetInt(n, p)); },
          [](int s) { return describe(s); } },
        { RV_TYPE_UINT, "0",
          [](RtNode* n, const char* p, int s) { RvNodeSetUInt(n, p, 4000000000u + unsigned(s)); },
          [](const RtNode* n, const char* p) { return describe(RvNodeGetUInt(n, p)); },
          [](int s) { return describe(4000000000u + unsigned(s)); } },
        { RV_TYPE_BOOLEAN, "0",
          [](RtNode* n, const char* p, int s) { RvNodeSetBool(n, p, s % 2 == 1); },
          [](const RtNode* n, const char* p) { return describe(RvNodeGetBool(n, p)); },
          [](int s) { return describe(s % 2 == 1); } },
        { RV_TYPE_FLOAT, "0",
          [](RtNode* n, const char* p, int s) { RvNodeSetFlt(n, p, float(s) + 0.25f); },
          [](const RtNode* n, const char* p) { return describe(RvNodeGetFlt(n, p)); },
          [](int s) { return describe(s + 0.25); } },
        { RV_TYPE_RGB, "0 0 0",
          [](RtNode* n, const char* p, int s) { RvNodeSetRGB(n, p, float(s), 0.5f, 0.25f); },
          [](const RtNode* n, const char* p) { return describe(RvNodeGetRGB(n, p)); },
          [](int s) {
              return numbers({ double(s), 0.5, 0.25 });
          } },
        { RV_TYPE_RGBA, "0 0 0 0",
          [](RtNode* n, const char* p, int s) { RvNodeSetRGBA(n, p, float(s), 0.5f, 0.25f, 2); },
          [](const RtNode* n, const char* p) { return describe(RvNodeGetRGBA(n, p)); },
          [](int s) {
              return numbers({ double(s), 0.5, 0.25, 2 });
          } },
        { RV_TYPE_VECTOR, "0 0 0",
          [](RtNode* n, const char* p, int s) { RvNodeSetVec(n, p, float(s), -1, 8); },
          [](const RtNode* n, const char* p) { return describe(RvNodeGetVec(n, p)); },
          [](int s) {
              return numbers({ double(s), -1, 8 });
          } },
        { RV_TYPE_POINT, "0 0 0",
          [](RtNode* n, const char* p, int s) { RvNodeSetPnt(n, p, -2, float(s), 9); },
          [](const RtNode* n, const char* p) { return describe(RvNodeGetPnt(n, p)); },
          [](int s) {
              return numbers({ -2, double(s), 9 });
          } },
        { RV_TYPE_POINT2, "0 0",
          [](RtNode* n, const char* p, int s) { RvNodeSetPnt2(n, p, float(s), -4); },
          [](const RtNode* n, const char* p) { return describe(RvNodeGetPnt2(n, p)); },
          [](int s) {
              return numbers({ double(s), -4 });
          } },
        { RV_TYPE_STRING, "null",
          [](RtNode* n, const char* p, int s) {
              RvNodeSetStr(n, p, formatted("text %d", s).c_str());
          },
          [](const RtNode* n, const char* p) { return describe(RvNodeGetStr(n, p)); },
          [](int s) { return formatted("\"text %d\"", s); } },
        { RV_TYPE_POINTER, "null",
          [](RtNode* n, const char* p, int s) { RvNodeSetPtr(n, p, &pointees[s]); },
          [](const RtNode* n, const char* p) {
              return describe(static_cast<const void*>(RvNodeGetPtr(n, p)));
          },
          [](int s) { return describe(static_cast<const void*>(&pointees[s])); } },
        { RV_TYPE_ARRAY, "null",
          [](RtNode* n, const char* p, int s) {
              giveArray(n, p, RvArray(1, 1, RV_TYPE_FLOAT, double(s)));
          },
          [](const RtNode* n, const char* p) {
              return describe(static_cast<const RtArray*>(RvNodeGetArray(n, p)));
          },
          [](int s) { return formatted("FLOAT 1x1: %d", s); } },
        { RV_TYPE_MATRIX, describe(untouched),
          [](RtNode* n, const char* p, int s) {
              const RtMatrix matrix = filledMatrix(float(s), 1);
              RvNodeSetMatrix(n, p, &matrix);
          },
          [](const RtNode* n, const char* p) {
              RtMatrix matrix = untouched;
              RvNodeGetMatrix(n, p, &matrix);
              return describe(matrix);
          },
          [](int s) { return describe(filledMatrix(float(s), 1)); } },
    };
    return all;
}

inline const Accessor& accessor(int type)
{
    for (const Accessor& a : accessors())
        if (a.type == type)
            return a;
    ADD_FAILURE() << "no accessor for type " << type;
    return accessors().front();
}

// ---- Throw-away node types ----

using Declaration = std::function<void(RtList* params, RtMetaDataStore* metadata)>;

// What the Parameters method of the type being installed does.
inline Declaration& pendingDeclaration()
{
    static Declaration declaration;
    return declaration;
}

// Names of the nodes whose Finish method ran, and counts of the other methods.
struct MethodCalls {
    std::vector<std::string> finished;
    int parameters = 0;
    int initialized = 0;
    int updated = 0;
};
inline MethodCalls& methodCalls()
{
    static MethodCalls calls;
    return calls;
}

// One method table for all throw-away types; it remembers its calls in methodCalls().
inline const RtNodeMethods& throwawayMethods()
{
    static const RtCommonMethods common = {
        .Parameters =
            [](RtList* params, RtMetaDataStore* metadata) {
                ++methodCalls().parameters;
                if (pendingDeclaration())
                    pendingDeclaration()(params, metadata);
            },
        .Initialize = [](RtNode*, void*) { ++methodCalls().initialized; },
        .Update = [](RtNode*, void*) { ++methodCalls().updated; },
        .Finish =
            [](RtNode* node) {
                const char* name = RvNodeGetName(node);
                methodCalls().finished.push_back(name ? name : "(null)");
            },
    };
    static const RtNodeMethods methods = { &common, nullptr };
    return methods;
}

// The installed type, or null when installation was refused.
inline const RtNodeEntry* installType(const char* name, const Declaration& declaration = {},
                                      int kind = RV_NODE_SHADER, int output = RV_TYPE_RGB,
                                      const char* filename = nullptr,
                                      const char* version = RV_VERSION)
{
    pendingDeclaration() = declaration;
    RvNodeInstall(kind, output, name, filename, &throwawayMethods(), version);
    pendingDeclaration() = {};
    return RvNodeEntryLookUp(name);
}

inline const char* const fruit[] = { "apple", "banana", "cherry", nullptr };

// A block with one parameter p_<TYPE> of each type and one array a_<TYPE> of each element type.
struct EveryType {
    uint8_t p_BYTE;
    int p_INT;
    unsigned p_UINT;
    bool p_BOOL;
    float p_FLOAT;
    RtRGB p_RGB;
    RtRGBA p_RGBA;
    RtVector p_VECTOR;
    RtPoint p_POINT;
    RtPoint2 p_POINT2;
    const char* p_STRING;
    void* p_POINTER;
    RtNode* p_NODE;
    RtArray* p_ARRAY;
    RtMatrix p_MATRIX;
    int p_ENUM;
    RtArray* arrays[type_count];
    const char* name;
};

// Element types of the a_<TYPE> arrays.
inline bool isElementType(int type) { return type != RV_TYPE_ENUM && type != RV_TYPE_ARRAY; }

// With a layout the values live in an EveryType record, otherwise in slots of RtParamValue.
inline void declareEveryType(RtList* params, RtMetaDataStore* metadata, bool laid_out)
{
    const auto at = [laid_out](size_t offset) { return laid_out ? int(offset) : -1; };
    if (laid_out) {
        const int name_offset = int(offsetof(EveryType, name));
        RvMetaDataSetInt(metadata, nullptr, "_struct_size", int(sizeof(EveryType)));
        RvMetaDataSetInt(metadata, nullptr, "_baseoffset", name_offset);
        RvMetaDataSetInt(metadata, nullptr, "_baseoffset2", name_offset);
    }
    RvNodeParamBYTE(params, at(offsetof(EveryType, p_BYTE)), "p_BYTE", 7);
    RvNodeParamINT(params, at(offsetof(EveryType, p_INT)), "p_INT", -7);
    RvNodeParamUINT(params, at(offsetof(EveryType, p_UINT)), "p_UINT", 70);
    RvNodeParamBOOL(params, at(offsetof(EveryType, p_BOOL)), "p_BOOL", true);
    RvNodeParamFLT(params, at(offsetof(EveryType, p_FLOAT)), "p_FLOAT", 0.75f);
    RvNodeParamRGB(params, at(offsetof(EveryType, p_RGB)), "p_RGB", 0.5f, 0.25f, 0.125f);
    RvNodeParamRGBA(params, at(offsetof(EveryType, p_RGBA)), "p_RGBA", 0.5f, 0.25f, 0.125f, 0.75f);
    RvNodeParamVEC(params, at(offsetof(EveryType, p_VECTOR)), "p_VECTOR", 1, 2, 3);
    RvNodeParamPNT(params, at(offsetof(EveryType, p_POINT)), "p_POINT", 4, 5, 6);
    RvNodeParamPNT2(params, at(offsetof(EveryType, p_POINT2)), "p_POINT2", 7, 8);
    RvNodeParamSTR(params, at(offsetof(EveryType, p_STRING)), "p_STRING", "default text");
    RvNodeParamPTR(params, at(offsetof(EveryType, p_POINTER)), "p_POINTER", &pointees[7]);
    RvNodeParamNODE(params, at(offsetof(EveryType, p_NODE)), "p_NODE", nullptr);
    RvNodeParamARRAY(params, at(offsetof(EveryType, p_ARRAY)), "p_ARRAY",
                     RvArray(2, 1, RV_TYPE_FLOAT, 0.5, 0.25));
    const RtMatrix matrix = filledMatrix(16, -1);
    RvNodeParamMTX(params, at(offsetof(EveryType, p_MATRIX)), "p_MATRIX", &matrix);
    RvNodeParamENUM(params, at(offsetof(EveryType, p_ENUM)), "p_ENUM", 1, fruit);
    for (int type = 0; type < type_count; ++type)
        if (isElementType(type))
            RvNodeParamARRAY(
                params, at(offsetof(EveryType, arrays) + size_t(type) * sizeof(RtArray*)),
                (std::string("a_") + type_names[type]).c_str(), RvArrayAllocate(2, 2, type));
}

inline const RtNodeEntry* installEveryType(const char* name, bool laid_out)
{
    return installType(name, [laid_out](RtList* params, RtMetaDataStore* metadata) {
        declareEveryType(params, metadata, laid_out);
    });
}

// What each parameter of EveryType reads on a new node, in the words of its own getter.
inline std::string everyTypeDefault(int type)
{
    static const std::string texts[] = {
        "7",
        "-7",
        "70",
        "1",
        "0.75",
        "0.5 0.25 0.125",
        "0.5 0.25 0.125 0.75",
        "1 2 3",
        "4 5 6",
        "7 8",
        "\"default text\"",
        describe(static_cast<const void*>(&pointees[7])),
        "null",
        "FLOAT 2x1: 0.5, 0.25",
        describe(filledMatrix(16, -1)),
        "1",
    };
    return texts[type];
}

// The type by which a parameter is set and read: ENUM by its index, NODE as a pointer.
inline int accessType(int declared)
{
    return declared == RV_TYPE_ENUM   ? RV_TYPE_INT
           : declared == RV_TYPE_NODE ? RV_TYPE_POINTER
                                      : declared;
}

inline bool isSet(const RtNode* node, const char* param)
{
    const RtParamEntry* entry = RvNodeEntryLookUpParameter(node->entry, param);
    return entry && node->set_flags[entry->index];
}

inline RtNode* named(const char* type, const char* name)
{
    RtNode* node = RvNode(type);
    if (node)
        RvNodeSetStr(node, "name", name);
    return node;
}

// Replaces single upward calls for the length of a scope.
struct HookOverride {
    HookOverride() : hooks(*rv::the_frame->hooks), before(rv::the_frame->hooks)
    {
        rv::the_frame->hooks = &hooks;
    }
    ~HookOverride() { rv::the_frame->hooks = before; }
    HookOverride(const HookOverride&) = delete;
    HookOverride& operator=(const HookOverride&) = delete;

    RtHooks hooks;
    const RtHooks* before;
};

// ---- The exhausted heap ----

// Fails every checked allocation after `count` more, for the length of a scope.
struct AllocationLimit {
    explicit AllocationLimit(long count) { rv::limitAllocations(count); }
    ~AllocationLimit() { rv::limitAllocations(-1); }
    AllocationLimit(const AllocationLimit&) = delete;
    AllocationLimit& operator=(const AllocationLimit&) = delete;
};

// False once the limit has struck.
inline bool heapIsOpen()
{
    void* probe = RvMalloc_func(8, "probe", 0, "probe");
    RvFree_func(probe);
    return probe != nullptr;
}

// True for the report of a failed allocation at that place.
inline bool reportsFailure(const std::string& text, const std::string& module,
                           const std::string& location)
{
    std::string pattern =
        "can't (re)?allocate [0-9]+ bytes in " + module + ":" + location + "\\(\\):[0-9]+";
    std::replace(pattern.begin(), pattern.begin() + ptrdiff_t(pattern.find("\\(")), '\\', '.');
    return matches(text, pattern);
}

// Runs op with the heap failing at request n for every n until it runs through, and collects the
// texts of all problems.
template <class Op, class TakeProblems>
std::set<std::string> problemsOfFailingHeap(Op op, TakeProblems take_problems)
{
    std::set<std::string> texts;
    bool ran_through = false;
    for (long n = 0; !ran_through && n < 100000; ++n) {
        {
            AllocationLimit limit(n);
            op();
            ran_through = heapIsOpen();
        }
        for (const std::string& text : take_problems())
            texts.insert(text);
    }
    EXPECT_TRUE(ran_through);
    return texts;
}

inline bool anyReportsFailure(const std::set<std::string>& texts, const std::string& module,
                              const std::string& location)
{
    for (const std::string& text : texts)
        if (reportsFailure(text, module, location))
            return true;
    return false;
}

// Bytes in use on the heap, with and without a sanitizer.
inline size_t heapBytes()
{
    return __sanitizer_get_current_allocated_bytes ? __sanitizer_get_current_allocated_bytes()
                                                   : mallinfo2().uordblks;
}

// True when each of five times twenty calls leaves more on the heap than it found. A leak grows
// every time; what the C library keeps for itself does not: the few freed chunks that each thread
// caches count as used.
template <class Call> bool leaksMemory(Call call)
{
    for (int phase = 0; phase < 5; ++phase) {
        const size_t before = heapBytes();
        for (int i = 0; i < 20; ++i)
            call();
        if (heapBytes() <= before)
            return false;
    }
    return true;
}

// ---- Files ----

// A file that is gone at the end of the scope.
struct TemporaryFile {
    explicit TemporaryFile(const std::string& contents)
    {
        static int serial = 0;
        path = (std::filesystem::temp_directory_path() /
                formatted("ruvell_test_%d_%d.txt", int(getpid()), serial++))
                   .string();
        write(contents);
    }
    ~TemporaryFile() { std::filesystem::remove(path); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    void write(const std::string& contents) const
    {
        std::ofstream(path, std::ios::binary) << contents;
    }
    std::string read() const
    {
        std::ifstream in(path, std::ios::binary);
        return { std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>() };
    }

    std::string path;
};

} // namespace node_tools

#endif
