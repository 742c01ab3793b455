// The colours of lights that shine from a surface, and the table by which that surface is sampled.
//
// The table is made by the render threads that come to need it, under the lock of the map, and is
// only read from then on. Changes of the light between renders make it invalid.
#ifndef RV_LIGHT_MAP_H
#define RV_LIGHT_MAP_H

#include "importance.h"
#include "lights/light_data.h"
#include "links.h"
#include "rv_threads.h"

// How a type of light fills its table and speaks of it.
struct RtLightMapType {
    int64_t RtStats::*bytes; // where tables are counted
    bool names_light;        // in messages, besides the type
    const char* subject;     // of messages, or ""
    const char* complaint;   // about a table that makes no difference
    float (*measure)(const RtNode* light);
    void (*fillRow)(const RtNode* light, int thread, int row, float* cells);
};

// A part of the type's data, which points to it from the common data of the light.
struct RtLightMap {
    RtLightMap(const RtNode* node, const RtLightMapType& light_type);
    ~RtLightMap();
    RtLightMap(const RtLightMap&) = delete;
    RtLightMap& operator=(const RtLightMap&) = delete;

    const RtNode* light;
    const RtLightMapType& type;

    // Changed by the update of the light.
    RtLinkRecord link = {}; // of "color"
    int resolution = 0;
    bool is_linked = false;
    std::atomic<bool> is_flushed = false; // while a render used the table: invalid from the next

    RtCritSec lock = {};
    rv::JointWork work;
    std::atomic<bool> tables_built = false; // the rest is under the lock until then
    bool is_dark = false;                   // nothing to sample, or no memory for it
    RtImportanceTable table = {};
};

namespace rv {

// At the update of the light: a table of another resolution or of other colours becomes invalid.
void updateLightMap(RtLightMap* map, int resolution);

// The same for changes that the map does not know of.
void invalidateLightMap(RtLightMap* map);

// Makes sure that there is a table. False when there is nothing to sample.
bool requireLightMap(RtLightMap* map, int thread);

// ---- Colours ----

// A shader that works out the colour of a light sees no skydome, and no quad whose colour comes
// from a shader: their colours or tables could need the first light, without an end. True while the
// calling thread runs one.
bool isColoringLight();

// Where one thread works out colours of a light, in a context that nobody else sees.
class LightColor {
public:
    LightColor(const RtLightMap& map, int thread, float time);
    LightColor(const LightColor&) = delete;
    LightColor& operator=(const LightColor&) = delete;

    // At the place that the context describes.
    RtRGB evaluate();

    RtShaderGlobals sg;

private:
    const RtLightMap& map;
    RtShadingState state;
};

// The colour of a light that is not linked to a shader.
inline RtRGB plainColor(const RtLightMap& map) { return lightData(map.light)->color; }

} // namespace rv

#endif
