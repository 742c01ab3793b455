#!/usr/bin/env python3
"""Puts PNG pictures of 8 bits a channel on one sheet: FOLDER/index.png, and FOLDER/index.html
that shows each with a caption.

    contact_sheet.py FOLDER PICTURE...    pictures are files of the folder
"""
import html
import sys
from pathlib import Path

import png

COLUMNS, THUMB_WIDTH, GAP = 3, 320, 12


def shrunk(picture):
    """The picture that wide, each pixel the mean of those it covers."""
    width, height, rows = picture
    thumb_height = max(1, height * THUMB_WIDTH // width)
    thumb = []
    for y in range(thumb_height):
        covered = rows[y * height // thumb_height:max((y + 1) * height // thumb_height, y * height // thumb_height + 1)]
        line = bytearray()
        for x in range(THUMB_WIDTH):
            first = x * width // THUMB_WIDTH
            last = max((x + 1) * width // THUMB_WIDTH, first + 1)
            for channel in range(3):
                values = [row[3 * i + channel] for row in covered for i in range(first, last)]
                line.append(sum(values) // len(values))
        thumb.append(bytes(line))
    return thumb


def sheet(thumbs):
    paper = b"\x20"
    width = 3 * (COLUMNS * (THUMB_WIDTH + GAP) + GAP)
    rows = [paper * width] * GAP
    for first in range(0, len(thumbs), COLUMNS):
        line = thumbs[first:first + COLUMNS]
        for y in range(max(map(len, line))):
            row = b"".join(paper * 3 * GAP + (thumb[y] if y < len(thumb) else paper * 3 * THUMB_WIDTH)
                           for thumb in line)
            rows.append(row.ljust(width, paper))
        rows += [paper * width] * GAP
    return rows


def page(names):
    figures = "\n".join(
        f'<figure><img src="{html.escape(name)}" alt=""><figcaption>'
        f'{html.escape(Path(name).stem.replace("_", " "))}</figcaption></figure>' for name in names)
    return ("<!doctype html>\n<meta charset=utf-8>\n<title>Ruvell gallery</title>\n<style>body{"
            "background:#202020;color:#ddd;font:15px sans-serif;display:flex;flex-wrap:wrap;gap:20px"
            "}figure{margin:0}img{display:block;max-width:100%}figcaption{padding:6px 0}</style>\n"
            + figures + "\n")


def main():
    folder, names = Path(sys.argv[1]), sys.argv[2:]
    png.write(folder / "index.png", sheet([shrunk(png.read(folder / name)) for name in names]))
    (folder / "index.html").write_text(page(names))


if __name__ == "__main__":
    main()
