#!/usr/bin/env python3
"""Puts PNG pictures of 8 bits a channel on one sheet: FOLDER/index.png, and FOLDER/index.html
that shows each with a caption.

    contact_sheet.py FOLDER PICTURE...    pictures are files of the folder
"""
import html
import struct
import sys
import zlib
from pathlib import Path

COLUMNS, THUMB_WIDTH, GAP = 3, 320, 12
SIGNATURE = b"\x89PNG\r\n\x1a\n"


def chunks(data):
    at = len(SIGNATURE)
    while at < len(data):
        length, kind = struct.unpack_from(">I4s", data, at)
        yield kind, data[at + 8:at + 8 + length]
        at += 12 + length


def predicted(kind, left, above, corner):
    """The prediction of a byte by PNG's filters 1 to 4 (RFC 2083, 6)."""
    if kind == 4:
        estimate = left + above - corner
        return min((left, above, corner), key=lambda value: abs(estimate - value))
    return (0, left, above, (left + above) // 2)[kind]


def read(path):
    """Width, height and rows of RGB bytes; alpha is dropped."""
    data = path.read_bytes()
    if not data.startswith(SIGNATURE):
        raise SystemExit(f"{path}: not a PNG file")
    packed = b""
    for kind, body in chunks(data):
        if kind == b"IHDR":
            width, height, bits, colours = struct.unpack_from(">IIBB", body)
        elif kind == b"IDAT":
            packed += body
    if bits != 8 or colours not in (2, 6):
        raise SystemExit(f"{path}: only RGB and RGBA of 8 bits can be shown")
    channels = 3 if colours == 2 else 4
    return width, height, [
        b"".join(row[i:i + 3] for i in range(0, len(row), channels))
        for row in unfiltered(zlib.decompress(packed), width * channels, channels)]


def unfiltered(data, stride, channels):
    above = bytearray(stride)
    for start in range(0, len(data), stride + 1):
        kind, row = data[start], bytearray(data[start + 1:start + 1 + stride])
        for i in range(stride if kind else 0):
            left, corner = (row[i - channels], above[i - channels]) if i >= channels else (0, 0)
            row[i] = (row[i] + predicted(kind, left, above[i], corner)) & 255
        yield row
        above = row


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


def chunk(kind, body):
    return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))


def write(path, rows):
    header = struct.pack(">IIBBBBB", len(rows[0]) // 3, len(rows), 8, 2, 0, 0, 0)
    packed = zlib.compress(b"".join(b"\0" + row for row in rows), 9)
    path.write_bytes(SIGNATURE + chunk(b"IHDR", header) + chunk(b"IDAT", packed)
                     + chunk(b"IEND", b""))


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
    write(folder / "index.png", sheet([shrunk(read(folder / name)) for name in names]))
    (folder / "index.html").write_text(page(names))


if __name__ == "__main__":
    main()
