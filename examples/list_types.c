// Lists every node type of a freshly opened universe: name, kind, type of the output value and
// number of parameters.
#include <ruvell/rv.h>
#include <stdio.h>

int main(void)
{
    RvBegin();

    printf("%-24s%-10s%-8s%10s\n", "NODE TYPE", "KIND", "OUTPUT", "PARAMETERS");
    int count = 0;
    RtNodeEntryIterator* types = RvUniverseGetNodeEntryIterator(RV_NODE_ALL);
    while (!RvNodeEntryIteratorFinished(types)) {
        const RtNodeEntry* type = RvNodeEntryIteratorGetNext(types);
        const int output = RvNodeEntryGetOutputType(type);
        printf("%-24s%-10s%-8s%10d\n", RvNodeEntryGetName(type), RvNodeEntryGetTypeName(type),
               output == RV_TYPE_NONE ? "none" : RvParamGetTypeName(output),
               RvNodeEntryGetNumParams(type));
        ++count;
    }
    RvNodeEntryIteratorDestroy(types);
    printf("%d node types\n", count);

    RvEnd();
    return count > 0 ? 0 : 1;
}
