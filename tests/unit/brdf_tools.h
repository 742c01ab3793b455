// What the tests of reflectance share: vectors from golden numbers, and records of sampling sets.
#ifndef RV_BRDF_TOOLS_H
#define RV_BRDF_TOOLS_H

#include "brdf_mis.h"
#include "golden.h"
#include "options.h"
#include "shading_state.h"
#include "system/memory.h"
#include "thread_slot.h"
#include "universe_fixture.h"

namespace brdf_tools {

using nlohmann::json;
using rv::dot, rv::operator+, rv::operator-, rv::operator*;

inline RtVector vectorOf(const json& numbers)
{
    const std::vector<float> v = goldenFloats(numbers);
    return { v.at(0), v.at(1), v.at(2) };
}
inline RtRGB rgbOf(const json& numbers)
{
    const RtVector v = vectorOf(numbers);
    return { v.x, v.y, v.z };
}
inline std::vector<float> numbersOf(const RtVector& v) { return { v.x, v.y, v.z }; }

// A tangent of a vector's input, which may be null.
struct Tangent {
    RtVector value;
    bool given;
    Tangent(const json& in, const char* key)
        : value(), given(in.contains(key) && !in.at(key).is_null())
    {
        if (given)
            value = vectorOf(in.at(key));
    }
    const RtVector* get() const { return given ? &value : nullptr; }
};

// At an angle from the z axis, turned around it.
inline RtVector directionAt(double degrees, double azimuth_degrees = 0)
{
    const double theta = degrees * M_PI / 180, phi = azimuth_degrees * M_PI / 180;
    return { float(sin(theta) * cos(phi)), float(sin(theta) * sin(phi)), float(cos(theta)) };
}

inline void setPhysicallyBased(const json& in)
{
    rv::render_options->physically_based = in.value("physically_based", true);
}

// A universe whose thread 0 has a shading pool, and a context for records of lobes.
class Lobes : public Universe {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        slots[0].shading_pool = RvMemPoolCreate(1 << 16);
        rv::the_frame->thread_slots = slots;
        rv::resetContext(&sg);
    }
    void TearDown() override
    {
        rv::the_frame->thread_slots = nullptr;
        RvMemPoolDestroy(slots[0].shading_pool);
        Universe::TearDown();
    }

    // Looks at a surface whose normals point along the z axis.
    void lookFrom(const RtVector& V)
    {
        sg.ray_dir = V * -1.0f;
        sg.facing_normal = sg.facing_geometric_normal = sg.geometric_normal = { 0, 0, 1 };
    }

    RtThreadSlot slots[rv::worker_slot_count] = {};
    RtShaderGlobals sg = {};
};

} // namespace brdf_tools

#endif
