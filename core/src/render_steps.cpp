// render_steps: the table of the steps that other subsystems carry out. A subsystem that arrives
// puts its function in place of the neutral one.
#include "render_steps.h"

#include "aovs/output_store.h"
#include "buckets.h"
#include "declare.h"
#include "stats.h"

namespace rv {

const RenderSteps present_steps = {
    .applyTextureOptions = do_nothing,
    .createBucketRenderer = createBucketRenderer,
    .destroyBucketRenderer = destroyBucketRenderer,
    .prepareOutputs = prepareOutputs,
    .runBuckets = runBuckets,
    .closeOutputs = closeOutputs,
    .printStatistics = printStatistics,
};

} // namespace rv
