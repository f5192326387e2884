#!/usr/bin/env python3
"""End to end with a form that reportlab wrote, composed 1-up, 2-up and page 1 alone: each output passes qpdf
--check, keeps each placed page's annotations in order, their /Rect moved by the matrix that draws the page, links
to their page's sheet (none to a page left out), the form's values and each widget's /P, shows the values in
pdftotext and a render, and `pdfkiln info --json` lists what qpdf reads. Skipped (77) without reportlab or poppler.
usage: forms_reportlab.py PDFKILN_TOOL  (or --make OUT.pdf: writes the source with reportlab)"""
import base64
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tool"))
from tool_util import qpdf_refuses, report  # noqa: E402

TOLERANCE = 0.01
REF = re.compile(r"^(\d+) (\d+) R$")
failures = []


def check(ok, what):
    if not ok:
        failures.append(what)
    return ok


def make(out):
    """The source: page 1 as above (the /GoTo to page 3 at /XYZ 50 700), pages 2 and 3 text only."""
    from reportlab.lib.pagesizes import A4
    from reportlab.pdfbase.pdfdoc import LinkAnnotation, PDFDictionary, PDFName
    from reportlab.pdfgen import canvas

    class GoToLink(LinkAnnotation):
        def Dict(self):
            d = dict(self.otherkw, Border=self.Border, Rect=self.Rect, Contents=self.Contents, Subtype="/Link")
            d["A"] = PDFDictionary({"S": PDFName("GoTo"), "D": self.Destination})
            return self.AnnotationDict(**d)

    c = canvas.Canvas(out, pagesize=A4)
    c.drawString(100, 800, "Page one")
    c.linkURL("https://example.org/", (100, 700, 300, 720), relative=0)
    c.drawString(100, 705, "URI link")
    c.linkAbsolute("to page 2", "p2", Rect=(100, 650, 300, 670))
    c.drawString(100, 655, "Dest link")
    c._addAnnotation(GoToLink((100, 600, 300, 620), "to page 3", c._bookmarkReference("p3")))
    c.drawString(100, 605, "GoTo link")
    form = c.acroForm
    form.textfield(name="name", value="Alice Example", x=100, y=500, width=200, height=20)
    form.checkbox(name="agree", checked=True, x=100, y=450, size=20)
    form.radio(name="colour", value="red", selected=False, x=100, y=400, size=20)
    form.radio(name="colour", value="blue", selected=True, x=140, y=400, size=20)
    form.choice(name="fruit", value="Pear", options=["Apple", "Pear", "Plum"], x=100, y=350, width=120, height=20)
    for name, number, kw in [("p2", "two", {}), ("p3", "three", dict(fit="XYZ", left=50, top=700))]:
        c.showPage()
        c.bookmarkPage(name, **kw)
        c.drawString(100, 800, "Page " + number)
    c.showPage()
    c.save()


class Pdf:
    """A file as qpdf's JSON reads it."""

    def __init__(self, path):
        d = json.loads(subprocess.run(["qpdf", "--json=2", "--json-key=pages", "--json-key=qpdf", "--json-key=acroform",
                                       "--json-stream-data=inline", "--decode-level=generalized", path],
                                      capture_output=True, check=True).stdout)
        self.objects, self.pages = d["qpdf"][1], [p["object"] for p in d["pages"]]
        self.fields = {f["fullname"]: text(f["value"]) for f in d["acroform"]["fields"]}  # {full name: value}

    def get(self, v):
        """The value, with a reference resolved (None for a missing object)."""
        if isinstance(v, str) and REF.match(v):
            o = self.objects.get("obj:" + v)
            return None if o is None else o["stream"]["dict"] if "stream" in o else o.get("value")
        return v

    def data(self, ref):
        return base64.b64decode(self.objects.get("obj:" + ref, {}).get("stream", {}).get("data", ""))

    def annots(self, page):
        """[(ref or None, dict)] of a page's /Annots, in order."""
        return [(a if isinstance(a, str) else None, self.get(a)) for a in self.get(self.get(page).get("/Annots")) or []]

    def target_page(self, annot):
        """(page, destination array) a link leads to by /Dest or /A /D of a go-to; '' when none, None for a URI."""
        dest = annot.get("/Dest")  # qpdf leaves out a key whose value is null
        if "/Dest" not in annot:
            action = self.get(annot.get("/A"))
            if action is None or action.get("/S") != "/GoTo":
                return "" if action is None else None
            dest = action.get("/D")
        arr = self.get(dest)
        return (arr[0], arr) if isinstance(arr, list) and arr else ""


def text(v):
    return v[2:] if isinstance(v, str) and v[:2] in ("u:", "b:") else v


def multiply(m, n):
    """m then n, in PDF's row-vector order."""
    return [m[0] * n[0] + m[1] * n[2], m[0] * n[1] + m[1] * n[3], m[2] * n[0] + m[3] * n[2],
            m[2] * n[1] + m[3] * n[3], *point(n, m[4], m[5])]


def point(m, x, y):
    return [m[0] * x + m[2] * y + m[4], m[1] * x + m[3] * y + m[5]]


def placements(pdf, sheet):
    """{xobject name: matrix from the form's space to the sheet} from the sheet's content."""
    content = pdf.get(sheet)["/Contents"]
    tokens = b" ".join(pdf.data(r) for r in (content if isinstance(content, list) else [content])).split()
    out, stack, ctm, nums = {}, [], [1, 0, 0, 1, 0, 0], []
    for i, t in enumerate(tokens):
        if t == b"q":
            stack.append(ctm)
        elif t == b"Q":
            ctm = stack.pop() if stack else [1, 0, 0, 1, 0, 0]
        elif t == b"cm":
            ctm = multiply([float(x) for x in nums[-6:]], ctm)
        elif t == b"Do":
            out[tokens[i - 1].decode()] = ctm
        else:
            nums.append(t)
    return out


def moved(rect, m):
    xs, ys = zip(*(point(m, rect[i], rect[j]) for i in (0, 2) for j in (1, 3)))
    return [min(xs), min(ys), max(xs), max(ys)]


def near(a, b):
    return len(a) == len(b) and all(abs(x - y) <= TOLERANCE for x, y in zip(a, b))


def floats(pdf, v):
    return [float(x) for x in pdf.get(v)]


def check_links(src, out, a, b, what, sheet_of, matrices):
    """A link of the output (b) against its source (a)."""
    source_target, target = src.target_page(a), out.target_page(b)
    if source_target is None:
        uri = lambda x, pdf: text((pdf.get(x.get("/A")) or {}).get("/URI"))
        check(uri(b, out) == uri(a, src) and uri(a, src), "%s: URI %s" % (what, uri(b, out)))
        return
    tp = src.pages.index(source_target[0])
    if tp not in sheet_of:
        check(target == "", "%s: a link to page %d, which is left out, leads to %s" % (what, tp + 1, target))
    elif check(target not in (None, ""), "%s: the link to page %d leads nowhere" % (what, tp + 1)):
        check(target[0] == sheet_of[tp], "%s: the link to page %d leads to %s, not to its sheet %s"
              % (what, tp + 1, target[0], sheet_of[tp]))
        sarr = source_target[1]
        if len(sarr) >= 4 and sarr[1] == "/XYZ":
            want = point(matrices[tp], float(sarr[2]), float(sarr[3]))
            have = [float(v) for v in target[1][2:4]] if len(target[1]) >= 4 else []
            check(target[1][1] == "/XYZ" and near(have, want), "%s: /XYZ %s, placed %s" % (what, have, want))


def check_output(src, out_path, placed, per_sheet, label):
    """placed: the source page indexes (0-based) in placement order."""
    refused = qpdf_refuses(out_path)
    check(not refused, "%s: %s" % (label, refused))
    out = Pdf(out_path)
    sheets = out.pages
    check(len(sheets) == (len(placed) + per_sheet - 1) // per_sheet, "%s: %d sheets" % (label, len(sheets)))
    sheet_of = {p: sheets[i // per_sheet] for i, p in enumerate(placed)}
    matrices = {}
    for i, p in enumerate(placed):
        m = placements(out, sheet_of[p]).get("/P%d" % (i % per_sheet))
        check(m is not None, "%s: page %d is not drawn on its sheet" % (label, p + 1))
        matrices[p] = m or [1, 0, 0, 1, 0, 0]
    for s, sheet in enumerate(sheets):
        expected = [(p, a) for p in placed[s * per_sheet:(s + 1) * per_sheet] for _, a in src.annots(src.pages[p])]
        got = out.annots(sheet)
        if not check(len(got) == len(expected), "%s: sheet %d has %d annotations, the pages placed on it %d"
                     % (label, s + 1, len(got), len(expected))):
            continue
        for (p, a), (ref, b) in zip(expected, got):
            what = "%s: sheet %d, %s of page %d" % (label, s + 1, a.get("/Subtype"), p + 1)
            check(b.get("/Subtype") == a.get("/Subtype"), what + ": subtype " + str(b.get("/Subtype")))
            want, have = moved(floats(out, a["/Rect"]), matrices[p]), floats(out, b.get("/Rect", []))
            check(near(have, want), "%s: /Rect %s, the placement gives %s" % (what, have, want))
            if a.get("/Subtype") == "/Widget":
                check(b.get("/P") == sheet, "%s: /P %s, not its sheet %s" % (what, b.get("/P"), sheet))
            elif a.get("/Subtype") == "/Link":
                check_links(src, out, a, b, what, sheet_of, matrices)
    if 0 in placed:
        for name, value in {"name": "Alice Example", "agree": "/Yes", "colour": "/blue", "fruit": "Pear"}.items():
            check(out.fields.get(name) == value, "%s: field %s has /V %s" % (label, name, out.fields.get(name)))
        states = sorted(text(a.get("/AS")) for _, a in out.annots(sheet_of[0]) if "/AS" in a)
        check(states == ["/Off", "/Yes", "/blue"], "%s: the buttons' states are %s" % (label, states))
        shown = subprocess.run(["pdftotext", out_path, "-"], capture_output=True).stdout.decode("utf-8", "replace")
        for value in ("Alice Example", "Pear", "Page one"):
            check(value in shown, "%s: pdftotext does not show %r" % (label, value))
        check_render(out, out_path, sheets.index(sheet_of[0]), label)


def check_render(out, path, sheet, label):
    """The text field's appearance is drawn: its rectangle differs from a render without annotations."""
    field = [a for _, a in out.annots(out.pages[sheet]) if text(a.get("/T")) == "name"]
    if not check(field, "%s: no widget of the text field on its sheet" % label):
        return
    (x0, y0, x1, y1), box = floats(out, field[0]["/Rect"]), floats(out, out.get(out.pages[sheet])["/MediaBox"])
    crop = sum((["-" + k, str(int(v))] for k, v in zip("xyWH", (x0 - box[0], box[3] - y1, x1 - x0, y1 - y0))), [])
    pages = ["-f", str(sheet + 1), "-l", str(sheet + 1)]
    with_annots, without = (subprocess.run(["pdftoppm", "-r", "72", "-gray"] + pages + crop + extra + [path],
                                           capture_output=True).stdout for extra in ([], ["-hide-annotations"]))
    check(with_annots and with_annots != without, "%s: the render shows nothing of the text field" % label)


def check_info(tool, pdf, path, page, label):
    """`pdfkiln info --page N --json` lists the page's annotations as qpdf reads them."""
    out = subprocess.run([tool, "info", path, "--page", str(page), "--json"], capture_output=True)
    if not check(out.returncode == 0, "%s: pdfkiln info --page %d exits %d" % (label, page, out.returncode)):
        return
    listed = json.loads(out.stdout)["annotations"]
    want = [(a.get("/Subtype"), floats(pdf, a["/Rect"])) for _, a in pdf.annots(pdf.pages[page - 1])]
    have = [(i["subtype"], i["rect"]) for i in listed["items"]]
    check(listed["page"] == page and listed["count"] == len(want) and
          all(a[0] == b[0] and near(a[1], b[1]) for a, b in zip(want, have)),
          "%s: pdfkiln info lists %s, qpdf %s" % (label, have, want))


def main():
    if sys.argv[1] == "--make":
        return make(sys.argv[2])
    tool = sys.argv[1]
    python = next((p for p in (sys.executable, "/usr/bin/python3") if p and os.path.exists(p) and subprocess.run(
        [p, "-c", "import reportlab"], capture_output=True).returncode == 0), None)
    missing = [t for t in ("qpdf", "pdftotext", "pdftoppm") if not shutil.which(t)]
    if not python or missing:
        print("skipped: %s not installed" % (", ".join(missing) or "reportlab"))
        return 77
    with tempfile.TemporaryDirectory() as tmp:
        src_path, out_path = os.path.join(tmp, "forms.pdf"), os.path.join(tmp, "out.pdf")
        subprocess.run([python, os.path.abspath(__file__), "--make", src_path], check=True)
        src = Pdf(src_path)
        counts = [len(src.annots(p)) for p in src.pages]
        check(counts == [8, 0, 0], "the source has %s annotations per page, not [8, 0, 0]" % counts)
        check_info(tool, src, src_path, 1, "source")
        for label, args, placed, per_sheet in [("1-up", [], [0, 1, 2], 1), ("2-up", ["--nup", "2x1"], [0, 1, 2], 2),
                                               ("page 1 alone", [], [0], 1)]:
            inputs = [src_path + ":1"] if placed == [0] else [src_path]
            rc = subprocess.run([tool, "compose", "--quiet", "-o", out_path] + args + inputs).returncode
            if check(rc == 0 and os.path.exists(out_path), "%s: compose exits %d" % (label, rc)):
                check_output(src, out_path, placed, per_sheet, label)
                check_info(tool, Pdf(out_path), out_path, 1, label)
            print("%s: %s" % (label, "ok" if not failures else "%d problem(s) so far" % len(failures)))
    return report(failures, "%d problem(s)" % len(failures))


if __name__ == "__main__":
    sys.exit(main())
