// Skydome lights whose colours come from image files: where the image is in the sky.
#include "light_map_tools.h"
#include "texture_tools.h"

#include <fstream>

using namespace light_map_tools;

namespace {

constexpr int width = 192, height = 144;

// An axis, its colour, and where it lies in an image: by columns from the left and rows from the
// top, as parts of the whole.
struct Mark {
    RtVector axis;
    RtRGB color;
    float x, y;
};
const RtRGB red = { 1, 0, 0 }, cyan = { 0, 1, 1 }, green = { 0, 1, 0 }, magenta = { 1, 0, 1 },
            blue = { 0, 0, 1 }, yellow = { 1, 1, 0 };

struct Format {
    const char* name;
    std::vector<Mark> marks;
};

// What lies on the edge of an image (straight up and down in latitude and longitude, -z around
// round ones) is left out; whole skies show it below.
const Format formats[] = {
    // +z in the middle, +x to its right.
    { "latlong",
      { { { 0, 0, 1 }, red, 0.5f, 0.5f },
        { { 1, 0, 0 }, green, 0.75f, 0.5f },
        { { -1, 0, 0 }, blue, 0.25f, 0.5f },
        { { 0, 0.70710678f, 0.70710678f }, cyan, 0.5f, 0.25f },
        { { 0, -0.70710678f, 0.70710678f }, magenta, 0.5f, 0.75f } } },
    // +z in the middle; half way to the rim what is across.
    { "angular",
      { { { 0, 0, 1 }, red, 0.5f, 0.5f },
        { { 1, 0, 0 }, green, 0.75f, 0.5f },
        { { -1, 0, 0 }, blue, 0.25f, 0.5f },
        { { 0, 1, 0 }, cyan, 0.5f, 0.25f },
        { { 0, -1, 0 }, magenta, 0.5f, 0.75f } } },
    // The same, at the sine of 45 degrees.
    { "mirrored_ball",
      { { { 0, 0, 1 }, red, 0.5f, 0.5f },
        { { 1, 0, 0 }, green, 0.8536f, 0.5f },
        { { -1, 0, 0 }, blue, 0.1464f, 0.5f },
        { { 0, 1, 0 }, cyan, 0.5f, 0.1464f },
        { { 0, -1, 0 }, magenta, 0.5f, 0.8536f } } },
    // An upright cross of three columns and four rows; the lowest face is upside down.
    { "cubic",
      { { { 0, 1, 0 }, cyan, 0.5f, 0.125f },
        { { 0, 0, -1 }, red, 0.5f, 0.375f },
        { { 0, 0, 1 }, yellow, 0.5f, 0.875f },
        { { 1, 0, 0 }, green, 0.8333f, 0.375f },
        { { -1, 0, 0 }, blue, 0.1667f, 0.375f },
        { { 0, -1, 0 }, magenta, 0.5f, 0.625f } } },
};

} // namespace

class MappedSkies : public MappedLights {
protected:
    void paint(const Format& format, const std::string& file,
               const texture_tools::PixelFunction& value)
    {
        texture_tools::writeImage(file, width, height, 3, OIIO::TypeDesc::FLOAT, value);
        skydome(128);
        RvNodeSetStr(node, "format", format.name);
        colorByImage(file);
        prepare();
    }
    RtNode* colorByImage(const std::string& file)
    {
        RtNode* const image = named("image", "image");
        RvNodeSetStr(image, "filename", file.c_str());
        RvNodeLink(image, "color", node);
        return image;
    }
    RtShaderGlobals everywhere()
    {
        RtShaderGlobals sg = surface();
        sg.front_hemisphere_only = 0;
        RvLightsPrepare(&sg);
        EXPECT_TRUE(RvLightsGetSample(&sg));
        return sg;
    }

    const texture_tools::TextureFolder folder;
};

TEST_F(MappedSkies, images_are_placed_by_their_format)
{
    for (const Format& format : formats) {
        paint(format, folder.file((std::string(format.name) + ".exr").c_str()),
              [&](int x, int y, int c) {
                  for (const Mark& mark : format.marks) {
                      const float dx = (float(x) + 0.5f) / width - mark.x,
                                  dy = (float(y) + 0.5f) / height - mark.y;
                      if (dx * dx + dy * dy < 0.06f * 0.06f)
                          return c == 0 ? mark.color.r : c == 1 ? mark.color.g : mark.color.b;
                  }
                  return 0.0f;
              });
        RtShaderGlobals sg = everywhere();
        for (const Mark& mark : format.marks) {
            ASSERT_TRUE(ask(sg, mark.axis));
            EXPECT_NEAR(sg.light_radiance.r, mark.color.r, 0.01f) << format.name << mark.x;
            EXPECT_NEAR(sg.light_radiance.g, mark.color.g, 0.01f) << format.name << mark.x;
            EXPECT_NEAR(sg.light_radiance.b, mark.color.b, 0.01f) << format.name << mark.x;
        }
        // Samples go there, and see the colour of the mark that they meet.
        Uniform uniform(9);
        std::map<std::string, int> met;
        int lit = 0;
        for (int i = 0; i < 2000; ++i) {
            const float u = uniform(), v = uniform();
            if (!draw(sg, u, v) || rv::isNegligible(sg.light_radiance))
                continue;
            ++lit;
            const auto nearer = [&](const Mark& a, const Mark& b) {
                return rv::dot(a.axis, sg.light_dir) < rv::dot(b.axis, sg.light_dir);
            };
            const Mark& mark = *std::max_element(format.marks.begin(), format.marks.end(), nearer);
            EXPECT_GT(rv::dot(mark.axis, sg.light_dir), 0.75f) << format.name;
            EXPECT_EQ(sg.light_radiance.r > 0, mark.color.r > 0) << format.name << mark.x;
            EXPECT_EQ(sg.light_radiance.b > 0, mark.color.b > 0) << format.name << mark.x;
            ++met[text(mark.color)];
        }
        EXPECT_GT(lit, 1800) << format.name;
        EXPECT_EQ(met.size(), format.marks.size()) << format.name;
        startAnew();
    }
}

TEST_F(MappedSkies, images_have_no_seam)
{
    for (const Format& format : formats) {
        paint(format, folder.file((std::string(format.name) + ".exr").c_str()),
              [](int, int, int c) { return 0.25f * float(1 + c); });
        RtShaderGlobals sg = everywhere();
        Uniform uniform(10);
        for (int i = 0; i < 3000; ++i) {
            RtVector d = { uniform() - 0.5f, uniform() - 0.5f, uniform() - 0.5f };
            // A third of them close to where the images end or tear.
            if (i % 3 == 0)
                (i % 2 ? d.x : d.y) *= 1e-4f;
            if (i % 9 == 0)
                d = { d.x * 1e-3f, d.y * 1e-3f, -1 };
            ASSERT_TRUE(ask(sg, rv::unitPrecise(d)));
            ASSERT_NEAR(sg.light_radiance.r, 0.25f, 1e-3f) << format.name << text(d);
            ASSERT_NEAR(sg.light_radiance.b, 0.75f, 1e-3f) << format.name << text(d);
        }
        startAnew();
    }
}

// ---- Whole skies ----

// The directions of image coordinates, v up: the formats backwards. Beyond the part of an image
// that shows the sky they go on without a jump.
static RtVector fromLatLong(float u, float v)
{
    const float theta = (1 - v) * pi, phi = (u - 0.5f) * 2 * pi;
    return { sinf(theta) * sinf(phi), cosf(theta), sinf(theta) * cosf(phi) };
}

static RtVector fromRound(float u, float v, float (*angle)(float radius))
{
    const float x = 2 * u - 1, y = 2 * v - 1, radius = hypotf(x, y);
    const float theta = angle(std::min(radius, 1.0f));
    const float across = radius > 0 ? sinf(theta) / radius : 0;
    return { x * across, y * across, cosf(theta) };
}

static RtVector fromAngular(float u, float v)
{
    return fromRound(u, v, [](float radius) { return radius * pi; });
}

static RtVector fromMirroredBall(float u, float v)
{
    return fromRound(u, v, [](float radius) { return 2 * asinf(radius); });
}

// Faces reach from -1 to 1; what lies outside of the cross belongs to the nearest face.
static RtVector fromCubic(float u, float v)
{
    const float a = 6 * u - 3, b = 8 * v;
    const float beside = std::fabs(a) - 1, away = std::max(b - 6, 4 - b);
    if (beside > std::max(away, 0.0f))
        return rv::unit(a > 0 ? RtVector{ 1, b - 5, a - 2 } : RtVector{ -1, b - 5, -a - 2 });
    if (v > 0.75f)
        return rv::unit({ a, 1, b - 7 });
    if (v < 0.25f)
        return rv::unit({ a, 1 - b, 1 });
    return v < 0.5f ? rv::unit({ a, -1, 3 - b }) : rv::unit({ a, b - 5, -1 });
}

TEST_F(MappedSkies, every_direction_shows_its_place_in_the_image)
{
    const std::pair<const char*, RtVector (*)(float, float)> backwards[] = {
        { "latlong", fromLatLong },
        { "angular", fromAngular },
        { "mirrored_ball", fromMirroredBall },
        { "cubic", fromCubic },
    };
    for (const auto& [name, direction] : backwards) {
        const std::string file = folder.file((std::string(name) + ".exr").c_str());
        // A colour for every direction.
        const auto value = [backward = direction](int x, int y, int c) {
            const RtVector d = backward((float(x) + 0.5f) / width, 1 - (float(y) + 0.5f) / height);
            return 0.5f + 0.4f * (c == 0 ? d.x : c == 1 ? d.y : d.z);
        };
        texture_tools::writeImage(file, width, height, 3, OIIO::TypeDesc::FLOAT, value);
        skydome(256);
        RvNodeSetStr(node, "format", name);
        RtNode* const image = colorByImage(file);
        RvNodeSetStr(image, "swrap", direction == fromCubic ? "clamp" : "periodic");
        RvNodeSetStr(image, "twrap", "clamp");
        prepare();
        RtShaderGlobals sg = everywhere();
        Uniform uniform(12);
        std::vector<RtVector> directions = { { 1, 0, 0 },  { -1, 0, 0 }, { 0, 1, 0 },
                                             { 0, -1, 0 }, { 0, 0, 1 },  { 0, 0, -1 } };
        for (int i = 0; i < 5000; ++i) {
            RtVector d = { uniform() - 0.5f, uniform() - 0.5f, uniform() - 0.5f };
            if (i % 3 == 0) // close to where images end or tear
                (i % 2 ? d.x : d.y) *= 1e-3f;
            if (i % 5 == 0)
                d = { d.x * 1e-2f, d.y, d.x * 0.5e-2f };
            if (i % 7 == 0)
                d = { d.x * 1e-2f, d.y * 1e-2f, d.z };
            directions.push_back(rv::unitPrecise(d));
        }
        for (const RtVector& d : directions) {
            ASSERT_TRUE(ask(sg, d));
            // The rim of a mirrored ball shows a wide ring of directions in a single pixel.
            const bool is_at_rim = direction == fromMirroredBall && d.z < -0.8f;
            const float tolerance = is_at_rim ? 0.2f : 0.03f;
            const RtRGB got = sg.light_radiance;
            EXPECT_NEAR(got.r, 0.5f + 0.4f * d.x, tolerance) << name << " " << text(d);
            EXPECT_NEAR(got.g, 0.5f + 0.4f * d.y, tolerance) << name << " " << text(d);
            EXPECT_NEAR(got.b, 0.5f + 0.4f * d.z, tolerance) << name << " " << text(d);
        }
        startAnew();
    }
}

// ---- Images that are none ----

TEST_F(MappedSkies, bad_images_neither_stop_nor_darken_what_other_lights_do)
{
    using texture_tools::constant, texture_tools::writeImage;
    const OIIO::TypeDesc type = OIIO::TypeDesc::FLOAT;
    writeImage(folder.file("truncated.exr"), 64, 64, 3, type, texture_tools::pattern);
    std::filesystem::resize_file(folder.file("truncated.exr"), 600);
    std::ofstream(folder.file("text.exr")) << "This is a text and no picture at all.\n";
    std::ofstream(folder.file("empty.exr")).flush();
    std::ofstream(folder.file("none.ppm")) << "P6\n0 0\n255\n";
    std::filesystem::create_directory(folder.file("folder.exr"));
    writeImage(folder.file("nan.exr"), 8, 8, 3, type, constant({ NAN, NAN, NAN }));
    writeImage(folder.file("dot.exr"), 1, 1, 3, type, constant({ 0.25f, 0.5f, 0.75f }));
    writeImage(folder.file("1.exr"), 8, 8, 1, type, constant({ 0.25f }));
    writeImage(folder.file("2.exr"), 8, 8, 2, type, constant({ 0.25f, 0.5f }));
    writeImage(folder.file("5.exr"), 8, 8, 5, type, constant({ 0.25f, 0.5f, 0.75f, 1, 1 }));
    const struct {
        const char* file;
        const char* color; // in the same proportions
        bool is_error;
    } rows[] = {
        { "missing.exr", "1 0 0", true }, { "truncated.exr", "1 0 0", true },
        { "text.exr", "1 0 0", true },    { "empty.exr", "1 0 0", true },
        { "none.ppm", "1 0 0", true },    { "folder.exr", "1 0 0", true },
        { "nan.exr", "1 0 0", true },     { "dot.exr", "1 2 3", false },
        { "1.exr", "1 1 1", false },      { "2.exr", "1 2 0", false },
        { "5.exr", "1 2 3", false },
    };
    for (const char* type_name : { "sky", "quad" })
        for (const auto& row : rows) {
            set("abort_on_error", false);
            node = type_name == std::string("sky") ? skydome(32) : quadLight(32);
            colorByImage(folder.file(row.file));
            pointLight({ 0, 0, 3 }, 0, "lamp");
            prepare();
            messages().clear();
            const std::vector<Sample> all = samples({ 0, 0, -1 });
            EXPECT_EQ(namesOf(all), (Names{ RvNodeGetName(node), "lamp" })) << row.file;
            RtShaderGlobals sg = ready({ 0, 0, -1 });
            ASSERT_TRUE(ask(sg, { 0, 0, 1 })) << row.file;
            const RtRGB& c = sg.light_unoccluded;
            EXPECT_EQ(text(c * (1 / c.r)), row.color) << type_name << " " << row.file;
            // 1,024 cells and some samples were looked up; 100 messages tell enough of it.
            const auto errors = std::count_if(messages().begin(), messages().end(),
                                              [](const auto& m) { return m.severity == 2; });
            EXPECT_EQ(errors > 0, row.is_error) << row.file;
            EXPECT_LE(errors, 150) << row.file;
            startAnew();
        }
}
