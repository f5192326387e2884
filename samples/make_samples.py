#!/usr/bin/env python3
"""Writes the bundled sample documents of this directory.

sample.pdf   two pages; catalog, pages and fonts in an object stream, a
             cross-reference stream, /Info and /ID; one Flate content stream.
classic.pdf  one page, a classic cross-reference table and an incremental
             update that changes the /Info dictionary.
"""
import os
import struct
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))


def content(text, y):
    return ("BT /F1 24 Tf 72 %d Td (%s) Tj ET\n"
            "0.2 0.4 0.8 rg 72 %d 300 8 re f\n" % (y, text, y - 20)).encode()


def sample():
    out = bytearray(b"%PDF-1.7\n%\xe2\xe3\xcf\xd3\n")
    offsets = {}

    def put(num, body):
        offsets[num] = len(out)
        out.extend(b"%d 0 obj\n" % num + body + b"\nendobj\n")

    c1 = zlib.compress(content("PDFKilnPage sample, page 1", 720))
    c2 = content("Page 2: a second page with the same font", 700)
    put(6, b"<< /Length %d /Filter /FlateDecode >>\nstream\n" % len(c1) + c1 + b"\nendstream")
    put(7, b"<< /Length %d >>\nstream\n" % len(c2) + c2 + b"\nendstream")
    put(8, b"<< /Title (PDFKilnPage sample) /Author (The PDFKilnPage developers)"
           b" /Creator (make_samples.py) /Producer (PDFKilnPage) /CreationDate (D:20261122000000Z) >>")

    # Objects 1-5 live in object stream 9.
    objs = [
        (1, b"<< /Type /Catalog /Pages 2 0 R >>"),
        (2, b"<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 2 /MediaBox [0 0 612 792] >>"),
        (3, b"<< /Type /Page /Parent 2 0 R /Resources << /Font << /F1 5 0 R >> >> /Contents 6 0 R >>"),
        (4, b"<< /Type /Page /Parent 2 0 R /Rotate 90 /Resources << /Font << /F1 5 0 R >> >> /Contents 7 0 R >>"),
        (5, b"<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"),
    ]
    head = b""
    body = b""
    for num, text in objs:
        head += b"%d %d " % (num, len(body))
        body += text + b"\n"
    raw = zlib.compress(head + body)
    put(9, b"<< /Type /ObjStm /N %d /First %d /Length %d /Filter /FlateDecode >>\nstream\n"
           % (len(objs), len(head), len(raw)) + raw + b"\nendstream")

    xref_at = len(out)
    rows = [struct.pack(">BIH", 0, 0, 65535)]
    for num in range(1, 11):
        if num <= 5:
            rows.append(struct.pack(">BIH", 2, 9, num - 1))
        elif num == 10:
            rows.append(struct.pack(">BIH", 1, xref_at, 0))
        else:
            rows.append(struct.pack(">BIH", 1, offsets[num], 0))
    data = zlib.compress(b"".join(rows))
    out.extend(b"10 0 obj\n<< /Type /XRef /Size 11 /W [1 4 2] /Root 1 0 R /Info 8 0 R"
               b" /ID [<6b696c6e70616765736d706c650001><6b696c6e70616765736d706c650002>]"
               b" /Length %d /Filter /FlateDecode >>\nstream\n" % len(data) + data + b"\nendstream\nendobj\n")
    out.extend(b"startxref\n%d\n%%%%EOF\n" % xref_at)
    return bytes(out)


def classic():
    out = bytearray(b"%PDF-1.4\n")
    offsets = {}

    def put(num, body):
        offsets[num] = len(out)
        out.extend(b"%d 0 obj\n" % num + body + b"\nendobj\n")

    c = content("Classic cross-reference table", 720)
    put(1, b"<< /Type /Catalog /Pages 2 0 R >>")
    put(2, b"<< /Type /Pages /Kids [3 0 R] /Count 1 >>")
    put(3, b"<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] /Resources << /Font << /F1 4 0 R >> >>"
           b" /Contents 5 0 R >>")
    put(4, b"<< /Type /Font /Subtype /Type1 /BaseFont /Times-Roman >>")
    put(5, b"<< /Length %d >>\nstream\n" % len(c) + c + b"\nendstream")
    put(6, b"<< /Title (First revision) >>")

    def table(nums, size, prev=None, info=6):
        at = len(out)
        out.extend(b"xref\n")
        if 0 in nums:
            out.extend(b"0 1\n0000000000 65535 f \n")
        for n in sorted(x for x in nums if x):
            out.extend(b"%d 1\n%010d 00000 n \n" % (n, offsets[n]))
        out.extend(b"trailer\n<< /Size %d /Root 1 0 R /Info %d 0 R" % (size, info))
        if prev is not None:
            out.extend(b" /Prev %d" % prev)
        out.extend(b" >>\nstartxref\n%d\n%%%%EOF\n" % at)
        return at

    first = table([0, 1, 2, 3, 4, 5, 6], 7)
    put(7, b"<< /Title (Second revision) /Author (An incremental update) >>")
    table([7], 8, prev=first, info=7)
    return bytes(out)


if __name__ == "__main__":
    for name, data in (("sample.pdf", sample()), ("classic.pdf", classic())):
        with open(os.path.join(HERE, name), "wb") as f:
            f.write(data)
