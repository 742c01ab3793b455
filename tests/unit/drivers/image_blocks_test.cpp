// Tests of core/src/drivers/image_blocks.cpp.
#include "drivers/image_blocks.h"

#include "universe_fixture.h"

namespace {

using rv::PixelGrid;

TEST(ImageBlocks, a_grid_covers_its_window_from_the_corner_on)
{
    const PixelGrid grid = { { 10, 20, 109, 69 }, 64, 32 };
    EXPECT_EQ(grid.columns(), 2);
    EXPECT_EQ(grid.rows(), 2);
    EXPECT_EQ(grid.count(), 4u);
    EXPECT_TRUE(rv::isEqual(grid.cell(0, 0), { 10, 20, 73, 51 }));
    EXPECT_TRUE(rv::isEqual(grid.cell(1, 1), { 74, 52, 109, 69 })) << "cut at the edges";
    EXPECT_TRUE(rv::isEqual(grid.cellsWithin({ 73, 52, 74, 60 }), { 0, 1, 1, 1 }));
    const PixelGrid huge = { { 0, 0, 4, 4 }, INT_MAX, INT_MAX };
    EXPECT_EQ(huge.count(), 1u);
    EXPECT_TRUE(rv::isEqual(huge.cell(0, 0), { 0, 0, 4, 4 }));
}

TEST(ImageBlocks, windows_meet_and_grow)
{
    EXPECT_TRUE(rv::isEqual(rv::intersection({ 0, 0, 9, 9 }, { 5, -3, 20, 4 }), { 5, 0, 9, 4 }));
    EXPECT_TRUE(rv::isEmpty(rv::intersection({ 0, 0, 4, 4 }, { 5, 0, 9, 4 })));
    EXPECT_TRUE(rv::isEqual(rv::hull({ 0, 0, 9, 9 }, { 5, -3, 20, 4 }), { 0, -3, 20, 9 }));
    EXPECT_EQ(rv::windowEnd(5, 3), 7);
    EXPECT_EQ(rv::windowEnd(INT_MAX, INT_MAX), INT_MAX);
}

TEST_F(Universe, image_blocks_await_the_buckets_that_reach_into_them)
{
    rv::ImageBlocks b = {};
    b.blocks = { { 0, 0, 99, 99 }, 100, 64 };   // two bands
    b.buckets = { { 10, 10, 89, 73 }, 40, 40 }; // two columns, rows from 10 and from 50 on
    ASSERT_TRUE(rv::createBlocks(&b));
    EXPECT_EQ(b.at(0, 0).awaited, 4u);
    EXPECT_EQ(b.at(0, 1).awaited, 2u);
    rv::noteBucket(&b, { 10, 10, 49, 49 });
    EXPECT_EQ(b.at(0, 0).awaited, 3u);
    EXPECT_EQ(b.at(0, 1).awaited, 2u);
    rv::noteBucket(&b, { 50, 50, 89, 73 });
    EXPECT_EQ(b.at(0, 0).awaited, 2u);
    EXPECT_EQ(b.at(0, 1).awaited, 1u);
    rv::noteBucket(&b, { 50, 50, 89, 73 });
    rv::noteBucket(&b, { 50, 10, 89, 20 });
    EXPECT_EQ(b.at(0, 0).awaited, 2u) << "neither a second time nor a part of one";
    EXPECT_FALSE(rv::isComplete(b));
    rv::noteBucket(&b, { 50, 10, 89, 49 });
    rv::noteBucket(&b, { 10, 50, 49, 73 });
    EXPECT_EQ(b.at(0, 0).awaited, 0u);
    EXPECT_EQ(b.at(0, 1).awaited, 0u);
    EXPECT_TRUE(rv::isComplete(b));
    rv::destroyBlocks(&b);
}

} // namespace
