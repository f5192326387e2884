#!/usr/bin/env python3
"""Installs the build into a scratch prefix and runs the installed pdfkiln through a table of cases: arguments, exit
status, a text the output must hold (and one it must not). usage: tool_points.py BUILD_DIR SOURCE_DIR CORPUS_DIR"""
import os
import shutil
import subprocess
import sys
import tempfile

from tool_util import pdf, qpdf_refuses, report, run

PAGE = [b"<< /Type /Catalog /Pages 2 0 R >>",
        b"<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        b"<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] /Contents 4 0 R /Resources << >>"
        b" /PieceNote (a (nested) note) >>",
        b"<< /Length 20 >>\nstream\n0 0 1 rg 0 0 50 50 re f\nendstream"]
UTF16 = PAGE[:4] + [b"<< /Title <FEFF00500072006900E8007200650020D83DDE00> >>"]
# A document-level script in a name tree: the output has no /Names, so the
# script's objects have nothing referring to them there and stay out.
NAMES = [b"<< /Type /Catalog /Pages 2 0 R /Names 5 0 R >>"] + PAGE[1:4] + [
    b"<< /JavaScript 6 0 R >>", b"<< /Names [(a) 7 0 R] >>", b"<< /S /JavaScript /JS (app.alert\\(1\\)) >>"]


def main():
    build, source, corpus = sys.argv[1:4]
    tmp = tempfile.mkdtemp()
    prefix = os.path.join(tmp, "prefix")
    subprocess.run(["cmake", "--install", build, "--prefix", prefix], check=True, capture_output=True)
    tool = os.path.join(prefix, "bin", "pdfkiln")
    t = lambda n: os.path.join(tmp, n)
    for name, data in [("nested", pdf(PAGE)), ("nostartxref", pdf(PAGE, startxref=12345678)),
                       ("utf16", pdf(UTF16, trailer=b" /Info 5 0 R")), ("names", pdf(NAMES))]:
        with open(t(name + ".pdf"), "wb") as f:
            f.write(data)
    sample = os.path.join(source, "samples", "sample.pdf")
    enc = os.path.join(corpus, "qpdf", "qpdf", "qtest", "qpdf", "enc-R3,V2,U=view,O=master.pdf")
    env = {k: v for k, v in os.environ.items() if k != "LD_LIBRARY_PATH"}

    # (point, arguments, status, text in output, text not in output, output file qpdf must accept)
    cases = [
        (1, ["compose", "-o", t("o1.pdf"), t("nested.pdf")], 0, "written", None, t("o1.pdf")),
        (1, ["object", t("nested.pdf"), "3"], 0, "(a \\(nested\\) note)", None, None),
        (1, ["object", "--strict", t("nested.pdf"), "3"], 0, "(a \\(nested)", None, None),
        (2, ["info", t("nostartxref.pdf")], 0, "rebuilt", None, None),
        (2, ["compose", "-o", t("o2.pdf"), t("nostartxref.pdf")], 0, "written", None, t("o2.pdf")),
        (2, ["info", "--strict", t("nostartxref.pdf")], 1, "(100", None, None),
        (3, ["merge", "-o", t("m.pdf"), sample, t("nested.pdf"), "--select", "2:1 1:0"], 0, "", None, t("m.pdf")),
        (3, ["merge", "-o", t("m.pdf"), sample, "--select", "1:9"], 2, "selects no page", None, None),
        (3, ["split", sample, "--pages-per-file", "1", "-o", t("s-%d.pdf")], 0, "", None, t("s-2.pdf")),
        (3, ["help", "merge"], 0, "1:1~5", None, None),
        (4, ["info", enc], 4, "password is required", "pages", None),
        (4, ["info", enc, "--password", "wrong"], 4, "password is not correct", None, None),
        (4, ["content", enc], 4, "password", None, None),
        (4, ["compose", "-o", t("o4.pdf"), enc], 4, "password", None, None),
        (4, ["info", enc, "--password", "view"], 0, "pages:           30", None, None),
        (5, ["info", sample], 0, "/MediaBox", "PDF_KILN", None),
        (5, ["info", t("nested.pdf")], 0, "/TrimBox absent", "Zarnoth", None),
        (5, ["info", t("utf16.pdf")], 0, "Prière 😀", "\\376", None),
        (5, ["info", "--json", t("utf16.pdf")], 0, '"Author": null', None, None),
        (6, ["info", sample, "--page", "0", "--objects"], 2, "--page", None, None),
        (6, ["info", sample, "--page", "x", "--objects"], 2, "'x'", None, None),
        (6, ["info", sample, "--page", "1.5", "--objects"], 2, "'1.5'", None, None),
        (6, ["compose", "-o", t("o6.pdf"), sample + ":abc"], 2, "bad page selection 'abc'", None, None),
        (6, ["info", t("missing.pdf")], 1, "No such file", None, None),
        (6, ["info", tmp], 1, "Is a directory", None, None),
        (6, ["compose", "-o", t("o6.pdf"), "--nup", "0x2", sample], 2, "--nup", None, None),
        (6, ["compose", "-o", t("o6.pdf"), "--sheet", "axb", sample], 2, "--sheet", None, None),
        (6, ["compose", "-o", t("o6.pdf"), "--frobnicate", sample], 2, "'--frobnicate'", None, None),
        (6, ["compose", "-o", t("o6.pdf"), "--encrypt", "aes-128", "--user", "u", "--owner", "o",
             "--permissions", "foo", sample], 2, "'foo'", None, None),
        (6, ["compose", "-o", sample, sample], 2, "is an input", None, None),
        (6, ["compose", "-o", t("o6.pdf"), "--encrypt", "aes-128", sample], 2, "--user and --owner", None, None),
        (7, ["compose", "-o", t("o7.pdf"), sample + ":1", sample + ":2"], 0, "written", None, t("o7.pdf")),
        (7, ["compose", "-o", t("o7b.pdf"), sample + ":1-2"], 0, "written", None, t("o7b.pdf")),
        (7, ["compose", "-o", t("o7n.pdf"), t("names.pdf")], 0, "written", None, t("o7n.pdf")),
        (8, ["--version"], 0, "pdfkiln 7", None, None),
        (8, ["help", "compose"], 0, "--nup", None, None),
        (8, ["object", "--help"], 0, "JSON Lines", None, None),
        (8, ["help", "find"], 0, "breadth first", None, None),
        (9, ["info", sample], 0, "pages:", None, None),
    ]
    failures = []
    if not os.path.exists(enc):
        # The password cases read a file of the shared corpus; without it they are left out.
        print("note: %s not found, its cases skipped" % enc)
        cases = [c for c in cases if enc not in c[1]]
    for point, args, status, want, unwanted, out in cases:
        code, _, _, text = run([tool] + args, 60, env)
        checks = [(code != status, "exit %s, not %d" % (code, status)), (want and want not in text, "no %r in" % want),
                  (unwanted and unwanted in text, "%r in" % unwanted), (out and qpdf_refuses(out), "qpdf refuses it")]
        failures += ["point %d: pdfkiln %s: %s\n%s" % (point, " ".join(a.replace(tmp + "/", "") for a in args), what,
                                                       text[:300]) for bad, what in checks if bad][:1]
    # Point 7: naming a file twice writes its shared objects once, as naming it once does.
    sizes = [len(subprocess.run(["qpdf", "--show-xref", t(f)], capture_output=True).stdout.splitlines())
             for f in ("o7.pdf", "o7b.pdf")] if shutil.which("qpdf") else [0, 0]
    if sizes[0] != sizes[1]:
        failures.append("point 7: a file named twice gives %d objects, named once %d" % tuple(sizes))
    # What nothing in the output refers to is left out: the source's script.
    if os.path.exists(t("o7n.pdf")) and b"app.alert" in open(t("o7n.pdf"), "rb").read():
        failures.append("compose writes a name tree's script that nothing in the output refers to")
    # Point 8: the manual page is installed.
    if not os.path.exists(os.path.join(prefix, "share", "man", "man1", "pdfkiln.1")):
        failures.append("point 8: pdfkiln.1 is not installed")
    shutil.rmtree(tmp)
    return report(failures, "%d cases, %d failures" % (len(cases) + 3, len(failures)))


if __name__ == "__main__":
    sys.exit(main())
