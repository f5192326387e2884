#!/usr/bin/env python3
"""compose --ascii over the corpus: for every file that `qpdf --check` accepts,
the output has no byte above 127 and `qpdf --check` accepts it; the first
page of every STEP-th such file (all with STEP 1) renders alike to the plain
compose (mutool draw at 30 dpi, the likeness test of corpus_compose.py).
Files whose output keeps a high byte or renders otherwise for a reason of
the library's are named in compose-ascii-explained.txt; any other fails.

usage: corpus_compose_ascii.py PDFKILN_TOOL CORPUS_DIR [STEP]
"""
import concurrent.futures
import os
import sys
import tempfile
from corpus_common import SANITIZER_ENV, open_corpus, run_full as run
from corpus_compose import alike, read_pnm


def render(pdf, out):
    rc, _, _ = run(["mutool", "draw", "-q", "-r", "30", "-c", "rgb", "-o", out, pdf, "1"], timeout=60)
    return read_pnm(out) if rc == 0 and os.path.exists(out) else None


def check(tool, path, compare):
    """(verdict, detail): skip, ok, high, badoutput, refused, crash, unlike."""
    if run(["qpdf", "--check", path])[0] != 0:
        return "skip", ""
    with tempfile.TemporaryDirectory() as tmp:
        out = os.path.join(tmp, "ascii.pdf")
        rc, _, err = run(["timeout", "120", tool, "compose", "--quiet", "--ascii", "-o", out, path], timeout=150,
                         env=SANITIZER_ENV)
        if rc == 124 or rc >= 86:
            return "crash", "exit %d" % rc
        if rc not in (0, 3) or not os.path.exists(out):
            # A file that the plain compose refuses as well is no concern here.
            plain = os.path.join(tmp, "plain.pdf")
            if run([tool, "compose", "--quiet", "-o", plain, path], timeout=150)[0] not in (0, 3):
                return "skip", ""
            return "refused", err.decode("utf-8", "replace").strip()[:160]
        with open(out, "rb") as f:
            data = f.read()
        high = sum(1 for b in data if b > 127)
        if high:
            return "high", "%d bytes above 127" % high
        if run(["qpdf", "--check", out])[0] != 0:
            return "badoutput", ""
        if not compare:
            return "ok", ""
        plain = os.path.join(tmp, "plain.pdf")
        run([tool, "compose", "--quiet", "-o", plain, path], timeout=150)
        a = render(plain, os.path.join(tmp, "a.ppm"))
        b = render(out, os.path.join(tmp, "b.ppm"))
        if a is None:
            return "ok", ""
        return ("rendered", "") if alike(a, b) else ("unlike", "page 1")


def main():
    step = int(sys.argv[3]) if len(sys.argv) > 3 else 1
    c = open_corpus(["qpdf", "mutool"], "compose-ascii-explained.txt")
    if c is None:
        return 0
    tool, base, files, explained = c.tool, c.base, c.files, c.explained
    counts = {}
    others, failures = [], []
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        jobs = [(rel, pool.submit(check, tool, os.path.join(base, rel), i % step == 0))
                for i, rel in enumerate(files)]
        for rel, job in jobs:
            verdict, detail = job.result()
            counts[verdict] = counts.get(verdict, 0) + 1
            if verdict in ("skip", "ok", "rendered"):
                continue
            line = "%s: %s %s" % (rel, verdict, detail)
            if verdict != "crash" and rel in explained:
                others.append(line + " (" + explained[rel] + ")")
            else:
                failures.append(line)
    composed = sum(v for k, v in counts.items() if k != "skip")
    print("%d files composed with --ascii, %d 7-bit and accepted by qpdf, %d first pages rendered alike, "
          "%d unlike" % (composed, counts.get("ok", 0) + counts.get("rendered", 0) + counts.get("unlike", 0),
                         counts.get("rendered", 0), counts.get("unlike", 0)))
    for o in others:
        print("explained: " + o)
    for f in failures:
        print("FAIL " + f)
    return 1 if failures or composed == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
