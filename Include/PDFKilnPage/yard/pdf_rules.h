// The PDF vocabulary of the grammar, built from the yard combinators.
//
// This is a search grammar, not a validating one: a tokenizer looks for the
// first place where a rule matches, so a rule may hit in the middle of a
// name, inside a string or inside stream bytes. Several rules are looser
// than PDF itself, on purpose, and callers rely on that:
//   - a number needs a digit before its point ("-.5" is found as "5"), and
//     "1." directly at the end of the range is found as "1";
//   - a reference needs nothing behind its R ("1 0 Rx" is one);
//   - arrays, dictionaries and literal strings count only their own bracket
//     pair, so "<< /A (>>) >>" closes inside the string;
//   - a literal string bracket escaped by a backslash is judged by the one
//     byte before it, with no count of backslashes;
//   - there is no comment rule: '%' only ends a name.
#ifndef PDFKILN_YARD_PDF_RULES_H
#define PDFKILN_YARD_PDF_RULES_H

#include "parser_input_stream.h"
#include "yard_base_grammar.h"
#include "yard_tokenizer.h"

namespace PDF_RULES {

using namespace yard;

// ---- literal texts -------------------------------------------------------

struct true_string { static constexpr const char* text = "true"; };
struct false_string { static constexpr const char* text = "false"; };
struct null_string { static constexpr const char* text = "null"; };
struct stream_string { static constexpr const char* text = "stream"; };
struct Length_string { static constexpr const char* text = "/Length"; };
struct Filter_string { static constexpr const char* text = "/Filter"; };
struct MediaBox_string { static constexpr const char* text = "/MediaBox"; };
struct CropBox_string { static constexpr const char* text = "/CropBox"; };
struct BleedBox_string { static constexpr const char* text = "/BleedBox"; };
struct TrimBox_string { static constexpr const char* text = "/TrimBox"; };
struct ArtBox_string { static constexpr const char* text = "/ArtBox"; };

// ---- character classes ---------------------------------------------------

inline bool isPdfWhiteSpace(char c) {
    return c == 0 || c == 9 || c == 10 || c == 12 || c == 13 || c == 32;
}

inline bool isPdfDelimiter(char c) {
    switch (c) {
        case '%': case '(': case ')': case '/': case '<':
        case '>': case '[': case ']': case '{': case '}':
            return true;
        default:
            return false;
    }
}

// One byte of NUL, HT, LF, FF, CR or SP.
struct MatchWSpace {
    template <typename ParserState_T>
    static bool Accept(ParserState_T& p) {
        if (p.AtEnd() || !isPdfWhiteSpace(p.GetElem())) return false;
        p.GotoNext();
        return true;
    }
};

// Tests, without consuming, that a delimiter stands at the cursor.
struct MatchDelimerCharacter {
    template <typename ParserState_T>
    static bool Accept(ParserState_T& p) {
        return !p.AtEnd() && isPdfDelimiter(p.GetElem());
    }
};

// One byte that is neither a delimiter nor white space.
struct MatchRegularCharacter {
    template <typename ParserState_T>
    static bool Accept(ParserState_T& p) {
        if (p.AtEnd()) return false;
        char c = p.GetElem();
        if (isPdfDelimiter(c) || isPdfWhiteSpace(c)) return false;
        p.GotoNext();
        return true;
    }
};

// ---- numbers, booleans, null ---------------------------------------------

typedef MatchCharRange<'0', '9'> MatchDigit;
struct MatchSign : re_or<MatchChar<'+'>, MatchChar<'-'>> {};

struct MatchInteger : re_and<re_opt<MatchSign>, re_plus<MatchDigit>> {};

// The point and the digits behind it. The point does not count when the text
// ends directly behind it, so "1." at the end of the range is read as "1"
// while "1. " keeps its point.
struct MatchFractionPart {
    template <typename ParserState_T>
    static bool Accept(ParserState_T& p) {
        auto start = p.GetPos();
        if (!p.AdvancePast('.')) return false;
        if (p.AtEnd()) {
            p.SetPos(start);
            return false;
        }
        return re_star<MatchDigit>::Accept(p);
    }
};

// Sign, digits, point, digits; or, failing that, sign and digits. A digit
// must stand before the point.
struct MatchNumberObject
    : re_or<re_and3<re_opt<MatchSign>, re_plus<MatchDigit>, MatchFractionPart>, MatchInteger> {};

struct MatchBooleanObject : re_or<MatchString<true_string>, MatchString<false_string>> {};

struct MatchNullObject : MatchString<null_string> {};

// ---- names ---------------------------------------------------------------

// "/", a regular byte, then regular bytes up to a delimiter, white space or
// the end. The empty name is never matched; #xx escapes are left as they are.
struct MatchNameObject
    : re_and3<MatchChar<'/'>, MatchRegularCharacter, re_star<MatchRegularCharacter>> {};

// ---- strings -------------------------------------------------------------

// A bracket of a literal string counts unless the one byte before it is a
// backslash. Only that byte is looked at, so "\\)" does not close either.
template <char C>
struct MatchUnescaped {
    template <typename ParserState_T>
    static bool Accept(ParserState_T& p) {
        if (p.AtEnd() || p.GetElem() != C) return false;
        if (p.GetPos() != p.Begin() && *(p.GetPos() - 1) == '\\') return false;
        p.GotoNext();
        return true;
    }
};

struct MatchLiteralStringBeginToken : MatchUnescaped<'('> {};
struct MatchLiteralStringEndToken : MatchUnescaped<')'> {};

typedef re_NestRule<MatchLiteralStringBeginToken, MatchLiteralStringEndToken> LiteralStringNest;
struct MatchLiteralString : LiteralStringNest::Rule {};

struct MatchHexDigit
    : re_or3<MatchCharRange<'0', '9'>, MatchCharRange<'a', 'f'>, MatchCharRange<'A', 'F'>> {};

// "<", hexadecimal digits, ">". White space inside fails the match; an odd
// digit count and the empty "<>" are accepted.
struct MatchHexString : re_and3<MatchChar<'<'>, re_star<MatchHexDigit>, MatchChar<'>'>> {};

struct MatchStringObject : re_or<MatchLiteralString, MatchHexString> {};

// ---- arrays and dictionaries ---------------------------------------------

typedef re_NestRule<MatchChar<'['>, MatchChar<']'>> ArrayNest;
struct MatchArrayObject : ArrayNest::Rule {};

typedef re_NestRule<re_repeat<MatchChar<'<'>, 2>, re_repeat<MatchChar<'>'>, 2>> DictionaryNest;
struct MatchDictionaryObject : DictionaryNest::Rule {};

// ---- references and stream parts -----------------------------------------

// "n g R": the library's word for a reference. Nothing is required behind R.
struct MatchIndirectObject
    : re_and3<re_and<MatchInteger, re_plus<MatchWSpace>>, re_and<MatchInteger, re_plus<MatchWSpace>>,
              MatchChar<'R'>> {};

// ">>", white space, "stream": where a stream's data begins.
struct MatchStreamBegin
    : re_and3<re_repeat<MatchChar<'>'>, 2>, re_star<MatchWSpace>, MatchString<stream_string>> {};

// "[", white space, then everything up to the first "]". The content is not
// examined.
struct MatchRectangle : re_and3<MatchChar<'['>, re_star<MatchWSpace>, re_until<MatchChar<']'>>> {};

// "/Length", at least one white-space byte, a reference or an integer.
struct MatchLengthEntry
    : re_and3<MatchString<Length_string>, re_plus<MatchWSpace>, re_or<MatchIndirectObject, MatchInteger>> {};

// "/Filter", optional white space, a reference, an array or a name.
struct MatchFilterEntry
    : re_and3<MatchString<Filter_string>, re_star<MatchWSpace>,
              re_or3<MatchIndirectObject, MatchArrayObject, MatchNameObject>> {};

// ---- tokenizer instances ---------------------------------------------------

// The numbers of a box entry "/X [ ... ]", X being one of the box names.
template <typename BoxName_T>
using BoxTokenizer =
    TokenizerRecursive<MatchNumberObject,
                       OneTokenizer<re_and3<MatchString<BoxName_T>, re_star<MatchWSpace>, MatchRectangle>>>;

typedef BoxTokenizer<MediaBox_string> MediaBoxTokenizer;
typedef BoxTokenizer<CropBox_string> CropBoxTokenizer;
typedef BoxTokenizer<BleedBox_string> BleedBoxTokenizer;
typedef BoxTokenizer<TrimBox_string> TrimBoxTokenizer;
typedef BoxTokenizer<ArtBox_string> ArtBoxTokenizer;

}  // namespace PDF_RULES

#endif
