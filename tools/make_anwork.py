#!/usr/bin/env python3
"""Writes data/anwork.gif: the work animation, a bar of blocks that fill from left to right
in the main window's colours. Run: python3 tools/make_anwork.py data/anwork.gif"""
import struct
import sys

WIDTH, HEIGHT = 86, 15
BLOCKS, BLOCK_W, GAP = 10, 7, 1
FRAMES = BLOCKS + 2
DELAY_CS = 12

# Palette: window background, etched border, empty block, lit block, lit edge.
PALETTE = [(240, 240, 233), (210, 200, 181), (225, 221, 208), (49, 106, 197), (120, 160, 225),
           (255, 255, 255), (128, 128, 128), (0, 0, 0)]


def frame_pixels(lit):
    rows = []
    left = (WIDTH - (BLOCKS * BLOCK_W + (BLOCKS - 1) * GAP)) // 2
    for y in range(HEIGHT):
        row = []
        for x in range(WIDTH):
            colour = 0
            if y in (2, HEIGHT - 3) and 1 <= x < WIDTH - 1:
                colour = 1
            elif 3 <= y < HEIGHT - 3:
                rel = x - left
                if 0 <= rel < BLOCKS * (BLOCK_W + GAP) - GAP and rel % (BLOCK_W + GAP) < BLOCK_W:
                    block = rel // (BLOCK_W + GAP)
                    if block < lit:
                        colour = 4 if y == 3 else 3
                    else:
                        colour = 2
            row.append(colour)
        rows.append(row)
    return [p for row in rows for p in row]


def lzw(pixels, min_size=3):
    # Codes stay at min_size+1 bits: a clear code goes out before the table would grow,
    # which keeps the encoder trivial at the cost of a few bytes.
    clear, end = 1 << min_size, (1 << min_size) + 1
    width = min_size + 1
    codes = [clear]
    since_clear = 0
    for p in pixels:
        codes.append(p)
        since_clear += 1
        if since_clear >= (1 << width) - end - 2:
            codes.append(clear)
            since_clear = 0
    codes.append(end)
    out, acc, nbits = bytearray(), 0, 0
    for c in codes:
        acc |= c << nbits
        nbits += width
        while nbits >= 8:
            out.append(acc & 0xFF)
            acc >>= 8
            nbits -= 8
    if nbits:
        out.append(acc & 0xFF)
    blocks = bytearray()
    for i in range(0, len(out), 255):
        chunk = out[i:i + 255]
        blocks.append(len(chunk))
        blocks += chunk
    blocks.append(0)
    return bytes([min_size]) + bytes(blocks)


def main(path):
    data = bytearray(b"GIF89a")
    data += struct.pack("<HHBBB", WIDTH, HEIGHT, 0xF2, 0, 0)
    for r, g, b in PALETTE:
        data += bytes([r, g, b])
    data += b"\x21\xFF\x0BNETSCAPE2.0\x03\x01\x00\x00\x00"
    for f in range(FRAMES):
        lit = min(f, BLOCKS)
        data += b"\x21\xF9\x04" + struct.pack("<BHBB", 0x04, DELAY_CS * (3 if lit == BLOCKS else 1), 0, 0)
        data += b"\x2C" + struct.pack("<HHHHB", 0, 0, WIDTH, HEIGHT, 0)
        data += lzw(frame_pixels(lit))
    data += b"\x3B"
    with open(path, "wb") as fh:
        fh.write(data)


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else "data/anwork.gif")
