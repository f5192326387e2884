#!/usr/bin/env python3
"""Renders every object of every unencrypted corpus file that `qpdf --check`
accepts, with numbers kept, and compares each stream body with qpdf's raw
stream data. Differences must be listed, with the rule that explains them, in
objects-explained.txt beside this script.

usage: corpus_objects.py PDFKILN_TOOL CORPUS_DIR
"""
import base64
import json
import os
import re
import subprocess
import sys
from corpus_common import SANITIZER_ENV, load_explained, run



def main():
    tool, corpus = sys.argv[1], sys.argv[2]
    base = os.path.join(corpus, "qpdf")
    if not os.path.isdir(base):
        print("corpus not found; skipped")
        return 0
    explained = load_explained("objects-explained.txt")
    used = set()
    agree = explained_count = 0
    unexplained = []
    rendered = failed_render = files = 0
    env = SANITIZER_ENV
    for root, _, names in os.walk(base):
        for name in sorted(names):
            if not name.endswith(".pdf"):
                continue
            path = os.path.join(root, name)
            rel = os.path.relpath(path, base)
            if run(["qpdf", "--check", path])[0] != 0:
                continue
            if run(["qpdf", "--is-encrypted", path])[0] == 0:
                continue
            files += 1
            rc, out = run(["qpdf", "--json=2", "--json-key=qpdf", "--json-stream-data=inline",
                           "--decode-level=none", path])
            theirs = {}
            if rc in (0, 3):
                # qpdf writes reals such as "0." and "-.5", which JSON does not allow.
                out = re.sub(rb"(\d)\.(?=[^\d])", rb"\1.0", out)
                out = re.sub(rb"([\s\[,:])(-?)\.(\d)", rb"\1\g<2>0.\3", out)
                try:
                    doc = json.loads(out.decode("latin-1"))
                    for key, val in doc["qpdf"][1].items():
                        if key.startswith("obj:") and "stream" in val:
                            num, gen = key[4:-2].split()
                            theirs[(int(num), int(gen))] = base64.b64decode(val["stream"].get("data", ""))
                except (ValueError, KeyError, IndexError):
                    theirs = None  # ask qpdf object by object below
            p = subprocess.run([tool, "object", "--strict", path, "--all", "--json"], capture_output=True, timeout=120, env=env)
            if p.returncode >= 86 or p.returncode < 0:
                unexplained.append(f"{rel}: the tool crashed (exit {p.returncode})")
                continue
            ours = {}
            for line in p.stdout.decode("latin-1").splitlines():
                o = json.loads(line)
                key = (o["num"], o["gen"])
                rendered += 1
                if not o["ok"]:
                    failed_render += 1
                    tag = f"{rel}#{key[0]}"
                    for k in (tag, rel):
                        if k in explained:
                            used.add(k)
                            explained_count += 1
                            break
                    else:
                        unexplained.append(f"{rel}: object {key[0]} {key[1]} cannot be rendered")
                if "stream" in o:
                    ours[key] = base64.b64decode(o["stream"])
            if theirs is None:
                theirs = {}
                for key in ours:
                    rc, data = run(["qpdf", f"--show-object={key[0]},{key[1]}", "--raw-stream-data", path])
                    if rc in (0, 3):
                        theirs[key] = data
            for key, data in theirs.items():
                if key not in ours:
                    continue  # not in our table, or not rendered: counted above or by the xref test
                if ours[key] == data:
                    agree += 1
                    continue
                tag = f"{rel}#{key[0]}"
                for k in (tag, rel):
                    if k in explained:
                        used.add(k)
                        explained_count += 1
                        break
                else:
                    unexplained.append(f"{rel}: stream {key[0]} {key[1]} differs "
                                       f"({len(ours[key])} bytes, qpdf {len(data)})")
    total = agree + explained_count + len([u for u in unexplained if "differs" in u])
    print(f"{files} files, {rendered} objects rendered ({failed_render} not)")
    print(f"{agree} agree, {explained_count} explained, {len(unexplained)} unexplained")
    for u in unexplained:
        print("UNEXPLAINED", u)
    for k in sorted(set(explained) - used):
        print("note: listed but not needed:", k)
    if unexplained:
        return 1
    if total and agree * 100 < total * 98:
        print("fewer than 98 % of stream objects agree")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
