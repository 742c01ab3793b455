// Questions: how fast is a scene file with one large mesh read, plain beside reading the same file
// with cat and wc, compressed beside zlib alone; does a small node cost the same in a large file;
// how much memory does reading take beyond the arrays that stay; how fast are scene files written
// and OBJ files read?
#include "bench.h"

#include "nodes.h"
#include "objects/obj.h"
#include "rv.h"

#include <filesystem>
#include <fstream>
#include <math.h>
#include <unistd.h>
#include <zlib.h>

namespace {

// A folder that is gone at the end.
struct Folder {
    Folder()
        : path(std::filesystem::temp_directory_path() /
               ("ruvell_scene_bench_" + std::to_string(getpid())))
    {
        std::filesystem::create_directory(path);
    }
    ~Folder() { std::filesystem::remove_all(path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string file(const char* name) const { return (path / name).string(); }

    std::filesystem::path path;
};

// A quiet universe.
struct Universe {
    Universe()
    {
        bench::startFresh();
        RvBegin();
        RvMsgSetConsoleFlags(RV_LOG_WARNINGS | RV_LOG_ERRORS);
    }
    ~Universe() { RvEnd(); }
    Universe(const Universe&) = delete;
    Universe& operator=(const Universe&) = delete;
};

} // namespace

static void require(bool condition, const char* what)
{
    if (condition)
        return;
    fprintf(stderr, "%s\n", what);
    exit(1);
}

static double megabytes(const std::string& path)
{
    return double(std::filesystem::file_size(path)) / 1e6;
}

// ---- The mesh: a wavy square of 1414 x 1414 quads, each of two triangles ----

static constexpr unsigned mesh_side = 1415;
static constexpr unsigned mesh_points = mesh_side * mesh_side;
static constexpr unsigned mesh_triangles = 2 * (mesh_side - 1) * (mesh_side - 1);
static constexpr double mesh_bytes =
    sizeof(RtPoint) * double(mesh_points) + sizeof(uint32_t) * 4.0 * mesh_triangles;

static RtPoint meshPoint(unsigned i)
{
    const float x = float(i % mesh_side) / 700 - 1, y = float(i / mesh_side) / 700 - 1;
    return { x, y, 0.1f * sinf(9 * x) * cosf(7 * y) };
}

static RtArray* cornersOfMesh()
{
    RtArray* const corners = RvArrayAllocate(3 * mesh_triangles, 1, RV_TYPE_UINT);
    uint32_t* out = static_cast<uint32_t*>(corners->data);
    for (unsigned y = 0; y + 1 < mesh_side; ++y)
        for (unsigned x = 0; x + 1 < mesh_side; ++x) {
            const uint32_t a = y * mesh_side + x, b = a + 1, c = a + mesh_side, d = c + 1;
            for (const uint32_t corner : { a, b, d, a, d, c })
                *out++ = corner;
        }
    return corners;
}

static void makeMesh()
{
    RtNode* const mesh = RvNode("polymesh");
    RvNodeSetStr(mesh, "name", "mesh");
    RtArray* const points = RvArrayAllocate(mesh_points, 1, RV_TYPE_POINT);
    for (unsigned i = 0; i < mesh_points; ++i)
        static_cast<RtPoint*>(points->data)[i] = meshPoint(i);
    RtArray* const sides = RvArrayAllocate(mesh_triangles, 1, RV_TYPE_UINT);
    std::fill_n(static_cast<uint32_t*>(sides->data), mesh_triangles, 3u);
    RvNodeSetArray(mesh, "vlist", points);
    RvNodeSetArray(mesh, "vidxs", cornersOfMesh());
    RvNodeSetArray(mesh, "nsides", sides);
}

// ---- Writing ----

static double writeSeconds(const std::string& path)
{
    const Universe universe;
    makeMesh();
    return bench::seconds(
        [&] { require(RvRVSWrite(path.c_str(), RV_NODE_SHAPE, false) == 0, "cannot write"); });
}

static void reportWriting(bench::Report& figures, int runs, const std::string& path)
{
    const double time = bench::median(runs, [&] { return writeSeconds(path); });
    figures.add("scene.write.mesh4m", megabytes(path) / time, "MB/s");
}

// ---- Reading ----

static double readSeconds(const std::string& path)
{
    const Universe universe;
    const double time =
        bench::seconds([&] { require(RvRVSLoad(path.c_str()) == 0, "cannot read"); });
    require(RvNodeGetArray(RvNodeLookUpByName("mesh"), "vidxs")->nelements == 3 * mesh_triangles,
            "not the mesh");
    return time;
}

static double shellSeconds(const std::string& command)
{
    return bench::seconds([&] { require(system(command.c_str()) == 0, "cannot run a command"); });
}

static void compress(const std::string& from, const std::string& to)
{
    gzFile const out = gzopen(to.c_str(), "wb2");
    std::ifstream in(from, std::ios::binary);
    std::vector<char> piece(1 << 18);
    while (in.read(piece.data(), std::streamsize(piece.size())), in.gcount() > 0)
        require(gzwrite(out, piece.data(), unsigned(in.gcount())) == int(in.gcount()), "disk full");
    require(gzclose(out) == Z_OK, "disk full");
}

static double inflateSeconds(const std::string& path)
{
    std::vector<char> piece(1 << 18);
    return bench::seconds([&] {
        gzFile const in = gzopen(path.c_str(), "rb");
        while (gzread(in, piece.data(), unsigned(piece.size())) > 0)
            bench::consume(piece);
        gzclose(in);
    });
}

static void reportReading(bench::Report& figures, int runs, const Folder& folder)
{
    const std::string plain = folder.file("mesh.rvs"), zipped = folder.file("mesh.rvs.gz");
    const double size = megabytes(plain);
    const double reading = bench::median(runs, [&] { return readSeconds(plain); });
    const std::string command = "cat '" + plain + "' | wc > /dev/null";
    const double counting = bench::median(runs, [&] { return shellSeconds(command); });
    figures.addRateWithPeer("scene.read.mesh4m.plain", size / reading, "MB/s", "cat | wc",
                            size / counting);
    compress(plain, zipped);
    const double unzipping = bench::median(runs, [&] { return readSeconds(zipped); });
    const double inflating = bench::median(runs, [&] { return inflateSeconds(zipped); });
    figures.addRateWithPeer("scene.read.mesh4m.gzip", size / unzipping, "MB/s", "zlib",
                            size / inflating);
}

// ---- Many nodes ----

static double nodesPerSecond(const Folder& folder, int count)
{
    const std::string path = folder.file("nodes.rvs");
    if (!std::filesystem::exists(path) || count < 1000000) {
        std::ofstream out(path);
        for (int i = 0; i < count; ++i)
            out << "sphere\n{\n name ball_" << i << "\n center " << i % 1000 << " 0.5 -2\n"
                << " radius 0.25\n visibility 255\n}\n\n";
    }
    const Universe universe;
    return count / bench::seconds([&] { require(RvRVSLoad(path.c_str()) == 0, "cannot read"); });
}

static void reportNodes(bench::Report& figures, int runs, const Folder& folder)
{
    const double small = bench::median(runs, [&] { return nodesPerSecond(folder, 100000); });
    std::filesystem::remove(folder.file("nodes.rvs"));
    const double large = bench::median(runs, [&] { return nodesPerSecond(folder, 1000000); });
    std::filesystem::remove(folder.file("nodes.rvs"));
    figures.add("scene.read.nodes1m", large, "nodes/s");
    figures.add("scene.growth.nodes1m", small / large, "x the time of 100k");
}

// ---- Memory ----

// Of this process, in bytes, from a line of the system's report such as "VmHWM:".
static double statusBytes(const char* line_name)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind(line_name, 0) == 0)
            return 1024 * atof(line.c_str() + strlen(line_name));
    return 0;
}

static void resetPeak() { std::ofstream("/proc/self/clear_refs") << "5\n"; }

static void reportPeak(bench::Report& figures, const Folder& folder)
{
    const Universe universe;
    bench::startFresh();
    const double before = statusBytes("VmRSS:");
    resetPeak();
    require(RvRVSLoad(folder.file("mesh.rvs").c_str()) == 0, "cannot read");
    figures.add("scene.read.peak", (statusBytes("VmHWM:") - before) / mesh_bytes,
                "x the final arrays");
}

// ---- OBJ files ----

static void writeObj(const std::string& path)
{
    FILE* const file = fopen(path.c_str(), "w");
    require(file, "cannot write");
    for (unsigned i = 0; i < mesh_points; ++i) {
        const RtPoint p = meshPoint(i);
        fprintf(file, "v %.6f %.6f %.6f\n", double(p.x), double(p.y), double(p.z));
    }
    const Universe universe; // which arrays need
    RtArray* const corners = cornersOfMesh();
    const uint32_t* const c = static_cast<uint32_t*>(corners->data);
    for (unsigned i = 0; i < mesh_triangles; ++i)
        fprintf(file, "f %u %u %u\n", c[3 * i] + 1, c[3 * i + 1] + 1, c[3 * i + 2] + 1);
    RvArrayDestroy(corners);
    require(fclose(file) == 0, "disk full");
}

static double readObjSeconds(const std::string& path)
{
    const Universe universe;
    RtList* const nodes = RvList(nullptr);
    double time;
    {
        RtObjReader reader;
        time = bench::seconds([&] { require(reader.read(path.c_str(), nodes), "cannot read"); });
    }
    require(RvListSize(nodes) == 1, "not the mesh");
    RvListDestroy(nodes);
    return time;
}

static void reportObj(bench::Report& figures, int runs, const Folder& folder)
{
    const std::string path = folder.file("mesh.obj");
    writeObj(path);
    const double time = bench::median(runs, [&] { return readObjSeconds(path); });
    figures.add("scene.obj.4m", megabytes(path) / time, "MB/s");
    std::filesystem::remove(path);
}

int main(int argc, char** argv)
{
    const bench::Options options = bench::parseOptions(argc, argv);
    bench::Report figures(options);
    const Folder folder;
    reportWriting(figures, options.runs, folder.file("mesh.rvs"));
    reportPeak(figures, folder);
    reportReading(figures, options.runs, folder);
    std::filesystem::remove(folder.file("mesh.rvs"));
    std::filesystem::remove(folder.file("mesh.rvs.gz"));
    reportNodes(figures, options.runs, folder);
    reportObj(figures, options.runs, folder);
    return 0;
}
