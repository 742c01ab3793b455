// Skydome lights whose colours come from image files: where the image is in the sky.
#include "light_map_tools.h"
#include "texture_tools.h"

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
            blue = { 0, 0, 1 };

struct Format {
    const char* name;
    std::vector<Mark> marks;
};

// What lies on the edge of an image (straight up and down in latitude and longitude, -z around
// round ones) is left out.
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
    // An upright cross of three columns and four rows.
    { "cubic",
      { { { 0, 1, 0 }, cyan, 0.5f, 0.125f },
        { { 0, 0, -1 }, red, 0.5f, 0.375f },
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
        RtNode* const image = named("image", "image");
        RvNodeSetStr(image, "filename", file.c_str());
        RvNodeLink(image, "color", node);
        prepare();
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
        EXPECT_EQ(met.size(), 5u) << format.name;
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
