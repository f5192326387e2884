#!/usr/bin/env python3
"""Lists the pages of every corpus file that `qpdf --check` accepts with
`pdfkiln info --json` and compares them with qpdf: the page count with
`qpdf --show-npages`, and per page the media box, the crop box and the
rotation with the attributes that qpdf's JSON gives each page object, inherited
along /Parent. Differences must be listed, with the rule that explains them,
in pages-explained.txt beside this script.

usage: corpus_pages.py PDFKILN_TOOL CORPUS_DIR
"""
import concurrent.futures
import json
import os
import sys
from corpus_common import SANITIZER_ENV, open_corpus, qpdf_json, report, run



def resolve(objects, value, depth=0):
    while isinstance(value, str) and value.endswith(" R") and depth < 32:
        value = objects.get("obj:" + value, {}).get("value")
        depth += 1
    return value


def rect(objects, value):
    value = resolve(objects, value)
    if not isinstance(value, list) or len(value) < 4:
        return None
    nums = [resolve(objects, v) for v in value[:4]]
    if not all(isinstance(v, (int, float)) for v in nums):
        return None
    return [float(v) for v in nums]


def inherited(objects, page, key):
    node, seen = page, set()
    while isinstance(node, str) and node not in seen:
        seen.add(node)
        d = resolve(objects, node)
        if not isinstance(d, dict):
            return None
        if key in d:
            return d[key]
        node = d.get("/Parent")
    return None


def qpdf_pages(path):
    got = qpdf_json(path)
    if got is None:
        return None
    objects, qpages = got
    pages = []
    for p in qpages:
        ref = p["object"]
        media = rect(objects, inherited(objects, ref, "/MediaBox"))
        crop = rect(objects, inherited(objects, ref, "/CropBox"))
        rot = resolve(objects, inherited(objects, ref, "/Rotate"))
        rot = int(rot) if isinstance(rot, (int, float)) else 0
        pages.append((media, crop, rot))
    return pages


def close(a, b):
    return all(abs(x - y) <= 1e-3 * max(1.0, abs(x), abs(y)) for x, y in zip(a, b))


def compare(tool, base, rel):
    path = os.path.join(base, rel)
    env = SANITIZER_ENV
    rc, out = run(["timeout", "20", tool, "info", "--strict", "--json", path], env=env)
    if rc == 124 or rc >= 86:
        return rel, "crash", "exit %d" % rc
    if run(["qpdf", "--check", path])[0] != 0:
        return rel, "skip", ""
    if rc != 0:
        return rel, "count", "pdfkiln could not open it (exit %d)" % rc
    try:
        ours = json.loads(out)
    except ValueError:
        return rel, "count", "pdfkiln info --json is not valid JSON"

    rc, n = run(["qpdf", "--show-npages", path])
    try:
        theirs_count = int(n.strip())
    except ValueError:
        return rel, "skip", ""
    if ours["pageCount"] != theirs_count:
        return rel, "count", "%d pages, qpdf %d" % (ours["pageCount"], theirs_count)
    theirs = qpdf_pages(path)
    if theirs is None or len(theirs) != len(ours["pages"]):
        return rel, "same", ""
    for i, (p, t) in enumerate(zip(ours["pages"], theirs)):
        media, crop, rot = t
        want_rot = rot if rot % 90 == 0 else 0
        # The tool writes null for a box the page does not have.
        if media is not None and (p["MediaBox"] is None or not close(p["MediaBox"], media)):
            return rel, "geometry", "page %d media %s, qpdf %s" % (i + 1, p["MediaBox"], media)
        if crop is not None and (p["CropBox"] is None or not close(p["CropBox"], crop)):
            return rel, "geometry", "page %d crop %s, qpdf %s" % (i + 1, p["CropBox"], crop)
        if crop is None and p["CropBox"] not in (None, [0, 0, 0, 0]):
            return rel, "geometry", "page %d crop %s, qpdf none" % (i + 1, p["CropBox"])
        if p["rotate"] != want_rot:
            return rel, "geometry", "page %d rotate %d, qpdf %d" % (i + 1, p["rotate"], rot)
    return rel, "same", ""


def main():
    c = open_corpus(["qpdf"], "pages-explained.txt")
    if c is None:
        return 0
    tool, base, files, explained = c
    accepted = same_count = same_all = explained_count = 0
    failures, stale = [], []
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        for rel, verdict, detail in pool.map(lambda r: compare(tool, base, r), files):
            if verdict == "skip":
                continue
            if verdict == "crash":
                failures.append("crashed or hung: %s (%s)" % (rel, detail))
                continue
            accepted += 1
            if verdict == "same":
                same_count += 1
                same_all += 1
                if rel in explained:
                    stale.append(rel)
                continue
            if verdict == "geometry":
                same_count += 1
            if rel in explained:
                explained_count += 1
            else:
                failures.append("pages differ from qpdf: %s: %s" % (rel, detail))
    print("%d accepted by qpdf --check; page count agrees for %d, all geometry for %d, %d explained"
          % (accepted, same_count, same_all, explained_count))
    if accepted == 0:
        print("FAIL no file accepted")
        return 1
    if same_count * 100 < accepted * 98:
        failures.append("page count agrees for fewer than 98 % of the accepted files")
    return report(failures, ["%s is listed as explained but agrees now" % f for f in stale])


if __name__ == "__main__":
    sys.exit(main())
