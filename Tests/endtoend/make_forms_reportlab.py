#!/usr/bin/env python3
"""Writes, with reportlab, the three-page document of the forms end-to-end
test: on page 1 a URI link, a link by /Dest to page 2, a link by an /A /GoTo
action to page 3 (/XYZ 50 700), a filled text field, a checked box, a radio
group with its second button on, and a choice field; pages 2 and 3 carry
text only.

usage: make_forms_reportlab.py OUT.pdf
"""
import sys

from reportlab.lib.pagesizes import A4
from reportlab.pdfbase.pdfdoc import LinkAnnotation, PDFDictionary, PDFName
from reportlab.pdfgen import canvas


class GoToLink(LinkAnnotation):
    """A link whose target is an /A /GoTo action instead of a /Dest."""

    def Dict(self):
        d = dict(self.otherkw)
        d.update(Border=self.Border, Rect=self.Rect, Contents=self.Contents, Subtype="/Link")
        d["A"] = PDFDictionary({"S": PDFName("GoTo"), "D": self.Destination})
        return self.AnnotationDict(**d)


def main(out):
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
    c.showPage()
    c.bookmarkPage("p2")
    c.drawString(100, 800, "Page two")
    c.showPage()
    c.bookmarkPage("p3", fit="XYZ", left=50, top=700)
    c.drawString(100, 800, "Page three")
    c.showPage()
    c.save()


if __name__ == "__main__":
    main(sys.argv[1])
