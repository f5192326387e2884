#!/usr/bin/env python3
"""Compares every page's decoded content (`pdfkiln content`) with qpdf's:
the page's content streams as `qpdf --show-object=N --filtered-stream-data`
gives them, joined with a CR behind each. Encrypted files whose password the
corpus names (enc-...,U=user,O=owner.pdf and the like) are opened with it, on
both sides. Line ends are compared as one class: the library keeps the line
end in front of "endstream" in unfiltered data and its writer puts CR LF
behind "stream", where qpdf gives the bare data. Differences must be listed,
with the rule that explains them, in content-explained.txt beside this script.

usage: corpus_content.py PDFKILN_TOOL CORPUS_DIR
"""
import concurrent.futures
import os
import re
import sys
from corpus_common import SANITIZER_ENV, load_explained, run

PAGES_PER_FILE = 10


def known_password(name):
    """The password a corpus file's name gives: the owner's, else the user's."""
    for tag in ("O=", "U="):
        m = re.search(tag + r"([^,]+?)(?:,|\.pdf$)", name)
        if m:
            return m.group(1)
    return ""


def normalise(data):
    return re.sub(rb"[\r\n]+", b"\n", data).strip(b"\n")


def compare(tool, base, rel):
    path = os.path.join(base, rel)
    if run(["qpdf", "--check", path])[0] != 0:
        pw = known_password(os.path.basename(rel))
        if not pw or run(["qpdf", "--password=" + pw, "--check", path])[0] != 0:
            return rel, "skip", 0, 0, ""
    encrypted = run(["qpdf", "--is-encrypted", path])[0] == 0
    pw = known_password(os.path.basename(rel)) if encrypted else ""
    qpw = ["--password=" + pw] if pw else []
    rc, out = run(["qpdf"] + qpw + ["--show-pages", path])
    if rc not in (0, 3):
        return rel, "skip", 0, 0, ""
    pages = []
    for line in out.decode("latin-1").splitlines():
        if line.startswith("page "):
            pages.append([])
        elif re.match(r"^\s+\d+ \d+ R$", line) and pages:
            pages[-1].append(line.split()[:2])
    env = SANITIZER_ENV
    same = 0
    first_diff = ""
    compared = 0
    for index, streams in enumerate(pages[:PAGES_PER_FILE]):
        expected = b""
        for num, gen in streams:
            rc, data = run(["qpdf"] + qpw + ["--show-object=%s,%s" % (num, gen), "--filtered-stream-data", path])
            expected += data + b"\r"
        args = [tool, "content", "--strict", path, "--page", str(index + 1)] + (["--password", pw] if pw else [])
        rc, ours = run(["timeout", "20"] + args, env=env)
        if rc >= 86 or rc == 124 or rc < 0:
            return rel, "crash", compared, same, "page %d exit %d" % (index + 1, rc)
        compared += 1
        if rc == 0 and normalise(ours) == normalise(expected):
            same += 1
        elif not first_diff:
            first_diff = "page %d (%d bytes, qpdf %d)" % (index + 1, len(ours), len(expected))
    return rel, ("same" if same == compared else "differs"), compared, same, first_diff


def main():
    tool, corpus = sys.argv[1], sys.argv[2]
    base = os.path.join(corpus, "qpdf")
    if not os.path.isdir(base):
        print("corpus not found; skipped")
        return 0
    if run(["qpdf", "--version"])[0] != 0:
        print("qpdf not installed; skipped")
        return 0
    explained = load_explained("content-explained.txt")
    files = sorted(os.path.relpath(os.path.join(d, f), base)
                   for d, _, fs in os.walk(base) for f in fs if f.endswith(".pdf"))
    total_pages = same_pages = files_same = explained_count = encrypted_files = 0
    failures, stale = [], []
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        for rel, verdict, compared, same, detail in pool.map(lambda r: compare(tool, base, r), files):
            if verdict == "skip":
                continue
            if run(["qpdf", "--is-encrypted", os.path.join(base, rel)])[0] == 0:
                encrypted_files += 1
            if verdict == "crash":
                failures.append("crashed or hung: %s (%s)" % (rel, detail))
                continue
            total_pages += compared
            same_pages += same
            if verdict == "same":
                files_same += 1
                if rel in explained:
                    stale.append(rel)
            elif rel in explained:
                explained_count += 1
            else:
                failures.append("content differs from qpdf: %s: %s" % (rel, detail))
    print("%d pages compared, %d agree; %d files agree, %d encrypted files compared, %d explained, %d unexplained"
          % (total_pages, same_pages, files_same, encrypted_files, explained_count, len(failures)))
    for f in stale:
        print("note: %s is listed as explained but agrees now" % f)
    for f in failures:
        print("FAIL " + f)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
