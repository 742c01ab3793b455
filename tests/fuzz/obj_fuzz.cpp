// Reads the input as a Wavefront OBJ file.
#include "fuzz_tools.h"

#include "nodes.h"
#include "objects/obj.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const fuzz::Folder folder;
    folder.write("mesh.obj", data, size);
    const fuzz::SilentUniverse universe;
    RvNodeSetStr(RvNode("lambert"), "name", "shader");
    RtList* const nodes = RvList(nullptr);
    {
        RtObjReader reader;
        reader.read("mesh.obj", nodes);
    }
    // What was read is what rendering starts from.
    for (const RtListNode* element = RvListHead(nodes); element; element = element->next)
        rv::RvNodeInitialize(static_cast<RtNode*>(element->data));
    RvListDestroy(nodes);
    return 0;
}
