// Lists of pointers.
#include "list.h"

#include "frame_fixture.h"

class Lists : public BareFrame {
protected:
    // Runs a check on lists of the heap and on lists of a pool.
    template <class Check> static void onHeapAndPool(Check check)
    {
        check(nullptr);
        RtMemPool* const pool = RvMemPoolCreate(0x1000);
        check(pool);
        RvMemPoolDestroy(pool);
    }

    static RtList* listOf(RtMemPool* pool, std::initializer_list<const char*> elements)
    {
        RtList* const list = RvList(pool);
        for (const char* element : elements)
            RvListAdd(list, const_cast<char*>(element));
        return list;
    }

    static std::vector<const void*> contents(const RtList* list)
    {
        std::vector<const void*> all;
        for (const RtListNode* n = RvListHead(list); n; n = n->next)
            all.push_back(n->data);
        return all;
    }

    static constexpr const char *x = "x", *y = "y", *z = "z";
};

TEST_F(Lists, new_list_is_empty_and_equals_itself)
{
    onHeapAndPool([](RtMemPool* pool) {
        RtList* const list = RvList(pool);
        EXPECT_TRUE(RvListEmpty(list));
        EXPECT_EQ(RvListSize(list), 0u);
        EXPECT_EQ(RvListHead(list), nullptr);
        EXPECT_EQ(RvListTail(list), nullptr);
        EXPECT_TRUE(RvListEqual(list, list));
        EXPECT_FALSE(RvListMember(list, nullptr));
        RvListDestroy(list);
    });
}

static void expectFirstAndSecond(const RtList* list, const char* first, const char* second)
{
    EXPECT_FALSE(RvListEmpty(list));
    EXPECT_EQ(RvListSize(list), 2u);
    EXPECT_EQ(RvListHead(list)->data, first);
    EXPECT_EQ(RvListTail(list)->data, second);
    EXPECT_EQ(RvListHead(list)->next, RvListTail(list));
    EXPECT_EQ(RvListTail(list)->next, nullptr);
    EXPECT_TRUE(RvListMember(list, first));
    EXPECT_TRUE(RvListMember(list, second));
    EXPECT_TRUE(RvListEqual(list, list));
}

TEST_F(Lists, two_strings_stand_in_the_order_they_were_added)
{
    onHeapAndPool([](RtMemPool* pool) {
        RtList* const list = RvList(pool);
        const RtListNode* const first = RvListAdd(list, const_cast<char*>(x));
        const RtListNode* const second = RvListAdd(list, const_cast<char*>(y));
        EXPECT_EQ(first, RvListHead(list));
        EXPECT_EQ(second, RvListTail(list));
        expectFirstAndSecond(list, x, y);
        RvListDestroy(list);
    });
}

TEST_F(Lists, copy_has_the_properties_of_its_original)
{
    onHeapAndPool([](RtMemPool* pool) {
        RtList* const list = listOf(pool, { x, y });
        RtList* const copy = RvListCopy(pool, list);
        expectFirstAndSecond(copy, x, y);
        EXPECT_TRUE(RvListEqual(copy, list));
        EXPECT_NE(RvListHead(copy), RvListHead(list));
        EXPECT_EQ(copy->pool, pool);
        RvListDestroy(copy);
        RvListDestroy(list);
    });
}

TEST_F(Lists, copy_drops_null_elements)
{
    onHeapAndPool([](RtMemPool* pool) {
        RtList* const list = listOf(pool, { x, nullptr, y, nullptr });
        EXPECT_EQ(RvListSize(list), 4u);
        RtList* const copy = RvListCopy(pool, list);
        EXPECT_EQ(contents(copy), (std::vector<const void*>{ x, y }));
        RvListDestroy(copy);
        RvListDestroy(list);
    });
}

TEST_F(Lists, copy_of_no_list_is_empty)
{
    RtList* const copy = RvListCopy(nullptr, nullptr);
    EXPECT_TRUE(RvListEmpty(copy));
    RvListDestroy(copy);
}

TEST_F(Lists, deleting_corrects_head_tail_and_size)
{
    static const struct {
        const char* deleted;
        std::vector<const void*> left;
    } cases[] = { { x, { y, z } }, { y, { x, z } }, { z, { x, y } } };
    for (const auto& c : cases)
        onHeapAndPool([&](RtMemPool* pool) {
            RtList* const list = listOf(pool, { x, y, z });
            EXPECT_TRUE(RvListDelete(list, c.deleted));
            EXPECT_EQ(contents(list), c.left);
            EXPECT_EQ(RvListSize(list), 2u);
            EXPECT_EQ(RvListTail(list)->data, c.left.back());
            RvListAdd(list, const_cast<char*>(c.deleted));
            EXPECT_EQ(RvListTail(list)->data, c.deleted);
            EXPECT_EQ(RvListSize(list), 3u);
            RvListDestroy(list);
        });
}

TEST_F(Lists, deleting_the_only_element_leaves_head_and_tail_null)
{
    onHeapAndPool([](RtMemPool* pool) {
        RtList* const list = listOf(pool, { x });
        EXPECT_TRUE(RvListDelete(list, x));
        EXPECT_EQ(RvListHead(list), nullptr);
        EXPECT_EQ(RvListTail(list), nullptr);
        EXPECT_TRUE(RvListEmpty(list));
        RvListAdd(list, const_cast<char*>(y));
        EXPECT_EQ(contents(list), std::vector<const void*>{ y });
        RvListDestroy(list);
    });
}

TEST_F(Lists, deleting_removes_only_the_first_match)
{
    RtList* const list = listOf(nullptr, { x, y, x });
    EXPECT_TRUE(RvListDelete(list, x));
    EXPECT_EQ(contents(list), (std::vector<const void*>{ y, x }));
    RvListDestroy(list);
}

TEST_F(Lists, deleting_what_is_not_there_changes_nothing)
{
    RtList* const list = listOf(nullptr, { x, nullptr });
    EXPECT_FALSE(RvListDelete(list, y));
    EXPECT_FALSE(RvListDelete(list, nullptr));
    EXPECT_EQ(RvListSize(list), 2u);
    RvListDestroy(list);
    RtList* const empty = RvList(nullptr);
    EXPECT_FALSE(RvListDelete(empty, x));
    RvListDestroy(empty);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Lists, on_a_pool_take_no_element_from_the_heap)
{
    RtMemPool* const pool = RvMemPoolCreate(0x1000);
    RtList* const list = RvList(pool);
    rv::limitAllocations(0);
    for (int i = 0; i < 100; ++i)
        EXPECT_NE(RvListAdd(list, pool), nullptr);
    rv::limitAllocations(-1);
    EXPECT_TRUE(RvListDelete(list, pool));
    RvListDestroy(list);
    RvMemPoolDestroy(pool);
}

TEST_F(Lists, elements_of_a_pool_are_never_freed_one_by_one)
{
    RtMemPool* const pool = RvMemPoolCreate(0x1000);
    RtList* const list = listOf(pool, { x, y, z });
    const RtListNode* const first = RvListHead(list);
    EXPECT_EQ(reinterpret_cast<const char*>(first), pool->first->start);
    RvListDelete(list, x);
    EXPECT_EQ(first->data, x); // still readable, as the rest of the pool
    const RtListNode* const second = RvListHead(list);
    RvListDestroy(list);
    EXPECT_EQ(second->data, y);
    RvMemPoolDestroy(pool);
}

TEST_F(Lists, null_data_is_a_member_once_it_is_added)
{
    RtList* const list = listOf(nullptr, { x, nullptr, y });
    EXPECT_TRUE(RvListMember(list, nullptr));
    EXPECT_EQ(contents(list), (std::vector<const void*>{ x, nullptr, y }));
    RvListDestroy(list);
}

// Required: order is ignored and repeated pointers are not counted.
TEST_F(Lists, are_equal_as_sets_of_pointers_of_the_same_size)
{
    static const struct {
        const char* name;
        std::initializer_list<const char*> a, b;
        bool equal;
    } cases[] = {
        { "both empty", {}, {}, true },
        { "other order", { x, y }, { y, x }, true },
        { "repetition is not counted", { x, x, y }, { x, y, y }, true },
        { "only the first is searched in the second", { x, x, x }, { x, y, z }, true },
        { "and not the second in the first", { x, y, z }, { x, x, x }, false },
        { "different sizes", { x, y }, { x }, false },
        { "one empty", {}, { x }, false },
        { "different elements", { x, y }, { x, z }, false },
    };
    for (const auto& c : cases) {
        RtList* const a = listOf(nullptr, c.a);
        RtList* const b = listOf(nullptr, c.b);
        EXPECT_EQ(RvListEqual(a, b), c.equal) << c.name;
        RvListDestroy(a);
        RvListDestroy(b);
    }
}

TEST_F(Lists, null_list_counts_as_an_empty_one)
{
    RtList* const empty = RvList(nullptr);
    RtList* const full = listOf(nullptr, { x });
    EXPECT_TRUE(RvListEqual(nullptr, nullptr));
    EXPECT_TRUE(RvListEqual(nullptr, empty));
    EXPECT_TRUE(RvListEqual(empty, nullptr));
    EXPECT_FALSE(RvListEqual(nullptr, full));
    EXPECT_FALSE(RvListEqual(full, nullptr));
    EXPECT_TRUE(RvListEmpty(nullptr));
    EXPECT_EQ(RvListSize(nullptr), 0u);
    EXPECT_EQ(RvListHead(nullptr), nullptr);
    EXPECT_EQ(RvListTail(nullptr), nullptr);
    EXPECT_FALSE(RvListMember(nullptr, x));
    RvListDestroy(nullptr);
    RvListDestroy(full);
    RvListDestroy(empty);
}

TEST_F(Lists, adding_to_no_list_is_an_error)
{
    EXPECT_EQ(RvListAdd(nullptr, frame.msg), nullptr);
    EXPECT_EQ(takeProblem(), "RvListAdd: no list");
}

TEST_F(Lists, deleting_from_no_list_is_an_error)
{
    EXPECT_FALSE(RvListDelete(nullptr, x));
    EXPECT_EQ(takeProblem(), "RvListDelete: no list");
}

TEST_F(Lists, creation_reports_an_exhausted_heap)
{
    rv::limitAllocations(0);
    EXPECT_EQ(RvList(nullptr), nullptr);
    EXPECT_EQ(takeProblemWithoutLines(), "can't allocate " + std::to_string(sizeof(RtList)) +
                                             " bytes in core\\src\\list:RvList(): | "
                                             "RvList: can't allocate RtList");
}

TEST_F(Lists, adding_reports_an_exhausted_heap_and_keeps_the_list)
{
    RtList* const list = listOf(nullptr, { x });
    rv::limitAllocations(0);
    EXPECT_EQ(RvListAdd(list, const_cast<char*>(y)), nullptr);
    rv::limitAllocations(-1);
    EXPECT_EQ(takeProblemWithoutLines(), "can't allocate 16 bytes in core\\src\\list:RvListAdd(): "
                                         "| RvListAdd: can't allocate RtListNode");
    EXPECT_EQ(contents(list), std::vector<const void*>{ x });
    RvListDestroy(list);
}

TEST_F(Lists, adding_reports_an_exhausted_pool)
{
    RtMemPool* const pool = RvMemPoolCreate(16);
    RtList* const list = RvList(pool);
    rv::limitAllocations(0);
    EXPECT_EQ(RvListAdd(list, pool), nullptr);
    rv::limitAllocations(-1);
    EXPECT_EQ(takeProblemWithoutLines(),
              "can't allocate 48 bytes in core\\src\\system\\memory:AllocHdr(): "
              "| RvListAdd: can't allocate RtListNode");
    RvListDestroy(list);
    RvMemPoolDestroy(pool);
}

TEST_F(Lists, copying_reports_an_exhausted_heap_at_every_step)
{
    RtList* const list = listOf(nullptr, { x, y });
    for (int granted = 0; granted < 3; ++granted) {
        rv::limitAllocations(granted);
        EXPECT_EQ(RvListCopy(nullptr, list), nullptr) << granted;
        rv::limitAllocations(-1);
        const std::string problem = takeProblem();
        EXPECT_NE(problem.find(" | RvListCopy: can't create list"), std::string::npos) << problem;
    }
    RvListDestroy(list);
}
