// Question: how long does it take to open and close an empty universe?
#include "bench.h"

#include "rv.h"

int main(int argc, char** argv)
{
    const bench::Options options = bench::parseOptions(argc, argv);
    bench::Report figures(options);
    const int pairs = 20;
    const double cost = bench::median(options.runs, [] {
        return bench::seconds([] {
                   for (int i = 0; i < pairs; ++i) {
                       RvBegin();
                       RvEnd();
                   }
               }) *
               1e3 / pairs;
    });
    figures.add("begin.pair.empty", cost, "ms");
    return 0;
}
