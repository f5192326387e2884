// Hard assertions of the jbig2 decoder: active in every build, printed like
// glibc's assert, with the source file name of the original code.
#ifndef PDFKILN_JBIG2_ASSERT_H
#define PDFKILN_JBIG2_ASSERT_H

namespace jbig2 {
[[noreturn]] void assertFail(const char* text, const char* file, unsigned int line, const char* function);
}

// The text is given literally, so that it reads exactly as the original
// assertion's expansion ("page!=__null").
#define JBIG2_ASSERT(cond, text)                                                                 \
    ((cond) ? static_cast<void>(0)                                                               \
            : ::jbig2::assertFail(text, "GraphicServiceModule/jbig2/jbig2decoder.cpp", __LINE__, \
                                  __PRETTY_FUNCTION__))

#endif
