// Tests of the grid of buckets and of the nine orders.
#include "bucket_order.h"

#include "array.h"
#include "frame_fixture.h"
#include "golden.h"
#include "node_tools.h"
#include "options.h"
#include "sampling.h"

#include <chrono>
#include <set>

using nlohmann::json;
using Cells = std::vector<std::pair<int, int>>;

namespace {

const char* const names[] = { "top",   "bottom", "left",    "right", "random",
                              "woven", "spiral", "hilbert", "list" };

int scanningOf(const json& name)
{
    const auto at = std::find(std::begin(names), std::end(names), name.get<std::string>());
    EXPECT_NE(at, std::end(names)) << name;
    return int(at - std::begin(names));
}

// Every cell of an order, in a grid of buckets of one pixel.
Cells cellsOf(int scanning, int nx, int ny, size_t most = SIZE_MAX)
{
    rv::BucketOrder order(scanning, { 0, 0, 1, nx, ny }, nullptr);
    Cells cells;
    RtBucket bucket;
    while (cells.size() < most && order.next(&bucket))
        cells.emplace_back(bucket.x, bucket.y);
    return cells;
}

// The moves of a turtle that walks the whole square.
struct Turtle {
    int nx, ny;
    Cells cells;
    int c = 0, j = 0, d = 0;

    void emit()
    {
        if (c >= 0 && c < nx && j >= 0 && j < ny)
            cells.emplace_back(c, j);
    }
    void move()
    {
        static const int dc[] = { 1, 0, -1, 0 }, dj[] = { 0, 1, 0, -1 };
        c += dc[d & 3];
        j += dj[d & 3];
        emit();
    }
    void walk(int t, int level)
    {
        if (level < 0)
            return;
        d += t, walk(-t, level - 1), move();
        d -= t, walk(t, level - 1), move();
        walk(t, level - 1), d -= t, move();
        walk(-t, level - 1), d += t;
    }
};

Cells hilbertByTurtle(int nx, int ny)
{
    Turtle turtle = { nx, ny, {} };
    if (nx > 0 && ny > 0)
        turtle.emit();
    const int level = int(std::ceil(std::log(double(std::max(nx, ny))) * 1.4426950408889634));
    if (level > 0)
        turtle.walk(1, level);
    return turtle.cells;
}

// One step at a time, also where there is no grid.
Cells spiralByStep(int nx, int ny)
{
    Cells cells;
    int c = std::max(nx / 2 - 1, 0), j = std::max(ny / 2 - 1, 0);
    int direction = 0, step = 0, segment = 0;
    for (cells.emplace_back(c, j); cells.size() < size_t(nx) * size_t(ny);) {
        static const int dc[] = { 1, 0, -1, 0 }, dj[] = { 0, 1, 0, -1 };
        c += dc[direction];
        j += dj[direction];
        if (++step > segment / 2) {
            direction = (direction + 1) % 4;
            ++segment;
            step = 0;
        }
        if (c >= 0 && j >= 0 && c < nx && j < ny)
            cells.emplace_back(c, j);
    }
    return cells;
}

class BucketOrder : public Universe {
protected:
    static void seed(int value) { RvNodeSetInt(RvUniverseGetOptions(), "AA_seed", value); }

    // Corners and sizes of a list of points, in a region that begins at a pixel.
    static Cells cornersOf(const RtArray* list, int min_x, int min_y, int size)
    {
        rv::BucketOrder order(rv::scan_list, { min_x, min_y, size, 100, 100 }, list);
        Cells corners;
        RtBucket bucket;
        while (order.next(&bucket)) {
            EXPECT_EQ(bucket.width, size);
            EXPECT_EQ(bucket.height, size);
            corners.emplace_back(bucket.x, bucket.y);
        }
        return corners;
    }

    template <class... Points> static RtArray* listOf(const Points&... points)
    {
        return RvArray(sizeof...(points), 1, RV_TYPE_POINT2, points...);
    }
};

} // namespace

TEST(BucketGrid, counts_match_the_golden_ones)
{
    for (const json& v : goldenVectors("render", "grid_count"))
        expectGolden(v, "n", rv::gridCount(v["in"]["region"], v["in"]["bucket_size"]));
}

TEST(BucketGrid, required_counts_are_taken_in_single_precision)
{
    EXPECT_EQ(rv::gridCount(16777217, 16), 1048576) << "the last pixel gets no bucket";
    EXPECT_EQ(rv::gridCount(16777218, 16), 1048577);
}

TEST(BucketGrid, regions_without_pixels_have_no_buckets)
{
    for (int region : { 0, -1, -63, -64, -1000, INT_MIN + 2 })
        EXPECT_LE(rv::gridCount(region, 64), 0) << region;
    EXPECT_EQ((rv::BucketGrid{ 0, 0, 64, -3, -3 }.count()), 0);
    EXPECT_EQ(rv::gridCount(INT_MAX, 1), INT_MAX);
    EXPECT_EQ(rv::gridCount(1, INT_MAX), 1);
}

TEST_F(BucketOrder, orders_match_the_golden_ones)
{
    for (const json& v : goldenVectors("render", "bucket_order")) {
        const json& in = v["in"];
        seed(in["AA_seed"]);
        EXPECT_EQ(cellsOf(scanningOf(in["bucket_scanning"]), in["nx"], in["ny"]),
                  v["out"]["cells"].get<Cells>())
            << goldenId(v);
    }
}

TEST_F(BucketOrder, top_and_spiral_start_as_their_users_know_them)
{
    EXPECT_EQ(cellsOf(rv::scan_top, 2, 2), (Cells{ { 1, 0 }, { 0, 0 }, { 0, 1 }, { 1, 1 } }));
    EXPECT_EQ(
        cellsOf(rv::scan_spiral, 4, 4, 8),
        (Cells{ { 1, 1 }, { 2, 1 }, { 2, 2 }, { 1, 2 }, { 0, 2 }, { 0, 1 }, { 0, 0 }, { 1, 0 } }));
}

TEST_F(BucketOrder, every_order_has_every_cell_once)
{
    static const int grids[][2] = { { 1, 1 },   { 2, 1 },  { 1, 2 },  { 1, 17 },  { 33, 1 },
                                    { 16, 16 }, { 17, 5 }, { 5, 17 }, { 100, 3 }, { 31, 64 } };
    for (int scanning = rv::scan_top; scanning < rv::scan_list; ++scanning)
        for (const auto& [nx, ny] : grids) {
            const Cells cells = cellsOf(scanning, nx, ny);
            ASSERT_EQ(cells.size(), size_t(nx * ny)) << names[scanning];
            EXPECT_EQ(std::set(cells.begin(), cells.end()).size(), cells.size())
                << names[scanning] << " " << nx << "x" << ny;
            for (const auto& [c, j] : cells)
                EXPECT_TRUE(c >= 0 && c < nx && j >= 0 && j < ny) << names[scanning];
        }
}

TEST_F(BucketOrder, unknown_orders_are_that_of_top)
{
    EXPECT_EQ(cellsOf(9, 5, 3), cellsOf(rv::scan_top, 5, 3));
    EXPECT_EQ(cellsOf(-1, 5, 3), cellsOf(rv::scan_top, 5, 3));
}

TEST_F(BucketOrder, no_order_has_cells_in_an_empty_grid)
{
    for (int scanning = rv::scan_top; scanning <= rv::scan_list; ++scanning)
        for (const auto& [nx, ny] : { std::pair(0, 0), { 0, 5 }, { 5, 0 }, { -3, -3 }, { -3, 3 } })
            EXPECT_TRUE(cellsOf(scanning, nx, ny).empty()) << names[scanning];
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(BucketOrder, the_index_is_the_sequence_number_but_the_cell_when_random)
{
    for (int scanning : { int(rv::scan_spiral), int(rv::scan_random) }) {
        rv::BucketOrder order(scanning, { 0, 0, 1, 4, 3 }, nullptr);
        RtBucket bucket;
        for (int k = 0; order.next(&bucket); ++k)
            EXPECT_EQ(bucket.index, scanning == rv::scan_random ? bucket.y * 4 + bucket.x : k);
    }
}

TEST_F(BucketOrder, random_is_the_same_for_the_same_seed)
{
    seed(7);
    const Cells first = cellsOf(rv::scan_random, 9, 9);
    EXPECT_EQ(cellsOf(rv::scan_random, 9, 9), first);
    seed(8);
    EXPECT_NE(cellsOf(rv::scan_random, 9, 9), first);
}

TEST_F(BucketOrder, random_without_memory_goes_row_by_row)
{
    Cells cells;
    {
        const node_tools::AllocationLimit limit(0);
        cells = cellsOf(rv::scan_random, 2, 2);
    }
    EXPECT_EQ(cells, (Cells{ { 0, 0 }, { 1, 0 }, { 0, 1 }, { 1, 1 } }));
    EXPECT_TRUE(
        node_tools::reportsFailure(takeProblem(), "core.src.sampling", "RvRandomPermutation"));
}

TEST_F(BucketOrder, random_over_more_cells_than_there_are_numbers_is_refused_like_an_empty_heap)
{
    EXPECT_EQ(cellsOf(rv::scan_random, 1 << 20, 1 << 20, 2), (Cells{ { 0, 0 }, { 1, 0 } }));
    EXPECT_TRUE(
        node_tools::reportsFailure(takeProblem(), "core.src.buckets", "RvBucketSchedulerInit"));
}

// ---- Walks over long and narrow grids ----

TEST_F(BucketOrder, hilbert_is_the_walk_over_the_whole_square_without_what_lies_outside)
{
    for (int nx = 1; nx <= 20; ++nx)
        for (int ny = 1; ny <= 20; ++ny)
            ASSERT_EQ(cellsOf(rv::scan_hilbert, nx, ny), hilbertByTurtle(nx, ny))
                << nx << "x" << ny;
    for (const auto& [nx, ny] : { std::pair(300, 1), { 1, 300 }, { 257, 5 }, { 255, 129 } })
        EXPECT_EQ(cellsOf(rv::scan_hilbert, nx, ny), hilbertByTurtle(nx, ny)) << nx << "x" << ny;
}

TEST_F(BucketOrder, spiral_is_the_walk_over_the_whole_plane_without_what_lies_outside)
{
    for (int nx = 1; nx <= 20; ++nx)
        for (int ny = 1; ny <= 20; ++ny)
            ASSERT_EQ(cellsOf(rv::scan_spiral, nx, ny), spiralByStep(nx, ny)) << nx << "x" << ny;
    for (const auto& [nx, ny] : { std::pair(300, 1), { 1, 300 }, { 257, 5 }, { 100, 129 } })
        EXPECT_EQ(cellsOf(rv::scan_spiral, nx, ny), spiralByStep(nx, ny)) << nx << "x" << ny;
}

TEST_F(BucketOrder, walks_over_narrow_grids_take_time_for_the_grid_alone)
{
    using Clock = std::chrono::steady_clock;
    for (int scanning : { int(rv::scan_spiral), int(rv::scan_hilbert) })
        for (const auto& [nx, ny] : { std::pair(62500, 1), { 1, 62500 }, { 62500, 2 } }) {
            const auto start = Clock::now();
            const Cells cells = cellsOf(scanning, nx, ny);
            EXPECT_EQ(cells.size(), size_t(nx) * size_t(ny));
            EXPECT_EQ(std::set(cells.begin(), cells.end()).size(), cells.size());
            EXPECT_LT(Clock::now() - start, std::chrono::seconds(5)) << names[scanning];
        }
}

TEST_F(BucketOrder, the_largest_grids_begin_at_once_and_where_they_should)
{
    static const struct {
        int scanning, nx, ny;
        Cells first;
    } cases[] = {
        { rv::scan_top, INT_MAX, INT_MAX, { { INT_MAX - 1, 0 }, { INT_MAX - 2, 0 } } },
        { rv::scan_bottom, INT_MAX, INT_MAX, { { 0, INT_MAX - 1 }, { 1, INT_MAX - 1 } } },
        { rv::scan_left, INT_MAX, INT_MAX, { { 0, 0 }, { 0, 1 } } },
        { rv::scan_right, INT_MAX, INT_MAX, { { INT_MAX - 1, INT_MAX - 1 } } },
        { rv::scan_woven, INT_MAX, INT_MAX, { { INT_MAX / 2, INT_MAX / 2 } } },
        { rv::scan_spiral,
          INT_MAX,
          INT_MAX,
          { { INT_MAX / 2 - 1, INT_MAX / 2 - 1 }, { INT_MAX / 2, INT_MAX / 2 - 1 } } },
        { rv::scan_hilbert, INT_MAX, INT_MAX, { { 0, 0 } } },
        { rv::scan_hilbert, INT_MAX, 1, { { 0, 0 }, { 1, 0 } } },
    };
    for (const auto& c : cases)
        EXPECT_EQ(cellsOf(c.scanning, c.nx, c.ny, c.first.size()), c.first)
            << names[c.scanning] << " " << c.nx << "x" << c.ny;
    EXPECT_EQ(cellsOf(rv::scan_hilbert, INT_MAX, INT_MAX, 1000).size(), 1000u);
}

// ---- Lists ----

TEST_F(BucketOrder, a_list_snaps_its_points_to_the_grid)
{
    RtArray* const list = listOf(RtPoint2{ 70, 10 }, RtPoint2{ 63.9f, 127.5f }, RtPoint2{ -10, 5 },
                                 RtPoint2{ -64, 0 }, RtPoint2{ -65, -1 }, RtPoint2{ 70, 10 });
    EXPECT_EQ(cornersOf(list, 0, 0, 64),
              (Cells{ { 64, 0 }, { 0, 64 }, { 0, 0 }, { -64, 0 }, { -64, 0 }, { 64, 0 } }));
    EXPECT_EQ(cornersOf(list, 10, 20, 32).front(), (std::pair{ 42, 20 }));
    RvArrayDestroy(list);
}

TEST_F(BucketOrder, a_list_without_elements_or_without_an_array_has_no_buckets)
{
    RtArray* const empty = RvArray(0, 1, RV_TYPE_POINT2);
    EXPECT_TRUE(cornersOf(empty, 0, 0, 64).empty());
    EXPECT_TRUE(cornersOf(nullptr, 0, 0, 64).empty());
    EXPECT_EQ(takeProblem(), "");
    RvArrayDestroy(empty);
}

TEST_F(BucketOrder, points_that_no_pixel_has_are_far_outside)
{
    RtArray* const list =
        listOf(RtPoint2{ 1e30f, -1e30f }, RtPoint2{ NAN, INFINITY }, RtPoint2{ -INFINITY, NAN });
    const Cells corners = cornersOf(list, 5, 5, 16);
    ASSERT_EQ(corners.size(), 3u);
    for (const auto& [x, y] : corners) {
        EXPECT_GT(std::abs(double(x)), 1e9);
        EXPECT_GT(std::abs(double(y)), 1e9);
    }
    RvArrayDestroy(list);
}

TEST_F(BucketOrder, a_list_of_another_type_is_reported_and_read_all_the_same)
{
    RtArray* const list = RvArray(2, 1, RV_TYPE_FLOAT, 70.0, 10.0);
    EXPECT_EQ(cornersOf(list, 0, 0, 64).size(), 2u);
    const std::vector<std::string> problems = takeProblems();
    ASSERT_EQ(problems.size(), 2u);
    EXPECT_EQ(problems[0].rfind("RvArrayGetPnt2Func: array-type does not match request-type", 0),
              0u)
        << problems[0];
    RvArrayDestroy(list);
}

TEST_F(BucketOrder, a_list_without_memory_has_no_buckets)
{
    RtArray* const list = listOf(RtPoint2{ 70, 10 });
    {
        const node_tools::AllocationLimit limit(0);
        EXPECT_TRUE(cornersOf(list, 0, 0, 64).empty());
    }
    EXPECT_TRUE(
        node_tools::reportsFailure(takeProblem(), "core.src.buckets", "RvBucketSchedulerInit"));
    RvArrayDestroy(list);
}
