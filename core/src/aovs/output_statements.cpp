// output_statements: reading the strings of the option "outputs".
#include "aovs/output_statements.h"

#include "filters/filters.h"
#include "hash.h"
#include "maths.h"
#include "nodes.h"
#include "rv_msg.h"
#include "strpool.h"
#include "text.h"

#include <new>
#include <string.h>
#include <string>

namespace rv {

using Text = std::basic_string<char, std::char_traits<char>, CheckedAllocator<char>>;

// ---- Variables ----

int registerAOV(RtAOVOutputStore& store, const char* name, int type)
{
    if (const RtAOV* const present = findAOV(store, name))
        return int(present->index);
    RtAOV aov = {};
    aov.name = internString(name);
    if (!aov.name)
        throw std::bad_alloc();
    aov.hash = stringHash(name);
    aov.type = uint8_t(type);
    aov.index = uint32_t(store.aovs.size());
    try {
        store.aovs.push_back(aov);
    } catch (...) {
        releaseString(aov.name);
        throw;
    }
    return int(aov.index);
}

// RV_TYPE_NONE for a name that is none, whatever its case.
static int typeOfName(const char* name)
{
    for (int type = RV_TYPE_BYTE; type <= RV_TYPE_ENUM; ++type)
        if (equalIgnoringCase(name, type_table[type].name))
            return type;
    return RV_TYPE_NONE;
}

static bool checkType(int type, const Text& type_name, const Text& aov)
{
    if (type == RV_TYPE_NONE)
        RvMsgWarning("[aov] output requires illegal type \"%s\" for AOV \"%s\"", type_name.c_str(),
                     aov.c_str());
    return type != RV_TYPE_NONE;
}

// "AA_offset" is filled in several types, of which the first that a statement declares counts.
static void declareOffset(RtAOVOutputStore& store, int type)
{
    const bool is_declared = store.offset_declared;
    store.offset_declared = true;
    switch (type) {
    case RV_TYPE_FLOAT:
    case RV_TYPE_RGB:
    case RV_TYPE_RGBA:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT:
    case RV_TYPE_POINT2:
        if (!is_declared)
            store.aovs[0].type = uint8_t(type);
        break;
    default: break;
    }
}

// A variable keeps the type that it was first asked for.
static int declareAOV(RtAOVOutputStore& store, const char* name, int type)
{
    const int index = registerAOV(store, name, type);
    if (index == 0)
        declareOffset(store, type);
    if (store.aovs[size_t(index)].type != type)
        warnAboutType(name, store.aovs[size_t(index)].type, type);
    return index;
}

// ---- Tokens ----

static const char* const blanks = " \t\r\n\v\f";

struct Tokens {
    static constexpr int most = 4; // kept
    Text texts[most];
    int count = 0;
};

static Tokens split(const char* statement)
{
    Tokens tokens;
    for (const char* at = statement + strspn(statement, blanks); *at; at += strspn(at, blanks)) {
        const size_t length = strcspn(at, blanks);
        if (tokens.count < Tokens::most)
            tokens.texts[tokens.count].assign(at, length);
        ++tokens.count;
        at += length;
    }
    return tokens;
}

// ---- Nodes ----

// The node of that name and kind, or null.
static RtNode* nodeOfKind(const Text& name, int kind)
{
    RtNode* const node = RvNodeLookUpByName(name.c_str());
    return node && node->entry->type == kind ? node : nullptr;
}

// Null, after a warning, when there is no such driver that could be called.
static RtNode* findDriver(const Text& name)
{
    RtNode* const node = nodeOfKind(name, RV_NODE_DRIVER);
    if (node && driverData(node) && node->entry->kind_methods)
        return node;
    RvMsgWarning("[aov] output references a non-driver node: %s", name.c_str());
    return nullptr;
}

static bool isRaw(const RtNode* driver) { return driverData(driver)->required_aovs; }

static RtNode* findFilter(const Text& name)
{
    RtNode* const node = nodeOfKind(name, RV_NODE_FILTER);
    if (node && node->entry->kind_methods)
        return node;
    RvMsgWarning("[aov] output references a non-filter node: %s", name.c_str());
    return nullptr;
}

// What the filter makes of values of that type; RV_TYPE_NONE, after a warning, when it cannot.
static int filteredType(RtNode* filter, int type)
{
    const auto& methods = *static_cast<const RtFilterMethods*>(filter->entry->kind_methods);
    const int result =
        methods.FilterOutputType ? methods.FilterOutputType(filter, type) : RV_TYPE_NONE;
    if (isStoredType(result))
        return result;
    RvMsgWarning("[aov] filter \"%s\" does not support %s inputs", RvNodeGetName(filter),
                 RvParamGetTypeName(type));
    return RV_TYPE_NONE;
}

static bool takesPixels(RtNode* driver, int type)
{
    if (isRaw(driver)) {
        RvMsgWarning("[aov] filtered output references raw-driver: %s", RvNodeGetName(driver));
        return false;
    }
    const auto& methods = *static_cast<const RtDriverMethods*>(driver->entry->kind_methods);
    if (methods.DriverSupportsPixelType && methods.DriverSupportsPixelType(driver, type))
        return true;
    RvMsgWarning("[aov] driver \"%s\" does not support %s pixels", RvNodeGetName(driver),
                 RvParamGetTypeName(type));
    return false;
}

// ---- Statements ----

// Registers what a filter or a raw driver reads beside its own variable, "TYPE name" each.
static void requireAOVs(RtAOVOutputStore& store, const char** required, bool deep)
{
    for (; required && *required; ++required) {
        const Tokens tokens = split(*required);
        const int type = tokens.count == 2 ? typeOfName(tokens.texts[0].c_str()) : RV_TYPE_NONE;
        if (!checkType(type, tokens.texts[0], tokens.texts[1]))
            continue;
        const int index = declareAOV(store, tokens.texts[1].c_str(), type);
        store.aovs[size_t(index)].deep |= deep;
    }
}

static void parseRaw(RtAOVOutputStore& store, const Text& name)
{
    RtNode* const driver = findDriver(name);
    if (!driver)
        return;
    if (!isRaw(driver)) {
        RvMsgWarning("[aov] output references a non-raw driver without filtered input: %s",
                     name.c_str());
        return;
    }
    const RtDriverData& data = *driverData(driver);
    requireAOVs(store, data.required_aovs, data.requires_depth);
    store.outputs.push_back({ .aov = -1,
                              .type = RV_TYPE_NONE,
                              .pixel_type = RV_TYPE_NONE,
                              .filter = nullptr,
                              .driver = driver });
}

static void parseFiltered(RtAOVOutputStore& store, const Text (&texts)[Tokens::most])
{
    const auto& [name, type_name, filter_name, driver_name] = texts;
    const int declared = typeOfName(type_name.c_str());
    if (!checkType(declared, type_name, name))
        return;
    const int index = declareAOV(store, name.c_str(), declared);
    const int type = store.aovs[size_t(index)].type;
    RtNode* const filter = findFilter(filter_name);
    const int pixel_type = filter ? filteredType(filter, type) : RV_TYPE_NONE;
    if (pixel_type == RV_TYPE_NONE)
        return;
    RtNode* const driver = findDriver(driver_name);
    if (!driver || !takesPixels(driver, pixel_type))
        return;
    if (const RtFilterData* const data = filterData(filter)) {
        requireAOVs(store, data->required_aovs, data->requires_depth);
        store.aovs[size_t(index)].deep |= data->requires_depth;
    }
    store.outputs.push_back({ .aov = index,
                              .type = type,
                              .pixel_type = pixel_type,
                              .filter = filter,
                              .driver = driver });
}

void parseStatement(RtAOVOutputStore& store, const char* statement)
{
    RvMsgDebug("[aov] parsing output statement: \"%s\"", statement);
    const Tokens tokens = split(statement);
    if (tokens.count == 1)
        parseRaw(store, tokens.texts[0]);
    else if (tokens.count == 4)
        parseFiltered(store, tokens.texts);
    else
        RvMsgWarning("[aov] unable to parse output line, found %d tokens but expecting 1 or 4",
                     tokens.count);
}

} // namespace rv
