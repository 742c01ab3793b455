// Tests of core/src/drivers/driver_display.cpp.
#include "allocation_failures.h"
#include "drivers/driver_tools.h"
#include "golden.h"

#include <limits.h>

namespace {

using namespace driver_tools;

struct Call {
    Bucket bucket;
    bool has_buffer;
    std::vector<int> bytes;
};
using Calls = std::vector<Call>;

void recordCall(int x, int y, int width, int height, uint8_t* buffer, void* data)
{
    const size_t size = buffer ? size_t(width) * size_t(height) * 4 : 0;
    static_cast<Calls*>(data)->push_back(
        { { x, y, width, height }, buffer != nullptr, { buffer, buffer + size } });
}

class DriverDisplay : public Drivers {
protected:
    RtNode* display()
    {
        RtNode* const node = driver("driver_display");
        RvNodeSetPtr(node, "callback", reinterpret_cast<void*>(recordCall));
        RvNodeSetPtr(node, "callback_data", &calls);
        return node;
    }
    // The bytes of an image of one pixel.
    std::vector<int> pixel(RtNode* node, int type, const std::vector<float>& value)
    {
        calls.clear();
        render(node, { { "RGBA", type, [&](int, int) { return value; } } }, wholeFrame(1, 1, 16));
        return calls.empty() ? std::vector<int>() : calls.back().bytes;
    }

    Calls calls;
};

TEST_F(DriverDisplay, agrees_with_golden_pixels)
{
    RtNode* const node = display();
    for (const nlohmann::json& v : goldenVectors("output", "display_pixel")) {
        const nlohmann::json& in = v.at("in");
        RvNodeSetFlt(node, "gamma", goldenFloat(in.at("gamma")));
        RvNodeSetFlt(node, "dither_amplitude", goldenFloat(in.at("dither_amplitude")));
        expectGolden(v, "bytes", pixel(node, RV_TYPE_RGB, goldenFloats(in.at("rgb"))));
    }
}

TEST_F(DriverDisplay, announces_buckets_and_delivers_their_rows_in_order)
{
    const Frame frame = { { 0, 0, 9, 9 }, { 2, 3, 7, 6 }, 4 };
    render(display(),
           { { "RGB", RV_TYPE_RGB,
               [](int x, int y) {
                   return std::vector<float>{ float(x) / 255, float(y) / 255, 1 };
               } } },
           frame);
    ASSERT_EQ(calls.size(), 4u);
    static const Bucket buckets[] = { { 2, 3, 4, 4 }, { 6, 3, 2, 4 } };
    for (size_t i = 0; i < 2; ++i) {
        const Call &announced = calls[2 * i], &delivered = calls[2 * i + 1];
        EXPECT_FALSE(announced.has_buffer);
        EXPECT_TRUE(delivered.has_buffer);
        for (const Call* call : { &announced, &delivered }) {
            EXPECT_EQ(call->bucket.x, buckets[i].x);
            EXPECT_EQ(call->bucket.y, buckets[i].y);
            EXPECT_EQ(call->bucket.width, buckets[i].width);
            EXPECT_EQ(call->bucket.height, buckets[i].height);
        }
        const Bucket& b = buckets[i];
        for (int p = 0; p < b.width * b.height; ++p) {
            const int* const bytes = &delivered.bytes[size_t(4 * p)];
            EXPECT_EQ(bytes[0], b.x + p % b.width);
            EXPECT_EQ(bytes[1], b.y + p / b.width);
            EXPECT_EQ(bytes[2], 255);
            EXPECT_EQ(bytes[3], 255);
        }
    }
}

TEST_F(DriverDisplay, clamps_before_gamma_and_leaves_alpha_out_of_it)
{
    RtNode* const node = display();
    RvNodeSetFlt(node, "gamma", 2);
    EXPECT_EQ(pixel(node, RV_TYPE_RGBA, { 0.25f, 4, -1, 0.25f }),
              (std::vector<int>{ 127, 255, 0, 63 }));
    EXPECT_EQ(pixel(node, RV_TYPE_RGB, { std::nanf(""), 1, 0 }),
              (std::vector<int>{ 0, 255, 0, 255 }));
}

TEST_F(DriverDisplay, dithers_by_place_in_the_image_and_channel)
{
    RtNode* const node = display();
    RvNodeSetFlt(node, "dither_amplitude", 3);
    const std::vector<float> grey = { 0.5f, 0.5f, 0.5f, 0.5f };
    const Frame frame = { { 0, 0, 99, 99 }, { 40, 50, 47, 57 }, 4 };
    for (int type : { RV_TYPE_RGB, RV_TYPE_RGBA }) {
        calls.clear();
        render(node, { { "RGBA", type, [&](int, int) { return grey; } } }, frame);
        for (const Call& call : calls)
            for (size_t i = 0; i < call.bytes.size(); ++i) {
                const Bucket& b = call.bucket;
                const int p = int(i / 4), channel = int(i % 4);
                const int dithered =
                    RvQuantize8bit(b.x + p % b.width, b.y + p / b.width, channel, 0.5f, 3);
                const bool opaque = channel == 3 && type == RV_TYPE_RGB;
                EXPECT_EQ(call.bytes[i], opaque ? 255 : dithered);
            }
    }
}

TEST_F(DriverDisplay, without_a_callback_nothing_happens)
{
    RtNode* const node = driver("driver_display");
    render(node, { { "RGB", RV_TYPE_RGB, [](int, int) { return std::vector<float>(3); } } },
           wholeFrame(20, 20, 16));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(DriverDisplay, shows_the_first_output_only)
{
    RtNode* const node = display();
    render(node,
           { { "RGB", RV_TYPE_RGB,
               [](int, int) {
                   return std::vector<float>{ 1, 0, 0 };
               } },
             { "b", RV_TYPE_RGB,
               [](int, int) {
                   return std::vector<float>{ 0, 1, 0 };
               } } },
           wholeFrame(1, 1, 16));
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1].bytes, (std::vector<int>{ 255, 0, 0, 255 }));
    calls.clear();
    render(node, {}, wholeFrame(1, 1, 16));
    render(node, { { "Z", RV_TYPE_FLOAT, [](int, int) { return std::vector<float>{ 1 }; } } },
           wholeFrame(1, 1, 16));
    for (const Call& call : calls)
        EXPECT_FALSE(call.has_buffer) << "nothing to show";
}

TEST_F(DriverDisplay, failing_to_allocate_the_buffer_is_reported)
{
    RtNode* const node = display();
    DriverRun run(node, { { "RGB", RV_TYPE_RGB, [](int, int) { return std::vector<float>(3); } } },
                  wholeFrame(16, 16, 16));
    withAllocations(0, [&] { run.write({ 0, 0, 16, 16 }); });
    EXPECT_EQ(
        withoutLines(takeProblem()),
        "can't allocate 1024 bytes in core\\src\\drivers\\driver_display:DriverWriteBucket()");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_FALSE(calls[0].has_buffer);
    run.write({ 0, 0, 16, 16 });
    EXPECT_EQ(calls.size(), 3u) << "the next bucket is delivered again";
}

} // namespace
