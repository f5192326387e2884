#!/usr/bin/env python3
"""Writes the hostile battery into OUT_DIR, the same files for the same corpus: damaged copies of varied corpus
files and hand-made attacks, and manifest.txt of "name<TAB>class<TAB>kind" lines; kind "valid" must compose into a
file qpdf accepts, "jbig2" goes through the JBIG2 command too. usage: make_battery.py CORPUS_DIR OUT_DIR"""
import os
import random
import struct
import sys
import zlib

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tool"))
from tool_util import body, pdf  # noqa: E402

# Varied corpus files: classic and cross-reference stream tables, object
# streams, encryption of several revisions, linearized, forms, images, several
# pages, damaged ones the reader repairs. Those in VALID must compose validly.
SOURCES = ["libtests/qtest/objects/minimal", "compare-for-test/qtest/compare/ostream1"] + [
    "qpdf/qtest/qpdf/" + s for s in "lin0 field-types encrypted-with-images V4-aes aes256-r6 image-streams "
    "bad-xref-entry xref-with-short-size page-labels-num-tree fax-decode-parms inline-images annotations-rotated-90 "
    "hybrid-xref tiff-predictor".split()]
VALID = {"minimal", "ostream1", "field-types", "image-streams", "annotations-rotated-90"}

CONTENT = b"BT /F1 12 Tf 72 720 Td (Hello) Tj ET\n"
PAGE_RES = b"<< /Font << /F1 4 0 R >> >>"
FONT = b"<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"
FLATE = dict(content=zlib.compress(CONTENT), content_dict=b"/Filter /FlateDecode")
N = 100000  # depth of the deep chains and nestings, size of the input-sized collections


def stream(dict_text, data, length=None):
    return (b"<< " + dict_text + b" /Length " + (b"%d" % len(data) if length is None else length) +
            b" >>\nstream\n" + data + b"\nendstream")


def one_page(content=CONTENT, content_dict=b"", resources=PAGE_RES, page_extra=b"", parent=2, length=None,
             contents=b"5 0 R", extra=None):
    """The objects of one page showing text in font 4; `extra` adds or replaces objects."""
    res = b" /Resources " + resources if resources else b""
    objs = {1: b"<< /Type /Catalog /Pages 2 0 R >>", 2: b"<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
            3: b"<< /Type /Page /Parent %d 0 R /MediaBox [0 0 612 792]%s /Contents %s%s >>" % (
                parent, res, contents, page_extra),
            4: FONT, 5: stream(content_dict, content, length)}
    objs.update(extra or {})
    return objs


def page(trailer=b"", **kw):
    return pdf(one_page(**kw), trailer)


def zeros_deflated(size):
    """Zlib data of `size` zero bytes (whole MiBs): after a full flush each further MiB gives the same bytes."""
    c, mib = zlib.compressobj(9), bytes(1 << 20)
    first = c.compress(mib) + c.flush(zlib.Z_FULL_FLUSH)
    again = c.compress(mib) + c.flush(zlib.Z_FULL_FLUSH)
    return first + again * ((size >> 20) - 1) + c.flush()


def lzw_bomb(repeats):
    """LZW codes (early change) that fill the table with ever longer runs of zeros, then repeat the longest."""
    codes, width = [(256, 9), (0, 9)], 9
    for code in range(258, 4096):
        codes.append((code, width))
        if code + 2 >= (1 << width) and width < 12:
            width += 1
    bits = "".join(format(code, "0%db" % w) for code, w in codes + [(4095, 12)] * repeats)
    bits += "0" * (-len(bits) % 8)
    return int(bits, 2).to_bytes(len(bits) // 8, "big")


def xref_stream_file(objs=None, w=b"[1 4 2]", index=b"", size=b"7", mangle=None, extra=b"", packed=()):
    """A file whose table is the cross-reference stream 6 of the fields given; the objects in `packed` are in object
    stream 7, `mangle` rewrites the entries' data."""
    objs = objs or one_page()
    out, offsets = body(objs, b"%PDF-1.5\n")
    xs = len(out)
    rows = [(0, 0, 65535)] + [(2, 7, 0) if n in packed else (1, xs if n == 6 else offsets[n], 0)
                              for n in range(1, max(max(objs), 6) + 1)]
    data = b"".join(struct.pack(">BIH", *r) for r in rows)
    data = mangle(data) if mangle else data
    out += (b"6 0 obj\n<< /Type /XRef /Size %s /W %s %s /Root 1 0 R /Length %d %s >>\nstream\n" %
            (size, w, index, len(data), extra) + data + b"\nendstream\nendobj\n")
    return bytes(out + b"startxref\n%d\n%%%%EOF\n" % xs)


def objstm_file(n=b"1", first=b"4", head=b"4 0 ", extra=b"", data=None):
    """Object 4 (the font) in object stream 7 of the fields given, or of the raw `data`."""
    objs = one_page(extra={7: stream(b"/Type /ObjStm /N " + n + b" /First " + first + extra,
                                     head + FONT if data is None else data)})
    del objs[4]
    return xref_stream_file(objs, size=b"8", packed=(4,))


def jbig2_file(width, height, region_w, region_h):
    seg = lambda number, kind, data: struct.pack(">IBBBI", number, kind, 0, 1, len(data)) + data
    region = struct.pack(">IIIIB", region_w, region_h, 0, 0, 0) + bytes([0, 3, 0xFF, 0xFD, 0xFF, 2, 0xFE, 0xFE, 0xFE])
    data = seg(0, 48, struct.pack(">IIIIBH", width, height, 0, 0, 0, 0)) + seg(1, 38, region + b"\x00" * 64)
    image = stream(b"/Type /XObject /Subtype /Image /Width %d /Height %d /ColorSpace /DeviceGray /BitsPerComponent 1 "
                   b"/Filter /JBIG2Decode" % (min(width, 2**31 - 1), min(height, 2**31 - 1)), data)
    return page(resources=b"<< /XObject << /Im1 6 0 R >> >>", content=b"q 100 0 0 100 0 0 cm /Im1 Do Q\n",
                extra={6: image})


def hand_made():
    """(name, class, bytes) of the attacks built here."""
    base = pdf(one_page())
    prev = lambda text: base.replace(b"trailer\n<< /Size 6", b"trailer\n<< /Prev %s /Size 6" % text)
    second = len(base)  # a second table, whose /Prev is itself, after a first whose /Prev is the second
    two = (base.replace(b"/Root 1 0 R >>", b"/Root 1 0 R /Prev %d >>" % second, 1) +
           b"xref\n0 1\n0000000000 65535 f \ntrailer\n<< /Size 6 /Root 1 0 R /Prev %d >>\nstartxref\n%d\n%%%%EOF\n"
           % (second, second))
    chain = lambda end: {**{10 + i: b"%d 0 R" % (11 + i) for i in range(N)}, 10 + N: end}
    nest = lambda open_, close, inner=b"": open_ * N + inner + close * N
    enc = b"<< /Filter /Standard /O <%s> /U <%s> /P -4 " % (b"00" * 32, b"00" * 32)
    enc_id = b" /Encrypt 6 0 R /ID [<00112233445566778899aabbccddeeff> <00>]"
    bomb = zeros_deflated(1 << 30)
    small = zeros_deflated(200 << 20)
    files = [
        ("valid-one-page", "valid", base),
        ("valid-escaped-paren", "resources-string",
         page(resources=b"<< /Font << /F1 4 0 R >> /Properties << /P0 << /Name (a\\)]b) >> >> >>")),
        ("valid-fonts-100000", "input-sized-collection",
         page(resources=b"<< /Font << " + b"".join(b"/F%d 4 0 R " % i for i in range(N)) + b">> >>")),
        # Cross-reference chains that come back to themselves.
        ("prev-self-loop", "prev-loop", prev(b"%d" % base.rindex(b"xref\n0 "))),
        ("prev-zero", "prev-loop", prev(b"0")),
        ("prev-huge", "prev-loop", prev(b"99999999999")),
        ("prev-two-loop", "prev-loop", two),
        ("xrefstm-prev-loop", "prev-loop", xref_stream_file(extra=b"/Prev %d" % len(b"%PDF-1.5\n"))),
        # Page tree cycles.
        ("kids-self", "kids-parent-cycle", page(extra={2: b"<< /Type /Pages /Kids [3 0 R 2 0 R] /Count 2 >>"})),
        ("kids-two-cycle", "kids-parent-cycle", page(extra={
            2: b"<< /Type /Pages /Kids [6 0 R] /Count 1 >>",
            6: b"<< /Type /Pages /Kids [2 0 R 3 0 R] /Parent 2 0 R /Count 1 >>"})),
        ("parent-cycle", "kids-parent-cycle", page(parent=6, page_extra=b" /Parent 3 0 R", extra={
            6: b"<< /Type /Pages /Parent 6 0 R /Kids [3 0 R] /Count 1 >>"})),
        ("parent-self-inherit", "kids-parent-cycle", page(resources=None, extra={
            2: b"<< /Type /Pages /Kids [3 0 R] /Count 1 /Parent 2 0 R /Resources " + PAGE_RES + b" >>"})),
        # Deep chains and nesting.
        ("ref-chain-resources", "deep-chain", page(resources=b"10 0 R", extra=chain(PAGE_RES))),
        ("ref-chain-length", "deep-chain", page(length=b"10 0 R", extra=chain(b"%d" % len(CONTENT)))),
        ("nested-dict-resources", "deep-nesting",
         page(resources=b"<< /Font << /F1 4 0 R >> /Properties " + nest(b"<< /A ", b" >>", b"1") + b" >>")),
        ("nested-array-resources", "deep-nesting",
         page(resources=b"<< /Font << /F1 4 0 R >> /ColorSpace << /C " + nest(b"[", b"]") + b" >> >>")),
        ("nested-open-only", "deep-nesting", page(resources=b"<< /Font " + b"<< /A " * N + b">>")),
        ("nested-array-annots", "deep-nesting", page(page_extra=b" /Annots " + nest(b"[", b"]"))),
        # The catalog is searched by the grammar, whose nest rule gives up 256
        # levels down and is tried again from each later place: its cost grows
        # with depth times 256 (12 s under the sanitizers at 100,000), so 20,000.
        ("nested-catalog", "deep-nesting", page(extra={1: b"<< /Type /Catalog /Pages 2 0 R /Outlines << /First " +
                                                      b"<< /Next " * 20000 + b"null" + b" >>" * 20000 + b" >> >>"})),
        # Object streams with bogus fields.
        ("objstm-good", "objstm", objstm_file()),
        ("objstm-n-huge", "objstm", objstm_file(n=b"2147483647")),
        ("objstm-n-negative", "objstm", objstm_file(n=b"-5")),
        ("objstm-first-huge", "objstm", objstm_file(first=b"2147483647")),
        ("objstm-first-negative", "objstm", objstm_file(first=b"-2147483648")),
        ("objstm-offset-huge", "objstm", objstm_file(first=b"20", head=b"4 2147483640 ")),
        ("objstm-offset-negative", "objstm", objstm_file(first=b"20", head=b"4 -2147483640")),
        ("objstm-length-inside", "objstm", objstm_file(extra=b" /Length 4 0 R")),
        ("objstm-extends-itself", "objstm", objstm_file(extra=b" /Extends 7 0 R")),
        # Cross-reference tables and streams with bogus fields.
        ("xrefstm-good", "xref-stream", xref_stream_file()),
        ("xrefstm-w-huge", "xref-stream", xref_stream_file(w=b"[8 8 8]")),
        ("xrefstm-w-negative", "xref-stream", xref_stream_file(w=b"[1 -4 2]")),
        ("xrefstm-w-zero", "xref-stream", xref_stream_file(w=b"[0 0 0]")),
        ("xrefstm-index-huge", "xref-stream", xref_stream_file(index=b"/Index [0 2147483647]")),
        ("xrefstm-index-past", "xref-stream", xref_stream_file(index=b"/Index [2147483640 100]")),
        ("xrefstm-index-negative", "xref-stream", xref_stream_file(index=b"/Index [-7 7 0 -1]")),
        ("xrefstm-size-huge", "xref-stream", xref_stream_file(size=b"2147483647")),
        ("xrefstm-type-9", "xref-stream", xref_stream_file(mangle=lambda data: b"\x09" * 7 + data[7:])),
        ("xrefstm-offsets-huge", "xref-stream",
         xref_stream_file(w=b"[1 8 2]", mangle=lambda data: (b"\x01" + b"\xff" * 10) * 7)),
        ("xref-subsection-overflow", "xref-stream", base.replace(b"xref\n0 6\n", b"xref\n2147483645 6\n")),
        ("xref-count-huge", "xref-stream", base.replace(b"xref\n0 6\n", b"xref\n0 2147483647\n")),
        ("xref-offsets-huge", "xref-stream", base.replace(b"0000000009 00000 n", b"9999999999 00000 n")),
        # Decompression bombs: content, resources and object streams.
        ("bomb-flate-1g", "bomb", page(content=bomb, content_dict=b"/Filter /FlateDecode")),
        ("bomb-flate-of-flate", "bomb",
         page(content=zlib.compress(bomb, 9), content_dict=b"/Filter [/FlateDecode /FlateDecode]")),
        ("bomb-lzw", "bomb", page(content=lzw_bomb(350000), content_dict=b"/Filter /LZWDecode")),
        ("bomb-rl", "bomb", page(content=b"\x81\x00" * 400000 + b"\x80", content_dict=b"/Filter /RunLengthDecode")),
        ("bomb-two-streams", "bomb", page(contents=b"[5 0 R 6 0 R]", extra={6: stream(b"/Filter /FlateDecode", small)},
                                          content=small, content_dict=b"/Filter /FlateDecode")),
        ("bomb-objstm", "bomb", objstm_file(extra=b" /Filter /FlateDecode", data=bomb)),
        ("bomb-resources", "bomb", page(resources=b"6 0 R", extra={6: stream(b"/Filter /FlateDecode", bomb)})),
        # Hostile /Encrypt values (and below, a table of them).
        ("encrypt-missing", "encrypt", page(trailer=b" /Encrypt 99 0 R")),
        ("encrypt-direct-junk", "encrypt", page(trailer=b" /Encrypt << /Filter /Standard /V [ /R ( >> /ID [<00>")),
        ("encrypt-long-strings", "encrypt", page(trailer=b" /Encrypt 6 0 R /ID [(" + b"z" * 100000 + b") ()]", extra={
            6: b"<< /Filter /Standard /V 1 /R 2 /O (" + b"x" * 5000 + b") /U (" + b"y" * 5000 + b") /P -4 >>"})),
    ]
    files += [(prefix + name, "length", page(length=value, **kw)) for name, value in [
        ("negative", b"-1"), ("huge", b"2147483647"), ("past-int", b"99999999999"), ("min-int", b"-2147483648"),
        ("zero", b"0")] for prefix, kw in [("length-", FLATE), ("length-plain-", {})]]
    files += [("predictor-%d-%d-%d-%d" % (predictor, cols, colors, bpc), "predictor", page(
        content=zlib.compress(b"\x02" + CONTENT), content_dict=b"/Filter /FlateDecode /DecodeParms << /Predictor %d "
        b"/Columns %d /Colors %d /BitsPerComponent %d >>" % (predictor, cols, colors, bpc)))
        for cols, colors, bpc in [(2147483647, 1, 8), (1, 2147483647, 8), (65536, 65536, 16), (-5, -5, 8),
                                  (1000000000, 4, 16), (5, 1, 3)] for predictor in (2, 12)]
    files += [("decoder-" + name, "decoder", page(content=data, content_dict=b"/Filter " + f)) for name, f, data in [
        ("ccitt", b"/CCITTFaxDecode", b"\xff" * 64), ("dct", b"/DCTDecode", b"\xff\xd8\xff\xc0" + b"\xff" * 60),
        ("lzw-bad", b"/LZWDecode", b"\xff" * 64), ("a85-bad", b"/ASCII85Decode", b"vvvv~>"),
        ("ahx-bad", b"/ASCIIHexDecode", b"zz>"), ("flate-bad", b"/FlateDecode", b"\x00" * 64),
        ("dct-huge", b"/DCTDecode", b"\xff\xd8\xff\xc0\x00\x11\x08\xff\xff\xff\xff\x03\x01\x22\x00\x02\x11\x01\x03\x11"
                                    b"\x01\xff\xd9")]]
    files += [("encrypt-" + name, "encrypt", page(extra={6: enc + v + b" >>"}, trailer=enc_id)) for name, v in [
        ("r99", b"/V 2 /R 99 /Length 128"), ("v99", b"/V 99 /R 3"), ("length-negative", b"/V 2 /R 3 /Length -8"),
        ("length-huge", b"/V 2 /R 3 /Length 2147483647"),
        ("r6-short", b"/V 5 /R 6 /Length 256 /OE <00> /UE <00> /Perms <00>"),
        ("v4-no-cf", b"/V 4 /R 4 /Length 128 /StmF /StdCF /StrF /StdCF"),
        ("v4-bad-cf", b"/V 4 /R 4 /CF << /StdCF << /CFM /Nonsense /Length -1 >> >> /StmF /StdCF")]]
    # JBIG2 pages far beyond any real page.
    files += [("jbig2-page-%x-%x-%x-%x" % size, "jbig2", jbig2_file(*size)) for size in [
        (2**32 - 1, 2**32 - 1, 2**32 - 1, 2**32 - 1), (2**31 - 1, 1, 2**31 - 1, 1), (1, 2**31 - 1, 1, 2**31 - 1),
        (100000, 100000, 100000, 100000), (16, 16, 2**32 - 1, 16)]]
    return files


def mutations(corpus, rng):
    """(name, class, bytes) of damaged copies of the corpus files."""
    files = []
    for rel in SOURCES:
        path, stem = os.path.join(corpus, "qpdf", rel + ".pdf"), os.path.basename(rel)
        if not os.path.exists(path):
            continue
        with open(path, "rb") as f:
            data = f.read()
        if stem in VALID:
            files.append(("corpus-" + stem, "valid", data))
        for i in range(4):
            files.append(("%s-truncated-%d" % (stem, i), "truncation", data[:rng.randrange(1, len(data))]))
        for i in range(6):
            b = bytearray(data)
            for _ in range(rng.choice((1, 4, 32))):
                at = rng.randrange(len(b))
                b[at] = rng.randrange(256)
            files.append(("%s-flipped-%d" % (stem, i), "byte-flip", bytes(b)))
        for i in range(4):
            b = bytearray(data)
            at, span = rng.randrange(len(b)), rng.choice((16, 256, 4096))
            b[at:at + span] = bytes(len(b[at:at + span]))
            files.append(("%s-zeroed-%d" % (stem, i), "zeroed-span", bytes(b)))
    return files


def write(corpus, out):
    """Writes the battery and its manifest into `out`; its (name, class, kind) entries."""
    os.makedirs(out, exist_ok=True)
    entries = []
    for name, cls, data in mutations(corpus, random.Random(18)) + hand_made():
        with open(os.path.join(out, name + ".pdf"), "wb") as f:
            f.write(data)
        entries.append((name, cls, "jbig2" if cls == "jbig2" else "valid" if cls == "valid" or
                        name.startswith("valid-") or name.endswith("-good") else "hostile"))
    with open(os.path.join(out, "manifest.txt"), "w") as manifest:
        manifest.writelines("%s\t%s\t%s\n" % e for e in entries)
    return entries


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    print("%d files" % len(write(*sys.argv[1:])))
