// Result codes of the jbig2 decoder. The same enumeration is
// returned by the frame and thrown, by value, from inside segment handlers.
#ifndef PDFKILN_JBIG2_RESULT_H
#define PDFKILN_JBIG2_RESULT_H

namespace jbig2 {

enum JBIG2_RESULT {
    JBIG2_SUCCESS = 0,           // success
    JBIG2_NOT_JBIG2 = 1,         // no file header where one is required
    JBIG2_NO_REFERRED = 2,       // a required referred segment is absent or too many are given
    JBIG2_BAD_REFERRED_TYPE = 3, // the referred segment has a type that can't be used
    JBIG2_OUT_OF_MEMORY = 5,     // an allocation failed (or exceeded the decoder's image limit)
    JBIG2_INVALID_DATA = 6       // the data is invalid
};

}  // namespace jbig2

#endif
