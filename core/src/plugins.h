// Plug-in libraries: loading behind RvLoadPlugins and RvLoadPlugin (rv_plugins.h), and what RvEnd
// does about them.
#ifndef RV_PLUGINS_INTERNAL_H
#define RV_PLUGINS_INTERNAL_H

struct RtList;

// One per loaded library, in RtFrame::libraries in order of loading.
struct RtLibrary {
    void* handle;
    char path[1024]; // as given
    RtList* types;   // names of the node types it installed, in order; pooled
    bool is_refused; // for its version, after types of it had been installed, whose code must stay
};

// Loads a library and installs its node types. Returns how many it listed; 0 after a failure, which
// has been reported.
int RvLoadPluginsFromLib(const char* path);

namespace rv {

// For RvEnd, after the scene: uninstalls the node types of all libraries, then closes the
// libraries, or leaves them loaded for the process. The records go in any case.
void uninstallPlugins();
void unloadPlugins(bool close_libraries);

} // namespace rv

#endif
