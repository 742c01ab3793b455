/* A library of node types for the tests of the plug-in loader. Definitions choose what it does:
   PREFIX          of the names of its types
   VERSION         it says it was built against; without one it says nothing
   SECOND_VERSION  of its second type, when that is another one
   ENDLESS         its list of types has no end
   ODD             its types lack what types should have */
#include "rv.h"

#include <stdio.h>
#include <string.h>
#include <time.h>

#define TEXT(x)    #x
#define TEXT_OF(x) TEXT(x)

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    (void)metadata;
    RvNodeParamSTR(params, -1, "label", "plain");
    RvNodeParamFLT(params, -1, "gain", 2);
}

static void finish(RtNode* node) { RvMsgInfo("%s is finished", RvNodeGetName(node)); }

static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    (void)node;
    sg->out.RGB = RV_RGB_RED;
}

static const RtCommonMethods common = { parameters, NULL, NULL, finish };
static const RtShaderMethods shader = { evaluate };
static const RtNodeMethods methods = { &common, &shader };

static void fill(RtNodeLoader* loader, int kind, const char* name,
                 const RtNodeMethods* type_methods)
{
    loader->node_type = kind;
    loader->output_type = kind == RV_NODE_SHADER ? RV_TYPE_RGB : RV_TYPE_NONE;
    loader->name = name;
    loader->methods = type_methods;
#ifdef VERSION
    strcpy(loader->version, TEXT_OF(VERSION));
#endif
}

#if defined ENDLESS

RV_PLUGIN_EXPORT bool NodeLoader(int i, RtNodeLoader* loader)
{
    static char names[8192][24];
    snprintf(names[i % 8192], sizeof names[0], "endless_%d", i);
    fill(loader, RV_NODE_SHADER, names[i % 8192], &methods);
    return true;
}

#elif defined ODD

static const RtNodeMethods no_tables = { NULL, NULL };
static const RtCommonMethods no_common_slots = { NULL, NULL, NULL, NULL };
static const RtNodeMethods no_slots = { &no_common_slots, NULL };

RV_PLUGIN_EXPORT bool NodeLoader(int i, RtNodeLoader* loader)
{
    static const int kinds[] = { RV_NODE_CAMERA, RV_NODE_LIGHT,  RV_NODE_SHAPE,
                                 RV_NODE_SHADER, RV_NODE_DRIVER, RV_NODE_FILTER };
    static char names[16][24];
    enum { kind_count = sizeof kinds / sizeof kinds[0] };
    if (i < 2 * kind_count) {
        snprintf(names[i], sizeof names[i], "odd_%d", i);
        fill(loader, kinds[i / 2], names[i], i % 2 ? &no_slots : &no_tables);
        return true;
    }
    switch (i - 2 * kind_count) {
    case 0: fill(loader, RV_NODE_SHADER, NULL, &methods); return true;
    case 1: fill(loader, RV_NODE_SHADER, "odd_without_methods", NULL); return true;
    case 2: fill(loader, RV_NODE_SHADER, "odd name", &methods); return true;
    case 3: fill(loader, RV_NODE_SHAPE, "sphere", &methods); return true;
    case 4: fill(loader, 3, "odd_kind", &methods); return true;
    case 5:
        fill(loader, RV_NODE_SHADER, "odd_version", &methods);
        memset(loader->version, '3', sizeof loader->version); /* without an end */
        memcpy(loader->version, "3.3.6.", 6);
        return true;
    default: return false;
    }
}

#else

/* Takes a while, so that the time shows. */
static void rest(void)
{
    const struct timespec time = { 0, 3000000 };
    nanosleep(&time, NULL);
}

RV_PLUGIN_EXPORT bool NodeLoader(int i, RtNodeLoader* loader)
{
    static const char* const names[] = { TEXT_OF(PREFIX) "_shader", TEXT_OF(PREFIX) "_other" };
    rest();
    if (i >= 2)
        return false;
    fill(loader, RV_NODE_SHADER, names[i], &methods);
#ifdef SECOND_VERSION
    if (i == 1)
        strcpy(loader->version, TEXT_OF(SECOND_VERSION));
#endif
    return true;
}

#endif
