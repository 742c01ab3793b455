// dotrvs: reading of scene files.
#include "dotrvs.h"

int RvRVSLoadList(const char*, RtList*) { return -1; }
