/* A plug-in for the tests of stopping: the shader "endless_shader" never returns. */
#include <ruvell/rv.h>

#include <string.h>
#include <unistd.h>

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    (void)params;
    (void)metadata;
}

static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    (void)node;
    (void)sg;
    for (;;)
        pause();
}

static const RtCommonMethods common = { parameters, NULL, NULL, NULL };
static const RtShaderMethods shader = { evaluate };
static const RtNodeMethods methods = { &common, &shader };

RV_PLUGIN_EXPORT bool NodeLoader(int i, RtNodeLoader* loader)
{
    if (i > 0)
        return false;
    loader->node_type = RV_NODE_SHADER;
    loader->output_type = RV_TYPE_RGB;
    loader->name = "endless_shader";
    loader->methods = &methods;
    strcpy(loader->version, RV_VERSION);
    return true;
}
