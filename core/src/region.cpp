// region: the part of the image that a render works on. Declared by render_session.h.
#include "render_session.h"

#include "rv_msg.h"
#include "rv_render.h"

#include <stdio.h>

namespace rv {

static bool isInside(int min, int max, int size)
{
    return 0 <= min && min < size && 0 <= max && max < size;
}

// The pixels asked for. Required: a negative "region_min_x" alone asks for the whole image, and
// minima beyond their maxima are no mistake.
static bool findRegion(ImageGeometry* image, const RtOptions& options)
{
    if (options.xres < 1 || options.yres < 1)
        return false;
    *image = wholeImage(options.xres, options.yres);
    if (options.region_min_x < 0)
        return true;
    image->region_min_x = options.region_min_x;
    image->region_min_y = options.region_min_y;
    image->region_max_x = options.region_max_x;
    image->region_max_y = options.region_max_y;
    return isInside(image->region_min_x, image->region_max_x, options.xres) &&
           isInside(image->region_min_y, image->region_max_y, options.yres);
}

int setUpRegion(RtRenderSession* session, const RtOptions& options)
{
    ImageGeometry image;
    if (!findRegion(&image, options)) {
        RvMsgError("invalid render region (%d,%d)-->(%d,%d) for image resolution %dx%d",
                   options.region_min_x, options.region_min_y, options.region_max_x,
                   options.region_max_y, options.xres, options.yres);
        return RV_ERROR_BAD_REGION;
    }
    static_cast<ImageGeometry&>(*session) = image;
    session->region_width = image.region_max_x - image.region_min_x + 1;
    session->region_height = image.region_max_y - image.region_min_y + 1;
    return RV_SUCCESS;
}

void reportImage(const RtRenderSession& session, const RtOptions& options)
{
    const bool is_whole = session.region_width == session.image_width &&
                          session.region_height == session.image_height;
    char region[64] = "";
    if (!is_whole)
        snprintf(region, sizeof region, " (%d x %d region)", session.region_width,
                 session.region_height);
    char samples[64] = "";
    if (options.GI_diffuse_depth != 0)
        snprintf(samples, sizeof samples, ", %d GI samples", options.GI_diffuse_samples);
    RvMsgInfo("rendering image at %d x %d%s, %d AA samples%s, %d GI bounces", session.image_width,
              session.image_height, region, options.AA_samples, samples, options.GI_diffuse_depth);
}

} // namespace rv
