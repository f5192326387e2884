// DCT (JPEG) decoding through libjpeg-turbo from memory.
//
// Output: the decoded samples, interleaved, 8 bits per component, rows top to
// bottom, in libjpeg's default output colour space (grey, RGB for YCbCr
// images, CMYK for CMYK and YCCK images).
//
// libjpeg's default error handling calls exit(); here fatal errors longjmp
// back and become ZQ_CORRUPT, and warnings (such as data that ends early,
// which libjpeg completes with grey) are tolerated, as viewers do. An image
// whose output would exceed the stage bound is refused with ZQ_TOO_LARGE
// before any decoding, as are progressive images with an absurd number of
// scans (a known way to make decoders spin).
#include <csetjmp>
#include <cstdio>

#include <jpeglib.h>

#include "ZqCodec.h"

namespace ZQGraphicService_NS {
namespace codec {

namespace {

constexpr int kMaxScans = 500;

struct ErrorManager {
    jpeg_error_mgr pub;
    std::jmp_buf jump;
    int code;  // result to report after the jump
};

void errorExit(j_common_ptr cinfo) {
    auto* err = reinterpret_cast<ErrorManager*>(cinfo->err);
    std::longjmp(err->jump, 1);
}

void silentMessage(j_common_ptr) {}

void progress(j_common_ptr cinfo) {
    if (!cinfo->is_decompressor) return;
    auto* d = reinterpret_cast<j_decompress_ptr>(cinfo);
    if (d->input_scan_number > kMaxScans) {
        reinterpret_cast<ErrorManager*>(cinfo->err)->code = ZQ_CORRUPT;
        std::longjmp(reinterpret_cast<ErrorManager*>(cinfo->err)->jump, 1);
    }
}

// Everything that must survive the longjmp lives in this struct, not in
// local variables of the function that calls setjmp.
struct Decoder {
    jpeg_decompress_struct cinfo;
    ErrorManager err;
    jpeg_progress_mgr prog;
};

int decode(Decoder& d, ByteView in, ZqBuffer& out) {
    jpeg_decompress_struct& cinfo = d.cinfo;
    jpeg_mem_src(&cinfo, in.data, static_cast<unsigned long>(in.size));
    jpeg_read_header(&cinfo, TRUE);
    jpeg_calc_output_dimensions(&cinfo);
    const std::size_t rowBytes = std::size_t(cinfo.output_width) * std::size_t(cinfo.output_components);
    const std::size_t total = rowBytes * cinfo.output_height;
    if (rowBytes == 0 || total / rowBytes != cinfo.output_height || total > out.limit() - out.size()) {
        d.err.code = ZQ_TOO_LARGE;
        return ZQ_TOO_LARGE;
    }
    // Progressive and multi-scan images keep every coefficient of the image
    // in memory (2 bytes each, at least as many as output samples): bound it.
    if (cinfo.buffered_image || jpeg_has_multiple_scans(&cinfo)) {
        if (total > out.limit() / 2) {
            d.err.code = ZQ_TOO_LARGE;
            return ZQ_TOO_LARGE;
        }
    }
    if (!out.reserveExtra(total)) {
        d.err.code = ZQ_TOO_LARGE;
        return ZQ_TOO_LARGE;
    }
    jpeg_start_decompress(&cinfo);
    unsigned char* base = out.data() + out.size();
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = base + std::size_t(cinfo.output_scanline) * rowBytes;
        if (jpeg_read_scanlines(&cinfo, &row, 1) != 1) break;
    }
    const std::size_t produced = std::size_t(cinfo.output_scanline) * rowBytes;
    out.commit(produced);
    jpeg_finish_decompress(&cinfo);
    return ZQ_OK;
}

}  // namespace

int dctDecode(ByteView in, ZqBuffer& out) {
    if (in.size == 0) return ZQ_CORRUPT;
    Decoder d{};
    d.cinfo.err = jpeg_std_error(&d.err.pub);
    d.err.pub.error_exit = errorExit;
    d.err.pub.output_message = silentMessage;
    d.err.code = ZQ_CORRUPT;
    d.prog.progress_monitor = progress;
    const std::size_t start = out.size();
    if (setjmp(d.err.jump)) {
        jpeg_destroy_decompress(&d.cinfo);
        out.truncate(start);
        return d.err.code;
    }
    jpeg_create_decompress(&d.cinfo);
    d.cinfo.progress = &d.prog;
    int rc = decode(d, in, out);
    jpeg_destroy_decompress(&d.cinfo);
    if (rc != ZQ_OK) out.truncate(start);
    return rc;
}

}  // namespace codec
}  // namespace ZQGraphicService_NS
