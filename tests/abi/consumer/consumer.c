// A program outside the project that uses the installed library.
#include <ruvell/rv.h>
#include <stdio.h>

int main(void)
{
    RvBegin();
    RtNode* sphere = RvNode("sphere");
    RvNodeSetStr(sphere, "name", "ball");
    RvNodeSetFlt(sphere, "radius", 2.5f);
    printf("Ruvell %s: %s has radius %g\n", RvGetVersion(NULL, NULL, NULL, NULL),
           RvNodeGetName(sphere), (double)RvNodeGetFlt(sphere, "radius"));
    RvEnd();
    return 0;
}
