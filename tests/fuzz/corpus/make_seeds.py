#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets that are not plain text.

usage: tests/fuzz/corpus/make_seeds.py   (from anywhere; rewrites the files)

picture_fuzz: small BMP and PNG files, good and damaged, made here byte by
byte (zlib for PNG), so the seeds do not depend on any picture library.
node_records_fuzz: the factory and app rounds as record chunks (see
tests/fuzz/node_records_fuzz.cpp for the layout).
"""
import os
import struct
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))


def write(target, name, data):
    folder = os.path.join(HERE, target)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), "wb") as f:
        f.write(data)


# --- pictures ----------------------------------------------------------------

def bmp8(width, height, pixel, top_down=False, rle=False):
    """An 8-bit grayscale BMP (palette of 256 grays)."""
    palette = b"".join(bytes((i, i, i, 0)) for i in range(256))
    stride = (width + 3) & ~3
    rows = []
    for y in range(height):
        row = bytes(pixel(x, y) for x in range(width))
        rows.append(row)
    if not top_down:
        rows.reverse()
    if rle:
        body = bytearray()
        for row in rows:
            x = 0
            while x < width:
                run = 1
                while x + run < width and run < 255 and row[x + run] == row[x]:
                    run += 1
                body += bytes((run, row[x]))
                x += run
            body += b"\x00\x00"  # end of line
        body += b"\x00\x01"  # end of picture
        compression = 1
    else:
        body = b"".join(r + b"\x00" * (stride - width) for r in rows)
        compression = 0
    info = struct.pack("<IiiHHIIiiII", 40, width, -height if top_down else height, 1, 8,
                       compression, len(body), 2835, 2835, 256, 0)
    offset = 14 + len(info) + len(palette)
    header = struct.pack("<2sIHHI", b"BM", offset + len(body), 0, 0, offset)
    return header + info + palette + bytes(body)


def png(width, height, channels, pixel, depth=8):
    """A PNG: gray (1), gray+alpha (2), RGB (3) or RGBA (4)."""
    colour_type = {1: 0, 2: 4, 3: 2, 4: 6}[channels]
    raw = bytearray()
    for y in range(height):
        raw.append(0)
        for x in range(width):
            value = pixel(x, y)
            for _ in range(channels):
                raw += value.to_bytes(depth // 8, "big")

    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data +
                struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF))

    ihdr = struct.pack(">IIBBBBB", width, height, depth, colour_type, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", ihdr) +
            chunk(b"IDAT", zlib.compress(bytes(raw), 9)) + chunk(b"IEND", b""))


def stripe(x, y):
    """A left laser's stripe: a bright section around column 300 + y / 4."""
    centre = 300 + y // 4
    d = abs(x - centre)
    return 220 if d <= 1 else 120 if d <= 3 else 6


def make_pictures():
    t = "picture_fuzz"
    write(t, "stripe_640x480_rle8.bmp", bmp8(640, 480, stripe, rle=True))
    write(t, "stripe_640x480_gray.png", png(640, 480, 1, stripe))
    write(t, "stripe_640x480_rgb.png", png(640, 480, 3, stripe))
    write(t, "stripe_640x480_gray16.png", png(640, 480, 1, lambda x, y: stripe(x, y) * 256, 16))
    write(t, "small_8x4.bmp", bmp8(8, 4, lambda x, y: x * 30 + y))
    write(t, "small_8x4_top_down.bmp", bmp8(8, 4, lambda x, y: x * 30 + y, top_down=True))
    write(t, "small_5x3_gray_alpha.png", png(5, 3, 2, lambda x, y: x + y))
    huge = bytearray(bmp8(8, 4, lambda x, y: 0))
    huge[18:26] = struct.pack("<ii", 100000, 100000)
    write(t, "header_claims_100000x100000.bmp", bytes(huge))
    cut = png(640, 480, 1, stripe)
    write(t, "truncated_640x480.png", cut[: len(cut) // 2])
    write(t, "not_a_picture.txt", b"this is not a picture\n")


# --- records -----------------------------------------------------------------

def u16(value):
    return struct.pack("<H", value)


def ticks(n):
    return bytes((7, n))


def make_records():
    t = "node_records_fuzz"
    plane_answer = bytes((2,)) + struct.pack("<BB9Hi", 2, 0, *range(101, 110), 1)
    check_answer = bytes((3,)) + struct.pack("<BBHbbH4H9HBB28s", 4, 0, 0, 0, 0, 0,
                                             21, 22, 23, 24, *([0] * 9), 0, 1, b"")
    factory = bytearray(b"\x00" + u16(0x1111))
    for distance in range(5, 50, 5):
        factory += b"\x00" + u16(distance) + ticks(200) + b"\x00" + u16(distance) + ticks(100)
    factory += b"\x00" + u16(0) + plane_answer + check_answer + b"\x00" + u16(0x2222)
    write(t, "factory_round", bytes(factory))

    app = bytearray(b"\x04" + u16(0x1111))
    for distance in (10, 20, 30):
        app += b"\x04" + u16(distance) + ticks(240) + b"\x04" + u16(distance) + ticks(100)
    app += b"\x04" + u16(0) + plane_answer + check_answer
    app += b"\x04" + u16(0x4444) + b"\x06" + struct.pack("<HH", 812, 797)
    app += b"\x04" + u16(0x2222)
    write(t, "app_round", bytes(app))

    distance = b"\x05" + struct.pack("<bBH4h8hBB", 1, 0, 30, 1, 2, 3, 4, *range(8), 1, 0)
    ieparam = b"\x01" + struct.pack("<BBBBH", 1, 7, 9, 0, 300)
    write(t, "answers_without_requests", distance + ieparam + plane_answer + check_answer +
          b"\x06" + struct.pack("<HH", 1, 2))


make_pictures()
make_records()
