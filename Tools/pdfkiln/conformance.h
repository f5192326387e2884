// What pdfkiln tells and keeps of a file's conformance: the version code in
// words, output intents, the marked flag (info), the 7-bit output and the
// carried output intent (compose).
#ifndef PDFKILN_TOOL_CONFORMANCE_H
#define PDFKILN_TOOL_CONFORMANCE_H

#include <functional>
#include <string>
#include <vector>

namespace PDF_KILN {
class CPDFKilnPage;
}

// "PDF 1.7, PDF/A-2B" for a version code.
std::string versionWords(unsigned int code);
// The conformance part of pdfkiln info: a block of lines, or a JSON member
// ("conformance": {...},) when `json` is set.
void printConformance(PDF_KILN::CPDFKilnPage& doc, bool json);

// compose --ascii: an object's text with every byte above 127 outside its
// stream data written as an escape (octal in literal strings, #xx
// elsewhere), and data in an ASCII85 layer with the /Filter entry for it.
std::string sevenBitText(const std::string& objectText);
std::string ascii85(const std::string& data);

// The output intent all sources agree on, as a catalog entry
// ("/OutputIntents [...]"), or "" when they do not agree or have none.
// `addStream(dictionary, data)` writes the profile stream and returns its
// number. `note` tells what was carried or why nothing was.
std::string carriedOutputIntent(const std::vector<PDF_KILN::CPDFKilnPage*>& sources,
                                const std::function<int(const std::string&, const std::string&)>& addStream,
                                std::string& note);

#endif
