// links: what drives a parameter instead of its stored value (rv_node.h).
#include "links.h"

#include "counters.h"
#include "maths.h"
#include "nodes.h"
#include "rv_msg.h"
#include "scene.h"

static const char* const module_path = "core\\src\\links";
static const char* const before_link = "@before";

namespace rv {

// ---- Names and types ----

// Index of a component letter of a type, -1 when the type has no such component.
static int componentIndex(int type, char letter)
{
    static const struct {
        int type;
        const char* letters;
    } components[] = {
        { RV_TYPE_RGB, "rgb" },   { RV_TYPE_RGBA, "rgba" }, { RV_TYPE_VECTOR, "xyz" },
        { RV_TYPE_POINT, "xyz" }, { RV_TYPE_POINT2, "xy" },
    };
    for (const auto& row : components)
        if (row.type == type)
            if (const char* const found = letter ? strchr(row.letters, letter) : nullptr)
                return static_cast<int>(found - row.letters);
    return -1;
}

LinkTarget resolveLinkTarget(const RtNodeEntry* entry, const char* name)
{
    constexpr LinkTarget unrecognized = { nullptr, -1 };
    const char* const dot = strchr(name, '.');
    if (!dot)
        return { findParameter(entry, name).param, -1 };
    char base[4096]; // parameter names hold at most 4,095 characters
    const size_t length = static_cast<size_t>(dot - name);
    if (length >= sizeof base)
        return unrecognized;
    memcpy(base, name, length);
    base[length] = '\0';
    const bool one_letter =
        dot[1] && (!dot[2] || dot[2] == '.'); // text after a second dot is ignored
    const RtParamEntry* const param = findParameter(entry, base).param;
    const int component = param && one_letter ? componentIndex(param->type, dot[1]) : -1;
    return component < 0 ? unrecognized : LinkTarget{ param, component };
}

bool linkTypesCompatible(int source, int target)
{
    static constexpr auto bit = [](int type) { return 1u << type; };
    constexpr unsigned integers =
        bit(RV_TYPE_BYTE) | bit(RV_TYPE_INT) | bit(RV_TYPE_UINT) | bit(RV_TYPE_BOOLEAN);
    constexpr unsigned colors = bit(RV_TYPE_FLOAT) | bit(RV_TYPE_RGB) | bit(RV_TYPE_RGBA);
    constexpr unsigned vectors = bit(RV_TYPE_VECTOR) | bit(RV_TYPE_POINT);
    if (source == target)
        return true;
    if (source < 0 || source > RV_TYPE_ENUM)
        return false;
    unsigned accepted = 0;
    switch (target) {
    case RV_TYPE_BYTE:
    case RV_TYPE_INT:
    case RV_TYPE_UINT:
    case RV_TYPE_BOOLEAN: accepted = integers; break;
    case RV_TYPE_FLOAT:
    case RV_TYPE_RGB:
    case RV_TYPE_RGBA: accepted = colors | vectors | bit(RV_TYPE_POINT2); break;
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT: accepted = colors | vectors; break;
    case RV_TYPE_POINT2: accepted = colors; break;
    case RV_TYPE_ENUM: accepted = bit(RV_TYPE_INT); break;
    default: break;
    }
    return accepted & bit(source);
}

static const char* outputTypeName(int type)
{
    const char* const name = type == RV_TYPE_ENUM ? "ENUM" : silentTypeName(type);
    return name ? name : "";
}

// ---- Records ----

static unsigned tableSize(const RtNode* node)
{
    return node->entry->num_params * static_cast<unsigned>(sizeof(RtLinkRecord));
}

static bool createTable(RtNode* node)
{
    if (node->links)
        return true;
    node->links = static_cast<RtLinkRecord*>(
        RvMalloc_func(tableSize(node), module_path, __LINE__, "RvNodeLink"));
    if (!node->links)
        return false;
    memset(node->links, 0, tableSize(node));
    const SceneGuard guard(the_frame->scene);
    hostStats()->node_overhead_bytes += tableSize(node);
    return true;
}

void clearLinks(RtNode* node)
{
    if (node->links)
        memset(node->links, 0, tableSize(node));
}

void freeLinks(RtNode* node)
{
    if (!node->links)
        return;
    hostStats()->node_overhead_bytes -= tableSize(node);
    RvFree_func(node->links);
    node->links = nullptr;
}

static bool inComponentMode(const RtLinkRecord& record)
{
    return record.slot[0] & component_marker;
}

static RtNode* nodeOf(uintptr_t slot)
{
    return reinterpret_cast<RtNode*>(slot & ~component_marker); // NOLINT: tagged pointer
}

static void setRecord(RtLinkRecord* record, int component, RtNode* src)
{
    const uintptr_t source = reinterpret_cast<uintptr_t>(src);
    if (component < 0) {
        record->slot[0] = source;
        return;
    }
    if (!inComponentMode(*record)) // drops a whole link
        record->slot[0] = 0;
    record->slot[component] = source;
    record->slot[0] |= component_marker;
}

// ---- Checks of RvNodeLink ----

static bool isOptions(const RtNode* node) { return node->entry->type == RV_NODE_OPTIONS; }

static bool mayLink(const RtNode* src, const char* param, const RtNode* target)
{
    if (!target)
        RvMsgWarning("cannot link node %s into a NULL node", src ? RvNodeGetName(src) : "NULL");
    else if (!src)
        RvMsgWarning("cannot link a NULL node into %s.%s; if you are trying to remove an existing "
                     "link, use RvNodeUnlink() instead",
                     RvNodeGetName(target), param);
    else if (src == target)
        RvMsgWarning("cannot recursively link node %s to itself", RvNodeGetName(src));
    else if (isOptions(src) || isOptions(target))
        RvMsgWarning("%s.%s: linking an options node is not supported", RvNodeGetName(target),
                     param);
    else
        return true;
    return false;
}

static bool typesFit(const RtNode* src, const char* param, const RtNode* target,
                     const LinkTarget& to)
{
    const int source_type = src->entry->output_type;
    const int target_type = to.component >= 0 ? RV_TYPE_FLOAT : to.param->type;
    if (linkTypesCompatible(source_type, target_type))
        return true;
    RvMsgWarning("unable to connect %s to %s.%s - types are not compatible (%s to %s)",
                 RvNodeGetName(src), RvNodeGetName(target), param, outputTypeName(source_type),
                 outputTypeName(target_type));
    return false;
}

} // namespace rv

void RvNodeLink(RtNode* src, const char* param, RtNode* target)
{
    const char* const name = param ? param : "";
    if (!rv::mayLink(src, name, target))
        return;
    if (!strcmp(name, before_link)) {
        target->before = src;
        return;
    }
    const rv::LinkTarget to = rv::resolveLinkTarget(target->entry, name);
    if (!to.param) {
        RvMsgWarning("linking \"%s\" to \"%s\": parameter \"%s\" not recognized", src->entry->name,
                     target->entry->name, name);
        return;
    }
    if (!rv::typesFit(src, name, target, to) || !rv::createTable(target))
        return;
    rv::setRecord(&target->links[to.param->index], to.component, src);
    target->set_flags[to.param->index] = 1;
}

void RvNodeUnlink(RtNode* node, const char* param)
{
    if (!param) {
        if (node)
            RvMsgWarning("cannot unlink an undefined parameter from node \"%s\"",
                         RvNodeGetName(node));
        return;
    }
    if (!node) {
        RvMsgWarning("cannot unlink parameter \"%s\" from a NULL node", param);
        return;
    }
    if (rv::isOptions(node)) {
        RvMsgWarning("cannot unlink parameter \"%s\" from an options node", param);
        return;
    }
    if (!strcmp(param, before_link)) {
        node->before = nullptr;
        return;
    }
    if (!node->links)
        return;
    const rv::LinkTarget from = rv::resolveLinkTarget(node->entry, param);
    if (!from.param) {
        RvMsgWarning("unlinking from \"%s\": parameter \"%s\" not recognized", RvNodeGetName(node),
                     param);
        return;
    }
    RtLinkRecord& record = node->links[from.param->index];
    if (from.component < 0) {
        record = {};
    } else if (!rv::inComponentMode(record)) {
        RvMsgWarning("cannot unlink \"%s.%s\" as the attribute was not separately linked",
                     RvNodeGetName(node), param);
        return;
    } else {
        // The record stays in component mode even when its first component goes.
        record.slot[from.component] = from.component == 0 ? rv::component_marker : 0;
    }
    node->set_flags[from.param->index] = 1;
}

RtNode* RvNodeGetLink(RtNode* node, const char* param)
{
    if (!node || !param)
        return nullptr;
    if (!strcmp(param, before_link))
        return node->before;
    const rv::LinkTarget from =
        node->links ? rv::resolveLinkTarget(node->entry, param) : rv::LinkTarget{ nullptr, -1 };
    if (!from.param)
        return nullptr;
    const RtLinkRecord& record = node->links[from.param->index];
    const bool component_mode = rv::inComponentMode(record);
    if (from.component < 0)
        return component_mode ? nullptr : rv::nodeOf(record.slot[0]);
    return rv::nodeOf(record.slot[component_mode ? from.component : 0]);
}
