// What "procedural" nodes do beside their methods.
#ifndef RV_PROC_H
#define RV_PROC_H

#include "objects/gobject.h"

namespace rv {

// Loads the procedural of an object whose rays have come, unless it is loaded. Any thread; returns
// when no other thread is loading it any more. Must not be called with the lock of an object held,
// because methods of nodes run inside that may need it.
void loadProcedural(RtGObject* object);

// Whether the node is a procedural whose nodes have been created.
bool isLoadedProcedural(const RtNode* node);

// For RvEnd, after the scene: closes the libraries of procedurals, or leaves them loaded for the
// process, and forgets them.
void destroyProcedurals(bool close_libraries);

} // namespace rv

#endif
