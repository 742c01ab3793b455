// The process-wide record of the open universe, made by RvBegin and freed by RvEnd.
//
// It belongs to the bottom floor, so it holds only pointers to records that the floors above
// define, and a table of hooks through which lower floors call upwards.
#ifndef RV_FRAME_H
#define RV_FRAME_H

#include "rv_base.h"
#include "rv_math.h"

struct RtMsgState;
struct RtScene;
struct RtRenderSession;
struct RtThreadSlot;
struct RtStats;
struct RtStringPool;
struct RtSimpleHash;
struct RtSampleSink;
struct RtSampleOutputs;
struct RtSceneFiles;
struct RtProcedurals;

namespace rv {

// 64 worker slots and one for the host thread.
inline constexpr int worker_slot_count = 64;
inline constexpr int host_stats_slot = worker_slot_count;
inline constexpr int stats_record_count = worker_slot_count + 1;

} // namespace rv

// Calls from a lower floor into a higher one. Every slot is filled; a fixed table, shared by all
// universes.
struct RtHooks {
    void (*errorLogged)();                               // msg -> render: abort_on_error
    void (*cameraParameters)(RtList*, RtMetaDataStore*); // nodeentry -> cameras
    void (*lightParameters)(RtList*, RtMetaDataStore*);  // nodeentry -> lights
    void (*shapeParameters)(RtList*, RtMetaDataStore*);  // nodeentry -> objects
    void (*shapeChanged)(RtNode*, const RtParamEntry*);  // nodes -> objects: a parameter was set
    void (*shapeTeardown)(RtNode*);                      // nodes -> objects: free the RtGObject
    void (*lightTeardown)(RtNode*);                      // nodes -> lights: free the RtLightData
    unsigned (*shapeVertexCount)(const RtNode*);         // userdefs -> objects: varying elements
    bool (*rendering)();                                 // nodes -> render: a render is running
    void (*applyOverrides)(RtNode*);                     // nodes -> dotrvs: before Initialize
    RtBBox (*rootBounds)(const RtNode* root);            // universe -> objects: world bounds
    void (*flushShape)(RtNode* shape, int flags);        // universe -> objects: per-object caches
    void (*flushLight)(RtNode* light, int flags);        // universe -> lights: sampling tables

    // trace -> shading. The first two run the shader of a hit or the background and return its
    // output type, or RV_TYPE_NONE when nothing was run; the third colours what lies between the
    // origin of a ray and the point of a sample.
    int (*shadeSurface)(RtShaderGlobals* sg);
    int (*shadeBackground)(RtShaderGlobals* sg);
    void (*applyAtmosphere)(const RtRay* ray, RtScrSample* sample);

    // trace -> aovs: what a camera sample shows at a depth.
    void (*recordSample)(RtSampleSink* sink, int depth, const RtSampleOutputs& outputs);
};

struct RtFrame {
    RtMsgState* msg;
    RtScene* scene;
    RtRenderSession* session;
    RtList* node_entries;      // RtNodeEntry*, in order of installation
    RtSimpleHash* entry_names; // the same by name
    RtList* libraries;         // loaded plug-in libraries, in order of loading
    RtStats* stats[rv::stats_record_count];
    uint32_t start_ms;          // wall clock; the origin of all elapsed times
    uint64_t start_memory;      // resident bytes at RvBegin
    RtStringPool* strings;      // null when it could not be allocated
    RtSceneFiles* scene_files;  // references and overrides that wait for nodes, or null
    RtProcedurals* procedurals; // their lock and libraries, or null
    RtThreadSlot* thread_slots; // worker_slot_count of them, or null before the first render
    const RtHooks* hooks;
};

namespace rv {

// The open universe, or null. Written by RvBegin and RvEnd alone, which never run beside others.
inline RtFrame* the_frame = nullptr;

} // namespace rv

#endif
