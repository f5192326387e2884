#!/usr/bin/env python3
"""What the pdfkiln tool reads from every corpus file, against qpdf. A file (or
object) that differs fails unless MODE-explained.txt lists it with the rule
that explains it; a listed file that agrees now is noted.

  xref     in-use and compressed entries against `qpdf --show-xref`; every file opens
  objects  every object of unencrypted files rendered, stream bodies against
           qpdf's raw stream data
  pages    page count, and per page media box, crop box and rotation (inherited
           along /Parent) against qpdf's JSON
  content  each page's decoded content against its content streams as qpdf
           decodes them, joined with a CR behind each; encrypted files opened
           with the password their name gives. Line ends compare as one class:
           the library keeps the one in front of "endstream", qpdf does not.

usage: corpus_qpdf.py MODE PDFKILN_TOOL CORPUS_DIR
"""
import base64
import json
import os
import re
from corpus_common import (crashed, dispatch, open_corpus, qpdf_check, qpdf_encrypted, qpdf_json, qpdf_npages,
                           qpdf_resolve as resolve, report, run, run_tool, verdicts)


def judge(c, rel, same, what, failures, notes):
    """1 when the file differs and is listed; an unlisted difference fails, a listed agreement is noted."""
    listed = rel in c.explained
    if same and listed:
        notes.append("%s is listed as explained but agrees now" % rel)
    elif not same and not listed:
        failures.append(what)
    return int(listed and not same)


def xref():
    c = open_corpus(["qpdf"], "xref-explained.txt")
    if c is None:
        return 0
    entry = re.compile(r"\d+/\d+: (uncompressed|compressed)")
    entries = lambda out: {l for l in out.decode("latin-1").splitlines() if entry.match(l)}
    opened = accepted = agree = explained = 0
    failures, notes = [], []
    for rel in c.files:
        path = os.path.join(c.base, rel)
        rc, ours, _ = run_tool(c.tool, ["xref", "--strict", path], 10)
        if crashed(rc):
            failures.append("crashed or hung: %s (exit %d)" % (rel, rc))
            continue
        opened += 1
        if not qpdf_check(path):
            continue
        accepted += 1
        same = entries(ours) == entries(run(["qpdf", "--show-xref", path])[1])
        agree += same
        explained += judge(c, rel, same, "object table differs from qpdf: " + rel, failures, notes)
    print("%d agree, %d explained, %d unexplained (%d files opened, %d accepted by qpdf --check)"
          % (agree, explained, sum(f.startswith("object") for f in failures), opened, accepted))
    if agree * 100 < accepted * 95 or accepted == 0:
        failures.append("fewer than 95 % of the accepted files agree")
    return report(failures, notes)


def qpdf_streams(path, keys):
    """qpdf's raw stream data by (number, generation), from its JSON or, when that does not read, object by object."""
    rc, out = run(["qpdf", "--json=2", "--json-key=qpdf", "--json-stream-data=inline", "--decode-level=none", path])
    if rc not in (0, 3):
        return {}
    # qpdf writes reals such as "0." and "-.5", which JSON does not allow.
    out = re.sub(rb"(\d)\.(?=[^\d])", rb"\1.0", out)
    out = re.sub(rb"([\s\[,:])(-?)\.(\d)", rb"\1\g<2>0.\3", out)
    try:
        return {tuple(int(x) for x in key[4:-2].split()): base64.b64decode(val["stream"].get("data", ""))
                for key, val in json.loads(out.decode("latin-1"))["qpdf"][1].items()
                if key.startswith("obj:") and "stream" in val}
    except (ValueError, KeyError, IndexError):
        got = {k: run(["qpdf", "--show-object=%d,%d" % k, "--raw-stream-data", path]) for k in keys}
        return {k: data for k, (rc, data) in got.items() if rc in (0, 3)}


def objects():
    c = open_corpus(explained="objects-explained.txt")
    if c is None:
        return 0
    agree = rendered = failed_render = files = differ = 0
    unexplained = []
    for rel in c.files:
        path = os.path.join(c.base, rel)
        if not qpdf_check(path) or qpdf_encrypted(path):
            continue
        files += 1
        rc, out, _ = run_tool(c.tool, ["object", "--strict", path, "--all", "--json"], 120)
        if crashed(rc):
            unexplained.append(f"{rel}: the tool crashed (exit {rc})")
            continue
        listed = lambda key: c.explained.covers(f"{rel}#{key[0]}", rel)
        ours = {}
        for o in map(json.loads, out.decode("latin-1").splitlines()):
            key = (o["num"], o["gen"])
            rendered += 1
            failed_render += not o["ok"]
            if not o["ok"] and not listed(key):
                unexplained.append(f"{rel}: object {key[0]} {key[1]} cannot be rendered")
            if "stream" in o:
                ours[key] = base64.b64decode(o["stream"])
        theirs = qpdf_streams(path, ours)
        # Objects not in our table, or not rendered, are counted above or by the xref check.
        for key in sorted(ours.keys() & theirs.keys()):
            agree += ours[key] == theirs[key]
            if ours[key] != theirs[key] and not listed(key):
                differ += 1
                unexplained.append(f"{rel}: stream {key[0]} {key[1]} differs "
                                   f"({len(ours[key])} bytes, qpdf {len(theirs[key])})")
    explained = c.explained.hits
    total = agree + explained + differ
    print(f"{files} files, {rendered} objects rendered ({failed_render} not)")
    print(f"{agree} agree, {explained} explained, {len(unexplained)} unexplained")
    for u in unexplained:
        print("UNEXPLAINED", u)
    for k in sorted(set(c.explained) - c.explained.used):
        print("note: listed but not needed:", k)
    if unexplained:
        return 1
    if total and agree * 100 < total * 98:
        print("fewer than 98 % of stream objects agree")
        return 1
    return 0


def rect(objects, value):
    value = resolve(objects, value)
    nums = [resolve(objects, v) for v in value[:4]] if isinstance(value, list) else []
    if len(nums) < 4 or not all(isinstance(v, (int, float)) for v in nums):
        return None
    return [float(v) for v in nums]


def inherited(objects, node, key):
    seen = set()
    while isinstance(node, str) and node not in seen:
        seen.add(node)
        d = resolve(objects, node)
        if not isinstance(d, dict) or key in d:
            return d.get(key) if isinstance(d, dict) else None
        node = d.get("/Parent")
    return None


def qpdf_geometry(path):
    """Per page (media box, crop box, rotation) from qpdf's JSON, or None."""
    got = qpdf_json(path)
    if got is None:
        return None
    objects, qpages = got
    pages = []
    for p in qpages:
        get = lambda key: inherited(objects, p["object"], key)
        rot = resolve(objects, get("/Rotate"))
        pages.append((rect(objects, get("/MediaBox")), rect(objects, get("/CropBox")),
                      int(rot) if isinstance(rot, (int, float)) else 0))
    return pages


def close(a, b):
    return b is None or (a is not None and all(abs(x - y) <= 1e-3 * max(1.0, abs(x), abs(y)) for x, y in zip(a, b)))


def page_verdict(c, rel):
    """(rel, verdict, detail), verdict one of skip, crash, count, geometry, same."""
    path = os.path.join(c.base, rel)
    rc, out, _ = run_tool(c.tool, ["info", "--strict", "--json", path], 20)
    if crashed(rc):
        return rel, "crash", "exit %d" % rc
    if not qpdf_check(path):
        return rel, "skip", ""
    if rc != 0:
        return rel, "count", "pdfkiln could not open it (exit %d)" % rc
    try:
        ours = json.loads(out)
    except ValueError:
        return rel, "count", "pdfkiln info --json is not valid JSON"
    count = qpdf_npages(path)
    if count is None:
        return rel, "skip", ""
    if ours["pageCount"] != count:
        return rel, "count", "%d pages, qpdf %d" % (ours["pageCount"], count)
    theirs = qpdf_geometry(path)
    if theirs is None or len(theirs) != len(ours["pages"]):
        return rel, "same", ""
    for i, (p, (media, crop, rot)) in enumerate(zip(ours["pages"], theirs), start=1):
        # The tool writes null for a box the page does not have.
        if not close(p["MediaBox"], media):
            return rel, "geometry", "page %d media %s, qpdf %s" % (i, p["MediaBox"], media)
        if not close(p["CropBox"], crop):
            return rel, "geometry", "page %d crop %s, qpdf %s" % (i, p["CropBox"], crop)
        if crop is None and p["CropBox"] not in (None, [0, 0, 0, 0]):
            return rel, "geometry", "page %d crop %s, qpdf none" % (i, p["CropBox"])
        if p["rotate"] != (rot if rot % 90 == 0 else 0):
            return rel, "geometry", "page %d rotate %d, qpdf %d" % (i, p["rotate"], rot)
    return rel, "same", ""


def pages():
    c = open_corpus(["qpdf"], "pages-explained.txt")
    if c is None:
        return 0
    accepted = same_count = same_all = explained = 0
    failures, notes = [], []
    for rel, verdict, detail in verdicts(c, page_verdict, failures):
        accepted += 1
        same_count += verdict != "count"
        same_all += verdict == "same"
        explained += judge(c, rel, verdict == "same", "pages differ from qpdf: %s: %s" % (rel, detail),
                           failures, notes)
    print("%d accepted by qpdf --check; page count agrees for %d, all geometry for %d, %d explained"
          % (accepted, same_count, same_all, explained))
    if accepted == 0:
        print("FAIL no file accepted")
        return 1
    if same_count * 100 < accepted * 98:
        failures.append("page count agrees for fewer than 98 % of the accepted files")
    return report(failures, notes)


def known_password(name):
    """The password a corpus file's name gives: the owner's, else the user's."""
    found = [re.search(tag + r"([^,]+?)(?:,|\.pdf$)", name) for tag in ("O=", "U=")]
    return next((m.group(1) for m in found if m), "")


def content_verdict(c, rel, pages_per_file=10):
    """(rel, verdict, detail, encrypted, pages compared, pages alike)."""
    path = os.path.join(c.base, rel)
    pw = known_password(os.path.basename(rel))
    if not qpdf_check(path) and (not pw or run(["qpdf", "--password=" + pw, "--check", path])[0] != 0):
        return rel, "skip"
    encrypted = qpdf_encrypted(path)
    qpw = ["--password=" + pw] if pw and encrypted else []
    rc, out = run(["qpdf"] + qpw + ["--show-pages", path])
    if rc not in (0, 3):
        return rel, "skip"
    pages = []
    for line in out.decode("latin-1").splitlines():
        if line.startswith("page "):
            pages.append([])
        elif re.match(r"^\s+\d+ \d+ R$", line) and pages:
            pages[-1].append(line.split()[:2])
    normalise = lambda data: re.sub(rb"[\r\n]+", b"\n", data).strip(b"\n")
    same = compared = 0
    first_diff = ""
    for index, streams in enumerate(pages[:pages_per_file], start=1):
        expected = b"".join(run(["qpdf"] + qpw + ["--show-object=%s,%s" % (num, gen), "--filtered-stream-data",
                                                  path])[1] + b"\r" for num, gen in streams)
        args = ["content", "--strict", path, "--page", str(index)] + (["--password", pw] if qpw else [])
        rc, ours, _ = run_tool(c.tool, args, 20)
        if crashed(rc):
            return rel, "crash", "page %d exit %d" % (index, rc)
        compared += 1
        if rc == 0 and normalise(ours) == normalise(expected):
            same += 1
        elif not first_diff:
            first_diff = "page %d (%d bytes, qpdf %d)" % (index, len(ours), len(expected))
    return rel, ("same" if same == compared else "differs"), first_diff, encrypted, compared, same


def content():
    c = open_corpus(["qpdf"], "content-explained.txt")
    if c is None:
        return 0
    total_pages = same_pages = files_same = explained = encrypted_files = 0
    failures, notes = [], []
    for rel, verdict, detail, encrypted, compared, same in verdicts(c, content_verdict, failures):
        encrypted_files += encrypted
        total_pages += compared
        same_pages += same
        files_same += verdict == "same"
        explained += judge(c, rel, verdict == "same", "content differs from qpdf: %s: %s" % (rel, detail),
                           failures, notes)
    print("%d pages compared, %d agree; %d files agree, %d encrypted files compared, %d explained, %d unexplained"
          % (total_pages, same_pages, files_same, encrypted_files, explained, len(failures)))
    return report(failures, notes)


if __name__ == "__main__":
    dispatch({"xref": xref, "objects": objects, "pages": pages, "content": content})
