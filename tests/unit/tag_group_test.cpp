// Groups of tags.
#include "tag_group.h"

#include <gtest/gtest.h>

TEST(TagGroups, report_the_bits_of_the_equal_tags)
{
    uint8_t tags[16 + 3];
    for (unsigned i = 0; i < sizeof tags; ++i)
        tags[i] = uint8_t(i * 37 % 5 + (i % 2 ? 0x80 : 0));
    for (unsigned offset = 0; offset < 4; ++offset)
        for (unsigned tag = 0; tag < 256; ++tag) {
            unsigned expected = 0;
            for (unsigned i = 0; i < 16; ++i)
                expected |= unsigned(tags[offset + i] == tag) << i;
            EXPECT_EQ(rv::TagGroup(tags + offset).equalTo(uint8_t(tag)), expected);
        }
}
