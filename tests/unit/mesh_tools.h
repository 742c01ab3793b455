// What the tests of polygon meshes share: nodes from lists of numbers, and their records.
#ifndef RV_MESH_TOOLS_H
#define RV_MESH_TOOLS_H

#include "array.h"
#include "node_tools.h"
#include "objects/polymesh.h"
#include "options.h"
#include "universe_fixture.h"

class Meshes : public Universe {
protected:
    using Indices = std::vector<uint32_t>;
    using Points = std::vector<RtPoint>;

    // A polymesh named "m".
    static RtNode* meshNode()
    {
        RtNode* const node = RvNode("polymesh");
        RvNodeSetStr(node, "name", "m");
        return node;
    }

    static void setIndices(RtNode* node, const char* param, const Indices& values)
    {
        set(node, param, RV_TYPE_UINT, values, 1);
    }
    static void setPoints(RtNode* node, const char* param, const Points& values, int keys = 1)
    {
        const int type = !strcmp(param, "nlist") ? RV_TYPE_VECTOR : RV_TYPE_POINT;
        set(node, param, type, values, keys);
    }
    static void setUVs(RtNode* node, const std::vector<RtPoint2>& values)
    {
        set(node, "uvlist", RV_TYPE_POINT2, values, 1);
    }
    static void setBytes(RtNode* node, const char* param, const std::vector<uint8_t>& values)
    {
        set(node, param, RV_TYPE_BYTE, values, 1);
    }
    static void setShaders(RtNode* node, unsigned count)
    {
        RtArray* const shaders = RvArrayAllocate(count, 1, RV_TYPE_NODE);
        RtNode* const shader = RvNode("standard");
        std::fill_n(rv::elementsOf<RtNode*>(shaders), count, shader);
        node_tools::giveArray(node, "shader", shaders);
    }
    // Elements of user data.
    template <class T>
    static void declare(RtNode* node, const char* name, const char* declaration, int type,
                        const std::vector<T>& values)
    {
        ASSERT_TRUE(RvNodeDeclare(node, name, declaration));
        set(node, name, type, values, 1);
    }
    template <class T>
    static void set(RtNode* node, const char* param, int type, const std::vector<T>& values,
                    int keys)
    {
        RtArray* const array = RvArrayConvert(int(values.size()) / keys, keys, type,
                                              const_cast<T*>(values.data()), true);
        EXPECT_TRUE(node_tools::giveArray(node, param, array)) << param;
    }

    // A node of polygons with these corners, each given as a list of vertices.
    static RtNode* polygons(const Points& vertices, const std::vector<Indices>& faces)
    {
        Indices nsides, vidxs;
        for (const Indices& face : faces) {
            nsides.push_back(uint32_t(face.size()));
            vidxs.insert(vidxs.end(), face.begin(), face.end());
        }
        RtNode* const node = meshNode();
        setPoints(node, "vlist", vertices);
        setIndices(node, "nsides", nsides);
        setIndices(node, "vidxs", vidxs);
        return node;
    }
    static RtNode* triangle()
    {
        return polygons({ { 0, 0, 0 }, { 1, 0, 0 }, { 0, 1, 0 } }, { { 0, 1, 2 } });
    }

    // Runs Initialize; the record, or null without one.
    static RtPolyMesh* initialized(RtNode* node)
    {
        rv::RvNodeInitialize(node);
        return record(node);
    }
    static RtPolyMesh* record(const RtNode* node)
    {
        return rv::objectOf(node) ? rv::meshOf(rv::objectOf(node)) : nullptr;
    }
    static void update(RtNode* node) { node->entry->methods->Update(node, node->params); }

    static void setOption(const char* name, bool value)
    {
        RvNodeSetBool(RvUniverseGetOptions(), name, value);
    }

    static Indices unpacked(const RtPackedIdxArray& array)
    {
        Indices values;
        for (uint32_t i = 0; i < array.count; ++i)
            values.push_back(array[i]);
        return values;
    }
    static Indices sides(const RtPolyMesh* mesh)
    {
        Indices values;
        for (uint32_t i = 0; i < mesh->npolygons; ++i)
            values.push_back(rv::polygonSides(*mesh, i));
        return values;
    }
    // The vertices of all triangles.
    static std::vector<Indices> triangles(const RtPolyMesh* mesh)
    {
        std::vector<Indices> all;
        for (uint32_t i = 0; i < mesh->ntriangles; ++i) {
            uint32_t v[3];
            rv::triangleVertices(*mesh, i, v);
            all.push_back({ v[0], v[1], v[2] });
        }
        return all;
    }

    // The problems since the last call as "warning: text" and "error: text".
    static std::vector<std::string> takeMarkedProblems()
    {
        std::vector<std::string> texts;
        for (const LoggedMessage& m : messages())
            if (m.severity > 0)
                texts.push_back((m.severity == 1 ? "warning: " : "error: ") + m.text);
        messages().clear();
        return texts;
    }
};

#endif
