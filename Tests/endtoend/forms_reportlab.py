#!/usr/bin/env python3
"""End to end with a document that no code here wrote: reportlab writes a
page with a URI link, a link by /Dest, a link by /A /GoTo, a filled text
field, a checked box, a radio group and a choice field
(make_forms_reportlab.py), and `pdfkiln compose` places it 1-up, 2-up and
with page 1 alone. For every output:

- qpdf --check accepts it;
- every annotation of a placed page is on its sheet, in order, with its
  subtype, and its /Rect is the source rectangle moved by the matrix with
  which the sheet's content draws that page (read back from the content
  stream, not from the tool);
- a link to a page that is placed leads to the sheet that shows it (an /XYZ
  point moved by that page's matrix); a link to a page left out leads nowhere;
  the URI link keeps its URI;
- the form has the four fields with their values (/V, the buttons' /AS), each
  widget's /P is its sheet;
- pdftotext shows the text field's and the choice field's values, and a
  render with annotations differs from one without inside the text field;
- `pdfkiln info --page 1 --json` lists the annotations that qpdf reads, for
  the source and for each output.

Skipped (exit 77) when reportlab, qpdf or poppler's tools are missing.

usage: forms_reportlab.py PDFKILN_TOOL
"""
import base64
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
SKIP = 77
TOLERANCE = 0.01
failures = []


def check(ok, what):
    if not ok:
        failures.append(what)
    return ok


def reportlab_python():
    """An interpreter that imports reportlab: this one, or the system's."""
    for candidate in (sys.executable, "/usr/bin/python3"):
        if candidate and os.path.exists(candidate) and subprocess.run(
                [candidate, "-c", "import reportlab"], capture_output=True).returncode == 0:
            return candidate
    return None


# ---------------------------------------------------------------------------
# Reading a file through qpdf's JSON

REF = re.compile(r"^(\d+) (\d+) R$")


class Pdf:
    def __init__(self, path):
        out = subprocess.run(["qpdf", "--json=2", "--json-key=pages", "--json-key=qpdf",
                              "--json-stream-data=inline", "--decode-level=generalized", path],
                             capture_output=True, check=True).stdout
        d = json.loads(out)
        self.objects = d["qpdf"][1]
        self.pages = [p["object"] for p in d["pages"]]

    def get(self, v):
        """The value, with a reference resolved (None for a missing object)."""
        if isinstance(v, str) and REF.match(v):
            o = self.objects.get("obj:" + v)
            if o is None:
                return None
            return o["stream"]["dict"] if "stream" in o else o.get("value")
        return v

    def data(self, ref):
        o = self.objects.get("obj:" + ref, {})
        return base64.b64decode(o.get("stream", {}).get("data", "")) if "stream" in o else b""

    def annots(self, page):
        """[(ref or None, dict)] of a page's /Annots, in order."""
        arr = self.get(self.get(page).get("/Annots", []))
        return [(a if isinstance(a, str) else None, self.get(a)) for a in (arr or [])]

    def target_page(self, annot):
        """The page object a link leads to: /Dest, or /A /D of a go-to; '' when none, None for a URI."""
        # qpdf leaves out a key whose value is null: a link without /Dest
        # and /A leads nowhere.
        dest = annot.get("/Dest")
        if "/Dest" not in annot:
            action = self.get(annot.get("/A"))
            if action is None:
                return ""
            if action.get("/S") != "/GoTo":
                return None
            dest = action.get("/D")
        arr = self.get(dest)
        if not isinstance(arr, list) or not arr:
            return ""
        return arr[0], arr

    def fields(self):
        """{full name: field dict} of the /AcroForm, kids followed."""
        root = self.get(self.get(self.objects["trailer"]["value"]["/Root"]))
        form = self.get(root.get("/AcroForm")) or {}
        out = {}
        work = [(f, "") for f in self.get(form.get("/Fields", [])) or []]
        seen = set()
        while work:
            ref, prefix = work.pop(0)
            if ref in seen:
                continue
            seen.add(ref)
            f = self.get(ref) or {}
            name = prefix + text(f.get("/T", ""))
            if "/T" in f:
                out[name] = f
            for k in self.get(f.get("/Kids", [])) or []:
                work.append((k, name + "."))
        return out


def text(v):
    return v[2:] if isinstance(v, str) and v[:2] in ("u:", "b:") else v


# ---------------------------------------------------------------------------
# Geometry

def multiply(m, n):
    """m then n, in PDF's row-vector order."""
    a, b, c, d, e, f = m
    A, B, C, D, E, F = n
    return [a * A + b * C, a * B + b * D, c * A + d * C, c * B + d * D, e * A + f * C + E, e * B + f * D + F]


def placements(pdf, sheet):
    """{xobject name: matrix from the form's space to the sheet} from the sheet's content."""
    content = pdf.get(sheet)["/Contents"]
    refs = content if isinstance(content, list) else [content]
    tokens = b" ".join(pdf.data(r) for r in refs).split()
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
        if t not in (b"q", b"Q", b"cm", b"Do"):
            nums.append(t)
    return out


def moved(rect, m):
    xs, ys = [], []
    for x, y in ((rect[0], rect[1]), (rect[2], rect[3]), (rect[0], rect[3]), (rect[2], rect[1])):
        xs.append(m[0] * x + m[2] * y + m[4])
        ys.append(m[1] * x + m[3] * y + m[5])
    return [min(xs), min(ys), max(xs), max(ys)]


def near(a, b):
    return len(a) == len(b) and all(abs(x - y) <= TOLERANCE for x, y in zip(a, b))


# ---------------------------------------------------------------------------

def check_output(src, out_path, placed, per_sheet, label):
    """placed: the source page indexes (0-based) in placement order."""
    rc = subprocess.run(["qpdf", "--check", out_path], capture_output=True).returncode
    check(rc == 0, "%s: qpdf --check exits %d" % (label, rc))
    out = Pdf(out_path)
    sheets = out.pages
    check(len(sheets) == (len(placed) + per_sheet - 1) // per_sheet, "%s: %d sheets" % (label, len(sheets)))
    sheet_of = {p: sheets[i // per_sheet] for i, p in enumerate(placed)}
    matrices = {}
    for i, p in enumerate(placed):
        sheet = sheets[i // per_sheet]
        m = placements(out, sheet).get("/P%d" % (i % per_sheet))
        check(m is not None, "%s: page %d is not drawn on its sheet" % (label, p + 1))
        matrices[p] = m or [1, 0, 0, 1, 0, 0]

    widget_pages = {}
    for s, sheet in enumerate(sheets):
        on_sheet = placed[s * per_sheet:(s + 1) * per_sheet]
        expected = [(p, a) for p in on_sheet for _, a in src.annots(src.pages[p])]
        got = out.annots(sheet)
        if not check(len(got) == len(expected), "%s: sheet %d has %d annotations, the pages placed on it %d"
                     % (label, s + 1, len(got), len(expected))):
            continue
        for (p, a), (ref, b) in zip(expected, got):
            what = "%s: sheet %d, %s of page %d" % (label, s + 1, a.get("/Subtype"), p + 1)
            check(b.get("/Subtype") == a.get("/Subtype"), what + ": subtype " + str(b.get("/Subtype")))
            want = moved([float(v) for v in out.get(a["/Rect"])], matrices[p])
            have = [float(v) for v in out.get(b.get("/Rect", []))]
            check(near(have, want), "%s: /Rect %s, the placement gives %s" % (what, have, want))
            if a.get("/Subtype") == "/Widget":
                widget_pages[text(b.get("/T", ref))] = b.get("/P")
                check(b.get("/P") == sheet, "%s: /P %s, not its sheet %s" % (what, b.get("/P"), sheet))
            if a.get("/Subtype") != "/Link":
                continue
            source_target = src.target_page(a)
            target = out.target_page(b)
            if source_target is None:
                uri = lambda x, pdf: text((pdf.get(x.get("/A")) or {}).get("/URI"))
                check(uri(b, out) == uri(a, src) and uri(a, src), "%s: URI %s" % (what, uri(b, out)))
                continue
            tp = src.pages.index(source_target[0])
            if tp not in sheet_of:
                check(target == "", "%s: a link to page %d, which is left out, leads to %s" % (what, tp + 1, target))
                continue
            if not check(target not in (None, ""), "%s: the link to page %d leads nowhere" % (what, tp + 1)):
                continue
            check(target[0] == sheet_of[tp], "%s: the link to page %d leads to %s, not to its sheet %s"
                  % (what, tp + 1, target[0], sheet_of[tp]))
            sarr = source_target[1]
            if len(sarr) >= 4 and sarr[1] == "/XYZ":
                m = matrices[tp]
                x, y = float(sarr[2]), float(sarr[3])
                want = [m[0] * x + m[2] * y + m[4], m[1] * x + m[3] * y + m[5]]
                have = [float(v) for v in target[1][2:4]] if len(target[1]) >= 4 else []
                check(target[1][1] == "/XYZ" and near(have, want),
                      "%s: /XYZ %s, the placement gives %s" % (what, have, want))

    if 0 in placed:
        fields = out.fields()
        want = {"name": "Alice Example", "agree": "/Yes", "colour": "/blue", "fruit": "Pear"}
        for name, value in want.items():
            f = fields.get(name)
            if check(f is not None, "%s: field %s is not in /AcroForm" % (label, name)):
                check(text(f.get("/V")) == value, "%s: field %s has /V %s" % (label, name, f.get("/V")))
        states = sorted(text(a.get("/AS")) for _, a in out.annots(sheet_of[0]) if "/AS" in a)
        check(states == ["/Off", "/Yes", "/blue"], "%s: the buttons' states are %s" % (label, states))
        shown = subprocess.run(["pdftotext", out_path, "-"], capture_output=True).stdout.decode("utf-8", "replace")
        for value in ("Alice Example", "Pear", "Page one"):
            check(value in shown, "%s: pdftotext does not show %r" % (label, value))
        check_render(out, out_path, sheets.index(sheet_of[0]), label)


def check_render(out, path, sheet_index, label):
    """The text field's appearance is drawn: with annotations the pixels inside
    its rectangle differ from a render without them."""
    field = [a for _, a in out.annots(out.pages[sheet_index]) if text(a.get("/T")) == "name"]
    if not check(field, "%s: no widget of the text field on its sheet" % label):
        return
    rect = [float(v) for v in out.get(field[0]["/Rect"])]
    box = [float(v) for v in out.get(out.get(out.pages[sheet_index])["/MediaBox"])]
    with tempfile.TemporaryDirectory() as tmp:
        renders = []
        for extra in ([], ["-hide-annotations"]):
            base = os.path.join(tmp, "r%d" % len(renders))
            subprocess.run(["pdftoppm", "-r", "72", "-gray", "-f", str(sheet_index + 1), "-l", str(sheet_index + 1),
                            "-singlefile"] + extra + [path, base], capture_output=True)
            with open(base + ".pgm", "rb") as f:
                data = f.read()
            m = re.match(rb"P5\s+(\d+)\s+(\d+)\s+\d+\s", data)
            renders.append((int(m.group(1)), int(m.group(2)), data[m.end():]))
    (w, h, a), (_, _, b) = renders
    x0, x1 = int(rect[0] - box[0]), int(rect[2] - box[0])
    y0, y1 = int(box[3] - rect[3]), int(box[3] - rect[1])
    differ = sum(1 for y in range(max(0, y0), min(h, y1)) for x in range(max(0, x0), min(w, x1))
                 if a[y * w + x] != b[y * w + x])
    check(differ > 0, "%s: the render shows nothing of the text field" % label)


def check_info(tool, pdf, path, page, label):
    """`pdfkiln info --page N --json` lists the page's annotations as qpdf reads them."""
    out = subprocess.run([tool, "info", path, "--page", str(page), "--json"], capture_output=True)
    if not check(out.returncode == 0, "%s: pdfkiln info --page %d exits %d" % (label, page, out.returncode)):
        return
    listed = json.loads(out.stdout)["annotations"]
    want = [(a.get("/Subtype"), [float(v) for v in pdf.get(a["/Rect"])]) for _, a in pdf.annots(pdf.pages[page - 1])]
    have = [(i["subtype"], i["rect"]) for i in listed["items"]]
    check(listed["page"] == page and listed["count"] == len(want) and
          all(a[0] == b[0] and near(a[1], b[1]) for a, b in zip(want, have)),
          "%s: pdfkiln info lists %s, qpdf %s" % (label, have, want))


def main():
    tool = sys.argv[1]
    python = reportlab_python()
    missing = [t for t in ("qpdf", "pdftotext", "pdftoppm") if not shutil.which(t)]
    if not python or missing:
        print("skipped: %s not installed" % (", ".join(missing) or "reportlab"))
        return SKIP
    with tempfile.TemporaryDirectory() as tmp:
        src_path = os.path.join(tmp, "forms.pdf")
        subprocess.run([python, os.path.join(HERE, "make_forms_reportlab.py"), src_path], check=True)
        src = Pdf(src_path)
        counts = [len(src.annots(p)) for p in src.pages]
        check(counts == [8, 0, 0], "the source has %s annotations per page, not [8, 0, 0]" % counts)
        check_info(tool, src, src_path, 1, "source")
        layouts = [("1-up", [], [0, 1, 2], 1), ("2-up", ["--nup", "2x1"], [0, 1, 2], 2),
                   ("page 1 alone", [], [0], 1)]
        for label, args, placed, per_sheet in layouts:
            out_path = os.path.join(tmp, "out.pdf")
            inputs = [src_path + ":1"] if placed == [0] else [src_path]
            rc = subprocess.run([tool, "compose", "--quiet", "-o", out_path] + args + inputs).returncode
            if check(rc == 0 and os.path.exists(out_path), "%s: compose exits %d" % (label, rc)):
                check_output(src, out_path, placed, per_sheet, label)
                check_info(tool, Pdf(out_path), out_path, 1, label)
            print("%s: %s" % (label, "ok" if not failures else "%d problem(s) so far" % len(failures)))
    for f in failures:
        print("FAIL " + f)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
