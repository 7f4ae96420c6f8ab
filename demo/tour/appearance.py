"""A skin and a block model to upload, made here so that nobody's artwork is needed."""

import json
import struct
import zlib

SIZE = 64
SKIN_TONE = (222, 178, 140)
HAIR = (84, 54, 38)
SHIRT = (62, 190, 120)
SLEEVE = (48, 150, 96)
TROUSERS = (52, 74, 130)
SHOE = (40, 44, 58)
EYE = (30, 60, 120)
WHITE = (240, 244, 250)


def write_skin(file):
    pixels = [[(0, 0, 0, 0)] * SIZE for _ in range(SIZE)]
    _paint_box(pixels, 0, 0, 8, 8, 8, SKIN_TONE)
    for side in range(4):
        _paint(pixels, 8 * side, 8, 8, 2, HAIR)
    _paint(pixels, 8, 0, 8, 8, HAIR)
    for eye in (9, 13):
        _paint(pixels, eye, 11, 2, 1, WHITE)
        _paint(pixels, eye + (eye == 9), 11, 1, 1, EYE)
    _paint(pixels, 10, 14, 4, 1, HAIR)
    _paint_box(pixels, 16, 16, 8, 12, 4, SHIRT)
    for left, top in ((40, 16), (32, 48)):
        _paint_box(pixels, left, top, 4, 12, 4, SLEEVE)
        _paint(pixels, left, top + 12, 16, 4, SKIN_TONE)
    for left, top in ((0, 16), (16, 48)):
        _paint_box(pixels, left, top, 4, 12, 4, TROUSERS)
        _paint(pixels, left, top + 13, 16, 3, SHOE)
    file.write_bytes(_png(pixels))


def write_model(file):
    """A horned figure with heavy arms, in the colours of the skin's own regions."""
    groups = {
        "head": [
            _cube((-4, 24, -4), (4, 32, 4), (0, 0), inflate=1),
            _cube((-6, 31, -1), (-4, 35, 1), (8, 0)),
            _cube((4, 31, -1), (6, 35, 1), (8, 0)),
        ],
        "body": [_cube((-4, 10, -2), (4, 22, 2), (16, 16), inflate=1)],
        "left_arm": [_cube((6, 8, -2), (10, 20, 2), (40, 16), inflate=1.5)],
        "right_arm": [_cube((-10, 8, -2), (-6, 20, 2), (32, 48), inflate=1.5)],
        "left_leg": [_cube((1, 0, -2), (5, 10, 2), (0, 16))],
        "right_leg": [_cube((-5, 0, -2), (-1, 10, 2), (16, 48))],
    }
    elements = [cube for cubes in groups.values() for cube in cubes]
    for number, cube in enumerate(elements):
        cube["uuid"] = f"cube-{number}"
    outliner = [
        {"name": name, "origin": [0, 0, 0], "children": [cube["uuid"] for cube in cubes]}
        for name, cubes in groups.items()
    ]
    resolution = {"width": SIZE, "height": SIZE}
    model = {"resolution": resolution, "elements": elements, "outliner": outliner}
    file.write_text(json.dumps(model))
    return len(elements)


def _cube(low, high, uv_offset, inflate=0):
    return {
        "box_uv": True,
        "from": list(low),
        "to": list(high),
        "uv_offset": list(uv_offset),
        "inflate": inflate,
    }


def _paint_box(pixels, left, top, width, height, depth, colour):
    """The unfolded box: its top and bottom, and below them its four sides."""
    _paint(pixels, left + depth, top, 2 * width, depth, colour)
    _paint(pixels, left, top + depth, 2 * (width + depth), height, colour)


def _paint(pixels, left, top, width, height, colour):
    for y in range(top, top + height):
        for x in range(left, left + width):
            # A woven look, so that one sees how the texture lies.
            light = 1.0 if (x + y) % 2 else 0.92
            pixels[y][x] = (*(int(part * light) for part in colour), 255)


def _png(pixels):
    rows = b"".join(b"\0" + bytes(sum(row, ())) for row in pixels)
    header = struct.pack(">IIBBBBB", len(pixels[0]), len(pixels), 8, 6, 0, 0, 0)
    chunks = ((b"IHDR", header), (b"IDAT", zlib.compress(rows)), (b"IEND", b""))
    return b"\x89PNG\r\n\x1a\n" + b"".join(_chunk(*chunk) for chunk in chunks)


def _chunk(kind, content):
    checksum = zlib.crc32(kind + content)
    return struct.pack(">I", len(content)) + kind + content + struct.pack(">I", checksum)
