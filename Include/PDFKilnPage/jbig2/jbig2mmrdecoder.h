// The MMR decoder of JBIG2Dec (ITU-T T.6 as ISO/IEC 14492 6.2.6
// uses it): mode and run-length codes read from a bounded byte view.
#ifndef PDFKILN_JBIG2DEC_MMRDECODER_H
#define PDFKILN_JBIG2DEC_MMRDECODER_H

#include <cstddef>
#include <cstdint>

class JBIG2ByteInput;

class JBIG2MMRDecoder {
public:
    // Codes of get2DCode.
    enum {
        twoDimPass = 0,
        twoDimHoriz,
        twoDimVert0,
        twoDimVertR1,
        twoDimVertR2,
        twoDimVertR3,
        twoDimVertL1,
        twoDimVertL2,
        twoDimVertL3,
        twoDimEOF = -1,      // the data has ended
        twoDimInvalid = -2   // no mode code (an EOL or damage)
    };

    JBIG2MMRDecoder();
    // Decoding starts at the input's position; `length` bytes belong to the
    // MMR data (the rest of the view when it is larger).
    void setInput(JBIG2ByteInput* in, std::size_t length);
    int get2DCode();
    // A run of the colour; -1 for an invalid code, which the caller ends the
    // row on. Make-up codes give their runs of 64 and more.
    int getWhiteCode();
    int getBlackCode();
    // Reads 24 bits (for the EOFB test).
    uint32_t get24Bits();
    // Moves to the next byte boundary.
    void skipToByteBoundary();
    // Bytes consumed so far, counting a partly read byte.
    std::size_t bytesConsumed() const { return (bitPos + 7) >> 3; }
    // Moves the input to the end of the MMR data: `length` bytes when it was
    // known, else past the bytes consumed.
    void finish(bool lengthKnown);

private:
    uint32_t peek(int n) const;
    void consume(int n) { bitPos += static_cast<std::size_t>(n); }
    bool atEnd() const { return bitPos >= static_cast<std::size_t>(len) * 8; }
    int getRunCode(bool black);

    JBIG2ByteInput* input;
    const unsigned char* data;
    std::size_t len;
    std::size_t start;
    std::size_t bitPos;
};

#endif
