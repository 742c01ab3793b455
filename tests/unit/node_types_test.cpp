// The declarations of all built-in node types against a table of them, worked out independently.
#include "frame.h"
#include "metadata.h"
#include "nodes.h"
#include "options.h"
#include "rv_cameras.h"
#include "rv_drivers.h"
#include "rv_filters.h"
#include "rv_lights.h"
#include "rv_shaderglobals.h"
#include "rv_shapes.h"
#include "scene.h"
#include "universe_fixture.h"

#include <algorithm>

using nlohmann::json;

namespace {

struct NodeTypeCase {
    std::string name;
    json table;
};
void PrintTo(const NodeTypeCase& c, std::ostream* os) { *os << c.name; }

// The two types that the golden numbers leave out; common parameters and "name" are appended.
const char procedural_table[] = R"({
    "kind": "shape", "kind_code": 8, "output_type": "NONE", "num_params": 31,
    "own_param_count": 8, "type_metadata": { "_supports_rebuild": true },
    "params": [
        { "name": "dso", "type": "STRING", "default": "" },
        { "name": "data", "type": "STRING", "default": "" },
        { "name": "load_at_init", "type": "BOOL", "default": false },
        { "name": "min", "type": "POINT", "default": [0, 0, 0] },
        { "name": "max", "type": "POINT", "default": [0, 0, 0] },
        { "name": "userptr", "type": "POINTER", "default": null },
        { "name": "funcptr", "type": "POINTER", "default": null },
        { "name": "unload_dso", "type": "BOOL", "default": true }
    ] })";
const char override_table[] = R"({
    "kind": "override", "kind_code": 32, "output_type": "NONE", "num_params": 5,
    "own_param_count": 4, "type_metadata": {},
    "params": [
        { "name": "node_name", "type": "STRING", "default": "" },
        { "name": "param_name", "type": "ARRAY", "element_type": "STRING",
          "default": { "nelements": 0, "nkeys": 1, "values": [] } },
        { "name": "param_value", "type": "ARRAY", "element_type": "ARRAY",
          "default": { "nelements": 0, "nkeys": 1, "values": [] } },
        { "name": "param_count", "type": "INT", "default": 0 }
    ] })";

// A table of own parameters, completed by the last `tail` rows of the table of `model`.
json completed(const char* text, const json& model, size_t tail)
{
    json table = json::parse(text);
    for (json& row : table["params"])
        row["group"] = "own";
    const json& rows = model.at("params");
    for (size_t i = rows.size() - tail; i < rows.size(); ++i)
        table["params"].push_back(rows[i]);
    return table;
}

std::vector<NodeTypeCase> nodeTypeCases()
{
    std::vector<NodeTypeCase> cases;
    json sphere;
    for (const json& v : goldenVectors("node_types", "node_type")) {
        cases.push_back({ v.at("in").at("type"), v.at("out") });
        if (cases.back().name == "sphere")
            sphere = v.at("out");
    }
    const size_t common_and_name = sphere.at("params").size() - 2; // all but center and radius
    cases.push_back({ "procedural", completed(procedural_table, sphere, common_and_name) });
    cases.push_back({ "override", completed(override_table, sphere, 1) });
    return cases;
}

std::string typeName(int type) { return type == RV_TYPE_NONE ? "NONE" : RvParamGetTypeName(type); }

json numbers(const void* data, size_t count)
{
    const float* const f = static_cast<const float*>(data);
    return std::vector<double>(f, f + count);
}

json pointer(const void* p)
{
    if (!p)
        return nullptr;
    return reinterpret_cast<uintptr_t>(p);
}

json arrayOf(unsigned nelements, unsigned nkeys, const json& values)
{
    return { { "nelements", nelements }, { "nkeys", nkeys }, { "values", values } };
}

json arrayValue(const RtArray* array);

// A stored value, an array element or the member of an RtParamValue.
json storedValue(int type, const void* data)
{
    const auto as = [data](auto example) {
        memcpy(&example, data, sizeof example);
        return example;
    };
    switch (type) {
    case RV_TYPE_BYTE: return as(uint8_t());
    case RV_TYPE_INT:
    case RV_TYPE_ENUM: return as(int());
    case RV_TYPE_UINT: return as(0u);
    case RV_TYPE_BOOLEAN: return as(bool());
    case RV_TYPE_FLOAT: return as(float());
    case RV_TYPE_RGB:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT: return numbers(data, 3);
    case RV_TYPE_RGBA: return numbers(data, 4);
    case RV_TYPE_POINT2: return numbers(data, 2);
    case RV_TYPE_STRING: return as(static_cast<const char*>(nullptr));
    case RV_TYPE_POINTER:
    case RV_TYPE_NODE: return pointer(as(static_cast<void*>(nullptr)));
    case RV_TYPE_ARRAY: return arrayValue(as(static_cast<RtArray*>(nullptr)));
    case RV_TYPE_MATRIX: return numbers(data, 16);
    }
    return "a value of unknown type";
}

json arrayValue(const RtArray* array)
{
    if (!array)
        return nullptr;
    json values = json::array();
    const size_t size = static_cast<size_t>(RvParamGetTypeSize(array->type));
    for (size_t i = 0; i < size_t(array->nelements) * array->nkeys; ++i)
        values.push_back(storedValue(array->type, static_cast<char*>(array->data) + i * size));
    return arrayOf(array->nelements, array->nkeys, values);
}

json defaultValue(const RtParamEntry* param)
{
    const RtParamValue* const value = RvParamGetDefault(param);
    const bool matrix = RvParamGetType(param) == RV_TYPE_MATRIX;
    return storedValue(RvParamGetType(param), matrix ? static_cast<void*>(value->pMTX) : value);
}

// The value as the getter of its type returns it.
json nodeValue(const RtNode* node, const char* param, int type)
{
    const auto text = [](const char* s) { return s ? json(s) : json(nullptr); };
    const auto components = [](auto value) { return numbers(&value, sizeof value / 4); };
    switch (type) {
    case RV_TYPE_BYTE: return RvNodeGetByte(node, param);
    case RV_TYPE_INT:
    case RV_TYPE_ENUM: return RvNodeGetInt(node, param);
    case RV_TYPE_UINT: return RvNodeGetUInt(node, param);
    case RV_TYPE_BOOLEAN: return RvNodeGetBool(node, param);
    case RV_TYPE_FLOAT: return RvNodeGetFlt(node, param);
    case RV_TYPE_RGB: return components(RvNodeGetRGB(node, param));
    case RV_TYPE_RGBA: return components(RvNodeGetRGBA(node, param));
    case RV_TYPE_VECTOR: return components(RvNodeGetVec(node, param));
    case RV_TYPE_POINT: return components(RvNodeGetPnt(node, param));
    case RV_TYPE_POINT2: return components(RvNodeGetPnt2(node, param));
    case RV_TYPE_STRING: return text(RvNodeGetStr(node, param));
    case RV_TYPE_POINTER:
    case RV_TYPE_NODE: return pointer(RvNodeGetPtr(node, param));
    case RV_TYPE_ARRAY: return arrayValue(RvNodeGetArray(node, param));
    }
    RtMatrix matrix = RV_M4_ZERO;
    RvNodeGetMatrix(node, param, &matrix);
    return components(matrix);
}

// One parameter in the form of the golden rows, without metadata.
json describe(const RtNodeEntry* entry, const RtParamEntry* param)
{
    const unsigned index = param->index;
    json row = { { "name", RvParamGetName(param) },
                 { "group", index < entry->own_param_count  ? "own"
                            : index < entry->kind_param_end ? "kind"
                                                            : "name" },
                 { "type", typeName(RvParamGetType(param)) },
                 { "default", defaultValue(param) } };
    if (RvParamGetType(param) == RV_TYPE_ARRAY)
        row["element_type"] = typeName(RvParamGetDefault(param)->ARRAY->type);
    if (const char* const* names = RvParamGetEnum(param)) {
        const int value = RvParamGetDefault(param)->ENUM;
        row["default_name"] = RvEnumValueIsValid(names, value) ? RvEnumGetString(names, value) : "";
        for (; *names; ++names)
            row["enum"].push_back(*names);
    }
    return row;
}

json withoutMetadata(json row)
{
    for (const char* key : { "index", "metadata", "synonym" })
        row.erase(key);
    return row;
}

std::string metadataType(const json& value)
{
    return value.is_boolean() ? "BOOL" : value.is_string() ? "STRING" : "INT";
}

// Metadata as an object from "parameter/name/type" to the value.
void expect(json* all, const std::string& param, const std::string& name, const json& value)
{
    (*all)[param + "/" + name + "/" + metadataType(value)] = value;
}

json expectedMetadata(const json& table)
{
    json all = json::object();
    for (const auto& [name, value] : table.at("type_metadata").items())
        expect(&all, "", name, value);
    for (const json& row : table.at("params")) {
        if (row.contains("synonym"))
            expect(&all, row.at("name"), "synonym", row.at("synonym"));
        const json others = row.value("metadata", json::object());
        for (const auto& [name, value] : others.items())
            expect(&all, row.at("name"), name, value);
    }
    return all;
}

bool isLayoutKey(const RtMetaDataEntry& m)
{
    static const std::vector<std::string> keys = { "_struct_size", "_baseoffset", "_baseoffset2" };
    return !*m.param && m.type == RV_TYPE_INT &&
           std::find(keys.begin(), keys.end(), m.name) != keys.end();
}

json actualMetadata(const RtNodeEntry* entry)
{
    json all = json::object();
    for (const auto& [key, m] : entry->metadata->entries)
        if (!isLayoutKey(m))
            all[std::string(m.param) + "/" + m.name + "/" + typeName(m.type)] =
                storedValue(m.type, &m.value);
    return all;
}

int alignmentOf(int type)
{
    switch (type) {
    case RV_TYPE_BYTE:
    case RV_TYPE_BOOLEAN: return alignof(bool);
    case RV_TYPE_STRING:
    case RV_TYPE_POINTER:
    case RV_TYPE_NODE:
    case RV_TYPE_ARRAY: return alignof(void*);
    }
    return alignof(float);
}

int layoutKey(const RtNodeEntry* entry, const char* key)
{
    int value = -1;
    EXPECT_TRUE(RvMetaDataGetInt(entry, nullptr, key, &value)) << key;
    return value;
}

class NodeType : public Universe, public ::testing::WithParamInterface<NodeTypeCase> {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        entry = RvNodeEntryLookUp(GetParam().name.c_str());
        ASSERT_NE(entry, nullptr);
    }
    const json& table() const { return GetParam().table; }
    const RtParamEntry* param(unsigned i) const { return &entry->params[i]; }

    const RtNodeEntry* entry = nullptr;
};

INSTANTIATE_TEST_SUITE_P(BuiltIn, NodeType, ::testing::ValuesIn(nodeTypeCases()),
                         [](const auto& c) { return c.param.name; });

class NodeTypes : public Universe {};

} // namespace

TEST_P(NodeType, has_the_kind_output_type_and_parameters_of_its_table)
{
    EXPECT_EQ(RvNodeEntryGetTypeName(entry), table().at("kind").get<std::string>());
    EXPECT_EQ(RvNodeEntryGetType(entry), table().at("kind_code").get<int>());
    EXPECT_EQ(typeName(RvNodeEntryGetOutputType(entry)), table().at("output_type"));
    EXPECT_EQ(entry->own_param_count, table().at("own_param_count").get<unsigned>());
    ASSERT_EQ(entry->num_params, table().at("num_params").get<unsigned>());
    ASSERT_EQ(entry->num_params, table().at("params").size());
    for (unsigned i = 0; i < entry->num_params; ++i) {
        EXPECT_EQ(param(i)->index, i);
        EXPECT_EQ(describe(entry, param(i)), withoutMetadata(table().at("params")[i]));
    }
}

TEST_P(NodeType, carries_the_metadata_of_its_table_and_no_other)
{
    json expected = expectedMetadata(table());
    if (GetParam().name == "options") // Required: see the_options_keep_an_old_name_of_no_parameter
        expect(&expected, "error_on_bad_bounds", "synonym", "error_on_bad_procs");
    EXPECT_EQ(actualMetadata(entry), expected);
}

TEST_P(NodeType, ends_with_the_name_and_is_marked_as_built_in)
{
    const RtParamEntry* const last = param(entry->num_params - 1);
    EXPECT_STREQ(RvParamGetName(last), "name");
    EXPECT_EQ(RvParamGetType(last), RV_TYPE_STRING);
    EXPECT_STREQ(RvParamGetDefault(last)->STR, "default_name");
    EXPECT_STREQ(RvNodeEntryGetFilename(entry), "");
    EXPECT_STREQ(RvNodeEntryGetVersion(entry), "3.3.6.0");
}

TEST_P(NodeType, lays_its_parameters_out_apart_and_inside_the_record)
{
    ASSERT_GT(entry->struct_size, 0);
    std::vector<std::pair<int, int>> spans; // first byte, one past the last
    for (unsigned i = 0; i < entry->num_params; ++i) {
        const int offset = param(i)->offset, size = RvParamGetTypeSize(param(i)->type);
        EXPECT_GE(offset, 0) << param(i)->name;
        EXPECT_LE(offset + size, entry->struct_size) << param(i)->name;
        EXPECT_EQ(offset % alignmentOf(param(i)->type), 0) << param(i)->name;
        spans.push_back({ offset, offset + size });
    }
    std::sort(spans.begin(), spans.end());
    for (size_t i = 1; i < spans.size(); ++i)
        EXPECT_LE(spans[i - 1].second, spans[i].first);
}

TEST_P(NodeType, places_the_common_parameters_and_the_name_where_its_metadata_says)
{
    EXPECT_EQ(layoutKey(entry, "_struct_size"), entry->struct_size);
    EXPECT_EQ(layoutKey(entry, "_baseoffset"), entry->base_offset);
    EXPECT_EQ(layoutKey(entry, "_baseoffset2"), param(entry->num_params - 1)->offset);
    const bool has_common = entry->kind_param_end > entry->own_param_count;
    const unsigned first = has_common ? entry->own_param_count : entry->num_params - 1;
    EXPECT_EQ(entry->base_offset, param(first)->offset);
}

TEST_P(NodeType, gives_a_fresh_node_its_defaults)
{
    const RtNode* const node = RvNode(GetParam().name.c_str());
    ASSERT_NE(node, nullptr);
    const json default_shader = pointer(rv::the_frame->scene->default_reflection_shader);
    for (unsigned i = 0; i + 1 < entry->num_params; ++i) { // the name comes from the scene
        json expected = defaultValue(param(i));
        // Required: new shapes wear the default shader of the scene.
        if (param(i)->type == RV_TYPE_ARRAY && !strcmp(param(i)->name, "shader"))
            expected = arrayOf(1, 1, json::array({ default_shader }));
        EXPECT_EQ(nodeValue(node, param(i)->name, param(i)->type), expected) << param(i)->name;
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeType, fills_every_method_slot)
{
    static const struct {
        int kind;
        size_t table_size, slot_count;
    } kinds[] = {
        { RV_NODE_OPTIONS, 0, 0 },
        { RV_NODE_CAMERA, sizeof(RtCameraMethods), 1 },
        { RV_NODE_LIGHT, sizeof(RtLightMethods), 5 },
        { RV_NODE_SHAPE, sizeof(RtShapeMethods), 5 },
        { RV_NODE_SHADER, sizeof(RtShaderMethods), 1 },
        { RV_NODE_OVERRIDE, 0, 0 },
        { RV_NODE_DRIVER, sizeof(RtDriverMethods), 6 },
        { RV_NODE_FILTER, sizeof(RtFilterMethods), 2 },
    };
    EXPECT_TRUE(entry->methods->Parameters);
    EXPECT_TRUE(entry->methods->Initialize);
    EXPECT_TRUE(entry->methods->Update);
    EXPECT_TRUE(entry->methods->Finish);
    const auto* const kind = std::find_if(std::begin(kinds), std::end(kinds),
                                          [&](const auto& k) { return k.kind == entry->type; });
    ASSERT_NE(kind, std::end(kinds));
    ASSERT_EQ(kind->table_size, kind->slot_count * sizeof(void*));
    ASSERT_EQ(entry->kind_methods == nullptr, kind->slot_count == 0);
    for (size_t i = 0; i < kind->slot_count; ++i) {
        const void* slot = nullptr;
        memcpy(&slot, static_cast<const char*>(entry->kind_methods) + i * sizeof slot, sizeof slot);
        EXPECT_NE(slot, nullptr) << "slot " << i;
    }
}

TEST_F(NodeTypes, are_installed_in_order)
{
    const json expected = goldenVectors("node_types", "built_in_node_types").at(0).at("out");
    ASSERT_EQ(RvGetNumInstalledNodes(), expected.at("count").get<int>());
    for (int i = 0; i < RvGetNumInstalledNodes(); ++i) {
        const RtNodeEntry* const entry = RvNodeEntryLookUpByIndex(i);
        const size_t row = static_cast<size_t>(i);
        EXPECT_EQ(RvNodeEntryGetName(entry), expected.at("names_in_install_order")[row]);
        EXPECT_EQ(RvNodeEntryGetTypeName(entry), expected.at("kinds")[row]);
        EXPECT_EQ(typeName(RvNodeEntryGetOutputType(entry)), expected.at("output_types")[row]);
        EXPECT_EQ(RvNodeEntryGetVersion(entry), expected.at("version"));
        EXPECT_EQ(RvNodeEntryGetFilename(entry), expected.at("filename"));
    }
}

TEST_F(NodeTypes, have_a_row_each_in_the_tables_of_this_test)
{
    std::vector<std::string> tested, installed;
    for (const NodeTypeCase& c : nodeTypeCases())
        tested.push_back(c.name);
    for (int i = 0; i < RvGetNumInstalledNodes(); ++i)
        installed.push_back(RvNodeEntryGetName(RvNodeEntryLookUpByIndex(i)));
    std::sort(tested.begin(), tested.end());
    std::sort(installed.begin(), installed.end());
    EXPECT_EQ(tested, installed);
}

TEST_F(NodeTypes, accept_older_parameter_names_with_a_warning)
{
    for (const json& v : goldenVectors("node_types", "parameter_synonym")) {
        const std::string requested = v.at("in").at("requested");
        const std::string current = v.at("out").at("resolves_to");
        const RtNode* const node = RvNode(v.at("in").at("type").get<std::string>().c_str());
        ASSERT_NE(node, nullptr);
        const RtParamEntry* const param =
            RvNodeEntryLookUpParameter(RvNodeGetNodeEntry(node), requested.c_str());
        ASSERT_NE(param, nullptr) << requested;
        EXPECT_EQ(RvParamGetName(param), current);

        const json value = nodeValue(node, current.c_str(), RvParamGetType(param));
        EXPECT_EQ(takeProblem(), "");
        EXPECT_EQ(nodeValue(node, requested.c_str(), RvParamGetType(param)), value);
        std::string warning = v.at("out").at("warning");
        const std::string placeholder = "{node}";
        ASSERT_EQ(warning.find(placeholder), 0u);
        EXPECT_EQ(takeProblem(), warning.replace(0, placeholder.size(), RvNodeGetName(node)));
    }
}

TEST_F(NodeTypes, the_options_keep_an_old_name_of_no_parameter)
{
    const json v = goldenVectors("node_types", "options_stray_synonym").at(0);
    const RtNodeEntry* const entry = RvNodeEntryLookUp("options");
    const std::string param = v.at("in").at("param"), key = v.at("in").at("metadata");
    const char* old_name = nullptr;
    ASSERT_TRUE(RvMetaDataGetStr(entry, param.c_str(), key.c_str(), &old_name));
    EXPECT_EQ(old_name, v.at("out").at("metadata_value"));
    EXPECT_EQ(RvNodeEntryLookUpParameter(entry, param.c_str()) != nullptr,
              v.at("out").at("parameter_exists").get<bool>());
    EXPECT_EQ(RvNodeEntryLookUpParameter(entry, old_name) != nullptr,
              v.at("out").at("old_name_resolves").get<bool>());
}

TEST_F(NodeTypes, the_options_record_has_its_fields_in_order_of_declaration)
{
    const RtNodeEntry* const entry = RvNodeEntryLookUp("options");
    EXPECT_EQ(entry->struct_size, static_cast<int>(sizeof(RtOptions)));
    for (unsigned i = 1; i < entry->num_params; ++i)
        EXPECT_LT(entry->params[i - 1].offset, entry->params[i].offset) << entry->params[i].name;
}

TEST_F(NodeTypes, the_options_record_holds_what_the_getters_return)
{
    RtNode* const node = RvUniverseGetOptions();
    RvNodeSetInt(node, "region_max_x", 17);
    RvNodeSetFlt(node, "AA_sample_clamp", 2.5f);
    RvNodeSetBool(node, "CCW_points", false);
    RvNodeSetRGB(node, "error_color_bad_texture", 0.25f, 0.5f, 0.75f);
    const RtOptions* const options = rv::render_options;
    ASSERT_NE(options, nullptr);
    EXPECT_EQ(options->region_max_x, 17);
    EXPECT_EQ(options->AA_sample_clamp, 2.5f);
    EXPECT_FALSE(options->CCW_points);
    EXPECT_EQ(numbers(&options->error_color_bad_texture, 3), (json{ 0.25, 0.5, 0.75 }));
    EXPECT_EQ(RvNodeGetInt(node, "region_max_x"), 17);
    EXPECT_EQ(RvNodeGetFlt(node, "AA_sample_clamp"), 2.5f);
    EXPECT_FALSE(RvNodeGetBool(node, "CCW_points"));
    const RtRGB color = RvNodeGetRGB(node, "error_color_bad_texture");
    EXPECT_EQ(numbers(&color, 3), (json{ 0.25, 0.5, 0.75 }));
}

TEST_F(NodeTypes, the_procedural_keeps_the_documented_layout)
{
    const RtNodeEntry* const entry = RvNodeEntryLookUp("procedural");
    EXPECT_EQ(layoutKey(entry, "_baseoffset"), 72);
    EXPECT_EQ(layoutKey(entry, "_baseoffset2"), 176);
    EXPECT_EQ(layoutKey(entry, "_struct_size"), 184);
}

TEST_F(NodeTypes, a_fisheye_opens_to_90_degrees_where_a_perspective_camera_opens_to_60)
{
    EXPECT_EQ(RvNodeGetFlt(RvNode("fisheye_camera"), "fov"), 90);
    EXPECT_EQ(RvNodeGetFlt(RvNode("persp_camera"), "fov"), 60);
}
