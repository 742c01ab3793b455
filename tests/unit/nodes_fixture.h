// What the tests of nodes share: a universe with recorded methods, and a node with a parameter of
// every type.
#ifndef RV_NODES_FIXTURE_H
#define RV_NODES_FIXTURE_H

#include "node_tools.h"

using Names = std::vector<std::string>;

class Nodes : public Universe {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        node_tools::methodCalls() = {};
    }

    static RtArray* strings(std::initializer_list<const char*> values)
    {
        RtArray* array = RvArrayAllocate(unsigned(values.size()), 1, RV_TYPE_STRING);
        unsigned i = 0;
        for (const char* value : values)
            RvArraySetStr(array, i++, value);
        return array;
    }

    static void ignore(std::initializer_list<const char*> names)
    {
        RvNodeSetArray(RvUniverseGetOptions(), "ignore_list", strings(names));
    }
};

// A node "n" of a type with parameters of every type, with a layout (true) or in slots (false).
class NodeAccess : public Nodes, public ::testing::WithParamInterface<bool> {
protected:
    void SetUp() override
    {
        Nodes::SetUp();
        ASSERT_TRUE(node_tools::installEveryType("everything", GetParam()));
        node = node_tools::named("everything", "n");
        ASSERT_TRUE(node);
        ASSERT_EQ(takeProblem(), "");
    }

    static std::string param(int type) { return std::string("p_") + node_tools::type_names[type]; }
    static std::string array(int type) { return std::string("a_") + node_tools::type_names[type]; }

    // What the getter of the declared type reads.
    std::string read(int declared) const
    {
        return node_tools::accessor(node_tools::accessType(declared))
            .get(node, param(declared).c_str());
    }

    RtNode* node = nullptr;
};

#endif
