// MMR (ITU-T T.6) line decoder as used by ISO/IEC 14492 6.2.6.
#ifndef PDFKILN_JBIG2_MMRDECODER_H
#define PDFKILN_JBIG2_MMRDECODER_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "datareader.h"
#include "imagedata.h"

namespace jbig2 {

class MMRDecoder {
public:
    enum Mode {
        MODE_PASS = 0,
        MODE_HORIZONTAL = 1,
        MODE_V0 = 2,
        MODE_VR1 = 3,
        MODE_VR2 = 4,
        MODE_VR3 = 5,
        MODE_VL1 = 6,
        MODE_VL2 = 7,
        MODE_VL3 = 8,
        MODE_OTHER = 10
    };

    MMRDecoder(ImageProcessor<ImageDataBits>& image, const unsigned char* data, unsigned int size, int width,
               int height);

    // Decodes all rows of the image; no test for EOFB.
    void decode();
    // Decodes one row; a null reference is a white row.
    void decodeline(const unsigned char* reference, unsigned char* current);
    // Bytes of the input that decoding consumed.
    uint32_t getConsumed() const { return m_reader.bytesConsumed(); }
    // Bits of the input that decoding consumed.
    uint64_t getConsumedBits() const { return m_reader.bitPosition(); }

    // Classifies the next bits (word: the next 32 bits); sets the code length.
    static int getMode(uint32_t word, int& length);
    // Run-length codes: value and length of the code at the top of `word`,
    // or -1 for no code.
    static int getWhileCode(uint32_t word, int& length);
    static int getBlackCode(uint32_t word, int& length);

private:
    int getWhileCodeRun();
    int getBlackCodeRun();
    void collectChanges(const unsigned char* line);
    int findPixelColor(const unsigned char* line, int start, int color);
    void fillbits(unsigned char* line, int from, int to);

    ImageProcessor<ImageDataBits>& m_image;
    DataReader m_reader;
    int m_width;
    int m_height;
    // Changing elements of the reference line, and where the last search
    // for one stopped.
    std::vector<int> m_changes;
    std::size_t m_cursor = 0;
};

}  // namespace jbig2

#endif
