// What the tests of drivers share: driver nodes in a folder of their own, and renders that need no
// renderer: pictures are cut into buckets and given to the methods of a driver.
#ifndef RV_DRIVER_TOOLS_H
#define RV_DRIVER_TOOLS_H

#include "drivers/drivers.h"
#include "drivers/image_reader.h"
#include "maths.h"
#include "nodes.h"
#include "options.h"
#include "universe_fixture.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string.h>
#include <unistd.h>

namespace driver_tools {

using Texts = std::vector<std::string>;

inline int width(const RtWindow& w) { return w.max_x - w.min_x + 1; }
inline int height(const RtWindow& w) { return w.max_y - w.min_y + 1; }
inline std::vector<int> corners(const RtWindow& w)
{
    return { w.min_x, w.min_y, w.max_x, w.max_y };
}

// An output whose pixels are a function of their place.
struct Picture {
    std::string name;
    int type;
    std::function<std::vector<float>(int x, int y)> pixel; // as many as the type has components
};

// One pixel value, whatever the type.
inline std::string bytesOf(int type, const std::vector<float>& components)
{
    if (type == RV_TYPE_INT) {
        const int value = int(components[0]);
        return std::string(reinterpret_cast<const char*>(&value), sizeof value);
    }
    if (type == RV_TYPE_BOOLEAN)
        return std::string(1, components[0] != 0);
    std::string bytes(reinterpret_cast<const char*>(components.data()),
                      components.size() * sizeof(float));
    bytes.resize(rv::typeSize(type));
    return bytes;
}

struct Frame {
    RtWindow display, region;
    int bucket_size;
};
inline Frame wholeFrame(int xres, int yres, int bucket_size)
{
    const RtWindow all = { 0, 0, xres - 1, yres - 1 };
    return { all, all, bucket_size };
}

struct Bucket {
    int x, y, width, height;
};

// In order of rows.
inline std::vector<Bucket> bucketsOf(const Frame& frame)
{
    std::vector<Bucket> all;
    const RtWindow& r = frame.region;
    for (int y = r.min_y; y <= r.max_y; y += frame.bucket_size)
        for (int x = r.min_x; x <= r.max_x; x += frame.bucket_size)
            all.push_back({ x, y, std::min(frame.bucket_size, r.max_x - x + 1),
                            std::min(frame.bucket_size, r.max_y - y + 1) });
    return all;
}

// The life of an open driver.
class DriverRun {
public:
    DriverRun(RtNode* driver, const std::vector<Picture>& outputs, const Frame& f)
        : node(driver), frame(f), pictures(outputs)
    {
        Outputs empty(pictures, nullptr);
        methods().DriverOpen(node, &empty.iterator, frame.display, frame.region, frame.bucket_size);
    }
    void write(const Bucket& b)
    {
        const Outputs filled(pictures, &b);
        RtOutputIterator iterator = filled.iterator;
        RvCritSecEnter(&rv::driverData(node)->lock);
        methods().DriverPrepareBucket(node, b.x, b.y, b.width, b.height, 0);
        methods().DriverWriteBucket(node, &iterator, nullptr, b.x, b.y, b.width, b.height);
        RvCritSecLeave(&rv::driverData(node)->lock);
    }
    void writeAll(const std::vector<Bucket>& buckets)
    {
        for (const Bucket& b : buckets)
            write(b);
    }
    void close()
    {
        Outputs empty(pictures, nullptr);
        methods().DriverClose(node, &empty.iterator);
    }

private:
    struct Outputs {
        Outputs(const std::vector<Picture>& all, const Bucket* bucket) : pixels(all.size())
        {
            for (size_t i = 0; i < all.size(); ++i) {
                for (int p = 0; bucket && p < bucket->width * bucket->height; ++p)
                    pixels[i] += bytesOf(all[i].type, all[i].pixel(bucket->x + p % bucket->width,
                                                                   bucket->y + p / bucket->width));
                outputs.push_back(
                    { all[i].name.c_str(), all[i].type, bucket ? pixels[i].data() : nullptr });
            }
            iterator = { outputs.data(), int(outputs.size()), 0 };
        }
        std::vector<std::string> pixels;
        std::vector<RtDriverOutput> outputs;
        RtOutputIterator iterator;
    };
    const RtDriverMethods& methods() const
    {
        return *static_cast<const RtDriverMethods*>(node->entry->kind_methods);
    }

    RtNode* node;
    Frame frame;
    std::vector<Picture> pictures;
};

class Drivers : public Universe {
protected:
    void SetUp() override
    {
        const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
        folder = std::filesystem::path(::testing::TempDir()) /
                 (std::string("drivers.") + test->name() + "." + std::to_string(getpid()));
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
        Universe::SetUp();
    }
    void TearDown() override
    {
        Universe::TearDown();
        for (const std::string& name : files())
            EXPECT_NE(name.rfind(".", 0), 0u) << "left behind: " << name;
        std::filesystem::remove_all(folder);
    }

    // A prepared node named "drv", whose file lies in the folder of the test.
    RtNode* driver(const char* type, const std::string& file = "")
    {
        RtNode* const node = RvNode(type);
        RvNodeSetStr(node, "name", "drv");
        if (!file.empty())
            RvNodeSetStr(node, "filename", path(file).c_str());
        rv::RvNodeInitialize(node);
        return node;
    }
    std::string path(const std::string& file) const { return (folder / file).string(); }

    Texts files() const
    {
        Texts names;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    static void render(RtNode* node, const std::vector<Picture>& outputs, const Frame& frame)
    {
        DriverRun run(node, outputs, frame);
        run.writeAll(bucketsOf(frame));
        run.close();
    }

    // Texts of the information that the log got.
    static Texts takeInfos()
    {
        Texts texts;
        for (const LoggedMessage& m : messages())
            if (m.severity == 0)
                texts.push_back(m.text);
        messages().clear();
        return texts;
    }

    std::filesystem::path folder;
};

} // namespace driver_tools

#endif
