// The samples around a pixel (rv_aov_sampler.h), inline for the built-in filters.
#ifndef RV_SAMPLE_ITERATOR_H
#define RV_SAMPLE_ITERATOR_H

#include "aovs/sample_records.h"
#include "maths.h"
#include "rv_aov_sampler.h"

#include <math.h>

// Visits the neighbours within radius_pixels row by row, and the samples of each in order.
struct RtAOVSampleIterator {
    const RtSampleStore* store;
    const RtAOV* aov;  // being filtered; null for raw samples
    int x, y;          // pixel being filtered
    int radius_pixels; // neighbours on each side
    float radius;      // of the footprint, a square that includes its edge
    float offset_x, offset_y;
    int dx, dy;                          // neighbour, relative to the pixel
    int sample_index;                    // within the neighbour; -1 before the first
    int depth;                           // of the current values
    int next_depth;                      // of the values that are read next
    int slot;                            // -1 when there is no current sample
    int first_slot;                      // of the neighbour, -1 when none is stored
    const rv::DeepSamples::Record* deep; // behind the first hit, when depth is not 0

    void initPixel(int pixel_x, int pixel_y)
    {
        x = pixel_x;
        y = pixel_y;
        reset();
    }

    void reset()
    {
        dx = dy = -radius_pixels;
        sample_index = slot = -1;
        depth = next_depth = 0;
        deep = nullptr;
        findNeighbour();
    }

    // Inlined, so that filters keep their own copy of the iterator in registers.
    [[gnu::always_inline]] bool next()
    {
        depth = next_depth = 0;
        deep = nullptr;
        for (;;) {
            if (first_slot < 0 || ++sample_index >= store->window.samples) {
                if (!moveOn())
                    return false;
                continue;
            }
            slot = first_slot + sample_index;
            if (hasOffset() && isInside())
                return true;
        }
    }

    // To the values behind the current ones, of the same sample.
    bool nextDepth()
    {
        const rv::DeepSamples::Record* const behind =
            slot < 0 ? nullptr : store->deep.find(uint32_t(slot), uint32_t(depth) + 1);
        if (!behind)
            return false;
        deep = behind;
        depth = ++next_depth;
        return true;
    }

    // Of the current sample and depth; null without a value.
    const char* value(const RtAOV* variable) const
    {
        if (slot < 0 || !variable)
            return nullptr;
        return depth < 1 ? store->value(slot, *variable) : store->deep.value(*deep, *variable);
    }
    // The same of the variable being filtered, if it may be read as that type.
    const char* ownValue(int type) const
    {
        return aov && rv::typeAccepts(aov->type, type) ? value(aov) : nullptr;
    }

private:
    void findNeighbour()
    {
        const auto sum = [](int a, int b) { return int(uint32_t(a) + uint32_t(b)); };
        first_slot = store->firstSlot(sum(x, dx), sum(y, dy));
    }

    // To the next neighbour; false at the end, where the iterator stays.
    bool moveOn()
    {
        slot = sample_index = -1;
        if (dy > radius_pixels)
            return false;
        if (++dx > radius_pixels) {
            dx = -radius_pixels;
            if (++dy > radius_pixels) {
                first_slot = -1;
                return false;
            }
        }
        findNeighbour();
        return true;
    }

    // "AA_offset" is the first variable and the first value.
    bool hasOffset() const { return *store->presenceOf(slot) & 1; }

    bool isInside()
    {
        const RtPoint2 place = rv::loadAs<RtPoint2>(store->valuesOf(slot));
        offset_x = (place.x - 0.5f) + float(dx);
        offset_y = (place.y - 0.5f) + float(dy);
        return fabsf(offset_x) <= radius && fabsf(offset_y) <= radius;
    }
};

#endif
