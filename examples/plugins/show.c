/* Renders a ball with the shader of stripes.c and, around it, the procedural of spiral.cpp, and
   prints what it sees as characters: '.' and '#' for the two colours of the stripes, 'o' for the
   spheres of the spiral.
       show FOLDER     where the two libraries are */
#include <ruvell/rv.h>
#include <stdio.h>

enum { width = 64, height = 32 };

static char canvas[height][width + 1];

/* The red channel tells the three colours apart. */
static char markOf(const uint8_t* pixel)
{
    return pixel[3] < 128 ? ' ' : pixel[0] > 200 ? '.' : pixel[0] > 50 ? '#' : 'o';
}

/* Called one at a time, without pixels when a bucket is begun. */
static void keepBucket(int x, int y, int columns, int rows, uint8_t* pixels, void* data)
{
    (void)data;
    for (int row = 0; pixels && row < rows; ++row)
        for (int column = 0; column < columns; ++column)
            canvas[y + row][x + column] = markOf(pixels + 4 * (row * columns + column));
}

static RtNode* makeNode(const char* type, const char* name)
{
    RtNode* node = RvNode(type);
    RvNodeSetStr(node, "name", name);
    return node;
}

/* Every other ring of the ball shows the colour of a second shader, which is linked. */
static void makeBall(void)
{
    RtNode* gray = makeNode("flat", "gray");
    RvNodeSetRGB(gray, "color", 0.3f, 0.3f, 0.3f);
    RtNode* rings = makeNode("stripes", "rings");
    RvNodeSetRGB(rings, "color1", 1, 1, 1);
    RvNodeLink(gray, "color2", rings);
    RtNode* ball = makeNode("sphere", "ball");
    RvNodeSetArray(ball, "radius", RvArray(1, 1, RV_TYPE_FLOAT, 0.75));
    RvNodeSetPtr(ball, "shader", rings);
}

/* Its spheres are made when the first ray enters these bounds. */
static void makeSpiral(const char* library)
{
    RtNode* black = makeNode("flat", "black");
    RvNodeSetRGB(black, "color", 0, 0, 0);
    RtNode* spiral = makeNode("procedural", "spiral");
    RvNodeSetStr(spiral, "dso", library);
    RvNodeSetStr(spiral, "data", "60 1.1 2");
    RvNodeSetPnt(spiral, "min", -1.15f, -1.05f, -1.15f);
    RvNodeSetPnt(spiral, "max", 1.15f, 1.05f, 1.15f);
    RvNodeSetPtr(spiral, "shader", black);
}

static void makeView(void)
{
    RtNode* camera = makeNode("persp_camera", "camera");
    RtMatrix matrix;
    const RtVector place = { 0, 0, 6 };
    RvM4Translation(&matrix, &place);
    RvNodeSetArray(camera, "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &matrix));
    RvNodeSetArray(camera, "fov", RvArray(1, 1, RV_TYPE_FLOAT, 24.0));
    makeNode("box_filter", "filter");
    RvNodeSetPtr(makeNode("driver_display", "display"), "callback", (void*)keepBucket);

    RtNode* options = RvUniverseGetOptions();
    RvNodeSetInt(options, "xres", width);
    RvNodeSetInt(options, "yres", height);
    RvNodeSetFlt(options, "aspect_ratio", 2); /* characters are higher than wide */
    RvNodeSetArray(options, "outputs", RvArray(1, 1, RV_TYPE_STRING, "RGBA RGBA filter display"));
}

int main(int argc, char** argv)
{
    char spiral[1024];
    const char* folder = argc > 1 ? argv[1] : ".";
    snprintf(spiral, sizeof spiral, "%s/spiral.so", folder);

    RvBegin();
    RvLoadPlugins(folder);
    makeBall();
    makeSpiral(spiral);
    makeView();
    const int result = RvRender(RV_RENDER_MODE_CAMERA);
    for (int row = 0; row < height; ++row)
        puts(canvas[row]);
    printf("%d shapes\n", RvUniverseGetNumGObjects());
    RvEnd();
    return result == RV_SUCCESS ? 0 : 1;
}
