// Sub-surface scattering from point clouds of irradiance, which each object gets when a shader asks
// for it first.
#ifndef RV_SSS_H
#define RV_SSS_H

#include "rv_shaderglobals.h"

#include <atomic>

// The light that scatters through the material to the point of the context, for a scattering radius
// per channel. Black with "ignore_sss", for other objects than polygon meshes, and wherever a cloud
// is being made: at its points and at all that is shaded for them.
RtRGB RvSSSPointCloudLookup(RtShaderGlobals* sg, const RtRGB* radius);

namespace rv {

// Around each render: what asks clouds that are being built to stop.
void startPointClouds(const std::atomic<int>* stop_request);
void endPointClouds();

// Whether a lookup of a render thread went without its cloud, because the render is to stop: what
// the thread shaded since lacks light.
bool lacksPointCloud(int thread);

} // namespace rv

#endif
