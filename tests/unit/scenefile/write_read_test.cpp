// What is written reads back the same, and is then written the same again.
#include "write_tools.h"

#include "objects/gobject.h"

using namespace write_tools;

class SceneRoundTrip : public Universe {
protected:
    void TearDown() override
    {
        rv::scene_file_line = -1;
        Universe::TearDown();
    }
};

// ---- Values other than the default ----

// Few digits, so that the text holds them exactly.
static float otherThan(float value) { return value > -1e6f && value < 1e6f ? value + 0.5f : 0.25f; }

// Values of pointers mean nothing to another process.
static bool isReadable(int type) { return type != RV_TYPE_POINTER; }

static RtArray* arrayOfOthers(int type, unsigned elements, unsigned keys, RtNode* target)
{
    RtArray* const array = RvArrayAllocate(elements, keys, type);
    for (unsigned i = 0; i < elements * keys; ++i) {
        const float f = float(i) + 0.25f;
        const RtPoint point = { f, -f, 2 };
        const RtRGBA rgba = { f, 1, 0.5f, f + 1 };
        const RtMatrix matrix = filledMatrix(f, 0.5f);
        switch (type) {
        case RV_TYPE_BYTE: RvArraySetByte(array, i, uint8_t(i + 200)); break;
        case RV_TYPE_INT: RvArraySetInt(array, i, -5 - int(i)); break;
        case RV_TYPE_UINT: RvArraySetUInt(array, i, 4000000000u + i); break;
        case RV_TYPE_BOOLEAN: RvArraySetBool(array, i, i % 2 == 0); break;
        case RV_TYPE_FLOAT: RvArraySetFlt(array, i, f); break;
        case RV_TYPE_RGBA: RvArraySetRGBA(array, i, rgba); break;
        case RV_TYPE_RGB:
        case RV_TYPE_VECTOR:
        case RV_TYPE_POINT: memcpy(static_cast<RtPoint*>(array->data) + i, &point, 12); break;
        case RV_TYPE_POINT2: memcpy(static_cast<RtPoint2*>(array->data) + i, &point, 8); break;
        case RV_TYPE_STRING: RvArraySetStr(array, i, formatted("text \"%u\"", i).c_str()); break;
        case RV_TYPE_NODE: static_cast<RtNode**>(array->data)[i] = target; break;
        case RV_TYPE_MATRIX: RvArraySetMtx(array, i, &matrix); break;
        default: ADD_FAILURE() << type;
        }
    }
    return array;
}

static void setToOther(RtNode* node, const RtParamEntry* param, unsigned elements, RtNode* target)
{
    const char* const name = RvParamGetName(param);
    const RtParamValue& value = *RvParamGetDefault(param);
    const RtMatrix matrix = filledMatrix(0.5f, 2);
    switch (RvParamGetType(param)) {
    case RV_TYPE_BYTE: RvNodeSetByte(node, name, uint8_t(value.BYTE + 1)); break;
    case RV_TYPE_INT: RvNodeSetInt(node, name, value.INT / 2 + 3); break;
    case RV_TYPE_UINT: RvNodeSetUInt(node, name, value.UINT + 3); break;
    case RV_TYPE_BOOLEAN: RvNodeSetBool(node, name, !value.BOOL); break;
    case RV_TYPE_FLOAT: RvNodeSetFlt(node, name, otherThan(value.FLT)); break;
    case RV_TYPE_RGB: RvNodeSetRGB(node, name, otherThan(value.RGB.r), 0.25f, 2); break;
    case RV_TYPE_RGBA: RvNodeSetRGBA(node, name, otherThan(value.RGBA.r), 0.25f, 2, 3); break;
    case RV_TYPE_VECTOR: RvNodeSetVec(node, name, otherThan(value.VEC.x), -0.25f, 2); break;
    case RV_TYPE_POINT: RvNodeSetPnt(node, name, otherThan(value.PNT.x), -0.25f, 2); break;
    case RV_TYPE_POINT2: RvNodeSetPnt2(node, name, otherThan(value.PNT2.x), -0.25f); break;
    case RV_TYPE_STRING: RvNodeSetStr(node, name, "a \"quoted\" text"); break;
    case RV_TYPE_NODE: RvNodeSetPtr(node, name, target); break;
    case RV_TYPE_MATRIX: RvNodeSetMatrix(node, name, &matrix); break;
    case RV_TYPE_ENUM:
        RvNodeSetInt(node, name,
                     RvEnumValueIsValid(param->enum_names, value.ENUM + 1) ? value.ENUM + 1
                                                                           : value.ENUM - 1);
        break;
    case RV_TYPE_ARRAY:
        if (value.ARRAY && isReadable(value.ARRAY->type))
            giveArray(node, name, arrayOfOthers(value.ARRAY->type, elements, 2, target));
        break;
    default: EXPECT_EQ(RvParamGetType(param), RV_TYPE_POINTER) << name;
    }
}

// The reader acts upon these: types and parameters are ignored, libraries are loaded, colours of
// shaders are decoded.
static bool actsWhenRead(const char* param)
{
    for (const char* name : { "ignore_list", "shader_searchpath", "shader_gamma" })
        if (!strcmp(param, name))
            return true;
    return false;
}

static void setAllToOther(RtNode* node, RtNode* target)
{
    for (unsigned i = 0; i < node->entry->num_params; ++i) {
        const RtParamEntry* const param = &node->entry->params[i];
        const bool is_transform =
            node->entry->type == RV_NODE_SHAPE && !strcmp(param->name, "matrix");
        if (i != node->name_index && !actsWhenRead(param->name))
            setToOther(node, param, is_transform ? 1 : 2 + i % 9, target);
    }
}

// ---- What is compared ----

static std::string nodeText(const void* node)
{
    return node ? RvNodeGetName(static_cast<const RtNode*>(node)) : "null";
}

static std::string valueText(int type, const void* at)
{
    if (type == RV_TYPE_NODE)
        return nodeText(*static_cast<void* const*>(at));
    if (type != RV_TYPE_ARRAY)
        return describeElement(type, at);
    const RtArray* const array = *static_cast<RtArray* const*>(at);
    if (!array || array->type != RV_TYPE_NODE)
        return describe(array);
    std::string text = formatted("NODE %ux%u", array->nelements, unsigned(array->nkeys));
    for (unsigned i = 0; i < array->nelements * array->nkeys; ++i)
        text += " " + nodeText(static_cast<void* const*>(array->data)[i]);
    return text;
}

static std::string linksText(const RtNode* node, unsigned index)
{
    std::string text;
    for (int i = 0; node->links && i < 4; ++i) {
        const uintptr_t slot = node->links[index].slot[i];
        text += slot ? " " + nodeText(reinterpret_cast<void*>(slot & ~rv::component_marker)) : " -";
    }
    return text == " - - - -" ? "" : text;
}

static std::string userParamText(const RtUserParamEntry& user)
{
    const bool is_array = rv::holdsArray(user);
    std::string text = formatted("%s %d %d %d ", user.name, int(user.category), int(user.type),
                                 int(user.array_type));
    if (user.type == RV_TYPE_MATRIX && !is_array)
        return text + (user.value.pMTX ? describe(*user.value.pMTX) : "null");
    return text + valueText(is_array ? RV_TYPE_ARRAY : user.type, &user.value);
}

// All that a scene file is to keep of a node, a line for each thing.
static std::string contentOf(const RtNode* node)
{
    std::string text = std::string(node->entry->name) + " before " + nodeText(node->before) + "\n";
    for (unsigned i = 0; i < node->entry->num_params; ++i) {
        const RtParamEntry* const param = &node->entry->params[i];
        const void* const at = param->type == RV_TYPE_MATRIX ? rv::matrixBytes(node, param)
                                                             : rv::paramStorage(node, param);
        const std::string links = linksText(node, i);
        text += std::string(param->name) + " " + links;
        text += links.empty() ? valueText(param->type, at) + "\n" : "\n";
    }
    for (unsigned i = 0; i < node->user_param_count; ++i)
        text += userParamText(node->user_params[i]) + "\n";
    return text;
}

static std::map<std::string, std::string> contentOfScene()
{
    std::map<std::string, std::string> content;
    RtNodeIterator* const it = RvUniverseGetNodeIterator(RV_NODE_ALL);
    while (!RvNodeIteratorFinished(it)) {
        const RtNode* const node = RvNodeIteratorGetNext(it);
        content[RvNodeGetName(node)] = contentOf(node);
    }
    RvNodeIteratorDestroy(it);
    return content;
}

// ---- The scene of everything ----

// Required: the reader takes "override" for a statement of its own.
static bool isWritten(const RtNodeEntry* entry)
{
    return strcmp(entry->name, "override") != 0 && strcmp(entry->name, "list_aggregate") != 0;
}

static std::vector<const RtNodeEntry*> writtenTypes()
{
    std::vector<const RtNodeEntry*> types;
    RtNodeEntryIterator* const it = RvUniverseGetNodeEntryIterator(RV_NODE_ALL);
    while (!RvNodeEntryIteratorFinished(it)) {
        const RtNodeEntry* const entry = RvNodeEntryIteratorGetNext(it);
        if (isWritten(entry))
            types.push_back(entry);
    }
    RvNodeEntryIteratorDestroy(it);
    return types;
}

static void declareEveryUserType(RtNode* node, RtNode* target)
{
    for (int type = 0; type < type_count; ++type) {
        if (type == RV_TYPE_ENUM || type == RV_TYPE_ARRAY || !isReadable(type))
            continue;
        const char* const type_name = type_names[type];
        const auto declared = [&](const char* category) {
            const std::string name = formatted("%s_%s", category, type_name);
            EXPECT_TRUE(
                RvNodeDeclare(node, name.c_str(), formatted("%s %s", category, type_name).c_str()));
            return name;
        };
        const std::string constant = declared("constant");
        if (type == RV_TYPE_NODE)
            RvNodeSetPtr(node, constant.c_str(), target);
        else
            accessor(type).set(node, constant.c_str(), 3);
        for (const char* category : { "uniform", "varying" })
            giveArray(node, declared(category).c_str(), arrayOfOthers(type, 3, 1, target));
        const std::string array = formatted("array_%s", type_name);
        EXPECT_TRUE(
            RvNodeDeclare(node, array.c_str(), formatted("constant ARRAY %s", type_name).c_str()));
        giveArray(node, array.c_str(), arrayOfOthers(type, 1, 1, target));
    }
}

static void installTestTypes()
{
    installEveryType("laid_out", true);
    installEveryType("slots", false);
}

// A node of every type with every parameter set, nodes with links and with user parameters.
static void makeSceneOfEverything()
{
    RvNodeSetBool(RvUniverseGetOptions(), "preserve_scene_data", true);
    RtNode* const target = named("persp_camera", "target");
    for (const RtNodeEntry* entry : writtenTypes()) {
        RtNode* const node = RvNode(entry->name);
        if (node != RvUniverseGetOptions())
            RvNodeSetStr(node, "name", formatted("%s_of_everything", entry->name).c_str());
        setAllToOther(node, target);
    }
    RtNode* const lambert = named("lambert", "linked");
    RtNode* const image = named("image", "picture");
    RvNodeLink(image, "Kd_color", lambert);
    RvNodeLink(RvNodeLookUpByName("noise_of_everything"), "opacity.g", lambert);
    RvNodeLink(image, "@before", lambert);
    declareEveryUserType(named("polymesh", "with_data"), target);
}

TEST_F(SceneRoundTrip, a_scene_of_everything_reads_back_the_same)
{
    for (const char* ending : { ".rvs", ".rvs.gz" }) {
        const TemporaryFile file("");
        const std::string name = file.path + ending;
        installTestTypes();
        makeSceneOfEverything();
        EXPECT_EQ(takeProblem(), "");
        ASSERT_EQ(RvRVSWrite(name.c_str(), everything, false), 0);
        const auto content = contentOfScene();
        const std::string text = sceneText();

        TearDown();
        SetUp();
        installTestTypes();
        EXPECT_EQ(RvRVSLoad(name.c_str()), 0);
        EXPECT_EQ(takeProblem(), "");
        const auto read = contentOfScene();
        EXPECT_EQ(read.size(), content.size());
        for (const auto& [node, expected] : content)
            EXPECT_EQ(read.count(node) ? read.at(node) : "", expected) << node;
        EXPECT_EQ(sceneText(), text);
        std::filesystem::remove(name);
        TearDown();
        SetUp();
    }
}

TEST_F(SceneRoundTrip, the_scene_of_everything_has_changed_values_of_every_type)
{
    installTestTypes();
    makeSceneOfEverything();
    std::set<int> types, element_types;
    unsigned changed = 0, total = 0;
    for (const RtNodeEntry* entry : writtenTypes()) {
        const RtNode* const node =
            RvNodeIs(RvUniverseGetOptions(), entry->name)
                ? RvUniverseGetOptions()
                : RvNodeLookUpByName(formatted("%s_of_everything", entry->name).c_str());
        ASSERT_TRUE(node) << entry->name;
        for (unsigned i = 0; i < entry->num_params; ++i) {
            const RtParamEntry& param = entry->params[i];
            ++total;
            if (!node->set_flags[i])
                continue;
            ++changed;
            types.insert(param.type);
            if (param.type == RV_TYPE_ARRAY)
                element_types.insert(rv::loadArray(node, &param)->type);
        }
    }
    EXPECT_EQ(types.size(), 15u);         // without POINTER
    EXPECT_EQ(element_types.size(), 13u); // without POINTER, ARRAY and ENUM
    EXPECT_GT(changed, total * 9 / 10);
}

// Every float prints with eight digits, and the text of what is read from them is the same.
TEST_F(SceneRoundTrip, floats_are_written_the_same_again)
{
    RvNodeSetBool(RvUniverseGetOptions(), "preserve_scene_data", true);
    RtNode* const node = named("lambert", "l");
    ASSERT_TRUE(RvNodeDeclare(node, "floats", "constant ARRAY FLOAT"));
    constexpr unsigned count = 100000;
    RtArray* const array = RvArrayAllocate(count, 1, RV_TYPE_FLOAT);
    uint32_t bits = 1;
    for (unsigned i = 0; i < count; ++i) {
        float value = 0;
        do {
            bits = bits * 1664525 + 1013904223;
            memcpy(&value, &bits, sizeof value);
        } while (!rv::isUsableFloat(value));
        RvArraySetFlt(array, i, value);
    }
    RvNodeSetArray(node, "floats", array);
    const TemporaryFile file("");
    ASSERT_EQ(RvRVSWrite(file.path.c_str(), RV_NODE_SHADER, false), 0);
    TearDown();
    SetUp();
    ASSERT_EQ(RvRVSLoad(file.path.c_str()), 0);
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(sceneText(RV_NODE_SHADER), belowHeader(file.read()));
}

// Required: a quote is escaped, and the reader drops the backslash again.
TEST_F(SceneRoundTrip, strings_with_quotes_read_back_unchanged)
{
    for (const char* text : { "say \"hello\"", "\"", "\"\"", "\"#\"", "line\nbreak", "" }) {
        const TemporaryFile file("");
        RvNodeSetStr(named("image", "i"), "filename", text);
        ASSERT_EQ(RvRVSWrite(file.path.c_str(), RV_NODE_SHADER, false), 0);
        TearDown();
        SetUp();
        ASSERT_EQ(RvRVSLoad(file.path.c_str()), 0);
        EXPECT_STREQ(RvNodeGetStr(RvNodeLookUpByName("i"), "filename"), text);
        TearDown();
        SetUp();
    }
}

TEST_F(SceneRoundTrip, after_a_load_one_line_less_is_told_than_was_written)
{
    const TemporaryFile file("sphere { name s }\n"), written("");
    ASSERT_EQ(RvRVSLoad(file.path.c_str()), 0);
    messages().clear();
    ASSERT_EQ(RvRVSWrite(written.path.c_str(), RV_NODE_SHADER, false), 0);
    bool is_told = false;
    for (const LoggedMessage& m : messages())
        is_told = is_told || m.text.rfind("wrote 0 nodes in 4 lines in ", 0) == 0;
    EXPECT_TRUE(is_told);
    const std::string text = written.read();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 5);
}

// ---- Instances ----

TEST_F(SceneRoundTrip, an_instance_that_was_prepared_reads_back_as_it_stood)
{
    RtMatrix source, own;
    const RtVector by = { 1, 2, 3 }, more = { 10, 0, 0 };
    RvM4Translation(&source, &by);
    RvM4Translation(&own, &more);
    RtNode* const sphere = named("sphere", "ball");
    RtNode* const instance = named("ginstance", "again");
    RvNodeSetArray(sphere, "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &source));
    RvNodeSetArray(instance, "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &own));
    RvNodeSetPtr(instance, "node", sphere);
    RvNodeSetInt(instance, "visibility", 3);
    rv::RvNodeInitialize(instance);
    const std::string world = describe(rv::objectOf(instance)->matrices[0]);

    const TemporaryFile file("");
    ASSERT_EQ(RvRVSWrite(file.path.c_str(), RV_NODE_SHAPE, false), 0);
    TearDown();
    SetUp();
    ASSERT_EQ(RvRVSLoad(file.path.c_str()), 0);
    EXPECT_EQ(takeProblem(), "");
    RtNode* const read = RvNodeLookUpByName("again");
    ASSERT_TRUE(read);
    rv::RvNodeInitialize(read);
    ASSERT_TRUE(rv::objectOf(read));
    EXPECT_EQ(describe(rv::objectOf(read)->matrices[0]), world);
    EXPECT_EQ(RvNodeGetInt(read, "visibility"), 3);
}

static RtNode* instanceAt(const char* name, RtNode* source, float x)
{
    const RtVector by = { x, 2, 3 };
    RtMatrix matrix;
    RvM4Translation(&matrix, &by);
    RtNode* const instance = named("ginstance", name);
    RvNodeSetArray(instance, "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &matrix));
    RvNodeSetPtr(instance, "node", source);
    return instance;
}

static std::string placeOf(const char* name)
{
    RtNode* const node = RvNodeLookUpByName(name);
    if (!node)
        return "none";
    rv::RvNodeInitialize(node);
    return describe(rv::objectOf(node)->matrices[0]);
}

TEST_F(SceneRoundTrip, an_instance_of_an_instance_reads_back_as_it_stood)
{
    for (const bool inherits : { false, true }) {
        RtNode* const inner = instanceAt("inner", named("sphere", "ball"), 10);
        RtNode* const outer = instanceAt("outer", inner, 200);
        RvNodeSetBool(outer, "inherit_xform", inherits);
        const std::string outer_place = placeOf("outer"), inner_place = placeOf("inner");

        const TemporaryFile file("");
        ASSERT_EQ(RvRVSWrite(file.path.c_str(), RV_NODE_SHAPE, false), 0);
        const std::string text = file.read();
        EXPECT_EQ(text.find("inherit_xform"), std::string::npos) << text;
        EXPECT_EQ(text.find(" node inner\n"), text.rfind(" node inner\n")) << text;
        TearDown();
        SetUp();
        ASSERT_EQ(RvRVSLoad(file.path.c_str()), 0);
        EXPECT_EQ(takeProblem(), "");
        EXPECT_EQ(placeOf("outer"), outer_place) << inherits;
        EXPECT_EQ(placeOf("inner"), inner_place) << inherits;
        TearDown();
        SetUp();
    }
}
