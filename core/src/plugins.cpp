// plugins: plug-in libraries (rv_plugins.h).
#include "rv_plugins.h"

void RvLoadPlugins(const char*) {}
