#!/usr/bin/env python3
"""`pdfkiln compose`, merge and split over the corpus files qpdf accepts, against
qpdf and mutool. Every output must pass `qpdf --check`; a crash or hang fails,
any other difference fails unless the file is in the mode's explained list.

  render [N]   each page (the first N) composed, source and output drawn by
               mutool at 50 dpi, alike when 99 % of the pixels agree within a
               tolerance; fails below 95 % alike (compose-explained.txt)
  ascii [STEP] compose --ascii writes no byte above 127; the first page of every
               STEP-th file draws alike to the plain compose (compose-ascii-explained.txt)
  encrypted    the first pages of 150 unencrypted files composed plain and with
               --encrypt aes-128: qpdf takes the output with either password and
               mutool draws it, with the user password, exactly as the plain one
  annots [N]   a composed sheet lists the annotations qpdf lists for the source
               page, same subtypes in the same order (annots-explained.txt, each
               naming a rule of annots-rules.txt; a listed file that agrees fails)
  tool         with the reading repairs on (--keep-going): every file qpdf reads
               composes unless listed, at least as many as qpdf --pages copies;
               merge and split of clean files against qpdf --pages and
               --split-pages (tool-explained.txt)

usage: corpus_compose.py MODE PDFKILN_TOOL CORPUS_DIR [N]
"""
import collections
import os
import tempfile
from corpus_common import (alike, crashed, dispatch, draw, draw_pnm, open_corpus, pmap, qpdf_check, qpdf_encrypted,
                           qpdf_npages, qpdf_page_annots, read_table, report, run, run_tool, verdicts)


def compose(tool, out, args, seconds=120):
    """pdfkiln compose into OUT: (status, standard error), status None when it wrote no OUT."""
    rc, _, err = run_tool(tool, ["compose", "--quiet", "-o", out] + args, seconds)
    return rc if crashed(rc) or (rc in (0, 3) and os.path.exists(out)) else None, err


def composed(tool, out, args):
    """None when compose writes OUT and qpdf accepts it, else (verdict, detail): refused, crash or badoutput."""
    rc, err = compose(tool, out, args)
    if rc is None:
        return "refused", err.decode("utf-8", "replace").strip()[:200]
    if crashed(rc):
        return "crash", "exit %d" % rc
    return None if qpdf_check(out) else ("badoutput", "")


def render_file(c, rel, max_pages):
    """(rel, verdict, detail, pages compared, pages alike, unlike pages)."""
    path = os.path.join(c.base, rel)
    count = qpdf_npages(path) if qpdf_check(path) else None
    if not count:
        return rel, "skip"
    with tempfile.TemporaryDirectory() as tmp:
        out = os.path.join(tmp, "out.pdf")
        bad = composed(c.tool, out, ["--strict", path])
        if bad:
            return (rel,) + bad + (0, 0, [])
        ours = qpdf_npages(out) or 0
        pages = range(1, min(count, ours, max_pages) + 1)
        drawn = ((p, draw_pnm(path, p, os.path.join(tmp, "a.ppm"), 50)) for p in pages)
        checked = [(p, alike(a, draw_pnm(out, p, os.path.join(tmp, "b.ppm"), 50))) for p, a in drawn if a is not None]
        unlike = [p for p, same in checked if not same]
        detail = "" if ours == count else "%d of %d pages placed" % (ours, count)
        return rel, "done", detail, len(checked), len(checked) - len(unlike), unlike


def render(max_pages=1000000):
    c = open_corpus(["qpdf", "mutool"], "compose-explained.txt")
    if c is None:
        return 0
    compared = same = 0
    others, failures = [], []
    for rel, verdict, detail, n, s, unlike in verdicts(c, lambda c, r: render_file(c, r, max_pages), failures):
        note = " (%s)" % c.explained[rel] if rel in c.explained else ""
        if verdict in ("refused", "badoutput") and note:
            others.append("%s: %s%s" % (rel, verdict, note))
        elif verdict in ("refused", "badoutput"):
            failures.append("%s: %s %s" % (rel, "no output" if verdict == "refused" else
                                           "output refused by qpdf --check", detail))
        elif verdict == "done":
            compared += n
            same += s
            if unlike or detail:
                others.append("%s: pages %s differ%s%s" % (rel, ",".join(map(str, unlike[:20])) or "none",
                                                          "; " + detail if detail else "", note))
    print("%d pages compared, %d alike (%.1f %%)" % (compared, same, 100.0 * same / max(compared, 1)))
    if compared == 0:
        failures.append("nothing compared")
    elif same * 100 < compared * 95:
        failures.append("fewer than 95 % of the pages are alike")
    return report(failures, others, "other: ")


def ascii_file(c, rel, compare):
    """(rel, verdict, detail), verdict one of skip, ok, rendered, unlike, high, badoutput, refused or crash."""
    path = os.path.join(c.base, rel)
    if not qpdf_check(path):
        return rel, "skip"
    with tempfile.TemporaryDirectory() as tmp:
        out, plain = os.path.join(tmp, "ascii.pdf"), os.path.join(tmp, "plain.pdf")
        rc, err = compose(c.tool, out, ["--ascii", path])
        if rc is None:
            # A file that the plain compose refuses as well is no concern here.
            if compose(c.tool, plain, [path])[0] is None:
                return rel, "skip"
            return rel, "refused", err.decode("utf-8", "replace").strip()[:160]
        if crashed(rc):
            return rel, "crash", "exit %d" % rc
        with open(out, "rb") as f:
            high = sum(1 for b in f.read() if b > 127)
        if high:
            return rel, "high", "%d bytes above 127" % high
        if not qpdf_check(out):
            return rel, "badoutput", ""
        if compare:
            compose(c.tool, plain, [path])
        a = draw_pnm(plain, 1, os.path.join(tmp, "a.ppm"), 30) if compare else None
        if a is None:
            return rel, "ok", ""
        b = draw_pnm(out, 1, os.path.join(tmp, "b.ppm"), 30)
        return (rel, "rendered", "") if alike(a, b) else (rel, "unlike", "page 1")


def ascii(step=1):
    c = open_corpus(["qpdf", "mutool"], "compose-ascii-explained.txt")
    if c is None:
        return 0
    others, failures = [], []
    order = {rel: i for i, rel in enumerate(c.files)}
    found = verdicts(c, lambda c, rel: ascii_file(c, rel, order[rel] % step == 0), failures)
    composed = len(found) + len(failures)  # the crashes included
    counts = collections.Counter(verdict for _, verdict, _ in found)
    for rel, verdict, detail in (f for f in found if f[1] not in ("ok", "rendered")):
        line = "%s: %s %s" % (rel, verdict, detail)
        if rel in c.explained:
            others.append(line + " (" + c.explained[rel] + ")")
        else:
            failures.append(line)
    print("%d files composed with --ascii, %d 7-bit and accepted by qpdf, %d first pages rendered alike, %d unlike"
          % (composed, counts["ok"] + counts["rendered"] + counts["unlike"], counts["rendered"], counts["unlike"]))
    return report(failures, others, "explained: ") or int(composed == 0)


def encrypted(files_taken=150, pages_per_file=4):
    c = open_corpus(["qpdf", "mutool"])
    if c is None:
        return 0
    taken = pages = identical = 0
    failures = []
    with tempfile.TemporaryDirectory() as tmp:
        plain, enc = os.path.join(tmp, "plain.pdf"), os.path.join(tmp, "enc.pdf")
        for rel in c.files:
            path = os.path.join(c.base, rel)
            if taken == files_taken:
                break
            if not qpdf_check(path) or qpdf_encrypted(path) or not qpdf_npages(path):
                continue
            selection = path + ":1-%d" % min(pages_per_file, qpdf_npages(path))
            if compose(c.tool, plain, ["--strict", selection], 60)[0] != 0:
                continue
            taken += 1
            if compose(c.tool, enc, ["--strict", "--encrypt", "aes-128", "--user", "U", "--owner", "O", selection],
                       60)[0] != 0:
                failures.append("%s: encrypted compose failed" % rel)
                continue
            failures += ["%s: qpdf --password=%s --check refuses the output" % (rel, pw)
                         for pw in ("U", "O") if run(["qpdf", "--password=" + pw, "--check", enc])[0] != 0]
            for p in range(1, (qpdf_npages(enc, "U") or 0) + 1):
                pages += 1
                a = draw(plain, p, os.path.join(tmp, "a.pgm"), 36)
                if a is not None and a == draw(enc, p, os.path.join(tmp, "b.pgm"), 36, "-p", "U"):
                    identical += 1
                else:
                    failures.append("%s: sheet %d renders differently when encrypted" % (rel, p))
    print("%d files composed, %d sheets compared, %d identical" % (taken, pages, identical))
    if taken == 0:
        failures.append("no file composed")
    return report(failures)


def annots_file(c, rel, max_pages):
    """(rel, verdict, detail, pages compared, annotations compared, differing pages)."""
    path = os.path.join(c.base, rel)
    source = qpdf_page_annots(path, max_pages) if qpdf_check(path) else None
    if not source:
        return rel, "skip"
    with tempfile.TemporaryDirectory() as tmp:
        out = os.path.join(tmp, "out.pdf")
        bad = composed(c.tool, out, ["%s:1-%d" % (path, len(source))])
        if bad:
            return (rel,) + bad + (0, 0, [])
        placed = qpdf_page_annots(out)
    if placed is None:
        return rel, "badoutput", "qpdf gives no JSON", 0, 0, []
    if len(placed) != len(source):
        return rel, "pages", "%d of %d pages placed" % (len(placed), len(source)), 0, 0, []
    differ = []
    count = 0
    for p, (a, b) in enumerate(zip(source, placed), start=1):
        # qpdf gives None for an entry that is no annotation dictionary.
        a, b = [s for s in a if s is not None], [s for s in b if s is not None]
        count += len(a)
        if a != b:
            lost = " ".join(map(str, [s for s in a if s not in b][:3]))
            differ.append("p%d %d->%d%s" % (p, len(a), len(b), " (%s)" % lost if lost else ""))
    return rel, "done", "", len(source), count, differ


def annots(max_pages=20):
    c = open_corpus(["qpdf"], "annots-explained.txt")
    if c is None:
        return 0
    rules = read_table("annots-rules.txt")
    failures = [("annots-explained.txt: %s names no rule of annots-rules.txt: %s" % (rel, rule.split(":")[0]))
                for rel, rule in sorted(c.explained.items()) if rule.split(":")[0] not in rules]
    pages = count = files = 0
    by_rule = {}
    for rel, verdict, detail, n, k, differ in verdicts(c, lambda c, r: annots_file(c, r, max_pages), failures):
        files += 1
        pages += n
        count += k
        if verdict == "done" and not differ:
            continue
        what = "%s: %s" % (rel, {"refused": "no output", "badoutput": "output refused by qpdf --check",
                                 "pages": detail, "done": "pages differ: " + ", ".join(differ[:8])}[verdict])
        if c.explained.covers(rel):
            by_rule.setdefault(c.explained[rel].split(":")[0], []).append(what)
        else:
            failures.append(what)
    failures += ["%s is listed in annots-explained.txt but no longer differs" % rel
                 for rel in sorted(set(c.explained) - c.explained.used)]
    print("%d files, %d pages and %d annotations compared; %d files differ, each explained" %
          (files, pages, count, sum(len(v) for v in by_rule.values())))
    for rule, items in sorted(by_rule.items()):
        print("rule %s (%d files): %s" % (rule, len(items), rules.get(rule, "")))
        for i in items:
            print("  " + i)
    if pages == 0:
        failures.append("nothing compared")
    return report(failures)


def tool_file(c, rel, first_pages=3):
    """(rel, qpdf --check status, composed and accepted, compose status, copied by qpdf and accepted)."""
    path = os.path.join(c.base, rel)
    theirs = run(["qpdf", "--check", path])[0]
    n = qpdf_npages(path)
    sel = ":1-%d" % min(first_pages, n) if n else ""
    with tempfile.TemporaryDirectory() as tmp:
        out, qout = os.path.join(tmp, "out.pdf"), os.path.join(tmp, "qpdf.pdf")
        rc, _, _ = run_tool(c.tool, ["compose", "--quiet", "--keep-going", "-o", out, path + sel], 60)
        ours = rc in (0, 3) and os.path.exists(out) and qpdf_check(out)
        qrc = run(["qpdf", "--empty", "--pages", path, sel[1:] or "1-z", "--", qout], timeout=90)[0]
        return rel, theirs, ours, rc, qrc in (0, 3) and os.path.exists(qout) and qpdf_check(qout)


def first_unlike(a, b, tmp, count):
    """The first page of COUNT that mutool draws otherwise in A and B, 0 when none."""
    for p in range(1, count + 1):
        if draw(a, p, os.path.join(tmp, "a.pgm"), 20) != draw(b, p, os.path.join(tmp, "b.pgm"), 20):
            return p
    return 0


def merge_pair(tool, base, a, b):
    failures = []
    pa, pb = os.path.join(base, a), os.path.join(base, b)
    with tempfile.TemporaryDirectory() as tmp:
        ours, theirs = os.path.join(tmp, "ours.pdf"), os.path.join(tmp, "theirs.pdf")
        rc = run_tool(tool, ["merge", "-o", ours, pa, pb])[0]
        run(["qpdf", "--empty", "--pages", pa, pb, "--", theirs])
        n = qpdf_npages(theirs) or 0
        if rc != 0 or not qpdf_check(ours):
            return ["merge %s %s: exit %d or output refused by qpdf --check" % (a, b, rc)]
        m = qpdf_npages(ours) or 0
        if m != n:
            failures.append("merge %s %s: %d pages, qpdf %d" % (a, b, m, n))
        elif first_unlike(ours, theirs, tmp, n):
            failures.append("merge %s %s: page %d differs" % (a, b, first_unlike(ours, theirs, tmp, n)))
        rc = run_tool(tool, ["split", pa, "--pages-per-file", "2", "-o", os.path.join(tmp, "o-%d.pdf")])[0]
        run(["qpdf", "--split-pages=2", pa, os.path.join(tmp, "q-%d.pdf")])
        parts = sorted(f for f in os.listdir(tmp) if f.startswith("q-"))
        if rc != 0:
            return failures + ["split %s: exit %d" % (a, rc)]
        for i, q in enumerate(parts, 1):
            o, q = os.path.join(tmp, "o-%d.pdf" % i), os.path.join(tmp, q)
            if not qpdf_check(o):
                failures.append("split %s: part %d missing or refused by qpdf --check" % (a, i))
                continue
            k = qpdf_npages(q) or 0
            if (qpdf_npages(o) or 0) != k or first_unlike(o, q, tmp, k):
                failures.append("split %s: part %d differs from qpdf's" % (a, i))
        if os.path.exists(os.path.join(tmp, "o-%d.pdf" % (len(parts) + 1))):
            failures.append("split %s: more parts than qpdf's %d" % (a, len(parts)))
    return failures


def tool(merge_files=24):
    c = open_corpus(["qpdf", "mutool"], "tool-explained.txt")
    if c is None:
        return 0
    qpdf_reads = qpdf_copies = tool_composes = 0
    clean, failures = [], []
    for rel, theirs, ours, rc, copied in pmap(lambda r: tool_file(c, r), c.files):
        qpdf_copies += copied
        tool_composes += ours
        if crashed(rc):
            failures.append("%s: crashed or hung (exit %d)" % (rel, rc))
        if theirs in (0, 3):
            qpdf_reads += 1
            if not ours and rel not in c.explained:
                failures.append("%s: qpdf reads it (exit %d), the tool does not compose it (exit %d)"
                                % (rel, theirs, rc))
        if theirs == 0 and ours and not qpdf_encrypted(os.path.join(c.base, rel)):
            clean.append(rel)
    print("qpdf reads %d files and copies their pages from %d; the tool composes %d"
          % (qpdf_reads, qpdf_copies, tool_composes))
    if tool_composes < qpdf_copies:
        failures.append("the tool composes %d files, fewer than the %d whose pages qpdf copies"
                        % (tool_composes, qpdf_copies))
    taken = clean[::max(1, len(clean) // merge_files)][:merge_files]
    pairs = list(zip(taken[0::2], taken[1::2]))
    for found in pmap(lambda ab: merge_pair(c.tool, c.base, *ab), pairs):
        failures += [f for f in found if f.split(":")[0].split()[1] not in c.explained]
    print("%d merges and %d splits compared with qpdf" % (len(pairs), len(pairs)))
    return report(failures)


if __name__ == "__main__":
    dispatch({"render": render, "ascii": ascii, "encrypted": encrypted, "annots": annots, "tool": tool})
