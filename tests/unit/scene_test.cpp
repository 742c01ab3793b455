// Tests of scene: its record, the internal shaders, node creation and the end of the scene.
#include "node_tools.h"

#include <atomic>
#include <chrono>
#include <thread>

using namespace node_tools;

namespace {

using Names = std::vector<std::string>;

class Scene : public Universe {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        methodCalls() = {};
    }

    static RtScene* scene() { return rv::the_frame->scene; }

    static Names nodeNames()
    {
        Names names;
        for (const RtListNode* at = RvListHead(scene()->nodes); at; at = at->next)
            names.push_back(RvNodeGetName(static_cast<RtNode*>(at->data)));
        return names;
    }
};

} // namespace

// ---- The record ----

TEST_F(Scene, a_new_scene_is_empty_but_for_its_own_nodes)
{
    ASSERT_TRUE(scene());
    EXPECT_FALSE(scene()->consumed);
    EXPECT_EQ(RvListSize(scene()->bounded_objects), 0u);
    EXPECT_EQ(RvListSize(scene()->unbounded_objects), 0u);
    EXPECT_EQ(scene()->frame, rv::the_frame);
    EXPECT_TRUE(scene()->lights.empty());
    EXPECT_EQ(scene()->options, RvUniverseGetOptions());
    EXPECT_FALSE(scene()->root);
    EXPECT_FALSE(scene()->bounded_root);
    EXPECT_FALSE(scene()->unbounded_root);
    EXPECT_EQ(scene()->shader_count, 3);
    EXPECT_EQ(scene()->shape_count, 0);
    EXPECT_FALSE(scene()->isIgnored("lambert"));
    ASSERT_TRUE(scene()->names);
    EXPECT_EQ(scene()->names->count, 4u);
    EXPECT_EQ(scene()->names->capacity, 512u);
    EXPECT_EQ(nodeNames(), (Names{ "rv_default_reflection_shader", "rv_error_shader",
                                   "rv_bad_shader", "options" }));
}

TEST_F(Scene, the_internal_shaders_have_their_types_and_settings)
{
    static const struct {
        const char* name;
        const char* type;
    } cases[] = { { "rv_default_reflection_shader", "utility" },
                  { "rv_error_shader", "standard" },
                  { "rv_bad_shader", "standard" } };
    RtNode* const shaders[] = { scene()->default_reflection_shader, scene()->error_shader,
                                scene()->bad_shader };
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(shaders[i]) << cases[i].name;
        EXPECT_EQ(RvNodeLookUpByName(cases[i].name), shaders[i]);
        EXPECT_TRUE(RvNodeIs(shaders[i], cases[i].type)) << cases[i].name;
        EXPECT_FALSE(shaders[i]->initialized);
    }
    for (RtNode* shader : { scene()->error_shader, scene()->bad_shader }) {
        EXPECT_EQ(RvNodeGetFlt(shader, "Kd"), 0);
        EXPECT_EQ(RvNodeGetFlt(shader, "emission"), 1);
    }
    RtNode* utility = scene()->default_reflection_shader;
    for (unsigned i = 0; i + 1 < utility->entry->num_params; ++i)
        EXPECT_EQ(utility->set_flags[i], 0) << utility->entry->params[i].name;
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Scene, shaders_and_shapes_are_counted)
{
    RtNode* sphere = RvNode("sphere");
    RtNode* lambert = RvNode("lambert");
    RvNode("point_light");
    RvNode("driver_png");
    EXPECT_EQ(scene()->shape_count, 1);
    EXPECT_EQ(scene()->shader_count, 4);
    RvNodeDestroy(sphere);
    RvNodeDestroy(lambert);
    EXPECT_EQ(scene()->shape_count, 0);
    EXPECT_EQ(scene()->shader_count, 3);
}

TEST_F(Scene, nodes_stand_in_order_of_creation)
{
    named("sphere", "a");
    RtNode* middle = named("lambert", "b");
    named("point_light", "c");
    Names names = nodeNames();
    EXPECT_EQ(Names(names.begin() + 4, names.end()), (Names{ "a", "b", "c" }));
    RvNodeDestroy(middle);
    names = nodeNames();
    EXPECT_EQ(Names(names.begin() + 4, names.end()), (Names{ "a", "c" }));
}

TEST_F(Scene, the_name_table_follows_the_nodes)
{
    const unsigned before = scene()->names->count;
    std::vector<RtNode*> nodes;
    for (int i = 0; i < 2000; ++i)
        nodes.push_back(named("lambert", formatted("node_%d", i).c_str()));
    EXPECT_EQ(scene()->names->count, before + 2000);
    for (int i = 0; i < 2000; ++i)
        EXPECT_EQ(RvNodeLookUpByName(formatted("node_%d", i).c_str()), nodes[size_t(i)]);
    for (RtNode* node : nodes)
        RvNodeDestroy(node);
    EXPECT_EQ(scene()->names->count, before);
}

// ---- Creating ----

TEST_F(Scene, createNode_makes_a_named_node)
{
    RtNode* node = scene()->createNode("lambert");
    ASSERT_TRUE(node);
    EXPECT_TRUE(RvNodeIs(node, "lambert"));
    EXPECT_EQ(RvNodeLookUpByName(RvNodeGetName(node)), node);
    EXPECT_EQ(nodeNames().back(), RvNodeGetName(node));
    EXPECT_FALSE(scene()->createNode("nothere"));
    EXPECT_EQ(takeProblem(), "node \"nothere\" is not installed");
    EXPECT_EQ(scene()->createNode("options"), scene()->options);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Scene, a_missing_type_is_missed_silently_until_the_list_changes)
{
    RtArray* missing = RvArray(1, 1, RV_TYPE_STRING, "phantom");
    RvNodeSetArray(RvUniverseGetOptions(), "ignore_list", missing);
    EXPECT_TRUE(scene()->isIgnored("phantom"));
    EXPECT_FALSE(scene()->createNode("phantom"));
    installType("phantom");
    EXPECT_FALSE(scene()->createNode("phantom"));
    EXPECT_FALSE(RvNode("phantom"));
    EXPECT_TRUE(messages().empty());
}

TEST_F(Scene, nothing_is_ignored_by_a_null_or_empty_text)
{
    EXPECT_FALSE(scene()->isIgnored(""));
    RvNodeSetArray(RvUniverseGetOptions(), "ignore_list",
                   RvArray(2, 1, RV_TYPE_STRING, "a", static_cast<const char*>(nullptr)));
    EXPECT_TRUE(scene()->isIgnored("a"));
    EXPECT_FALSE(scene()->isIgnored(""));
    EXPECT_FALSE(scene()->isIgnored("A"));
}

TEST_F(Scene, a_removed_node_leaves_the_scene)
{
    RtNode* light = named("point_light", "light");
    const size_t before = nodeNames().size();
    scene()->removeNode(light);
    EXPECT_EQ(nodeNames().size(), before - 1);
    EXPECT_EQ(RvUniverseGetNumLights(), 0);
    EXPECT_FALSE(RvNodeLookUpByName("light"));
}

TEST_F(Scene, its_own_nodes_are_forgotten_when_they_are_destroyed)
{
    RtNode* sphere = RvNode("sphere");
    scene()->root = scene()->bounded_root = sphere;
    scene()->unbounded_root = RvNode("plane");
    RtNodeIterator* it = RvUniverseGetNodeIterator(RV_NODE_ALL);
    while (!RvNodeIteratorFinished(it))
        RvNodeDestroy(RvNodeIteratorGetNext(it));
    RvNodeIteratorDestroy(it);
    for (const RtNode* own :
         { scene()->default_reflection_shader, scene()->error_shader, scene()->bad_shader,
           scene()->root, scene()->bounded_root, scene()->unbounded_root, scene()->options })
        EXPECT_FALSE(own);
    EXPECT_EQ(describe(RvUniverseGetSceneBounds().max), "0 0 0");

    RtArray* shader = RvNodeGetArray(RvNode("sphere"), "shader");
    ASSERT_TRUE(shader);
    EXPECT_EQ(shader->nelements, 0u) << "there is no default shader to start with";
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Scene, several_threads_create_and_destroy_nodes_at_once)
{
    static const char* const types[] = { "lambert", "point_light", "sphere", "noise" };
    constexpr int thread_count = 4, per_thread = 200;
    std::vector<std::vector<RtNode*>> made(thread_count);
    std::vector<std::thread> threads;
    std::atomic<int> ready{ 0 };
    for (int t = 0; t < thread_count; ++t)
        threads.emplace_back([&, t] {
            ++ready;
            while (ready < thread_count)
                std::this_thread::yield();
            for (int i = 0; i < per_thread; ++i) {
                RtNode* node = RvNode(types[(i + t) % 4]);
                ASSERT_TRUE(node);
                RvNodeSetStr(node, "name", formatted("t%d_%d", t, i).c_str());
                made[size_t(t)].push_back(node);
                if (i % 5 == 4) {
                    RvNodeDestroy(made[size_t(t)][size_t(i) - 2]);
                    made[size_t(t)][size_t(i) - 2] = nullptr;
                }
            }
        });
    for (std::thread& thread : threads)
        thread.join();

    int lights = 0, shapes = 0, lamberts = 0;
    std::set<RtNode*> expected;
    for (int t = 0; t < thread_count; ++t)
        for (int i = 0; i < per_thread; ++i) {
            RtNode* node = made[size_t(t)][size_t(i)];
            EXPECT_EQ(RvNodeLookUpByName(formatted("t%d_%d", t, i).c_str()), node);
            if (!node)
                continue;
            expected.insert(node);
            lights += RvNodeIs(node, "point_light");
            shapes += RvNodeIs(node, "sphere");
            lamberts += RvNodeIs(node, "lambert");
        }
    EXPECT_EQ(RvUniverseGetNumLights(), lights);
    EXPECT_EQ(RvUniverseGetNumGObjects(), shapes);
    EXPECT_EQ(RvNodeEntryGetCount(RvNodeEntryLookUp("lambert")), lamberts);
    std::set<RtNode*> listed;
    for (const RtListNode* at = RvListHead(scene()->nodes); at; at = at->next)
        if (RvNodeGetName(static_cast<RtNode*>(at->data))[0] == 't')
            listed.insert(static_cast<RtNode*>(at->data));
    EXPECT_EQ(listed, expected);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Scene, the_overhead_of_nodes_of_several_threads_is_counted_exactly)
{
    RtNode* noise = RvNode("noise");
    const int64_t before = rv::hostStats()->node_overhead_bytes;
    RtNode* lambert = RvNode("lambert");
    RvNodeLink(noise, "Kd", lambert);
    const int64_t one = rv::hostStats()->node_overhead_bytes - before;
    constexpr int thread_count = 4, per_thread = 5000;
    std::vector<std::thread> threads;
    for (int t = 0; t < thread_count; ++t)
        threads.emplace_back([noise] {
            for (int i = 0; i < per_thread; ++i)
                RvNodeLink(noise, "Kd", RvNode("lambert"));
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(rv::hostStats()->node_overhead_bytes - before, one * (1 + thread_count * per_thread));
}

TEST_F(Scene, the_overhead_of_a_node_counts_for_the_thread_that_makes_it)
{
    const int64_t of_the_host = rv::hostStats()->node_overhead_bytes;
    std::thread([] {
        rv::stats_slot = 5; // as render threads do
        RtNode* node = RvNode("lambert");
        EXPECT_EQ(rv::the_frame->stats[5]->node_overhead_bytes, int64_t(rv::nodeOverhead(node)));
        RvNodeDestroy(node);
        EXPECT_EQ(rv::the_frame->stats[5]->node_overhead_bytes, 0);
    }).join();
    EXPECT_EQ(rv::hostStats()->node_overhead_bytes, of_the_host);
}

TEST_F(Scene, default_names_of_several_threads_are_unique)
{
    std::vector<std::vector<RtNode*>> made(4);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < made.size(); ++t)
        threads.emplace_back([&made, t] {
            for (int i = 0; i < 500; ++i)
                made[t].push_back(RvNode("lambert"));
        });
    for (std::thread& thread : threads)
        thread.join();
    std::set<std::string> names;
    for (const auto& nodes : made)
        for (RtNode* node : nodes) {
            EXPECT_TRUE(names.insert(RvNodeGetName(node)).second) << RvNodeGetName(node);
            EXPECT_EQ(RvNodeLookUpByName(RvNodeGetName(node)), node);
        }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Scene, a_race_for_one_name_has_one_winner)
{
    for (int round = 0; round < 50; ++round) {
        RtNode* nodes[2] = { RvNode("lambert"), RvNode("lambert") };
        const std::string name = formatted("wanted_%d", round);
        std::thread first([&] { RvNodeSetStr(nodes[0], "name", name.c_str()); });
        std::thread second([&] { RvNodeSetStr(nodes[1], "name", name.c_str()); });
        first.join();
        second.join();
        const bool won[2] = { name == RvNodeGetName(nodes[0]), name == RvNodeGetName(nodes[1]) };
        EXPECT_NE(won[0], won[1]);
        EXPECT_EQ(RvNodeLookUpByName(name.c_str()), won[0] ? nodes[0] : nodes[1]);
        EXPECT_EQ(takeProblems().size(), 1u);
    }
}

// ---- The end ----

TEST_F(Scene, the_end_finishes_every_initialised_node_in_order_and_the_options_last)
{
    static bool options_alive;
    options_alive = true;
    installType("finisher");
    static const RtCommonMethods common = {
        .Parameters = nullptr,
        .Initialize = nullptr,
        .Update = nullptr,
        .Finish =
            [](RtNode* node) {
                methodCalls().finished.push_back(RvNodeGetName(node));
                options_alive &= RvUniverseGetOptions() != nullptr &&
                                 RvNodeGetInt(RvUniverseGetOptions(), "xres") == 320;
            },
    };
    static const RtNodeMethods methods = { &common, nullptr };
    RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "watcher", "", &methods, RV_VERSION);
    for (const char* name : { "c", "a", "d", "b" }) {
        RtNode* node = named(*name == 'd' ? "watcher" : "finisher", name);
        node->initialized = strcmp(name, "a") != 0;
    }
    TearDown();
    EXPECT_EQ(methodCalls().finished, (Names{ "c", "d", "b" }));
    EXPECT_TRUE(options_alive);
    EXPECT_FALSE(RvUniverseIsActive());
    EXPECT_FALSE(rv::render_options);
    SetUp();
}

namespace {

// Installs "parent", whose Finish method destroys the node of the parameter "child".
void installParent()
{
    static const RtCommonMethods common = {
        .Parameters = [](RtList* params,
                         RtMetaDataStore*) { RvNodeParamNODE(params, -1, "child", nullptr); },
        .Initialize = nullptr,
        .Update = nullptr,
        .Finish =
            [](RtNode* node) {
                methodCalls().finished.push_back(RvNodeGetName(node));
                RvNodeDestroy(static_cast<RtNode*>(RvNodeGetPtr(node, "child")));
            },
    };
    static const RtNodeMethods methods = { &common, nullptr };
    RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "parent", "", &methods, RV_VERSION);
}

RtNode* parentOf(RtNode* child, RtNode* parent)
{
    parent->initialized = true;
    RvNodeSetPtr(parent, "child", child);
    return parent;
}

} // namespace

TEST_F(Scene, finish_methods_may_destroy_other_nodes_at_the_end)
{
    installParent();
    RtNode* oldest = named("parent", "oldest");
    RtNode* older = named("parent", "older");
    RtNode* younger = named("parent", "younger");
    parentOf(parentOf(parentOf(named("lambert", "youngest"), younger), older), oldest);
    parentOf(RvUniverseGetOptions(), named("parent", "of_the_options"));
    TearDown();
    EXPECT_EQ(methodCalls().finished, (Names{ "oldest", "older", "younger", "of_the_options" }));
    SetUp();
}

TEST_F(Scene, finish_methods_may_destroy_other_nodes_when_their_type_goes)
{
    installParent();
    RtNode* child = named("lambert", "child");
    parentOf(child, named("parent", "after"));
    RtNode* before = named("parent", "before");
    parentOf(named("parent", "next"), before);
    named("parent", "last");
    RvNodeUninstall("parent");
    EXPECT_EQ(methodCalls().finished, (Names{ "after", "before" }));
    EXPECT_EQ(nodeNames().size(), 4u);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Scene, a_finish_method_may_wait_for_a_thread_that_makes_a_node)
{
    static std::thread thread;
    static bool was_made_in_time;
    static const RtCommonMethods common = {
        .Parameters = nullptr,
        .Initialize = nullptr,
        .Update = nullptr,
        .Finish =
            [](RtNode*) {
                static std::atomic<bool> is_made;
                thread = std::thread([] { is_made = RvNode("lambert") != nullptr; });
                for (int i = 0; i < 2000 && !is_made; ++i)
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                was_made_in_time = is_made;
            },
    };
    static const RtNodeMethods methods = { &common, nullptr };
    RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "waiter", "", &methods, RV_VERSION);
    RtNode* node = RvNode("waiter");
    node->initialized = true;
    RvNodeDestroy(node);
    thread.join();
    EXPECT_TRUE(was_made_in_time);
}

TEST_F(Scene, the_end_releases_nodes_of_every_kind_and_state)
{
    installEveryType("slots", false);
    installEveryType("laid_out", true);
    RtNode* previous = nullptr;
    for (int i = 0; i < 40; ++i) {
        RtNode* node = RvNode(i % 2 ? "slots" : "laid_out");
        for (const Accessor& a : accessors())
            a.set(node, (std::string("p_") + type_names[a.type]).c_str(), i % 3);
        RvNodeSetStr(node, "a_STRING", formatted("string %d", i).c_str());
        RvNodeDeclare(node, "text", "constant STRING");
        RvNodeSetStr(node, "text", "user text");
        if (previous) {
            RvNodeLink(previous, "p_RGB", node);
            RvNodeLink(previous, "@before", node);
        }
        if (i % 4 == 0)
            RvNodeReset(node);
        if (i % 5 == 0)
            RvNodeClone(node);
        previous = node;
    }
    for (int i = 0; i < RvGetNumInstalledNodes(); ++i)
        RvNode(RvNodeEntryGetName(RvNodeEntryLookUpByIndex(i)));
    takeProblems(); // the end itself is checked by the fixture
}

// ---- The exhausted heap ----

namespace {

// Small lives of nodes, each run with the heap failing at every request.
struct Scenario {
    const char* name;
    void (*run)();
};

void setAll(RtNode* node, int seed)
{
    for (const Accessor& a : accessors()) {
        a.set(node, (std::string("p_") + type_names[a.type]).c_str(), seed);
        if (a.type != RV_TYPE_ARRAY)
            a.set(node, (std::string("a_") + type_names[a.type]).c_str(), seed);
    }
}

const Scenario scenarios[] = {
    { "creation",
      [] {
          for (const char* type : { "lambert", "sphere", "point_light", "persp_camera", "polymesh",
                                    "gaussian_filter", "driver_tiff", "nothere", "override" })
              RvNode(type);
      } },
    { "setting",
      [] {
          RtNode* node = RvNode("slots");
          if (!node)
              return;
          RvNodeSetStr(node, "name", "renamed");
          setAll(node, 1);
          setAll(node, 2);
          giveArray(node, "a_UINT", RvArrayAllocate(4, 2, RV_TYPE_BYTE));
          giveArray(node, "a_POINT", RvArrayAllocate(6, 1, RV_TYPE_FLOAT));
          giveArray(node, "a_STRING", RvArray(2, 1, RV_TYPE_STRING, "one", "two"));
          giveArray(node, "a_STRING", RvArrayAllocate(1, 1, RV_TYPE_INT));
      } },
    { "ignoring",
      [] {
          giveArray(RvUniverseGetOptions(), "ignore_list",
                    RvArray(2, 1, RV_TYPE_STRING, "sphere", "lambert.Kd"));
          RvNode("sphere");
          RvNodeSetFlt(RvNode("lambert"), "Kd", 1);
          giveArray(RvUniverseGetOptions(), "ignore_list", RvArrayAllocate(0, 1, RV_TYPE_STRING));
      } },
    { "user_parameters",
      [] {
          RtNode* node = RvNode("lambert");
          for (int type = 0; type < RV_TYPE_ARRAY; ++type)
              for (const char* category : { "constant", "uniform", "constant ARRAY" }) {
                  const std::string name = formatted("%c_%d", category[strlen(category) - 1], type);
                  RvNodeDeclare(node, name.c_str(),
                                formatted("%s %s", category, type_names[type]).c_str());
                  if (node)
                      accessor(accessType(type)).set(node, name.c_str(), 1);
              }
          RvNodeDeclare(node, "matrix", "constant MATRIX");
          const RtMatrix matrix = filledMatrix(0, 1);
          RvNodeSetMatrix(node, "matrix", &matrix);
          RvNodeDeclare(node, "bad name", "constant INT");
          RvNodeDestroy(RvNodeClone(node));
      } },
    { "links",
      [] {
          RtNode* noise = RvNode("noise");
          RtNode* lambert = RvNode("lambert");
          RvNodeLink(noise, "Kd", lambert);
          RvNodeLink(noise, "Kd_color.g", lambert);
          RvNodeLink(noise, "@before", lambert);
          RvNodeUnlink(lambert, "Kd");
          RvNodeGetLink(lambert, "Kd_color.g");
          RvNodeDestroy(lambert);
      } },
    { "clones_and_resets",
      [] {
          for (const char* type : { "slots", "laid_out", "sphere" }) {
              RtNode* node = RvNode(type);
              RtNode* clone = RvNodeClone(node);
              RvNodeReset(node);
              RvNodeReset(clone);
              if (node)
                  RvNodeDestroy(node);
          }
      } },
    { "types",
      [] {
          for (bool laid_out : { false, true }) {
              const char* name = laid_out ? "new_laid_out" : "new_slots";
              installEveryType(name, laid_out);
              RvNode(name);
              if (RvNodeEntryLookUp(name) && !laid_out)
                  RvNodeUninstall(name);
          }
          RvNodeUninstall("gobo");
      } },
    { "iterators",
      [] {
          RtNodeIterator* nodes = RvUniverseGetNodeIterator(RV_NODE_ALL);
          while (!RvNodeIteratorFinished(nodes))
              RvNodeIteratorGetNext(nodes);
          RvNodeIteratorDestroy(nodes);
          RtNodeEntryIterator* types = RvUniverseGetNodeEntryIterator(RV_NODE_ALL);
          while (!RvNodeEntryIteratorFinished(types)) {
              const RtNodeEntry* entry = RvNodeEntryIteratorGetNext(types);
              RtParamIterator* params = RvNodeEntryGetParamIterator(entry);
              while (!RvParamIteratorFinished(params))
                  RvParamIteratorGetNext(params);
              RvParamIteratorDestroy(params);
              RtMetaDataIterator* metadata = RvNodeEntryGetMetaDataIterator(entry, nullptr);
              while (!RvMetaDataIteratorFinished(metadata))
                  RvMetaDataIteratorGetNext(metadata);
              RvMetaDataIteratorDestroy(metadata);
          }
          RvNodeEntryIteratorDestroy(types);
          RtUserParamIterator* users = RvNodeGetUserParamIterator(RvUniverseGetOptions());
          RvUserParamIteratorDestroy(users);
      } },
    { "a_whole_life",
      [] {
          RtNode* node = RvNode("laid_out");
          setAll(node, 1);
          RvNodeDeclare(node, "tag", "varying STRING");
          if (node)
              RvNodeSetStr(node, "tag", "text");
          RvNodeLink(RvNode("noise"), "p_FLOAT", node);
          RtNode* clone = RvNodeClone(node);
          RvNodeReset(node);
          if (node) {
              node->initialized = true;
              RvNodeDestroy(node);
          }
          if (clone)
              RvNodeSetStr(clone, "name", "clone");
          RvNodeUninstall("slots");
      } },
};

class FailingHeap : public Scene, public ::testing::WithParamInterface<Scenario> {};

} // namespace

TEST_P(FailingHeap, ends_cleanly_wherever_it_strikes)
{
    bool ran_through = false;
    for (long n = 0; !ran_through && n < 20000; ++n) {
        installEveryType("slots", false);
        installEveryType("laid_out", true);
        messages().clear();
        {
            AllocationLimit limit(n);
            GetParam().run();
            ran_through = heapIsOpen();
        }
        bool reported = false;
        for (const LoggedMessage& m : messages())
            reported |= m.text.find("can't allocate") != std::string::npos ||
                        m.text.find("can't reallocate") != std::string::npos;
        EXPECT_EQ(reported, !ran_through) << "n = " << n;
        EXPECT_TRUE(RvUniverseIsActive());
        EXPECT_TRUE(RvUniverseGetOptions());
        // The universe works as before: a new node can be made, set and destroyed.
        messages().clear();
        RtNode* node = named("flat", "survivor");
        ASSERT_TRUE(node) << "n = " << n;
        RvNodeSetRGB(node, "color", 0.5f, 0.25f, 1);
        EXPECT_EQ(describe(RvNodeGetRGB(node, "color")), "0.5 0.25 1") << "n = " << n;
        EXPECT_EQ(RvNodeLookUpByName("survivor"), node) << "n = " << n;
        RvNodeDestroy(node);
        EXPECT_EQ(takeProblem(), "") << "n = " << n;
        TearDown(); // fails on strings left behind
        SetUp();
        if (HasFailure())
            break;
    }
    EXPECT_TRUE(ran_through);
}

INSTANTIATE_TEST_SUITE_P(Scenarios, FailingHeap, ::testing::ValuesIn(scenarios),
                         [](const auto& row) { return std::string(row.param.name); });
