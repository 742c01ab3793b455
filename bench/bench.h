// What the benchmarks share: options, timing and figures.
//
// Every program takes --threads N, --runs N and --json FILE, prints one line per figure and, when
// asked, writes {"figures": [{"name", "value", "unit", "peer", "peer_value", "ratio"}]}. A ratio
// above 1 means that we are better than the peer.
#ifndef RV_BENCH_H
#define RV_BENCH_H

#include <algorithm>
#include <chrono>
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <vector>

namespace bench {

struct Options {
    int threads = 1;
    int runs = 5;
    const char* json = nullptr;
};

inline Options parseOptions(int argc, char** argv)
{
    Options options;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!strcmp(argv[i], "--threads"))
            options.threads = std::max(1, atoi(argv[i + 1]));
        else if (!strcmp(argv[i], "--runs"))
            options.runs = std::max(1, atoi(argv[i + 1]));
        else if (!strcmp(argv[i], "--json"))
            options.json = argv[i + 1];
        else
            argc = 0;
    }
    if (argc % 2 == 0) {
        fprintf(stderr, "usage: %s [--threads N] [--runs N] [--json FILE]\n", argv[0]);
        exit(2);
    }
    return options;
}

struct Figure {
    std::string name;
    double value;
    std::string unit;
    std::string peer; // "" when no peer was measured
    double peer_value;
    double ratio;
};

class Report {
public:
    explicit Report(const Options& options) : json(options.json) {}
    ~Report()
    {
        if (json)
            write();
    }
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    void add(const std::string& name, double value, const std::string& unit)
    {
        printf("%-34s %12.2f %s\n", name.c_str(), value, unit.c_str());
        figures.push_back({ name, value, unit, "", 0, 0 });
    }

    // For times and sizes, where the smaller one is better.
    void addTimeWithPeer(const std::string& name, double value, const std::string& unit,
                         const std::string& peer, double peer_value)
    {
        addWithPeer(name, value, unit, peer, peer_value, peer_value / value);
    }

    // For rates, where the larger one is better.
    void addRateWithPeer(const std::string& name, double value, const std::string& unit,
                         const std::string& peer, double peer_value)
    {
        addWithPeer(name, value, unit, peer, peer_value, value / peer_value);
    }

private:
    void addWithPeer(const std::string& name, double value, const std::string& unit,
                     const std::string& peer, double peer_value, double ratio)
    {
        printf("%-34s %12.2f %s   (%s %.2f, ratio %.2f)\n", name.c_str(), value, unit.c_str(),
               peer.c_str(), peer_value, ratio);
        figures.push_back({ name, value, unit, peer, peer_value, ratio });
    }

    void write() const
    {
        FILE* const file = fopen(json, "w");
        if (!file) {
            fprintf(stderr, "cannot write %s\n", json);
            exit(1);
        }
        fprintf(file, "{\"figures\": [");
        const char* separator = "";
        for (const Figure& f : figures) {
            fprintf(file, "%s\n  {\"name\": \"%s\", \"value\": %.6g, \"unit\": \"%s\"", separator,
                    f.name.c_str(), f.value, f.unit.c_str());
            if (!f.peer.empty())
                fprintf(file, ", \"peer\": \"%s\", \"peer_value\": %.6g, \"ratio\": %.4g",
                        f.peer.c_str(), f.peer_value, f.ratio);
            fprintf(file, "}");
            separator = ",";
        }
        fprintf(file, "\n]}\n");
        fclose(file);
    }

    const char* json;
    std::vector<Figure> figures;
};

// Seconds that body() takes.
template <class Body> double seconds(Body body)
{
    const auto start = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

template <class Measure> double median(int runs, Measure measure)
{
    std::vector<double> values;
    for (int i = 0; i < runs; ++i)
        values.push_back(measure());
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Gives free memory back to the system, so that every pass begins on untouched pages, as a scene
// that is being loaded does. Otherwise small passes would reuse the pages of the pass before.
inline void startFresh() { malloc_trim(0); }

// Keeps a result alive.
template <class T> void consume(const T& value) { asm volatile("" : : "g"(&value) : "memory"); }

} // namespace bench

#endif
