// override: the "override" node type, parameter changes kept for a node that does not exist yet.
#include "override.h"

namespace rv {

struct Override {
    const char* node_name;
    RtArray* param_name;  // STRING
    RtArray* param_value; // ARRAY of BYTE: the text as written, a newline and a zero
    int param_count;      // entries in use of both arrays
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Override>(metadata);
    RvNodeParamSTR(params, RV_FIELD(Override, node_name), "");
    RvNodeParamARRAY(params, RV_FIELD(Override, param_name), RvArray(0, 1, RV_TYPE_STRING));
    RvNodeParamARRAY(params, RV_FIELD(Override, param_value), RvArray(0, 1, RV_TYPE_ARRAY));
    RvNodeParamINT(params, RV_FIELD(Override, param_count), 0);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

const RtNodeMethods override_methods = { &common, nullptr };

} // namespace rv
