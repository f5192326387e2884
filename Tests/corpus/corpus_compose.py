#!/usr/bin/env python3
"""End to end: composes every page of every corpus file that `qpdf --check`
accepts into a new PDF with `pdfkiln compose`, has `qpdf --check` accept the
output, and renders source and output pages with `mutool draw` at 50 dpi. A
page is alike when at least 99 % of its pixels agree within a small
tolerance. Prints the pages compared, the pages alike and the list of the
others; fails below 95 % alike, on a crash or hang, and on output that qpdf
refuses unless the file is listed in compose-explained.txt.

Files whose pages are rendered differently for a reason of their own are
listed there too; they still count.

usage: corpus_compose.py PDFKILN_TOOL CORPUS_DIR [MAX_PAGES_PER_FILE]
"""
import concurrent.futures
import os
import re
import sys
import tempfile
from corpus_common import SANITIZER_ENV, load_explained, run_full as run

TOLERANCE = 24      # per channel, of 255
ALIKE = 0.99        # share of pixels that must agree


def read_pnm(path):
    with open(path, "rb") as f:
        data = f.read()
    m = re.match(rb"P([56])\s+(?:#.*\s+)*(\d+)\s+(\d+)\s+(\d+)\s", data)
    if not m:
        return None
    channels = 3 if m.group(1) == b"6" else 1
    w, h = int(m.group(2)), int(m.group(3))
    return w, h, channels, data[m.end():]


def alike(a, b):
    if a is None or b is None:
        return False
    wa, ha, ca, pa = a
    wb, hb, cb, pb = b
    if ca != cb or abs(wa - wb) > 2 or abs(ha - hb) > 2:
        return False
    w, h = min(wa, wb), min(ha, hb)
    if w == 0 or h == 0:
        return wa == wb and ha == hb
    bad = 0
    limit = (1.0 - ALIKE) * w * h
    for y in range(h):
        ra = pa[y * wa * ca:(y * wa + w) * ca]
        rb = pb[y * wb * cb:(y * wb + w) * cb]
        if ra == rb:
            continue
        for x in range(w):
            for c in range(ca):
                if abs(ra[x * ca + c] - rb[x * ca + c]) > TOLERANCE:
                    bad += 1
                    break
        if bad > limit:
            return False
    return True


def render(pdf, page, out):
    rc, _, _ = run(["mutool", "draw", "-q", "-r", "50", "-c", "rgb", "-o", out, pdf, str(page)], timeout=60)
    return read_pnm(out) if rc == 0 and os.path.exists(out) else None


def compose_file(tool, base, rel, max_pages):
    """Returns (rel, verdict, pages compared, pages alike, unlike pages, detail)."""
    path = os.path.join(base, rel)
    if run(["qpdf", "--check", path])[0] != 0:
        return rel, "skip", 0, 0, [], ""
    rc, n, _ = run(["qpdf", "--show-npages", path])
    try:
        count = int(n.strip())
    except ValueError:
        return rel, "skip", 0, 0, [], ""
    if count == 0:
        return rel, "skip", 0, 0, [], ""
    env = SANITIZER_ENV
    with tempfile.TemporaryDirectory() as tmp:
        out = os.path.join(tmp, "out.pdf")
        rc, _, err = run(["timeout", "120", tool, "compose", "--strict", "--quiet", "-o", out, path], timeout=150, env=env)
        if rc == 124 or rc >= 86:
            return rel, "crash", 0, 0, [], "exit %d" % rc
        if rc not in (0, 3) or not os.path.exists(out):
            return rel, "refused", 0, 0, [], err.decode("utf-8", "replace").strip()[:200]
        if run(["qpdf", "--check", out])[0] != 0:
            return rel, "badoutput", 0, 0, [], ""
        ours = run(["qpdf", "--show-npages", out])[1]
        try:
            ours = int(ours.strip())
        except ValueError:
            ours = 0
        pages = min(count, ours, max_pages)
        compared = same = 0
        unlike = []
        for p in range(1, pages + 1):
            a = render(path, p, os.path.join(tmp, "a.ppm"))
            b = render(out, p, os.path.join(tmp, "b.ppm"))
            if a is None:
                continue
            compared += 1
            if alike(a, b):
                same += 1
            else:
                unlike.append(p)
        return rel, "done", compared, same, unlike, "" if ours == count else "%d of %d pages placed" % (ours, count)


def main():
    tool, corpus = sys.argv[1], sys.argv[2]
    max_pages = int(sys.argv[3]) if len(sys.argv) > 3 else 1000000
    base = os.path.join(corpus, "qpdf")
    if not os.path.isdir(base):
        print("corpus not found; skipped")
        return 0
    for peer in (["qpdf", "--version"], ["mutool", "-v"]):
        if run(peer)[0] not in (0, 1):
            print("%s not installed; skipped" % peer[0])
            return 0
    explained = load_explained("compose-explained.txt")
    files = sorted(os.path.relpath(os.path.join(d, f), base)
                   for d, _, fs in os.walk(base) for f in fs if f.endswith(".pdf"))
    compared = same = 0
    others, failures = [], []
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        for rel, verdict, c, s, unlike, detail in pool.map(lambda r: compose_file(tool, base, r, max_pages), files):
            if verdict == "skip":
                continue
            if verdict == "crash":
                failures.append("crashed or hung: %s (%s)" % (rel, detail))
                continue
            if verdict in ("refused", "badoutput"):
                if rel in explained:
                    others.append("%s: %s (%s)" % (rel, verdict, explained[rel]))
                else:
                    failures.append("%s: %s %s" % (rel, "no output" if verdict == "refused" else
                                                   "output refused by qpdf --check", detail))
                continue
            compared += c
            same += s
            if unlike or detail:
                note = " (%s)" % explained[rel] if rel in explained else ""
                others.append("%s: pages %s differ%s%s" % (rel, ",".join(map(str, unlike[:20])) or "none",
                                                          "; " + detail if detail else "", note))
    print("%d pages compared, %d alike (%.1f %%)" % (compared, same, 100.0 * same / max(compared, 1)))
    for o in others:
        print("other: " + o)
    for f in failures:
        print("FAIL " + f)
    if compared == 0:
        print("FAIL nothing compared")
        return 1
    if same * 100 < compared * 95:
        print("FAIL fewer than 95 % of the pages are alike")
        return 1
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
