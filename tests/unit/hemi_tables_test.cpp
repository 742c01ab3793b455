#include "golden.h"
#include "hemi_tables.h"
#include "universe_fixture.h"

using nlohmann::json;

TEST_F(Universe, hemisphere_tables_are_the_golden_ones)
{
    for (const json& v : goldenVectors("brdf", "RvInitializeHemiTables")) {
        const int index = v.at("in").at("index");
        const rv::CosSin radius = rv::hemi_tables.radius[index];
        const rv::CosSin angle = rv::hemi_tables.angle[index];
        expectGoldenNumbers(v, "radius", { radius.cos, radius.sin });
        expectGoldenNumbers(v, "angle", { angle.cos, angle.sin });
    }
}

TEST_F(Universe, numbers_find_the_entry_of_their_step)
{
    EXPECT_EQ(rv::hemiStep(0), 0);
    EXPECT_EQ(rv::hemiStep(0.00019f), 0);
    EXPECT_EQ(rv::hemiStep(0.5f), 2500);
    EXPECT_EQ(rv::hemiStep(0x1.fffffep-1f), 4999);
    EXPECT_EQ(rv::hemiStep(1), 5000);
    EXPECT_EQ(&rv::hemiAngle(0.5f), &rv::hemi_tables.angle[2500]);
    EXPECT_EQ(&rv::hemiRadius(0.25f), &rv::hemi_tables.radius[1250]);
}
