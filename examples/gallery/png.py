"""Reads and writes PNG pictures of 8 bits a channel, with nothing but Python (RFC 2083)."""
import struct
import zlib

SIGNATURE = b"\x89PNG\r\n\x1a\n"


def chunks(data):
    at = len(SIGNATURE)
    while at < len(data):
        length, kind = struct.unpack_from(">I4s", data, at)
        yield kind, data[at + 8:at + 8 + length]
        at += 12 + length


def predicted(kind, left, above, corner):
    """The prediction of a byte by the filters 1 to 4 (RFC 2083, 6)."""
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


def chunk(kind, body):
    return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))


def write(path, rows):
    """Rows of RGB bytes."""
    header = struct.pack(">IIBBBBB", len(rows[0]) // 3, len(rows), 8, 2, 0, 0, 0)
    packed = zlib.compress(b"".join(b"\0" + row for row in rows), 9)
    path.write_bytes(SIGNATURE + chunk(b"IHDR", header) + chunk(b"IDAT", packed)
                     + chunk(b"IEND", b""))
