// Opens a universe, creates a node, sets it, reads it back and closes the universe.
#include <ruvell/rv.h>
#include <stdio.h>

int main(void)
{
    RvBegin();
    RvMsgSetConsoleFlags(RV_LOG_WARNINGS | RV_LOG_ERRORS);

    RtNode* node = RvNode("sphere");
    RvNodeSetStr(node, "name", "ball");
    RvNodeSetFlt(node, "radius", 2.5f);

    const char* type = RvNodeEntryGetName(RvNodeGetNodeEntry(node));
    float radius = RvNodeGetFlt(node, "radius");
    printf("%s: a %s of radius %g\n", RvNodeGetName(node), type, (double)radius);

    RvEnd();
    return 0;
}
