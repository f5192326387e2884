#!/usr/bin/env python3
"""Identity guard: per corpus file, the line of corpus_digests (what the facade
delivers over the first 200 pages; "crashed <status>" or "hung" when it does
not finish), the exit status of `pdfkiln compose -o OUT FILE` (FILE:1-200 for
longer files) and a digest of OUT; recorded once and compared on later builds.
--compare prints every file whose line differs and exits 1 on any difference,
77 (skipped) when FILE has not been recorded.

usage: corpus_digests.py DIGESTS_PROGRAM PDFKILN_TOOL CORPUS_DIR (--record FILE | --compare FILE | --print)
"""
import hashlib
import os
import sys
import tempfile
from corpus_common import SANITIZER_ENV, corpus_files, pmap, read_table, run, run_tool

MAX_PAGES = 200      # as corpus_digests
FILE_SECONDS = 60    # per file, for corpus_digests and for compose
SKIPPED = 77
FACADE_FIELDS = ["pages", "objects", "contents", "resources", "root", "exception"]


def file_line(program, tool, base, rel):
    """The digest fields of one file: the facade's (one corpus_digests run per file), then compose's.
    Unencrypted output holds no /ID and no date of its own, so it is hashed whole."""
    rc, out = run([program, base, rel], timeout=FILE_SECONDS, env=SANITIZER_ENV)
    line = out.decode("utf-8", "replace").split("\n")[0].partition(" ")[2]
    fields = line if line else "hung" if rc == 124 else "crashed %d" % rc
    head = fields.split(" ")[0]
    source = os.path.join(base, rel) + (":1-%d" % MAX_PAGES if head.isdigit() and int(head) > MAX_PAGES else "")
    with tempfile.TemporaryDirectory() as tmp:
        out = os.path.join(tmp, "out.pdf")
        rc = run_tool(tool, ["compose", "--strict", "--quiet", "-o", out, source], FILE_SECONDS)[0]
        if not os.path.exists(out):
            return "%s compose %d -" % (fields, rc)
        with open(out, "rb") as f:
            return "%s compose %d %s" % (fields, rc, hashlib.blake2b(f.read(), digest_size=8).hexdigest())


def which_differ(was, got):
    """The names of the fields in which two lines differ."""
    if was is None or got is None:
        return ["file " + ("added" if was is None else "missing")]
    a, b = was.split(" "), got.split(" ")
    fa, fb = a[:-3], b[:-3]  # the facade's part; the last three are "compose STATUS DIGEST"
    if fa != fb and len(fa) == len(fb) and fa[0].isdigit() and fb[0].isdigit():
        names = [name for name, x, y in zip(FACADE_FIELDS, fa, fb) if x != y]
    else:
        names = ["outcome"] if fa != fb else []
    return names + [name for name, i in (("compose status", -2), ("composed file", -1)) if a[i] != b[i]]


def main():
    program, tool, corpus, mode, target = (sys.argv[1:] + [None] * 5)[:5]
    if mode not in ("--record", "--compare", "--print") or (target is None and mode != "--print"):
        print(__doc__)
        return 2
    base = os.path.join(corpus, "qpdf")
    if not os.path.isdir(base):
        print("corpus not found; skipped")
        return SKIPPED
    if mode == "--compare" and not os.path.exists(target):
        print("%s has not been recorded yet; skipped" % target)
        return SKIPPED
    files = corpus_files(base)
    now = dict(zip(files, pmap(lambda rel: file_line(program, tool, base, rel), files)))
    if mode == "--print":
        for rel in files:
            print(rel, now[rel])
        return 0
    if mode == "--record":
        with open(target, "w", encoding="utf-8") as f:
            f.write("# <path> <pages> <objects> <contents> <resources> <root> compose <status> <output>\n")
            f.write("# Written by corpus_digests.py --record; compared by the test_corpus_digests test.\n")
            f.writelines("%s %s\n" % (rel, now[rel]) for rel in files)
        print("%d files recorded in %s" % (len(now), target))
        return 0
    recorded = read_table(os.path.abspath(target), " ")
    by_field = {}
    differ = [rel for rel in sorted(set(recorded) | set(now)) if recorded.get(rel) != now.get(rel)]
    for rel in differ:
        was, got = recorded.get(rel), now.get(rel)
        fields = which_differ(was, got)
        for f in fields:
            by_field[f] = by_field.get(f, 0) + 1
        print("DIFF %s (%s)\n  recorded: %s\n  now:      %s" % (rel, ", ".join(fields), was or "(absent)",
                                                          got or "(absent)"))
    print("%d files compared, %d differ%s" % (len(now), len(differ), "".join(
        "; %s %d" % (f, n) for f, n in sorted(by_field.items()))))
    return 1 if differ else 0


if __name__ == "__main__":
    sys.exit(main())
