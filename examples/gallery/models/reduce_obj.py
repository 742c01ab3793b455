#!/usr/bin/env python3
"""Makes a small OBJ file of a large one: one group for each material, with the vertices that it
uses, positions rounded, texture coordinates and normals left out. Groups number their vertices
from their own first one on, so each can be read without the others.

    reduce_obj.py IN.obj[.gz] OUT.obj[.gz] [--digits N] [--stand] [--name NAME]
"""
import argparse
import gzip


def opened(path, mode):
    # A fixed time stamp, so that the same input gives the same bytes.
    if path.endswith(".gz"):
        return gzip.open(path, mode + "t") if mode == "r" else gzip_writer(path)
    return open(path, mode)


def gzip_writer(path):
    import io
    raw = gzip.GzipFile(filename="", mode="wb", compresslevel=9, fileobj=open(path, "wb"), mtime=0)
    return io.TextIOWrapper(raw)


def read(path):
    """Vertices as texts, and the faces of each material as tuples of vertex indices."""
    vertices, faces, material = [], {}, "default"
    with opened(path, "r") as file:
        for line in file:
            words = line.split()
            if not words:
                continue
            if words[0] == "v":
                vertices.append(words[1:4])
            elif words[0] == "usemtl":
                material = words[1]
            elif words[0] == "f":
                face = tuple(int(word.split("/")[0]) for word in words[1:])
                face = tuple(i - 1 if i > 0 else len(vertices) + i for i in face)
                faces.setdefault(material, []).append(face)
    return vertices, faces


def stand(vertices):
    """Turns z up into y up and puts the middle of the base on the origin."""
    points = [[float(x), float(z), -float(y)] for x, y, z in vertices]
    low = [min(column) for column in zip(*points)]
    high = [max(column) for column in zip(*points)]
    offset = [(low[0] + high[0]) / 2, low[1], (low[2] + high[2]) / 2]
    return [[str(x - o) for x, o in zip(point, offset)] for point in points]


def rounded(word, digits):
    text = f"{float(word):.{digits}f}"
    text = text.rstrip("0").rstrip(".") if "." in text else text
    return "0" if text == "-0" else text


def write(path, vertices, faces, digits):
    first = 1
    with opened(path, "w") as file:
        for material, polygons in faces.items():
            numbers = {}
            file.write(f"g {material}\nusemtl {material}\ns 1\n")
            for polygon in polygons:
                for vertex in polygon:
                    position = " ".join(rounded(word, digits) for word in vertices[vertex])
                    if position not in numbers:
                        numbers[position] = first + len(numbers)
                        file.write(f"v {position}\n")
            for polygon in polygons:
                corners = [numbers[" ".join(rounded(w, digits) for w in vertices[v])]
                           for v in polygon]
                distinct = [c for i, c in enumerate(corners) if c != corners[i - 1]]
                if len(set(distinct)) > 2:
                    file.write("f " + " ".join(map(str, distinct)) + "\n")
            first += len(numbers)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("source")
    parser.add_argument("target")
    parser.add_argument("--digits", type=int, default=2, help="decimals of positions")
    parser.add_argument("--stand", action="store_true", help="z up to y up, base on the origin")
    parser.add_argument("--name", help="of the only group of a file without materials")
    options = parser.parse_args()
    vertices, faces = read(options.source)
    if options.stand:
        vertices = stand(vertices)
    if options.name:
        faces = {options.name: faces["default"]}
    write(options.target, vertices, faces, options.digits)


if __name__ == "__main__":
    main()
