// universe: queries on the open universe and iteration over its nodes (rv_universe.h).
#include "rv_universe.h"

#include "cache_flags.h"
#include "frame.h"
#include "options.h"
#include "scene.h"
#include "texture_flush.h"

static const char* const module_path = "core\\src\\universe";

namespace rv {

static RtScene* openScene() { return the_frame ? the_frame->scene : nullptr; }

// The scene, unless its lights are switched off.
static RtScene* litScene()
{
    return render_options && render_options->ignore_lights ? nullptr : openScene();
}

// The first of the nodes from there on whose kind is in the mask. Loads on render threads append to
// the list meanwhile, so the caller holds the scene lock.
static RtListNode* nextMatch(RtListNode* element, unsigned mask)
{
    while (element &&
           !(static_cast<unsigned>(static_cast<RtNode*>(element->data)->entry->type) & mask))
        element = element->next;
    return element;
}

// Calls flush(node, flags) for the prepared nodes of one kind.
static void flushNodes(int kind, void (*flush)(RtNode*, int), int flags)
{
    RtNodeIterator* const it = RvUniverseGetNodeIterator(static_cast<unsigned>(kind));
    while (!RvNodeIteratorFinished(it)) {
        RtNode* const node = RvNodeIteratorGetNext(it);
        if (node->local_data)
            flush(node, flags);
    }
    RvNodeIteratorDestroy(it);
}

} // namespace rv

bool RvUniverseIsActive(void) { return rv::the_frame != nullptr; }

RtNode* RvUniverseGetOptions(void)
{
    const RtScene* const scene = rv::openScene();
    return scene ? scene->options : nullptr;
}

RtNode* RvUniverseGetCamera(void)
{
    return rv::render_options ? rv::render_options->camera : nullptr;
}

RtNode* const* RvUniverseGetLights(void)
{
    const RtScene* const scene = rv::litScene();
    return scene && !scene->shading_lights->empty() ? scene->shading_lights->data() : nullptr;
}

int RvUniverseGetNumLights(void)
{
    const RtScene* const scene = rv::litScene();
    return scene ? static_cast<int>(scene->shading_lights->size()) : 0;
}

int RvUniverseGetNumGObjects(void)
{
    const RtScene* const scene = rv::openScene();
    return scene ? scene->shape_count : 0;
}

RtBBox RvUniverseGetSceneBounds(void)
{
    const RtScene* const scene = rv::openScene();
    return scene && scene->root ? rv::the_frame->hooks->rootBounds(scene->root) : RV_BBOX_ZERO;
}

void RvUniverseCacheFlush(int flags)
{
    if (void (*const flush)() = rv::flush_textures; flush && (flags & rv::flush_texture_cache))
        flush();
    if (!rv::openScene())
        return;
    if (flags & rv::flush_shape_caches)
        rv::flushNodes(RV_NODE_SHAPE, rv::the_frame->hooks->flushShape, flags);
    if (flags & (rv::flush_skydome_tables | rv::flush_quad_tables))
        rv::flushNodes(RV_NODE_LIGHT, rv::the_frame->hooks->flushLight, flags);
}

RtNodeIterator* RvUniverseGetNodeIterator(unsigned int mask)
{
    RtScene* const scene = rv::openScene();
    if (!scene)
        return nullptr;
    RtNodeIterator* const it = static_cast<RtNodeIterator*>(
        RvMalloc_func(sizeof(RtNodeIterator), module_path, __LINE__, "RvUniverseGetNodeIterator"));
    if (!it)
        return nullptr;
    const rv::SceneGuard guard(scene);
    *it = { rv::nextMatch(RvListHead(scene->nodes), mask), mask };
    return it;
}

RtNode* RvNodeIteratorGetNext(RtNodeIterator* it)
{
    if (RvNodeIteratorFinished(it))
        return nullptr;
    RtNode* const node = static_cast<RtNode*>(it->element->data);
    const rv::SceneGuard guard(rv::openScene());
    it->element = rv::nextMatch(it->element->next, it->mask);
    return node;
}

bool RvNodeIteratorFinished(const RtNodeIterator* it) { return !it || !it->element; }

void RvNodeIteratorDestroy(RtNodeIterator* it) { RvFree_func(it); }
