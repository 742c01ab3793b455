// A procedural in C++: spheres along a spiral around the y axis. The "data" of the node gives their
// number, the radius of the spiral and its number of turns, as in "200 1.5 4".
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>
#include <ruvell/rv.h>

namespace {

struct Spiral {
    int count = 100;
    float radius = 1;
    float turns = 3;
    RtNode* shader = nullptr; // of the procedural, for all spheres

    // From the bottom, 0, to the top, 1.
    RtPoint pointAt(float t) const
    {
        const float angle = 6.2831853f * turns * t;
        return { radius * std::cos(angle), 2 * t - 1, radius * std::sin(angle) };
    }

    RtNode* makeSphere(int i) const
    {
        RtNode* const sphere = RvNode("sphere");
        if (!sphere)
            return nullptr;
        const float t = count > 1 ? float(i) / float(count - 1) : 0;
        RvNodeSetArray(sphere, "center", RvArray(1, 1, RV_TYPE_POINT, pointAt(t)));
        RvNodeSetArray(sphere, "radius", RvArray(1, 1, RV_TYPE_FLOAT, 0.05));
        if (shader)
            RvNodeSetPtr(sphere, "shader", shader);
        return sphere;
    }
};

// The procedural's own "shader" has at least one entry once the node is being initialised.
RtNode* shaderOf(RtNode* node)
{
    const RtArray* const shaders = RvNodeGetArray(node, "shader");
    return shaders && shaders->nelements > 0 ? static_cast<RtNode*>(RvArrayGetPtr(shaders, 0))
                                             : nullptr;
}

int init(RtNode* node, void** user_ptr)
{
    Spiral* const spiral = new (std::nothrow) Spiral;
    if (!spiral)
        return 0;
    const char* const data = RvNodeGetStr(node, "data");
    if (data && *data &&
        std::sscanf(data, "%d %f %f", &spiral->count, &spiral->radius, &spiral->turns) < 1) {
        RvMsgWarning("%s: \"data\" is not a number of spheres: %s", RvNodeGetName(node), data);
        delete spiral;
        return 0;
    }
    spiral->shader = shaderOf(node);
    *user_ptr = spiral;
    return 1;
}

int cleanup(void* user_ptr)
{
    delete static_cast<Spiral*>(user_ptr);
    return 1;
}

int numNodes(void* user_ptr) { return static_cast<const Spiral*>(user_ptr)->count; }

RtNode* getNode(void* user_ptr, int i)
{
    return static_cast<const Spiral*>(user_ptr)->makeSphere(i);
}

} // namespace

RV_PLUGIN_EXPORT int ProcLoader(RtProcVtable* vtable)
{
    vtable->Init = init;
    vtable->Cleanup = cleanup;
    vtable->NumNodes = numNodes;
    vtable->GetNode = getNode;
    std::strcpy(vtable->version, RV_VERSION);
    return 1;
}
