// stats_warnings: what the statistics report warns of: settings, scenes and hosts that waste time.
#include "stats_lines.h"

#include <iterator>

namespace rv {

// What can be wrong with a render. Nothing is said unless one of the first four is.
struct Problems {
    double rays_per_pixel;
    bool traces_much;
    bool has_poor_bounds;
    bool wastes_threads;
    double creation_percentage;
    bool creates_slowly;

    bool any() const { return traces_much || has_poor_bounds || wastes_threads || creates_slowly; }
};

static Problems findProblems(const RtStats& s)
{
    static constexpr double most_rays_per_pixel = 2000;
    static constexpr double least_utilization = 50, most_creation = 20; // percent
    static constexpr int64_t long_render_ms = 20 * 60000, long_creation_ms = 10 * 60000;
    const double rays = ratio(s.rays.rows[RV_PASS_PIXELS][RV_ROW_TOTAL].rays, s.pixels);
    const double creation = percent(s.scene_ms, s.render_ms + s.scene_ms);
    return {
        .rays_per_pixel = rays,
        .traces_much = rays > most_rays_per_pixel,
        .has_poor_bounds = s.poor_bounds_displaced || s.poor_bounds_procedural,
        .wastes_threads =
            renderWork(s).utilization() < least_utilization && s.render_ms > long_render_ms,
        .creation_percentage = creation,
        .creates_slowly = creation > most_creation && s.scene_ms > long_creation_ms,
    };
}

static const char* haveEnding(uint32_t count) { return count == 1 ? " has" : "s have"; }

static void warnOfPoorBounds(const RtStats& s)
{
    if (s.poor_bounds_displaced)
        RvMsgWarningMasked(
            stats_mask,
            "%d displaced object%s very poor bounds. This can severely affect ray tracing "
            "performance. You should check the \"height\" parameter on your displaced objects.",
            int(s.poor_bounds_displaced), haveEnding(s.poor_bounds_displaced));
    if (s.poor_bounds_procedural)
        RvMsgWarningMasked(
            stats_mask,
            "%d on-demand procedural%s very poor bounds. This can severely affect ray tracing "
            "performance. You should check the bounds being passed from the host application.",
            int(s.poor_bounds_procedural), haveEnding(s.poor_bounds_procedural));
}

static void warnOfSlowCreation(const RtStats& s)
{
    const struct {
        uint32_t count;
        const char* text;
    } issues[] = {
        { s.identical_motion_matrices,
          "matrices were motion blurred even though they were identical." },
        { s.identity_matrices, "matrices were identity - skipping these will save some memory "
                               "allocations and reduce fragmentation" },
        { s.static_motion_meshes, "meshes were motion blurred even though they were static" },
        { s.static_motion_curves,
          "curves objects were motion blurred even though they were static" },
        { s.static_motion_points,
          "points objects were motion blurred even though they were static" },
        { s.curves_with_motion_radius, "curves objects had motion blurred radius information which "
                                       "is not supported and ignored" },
    };
    if (std::none_of(std::begin(issues), std::end(issues),
                     [](const auto& issue) { return issue.count; }))
        return;
    RvMsgWarningMasked(stats_mask,
                       "Scene creation time could be reduced by fixing the following issues:");
    for (const auto& issue : issues)
        if (issue.count)
            RvMsgWarningMasked(stats_mask, "%d %s", int(issue.count), issue.text);
}

// Required: issues of scene creation by themselves are not worth the block.
void printWarnings(const Report& report)
{
    const RtStats& s = report.counts;
    const Problems problems = findProblems(s);
    if (!problems.any())
        return;
    separator();
    RvMsgWarningMasked(stats_mask, "performance warnings:");
    const Rows rows;
    if (problems.traces_much)
        RvMsgWarningMasked(stats_mask,
                           "You are tracing %.00f rays per pixel. You may want to double check "
                           "your sampling settings.",
                           problems.rays_per_pixel);
    warnOfPoorBounds(s);
    if (problems.wastes_threads)
        RvMsgWarningMasked(stats_mask,
                           "Rendering utilization was only %.00f%%. Your render may be bound by a "
                           "single threaded process or I/O.",
                           renderWork(s).utilization());
    if (problems.creates_slowly)
        RvMsgWarningMasked(stats_mask,
                           "Scene creation was a significant amount of total time (%.00f%%). "
                           "Consider optimizing this process first.",
                           problems.creation_percentage);
    warnOfSlowCreation(s);
}

} // namespace rv
