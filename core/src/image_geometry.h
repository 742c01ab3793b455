// The size of the image and the part of it that is rendered, for everything that maps pixels to
// the screen.
#ifndef RV_IMAGE_GEOMETRY_H
#define RV_IMAGE_GEOMETRY_H

#include "options.h"

#include <algorithm>

namespace rv {

struct ImageGeometry {
    int image_width, image_height;                              // pixels of the whole image
    float inv_width, inv_height;                                // 1 / image_width, 1 / image_height
    float frame_aspect;                                         // image_height / image_width
    int region_min_x, region_min_y, region_max_x, region_max_y; // pixels to render, inclusive
};

// That of the running render, owned by its session; null outside of a render. Fixed while workers
// run.
inline const ImageGeometry* image_geometry = nullptr;

// An image that is rendered whole. Sizes below 1, which no render accepts, count as 1.
inline ImageGeometry wholeImage(int xres, int yres)
{
    const int width = std::max(xres, 1), height = std::max(yres, 1);
    const float inv_width = 1 / static_cast<float>(width);
    const float inv_height = 1 / static_cast<float>(height);
    return { width, height, inv_width, inv_height, static_cast<float>(height) * inv_width,
             0,     0,      width - 1, height - 1 };
}

// The image of the running render, or the one that the options ask for.
inline ImageGeometry currentImage()
{
    if (image_geometry)
        return *image_geometry;
    return render_options ? wholeImage(render_options->xres, render_options->yres)
                          : wholeImage(1, 1);
}

// Half the height of the frame on the screen, where half its width is 1.
inline float frameHeight(const ImageGeometry& image)
{
    return image.frame_aspect * (render_options ? render_options->aspect_ratio : 1);
}

} // namespace rv

#endif
