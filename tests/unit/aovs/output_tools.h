// What the tests of outputs share: drivers that remember what they are given, and a bucket whose
// samples a test writes by hand.
#ifndef RV_OUTPUT_TOOLS_H
#define RV_OUTPUT_TOOLS_H

#include "aovs/output_store.h"
#include "aovs/sample_iterator.h"
#include "aovs/sample_store.h"
#include "filters/filters.h"
#include "golden.h"
#include "node_tools.h"
#include "scene_passes.h"

#include <functional>
#include <map>

namespace output_tools {

// ---- Drivers ----

struct Layer {
    int type;
    std::vector<char> pixels;
};

// What the drivers below were asked for, and what they do.
struct Probe {
    std::vector<std::string> events;
    std::map<std::string, Layer> layers; // of the last bucket
    std::function<void(RtAOVSampleIterator*)> on_samples;
    RtWindow display = {}, data = {};
    int bucket_size = 0;
    const char** required_aovs = nullptr; // of raw drivers that are initialised from now on
    bool requires_depth = false;
};

inline Probe& probe()
{
    static Probe state;
    return state;
}

inline void note(const char* what, const RtNode* node)
{
    probe().events.push_back(std::string(what) + " " + RvNodeGetName(node));
}

inline std::string listOf(RtOutputIterator* outputs)
{
    std::string text;
    const char* name = nullptr;
    int type = 0;
    const void* bucket = nullptr;
    while (RvOutputIteratorGetNext(outputs, &name, &type, &bucket))
        text += std::string(" ") + name + ":" + RvParamGetTypeName(type) + (bucket ? "!" : "");
    RvOutputIteratorReset(outputs);
    return text;
}

inline void noteOpen(RtNode* node, RtOutputIterator* outputs, RtWindow display, RtWindow data,
                     int bucket_size)
{
    note(("open" + listOf(outputs) + " by").c_str(), node);
    probe().display = display;
    probe().data = data;
    probe().bucket_size = bucket_size;
}

inline void notePrepare(RtNode* node, int x, int y, int width, int height, int thread)
{
    note(
        node_tools::formatted("prepare %d,%d %dx%d by %d for", x, y, width, height, thread).c_str(),
        node);
}

inline void keepBucket(RtNode* node, RtOutputIterator* outputs, RtAOVSampleIterator* samples, int x,
                       int y, int width, int height)
{
    note(node_tools::formatted("write %d,%d %dx%d to", x, y, width, height).c_str(), node);
    const char* name = nullptr;
    int type = 0;
    const void* bucket = nullptr;
    while (RvOutputIteratorGetNext(outputs, &name, &type, &bucket)) {
        const char* const bytes = static_cast<const char*>(bucket);
        const size_t size = size_t(width * height) * rv::typeSize(type);
        probe().layers[name] = { type, { bytes, bytes + size } };
    }
    if (samples && probe().on_samples)
        probe().on_samples(samples);
}

inline void noteClose(RtNode* node, RtOutputIterator* outputs)
{
    note(("close" + listOf(outputs) + " by").c_str(), node);
}

inline bool takesEverything(RtNode*, int) { return true; }

// What image files of 8 bits hold.
inline bool takesFilePixels(RtNode*, int type)
{
    return type == RV_TYPE_INT || type == RV_TYPE_BOOLEAN || type == RV_TYPE_FLOAT ||
           type == RV_TYPE_RGB || type == RV_TYPE_RGBA;
}

template <bool (*supports)(RtNode*, int), void (*initialize)(RtNode*, void*)>
void installDriver(const char* name)
{
    static const RtCommonMethods common = {
        .Parameters = nullptr,
        .Initialize = initialize,
        .Update = nullptr,
        .Finish = RvDriverDestroy,
    };
    static const RtDriverMethods driver = {
        .DriverSupportsPixelType = supports,
        .DriverExtension = nullptr,
        .DriverOpen = noteOpen,
        .DriverPrepareBucket = notePrepare,
        .DriverWriteBucket = keepBucket,
        .DriverClose = noteClose,
    };
    static const RtNodeMethods methods = { &common, &driver };
    RvNodeInstall(RV_NODE_DRIVER, RV_TYPE_NONE, name, "", &methods, RV_VERSION);
}

inline void initializeLayered(RtNode* node, void*) { RvDriverInitialize(node, true, nullptr); }
inline void initializeSingle(RtNode* node, void*) { RvDriverInitialize(node, false, nullptr); }
inline void initializeRaw(RtNode* node, void*)
{
    static const char* nothing[] = { nullptr };
    RvRawDriverInitialize(node, probe().required_aovs ? probe().required_aovs : nothing,
                          probe().requires_depth, nullptr);
}

// ---- Fixture ----

// A universe with the types "layered_driver" (takes everything), "file_driver" (one output, of the
// pixels of files), "raw_driver" and "bare_driver" (that never initialises itself).
class Outputs : public Universe {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        probe() = {};
        rv::built_in_mismatch_reported = false;
        installDriver<takesEverything, initializeLayered>("layered_driver");
        installDriver<takesFilePixels, initializeSingle>("file_driver");
        installDriver<takesEverything, initializeRaw>("raw_driver");
        installDriver<takesEverything, nullptr>("bare_driver");
        node_tools::named("layered_driver", "drv");
        node_tools::named("box_filter", "box");
    }
    void TearDown() override
    {
        rv::limitAllocations(-1);
        closeBucket();
        rv::closeOutputs(nullptr);
        Universe::TearDown();
    }

    static void setOutputs(const std::vector<const char*>& statements)
    {
        RtArray* const array = RvArrayAllocate(uint32_t(statements.size()), 1, RV_TYPE_STRING);
        for (uint32_t i = 0; i < statements.size(); ++i)
            RvArraySetStr(array, i, statements[i]);
        RvNodeSetArray(RvUniverseGetOptions(), "outputs", array);
    }

    // As a render does it: all nodes, then the outputs.
    static bool prepare(const std::vector<const char*>& statements)
    {
        closeOutputs();
        setOutputs(statements);
        rv::initializeNodes(rv::the_frame->scene);
        rv::updateNodes(rv::the_frame->scene);
        return rv::prepareOutputs(rv::the_frame->session);
    }

    static void closeOutputs()
    {
        closeBucket();
        rv::closeOutputs(rv::the_frame->session);
    }

    // Messages without severity that begin with "[aov]" or "optimizing", in order.
    static std::vector<std::string> takeReports()
    {
        std::vector<std::string> texts;
        for (const LoggedMessage& m : messages())
            if (m.severity == 0 && !(m.mask & RV_LOG_DEBUG) &&
                (m.text.rfind("[aov]", 0) == 0 || m.text.rfind("optimizing", 0) == 0))
                texts.push_back(m.text);
        messages().clear();
        return texts;
    }

    // ---- A bucket ----

    static void openBucket(const rv::PixelWindow& window)
    {
        closeBucket();
        samples() = rv::createSampleStore(window.width * window.height, window.samples, 0);
        ASSERT_TRUE(samples());
        rv::coverWindow(samples(), window);
    }
    static void closeBucket()
    {
        rv::destroySampleStore(samples());
        samples() = nullptr;
    }
    static RtSampleStore*& samples()
    {
        static RtSampleStore* store = nullptr;
        return store;
    }

    static RtSampleSink sinkAt(int x, int y, int sample, int depth = 0)
    {
        return { samples(), x, y, sample, depth };
    }

    static void measure(RtSampleSink sink, float u, float v, float microseconds = 0, float rays = 0)
    {
        rv::recordMeasures(&sink, { { u, v }, microseconds, rays });
    }

    // Calls set(sg) for the shading point of that camera sample.
    template <class Set> static bool shade(RtSampleSink sink, Set set)
    {
        RtShaderGlobals sg = {};
        sg.sample_output = &sink;
        return set(&sg);
    }

    // Writes numbers as a value of that type.
    static bool setNumbers(RtShaderGlobals* sg, const char* name, int type,
                           const std::vector<float>& v)
    {
        switch (type) {
        case RV_TYPE_INT: return RvAOVSetInt(sg, name, int(v[0]));
        case RV_TYPE_BOOLEAN: return RvAOVSetBool(sg, name, v[0] != 0);
        case RV_TYPE_FLOAT: return RvAOVSetFlt(sg, name, v[0]);
        case RV_TYPE_RGB: return RvAOVSetRGB(sg, name, { v[0], v[1], v[2] });
        case RV_TYPE_RGBA: return RvAOVSetRGBA(sg, name, { v[0], v[1], v[2], v[3] });
        case RV_TYPE_VECTOR: return RvAOVSetVec(sg, name, { v[0], v[1], v[2] });
        case RV_TYPE_POINT: return RvAOVSetPnt(sg, name, { v[0], v[1], v[2] });
        case RV_TYPE_POINT2: return RvAOVSetPnt2(sg, name, { v[0], v[1] });
        default: return false;
        }
    }

    // The numbers of what a driver was given for an output, pixel by pixel.
    static std::vector<float> pixelsOf(const std::string& output)
    {
        const Layer& layer = probe().layers.at(output);
        std::vector<float> numbers;
        const char* const end = layer.pixels.data() + layer.pixels.size();
        for (const char* at = layer.pixels.data(); at < end; at += rv::typeSize(layer.type))
            for (int i = 0; i < rv::numberCount(layer.type); ++i)
                numbers.push_back(layer.type == RV_TYPE_INT ? float(rv::loadAs<int>(at))
                                  : layer.type == RV_TYPE_BOOLEAN
                                      ? float(rv::loadAs<bool>(at))
                                      : rv::loadAs<float>(at + size_t(i) * sizeof(float)));
        return numbers;
    }

    // The pixel (0, 0) of the output "v".
    static std::vector<float> filteredPixel()
    {
        rv::deliverBucket(samples(), 0, 0, 1, 1);
        return pixelsOf("v");
    }

    // An iterator as filters get it, before its first pixel.
    static RtAOVSampleIterator iteratorOf(const char* aov, float radius, int padding)
    {
        RtAOVSampleIterator it = {};
        it.store = samples();
        it.aov = rv::findAOV(aov);
        it.radius = radius;
        it.radius_pixels = padding;
        RvAOVSampleIteratorInitPixel(&it, 0, 0);
        return it;
    }
};

} // namespace output_tools

#endif
