// The outward class jbig2::Jbig2Decoder, its accessors with their hard
// assertions, and the exported C entry Jbig2ToRGB.
#include "jbig2/jbig2decoder.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <istream>

#include "QarMemStream/QarMemStream.h"
#include "jbig2/jbig2decoderimp.h"
#include "jbig2/page.h"
#include "jbig2assert.h"

namespace jbig2 {

void assertFail(const char* text, const char* file, unsigned int line, const char* function) {
    std::fprintf(stderr, "%s:%u: %s: Assertion `%s' failed.\n", file, line, function, text);
    std::fflush(stderr);
    std::abort();
}

Jbig2Decoder::Jbig2Decoder(std::istream& stream)
    : m_jdi(nullptr), m_istream(&stream), m_ownStream(false), m_embedded(false) {}

Jbig2Decoder::Jbig2Decoder(unsigned char* data, unsigned int size, bool embedded)
    : m_jdi(nullptr), m_istream(nullptr), m_ownStream(true), m_embedded(embedded) {
    std::iostream* stream = streamcreate(size);
    streamwrite(data, 1, size, stream);
    m_istream = stream;
}

Jbig2Decoder::~Jbig2Decoder() {
    delete m_jdi;
    if (m_ownStream) streamdestroy(static_cast<std::iostream*>(m_istream));
}

JBIG2_RESULT Jbig2Decoder::decodeImage() {
    JBIG2_ASSERT(m_istream->good(), "m_istream->good()");
    delete m_jdi;
    m_jdi = new Jbig2DecoderImp(m_istream);
    return m_jdi->paresFile(m_embedded);
}

bool Jbig2Decoder::isJbig2(std::istream& inputstream) {
    JBIG2_ASSERT(inputstream.good(), "inputstream.good()");
    static const unsigned char id[8] = {0x97, 'J', 'B', '2', '\r', '\n', 0x1A, '\n'};
    unsigned char buf[8] = {0};
    inputstream.read(reinterpret_cast<char*>(buf), 8);
    if (inputstream.gcount() != 8) return false;
    return std::memcmp(buf, id, 8) == 0;
}

unsigned int Jbig2Decoder::getPageNumber() {
    JBIG2_ASSERT(m_jdi, "m_jdi");
    return m_jdi->getPageCount();
}

Page* Jbig2Decoder::checkedPage(int pageno) {
    JBIG2_ASSERT(m_jdi, "m_jdi");
    JBIG2_ASSERT((unsigned int)pageno < m_jdi->getPageCount(), "(unsigned int)pageno < m_jdi->getPageCount()");
    Page* page = m_jdi->getPage(static_cast<unsigned int>(pageno));
    JBIG2_ASSERT(page != NULL, "page!=__null");
    return page;
}

uint32_t Jbig2Decoder::getCurPageWidth(int pageno) {
    Page* page = checkedPage(pageno);
    return page->image ? page->image->getWidth() : page->width;
}

uint32_t Jbig2Decoder::getCurPageHeight(int pageno) {
    // The height of the page image: for a striped page, its first allocation.
    Page* page = checkedPage(pageno);
    return page->image ? page->image->getHeight() : 0;
}

uint32_t Jbig2Decoder::getCurPageStripe(int pageno) {
    Page* page = checkedPage(pageno);
    return page->image ? page->image->getHeight() : 0;
}

uint32_t Jbig2Decoder::getCurPageDataSize(int pageno) {
    Page* page = checkedPage(pageno);
    return page->image ? page->image->getHeight() * page->image->getStride() : 0;
}

uint32_t Jbig2Decoder::getCurPageXResolution(int pageno) { return checkedPage(pageno)->xResolution; }

uint32_t Jbig2Decoder::getCurPageYResolution(int pageno) { return checkedPage(pageno)->yResolution; }

unsigned char* Jbig2Decoder::getCurPageData(int pageno) {
    Page* page = checkedPage(pageno);
    return page->image ? page->image->getData() : nullptr;
}

ImageProcessor<ImageDataBits>* Jbig2Decoder::getImage(int pageno) { return checkedPage(pageno)->image; }

}  // namespace jbig2

extern "C" int Jbig2ToRGB(unsigned char* data, unsigned int size, void** out, unsigned int* outSize) {
    jbig2::Jbig2Decoder decoder(data, size, true);
    if (decoder.decodeImage() != jbig2::JBIG2_SUCCESS) return 1;
    // Without any page information this ends the process through the
    // accessor's assertion, as required.
    const uint32_t bytes = decoder.getCurPageDataSize(0);
    void* block = std::malloc(bytes ? bytes : 1);
    if (!block) return 1;
    if (bytes) std::memcpy(block, decoder.getCurPageData(0), bytes);
    *out = block;
    *outSize = bytes;
    return 0;
}
