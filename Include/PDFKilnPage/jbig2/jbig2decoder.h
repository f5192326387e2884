// The jbig2 decoder: class jbig2::Jbig2Decoder and the exported C
// entry Jbig2ToRGB.
#ifndef PDFKILN_JBIG2_JBIG2DECODER_H
#define PDFKILN_JBIG2_JBIG2DECODER_H

#include <cstdint>
#include <iosfwd>

#include "imagedata.h"
#include "jbig2result.h"

namespace jbig2 {

class Jbig2DecoderImp;
class Page;

class Jbig2Decoder {
public:
    // Decodes a JBIG2 file (with its file header) from the caller's stream.
    explicit Jbig2Decoder(std::istream& stream);
    // Copies the data into an owned memory stream; `embedded` selects the
    // organisation of PDF streams, without a file header.
    Jbig2Decoder(unsigned char* data, unsigned int size, bool embedded);
    ~Jbig2Decoder();
    Jbig2Decoder(const Jbig2Decoder&) = delete;
    Jbig2Decoder& operator=(const Jbig2Decoder&) = delete;

    // Asserts "m_istream->good()". Result codes are those of JBIG2_RESULT; a
    // segment header view below 11 bytes is thrown as JBIG2_INVALID_DATA.
    JBIG2_RESULT decodeImage();
    // Reads 8 bytes and compares them with the file ID string.
    static bool isJbig2(std::istream& inputstream);

    // Accessors: they assert "m_jdi", "(unsigned int)pageno <
    // m_jdi->getPageCount()" and "page!=__null"; a page beyond the vector is
    // a std::out_of_range.
    unsigned int getPageNumber();
    uint32_t getCurPageWidth(int pageno);
    uint32_t getCurPageHeight(int pageno);
    uint32_t getCurPageStripe(int pageno);
    uint32_t getCurPageDataSize(int pageno);
    uint32_t getCurPageXResolution(int pageno);
    uint32_t getCurPageYResolution(int pageno);
    unsigned char* getCurPageData(int pageno);
    ImageProcessor<ImageDataBits>* getImage(int pageno);

private:
    Page* checkedPage(int pageno);

    Jbig2DecoderImp* m_jdi;
    std::istream* m_istream;
    bool m_ownStream;
    bool m_embedded;
};

}  // namespace jbig2

// Decodes an embedded JBIG2 stream (no /JBIG2Globals). On success *out is a
// malloc block with the rows of page 0 (1 is black) and *outSize is height
// times stride; returns 0, or 1 on failure, when *out stays untouched.
extern "C" int Jbig2ToRGB(unsigned char* data, unsigned int size, void** out, unsigned int* outSize);

#endif
