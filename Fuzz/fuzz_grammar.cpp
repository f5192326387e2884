// Fuzz target: every rule of the grammar through its tokenizers, and the
// object-text utilities and the text-built property finder, over random text.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>

#include "PDFKilnPage/pdfkiln_findingvalue.h"
#include "PDFKilnPage/yard/pdf_rules.h"

using namespace PDF_KILN;
using namespace PDF_RULES;

namespace {

// Every hit must lie inside the range and follow the previous one.
template <typename Tok>
void scan(const char* b, const char* e) {
    Tok tok;
    tok.Tokenize(b, e);
    const char* last = b;
    for (const yard::Token& t : tok) {
        if (t.first < last || t.second > e || t.first >= t.second) __builtin_trap();
        last = t.second;
    }
}

template <typename Rule>
void both(const char* b, const char* e) {
    scan<OneTokenizer<Rule>>(b, e);
    scan<Tokenizer<Rule>>(b, e);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Scanning restarts at every byte after a miss, so costs grow faster than
    // the input; object texts are short, and so are the inputs here.
    if (size > 4096) return 0;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const char* b = text.data();
    const char* e = b + text.size();

    both<MatchWSpace>(b, e);
    both<MatchRegularCharacter>(b, e);
    both<MatchInteger>(b, e);
    both<MatchNumberObject>(b, e);
    both<MatchBooleanObject>(b, e);
    both<MatchString<null_string>>(b, e);
    both<MatchNameObject>(b, e);
    both<MatchLiteralStringBeginToken>(b, e);
    both<MatchLiteralStringEndToken>(b, e);
    both<MatchStringObject>(b, e);
    both<MatchArrayObject>(b, e);
    both<MatchDictionaryObject>(b, e);
    both<MatchIndirectObject>(b, e);
    both<MatchStreamBegin>(b, e);
    both<MatchRectangle>(b, e);
    both<MatchLengthEntry>(b, e);
    both<MatchFilterEntry>(b, e);
    {
        // The delimiter test consumes nothing, so it is applied, not scanned.
        yard::TextStream s(b, e);
        while (!s.AtEnd()) {
            MatchDelimerCharacter::Accept(s);
            s.GotoNext();
        }
    }
    scan<MediaBoxTokenizer>(b, e);
    scan<CropBoxTokenizer>(b, e);
    scan<BleedBoxTokenizer>(b, e);
    scan<TrimBoxTokenizer>(b, e);
    scan<ArtBoxTokenizer>(b, e);

    EPDFType t = utility::getType(b, e);
    if (t < ePDFNone || t > ePDFIndirect) __builtin_trap();
    t = utility::getType(text);
    if (t == ePDFStream) __builtin_trap();  // the string form never says stream
    for (int k = 0; k <= 10; ++k) {
        try {
            std::string v = utility::getValue(b, e, static_cast<EPDFType>(k));
            // A token is a piece of the text.
            if (k != ePDFStream && !v.empty() && text.find(v) == std::string::npos) __builtin_trap();
        } catch (const std::exception&) {
            // Only the stream form decodes, and a bad filter stage raises.
            if (k != ePDFStream) __builtin_trap();
        }
    }
    (void)trimParenthes(text);

    // The finder over the text alone: keys of every type; references lead to
    // fetches that fail without a source, which raises.
    FindingHint hint;
    hint.insertHintInfo("/A", ePDFNone);
    static const char* const keys[] = {"/B", "/N", "/S", "/Name", "/Arr", "/D", "/Nul", "/Stm", "/R"};
    for (int k = 1; k <= 9; ++k) hint.insertHintInfo(keys[k - 1], static_cast<EPDFType>(k));
    try {
        FindingValue finder(hint, nullptr, text);
        finder.find(true);
    } catch (const std::exception&) {
    }
    return 0;
}
