// Hard assertions of the jbig2 decoder: active in every build, printed like
// glibc's assert, with the source file name of the original code.
#ifndef PDFKILN_JBIG2_ASSERT_H
#define PDFKILN_JBIG2_ASSERT_H

namespace jbig2 {
[[noreturn]] void assertFail(const char* text, const char* file, unsigned int line, const char* function);
}

// The text is given literally, so that it reads exactly as the original
// assertion's expansion ("page!=__null").
#define JBIG2_ASSERT(cond, text) JBIG2_ASSERT_IN(cond, text, "GraphicServiceModule/jbig2/jbig2decoder.cpp")

// The same for another source file of the original code.
#define JBIG2_ASSERT_IN(cond, text, file) \
    ((cond) ? static_cast<void>(0) : ::jbig2::assertFail(text, file, __LINE__, __PRETTY_FUNCTION__))

#endif
