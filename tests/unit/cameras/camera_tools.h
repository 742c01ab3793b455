// What the tests of cameras share: prepared camera nodes, plug-in camera types and the settings of
// golden vectors.
#ifndef RV_CAMERA_TOOLS_H
#define RV_CAMERA_TOOLS_H

#include "array.h"
#include "cameras/camera.h"
#include "golden.h"
#include "node_tools.h"
#include "universe_fixture.h"

namespace camera_tools {

using nlohmann::json;

inline const char* const camera_types[] = { "persp_camera", "ortho_camera", "fisheye_camera",
                                            "cyl_camera" };

inline RtPoint pointOf(const json& v)
{
    return { goldenFloat(v[0]), goldenFloat(v[1]), goldenFloat(v[2]) };
}

inline std::vector<float> floats(const RtPoint& p) { return { p.x, p.y, p.z }; }

inline std::vector<float> floats(const RtMatrix& matrix)
{
    return std::vector<float>(&matrix.m[0][0], &matrix.m[0][0] + 16);
}

inline RtMatrix matrixOf(const json& rows)
{
    RtMatrix matrix;
    const std::vector<float> values = goldenFloats(rows);
    memcpy(&matrix, values.data(), sizeof matrix);
    return matrix;
}

// The values as motion keys of a FLOAT array.
inline RtArray* floatKeys(const std::vector<float>& keys)
{
    RtArray* const array = RvArrayAllocate(1, unsigned(keys.size()), RV_TYPE_FLOAT);
    memcpy(array->data, keys.data(), keys.size() * sizeof(float));
    return array;
}

// The values as elements of a FLOAT array.
inline RtArray* floatElements(const std::vector<float>& values)
{
    return RvArrayConvert(int(values.size()), 1, RV_TYPE_FLOAT, const_cast<float*>(values.data()),
                          true);
}

inline RtArray* pointKeys(int type, const std::vector<RtPoint>& keys)
{
    RtArray* const array = RvArrayAllocate(1, unsigned(keys.size()), type);
    memcpy(array->data, keys.data(), keys.size() * sizeof(RtPoint));
    return array;
}

inline RtArray* matrixKeys(const std::vector<RtMatrix>& keys)
{
    RtArray* const array = RvArrayAllocate(1, unsigned(keys.size()), RV_TYPE_MATRIX);
    memcpy(array->data, keys.data(), keys.size() * sizeof(RtMatrix));
    return array;
}

inline RtMatrix translation(float x, float y, float z)
{
    RtMatrix matrix;
    const RtVector t = { x, y, z };
    RvM4Translation(&matrix, &t);
    return matrix;
}

inline RtCameraRayOutput freshOutput()
{
    RtCameraRayOutput output = {};
    output.dir = RV_V3_NEGZ;
    output.weight = 1;
    return output;
}

inline RtCameraRayOutput createRay(RtNode* camera, const RtCameraRayInput& input)
{
    RtCameraRayOutput output = freshOutput();
    static_cast<const RtCameraMethods*>(camera->entry->kind_methods)
        ->CreateRay(camera, &input, &output);
    return output;
}

// The methods of plug-in cameras: rays go the way their parameter "tilt" says.
inline const RtNodeMethods& pluginMethods(bool laid_out)
{
    struct Params {
        float tilt;
        rv::CameraParams common;
        const char* name;
    };
    static const RtCommonMethods slots = {
        .Parameters = [](RtList* params,
                         RtMetaDataStore*) { RvNodeParamFLT(params, -1, "tilt", 0.25f); },
        .Initialize = [](RtNode* node, void* data) { RvCameraInitialize(node, data); },
        .Update = [](RtNode* node, void*) { RvCameraUpdate(node, true); },
        .Finish = [](RtNode* node) { RvCameraDestroy(node); },
    };
    static const RtCommonMethods record = {
        .Parameters =
            [](RtList* params, RtMetaDataStore* metadata) {
                rv::declareLayout<Params>(metadata);
                RvNodeParamFLT(params, RV_FIELD(Params, tilt), 0.25f);
            },
        .Initialize = slots.Initialize,
        .Update = slots.Update,
        .Finish = slots.Finish,
    };
    static const RtCameraMethods rays = {
        .CreateRay =
            [](RtNode* node, const RtCameraRayInput*, RtCameraRayOutput* output) {
                output->dir = { RvNodeGetFlt(node, "tilt"), 0, -0.5f };
            },
    };
    static const RtNodeMethods in_slots = { &slots, &rays }, in_record = { &record, &rays };
    return laid_out ? in_record : in_slots;
}

class Cameras : public Universe {
protected:
    // A camera node called "cam", not yet prepared.
    static RtNode* make(const char* type) { return node_tools::named(type, "cam"); }

    // Does for one node what the preparation of a render does for all.
    static void initialize(RtNode* node)
    {
        if (node->entry->methods->Initialize)
            node->entry->methods->Initialize(node, node->params);
        node->initialized = true;
    }
    static void update(RtNode* node)
    {
        if (node->entry->methods->Update)
            node->entry->methods->Update(node, node->params);
    }
    static RtNode* prepared(RtNode* node)
    {
        initialize(node);
        takeProblems();
        update(node);
        return node;
    }
    static RtNode* preparedCamera(const char* type) { return prepared(make(type)); }

    static void setImage(int xres, int yres, float aspect_ratio = 1)
    {
        RtNode* const options = RvUniverseGetOptions();
        RvNodeSetInt(options, "xres", xres);
        RvNodeSetInt(options, "yres", yres);
        RvNodeSetFlt(options, "aspect_ratio", aspect_ratio);
    }

    static RtMatrix cameraToWorld(const RtNode* camera, float time = 0)
    {
        RtMatrix matrix = RV_M4_ZERO;
        RvCameraToWorldMatrix(camera, time, &matrix);
        return matrix;
    }
    static RtMatrix worldToScreen(const RtNode* camera, float time = 0)
    {
        RtMatrix matrix = RV_M4_ZERO;
        RvWorldToScreenMatrix(camera, time, &matrix);
        return matrix;
    }

    // ---- Settings of golden vectors ----

    static void setFloatKeys(RtNode* camera, const char* param, const json& in, const char* key)
    {
        if (in.contains(key) && RvNodeEntryLookUpParameter(camera->entry, param))
            RvNodeSetArray(camera, param, floatKeys(goldenFloats(in.at(key))));
    }

    static void applyLens(RtNode* camera, const json& in)
    {
        setFloatKeys(camera, "fov", in, "fov");
        setFloatKeys(camera, "horizontal_fov", in, "hfov");
        setFloatKeys(camera, "vertical_fov", in, "vfov");
        setFloatKeys(camera, "aperture_size", in, "aperture");
        setFloatKeys(camera, "focus_distance", in, "focus");
        setFloatKeys(camera, "focal_distance", in, "focus");
        if (in.contains("projective"))
            RvNodeSetBool(camera, "projective", in.at("projective"));
        if (in.contains("autocrop"))
            RvNodeSetBool(camera, "autocrop", in.at("autocrop"));
        if (!RvNodeEntryLookUpParameter(camera->entry, "aperture_blades"))
            return;
        RvNodeSetInt(camera, "aperture_blades", in.at("blades"));
        RvNodeSetFlt(camera, "aperture_rotation", goldenFloat(in.at("rotation")));
        RvNodeSetFlt(camera, "aperture_blade_curvature", goldenFloat(in.at("curvature")));
        RvNodeSetFlt(camera, "aperture_aspect_ratio", goldenFloat(in.at("aspect")));
    }

    static void applyTimes(RtNode* camera, const json& in)
    {
        RvNodeSetArray(camera, "time_samples", floatElements(goldenFloats(in.at("time_samples"))));
        std::vector<RtMatrix> keys;
        for (const json& rows : in.at("matrices"))
            keys.push_back(matrixOf(rows));
        RvNodeSetArray(camera, "matrix", matrixKeys(keys));
    }

    static void applyShutter(RtNode* camera, const json& in)
    {
        RvNodeSetFlt(camera, "shutter_start", goldenFloat(in.at("shutter_start")));
        RvNodeSetFlt(camera, "shutter_end", goldenFloat(in.at("shutter_end")));
        if (in.contains("shutter_type"))
            RvNodeSetStr(camera, "shutter_type", in.at("shutter_type").get<std::string>().c_str());
        if (in.contains("ignore_motion_blur"))
            RvNodeSetBool(RvUniverseGetOptions(), "ignore_motion_blur",
                          in.at("ignore_motion_blur"));
    }

    static void applyWindow(RtNode* camera, const json& in)
    {
        setImage(in.at("xres"), in.at("yres"), goldenFloat(in.at("aspect_ratio")));
        const std::vector<float> low = goldenFloats(in.at("window_min"));
        const std::vector<float> high = goldenFloats(in.at("window_max"));
        RvNodeSetPnt2(camera, "screen_window_min", low[0], low[1]);
        RvNodeSetPnt2(camera, "screen_window_max", high[0], high[1]);
    }

    static void applyClip(RtNode* camera, const json& in)
    {
        RvNodeSetFlt(camera, "near_clip", goldenFloat(in.at("near")));
        RvNodeSetFlt(camera, "far_clip", goldenFloat(in.at("far")));
    }
};

} // namespace camera_tools

#endif
