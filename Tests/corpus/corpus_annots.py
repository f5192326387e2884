#!/usr/bin/env python3
"""Annotations through `pdfkiln compose`: for every page (the first
MAX_PAGES_PER_FILE) of every corpus file that `qpdf --check` accepts, the
annotations that the composed sheet lists must be those that qpdf's JSON lists
for the source page: as many annotation dictionaries, with the same subtypes
in the same order. Every output must pass `qpdf --check`.

A file whose pages differ must be listed in annots-explained.txt beside this
script with the name of a rule of annots-rules.txt; a listed file that no
longer differs is reported, so the list stays true. Prints the pages and
annotations compared and the differences by rule.

usage: corpus_annots.py PDFKILN_TOOL CORPUS_DIR [MAX_PAGES_PER_FILE]
"""
import concurrent.futures
import os
import sys
import tempfile
from corpus_common import HERE, SANITIZER_ENV, load_explained, qpdf_check, qpdf_page_annots, run_full as run


def load_rules():
    rules = {}
    with open(os.path.join(HERE, "annots-rules.txt"), encoding="utf-8") as f:
        for line in f:
            line = line.rstrip("\n")
            if line and not line.startswith("#"):
                name, _, text = line.partition("\t")
                rules[name] = text
    return rules


def annotations(subtypes):
    """The entries that are annotation dictionaries (qpdf gives None for others)."""
    return [s for s in subtypes if s is not None]


def compose_file(tool, base, rel, max_pages):
    """(rel, verdict, pages compared, annotations compared, differing pages, detail)."""
    path = os.path.join(base, rel)
    if not qpdf_check(path):
        return rel, "skip", 0, 0, [], ""
    source = qpdf_page_annots(path, max_pages)
    if not source:
        return rel, "skip", 0, 0, [], ""
    with tempfile.TemporaryDirectory() as tmp:
        out = os.path.join(tmp, "out.pdf")
        rc, _, err = run(["timeout", "120", tool, "compose", "--quiet", "-o", out,
                          "%s:1-%d" % (path, len(source))], timeout=150, env=SANITIZER_ENV)
        if rc == 124 or rc >= 86:
            return rel, "crash", 0, 0, [], "exit %d" % rc
        if rc not in (0, 3) or not os.path.exists(out):
            return rel, "refused", 0, 0, [], err.decode("utf-8", "replace").strip()[:200]
        if not qpdf_check(out):
            return rel, "badoutput", 0, 0, [], ""
        composed = qpdf_page_annots(out)
    if composed is None:
        return rel, "badoutput", 0, 0, [], "qpdf gives no JSON"
    if len(composed) != len(source):
        return rel, "pages", 0, 0, [], "%d of %d pages placed" % (len(composed), len(source))
    differ = []
    count = 0
    for p, (a, b) in enumerate(zip(source, composed), start=1):
        a, b = annotations(a), annotations(b)
        count += len(a)
        if a != b:
            lost = [s for s in a if s not in b]
            differ.append("p%d %d->%d%s" % (p, len(a), len(b), " (" + " ".join(map(str, lost[:3])) + ")" if lost else ""))
    return rel, "done", len(source), count, differ, ""


def main():
    tool, corpus = sys.argv[1], sys.argv[2]
    max_pages = int(sys.argv[3]) if len(sys.argv) > 3 else 20
    base = os.path.join(corpus, "qpdf")
    if not os.path.isdir(base):
        print("corpus not found; skipped")
        return 0
    if run(["qpdf", "--version"])[0] != 0:
        print("qpdf not installed; skipped")
        return 0
    rules = load_rules()
    explained = load_explained("annots-explained.txt")
    failures = [("annots-explained.txt: %s names no rule of annots-rules.txt: %s" % (rel, rule.split(":")[0]))
                for rel, rule in sorted(explained.items()) if rule.split(":")[0] not in rules]
    files = sorted(os.path.relpath(os.path.join(d, f), base)
                   for d, _, fs in os.walk(base) for f in fs if f.endswith(".pdf"))
    pages = annots = compared_files = 0
    by_rule = {}
    seen = set()
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        for rel, verdict, n, c, differ, detail in pool.map(lambda r: compose_file(tool, base, r, max_pages), files):
            if verdict == "skip":
                continue
            if verdict == "crash":
                failures.append("crashed or hung: %s (%s)" % (rel, detail))
                continue
            compared_files += 1
            pages += n
            annots += c
            if verdict == "done" and not differ:
                continue
            what = {"refused": "no output", "badoutput": "output refused by qpdf --check",
                    "pages": detail, "done": "pages differ: " + ", ".join(differ[:8])}[verdict]
            rule = explained.get(rel)
            seen.add(rel)
            if rule is None:
                failures.append("%s: %s" % (rel, what))
            else:
                by_rule.setdefault(rule.split(":")[0], []).append("%s: %s" % (rel, what))
    for rel in sorted(set(explained) - seen):
        failures.append("%s is listed in annots-explained.txt but no longer differs" % rel)
    print("%d files, %d pages and %d annotations compared; %d files differ, each explained" %
          (compared_files, pages, annots, sum(len(v) for v in by_rule.values())))
    for rule, items in sorted(by_rule.items()):
        print("rule %s (%d files): %s" % (rule, len(items), rules.get(rule, "")))
        for i in items:
            print("  " + i)
    for f in failures:
        print("FAIL " + f)
    if pages == 0:
        print("FAIL nothing compared")
        return 1
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
