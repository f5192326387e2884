"""Shared by the corpus scripts: the opening, subprocesses, qpdf's answers,
page renderings and the checked-in lists of explained differences."""
import collections
import concurrent.futures
import json
import os
import re
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))

# Sanitizer reports get exit codes of their own, told apart from the tool's.
SANITIZER_ENV = dict(os.environ, ASAN_OPTIONS="exitcode=86:detect_leaks=1",
                     UBSAN_OPTIONS="halt_on_error=1:exitcode=87")


def read_table(name, sep="\t"):
    """A checked-in list (beside the scripts unless NAME is absolute): "key<SEP>value" per line, '#' comments."""
    with open(os.path.join(HERE, name), encoding="utf-8") as f:
        return dict(line.rstrip("\n").partition(sep)[::2] for line in f if line.strip() and line[0] != "#")


class Explained(dict):
    """A list of explained differences, "path<TAB>rule" per line; remembers the entries used."""

    def __init__(self, name=None):
        super().__init__(read_table(name) if name else {})
        self.used, self.hits = set(), 0

    def covers(self, *keys):
        """True when one of KEYS is listed; the first so listed counts as used."""
        k = next((k for k in keys if k in self), None)
        if k is not None:
            self.used.add(k)
            self.hits += 1
        return k is not None


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


def run_tool(tool, args, seconds=60):
    """The pdfkiln tool under a time bound, sanitizer reports told apart: (status, stdout, stderr)."""
    return run_full(["timeout", str(seconds), tool] + args, timeout=seconds + 30, env=SANITIZER_ENV)


def crashed(rc):
    """A time-out, a sanitizer report or a signal."""
    return rc == 124 or rc >= 86 or rc < 0


def pmap(fn, items):
    """FN over ITEMS on two threads, the results in order."""
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        return list(pool.map(fn, items))


def verdicts(c, fn, failures):
    """FN(c, rel) over the files on two threads: the (rel, verdict, detail, ...) but skips; crashes to FAILURES."""
    found = []
    for r in pmap(lambda rel: fn(c, rel), c.files):
        if r[1] == "crash":
            failures.append("crashed or hung: %s (%s)" % (r[0], r[2]))
        elif r[1] != "skip":
            found.append(r)
    return found


Corpus = collections.namedtuple("Corpus", "tool base files explained")
PEERS = {"qpdf": ["qpdf", "--version"], "mutool": ["mutool", "-v"]}


def open_corpus(peers=(), explained=None):
    """The tool and corpus of the command line, the PDFs below corpus/qpdf (relative, sorted) and the
    list EXPLAINED; None (after saying why) when the corpus or a peer tool is missing."""
    tool, corpus = sys.argv[1], sys.argv[2]
    base = os.path.join(corpus, "qpdf")
    if not os.path.isdir(base):
        print("corpus not found; skipped")
        return None
    for peer in peers:
        if run(PEERS[peer])[0] not in (0, 1):
            print("%s not installed; skipped" % peer)
            return None
    return Corpus(tool, base, corpus_files(base), Explained(explained))


def corpus_files(base):
    return sorted(os.path.relpath(os.path.join(d, f), base)
                  for d, _, fs in os.walk(base) for f in fs if f.endswith(".pdf"))


def dispatch(modes):
    """Runs the check that the first argument names (MODE TOOL CORPUS [N]) and exits with its status."""
    if len(sys.argv) < 4 or sys.argv[1] not in modes:
        sys.exit("usage: %s {%s} PDFKILN_TOOL CORPUS_DIR [N]" % (sys.argv[0], ",".join(modes)))
    sys.exit(modes[sys.argv.pop(1)](*map(int, sys.argv[3:])))


def report(failures, notes=(), prefix="note: "):
    """Prints the notes and the failures; the exit status."""
    for n in notes:
        print(prefix + n)
    for f in failures:
        print("FAIL " + f)
    return 1 if failures else 0


# What qpdf says of a file, asked once per file (keyed by path, size and time):
# a file looked at twice, or the same output again, starts no second qpdf.
_qpdf_cache = {}


def _cached(kind, path, compute):
    st = os.stat(path) if os.path.exists(path) else None
    key = (kind, path, st and st.st_size, st and st.st_mtime_ns)
    if key not in _qpdf_cache:
        _qpdf_cache[key] = compute()
    return _qpdf_cache[key]


def qpdf_check(path):
    """True when `qpdf --check` accepts the file."""
    return _cached("check", path, lambda: run(["qpdf", "--check", path], timeout=120)[0] == 0)


def qpdf_encrypted(path):
    return _cached("encrypted", path, lambda: run(["qpdf", "--is-encrypted", path])[0] == 0)


def qpdf_npages(path, password=None):
    """`qpdf --show-npages`, or None when qpdf gives no count."""
    out = run(["qpdf"] + (["--password=" + password] if password else []) + ["--show-npages", path])[1].strip()
    return int(out) if out.isdigit() else None


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
        field = lambda d, key: qpdf_resolve(objects, d.get(key)) if isinstance(d, dict) else None
        pages = []
        for p in qpages[:max_pages]:
            annots = field(qpdf_resolve(objects, p["object"]), "/Annots")
            annots = annots if isinstance(annots, list) else []
            pages.append([field(qpdf_resolve(objects, a), "/Subtype") for a in annots])
        return pages
    return _cached(("annots", max_pages), path, compute)


def draw(pdf, page, out, dpi, *options):
    """`mutool draw` of one page into OUT: its bytes, or None when mutool draws nothing."""
    rc = run(["mutool", "draw", "-q", "-r", str(dpi)] + list(options) + ["-o", out, pdf, str(page)])[0]
    if rc != 0 or not os.path.exists(out):
        return None
    with open(out, "rb") as f:
        return f.read()


def draw_pnm(pdf, page, out, dpi):
    """An RGB rendering of one page as (width, height, channels, pixels), or None."""
    data = draw(pdf, page, out, dpi, "-c", "rgb")
    m = re.match(rb"P([56])\s+(?:#.*\s+)*(\d+)\s+(\d+)\s+(\d+)\s", data or b"")
    if not m:
        return None
    return int(m.group(2)), int(m.group(3)), 3 if m.group(1) == b"6" else 1, data[m.end():]


def alike(a, b, tolerance=24, share=0.99):
    """Two renderings of about one size whose pixels agree, SHARE of them within TOLERANCE per channel."""
    if a is None or b is None or a[2] != b[2] or abs(a[0] - b[0]) > 2 or abs(a[1] - b[1]) > 2:
        return False
    (wa, ha, ca, pa), (wb, hb, cb, pb) = a, b
    w, h = min(wa, wb), min(ha, hb)
    if w == 0 or h == 0:
        return wa == wb and ha == hb
    bad = 0
    limit = (1.0 - share) * w * h
    for y in range(h):
        ra = pa[y * wa * ca:(y * wa + w) * ca]
        rb = pb[y * wb * cb:(y * wb + w) * cb]
        if ra == rb:
            continue
        for x in range(w):
            if any(abs(ra[x * ca + c] - rb[x * ca + c]) > tolerance for c in range(ca)):
                bad += 1
        if bad > limit:
            return False
    return True
