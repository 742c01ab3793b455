#include "declare.h"

#include "nodes.h"
#include "universe_fixture.h"

#include <algorithm>

namespace {

using Declare = Universe;

// A field declared with another type's function would share bytes with its neighbour.
TEST_F(Declare, every_parameter_of_every_built_in_type_has_bytes_of_its_own)
{
    int laid_out = 0;
    for (int i = 0; i < RvGetNumInstalledNodes(); ++i) {
        const RtNodeEntry* const entry = RvNodeEntryLookUpByIndex(i);
        if (!entry->struct_size)
            continue;
        ++laid_out;
        std::vector<const RtParamEntry*> params;
        for (unsigned p = 0; p < entry->num_params; ++p)
            params.push_back(&entry->params[p]);
        std::sort(params.begin(), params.end(),
                  [](const auto* a, const auto* b) { return a->offset < b->offset; });
        int end = 0;
        for (const RtParamEntry* param : params) {
            EXPECT_GE(param->offset, end) << entry->name << "." << param->name;
            end = param->offset + RvParamGetTypeSize(param->type);
        }
        EXPECT_LE(end, entry->struct_size) << entry->name;
    }
    EXPECT_GT(laid_out, 0);
    EXPECT_EQ(takeProblem(), "");
}

TEST(DoNothing, stands_in_for_a_method_of_any_signature_and_returns_zero)
{
    int (*const number)(const char*, float) = rv::do_nothing;
    void* (*const pointer)(int) = rv::do_nothing;
    void (*const nothing)() = rv::do_nothing;
    EXPECT_EQ(number("", 1), 0);
    EXPECT_EQ(pointer(1), nullptr);
    nothing();
}

} // namespace
