// image_writer: image files by way of OpenImageIO, safe against every failure on the way.
#include "drivers/image_writer.h"

#include "rv_plugins.h"
#include "system/part_file.h"

#include <algorithm>
#include <errno.h>
#include <exception>
#include <filesystem>
#include <stdio.h>
#include <string.h>
#include <utility>
#include <vector>

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>

namespace rv {

namespace fs = std::filesystem;

// Remembers the first failure of the system, and swallows all further bytes. The libraries never
// learn of it: some do not look, others print to the console or end the process.
class CheckedFile : public OIIO::Filesystem::IOProxy {
public:
    explicit CheckedFile(FILE* f) : IOProxy("", Write), file(f) {}
    const char* proxytype() const override { return "checked"; }
    size_t size() const override { return static_cast<size_t>(end); }
    bool seek(int64_t offset) override
    {
        check(fseek(file, offset, SEEK_SET) == 0);
        m_pos = offset;
        return true;
    }
    size_t read(void* bytes, size_t count) override
    {
        seek(m_pos); // between writing and reading
        const size_t got = failure ? 0 : fread(bytes, 1, count, file);
        seek(m_pos + static_cast<int64_t>(got));
        return got;
    }
    size_t write(const void* bytes, size_t count) override
    {
        errno = 0;
        if (!failure)
            check(fwrite(bytes, 1, count, file) == count);
        m_pos += static_cast<int64_t>(count);
        end = std::max(end, m_pos);
        return count;
    }

    int failure = 0; // as in errno

private:
    void check(bool succeeded)
    {
        if (!succeeded && !failure)
            failure = errno ? errno : EIO;
    }

    FILE* file;
    int64_t end = 0;
};

struct ImageWriter {
    fs::path path;      // where the file will be
    fs::path part_path; // where it grows
    FILE* file;
    CheckedFile stream;
    std::unique_ptr<OIIO::ImageOutput> output;
    OIIO::TypeDesc pixels; // as they come
    bool opened = false;   // by the library, and not closed
    bool tiled;
    int next_row = 0; // of files made of rows
    bool finished = false;
    std::string error; // of the system; empty when the library knows it

    ImageWriter(const fs::path& place, const fs::path& part, FILE* f)
        : path(place), part_path(part), file(f), stream(f)
    {
    }
};

// ---- Creation ----

static OIIO::TypeDesc storedType(ChannelFormat format)
{
    switch (format) {
    case ChannelFormat::uint8: return OIIO::TypeDesc::UINT8;
    case ChannelFormat::uint16: return OIIO::TypeDesc::UINT16;
    case ChannelFormat::uint32: return OIIO::TypeDesc::UINT32;
    case ChannelFormat::float16: return OIIO::TypeDesc::HALF;
    default: return OIIO::TypeDesc::FLOAT;
    }
}

static void describeWindows(const ImageDescription& image, OIIO::ImageSpec* spec)
{
    const RtWindow &data = image.data_window, &full = image.display_window;
    spec->x = data.min_x;
    spec->y = data.min_y;
    spec->full_x = full.min_x;
    spec->full_y = full.min_y;
    spec->full_width = full.max_x - full.min_x + 1;
    spec->full_height = full.max_y - full.min_y + 1;
    spec->tile_width = image.tile_width;
    spec->tile_height = image.tile_height;
}

static void describeCamera(OIIO::ImageSpec* spec)
{
    RtMatrix world_to_camera, world_to_screen;
    RvDriverGetMatrices(&world_to_camera, &world_to_screen);
    spec->attribute("worldtocamera", OIIO::TypeMatrix, &world_to_camera);
    spec->attribute("worldtoscreen", OIIO::TypeMatrix, &world_to_screen);
}

static OIIO::ImageSpec specification(const ImageDescription& image)
{
    const RtWindow& data = image.data_window;
    OIIO::ImageSpec spec(data.max_x - data.min_x + 1, data.max_y - data.min_y + 1,
                         static_cast<int>(image.layout->names.size()), storedType(image.format));
    spec.channelnames = image.layout->names;
    spec.alpha_channel = image.layout->alpha_channel;
    describeWindows(image, &spec);
    describeCamera(&spec);
    spec.attribute("ruvell", std::string(RV_VERSION " ") + RvGetCompileOptions());
    if (image.compression)
        spec.attribute("compression", image.compression);
    if (image.quality)
        spec.attribute("CompressionQuality", image.quality);
    if (image.straight_alpha)
        spec.attribute("oiio:UnassociatedAlpha", 1);
    if (image.any_tile_order)
        spec.attribute("openexr:lineOrder", "randomY");
    return spec;
}

// A file of the library's own that nothing was written to yet; null when the place takes none.
static ImageWriterPtr createFile(const std::string& name)
{
    const fs::path place = placeOf(name);
    if (!place.has_filename() || !isReplaceable(place))
        return nullptr;
    fs::path part;
    FILE* const file = createPart(place, place.extension().string(), &part);
    if (!file)
        return nullptr;
    try {
        return ImageWriterPtr(new ImageWriter(place, part, file));
    } catch (...) { // no memory: nobody else knows of the part
        fclose(file);
        removePart(part);
        throw;
    }
}

ImageWriterPtr createImage(const ImageDescription& image, std::string* error)
{
    error->clear();
    ImageWriterPtr writer = createFile(image.path);
    if (!writer)
        return nullptr;
    writer->output = OIIO::ImageOutput::create(image.library_format);
    if (!writer->output)
        return nullptr;
    writer->tiled = image.tile_width > 0;
    const OIIO::ImageSpec spec = specification(image);
    writer->next_row = spec.y;
    writer->pixels = image.format == ChannelFormat::float16 ? OIIO::TypeDesc::FLOAT : spec.format;
    writer->output->set_ioproxy(&writer->stream);
    writer->opened = writer->output->open(image.path, spec);
    if (writer->opened)
        return writer;
    *error = imageError(writer.get());
    return nullptr;
}

// ---- Writing ----

bool writePart(ImageWriter* writer, const RtWindow& part, const void* pixels)
{
    OIIO::ImageOutput& output = *writer->output;
    const int end_x = part.max_x + 1, end_y = part.max_y + 1;
    writer->next_row = end_y;
    const bool written =
        writer->tiled
            ? output.write_tiles(part.min_x, end_x, part.min_y, end_y, 0, 1, writer->pixels, pixels)
            : output.write_scanlines(part.min_y, end_y, 0, writer->pixels, pixels);
    return written && !writer->stream.failure;
}

bool finishImage(ImageWriter* writer)
{
    writer->opened = false;
    if (!writer->output->close() || writer->stream.failure)
        return false;
    errno = 0;
    const bool closed = fclose(std::exchange(writer->file, nullptr)) == 0;
    writer->finished = closed && movePart(writer->part_path, writer->path);
    if (!writer->finished)
        writer->error = strerror(errno);
    return writer->finished;
}

std::string imageError(const ImageWriter* writer)
{
    if (!writer->error.empty())
        return writer->error;
    if (writer->stream.failure)
        return strerror(writer->stream.failure);
    return writer->output->geterror();
}

// The library behind PNG files complains on the console about an image that lacks rows.
static void fillUp(ImageWriter* writer)
{
    const OIIO::ImageSpec& spec = writer->output->spec();
    const std::vector<unsigned char> black(spec.scanline_bytes(true));
    for (int y = writer->next_row; y < spec.y + spec.height; ++y)
        writer->output->write_scanline(y, 0, spec.format, black.data());
}

void ImageWriterDeleter::operator()(ImageWriter* writer) const
{
    if (!writer->finished && !writer->stream.failure)
        writer->stream.failure = ECANCELED; // nothing more goes to the disk
    try {
        if (!writer->finished && writer->opened && !strcmp(writer->output->format_name(), "png"))
            fillUp(writer);
        writer->output.reset(); // may still write
    } catch (const std::exception&) {
        // The file is lost anyway.
    }
    if (writer->file)
        fclose(writer->file);
    if (!writer->finished)
        removePart(writer->part_path);
    delete writer;
}

} // namespace rv
