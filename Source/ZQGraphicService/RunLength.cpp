// RunLength decoding: a length byte n of 0..127 copies the next n+1 bytes,
// 129..255 repeats the next byte 257-n times, 128 ends the data. Data cut off
// in the middle of a run yields what is there, with ZQ_OK.
#include "ZqCodec.h"

namespace ZQGraphicService_NS {
namespace codec {

int runLengthDecode(ByteView in, ZqBuffer& out) {
    std::size_t i = 0;
    while (i < in.size) {
        const unsigned n = in.data[i++];
        if (n == 128) break;
        if (n < 128) {
            std::size_t len = n + 1;
            if (len > in.size - i) len = in.size - i;
            if (!out.append(in.data + i, len)) return ZQ_TOO_LARGE;
            i += len;
        } else {
            if (i >= in.size) break;
            if (!out.fill(in.data[i++], 257 - n)) return ZQ_TOO_LARGE;
        }
    }
    return ZQ_OK;
}

}  // namespace codec
}  // namespace ZQGraphicService_NS
