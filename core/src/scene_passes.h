// What a render does with the scene before it traces: nodes are initialised and updated, and the
// objects become one root. All of it runs on the rendering thread, before there are workers.
#ifndef RV_SCENE_PASSES_H
#define RV_SCENE_PASSES_H

struct RtScene;

namespace rv {

// Says how many lights and objects there are; nothing for a scene without either.
void reportSceneSummary();

// Initialises every node that is not yet initialised.
void initializeNodes(RtScene* scene);
// Updates every node, initialised first where it is not yet.
void updateNodes(RtScene* scene);
// Puts the scene's objects under one root, which is left null when the heap is exhausted, and
// reports the bounds of the scene.
void buildRootList(RtScene* scene);

} // namespace rv

#endif
