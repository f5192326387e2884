#!/usr/bin/env python3
"""Composes corpus files twice, plain and with --encrypt aes-128, and checks
that qpdf accepts the encrypted output with the user and with the owner
password, and that mutool renders it, opened with the user password, exactly
as the plain output, page for page.

usage: corpus_compose_encrypted.py PDFKILN_TOOL CORPUS_DIR
"""
import os
import sys
import tempfile
from corpus_common import run

FILES = 150         # corpus files taken, in name order, among those that qualify
PAGES_PER_FILE = 4  # source pages composed from each


def main():
    tool, corpus = sys.argv[1], sys.argv[2]
    base = os.path.join(corpus, "qpdf")
    if not os.path.isdir(base):
        print("corpus not found; skipped")
        return 0
    if run(["qpdf", "--version"])[0] != 0 or run(["mutool", "-v"])[0] not in (0, 1):
        print("qpdf or mutool not installed; skipped")
        return 0
    files = sorted(os.path.join(d, f) for d, _, fs in os.walk(base) for f in fs if f.endswith(".pdf"))
    taken = pages = identical = 0
    failures = []
    with tempfile.TemporaryDirectory() as tmp:
        plain, enc = os.path.join(tmp, "plain.pdf"), os.path.join(tmp, "enc.pdf")
        for path in files:
            if taken == FILES:
                break
            if run(["qpdf", "--check", path])[0] != 0 or run(["qpdf", "--is-encrypted", path])[0] == 0:
                continue
            rc, out = run(["qpdf", "--show-npages", path])
            if rc != 0 or int(out or b"0") < 1:
                continue
            selection = path + ":1-%d" % min(PAGES_PER_FILE, int(out))
            if run([tool, "compose", "--strict", "--quiet", "-o", plain, selection])[0] != 0:
                continue
            taken += 1
            rel = os.path.relpath(path, base)
            if run([tool, "compose", "--strict", "--quiet", "-o", enc, "--encrypt", "aes-128", "--user", "U", "--owner", "O",
                    selection])[0] != 0:
                failures.append("%s: encrypted compose failed" % rel)
                continue
            for pw in ("U", "O"):
                if run(["qpdf", "--password=" + pw, "--check", enc])[0] != 0:
                    failures.append("%s: qpdf --password=%s --check refuses the output" % (rel, pw))
            n = int(run(["qpdf", "--password=U", "--show-npages", enc])[1] or b"0")
            for p in range(1, n + 1):
                a, b = os.path.join(tmp, "a.pgm"), os.path.join(tmp, "b.pgm")
                run(["mutool", "draw", "-q", "-r", "36", "-o", a, plain, str(p)])
                run(["mutool", "draw", "-q", "-r", "36", "-p", "U", "-o", b, enc, str(p)])
                pages += 1
                with open(a, "rb") as fa, open(b, "rb") as fb:
                    if fa.read() == fb.read():
                        identical += 1
                    else:
                        failures.append("%s: sheet %d renders differently when encrypted" % (rel, p))
    print("%d files composed, %d sheets compared, %d identical" % (taken, pages, identical))
    for f in failures:
        print("FAIL " + f)
    return 1 if failures or taken == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
