#!/usr/bin/env python3
"""Runs the hostile battery (made by make_battery.py in a scratch directory)
through the pdfkiln commands: info, object --all, content --page 1, compose
(with --keep-going, so that partial output is written too) and, for JBIG2
files, jbig2 --all. Fails on a sanitizer report, a signal, a run over 10 s
or over 1 GiB of peak resident memory, and, for valid input, on a compose
that fails or writes a file qpdf refuses. Prints the size of the battery and
its classes.

usage: run_battery.py PDFKILN_TOOL CORPUS_DIR [--jobs N] [--keep DIR]
"""
import concurrent.futures
import os
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
SECONDS = 10
MAX_RSS_KIB = 1 << 20
SANITIZER_EXIT = (86, 87)
ENV = dict(os.environ,
           ASAN_OPTIONS="exitcode=86:detect_leaks=1:halt_on_error=1:hard_rss_limit_mb=1536",
           UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1:exitcode=87")


def measured(args, timeout=SECONDS):
    """(status, seconds, peak RSS in KiB, stderr) of one run; status None on a time-out."""
    start = time.monotonic()
    with tempfile.TemporaryFile() as err:
        p = subprocess.Popen(args, stdout=subprocess.DEVNULL, stderr=err, env=ENV, start_new_session=True)
        deadline = start + timeout
        status = rusage = None
        while True:
            pid, st, ru = os.wait4(p.pid, os.WNOHANG)
            if pid:
                status, rusage = st, ru
                break
            if time.monotonic() > deadline:
                os.killpg(p.pid, signal.SIGKILL)
                _, _, rusage = os.wait4(p.pid, 0)
                break
            time.sleep(0.01)
        p.returncode = 0
        seconds = time.monotonic() - start
        err.seek(0)
        text = err.read().decode("utf-8", "replace")
    if status is None:
        return None, seconds, rusage.ru_maxrss, text
    code = -os.WTERMSIG(status) if os.WIFSIGNALED(status) else os.WEXITSTATUS(status)
    return code, seconds, rusage.ru_maxrss, text


PEAKS = []  # (seconds, peak RSS in KiB, file, command) of every run


def check_file(tool, directory, name, kind):
    """The problems of one file, as text lines."""
    path = os.path.join(directory, name + ".pdf")
    out = os.path.join(directory, name + ".out.pdf")
    runs = [("info", [tool, "info", path]),
            ("object", [tool, "object", path, "--all"]),
            ("content", [tool, "content", path, "--page", "1"]),
            ("compose", [tool, "compose", "--quiet", "--keep-going", "-o", out, path])]
    if kind == "jbig2":
        runs.append(("jbig2", [tool, "jbig2", path, "--all", "-o", os.path.join(directory, name + "-%d.png")]))
    problems = []
    composed = None
    for label, args in runs:
        code, seconds, rss, err = measured(args)
        PEAKS.append((seconds, rss, name, label))
        where = "%s %s" % (name, label)
        if code is None:
            problems.append("%s: over %d s" % (where, SECONDS))
            continue
        if code < 0:
            problems.append("%s: signal %d" % (where, -code))
        if code in SANITIZER_EXIT or "Sanitizer" in err or "runtime error:" in err:
            problems.append("%s: sanitizer report\n%s" % (where, err[-3000:]))
        if rss > MAX_RSS_KIB:
            problems.append("%s: peak memory %d MiB" % (where, rss >> 10))
        if label == "compose":
            composed = code
    if kind == "valid":
        if composed != 0:
            problems.append("%s compose: status %s on valid input" % (name, composed))
        elif shutil.which("qpdf"):
            r = subprocess.run(["qpdf", "--check", out], capture_output=True)
            if r.returncode not in (0, 3):
                problems.append("%s compose: qpdf refuses the output\n%s" % (name, r.stdout.decode()[-1000:]))
    for leftover in os.listdir(directory):
        if leftover.startswith(name + ".out") or leftover.startswith(name + "-"):
            os.remove(os.path.join(directory, leftover))
    return problems


def main():
    args = sys.argv[1:]
    if len(args) < 2:
        print(__doc__)
        return 2
    tool, corpus = args[:2]
    jobs = int(args[args.index("--jobs") + 1]) if "--jobs" in args else (os.cpu_count() or 2)
    keep = args[args.index("--keep") + 1] if "--keep" in args else None
    directory = keep or tempfile.mkdtemp(prefix="pdfkiln-battery-")
    try:
        subprocess.run([sys.executable, os.path.join(HERE, "make_battery.py"), corpus, directory], check=True,
                       stdout=subprocess.DEVNULL)
        entries = []
        with open(os.path.join(directory, "manifest.txt")) as f:
            for line in f:
                name, cls, kind = line.rstrip("\n").split("\t")
                entries.append((name, cls, kind))
        classes = {}
        for _, cls, _ in entries:
            classes[cls] = classes.get(cls, 0) + 1
        print("battery: %d files; classes: %s" % (len(entries), ", ".join(
            "%s %d" % (c, n) for c, n in sorted(classes.items()))))
        problems = []
        with concurrent.futures.ThreadPoolExecutor(max_workers=jobs) as pool:
            for found in pool.map(lambda e: check_file(tool, directory, e[0], e[2]), entries):
                problems += found
        for p in problems:
            print(p)
        if PEAKS:
            slow, big = max(PEAKS), max(PEAKS, key=lambda p: p[1])
            print("%d runs; slowest %.2f s (%s %s); largest %d MiB (%s %s)" % (
                len(PEAKS), slow[0], slow[2], slow[3], big[1] >> 10, big[2], big[3]))
        print("%d problem(s)" % len(problems))
        return 1 if problems else 0
    finally:
        if not keep:
            shutil.rmtree(directory, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
