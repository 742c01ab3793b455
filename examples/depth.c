// Builds a scene of a mesh, an instance of it and a sphere, probes it with a grid of rays and
// prints how far away each hit is, as characters from near to far.
#include <ruvell/rv.h>
#include <stdio.h>

enum { width = 72, height = 18 };

// A pyramid: four corners of the base and the tip.
static RtNode* makePyramid(void)
{
    RtNode* mesh = RvNode("polymesh");
    RvNodeSetStr(mesh, "name", "pyramid");
    RvNodeSetArray(mesh, "vlist",
                   RvArray(5, 1, RV_TYPE_POINT, (RtPoint){ -1, -1, 1 }, (RtPoint){ 1, -1, 1 },
                           (RtPoint){ 1, -1, -1 }, (RtPoint){ -1, -1, -1 }, (RtPoint){ 0, 1, 0 }));
    RvNodeSetArray(mesh, "nsides", RvArray(5, 1, RV_TYPE_UINT, 4u, 3u, 3u, 3u, 3u));
    RvNodeSetArray(mesh, "vidxs",
                   RvArray(16, 1, RV_TYPE_UINT, 3u, 2u, 1u, 0u, 0u, 1u, 4u, 1u, 2u, 4u, 2u, 3u, 4u,
                           3u, 0u, 4u));
    return mesh;
}

// The same pyramid once more: turned, smaller and to the right.
static void placeAnother(RtNode* mesh)
{
    const RtVector size = { 0.6f, 0.6f, 0.6f }, place = { 2.4f, -0.4f, 0 };
    RtMatrix scaling, rotation, translation, matrix;
    RvM4Scaling(&scaling, &size);
    RvM4RotationY(&rotation, 30);
    RvM4Translation(&translation, &place);
    RvM4Mult(&matrix, &scaling, &rotation);
    RvM4Mult(&matrix, &matrix, &translation);

    RtNode* instance = RvNode("ginstance");
    RvNodeSetStr(instance, "name", "pyramid again");
    RvNodeSetPtr(instance, "node", mesh);
    RvNodeSetArray(instance, "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &matrix));
}

static void makeSphere(void)
{
    RtNode* sphere = RvNode("sphere");
    RvNodeSetArray(sphere, "center", RvArray(1, 1, RV_TYPE_POINT, (RtPoint){ -2.4f, 0, 0 }));
    RvNodeSetArray(sphere, "radius", RvArray(1, 1, RV_TYPE_FLOAT, 1.0));
}

// The distance of the first hit of a ray through a character, negative without one.
static double probe(int column, int row)
{
    const RtPoint eye = { 0, 0.5f, 6 };
    const RtVector direction = { (2 * ((float)column + 0.5f) / width - 1) * 0.6f,
                                 (1 - 2 * ((float)row + 0.5f) / height) * 0.3f - 0.08f, -1 };
    const RtShaderGlobals origin = { 0 };
    RtShaderGlobals hit = { 0 };
    RtRay ray;
    RvMakeRay(&ray, RV_RAY_CAMERA, &eye, &direction, 1e30, &origin);
    return RvTraceProbe(&ray, &hit) ? hit.ray_length : -1;
}

static char shadeOf(double distance)
{
    static const char ramp[] = "@%#*+=-:."; // from near to far
    const double nearest = 4.9, farthest = 6.3;
    if (distance < 0)
        return ' ';
    const int steps = (int)sizeof ramp - 1;
    const int step = (int)((distance - nearest) / (farthest - nearest) * steps);
    return ramp[step < 0 ? 0 : step < steps ? step : steps - 1];
}

int main(void)
{
    RvBegin();
    placeAnother(makePyramid());
    makeSphere();

    int hits = 0;
    const int result = RvRender(RV_RENDER_MODE_SETUP);
    if (result == RV_SUCCESS) {
        for (int row = 0; row < height; ++row) {
            char line[width + 1] = "";
            for (int column = 0; column < width; ++column) {
                const double distance = probe(column, row);
                line[column] = shadeOf(distance);
                hits += distance >= 0;
            }
            puts(line);
        }
        printf("%d of %d rays hit something\n", hits, width * height);
    }

    RvEnd();
    return result == RV_SUCCESS && hits > 0 ? 0 : 1;
}
