// The point clouds of sub-surface scattering: their records, and the steps that make them.
#ifndef RV_SSS_CLOUD_H
#define RV_SSS_CLOUD_H

#include "joint_work.h"
#include "objects/gobject.h"
#include "simd.h"
#include "system/checked_heap.h"
#include "system/memory.h"

#include <algorithm>
#include <atomic>
#include <float.h>
#include <stdint.h>
#include <vector>

// A place on the mesh and the light that enters there.
struct RtSSSPoint {
    RtPoint position;    // in the frame of the cloud
    uint32_t face;       // triangle
    float u, v;          // weights of its second and third corner
    float area;          // of the surface that the point stands for
    uint32_t irradiance; // packIrradiance
};

// A box of points, with up to eight boxes inside it, or with points.
struct RtSSSNode {
    float bounds[6]; // x min, x max, y min, y max, z min, z max; tight
    uint8_t child_count;
    uint16_t point_count;
    uint32_t first_child; // its children follow each other
    uint32_t first_point; // so do its points
};

namespace rv {

template <class T> using CheckedVector = std::vector<T, CheckedAllocator<T>>;

// One cloud, read by all threads once it is built, and never changed.
//
// It stands in the world, as its object does at one moment: distances are those of the scene, and
// points of instances and of moving objects find their place through object space. So the radii of
// an instance grow with its scale against its source. Objects inside of a list do not know of it:
// they are lit where they stand without its matrix.
struct RtSSSPointCloud : CheckedHeap {
    CheckedVector<RtSSSPoint> points; // in the order of the octree; those that can be looked up
    CheckedVector<RtSSSNode> nodes;   // the root first; none without points
    float average_radius = 0;         // of the discs that points with light stand for
    bool gi = false;                  // points gathered indirect light
    RtMatrix frame = RV_M4_IDENTITY;  // from object space
    float time = 0;                   // shutter time of that moment
    bool has_one_place = false;       // whatever the time; not that of an instance
    uint32_t generated_count = 0;     // points before those without light were left out
    uint32_t lit_count = 0;           // points with light

    size_t bytes() const
    {
        return sizeof *this + points.capacity() * sizeof(RtSSSPoint) +
               nodes.capacity() * sizeof(RtSSSNode);
    }
};

// ---- Packed irradiance ----

// Three mantissas of eight bits and a common exponent. What is no light (negative, NaN) is black;
// only black gives 0. The largest channel is off by at most 0.4 %.
uint32_t packIrradiance(const RtRGB& irradiance);
RtRGB unpackIrradiance(uint32_t packed);
// The same in three lanes; the fourth means nothing.
Float4 unpackLanes(uint32_t packed);

// ---- Workers ----

// Who builds a cloud: a thread, along with those that join it.
struct SSSCrew {
    int thread = 0;
    JointWork* work = nullptr;                      // null for nobody else
    const std::atomic<int>* stop_request = nullptr; // of the running render, or null

    bool isStopped() const { return stop_request && *stop_request; }
    // JointWork::lead.
    bool lead(int count, const JointWork::Piece& piece) const
    {
        JointWork alone;
        return (work ? *work : alone).lead(thread, count, piece);
    }
};

// ---- Distribution ----

// Bounds the table of candidates, which no memory holds for every "sss_max_samples".
extern const uint32_t most_cloud_points;

// How many points a surface gets.
struct SSSPointBudget {
    uint32_t points;     // about as many; no more than most_cloud_points
    uint32_t candidates; // places that are tried
    double spacing;      // least distance of two points
};
// Without a spacing above 0 it is max_samples that counts, which limits the number in any case.
SSSPointBudget pointBudget(double area, float spacing, int max_samples);

// The weights of a triangle's corners for a point of the unit square; uniform over the triangle.
struct CornerWeights {
    double w[3];
};
CornerWeights cornerWeights(double a, double b);

// A surface made of triangles.
struct SSSSurface {
    virtual uint32_t triangleCount() const = 0;
    virtual void corners(uint32_t triangle, RtPoint out[3]) const = 0;

protected:
    ~SSSSurface() = default;
};

// Running sums of the triangles' areas, as shares of the whole. Triangles that are not finite have
// no area.
struct AreaDistribution {
    CheckedVector<double> shares; // of the triangles up to and with each one; empty without area
    double total = 0;

    explicit AreaDistribution(const SSSSurface& surface);
    // The triangle at u in [0, 1), which becomes the place within its share, again in [0, 1).
    uint32_t pick(double* u) const;

private:
    void makeGuide();

    // For equal parts of [0, 1): the triangle at the start of each one, and at the end of the last.
    CheckedVector<uint32_t> guide;
};

struct ScatteredPoints {
    CheckedVector<RtSSSPoint> points; // without light, in order of acceptance
    uint32_t rejected = 0;            // candidates
};
// Points no two of which are closer than the spacing. Their areas add up to the whole, unless a
// stop is requested: then they are worth nothing. Throws std::bad_alloc.
ScatteredPoints scatterPoints(const SSSSurface& surface, const AreaDistribution& distribution,
                              const SSSPointBudget& budget, const SSSCrew& crew = {});

// ---- Octree ----

// Puts the points into order and boxes them.
void buildOctree(CheckedVector<RtSSSPoint>* points, CheckedVector<RtSSSNode>* nodes);

// The kernel by which light scatters: the sum of irradiance * 4 (r - d)^3 / r^5 over points at
// distances d < r, for each channel's radius r. Its integral over the plane is 0.4 pi. Channels
// whose radius is no positive number get nothing.
//
// Written 4 / r^2 * (1 - d / r)^3, so that no radius leaves the range of numbers.
class ScatterKernel {
public:
    explicit ScatterKernel(const RtRGB& radius)
        : radii{ usable(radius.r), usable(radius.g), usable(radius.b) },
          inverse(inverseOf(radii[0]), inverseOf(radii[1]), inverseOf(radii[2]), 0)
    {
    }
    // Of the channel that light comes farthest in.
    float reach() const { return std::max({ radii[0], radii[1], radii[2] }); }
    // Three channels, and a fourth that counts for nothing.
    void add(Float4 irradiance, float distance)
    {
        const Float4 w = max(Float4(1) - Float4(distance) * inverse, Float4(0));
        recent = recent + irradiance * (w * w * w);
    }
    // To be called from time to time: many small numbers are added up more precisely.
    void fold()
    {
        alignas(16) float channels[4];
        recent.store(channels);
        recent = Float4(0);
        for (int i = 0; i < 3; ++i)
            sums[i] += double(channels[i]);
    }
    RtRGB total()
    {
        fold();
        return { channel(0), channel(1), channel(2) };
    }

private:
    static float usable(float radius) { return radius > 0 && radius <= FLT_MAX ? radius : 0; }
    static float inverseOf(float radius) { return radius > 0 ? std::min(1 / radius, FLT_MAX) : 0; }

    float channel(int i) const
    {
        if (!(radii[i] > 0))
            return 0;
        const double square = double(radii[i]) * double(radii[i]);
        return float(std::min(sums[i] * 4 / square, double(FLT_MAX)));
    }

    float radii[3];
    Float4 inverse;
    Float4 recent = Float4(0);
    double sums[3] = {};
};

// The light that the points around P scatter to it.
RtRGB scatteredLight(const RtSSSPointCloud& cloud, const RtPoint& P, const RtRGB& radius);

// The irradiance of the nearest point closer than a distance, or black.
RtRGB nearestIrradiance(const RtSSSPointCloud& cloud, const RtPoint& P, float distance);

// ---- Build ----

// What a build is for: the cloud's owner and how its points are to look.
struct SSSBuildOrder {
    RtGObject* owner;
    int show_samples; // ShowSamples
    SSSCrew crew = {};
    uint32_t progress_interval = 5000; // milliseconds between two reports of its lighting
};

// From the space of an object to where it stands in the world; where its first instance does when
// it is hidden.
RtMatrix placeInWorld(const RtGObject* object, float time);

// Values of the option "show_samples".
enum ShowSamples { show_no_samples, show_sss_points, show_sss_irradiance, show_samples_count };

// A new cloud, the same whoever builds it; null when a stop was requested. Without memory, after
// the allocator's report, it is empty. Throws std::bad_alloc when there is not even memory for
// that.
RtSSSPointCloud* buildPointCloud(const SSSBuildOrder& order);

} // namespace rv

#endif
