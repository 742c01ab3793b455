// What "procedural" nodes do beside their methods.
#ifndef RV_PROC_H
#define RV_PROC_H

#include "objects/gobject.h"

namespace rv {

// Who wants a procedural loaded. New nodes are brought up to date for a ray, since a render has
// updated its nodes by then; the others wait for the next render.
enum class LoadedFor : uint8_t { ray, scene };

// Loads the procedural of an object, unless it is loaded. Any thread; returns when no other thread
// is loading it any more. Must not be called with the lock of an object held, because methods of
// nodes run inside that may need it.
void loadProcedural(RtGObject* object, LoadedFor who);

// Whether the node is a procedural whose nodes have been created.
bool isLoadedProcedural(const RtNode* node);

// Whether the node is what is left of a procedural that could not be loaded to its end. It is
// neither rendered nor written.
bool isLeftover(const RtNode* node);

// For RvEnd, after the scene: closes the libraries of procedurals, or leaves them loaded for the
// process, and forgets them.
void destroyProcedurals(bool close_libraries);

} // namespace rv

#endif
