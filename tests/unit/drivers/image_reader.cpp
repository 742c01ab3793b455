// image_reader: files as the image library sees them.
#include "drivers/image_reader.h"

#include <OpenImageIO/imageio.h>
#include <OpenImageIO/strutil.h>

static RtWindow windowOf(int x, int y, int width, int height)
{
    return { x, y, x + width - 1, y + height - 1 };
}

template <class T> static bool readAll(OIIO::ImageInput& input, ImageRead* image)
{
    const OIIO::ImageSpec& spec = input.spec();
    std::vector<T> pixels(spec.image_pixels() * size_t(spec.nchannels));
    const bool done =
        input.read_image(0, 0, 0, spec.nchannels, OIIO::BaseTypeFromC<T>::value, pixels.data());
    image->values.assign(pixels.begin(), pixels.end());
    return done;
}

static bool readPixels(OIIO::ImageInput& input, ImageRead* image)
{
    switch (input.spec().format.basetype) {
    case OIIO::TypeDesc::UINT8: return readAll<unsigned char>(input, image);
    case OIIO::TypeDesc::UINT16: return readAll<unsigned short>(input, image);
    case OIIO::TypeDesc::UINT32: return readAll<unsigned int>(input, image);
    default: return readAll<float>(input, image);
    }
}

ImageRead readImage(const std::string& path)
{
    ImageRead image = {};
    OIIO::ImageSpec config;
    config["oiio:UnassociatedAlpha"] = 1; // colours as they are stored
    const auto input = OIIO::ImageInput::open(path, &config);
    if (!input) {
        image.error = "cannot open: " + OIIO::geterror();
        return image;
    }
    const OIIO::ImageSpec& spec = input->spec();
    image.format = input->format_name();
    image.type = spec.format.c_str();
    image.data_window = windowOf(spec.x, spec.y, spec.width, spec.height);
    image.display_window = windowOf(spec.full_x, spec.full_y, spec.full_width, spec.full_height);
    image.tile_width = spec.tile_width;
    image.tile_height = spec.tile_height;
    image.channels = spec.channelnames;
    image.alpha_channel = spec.alpha_channel;
    for (const OIIO::ParamValue& attribute : spec.extra_attribs)
        image.attributes[OIIO::Strutil::lower(attribute.name().string())] = attribute.get_string();
    if (!readPixels(*input, &image))
        image.error = "cannot read: " + input->geterror();
    return image;
}

std::vector<std::string> libraryChannelNames(int count)
{
    return OIIO::ImageSpec(1, 1, count, OIIO::TypeDesc::FLOAT).channelnames;
}
