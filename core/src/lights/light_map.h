// The colours of lights that shine from a surface, and the table by which that surface is sampled.
//
// The table is made by the render threads that come to need it, under the lock of the map, and is
// only read from then on. Changes of the light between renders make it invalid. A table that was
// flushed stays until the next update, because points that were lit by it may still ask it.
#ifndef RV_LIGHT_MAP_H
#define RV_LIGHT_MAP_H

#include "importance.h"
#include "lights/light_data.h"
#include "links.h"
#include "rv_threads.h"

#include <new>

// How a type of light fills its table and speaks of it.
struct RtLightMapType {
    int64_t RtStats::*bytes; // where tables are counted
    bool names_light;        // in messages, besides the type
    const char* subject;     // of messages, or ""
    const char* complaint;   // about a table that makes no difference
    float (*measure)(const RtNode* light);
    void (*fillRow)(const RtNode* light, int thread, const RtImportanceTable& table, int row,
                    float* cells);
};

// In the list of all that a light has made since its last update, the latest first.
struct RtLightTable {
    RtImportanceTable table;
    RtLightTable* older;
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
    std::atomic<bool> is_stale = false; // the next update makes the table invalid

    RtCritSec lock = {};
    rv::JointWork work;
    std::atomic<bool> tables_built = false;
    std::atomic<unsigned> flush_count = 0;                 // between renders
    std::atomic<const RtImportanceTable*> table = nullptr; // null when there is nothing to sample
    RtLightTable* tables = nullptr;                        // under the lock
};

namespace rv {

// At the update of the light: a table of another resolution or of other colours becomes invalid.
void updateLightMap(RtLightMap* map, int resolution);

// The same for changes that the map does not know of.
void invalidateLightMap(RtLightMap* map);

// The table, made first if need be; it lasts until the next update. Null when there is nothing to
// sample, no memory, or no time because the render is to stop.
const RtImportanceTable* requireLightMap(RtLightMap* map, int thread);

// A render begins, whose requests to stop also stop the making of tables; and ends.
void startLightMaps(const std::atomic<int>* stop_request);
void endLightMaps();

// ---- Colours ----

// A shader that works out the colour of a light sees no light whose colour comes from a shader,
// too: that colour or its table could need the first light, without an end. Nor does a shader that
// runs while the structure of an object is built: the table could need that structure, on a thread
// that the calling one would wait for. True for such a light while the calling thread runs such a
// shader.
bool isHiddenLight(const RtLightMap& map);

// Whether this thread works out the colour of a light.
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

// Where the colours that a point sees are worked out, one after another; made when it is first
// needed. Lives as long as the point. Null without memory.
LightColor* requireColor(LightColor** color, const RtLightMap& map, const RtShaderGlobals& sg);

// The colour of a light that is not linked to a shader.
// Required: the parameter as it is, without "light_gamma".
inline RtRGB plainColor(const RtLightMap& map)
{
    return lightParam<RtRGB>(map.light, light_color_param);
}

// ---- For the methods of light types ----

// Initialize of a type whose data is made of the light and the type of its map, and has that map as
// its member `map`.
template <class Data, class Point>
void initializeMappedLight(RtNode* light, RtLightType type, const RtLightMapType& map_type,
                           const char* file)
{
    const auto destroy = [](void* data) {
        static_cast<Data*>(data)->~Data();
        RvFree_func(data);
    };
    if (!initializeLight(light, type, { sizeof(Data), sizeof(Point) }, file, destroy))
        return;
    auto* const data = new (lightData(light)->type_data) Data(light, map_type);
    lightData(light)->map = &data->map;
}

} // namespace rv

#endif
