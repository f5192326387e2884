"""Shared by the corpus scripts: subprocesses and the lists of explained differences."""
import collections
import json
import os
import subprocess
import sys
import threading

HERE = os.path.dirname(os.path.abspath(__file__))

# Sanitizer reports get exit codes of their own, told apart from the tool's.
SANITIZER_ENV = dict(os.environ, ASAN_OPTIONS="exitcode=86:detect_leaks=1",
                     UBSAN_OPTIONS="halt_on_error=1:exitcode=87")


def load_explained(name):
    """The checked-in list NAME beside the scripts: "path<TAB>rule" per line, '#' comments."""
    table = {}
    with open(os.path.join(HERE, name), encoding="utf-8") as f:
        for line in f:
            line = line.rstrip("\n")
            if line and not line.startswith("#"):
                key, _, rule = line.partition("\t")
                table[key] = rule
    return table


def run_full(args, timeout=60, env=None):
    """Exit status, standard output and standard error; 124 on a time-out."""
    try:
        p = subprocess.run(args, capture_output=True, timeout=timeout, env=env)
        return p.returncode, p.stdout, p.stderr
    except subprocess.TimeoutExpired:
        return 124, b"", b""


def run(args, timeout=60, env=None):
    """Exit status and standard output; 124 on a time-out."""
    return run_full(args, timeout, env)[:2]


Corpus = collections.namedtuple("Corpus", "tool base files explained")
PEERS = {"qpdf": ["qpdf", "--version"], "mutool": ["mutool", "-v"]}


def open_corpus(peers=(), explained=None):
    """The opening the scripts share: the tool and corpus of the command line,
    the PDFs below corpus/qpdf (relative, sorted) and the list EXPLAINED; None
    (after saying why) when the corpus or a peer tool is missing."""
    tool, corpus = sys.argv[1], sys.argv[2]
    base = os.path.join(corpus, "qpdf")
    if not os.path.isdir(base):
        print("corpus not found; skipped")
        return None
    for peer in peers:
        if run(PEERS[peer])[0] not in (0, 1):
            print("%s not installed; skipped" % peer)
            return None
    files = sorted(os.path.relpath(os.path.join(d, f), base)
                   for d, _, fs in os.walk(base) for f in fs if f.endswith(".pdf"))
    return Corpus(tool, base, files, load_explained(explained) if explained else {})


def report(failures, notes=(), prefix="note: "):
    """Prints the notes and the failures; the exit status."""
    for n in notes:
        print(prefix + n)
    for f in failures:
        print("FAIL " + f)
    return 1 if failures else 0


# What qpdf says of a file, asked once per file and run (keyed by path, size
# and time): a script that looks at a file twice, or at the same output again,
# starts no second qpdf. Only small answers are kept, not whole JSON texts.
_qpdf_cache = {}
_qpdf_lock = threading.Lock()


def _cached(key, compute):
    with _qpdf_lock:
        if key in _qpdf_cache:
            return _qpdf_cache[key]
    value = compute()
    with _qpdf_lock:
        _qpdf_cache[key] = value
    return value


def _stamp(path):
    try:
        st = os.stat(path)
        return (path, st.st_size, st.st_mtime_ns)
    except OSError:
        return (path, -1, -1)


def qpdf_check(path):
    """True when `qpdf --check` accepts the file."""
    return _cached(("check",) + _stamp(path), lambda: run(["qpdf", "--check", path], timeout=120)[0] == 0)


def qpdf_resolve(objects, value, depth=0):
    """A value of qpdf's JSON with its references followed."""
    while isinstance(value, str) and value.endswith(" R") and depth < 32:
        value = objects.get("obj:" + value, {}).get("value")
        depth += 1
    return value


def qpdf_json(path):
    """qpdf's JSON of a file: (objects by key, pages), or None when qpdf
    cannot read it or give the JSON."""
    rc, out = run(["qpdf", "--json=2", "--json-key=pages", "--json-key=qpdf", path], timeout=120)
    if rc not in (0, 3):
        return None
    try:
        data = json.loads(out)
    except ValueError:
        return None
    return data["qpdf"][1], data["pages"]


def qpdf_page_annots(path, max_pages=None):
    """Per page (the first max_pages), the subtypes of the annotations that
    the page object's /Annots lists in qpdf's JSON; None when qpdf cannot
    give the JSON."""
    def compute():
        got = qpdf_json(path)
        if got is None:
            return None
        objects, qpages = got
        pages = []
        for p in qpages[:max_pages]:
            page = qpdf_resolve(objects, p["object"])
            annots = qpdf_resolve(objects, page.get("/Annots")) if isinstance(page, dict) else None
            subtypes = []
            for a in annots if isinstance(annots, list) else []:
                d = qpdf_resolve(objects, a)
                subtypes.append(qpdf_resolve(objects, d.get("/Subtype")) if isinstance(d, dict) else None)
            pages.append(subtypes)
        return pages
    return _cached(("annots", max_pages) + _stamp(path), compute)
