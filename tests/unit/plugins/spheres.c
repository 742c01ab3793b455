/* A procedural: as many spheres along the x axis as its "data" says. */
#include "rv.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int init(RtNode* node, void** user_ptr)
{
    int* const count = RvMalloc(sizeof *count);
    *count = atoi(RvNodeGetStr(node, "data"));
    *user_ptr = count;
    return 1;
}

static int cleanUp(void* user_ptr)
{
    RvFree(user_ptr);
    return 1;
}

static int numNodes(void* user_ptr) { return *(const int*)user_ptr; }

static RtNode* getNode(void* user_ptr, int i)
{
    (void)user_ptr;
    RtNode* const sphere = RvNode("sphere");
    const RtPoint center = { (float)i, 0, 0 };
    RvNodeSetArray(sphere, "center", RvArray(1, 1, RV_TYPE_POINT, center));
    return sphere;
}

RV_PLUGIN_EXPORT int ProcLoader(RtProcVtable* vtable)
{
    vtable->Init = init;
    vtable->Cleanup = cleanUp;
    vtable->NumNodes = numNodes;
    vtable->GetNode = getNode;
    strcpy(vtable->version, RV_VERSION);
    return 1;
}
