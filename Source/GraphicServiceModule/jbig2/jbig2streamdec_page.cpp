// JBIG2Dec: the page information segment (7.4.8), with this decoder's
// reading of the flags (default combination operator from bits 3 and 4) and
// of an unknown height (maxStripe rows, grown later).
#include "jbig2/jbig2streamdec.h"

void JBIG2Dec::readPageInfoSeg() {
    uint32_t w, h, resX, resY;
    unsigned flags, striping;
    if (!segInput.readULong(&w) || !segInput.readULong(&h) || !segInput.readULong(&resX) ||
        !segInput.readULong(&resY) || !segInput.readUByte(&flags) || !segInput.readUWord(&striping))
        return;
    if (w > 0x7fffffffu) return;
    pageW = w;
    pageH = h;
    pageDefPixel = (flags >> 2) & 1;
    pageDefCombOp = (flags >> 3) & 3;
    curPageH = h == 0xffffffffu ? (striping & 0x7fff) : h;
    if (curPageH > 0x7fffffffu) return;
    delete pageBitmap;
    pageBitmap = nullptr;
    pageBitmap = new JBIG2Bitmap(0, static_cast<int>(pageW), static_cast<int>(curPageH));
    if (pageDefPixel)
        pageBitmap->clearToOne();
    else
        pageBitmap->clearToZero();
}
