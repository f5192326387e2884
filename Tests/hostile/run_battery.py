#!/usr/bin/env python3
"""Runs the hostile battery through pdfkiln info, object --all, content, compose --keep-going (and jbig2 --all):
fails on a sanitizer report, a signal, a run over 10 s or 1 GiB, and on valid input whose compose fails or writes a
file qpdf refuses. Prints the battery's size and classes.

usage: run_battery.py PDFKILN_TOOL CORPUS_DIR [--jobs N] [--keep DIR]
"""
import collections
import concurrent.futures
import os
import shutil
import sys
import tempfile

import make_battery  # puts Tests/tool on the path
from tool_util import qpdf_refuses, run

SECONDS, MAX_KIB, SANITIZER_EXIT = 10, 1 << 20, (86, 87)
ENV = dict(os.environ, ASAN_OPTIONS="exitcode=86:detect_leaks=1:halt_on_error=1:hard_rss_limit_mb=1536",
           UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1:exitcode=87")
PEAKS = []  # (seconds, peak RSS in KiB, file, command) of every run


def check_file(tool, directory, name, kind):
    """The problems of one file, as text lines."""
    path, out = os.path.join(directory, name + ".pdf"), os.path.join(directory, name + ".out.pdf")
    runs = [["info", path], ["object", path, "--all"], ["content", path, "--page", "1"],
            ["compose", "--quiet", "--keep-going", "-o", out, path]]
    if kind == "jbig2":
        runs.append(["jbig2", path, "--all", "-o", os.path.join(directory, name + "-%d.png")])
    problems, composed = [], None
    for args in runs:
        code, seconds, rss, err = run([tool] + args, SECONDS, ENV, stdout=False)
        PEAKS.append((seconds, rss, name, args[0]))
        sanitizer = code in SANITIZER_EXIT or "Sanitizer" in err or "runtime error:" in err
        problems += ["%s %s: %s" % (name, args[0], what) for bad, what in [
            (code is None, "over %d s" % SECONDS), ((code or 0) < 0, "signal %d" % -(code or 0)),
            (sanitizer, "sanitizer report\n" + err[-3000:]), (rss > MAX_KIB, "peak %d MiB" % (rss >> 10))] if bad]
        composed = code if args[0] == "compose" else composed
    if kind == "valid":
        refused = "status %s on valid input" % composed if composed != 0 else qpdf_refuses(out, accept=(0, 3))
        problems += ["%s compose: %s" % (name, refused)] if refused else []
    for leftover in [f for f in os.listdir(directory) if f.startswith((name + ".out", name + "-"))]:
        os.remove(os.path.join(directory, leftover))
    return problems


def main():
    args = sys.argv[1:]
    if len(args) < 2:
        sys.exit(__doc__)
    tool, corpus = args[:2]
    jobs = int(args[args.index("--jobs") + 1]) if "--jobs" in args else (os.cpu_count() or 2)
    directory = args[args.index("--keep") + 1] if "--keep" in args else tempfile.mkdtemp(prefix="pdfkiln-battery-")
    try:
        entries = make_battery.write(corpus, directory)
        classes = collections.Counter(cls for _, cls, _ in entries)
        print("battery: %d files; classes: %s" % (len(entries), ", ".join(
            "%s %d" % (c, n) for c, n in sorted(classes.items()))))
        with concurrent.futures.ThreadPoolExecutor(max_workers=jobs) as pool:
            problems = sum(pool.map(lambda e: check_file(tool, directory, e[0], e[2]), entries), [])
        for p in problems:
            print(p)
        if PEAKS:
            slow, big = max(PEAKS), max(PEAKS, key=lambda p: p[1])
            print("%d runs; slowest %.2f s (%s %s); largest %d MiB (%s %s)" % (
                len(PEAKS), slow[0], slow[2], slow[3], big[1] >> 10, big[2], big[3]))
        print("%d problem(s)" % len(problems))
        return 1 if problems else 0
    finally:
        if "--keep" not in args:
            shutil.rmtree(directory, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
