#!/usr/bin/env python3
"""Writes what the scenes of the gallery include but nobody would write by hand: the board, the
game on it, the forest and the paint of the pool balls.

    generate.py [FOLDER [DATA]]    default: the folder "generated" beside this script

With DATA, a folder with the scans "meshes/nefertiti-lowres.obj", "meshes/koala.obj" and
"meshes/human_neutral.obj", the cow of "meshes/spot" and maps in "env", also scenes that show them
from where they are.
"""
import math
import random
import sys
from pathlib import Path

IDENTITY = ((1, 0, 0), (0, 1, 0), (0, 0, 1))


def number(x):
    return f"{x:.6g}"


def rows(axes, place):
    """Sixteen numbers of a matrix from the images of the axes and of the origin."""
    lines = [" ".join(map(number, axis)) + " 0" for axis in axes]
    return "  ".join(lines + [" ".join(map(number, place)) + " 1"])


def turned(angle, size=1.0):
    c, s = math.cos(angle) * size, math.sin(angle) * size
    return ((c, 0, -s), (0, size, 0), (s, 0, c))


def block(kind, **parameters):
    lines = [f" {name} {value}" for name, value in parameters.items()]
    return "\n".join([kind, "{"] + lines + ["}", ""])


def instance(name, node, matrix, shader=None):
    parameters = {"name": name, "node": node, "visibility": 65535, "matrix": matrix}
    if shader:
        parameters["shader"] = shader
    return block("ginstance", **parameters)


def paint(name, colour, **more):
    return block("standard", name=name, Kd=0.8, Kd_color=" ".join(map(number, colour)), **more)


def board():
    """Eight by eight squares of half a unit, one mesh with two shaders, in a frame."""
    points, corners, shaders = [], [], []
    for row in range(8):
        for column in range(8):
            x, z = column / 2 - 2, row / 2 - 2
            first = len(points)
            points += [(x, 0, z), (x, 0, z + 0.5), (x + 0.5, 0, z + 0.5), (x + 0.5, 0, z)]
            corners += range(first, first + 4)
            shaders.append((row + column) % 2)
    mesh = block(
        "polymesh", name="board", nsides="64 1 UINT " + "4 " * 64,
        vidxs=f"{len(corners)} 1 UINT " + " ".join(map(str, corners)),
        vlist=f"{len(points)} 1 POINT " + " ".join(number(c) for p in points for c in p),
        shidxs="64 1 BYTE " + " ".join(map(str, shaders)),
        shader="2 1 NODE light_square dark_square")
    return "\n".join([
        paint("light_square", (0.78, 0.66, 0.47), Ks=0.1, specular_roughness=0.3),
        paint("dark_square", (0.2, 0.1, 0.06), Ks=0.1, specular_roughness=0.3),
        paint("frame_wood", (0.12, 0.06, 0.035), Ks=0.1, specular_roughness=0.4),
        block("box", name="frame", min="-2.2 -0.16 -2.2", max="2.2 -0.002 2.2",
              shader="frame_wood"),
        paint("cloth", (0.25, 0.27, 0.3)),
        block("plane", name="table", point="0 -0.16 0", normal="0 1 0", shader="cloth"), mesh])


def game():
    """Chessmen on their squares; the random numbers are those of one seed."""
    source = random.Random(7)
    squares = [(column, row) for column in range(8) for row in range(8)]
    source.shuffle(squares)
    lines = []
    for i, (column, row) in enumerate(sorted(squares[:26])):
        kind = "rook" if source.random() < 0.45 else "bishop"
        colour = "ivory" if row > 3 else "ebony"
        place = (column / 2 - 1.75, 0, row / 2 - 1.75)
        matrix = rows(turned(source.uniform(0, 2 * math.pi)), place)
        lines.append(instance(f"man{i}", kind, matrix, colour))
    return "\n".join(lines)


def falling_rook():
    """From 16 to 38 degrees about the right edge of its base, in eight steps."""
    edge, radius = (-0.55, 0, 0.25), 0.205
    keys = []
    for step in range(9):
        angle = math.radians(16 + 22 * step / 8)
        c, s = math.cos(angle), math.sin(angle)
        axes = ((c, -s, 0), (s, c, 0), (0, 0, 1))
        keys.append(rows(axes, (edge[0] - radius * c, radius * s, edge[2])))
    return instance("falling_rook", "rook", "1 9 MATRIX " + "  ".join(keys), "ivory")


def forest(rows_of_trees=64):
    source = random.Random(3)
    lines = [block("plane", name="meadow", normal="0 1 0", shader="grass")]
    for row in range(rows_of_trees):
        for column in range(48):
            x = (column - 24) * 560 + source.uniform(-230, 230)
            z = 3800 - row * 560 + source.uniform(-230, 230)
            if abs(x - 900 * math.sin(z / 2600)) < 620:  # a glade winds through the wood
                continue
            matrix = rows(turned(source.uniform(0, 2 * math.pi), source.uniform(0.7, 1.35)),
                          (x, 0, z))
            lines.append(instance(f"tree{row}_{column}", "beech", matrix))
    return "\n".join(lines)


def panes():
    colours = [(0.95, 0.25, 0.2), (0.98, 0.85, 0.2), (0.25, 0.75, 0.35), (0.2, 0.45, 0.95)]
    lines = []
    for i, colour in enumerate(colours):
        name = f"film{i}"
        # Opacity: what of each colour is held back.
        held = " ".join(number(1 - c) for c in colour)
        lines.append(block("standard", name=name, Kd=0.25, Kd_color=" ".join(map(number, colour)),
                           Ks=0.2, specular_roughness=0.1, opacity=held))
        angle = 0.5 + 0.3 * i
        x, z = -0.95 + 0.52 * i, 0.15 + 0.12 * (i % 2)
        dx, dz = 0.3 * math.cos(angle), 0.3 * math.sin(angle)
        corners = [(x - dx, 0.02, z - dz), (x + dx, 0.02, z + dz),
                   (x + dx, 0.95, z + dz), (x - dx, 0.95, z - dz)]
        lines.append(block(
            "polymesh", name=f"pane{i}", nsides=4, vidxs="4 1 UINT 0 1 2 3",
            vlist="4 1 POINT " + " ".join(number(c) for p in corners for c in p),
            opaque="off", shader=name))
    return "\n".join(lines)


def pool_materials():
    """The materials that the table's file names, balls in their usual colours."""
    balls = [(0.95, 0.75, 0.05), (0.05, 0.12, 0.55), (0.75, 0.05, 0.04), (0.25, 0.06, 0.4),
             (0.95, 0.35, 0.04), (0.02, 0.3, 0.12), (0.35, 0.04, 0.05), (0.02, 0.02, 0.02)]
    gloss = dict(Ks=0.2, specular_roughness=0.08, Kr=0.5, Fresnel="on", Krn=0.04)
    lines = [paint("felt", (0.04, 0.34, 0.14)), paint("cueRubber", (0.05, 0.05, 0.05)),
             paint("black", (0.2, 0.085, 0.05), Ks=0.15, specular_roughness=0.2),
             paint("chrome", (0.3, 0.3, 0.3), Ks=0.5, specular_roughness=0.15),
             paint("Material", (0.8, 0.82, 0.79)), paint("Material.002", (0.6, 0.5, 0.4)),
             paint("cueTip", (0.05, 0.3, 0.5)), paint("cueBrass", (0.5, 0.38, 0.14), Ks=0.4),
             paint("cueBody", (0.5, 0.36, 0.16)), paint("cueFront", (0.7, 0.55, 0.33)),
             paint("cueEnd", (0.1, 0.05, 0.04)), paint("ballCue", (0.86, 0.84, 0.78), **gloss)]
    lines += [paint(f"ballN{i}", balls[(i - 1) % 8], **gloss) for i in range(1, 16)]
    return "\n".join(lines)


def mesh(name, points, faces, **parameters):
    """A polygon mesh; faces are lists of indices."""
    corners = [str(i) for face in faces for i in face]
    return block(
        "polymesh", name=name, nsides=f"{len(faces)} 1 UINT " + " ".join(str(len(f)) for f in faces),
        vidxs=f"{len(corners)} 1 UINT " + " ".join(corners),
        vlist=f"{len(points)} 1 POINT " + " ".join(number(c) for p in points for c in p),
        **parameters)


def patch(name, columns, rows_of_points, place, **parameters):
    """A grid of quads; place(s, t) gives the point of the texture coordinates s, t in [0, 1]."""
    spots = [(i / columns, j / rows_of_points)
             for j in range(rows_of_points + 1) for i in range(columns + 1)]
    width = columns + 1
    faces = [[j * width + i, j * width + i + 1, (j + 1) * width + i + 1, (j + 1) * width + i]
             for j in range(rows_of_points) for i in range(columns)]
    corners = " ".join(str(i) for face in faces for i in face)
    return mesh(name, [place(s, t) for s, t in spots], faces,
                uvidxs=f"{4 * len(faces)} 1 UINT {corners}",
                uvlist=f"{len(spots)} 1 POINT2 " + " ".join(f"{number(s)} {number(t)}"
                                                            for s, t in spots), **parameters)


def table():
    return patch("table", 1, 1, lambda s, t: (6 * s - 3, 0, 2.2 - 5 * t), shader="table_wood")


def stage_curtain():
    """Boards, and behind them a curtain in folds."""
    def curtain(s, t):
        fold = math.sin(2 * math.pi * 11 * s) + 0.4 * math.sin(2 * math.pi * 4.3 * s + 1)
        return 8 * s - 4, 3.6 * t, -1.4 + 0.11 * fold * (1 - 0.35 * t)

    return "\n".join([
        patch("floor", 1, 1, lambda s, t: (9 * s - 4.5, 0, 3.6 - 5.4 * t), shader="stage_floor"),
        patch("curtain", 240, 2, curtain, smoothing="on", shader="velvet")])


def model(name):
    """Points and faces of an OBJ file."""
    points, faces = [], []
    for line in (Path(__file__).parent / "models" / f"{name}.obj").read_text().splitlines():
        words = line.split()
        if line.startswith("v "):
            points.append(tuple(map(float, words[1:4])))
        elif line.startswith("f "):
            faces.append([int(word.split("/")[0]) - 1 for word in words[1:]])
    return points, faces


def sss():
    """Bodies that light goes through; the spacing of their samples must suit their radius."""
    def body(name, points, faces, place, size, spacing, shader):
        matrix = rows(turned(0.6, size), place)
        return mesh(name, points, faces, smoothing="on", sss_sample_spacing=number(spacing),
                    matrix=matrix, shader=shader)

    def ball(columns=48, rings=24):
        points = [(0.36 * math.cos(a) * math.sin(b), 0.36 * math.cos(b), 0.36 * math.sin(a) * math.sin(b))
                  for b in (math.pi * j / rings for j in range(rings + 1))
                  for a in (2 * math.pi * i / columns for i in range(columns))]
        at = lambda i, j: j * columns + i % columns
        return points, [[at(i, j), at(i + 1, j), at(i + 1, j + 1), at(i, j + 1)]
                        for j in range(rings) for i in range(columns)]

    return "\n".join([body("wax_rook", *model("rook"), (-0.62, 0, 0), 1.3, 0.015, "wax"),
                      body("jade_bishop", *model("bishop"), (0.6, 0, -0.15), 1.3, 0.015, "jade"),
                      body("marble_ball", *ball(), (0.05, 0.3, 0.45), 0.83, 0.011, "marble")])


def environment(image, exposure):
    """A map around the scene, that lights it and is seen behind it. Diffuse and glossy rays (0x60)
    must not find it, because its light would count twice."""
    look = dict(format="latlong", color="environment", intensity=number(exposure))
    return "\n".join([block("image", name="environment", filename=f'"{image}"'),
                      block("skydome_light", name="daylight", resolution=512, samples=2, **look),
                      block("sky", name="backdrop", visibility=0xFFFF - 0x60, **look)])


def studio(data=None):
    """The painted studio, or a photographed one."""
    photograph = Path(data or "") / "env" / "studio_small_03_1k.hdr"
    return environment(photograph, 0.3) if data else environment("studio.tx", 0.8)


COLOR_MODES = ("color ng n bary uv u v dpdu dpdv p prims wire polywire obj edgelength floatgrid "
               "reflectline bad_uvs").split()
SHADE_MODES = "ndoteye lambert flat ambocc".split()


def utility_modes():
    """A rook for every mode of colour, then for every mode of shading, eight to a row."""
    points, faces = model("rook")
    corners = " ".join(str(i) for face in faces for i in face)
    uvs = " ".join(f"{number(0.5 + math.atan2(z, x) / (2 * math.pi))} {number(y)}"
                   for x, y, z in points)
    parameters = dict(uvidxs=f"{sum(map(len, faces))} 1 UINT {corners}",
                      uvlist=f"{len(points)} 1 POINT2 {uvs}", smoothing="on", visibility=0)
    lines = [mesh("rook", points, faces, **parameters)]
    shown = [dict(color_mode=mode, shade_mode="flat") for mode in COLOR_MODES]
    shown += [dict(shade_mode=mode, color="0.85 0.6 0.3") for mode in SHADE_MODES]
    for i, modes in enumerate(shown):
        row, column = divmod(i, 8)
        lines.append(block("utility", name=f"mode{i}", **modes))
        lines.append(instance(f"rook{i}", "rook",
                              rows(turned(0.5), (column * 0.62, -row * 0.98, 0)), f"mode{i}"))
    return "\n".join(lines)


def bounds(path):
    low, high = [math.inf] * 3, [-math.inf] * 3
    with open(path) as file:
        for line in file:
            if line.startswith("v "):
                point = [float(word) for word in line.split()[1:4]]
                low = list(map(min, low, point))
                high = list(map(max, high, point))
    return low, high


def scan(name, path, place, height, shader, axes=IDENTITY, turn=0.0):
    """A scan put upright by the axes, turned, and stood on a place, that high."""
    low, high = bounds(path)
    corners = [[sum(corner[k] * axes[k][i] for k in range(3)) for i in range(3)]
               for corner in ((x, y, z) for x in (low[0], high[0]) for y in (low[1], high[1])
                              for z in (low[2], high[2]))]
    least, most = list(map(min, *corners)), list(map(max, *corners))
    size = height / (most[1] - least[1])
    c, s = math.cos(turn) * size, math.sin(turn) * size
    spin = ((c, 0, -s), (0, size, 0), (s, 0, c))
    spun = [tuple(sum(axis[k] * spin[k][i] for k in range(3)) for i in range(3)) for axis in axes]
    foot = ((least[0] + most[0]) / 2, least[1], (least[2] + most[2]) / 2)
    offset = [place[i] - sum(foot[k] * spin[k][i] for k in range(3)) for i in range(3)]
    file = block("procedural", name=name + "_scan", dso=f'"{path}"', load_at_init="on",
                 visibility=0)
    return file + "\n" + instance(name, name + "_scan", rows(spun, offset), shader)


def scans(data):
    meshes = Path(data) / "meshes"
    return "\n".join([
        scan("bust", meshes / "nefertiti-lowres.obj", (0, 0, 0), 1.5, "limestone",
             turn=-0.5),
        scan("koala", meshes / "koala.obj", (-1.1, 0, 0.3), 0.75, "bronze", turn=0.5),
        scan("body", meshes / "human_neutral.obj", (1.15, 0, -0.1), 1.45, "plaster", turn=-0.4)])


def cow(data):
    """Spot, a cow with a painted hide, under a photographed sky."""
    folder = Path(data) / "meshes" / "spot"
    points, uvs, faces = [], [], []
    for line in (folder / "spot_triangulated.obj").read_text().splitlines():
        words = line.split()
        if line.startswith("v "):
            points.append(tuple(map(float, words[1:4])))
        elif line.startswith("vt "):
            uvs.append(words[1:3])
        elif line.startswith("f "):
            faces.append([tuple(int(i) - 1 for i in word.split("/")[:2]) for word in words[1:]])
    corners = " ".join(str(corner[1]) for face in faces for corner in face)
    foot = min(y for _, y, _ in points)
    return "\n".join([
        block("image", name="hide", filename=f'"{folder / "spot_texture.png"}"'),
        environment(Path(data) / "env" / "potsdamer_platz_1k.hdr", 0.8),
        mesh("spot", points, [[corner[0] for corner in face] for face in faces], smoothing="on",
             uvidxs=f"{3 * len(faces)} 1 UINT {corners}",
             uvlist=f"{len(uvs)} 1 POINT2 " + " ".join(" ".join(uv) for uv in uvs),
             matrix=rows(turned(2.6), (0, -foot, 0)), shader="cow")])


def main():
    folder = Path(sys.argv[1]) if len(sys.argv) > 1 else Path(__file__).parent / "generated"
    folder.mkdir(parents=True, exist_ok=True)
    for write in (board, game, falling_rook, forest, panes, pool_materials, table, stage_curtain, sss,
                  utility_modes):
        (folder / f"{write.__name__}.rvs").write_text(write() + "\n")
    (folder / "studio.rvs").write_text(studio(*sys.argv[2:3]) + "\n")
    if len(sys.argv) > 2:
        for write in (scans, cow):
            (folder / f"{write.__name__}.rvs").write_text(write(sys.argv[2]) + "\n")


if __name__ == "__main__":
    main()
