#!/usr/bin/env python3
"""The tool with its reading repairs on, against qpdf.

1. Every corpus file that qpdf reads (`qpdf --check` exit 0, or 3: read with
   warnings) is composed (its first pages) by `pdfkiln compose --keep-going`
   (a page skipped or emptied still leaves the others written); the output
   must pass `qpdf --check`. The same first pages are copied by qpdf
   (`qpdf --empty --pages FILE 1-N -- OUT`, output passing `qpdf --check`):
   the files the tool composes must be at least as many as those qpdf copies,
   and a file qpdf reads that the tool does not compose is listed, with its
   reason, in tool-explained.txt.
2. `pdfkiln merge` and `pdfkiln split` against `qpdf --pages` and
   `qpdf --split-pages` on a share of the clean files: same page counts, pages
   rendered alike by mutool, outputs clean under `qpdf --check`.

usage: corpus_tool.py PDFKILN_TOOL CORPUS_DIR
"""
import concurrent.futures
import os
import sys
import tempfile
from corpus_common import SANITIZER_ENV, open_corpus, run

FIRST_PAGES = 3     # pages composed per file
MERGE_FILES = 24    # clean files taken for merge and split, pairwise


def compose(tool, base, rel):
    path = os.path.join(base, rel)
    theirs = run(["qpdf", "--check", path])[0]
    with tempfile.TemporaryDirectory() as tmp:
        out = os.path.join(tmp, "out.pdf")
        n = run(["qpdf", "--show-npages", path])[1].strip()
        sel = ":1-%d" % min(FIRST_PAGES, int(n)) if n.isdigit() and int(n) > 0 else ""
        rc = run(["timeout", "60", tool, "compose", "--quiet", "--keep-going", "-o", out, path + sel], timeout=90,
                 env=SANITIZER_ENV)[0]
        ours = rc in (0, 3) and os.path.exists(out) and run(["qpdf", "--check", out])[0] == 0
        qout = os.path.join(tmp, "qpdf.pdf")
        pages = sel[1:] if sel else "1-z"
        qrc = run(["qpdf", "--empty", "--pages", path, pages, "--", qout], timeout=90)[0]
        copied = qrc in (0, 3) and os.path.exists(qout) and run(["qpdf", "--check", qout])[0] == 0
        return rel, theirs, ours, rc, copied


def render(pdf, page, out):
    rc = run(["mutool", "draw", "-q", "-r", "20", "-o", out, pdf, str(page)])[0]
    if rc != 0 or not os.path.exists(out):
        return None
    with open(out, "rb") as f:
        return f.read()


def same_pages(a, b, tmp, count):
    for p in range(1, count + 1):
        if render(a, p, os.path.join(tmp, "a.pgm")) != render(b, p, os.path.join(tmp, "b.pgm")):
            return p
    return 0


def merge_pair(tool, base, a, b):
    failures = []
    pa, pb = os.path.join(base, a), os.path.join(base, b)
    with tempfile.TemporaryDirectory() as tmp:
        ours, theirs = os.path.join(tmp, "ours.pdf"), os.path.join(tmp, "theirs.pdf")
        rc = run([tool, "merge", "-o", ours, pa, pb], env=SANITIZER_ENV)[0]
        run(["qpdf", "--empty", "--pages", pa, pb, "--", theirs])
        n = int(run(["qpdf", "--show-npages", theirs])[1] or b"0")
        if rc != 0 or run(["qpdf", "--check", ours])[0] != 0:
            return ["merge %s %s: exit %d or output refused by qpdf --check" % (a, b, rc)]
        m = int(run(["qpdf", "--show-npages", ours])[1] or b"0")
        if m != n:
            failures.append("merge %s %s: %d pages, qpdf %d" % (a, b, m, n))
        elif same_pages(ours, theirs, tmp, n):
            failures.append("merge %s %s: page %d differs" % (a, b, same_pages(ours, theirs, tmp, n)))
        rc = run([tool, "split", pa, "--pages-per-file", "2", "-o", os.path.join(tmp, "o-%d.pdf")],
                 env=SANITIZER_ENV)[0]
        run(["qpdf", "--split-pages=2", pa, os.path.join(tmp, "q-%d.pdf")])
        parts = sorted(f for f in os.listdir(tmp) if f.startswith("q-"))
        if rc != 0:
            return failures + ["split %s: exit %d" % (a, rc)]
        for i, q in enumerate(parts, 1):
            o = os.path.join(tmp, "o-%d.pdf" % i)
            q = os.path.join(tmp, q)
            if not os.path.exists(o) or run(["qpdf", "--check", o])[0] != 0:
                failures.append("split %s: part %d missing or refused by qpdf --check" % (a, i))
                continue
            k = int(run(["qpdf", "--show-npages", q])[1] or b"0")
            if int(run(["qpdf", "--show-npages", o])[1] or b"0") != k or same_pages(o, q, tmp, k):
                failures.append("split %s: part %d differs from qpdf's" % (a, i))
        if os.path.exists(os.path.join(tmp, "o-%d.pdf" % (len(parts) + 1))):
            failures.append("split %s: more parts than qpdf's %d" % (a, len(parts)))
    return failures


def main():
    c = open_corpus(["qpdf", "mutool"], "tool-explained.txt")
    if c is None:
        return 0
    tool, base, files, explained = c.tool, c.base, c.files, c.explained
    qpdf_reads = qpdf_copies = tool_composes = 0
    clean = []
    failures = []
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        for rel, theirs, ours, rc, copied in pool.map(lambda r: compose(tool, base, r), files):
            qpdf_copies += copied
            if rc == 124 or rc >= 86:
                failures.append("%s: crashed or hung (exit %d)" % (rel, rc))
            if theirs in (0, 3):
                qpdf_reads += 1
                if not ours and rel not in explained:
                    failures.append("%s: qpdf reads it (exit %d), the tool does not compose it (exit %d)"
                                    % (rel, theirs, rc))
            if ours:
                tool_composes += 1
            if theirs == 0 and ours and run(["qpdf", "--is-encrypted", os.path.join(base, rel)])[0] != 0:
                clean.append(rel)
    print("qpdf reads %d files and copies their pages from %d; the tool composes %d"
          % (qpdf_reads, qpdf_copies, tool_composes))
    if tool_composes < qpdf_copies:
        failures.append("the tool composes %d files, fewer than the %d whose pages qpdf copies"
                        % (tool_composes, qpdf_copies))
    step = max(1, len(clean) // MERGE_FILES)
    taken = clean[::step][:MERGE_FILES]
    pairs = list(zip(taken[0::2], taken[1::2]))
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        for found in pool.map(lambda ab: merge_pair(tool, base, *ab), pairs):
            failures += [f for f in found if f.split(":")[0].split()[1] not in explained]
    print("%d merges and %d splits compared with qpdf" % (len(pairs), len(pairs)))
    for f in failures:
        print("FAIL " + f)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
