#!/usr/bin/env python3
"""Paints the maps of the gallery: a studio to be lit by, wood, tiles, a globe, a slide and a label.

    maps.py [FOLDER]    default: the folder "generated" beside this script

Radiance files are written by hand, so that the gallery needs nothing but Python.
"""
import math
import random
import sys
from pathlib import Path

import png


def write_png(path, width, height, pixel):
    """pixel(x, y) gives red, green and blue in [0, 1] of the display's encoding; y runs down."""
    png.write(path, [bytes(min(255, max(0, round(255 * c)))
                           for x in range(width) for c in pixel(x, y)) for y in range(height)])


def write_hdr(path, width, height, pixel):
    """pixel(x, y) gives linear red, green and blue; stored with one exponent for the three."""
    out = bytearray(f"#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y {height} +X {width}\n".encode())
    for y in range(height):
        for x in range(width):
            colour = pixel(x, y)
            mantissa, exponent = math.frexp(max(colour))
            if max(colour) < 1e-32:
                out += b"\0\0\0\0"
                continue
            scale = mantissa * 256 / max(colour)
            out += bytes([*(int(c * scale) for c in colour), exponent + 128])
    path.write_bytes(out)


def smooth(low, high, x):
    t = min(1, max(0, (x - low) / (high - low)))
    return t * t * (3 - 2 * t)


def mix(a, b, t):
    return tuple(p + (q - p) * t for p, q in zip(a, b))


class Lattice:
    """Smooth noise that repeats after `period` cells in both directions."""

    def __init__(self, period, seed):
        source = random.Random(seed)
        self.period = period
        self.values = [[source.random() for _ in range(period)] for _ in range(period)]

    def __call__(self, x, y):
        i, j = math.floor(x), math.floor(y)
        s, t = smooth(0, 1, x - i), smooth(0, 1, y - j)
        at = lambda a, b: self.values[b % self.period][a % self.period]
        low = at(i, j) + (at(i + 1, j) - at(i, j)) * s
        high = at(i, j + 1) + (at(i + 1, j + 1) - at(i, j + 1)) * s
        return low + (high - low) * t


def fractal(lattice, x, y, octaves=4):
    total = scale = 0.0
    for octave in range(octaves):
        total += lattice(x * 2 ** octave, y * 2 ** octave) / 2 ** octave
        scale += 1 / 2 ** octave
    return total / scale


def studio(folder):
    """A dim room as a latitude-longitude map: two soft boxes, a strip light and a warm floor."""
    width, height = 512, 256
    boxes = [  # azimuth and elevation of the centre in degrees, half sizes, colour
        (-60, 42, 26, 17, (13.0, 12.2, 11.0)),
        (75, 30, 14, 24, (4.5, 5.6, 7.5)),
        (170, 12, 4, 34, (9.0, 7.0, 4.6)),
    ]

    def pixel(x, y):
        azimuth = 360 * (x + 0.5) / width - 180
        elevation = 90 - 180 * (y + 0.5) / height
        walls = mix((0.11, 0.12, 0.15), (0.32, 0.34, 0.38), smooth(-5, 80, elevation))
        floor = mix((0.10, 0.075, 0.055), (0.17, 0.13, 0.10), smooth(-90, 0, elevation))
        colour = mix(floor, walls, smooth(-2, 2, elevation))
        for centre, up, half_width, half_height, light in boxes:
            across = abs((azimuth - centre + 180) % 360 - 180) / half_width
            along = abs(elevation - up) / half_height
            inside = (1 - smooth(0.94, 1.04, across)) * (1 - smooth(0.94, 1.04, along))
            colour = mix(colour, light, inside)
        return colour

    write_hdr(folder / "studio.hdr", width, height, pixel)


def wood(folder):
    """Five boards beside each other, with grain along them."""
    size, boards = 512, 5
    brightness = (0.13, 0.62, 0.31, 0.84, 0.45)
    grain = Lattice(64, 5)

    def pixel(x, y):
        board = y * boards // size
        along, across = x / size, y / size
        shade = 0.82 + 0.3 * brightness[board]
        wave = fractal(grain, along * 2 + board * 7.3, across * 32, 4)
        rings = 0.5 + 0.5 * math.sin(across * 190 + 9 * wave + board * 2.1)
        colour = mix((0.47, 0.29, 0.16), (0.70, 0.48, 0.29), 0.65 * wave + 0.35 * rings)
        within = (y * boards / size) % 1
        gap = smooth(0, 0.02, within) * (1 - smooth(0.98, 1, within))
        return tuple(c * shade * (0.35 + 0.65 * gap) for c in colour)

    write_png(folder / "wood.png", size, size, pixel)


def tiles(folder):
    """Heights: cushions that stand a little askew, with deep joints."""
    size, count = 256, 4
    rough = Lattice(64, 9)

    def pixel(x, y):
        s, t = x / size * count, y / size * count
        u, v = s % 1, t % 1
        edge = min(u, 1 - u, v, 1 - v)
        tilt = 0.12 * ((int(s) * 7 + int(t) * 3) % 5 / 4 - 0.5) * (u - 0.5)
        height = smooth(0.03, 0.16, edge) * (0.78 + tilt) + 0.06 * fractal(rough, s * 8, t * 8)
        return (height,) * 3

    write_png(folder / "tiles.png", size, size, pixel)


def globe(folder):
    """A made-up world: seas, land by height, ice at the poles, and a grid of 15 degrees."""
    width, height = 512, 256
    relief = Lattice(32, 21)

    def pixel(x, y):
        longitude, latitude = 2 * math.pi * x / width, math.pi * (0.5 - (y + 0.5) / height)
        ring = math.cos(latitude)
        a, b = 3 + 2.4 * ring * math.cos(longitude), 3 + 2.4 * ring * math.sin(longitude)
        level = fractal(relief, a + 1.7 * math.sin(latitude) + 9, b + 2.9 * math.sin(latitude), 5)
        ice = smooth(1.05, 1.25, abs(latitude) + 0.5 * (level - 0.5))
        sea = mix((0.07, 0.18, 0.34), (0.16, 0.42, 0.55), smooth(0.3, 0.52, level))
        land = mix((0.35, 0.47, 0.22), (0.62, 0.51, 0.34), smooth(0.55, 0.72, level))
        colour = mix(mix(sea, land, smooth(0.515, 0.53, level)), (0.93, 0.95, 0.97), ice)
        grid = min(x % (width / 24), y % (height / 12))
        return mix((0.95, 0.9, 0.75), colour, 0.55 if grid < 1 else 1)

    write_png(folder / "globe.png", width, height, pixel)


def slide(folder):
    """A window behind branches, for a spot light to throw."""
    size = 256
    source = random.Random(11)
    leaves = [(source.uniform(0, 1), source.uniform(0, 0.75), source.uniform(0.02, 0.06),
               source.uniform(0, math.pi)) for _ in range(90)]

    def pixel(x, y):
        s, t = (x + 0.5) / size, (y + 0.5) / size
        pane_x, pane_y = (s * 3) % 1, (t * 4) % 1
        bars = min(pane_x, 1 - pane_x) * 4 / 3, min(pane_y, 1 - pane_y)
        light = smooth(0.05, 0.09, bars[0]) * smooth(0.05, 0.09, bars[1])
        if not (0.04 < s < 0.96 and 0.03 < t < 0.97):
            light = 0
        near = (leaf for leaf in leaves if abs(s - leaf[0]) < 1.1 * leaf[2] > abs(t - leaf[1]))
        for a, b, r, turn in near:
            c, d = math.cos(turn), math.sin(turn)
            p, q = (s - a) * c + (t - b) * d, (t - b) * c - (s - a) * d
            light *= smooth(0.7, 1.1, math.hypot(p, 2.6 * q) / r)
        return tuple(light * c for c in (1.0, 0.9, 0.72))

    write_png(folder / "slide.png", size, size, pixel)


def main():
    folder = Path(sys.argv[1]) if len(sys.argv) > 1 else Path(__file__).parent / "generated"
    folder.mkdir(parents=True, exist_ok=True)
    for paint in (studio, wood, tiles, globe, slide):
        paint(folder)


if __name__ == "__main__":
    main()
