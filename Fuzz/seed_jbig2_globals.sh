#!/bin/sh
# Seeds fuzz_jbig2_globals from the shared JBIG2 corpus, into a directory
# outside the repository. Each file becomes the target's input form: a length
# byte L, the globals (the file's symbol and pattern dictionaries and code
# tables, zero-padded to R*L/255 bytes, which reads as empty segments), then
# the other segments as page data. Files without dictionaries are written
# with L = 0 (no globals).
#   Fuzz/seed_jbig2_globals.sh /tmp/jbig2-globals-seeds
#   build-fuzz-j2/Fuzz/fuzz_jbig2_globals -max_len=65536 -timeout=5 -max_total_time=1800 /tmp/jbig2-globals-seeds
set -e
out=${1:?usage: seed_jbig2_globals.sh OUTDIR}
corpus=${PDFKILN_CORPUS_DIR:-$(dirname "$0")/../../shared/corpus}/jbig2
mkdir -p "$out"
find "$corpus" -name '*.jbig2' | python3 -c '
import os, struct, sys
out = sys.argv[1]

def segments(d):
    # (type, header bytes, data bytes) of a file in the sequential or the
    # random-access organisation, by ISO/IEC 14492 7.2.
    p, segs, random = 0, [], False
    if d[:8] == b"\x97JB2\r\n\x1a\n":
        flags = d[8]
        random = not (flags & 1)
        p = 9 + (0 if flags & 2 else 4)
    heads = []
    while p + 11 <= len(d):
        start = p
        num = struct.unpack(">I", d[p:p + 4])[0]; flags = d[p + 4]; p += 5
        count = d[p] >> 5
        if count == 7:
            count = struct.unpack(">I", d[p:p + 4])[0] & 0x1fffffff
            p += 4 + (count + 8) // 8
        else:
            p += 1
        p += count * (1 if num <= 256 else 2 if num <= 65536 else 4)
        p += 4 if flags & 0x40 else 1
        length = struct.unpack(">I", d[p:p + 4])[0]; p += 4
        typ = flags & 0x3f
        if not random:
            if length == 0xffffffff:
                mmr = d[p + 17] & 1
                marker = b"\x00\x00" if mmr else b"\xff\xac"
                e = d.find(marker, p + 18)
                if e < 0: break
                length = e + 6 - p
            segs.append((typ, d[start:p], d[p:p + length])); p += length
            if typ == 51: break
        else:
            heads.append((typ, d[start:p], length))
            if typ == 51: break
    for typ, head, length in heads:
        segs.append((typ, head, d[p:p + length])); p += length
    return segs

for path in sys.stdin.read().split():
    d = open(path, "rb").read()
    g, b = b"", b""
    for typ, head, data in segments(d):
        if typ == 51: continue
        if typ in (0, 16, 53): g += head + data
        else: b += head + data
    if not g:
        seed = b"\x00" + b
    else:
        rest = len(g) + len(b)
        # The smallest L whose split takes in all of g; the globals are
        # zero-padded up to the split.
        L = next(L for L in range(256) if (rest * L) // 255 >= len(g))
        while True:
            split = (rest * L) // 255
            pad = split - len(g)
            rest2 = len(g) + pad + len(b)
            if (rest2 * L) // 255 == len(g) + pad: break
            rest = rest2
        seed = bytes([L]) + g + b"\0" * pad + b
    open(os.path.join(out, os.path.basename(path)), "wb").write(seed)
' "$out"
echo "$(ls "$out" | wc -l) seeds in $out"
