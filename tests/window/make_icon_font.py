#!/usr/bin/python3
"""Makes a font that stands in for the system's icon font: make_icon_font.py FILE

One glyph for each code point that the windows use: a frame with the code point's sixteen bits in it
as squares, so that a missing icon shows, and a wrong one too.
"""
import sys

from fontTools.fontBuilder import FontBuilder
from fontTools.pens.ttGlyphPen import TTGlyphPen

FAMILY = "Veldrift Test Icons"
CODE_POINTS = [
    0xE701, 0xE714, 0xE72E, 0xE740, 0xE74A, 0xE770, 0xE7B8, 0xE7BA, 0xE8AB, 0xE8D6, 0xE8EA,
    0xE916, 0xE91F, 0xE946, 0xE950, 0xE968, 0xE9D9, 0xEC27, 0xEC48, 0xF0E4, 0xF5B0,
]
EM = 1000


def rectangle(pen, left, bottom, right, top, hole=False):
    corners = [(left, bottom), (left, top), (right, top), (right, bottom)]
    if hole:
        corners.reverse()
    pen.moveTo(corners[0])
    for corner in corners[1:]:
        pen.lineTo(corner)
    pen.closePath()


def glyph(bits):
    pen = TTGlyphPen(None)
    rectangle(pen, 50, -50, 950, 850)
    rectangle(pen, 110, 10, 890, 790, hole=True)
    for bit in range(16):
        if bits >> bit & 1:
            left, bottom = 160 + 180 * (bit % 4), 60 + 180 * (bit // 4)
            rectangle(pen, left, bottom, left + 140, bottom + 140)
    return pen.glyph()


names = {code: f"icon{code:04X}" for code in CODE_POINTS}
glyphs = {".notdef": glyph(0), **{name: glyph(code) for code, name in names.items()}}
font = FontBuilder(EM, isTTF=True)
font.setupGlyphOrder(list(glyphs))
font.setupCharacterMap(names)
font.setupGlyf(glyphs)
font.setupHorizontalMetrics({name: (EM, 50) for name in glyphs})
font.setupHorizontalHeader(ascent=880, descent=-120)
font.setupNameTable({"familyName": FAMILY, "styleName": "Regular",
                     "uniqueFontIdentifier": FAMILY, "fullName": FAMILY})
font.setupOS2(sTypoAscender=880, usWinAscent=880, usWinDescent=120, usWeightClass=400,
              ulCodePageRange1=1)
font.setupPost()
font.save(sys.argv[1])
