// Tracing rays through the scene (rv_rays.h) and putting the shaded hits of a ray together.
#ifndef RV_TRACE_H
#define RV_TRACE_H

#include "accels/accel.h"
#include "rv_rays.h"

namespace rv {

// What shading made of a hit.
struct ShadedHit {
    RtRGB color;
    RtRGB opacity;
    float alpha; // of the shader's output; negative or not finite when it has none
    bool opaque; // the flag of the object
};

struct TransparencySettings {
    bool always; // composite through transparent surfaces
    int depth;
    float threshold; // opacity that counts as full
};
TransparencySettings transparencySettings();

// Decides about the hits of a ray from near to far, and then composites those it kept.
class HitCompositor {
public:
    enum Verdict { skipped, kept, terminal };

    explicit HitCompositor(const TransparencySettings& transparency) : settings(transparency) {}
    // Hit number `index` of the ray; a terminal one becomes fully opaque.
    Verdict take(uint32_t index, ShadedHit& hit);
    // Of the hits taken so far.
    RtRGB opacity() const { return accumulated; }

private:
    TransparencySettings settings;
    RtRGB accumulated = { 0, 0, 0 };
};

// Puts a hit in front of what the sample holds.
void compositeOver(RtScrSample* sample, const ShadedHit& hit);

// The shadow of surfaces that light passes one after another.
class ShadowOpacity {
public:
    explicit ShadowOpacity(float opacity_threshold) : threshold(opacity_threshold) {}
    // True when no light is left.
    bool add(const RtRGB& opacity);
    RtRGB value() const { return accumulated; }

private:
    float threshold;
    RtRGB accumulated = { 0, 0, 0 };
};

// The shadow on the way of a shadow ray: black where light passes, white where nothing does.
RtRGB traceShadow(const RtRay& ray);

// True when the ray goes deeper than the options allow.
bool exceedsDepth(const RtRay& ray);

// Finds the hits of a ray, at most `capacity`, nearest first; their matrices live in the thread's
// pool. Without a scene that was prepared there are none.
uint32_t findHits(const RtRay& ray, uint32_t capacity, RtHit* hits);

} // namespace rv

#endif
