#!/usr/bin/env python3
"""Writes the hostile battery: damaged copies of varied corpus files and
hand-made attacks, each a PDF in OUT_DIR, and OUT_DIR/manifest.txt with one
line per file: "name<TAB>class<TAB>kind", where kind is "valid" (compose must
write a file that qpdf accepts), "hostile" (anything but a crash, a hang, a
sanitizer report or runaway memory) or "jbig2" (hostile, run through the
JBIG2 command as well). Deterministic: the same corpus gives the same files.

usage: make_battery.py CORPUS_DIR OUT_DIR
"""
import os
import random
import struct
import sys
import zlib

# Varied corpus files: classic and cross-reference stream files, object
# streams, encryption of several revisions, linearized, forms, images,
# several pages, damaged ones the reader repairs.
SOURCES = [
    "libtests/qtest/objects/minimal.pdf",
    "compare-for-test/qtest/compare/ostream1.pdf",
    "qpdf/qtest/qpdf/lin0.pdf",
    "qpdf/qtest/qpdf/field-types.pdf",
    "qpdf/qtest/qpdf/encrypted-with-images.pdf",
    "qpdf/qtest/qpdf/V4-aes.pdf",
    "qpdf/qtest/qpdf/aes256-r6.pdf",
    "qpdf/qtest/qpdf/image-streams.pdf",
    "qpdf/qtest/qpdf/bad-xref-entry.pdf",
    "qpdf/qtest/qpdf/xref-with-short-size.pdf",
    "qpdf/qtest/qpdf/page-labels-num-tree.pdf",
    "qpdf/qtest/qpdf/fax-decode-parms.pdf",
    "qpdf/qtest/qpdf/inline-images.pdf",
    "qpdf/qtest/qpdf/annotations-rotated-90.pdf",
    "qpdf/qtest/qpdf/hybrid-xref.pdf",
    "qpdf/qtest/qpdf/tiff-predictor.pdf",
]
# Corpus files that must come through compose as valid files.
VALID_SOURCES = ["libtests/qtest/objects/minimal.pdf", "compare-for-test/qtest/compare/ostream1.pdf",
                 "qpdf/qtest/qpdf/field-types.pdf", "qpdf/qtest/qpdf/image-streams.pdf",
                 "qpdf/qtest/qpdf/annotations-rotated-90.pdf"]

CONTENT = b"BT /F1 12 Tf 72 720 Td (Hello) Tj ET\n"
PAGE_RES = b"<< /Font << /F1 4 0 R >> >>"
FONT = b"<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"


def pdf(objects, trailer=b"", root=1, prev=None, header=b"%PDF-1.5"):
    """A file of `objects` (number -> body bytes) with a classic table."""
    out = bytearray(header + b"\n%\xe2\xe3\xcf\xd3\n")
    offsets = {}
    for num in sorted(objects):
        offsets[num] = len(out)
        out += b"%d 0 obj\n" % num + objects[num] + b"\nendobj\n"
    size = max(objects) + 1
    xref = len(out)
    out += b"xref\n0 %d\n0000000000 65535 f \n" % size
    for n in range(1, size):
        out += b"%010d 00000 n \n" % offsets[n] if n in offsets else b"0000000000 00000 f \n"
    out += b"trailer\n<< /Size %d /Root %d 0 R" % (size, root)
    if prev is not None:
        out += b" /Prev %d" % prev
    out += trailer + b" >>\nstartxref\n%d\n%%%%EOF\n" % xref
    return bytes(out)


def stream(dict_text, data, length=None):
    return (b"<< " + dict_text + b" /Length " + (b"%d" % len(data) if length is None else length) +
            b" >>\nstream\n" + data + b"\nendstream")


def one_page(content=CONTENT, content_dict=b"", resources=PAGE_RES, extra=None, page_extra=b""):
    objs = {
        1: b"<< /Type /Catalog /Pages 2 0 R >>",
        2: b"<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        3: b"<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Resources " + resources +
           b" /Contents 5 0 R" + page_extra + b" >>",
        4: FONT,
        5: stream(content_dict, content),
    }
    objs.update(extra or {})
    return objs


def zeros_deflated(size):
    """Zlib data of `size` zero bytes (a multiple of 1 MiB), made quickly: after
    a full flush every further MiB compresses to the same bytes, which are
    repeated. The checksum at the end is that of the bytes compressed."""
    c = zlib.compressobj(9)
    mib = bytes(1 << 20)
    first = c.compress(mib) + c.flush(zlib.Z_FULL_FLUSH)
    again = c.compress(mib) + c.flush(zlib.Z_FULL_FLUSH)
    return first + again * ((size >> 20) - 1) + c.flush()


def lzw_bomb(repeats):
    """LZW codes (early change) that fill the table with ever longer runs of
    zeros and then repeat the longest one."""
    codes, width, nxt = [256, 0], 9, 258
    for code in range(258, 4096):
        codes.append((code, width))
        nxt += 1
        if nxt + 1 >= (1 << width) and width < 12:
            width += 1
    codes = [(256, 9), (0, 9)] + codes[2:]
    codes += [(4095, 12)] * repeats
    bits, acc, out = 0, 0, bytearray()
    for code, w in codes:
        acc = (acc << w) | code
        bits += w
        while bits >= 8:
            bits -= 8
            out.append((acc >> bits) & 0xFF)
        acc &= (1 << bits) - 1
    if bits:
        out.append((acc << (8 - bits)) & 0xFF)
    return bytes(out)


def xref_stream_file(w, index, size, entries_data, extra=b""):
    objs = one_page()
    body = bytearray(b"%PDF-1.5\n")
    offsets = {}
    for num in sorted(objs):
        offsets[num] = len(body)
        body += b"%d 0 obj\n" % num + objs[num] + b"\nendobj\n"
    xs = len(body)
    data = entries_data(offsets, xs)
    body += (b"6 0 obj\n<< /Type /XRef /Size %s /W %s %s /Root 1 0 R /Length %d %s >>\nstream\n" %
             (size, w, index, len(data), extra) + data + b"\nendstream\nendobj\n")
    body += b"startxref\n%d\n%%%%EOF\n" % xs
    return bytes(body)


def good_xref_entries(offsets, xs):
    rows = [struct.pack(">BIH", 0, 0, 65535)]
    for n in range(1, 6):
        rows.append(struct.pack(">BIH", 1, offsets[n], 0))
    rows.append(struct.pack(">BIH", 1, xs, 0))
    return b"".join(rows)


def objstm_file(n_value, first_value, head, objs_text, extra=b"", data=None):
    """Object 4 (the font) lives in object stream 7 with the given fields;
    `data`, when given, is the stream's data as it stands in the file."""
    if data is None:
        data = head + objs_text
    objs = one_page()
    del objs[4]
    body = bytearray(b"%PDF-1.5\n")
    offsets = {}
    objs[7] = stream(b"/Type /ObjStm /N " + n_value + b" /First " + first_value + extra, data)
    for num in sorted(objs):
        offsets[num] = len(body)
        body += b"%d 0 obj\n" % num + objs[num] + b"\nendobj\n"
    xs = len(body)
    rows = [struct.pack(">BIH", 0, 0, 65535)]
    for n in range(1, 8):
        if n == 4:
            rows.append(struct.pack(">BIH", 2, 7, 0))
        elif n == 6:
            rows.append(struct.pack(">BIH", 1, xs, 0))
        else:
            rows.append(struct.pack(">BIH", 1, offsets[n], 0))
    data = b"".join(rows)
    body += (b"6 0 obj\n<< /Type /XRef /Size 8 /W [1 4 2] /Root 1 0 R /Length %d >>\nstream\n" % len(data) +
             data + b"\nendstream\nendobj\nstartxref\n%d\n%%%%EOF\n" % xs)
    return bytes(body)


def jbig2_segment(number, seg_type, data, page=1):
    return struct.pack(">IBBBI", number, seg_type, 0, page, len(data)) + data


def jbig2_file(width, height, region_w, region_h):
    page_info = struct.pack(">IIIIBH", width, height, 0, 0, 0, 0)
    region = struct.pack(">IIIIB", region_w, region_h, 0, 0, 0) + bytes([0]) + bytes([3, 0xFF, 0xFD, 0xFF, 2, 0xFE, 0xFE, 0xFE])
    data = jbig2_segment(0, 48, page_info) + jbig2_segment(1, 38, region + b"\x00" * 64)
    objs = one_page(resources=b"<< /XObject << /Im1 6 0 R >> >>", content=b"q 100 0 0 100 0 0 cm /Im1 Do Q\n")
    objs[6] = stream(b"/Type /XObject /Subtype /Image /Width %d /Height %d /ColorSpace /DeviceGray "
                     b"/BitsPerComponent 1 /Filter /JBIG2Decode" % (min(width, 2**31 - 1), min(height, 2**31 - 1)), data)
    return pdf(objs)


def hand_made():
    """(name, class, kind, bytes) of the attacks built here."""
    files = []

    def add(name, cls, data, kind="hostile"):
        files.append((name, cls, kind, data))

    add("valid-one-page", "valid", pdf(one_page()), "valid")
    add("valid-escaped-paren", "resources-string",
        pdf(one_page(resources=b"<< /Font << /F1 4 0 R >> /Properties << /P0 << /Name (a\\)]b) >> >> >>")), "valid")
    add("valid-fonts-100000", "input-sized-collection",
        pdf(one_page(resources=b"<< /Font << " + b"".join(b"/F%d 4 0 R " % i for i in range(100000)) + b">> >>")),
        "valid")

    # Cross-reference chains that come back to themselves.
    base = pdf(one_page())
    xref_at = base.rindex(b"xref\n0 ")
    add("prev-self-loop", "prev-loop", base.replace(b"trailer\n<< /Size 6", b"trailer\n<< /Prev %d /Size 6" % xref_at))
    add("prev-zero", "prev-loop", base.replace(b"trailer\n<< /Size 6", b"trailer\n<< /Prev 0 /Size 6"))
    add("prev-huge", "prev-loop", base.replace(b"trailer\n<< /Size 6", b"trailer\n<< /Prev 99999999999 /Size 6"))
    two = bytearray(base)
    second = len(two)
    two += b"xref\n0 1\n0000000000 65535 f \ntrailer\n<< /Size 6 /Root 1 0 R /Prev %d >>\nstartxref\n%d\n%%%%EOF\n" % (
        second, second)
    add("prev-two-loop", "prev-loop", bytes(two).replace(b"trailer\n<< /Size 6 /Root 1 0 R >>",
                                                          b"trailer\n<< /Size 6 /Root 1 0 R /Prev %d >>" % second, 1))
    add("xrefstm-prev-loop", "prev-loop",
        xref_stream_file(b"[1 4 2]", b"", b"7", good_xref_entries, b"/Prev %d" % len(b"%PDF-1.5\n")))

    # Page tree cycles.
    o = one_page()
    o[2] = b"<< /Type /Pages /Kids [3 0 R 2 0 R] /Count 2 >>"
    add("kids-self", "kids-parent-cycle", pdf(o))
    o = one_page()
    o[2] = b"<< /Type /Pages /Kids [6 0 R] /Count 1 >>"
    o[6] = b"<< /Type /Pages /Kids [2 0 R 3 0 R] /Parent 2 0 R /Count 1 >>"
    add("kids-two-cycle", "kids-parent-cycle", pdf(o))
    o = one_page(page_extra=b" /Parent 3 0 R")
    o[3] = o[3].replace(b"/Parent 2 0 R ", b"/Parent 6 0 R ")
    o[6] = b"<< /Type /Pages /Parent 6 0 R /Kids [3 0 R] /Count 1 >>"
    add("parent-cycle", "kids-parent-cycle", pdf(o))
    o = one_page()
    o[3] = o[3].replace(b"/Resources " + PAGE_RES + b" ", b"")
    o[2] = b"<< /Type /Pages /Kids [3 0 R] /Count 1 /Parent 2 0 R /Resources " + PAGE_RES + b" >>"
    add("parent-self-inherit", "kids-parent-cycle", pdf(o))

    # Deep chains and nesting.
    n = 100000
    o = one_page(resources=b"10 0 R")
    for i in range(n):
        o[10 + i] = b"%d 0 R" % (11 + i)
    o[10 + n] = PAGE_RES
    add("ref-chain-resources", "deep-chain", pdf(o))
    o = one_page()
    o[5] = stream(b"", CONTENT, length=b"10 0 R")
    for i in range(n):
        o[10 + i] = b"%d 0 R" % (11 + i)
    o[10 + n] = b"%d" % len(CONTENT)
    add("ref-chain-length", "deep-chain", pdf(o))
    add("nested-dict-resources", "deep-nesting",
        pdf(one_page(resources=b"<< /Font << /F1 4 0 R >> /Properties " + b"<< /A " * n + b"1" + b" >>" * n + b" >>")))
    add("nested-array-resources", "deep-nesting",
        pdf(one_page(resources=b"<< /Font << /F1 4 0 R >> /ColorSpace << /C " + b"[" * n + b"]" * n + b" >> >>")))
    add("nested-open-only", "deep-nesting", pdf(one_page(resources=b"<< /Font " + b"<< /A " * n + b">>")))
    add("nested-array-annots", "deep-nesting", pdf(one_page(page_extra=b" /Annots " + b"[" * n + b"]" * n)))
    # The catalog is searched by the grammar, whose nest rule gives up 256
    # levels down and is tried again from each later place: its cost grows
    # with the depth times 256 (0.3 s at 100,000 levels, 12 s under the
    # sanitizers), so this one nests 20,000 deep.
    o = one_page()
    d = 20000
    o[1] = b"<< /Type /Catalog /Pages 2 0 R /Outlines << /First " + b"<< /Next " * d + b"null" + b" >>" * d + b" >> >>"
    add("nested-catalog", "deep-nesting", pdf(o))

    # Object streams with bogus fields.
    font = FONT
    good_head = b"4 0 "
    add("objstm-good", "objstm", objstm_file(b"1", b"%d" % len(good_head), good_head, font), "valid")
    add("objstm-n-huge", "objstm", objstm_file(b"2147483647", b"4", good_head, font))
    add("objstm-n-negative", "objstm", objstm_file(b"-5", b"4", good_head, font))
    add("objstm-first-huge", "objstm", objstm_file(b"1", b"2147483647", good_head, font))
    add("objstm-first-negative", "objstm", objstm_file(b"1", b"-2147483648", good_head, font))
    add("objstm-offset-huge", "objstm", objstm_file(b"1", b"20", b"4 2147483640 ", font))
    add("objstm-offset-negative", "objstm", objstm_file(b"1", b"20", b"4 -2147483640", font))
    add("objstm-length-inside", "objstm", objstm_file(b"1", b"4", good_head, font, extra=b" /Length 4 0 R"))
    add("objstm-extends-itself", "objstm", objstm_file(b"1", b"4", good_head, font, extra=b" /Extends 7 0 R"))

    # Cross-reference streams with bogus fields.
    add("xrefstm-good", "xref-stream", xref_stream_file(b"[1 4 2]", b"", b"7", good_xref_entries), "valid")
    add("xrefstm-w-huge", "xref-stream", xref_stream_file(b"[8 8 8]", b"", b"7", good_xref_entries))
    add("xrefstm-w-negative", "xref-stream", xref_stream_file(b"[1 -4 2]", b"", b"7", good_xref_entries))
    add("xrefstm-w-zero", "xref-stream", xref_stream_file(b"[0 0 0]", b"", b"7", good_xref_entries))
    add("xrefstm-index-huge", "xref-stream",
        xref_stream_file(b"[1 4 2]", b"/Index [0 2147483647]", b"7", good_xref_entries))
    add("xrefstm-index-past", "xref-stream",
        xref_stream_file(b"[1 4 2]", b"/Index [2147483640 100]", b"7", good_xref_entries))
    add("xrefstm-index-negative", "xref-stream",
        xref_stream_file(b"[1 4 2]", b"/Index [-7 7 0 -1]", b"7", good_xref_entries))
    add("xrefstm-size-huge", "xref-stream", xref_stream_file(b"[1 4 2]", b"", b"2147483647", good_xref_entries))
    add("xrefstm-type-9", "xref-stream",
        xref_stream_file(b"[1 4 2]", b"", b"7", lambda o, x: b"\x09" * 7 + good_xref_entries(o, x)[7:]))
    add("xrefstm-offsets-huge", "xref-stream",
        xref_stream_file(b"[1 8 2]", b"", b"7", lambda o, x: (b"\x01" + b"\xff" * 10) * 7))
    add("xref-subsection-overflow", "xref-stream", base.replace(b"xref\n0 6\n", b"xref\n2147483645 6\n"))
    add("xref-count-huge", "xref-stream", base.replace(b"xref\n0 6\n", b"xref\n0 2147483647\n"))
    add("xref-offsets-huge", "xref-stream", base.replace(b"0000000009 00000 n", b"9999999999 00000 n"))

    # Lengths.
    for name, value in [("negative", b"-1"), ("huge", b"2147483647"), ("past-int", b"99999999999"),
                        ("min-int", b"-2147483648"), ("zero", b"0")]:
        o = one_page()
        o[5] = stream(b"/Filter /FlateDecode", zlib.compress(CONTENT), length=value)
        add("length-" + name, "length", pdf(o))
        o = one_page()
        o[5] = stream(b"", CONTENT, length=value)
        add("length-plain-" + name, "length", pdf(o))

    # Decompression bombs: content, resources and object streams.
    bomb = zeros_deflated(1 << 30)
    add("bomb-flate-1g", "bomb", pdf(one_page(content=bomb, content_dict=b"/Filter /FlateDecode")))
    add("bomb-flate-of-flate", "bomb",
        pdf(one_page(content=zlib.compress(bomb, 9), content_dict=b"/Filter [/FlateDecode /FlateDecode]")))
    add("bomb-lzw", "bomb", pdf(one_page(content=lzw_bomb(350000), content_dict=b"/Filter /LZWDecode")))
    add("bomb-rl", "bomb", pdf(one_page(content=b"\x81\x00" * 400000 + b"\x80", content_dict=b"/Filter /RunLengthDecode")))
    small = zeros_deflated(200 << 20)
    o = one_page(content=small, content_dict=b"/Filter /FlateDecode", extra={6: stream(b"/Filter /FlateDecode", small)})
    o[3] = o[3].replace(b"/Contents 5 0 R", b"/Contents [5 0 R 6 0 R]")
    add("bomb-two-streams", "bomb", pdf(o))
    add("bomb-objstm", "bomb", objstm_file(b"1", b"4", good_head, font, extra=b" /Filter /FlateDecode", data=bomb))
    o = one_page(resources=b"6 0 R", extra={6: stream(b"/Filter /FlateDecode", bomb)})
    add("bomb-resources", "bomb", pdf(o))

    # Predictors.
    pred_data = zlib.compress(b"\x02" + CONTENT)
    for cols, colors, bpc in [(2147483647, 1, 8), (1, 2147483647, 8), (65536, 65536, 16), (-5, -5, 8),
                              (1000000000, 4, 16), (5, 1, 3)]:
        for predictor in (2, 12):
            add("predictor-%d-%d-%d-%d" % (predictor, cols, colors, bpc), "predictor",
                pdf(one_page(content=pred_data, content_dict=b"/Filter /FlateDecode /DecodeParms << /Predictor %d "
                             b"/Columns %d /Colors %d /BitsPerComponent %d >>" % (predictor, cols, colors, bpc))))

    # Other decoders on damaged data.
    for name, flt, data in [("ccitt", b"/CCITTFaxDecode", b"\xff" * 64), ("dct", b"/DCTDecode", b"\xff\xd8\xff\xc0" + b"\xff" * 60),
                            ("lzw-bad", b"/LZWDecode", b"\xff" * 64), ("a85-bad", b"/ASCII85Decode", b"vvvv~>"),
                            ("ahx-bad", b"/ASCIIHexDecode", b"zz>"), ("flate-bad", b"/FlateDecode", b"\x00" * 64)]:
        add("decoder-" + name, "decoder", pdf(one_page(content=data, content_dict=b"/Filter " + flt)))
    dct_huge = (b"\xff\xd8\xff\xc0\x00\x11\x08\xff\xff\xff\xff\x03\x01\x22\x00\x02\x11\x01\x03\x11\x01\xff\xd9")
    add("decoder-dct-huge", "decoder", pdf(one_page(content=dct_huge, content_dict=b"/Filter /DCTDecode")))

    # Hostile /Encrypt values.
    enc_base = b"/Filter /Standard /O <%s> /U <%s> /P -4" % (b"00" * 32, b"00" * 32)
    for name, values in [("r99", b"/V 2 /R 99 /Length 128"), ("v99", b"/V 99 /R 3"),
                         ("length-negative", b"/V 2 /R 3 /Length -8"), ("length-huge", b"/V 2 /R 3 /Length 2147483647"),
                         ("r6-short", b"/V 5 /R 6 /Length 256 /OE <00> /UE <00> /Perms <00>"),
                         ("v4-no-cf", b"/V 4 /R 4 /Length 128 /StmF /StdCF /StrF /StdCF"),
                         ("v4-bad-cf", b"/V 4 /R 4 /CF << /StdCF << /CFM /Nonsense /Length -1 >> >> /StmF /StdCF")]:
        o = one_page()
        o[6] = b"<< " + enc_base + b" " + values + b" >>"
        add("encrypt-" + name, "encrypt", pdf(o, trailer=b" /Encrypt 6 0 R /ID [<00112233445566778899aabbccddeeff> <00>]"))
    o = one_page()
    add("encrypt-missing", "encrypt", pdf(o, trailer=b" /Encrypt 99 0 R"))
    add("encrypt-direct-junk", "encrypt", pdf(o, trailer=b" /Encrypt << /Filter /Standard /V [ /R ( >> /ID [<00>"))
    o = one_page()
    o[6] = b"<< /Filter /Standard /V 1 /R 2 /O (" + b"x" * 5000 + b") /U (" + b"y" * 5000 + b") /P -4 >>"
    add("encrypt-long-strings", "encrypt", pdf(o, trailer=b" /Encrypt 6 0 R /ID [(" + b"z" * 100000 + b") ()]"))

    # JBIG2 pages far beyond any real page.
    for w, h, rw, rh in [(0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF), (0x7FFFFFFF, 1, 0x7FFFFFFF, 1),
                         (1, 0x7FFFFFFF, 1, 0x7FFFFFFF), (100000, 100000, 100000, 100000), (16, 16, 0xFFFFFFFF, 16)]:
        add("jbig2-page-%x-%x-%x-%x" % (w, h, rw, rh), "jbig2", jbig2_file(w, h, rw, rh), "jbig2")
    return files


def mutations(corpus, rng):
    """(name, class, kind, bytes) of damaged copies of the corpus files."""
    files = []
    for rel in SOURCES:
        path = os.path.join(corpus, "qpdf", rel)
        if not os.path.exists(path):
            continue
        with open(path, "rb") as f:
            data = f.read()
        stem = os.path.splitext(os.path.basename(rel))[0]
        if rel in VALID_SOURCES:
            files.append(("corpus-" + stem, "valid", "valid", data))
        for i in range(4):
            cut = rng.randrange(1, len(data))
            files.append(("%s-truncated-%d" % (stem, i), "truncation", "hostile", data[:cut]))
        for i in range(6):
            b = bytearray(data)
            for _ in range(rng.choice((1, 4, 32))):
                at = rng.randrange(len(b))
                b[at] = rng.randrange(256)
            files.append(("%s-flipped-%d" % (stem, i), "byte-flip", "hostile", bytes(b)))
        for i in range(4):
            b = bytearray(data)
            at = rng.randrange(len(b))
            span = rng.choice((16, 256, 4096))
            b[at:at + span] = bytes(len(b[at:at + span]))
            files.append(("%s-zeroed-%d" % (stem, i), "zeroed-span", "hostile", bytes(b)))
    return files


def main():
    if len(sys.argv) != 3:
        print(__doc__)
        return 2
    corpus, out = sys.argv[1:]
    os.makedirs(out, exist_ok=True)
    rng = random.Random(18)
    files = mutations(corpus, rng) + hand_made()
    with open(os.path.join(out, "manifest.txt"), "w") as manifest:
        for name, cls, kind, data in files:
            with open(os.path.join(out, name + ".pdf"), "wb") as f:
                f.write(data)
            manifest.write("%s\t%s\t%s\n" % (name, cls, kind))
    print("%d files" % len(files))
    return 0


if __name__ == "__main__":
    sys.exit(main())
