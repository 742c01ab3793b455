// render_steps: the table of the steps that other subsystems carry out.
#include "render_steps.h"

#include "aovs/output_store.h"
#include "buckets.h"
#include "stats.h"
#include "texture.h"

namespace rv {

const RenderSteps present_steps = {
    .applyTextureOptions = applyTextureOptions,
    .createBucketRenderer = createBucketRenderer,
    .destroyBucketRenderer = destroyBucketRenderer,
    .prepareOutputs = prepareOutputs,
    .runBuckets = runBuckets,
    .closeOutputs = closeOutputs,
    .printStatistics = printStatistics,
};

} // namespace rv
