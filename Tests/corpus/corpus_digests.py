#!/usr/bin/env python3
"""Identity guard: digests of what the library delivers for every corpus file,
recorded once and compared on later builds.

Per file, the line of corpus_digests (the facade's object map, page content,
resources and page object over the first 200 pages, one facade per file),
followed by the exit status of `pdfkiln compose -o OUT FILE` (FILE:1-200 for
longer files) and a digest of OUT. A file on which corpus_digests crashes or
hangs gets "crashed <status>" or "hung" in place of its digests.

usage: corpus_digests.py DIGESTS_PROGRAM PDFKILN_TOOL CORPUS_DIR --record FILE
       corpus_digests.py DIGESTS_PROGRAM PDFKILN_TOOL CORPUS_DIR --compare FILE
       corpus_digests.py DIGESTS_PROGRAM PDFKILN_TOOL CORPUS_DIR --print

--compare prints every file whose line differs and exits 1 on any difference;
it exits 77 (skipped) when FILE has not been recorded.
"""
import concurrent.futures
import hashlib
import os
import queue
import subprocess
import sys
import tempfile
import threading
from corpus_common import SANITIZER_ENV, run

MAX_PAGES = 200      # as corpus_digests
FILE_SECONDS = 60    # per file, for corpus_digests and for compose
SKIPPED = 77


def _pump(stream, out):
    for line in stream:
        out.put(line)
    out.put(None)


def facade_lines(program, base, files):
    """{path: digest fields} from corpus_digests, restarted behind a file that crashes or hangs."""
    lines = {}
    rest = list(files)
    while rest:
        p = subprocess.Popen([program, base] + rest, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                             env=SANITIZER_ENV)
        out = queue.Queue()
        threading.Thread(target=_pump, args=(p.stdout, out), daemon=True).start()
        done = 0
        while True:
            try:
                line = out.get(timeout=FILE_SECONDS)
            except queue.Empty:
                p.kill()
                p.wait()
                lines[rest[done]] = "hung"
                done += 1
                break
            if line is None:
                rc = p.wait()
                if done < len(rest):
                    lines[rest[done]] = "crashed %d" % rc
                    done += 1
                break
            path, _, fields = line.decode("utf-8", "replace").rstrip("\n").partition(" ")
            lines[path] = fields
            done += 1
        rest = rest[done:]
    return lines


def compose_digest(tool, base, rel, fields):
    """Exit status of pdfkiln compose and a digest of its output. Unencrypted output holds no
    /ID and no date of its own, so two runs give the same bytes and the file is hashed whole."""
    source = os.path.join(base, rel)
    head = fields.split(" ")[0]
    if head.isdigit() and int(head) > MAX_PAGES:
        source += ":1-%d" % MAX_PAGES
    with tempfile.TemporaryDirectory() as tmp:
        out = os.path.join(tmp, "out.pdf")
        rc = run(["timeout", str(FILE_SECONDS), tool, "compose", "--strict", "--quiet", "-o", out, source],
                 timeout=FILE_SECONDS + 30, env=SANITIZER_ENV)[0]
        if not os.path.exists(out):
            return "compose %d -" % rc
        with open(out, "rb") as f:
            data = f.read()
    return "compose %d %s" % (rc, hashlib.blake2b(data, digest_size=8).hexdigest())


def collect(program, tool, base):
    files = sorted(os.path.relpath(os.path.join(d, f), base)
                   for d, _, fs in os.walk(base) for f in fs if f.endswith(".pdf"))
    facade = facade_lines(program, base, files)
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        composed = list(pool.map(lambda r: compose_digest(tool, base, r, facade[r]), files))
    return {rel: facade[rel] + " " + c for rel, c in zip(files, composed)}


FACADE_FIELDS = ["pages", "objects", "contents", "resources", "root", "exception"]


def which_differ(was, got):
    """The names of the fields in which two lines differ."""
    if was is None or got is None:
        return ["file " + ("added" if was is None else "missing")]
    a, b = was.split(" "), got.split(" ")
    fa, fb = a[:-3], b[:-3]  # the facade's part; the last three are "compose STATUS DIGEST"
    names = []
    if fa != fb:
        if len(fa) == len(fb) and fa[0].isdigit() and fb[0].isdigit():
            names += [FACADE_FIELDS[i] for i in range(min(len(fa), len(FACADE_FIELDS))) if fa[i] != fb[i]]
        else:
            names.append("outcome")
    if a[-2] != b[-2]:
        names.append("compose status")
    if a[-1] != b[-1]:
        names.append("composed file")
    return names


def read_list(path):
    table = {}
    with open(path, encoding="utf-8") as f:
        for line in f:
            line = line.rstrip("\n")
            if line and not line.startswith("#"):
                rel, _, fields = line.partition(" ")
                table[rel] = fields
    return table


def main():
    if len(sys.argv) not in (5, 6) or sys.argv[4] not in ("--record", "--compare", "--print"):
        print(__doc__)
        return 2
    program, tool, corpus, mode = sys.argv[1:5]
    target = sys.argv[5] if len(sys.argv) > 5 else None
    if mode != "--print" and target is None:
        print(__doc__)
        return 2
    base = os.path.join(corpus, "qpdf")
    if not os.path.isdir(base):
        print("corpus not found; skipped")
        return SKIPPED
    if mode == "--compare" and not os.path.exists(target):
        print("%s has not been recorded yet; skipped" % target)
        return SKIPPED
    now = collect(program, tool, base)
    if mode == "--print":
        for rel in sorted(now):
            print(rel, now[rel])
        return 0
    if mode == "--record":
        with open(target, "w", encoding="utf-8") as f:
            f.write("# <path> <pages> <objects> <contents> <resources> <root> compose <status> <output>\n")
            f.write("# Written by corpus_digests.py --record; compared by the test_corpus_digests test.\n")
            for rel in sorted(now):
                f.write("%s %s\n" % (rel, now[rel]))
        print("%d files recorded in %s" % (len(now), target))
        return 0
    recorded = read_list(target)
    differ = 0
    by_field = {}
    for rel in sorted(set(recorded) | set(now)):
        was, got = recorded.get(rel), now.get(rel)
        if was == got:
            continue
        differ += 1
        fields = which_differ(was, got)
        for f in fields:
            by_field[f] = by_field.get(f, 0) + 1
        print("DIFF %s (%s)\n  recorded: %s\n  now:      %s" % (rel, ", ".join(fields), was or "(absent)",
                                                          got or "(absent)"))
    print("%d files compared, %d differ%s" % (len(now), differ, "".join(
        "; %s %d" % (f, n) for f, n in sorted(by_field.items()))))
    return 1 if differ else 0


if __name__ == "__main__":
    sys.exit(main())
