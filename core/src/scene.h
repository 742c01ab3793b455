// The scene: every node of the universe, the name table and the lists that rendering needs.
#ifndef RV_SCENE_H
#define RV_SCENE_H

#include "list.h"
#include "nodes.h"
#include "shash.h"

#include <vector>

struct RtFrame;

struct RtScene {
    using NodeVector = std::vector<RtNode*, rv::CheckedAllocator<RtNode*>>;

    bool consumed;             // a scene write has destroyed the data
    RtList* bounded_objects;   // nodes of visible top-level shapes; filled and thinned out by
    RtList* unbounded_objects; // objects/gobject.cpp, under `lock`
    RtFrame* frame;
    NodeVector lights; // in order of creation; under `lock`
    // The lights that shading sees: `lights`, and while a render runs a copy that was made before
    // its workers started, because procedurals may bring more.
    const NodeVector* shading_lights;
    NodeVector render_lights;
    RtList* nodes; // in order of creation; under `lock`
    RtNode* options;
    RtNode* root;
    RtNode* bounded_root;
    RtNode* unbounded_root;
    int shader_count;
    int shape_count;
    RtArray* missing_types; // the ignore list, or null
    RtSimpleHash* names;    // node name to node
    RtCritSec lock;
    RtNode* default_reflection_shader;
    RtNode* error_shader;
    RtNode* bad_shader;

    RtNode* createNode(const char* type_name);
    // The same without a name, for a caller that gives it one at once. The options node, of which
    // there is only one, may have its name already.
    RtNode* createUnnamedNode(const char* type_name);
    // A name of the library's choice for a node that has none.
    void nameByDefault(RtNode* node);
    // Takes the node out of the scene and frees it: both steps below.
    void removeNode(RtNode* node);
    // Takes it off the books of its kind and finishes it. A Finish method may destroy other nodes.
    void retireNode(RtNode* node);
    // Takes a retired node out of the list and the name table and frees it.
    void releaseNode(RtNode* node);
    // Between the two, shading sees the lights that there are now; none, after an error, when the
    // heap is exhausted.
    void holdLights();
    void releaseLights();
    // Replaces missing_types with a copy.
    void setIgnored(const RtArray* names);
    // True when `text` stands in missing_types.
    bool isIgnored(const char* text) const;
};

namespace rv {

// Holds the scene lock for a scope.
struct SceneGuard {
    explicit SceneGuard(RtScene* s) : scene(s) { RvCritSecEnter(&scene->lock); }
    ~SceneGuard() { RvCritSecLeave(&scene->lock); }
    SceneGuard(const SceneGuard&) = delete;
    SceneGuard& operator=(const SceneGuard&) = delete;
    RtScene* scene;
};

// A scene with its three internal shader nodes, registered in the frame; null when the heap is
// exhausted.
RtScene* sceneCreate(RtFrame* frame);
// Destroys all nodes, the options node last, and the scene.
void sceneDestroy(RtScene* scene);

} // namespace rv

#endif
