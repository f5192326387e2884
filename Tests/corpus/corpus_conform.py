#!/usr/bin/env python3
"""Conformance claims against the peers: `pdfkiln info --json` on ghostscript's
PDF/A-1b, PDF/A-2b and PDF/X-3 outputs (made here with the ICC profiles of
icc-profiles-free) and on every corpus file. The version, PDF/X and PDF/A claim
must equal what pikepdf reads (header and catalog /Version, pdfa_status) and the
/GTS_PDFXVersion of /Info as qpdf shows it; each output intent's /S, identifier
and profile bytes must equal pikepdf's. A difference fails unless the file is in
conform-explained.txt with the rule that makes it.

usage: corpus_conform.py PDFKILN_TOOL CORPUS_DIR
"""
import json
import os
import re
import shutil
import sys
import tempfile
import zlib

try:
    import pikepdf
except ImportError:  # Debian's python3-pikepdf belongs to the system interpreter
    if os.path.exists("/usr/bin/python3") and os.path.realpath(sys.executable) != "/usr/bin/python3" \
            and not os.environ.get("PDFKILN_CONFORM_REEXEC"):
        os.environ["PDFKILN_CONFORM_REEXEC"] = "1"
        os.execv("/usr/bin/python3", ["/usr/bin/python3"] + sys.argv)
    print("pikepdf not installed; skipped")
    sys.exit(0)

from corpus_common import Explained, corpus_files, report, run

X_KINDS = {1: "PDF/X-1:2001", 2: "PDF/X-1a:2001", 3: "PDF/X-3:2002", 4: "PDF/X-1a:2003", 5: "PDF/X-2:2003",
           6: "PDF/X-3:2003", 7: "PDF/X-4", 8: "PDF/X-4p", 9: "PDF/X-5g", 10: "PDF/X-5n", 11: "PDF/X-5pg"}
A_KINDS = {1: "1A", 2: "1B", 3: "2A", 4: "2B", 5: "2U", 6: "3A", 7: "3B", 8: "3U"}
ICC = "/usr/share/color/icc"
PS = b"""%!PS
/Helvetica findfont 24 scalefont setfont 72 700 moveto (Conformance) show
0.3 setgray 72 500 200 100 rectfill showpage
"""


def make_ghostscript_files(tmp):
    """ghostscript's PDF/A-1b, PDF/A-2b and PDF/X-3 outputs; {} without gs or the profiles."""
    lib = next((d for d, _, fs in os.walk("/usr/share/ghostscript") if {"PDFA_def.ps", "PDFX_def.ps"} <= set(fs)),
               None)
    if not shutil.which("gs") or not lib or not os.path.exists(ICC + "/sRGB.icc"):
        print("ghostscript or its ICC profiles missing; its files skipped")
        return {}
    ps = os.path.join(tmp, "in.ps")
    with open(ps, "wb") as f:
        f.write(PS)
    made = {}
    pdfa = ["-dPDFACompatibilityPolicy=1", "-sColorConversionStrategy=RGB"]
    for name, defs, profile, extra in (("gs-pdfa1b.pdf", "PDFA_def.ps", "sRGB.icc", ["-dPDFA=1"] + pdfa),
                                       ("gs-pdfa2b.pdf", "PDFA_def.ps", "sRGB.icc", ["-dPDFA=2"] + pdfa),
                                       ("gs-pdfx3.pdf", "PDFX_def.ps", "Gray.icc",
                                        ["-dPDFX", "-sColorConversionStrategy=Gray"])):
        with open(os.path.join(lib, defs), "rb") as f:
            text = re.sub(rb"/ICCProfile \([^)]*\)", b"/ICCProfile (" + (ICC + "/" + profile).encode() + b")", f.read())
        with open(os.path.join(tmp, defs), "wb") as f:
            f.write(text)
        out = os.path.join(tmp, name)
        rc, _ = run(["gs", "-q", "-dNOPAUSE", "-dBATCH", "-dSAFER", "--permit-file-read=%s/" % ICC, "-sDEVICE=pdfwrite"]
                    + extra + ["-o", out, os.path.join(tmp, defs), ps], timeout=120)
        if rc == 0 and os.path.exists(out):
            made[name] = out
        else:
            print("FAIL ghostscript did not make %s" % name)
    return made


def qpdf_info_pdfx(path):
    """/GTS_PDFXVersion of the trailer's /Info as qpdf shows the object, or None."""
    rc, trailer = run(["qpdf", "--show-object=trailer", path])
    m = re.search(rb"/Info (\d+) (\d+) R", trailer or b"")
    if not m:
        return None
    rc, info = run(["qpdf", "--show-object=%s,%s" % (m.group(1).decode(), m.group(2).decode()), path])
    m = re.search(rb"/GTS_PDFXVersion \(([^)]*)\)", info or b"")
    return m.group(1).decode("latin-1") if m else None


def peer_view(path):
    """What pikepdf and qpdf say: (version, pdfx, pdfa, intents) or None when pikepdf cannot open it."""
    try:
        with pikepdf.open(path) as pdf:
            version = max(pdf.pdf_version, str(pdf.Root.get("/Version", "")).lstrip("/"))
            try:
                pdfa = pdf.open_metadata().pdfa_status or ""
            except Exception:
                pdfa = "?"
            intents = []
            for oi in pdf.Root.get("/OutputIntents", []):
                profile = oi.get("/DestOutputProfile")
                data = profile.read_bytes() if profile is not None else b""
                ident = oi.get("/OutputConditionIdentifier")
                intents.append((str(oi.get("/S", "")), bytes(ident) if ident is not None else b"",
                                len(data), zlib.crc32(data)))
    except Exception:
        return None
    return version, qpdf_info_pdfx(path), pdfa, intents


def our_view(tool, path):
    rc, out = run([tool, "info", "--json", path], timeout=60)
    if rc != 0:
        return None
    try:
        c = json.loads(out.decode("utf-8", "replace"))["conformance"]
    except (ValueError, KeyError):
        return "bad json"
    code = c["versionCode"]
    if code is None:
        return "XMP does not read"
    x, a = (code >> 8) & 15, (code >> 12) & 15
    return ("2.0" if code & 0xFF == 10 else "1.%d" % (code & 0xFF), X_KINDS.get(x, "other" if x else None),
            A_KINDS.get(a, "other" if a else ""),
            [(i["S"], i["OutputConditionIdentifier"], i["profileSize"], i["profileCrc32"]) for i in c["outputIntents"]])


def compare(ours, peer):
    """The differences, as short texts."""
    if isinstance(ours, str):
        return [ours]
    intents = peer[3]
    diffs = [form % (o, p) for form, o, p in zip(("version %s, peers %s", "PDF/X %s, peers %s", "PDF/A %r, peers %r"),
                                                ours, peer) if o != p]
    if len(ours[3]) != len(intents):
        diffs.append("%d output intents, peers %d" % (len(ours[3]), len(intents)))
    for o, p in zip(ours[3], intents):
        if o[0] != p[0] or o[1].encode("latin-1", "replace") != p[1] or o[2:] != p[2:]:
            diffs.append("intent %s/%s/%d bytes, peers %s/%r/%d bytes" % (o[0], o[1], o[2], p[0], p[1], p[2]))
    return diffs


def main():
    tool, corpus = sys.argv[1], sys.argv[2]
    if run(["qpdf", "--version"])[0] != 0:
        print("qpdf not installed; skipped")
        return 0
    explained = Explained("conform-explained.txt")
    failures, others = [], []
    checked = claims = 0
    with tempfile.TemporaryDirectory() as tmp:
        files = make_ghostscript_files(tmp)
        base = os.path.join(corpus, "qpdf")
        if os.path.isdir(base):
            files.update((rel, os.path.join(base, rel)) for rel in corpus_files(base))
        for name in sorted(files):
            peer = peer_view(files[name])
            ours = our_view(tool, files[name]) if peer else None
            if ours is None:
                continue
            checked += 1
            claims += bool(peer[1] or peer[2] or peer[3])
            diffs = "; ".join(compare(ours, peer))
            if diffs and name in explained:
                others.append("%s: %s (%s)" % (name, diffs, explained[name]))
            elif diffs:
                failures.append("%s: %s" % (name, diffs))
    print("%d files compared, %d with a claim or an output intent, %d explained differences"
          % (checked, claims, len(others)))
    return report(failures, others, "explained: ") or int(checked == 0)


if __name__ == "__main__":
    sys.exit(main())
