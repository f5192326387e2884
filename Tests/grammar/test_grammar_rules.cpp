// The combinators, the tokenizers and the PDF rules, including every place
// where the rules are looser than PDF itself.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "yard/pdf_rules.h"

using namespace PDF_RULES;

namespace {

// Texts of all hits of a tokenizer over `text`.
template <typename Tok>
std::vector<std::string> scan(const std::string& text) {
    Tok tok;
    tok.Tokenize(text.data(), text.data() + text.size());
    std::vector<std::string> out;
    for (const yard::Token& t : tok) out.push_back(t.str());
    return out;
}

template <typename Rule>
std::vector<std::string> all(const std::string& text) {
    return scan<Tokenizer<Rule>>(text);
}

// The first hit of a rule, or "<none>".
template <typename Rule>
std::string first(const std::string& text) {
    std::vector<std::string> hits = scan<OneTokenizer<Rule>>(text);
    return hits.empty() ? std::string("<none>") : hits.front();
}

// Applies a rule at the start of `text`: the matched text, or "<fail>" (and
// then the cursor must be back at the start).
template <typename Rule>
std::string at(const std::string& text) {
    TextStream s(text.data(), text.data() + text.size());
    if (!yard::match<Rule>::op(s)) {
        EXPECT_EQ(s.GetPos(), text.data()) << "cursor not restored for \"" << text << "\"";
        return "<fail>";
    }
    return std::string(text.data(), s.GetPos());
}

typedef std::vector<std::string> V;

struct ab_string { static constexpr const char* text = "ab"; };

}  // namespace

// ---- input stream and combinators -----------------------------------------

TEST(ParserInputStream, CursorOperations) {
    const std::string t = "xy";
    TextStream s(t.data(), t.data() + t.size());
    EXPECT_FALSE(s.AtEnd());
    EXPECT_EQ(s.GetElem(), 'x');
    EXPECT_FALSE(s.AdvancePast('y'));
    EXPECT_EQ(s.GetPos(), t.data());
    EXPECT_TRUE(s.AdvancePast('x'));
    s.GotoNext();
    EXPECT_TRUE(s.AtEnd());
    EXPECT_FALSE(s.AdvancePast('y'));  // at end: no read past the buffer
    s.SetPos(t.data());
    EXPECT_EQ(s.GetElem(), 'x');
}

TEST(Combinators, SequencesRestoreOnFailure) {
    EXPECT_EQ(at<MatchString<ab_string>>("abc"), "ab");
    EXPECT_EQ(at<MatchString<ab_string>>("ax"), "<fail>");
    EXPECT_EQ(at<MatchString<ab_string>>("a"), "<fail>");
    EXPECT_EQ((at<re_and<MatchChar<'a'>, MatchChar<'b'>>>("ac")), "<fail>");
    EXPECT_EQ((at<re_and3<MatchChar<'a'>, MatchChar<'b'>, MatchChar<'c'>>>("abd")), "<fail>");
    EXPECT_EQ((at<re_and3<MatchChar<'a'>, MatchChar<'b'>, MatchChar<'c'>>>("abcd")), "abc");
    EXPECT_EQ((at<MatchCharRange<'0', '9'>>("7")), "7");
    EXPECT_EQ((at<MatchCharRange<'0', '9'>>("a")), "<fail>");
}

TEST(Combinators, Repetition) {
    EXPECT_EQ(at<re_star<MatchChar<'a'>>>("aaab"), "aaa");
    EXPECT_EQ(at<re_star<MatchChar<'a'>>>("b"), "");
    EXPECT_EQ(at<re_plus<MatchChar<'a'>>>("b"), "<fail>");
    EXPECT_EQ(at<re_plus<MatchChar<'a'>>>("aab"), "aa");
    EXPECT_EQ((at<re_repeat<MatchChar<'a'>, 2>>("aaa")), "aa");
    EXPECT_EQ((at<re_repeat<MatchChar<'a'>, 3>>("aab")), "<fail>");
    // A rule that matches without consuming cannot make re_star spin.
    EXPECT_EQ(at<re_star<re_true>>("abc"), "");
}

TEST(Combinators, UntilConsumesFirstMatch) {
    EXPECT_EQ(at<re_until<MatchChar<']'>>>("ab]c]"), "ab]");
    EXPECT_EQ(at<re_until<MatchChar<']'>>>("abc"), "<fail>");
    EXPECT_EQ(at<re_until<MatchChar<']'>>>(""), "<fail>");
}

// ---- tokenizers --------------------------------------------------------------

TEST(Tokenizers, OneTokenizerTakesFirstHitOnly) {
    EXPECT_EQ(scan<OneTokenizer<MatchNameObject>>("1 /A /B"), V({"/A"}));
    EXPECT_TRUE(scan<OneTokenizer<MatchNameObject>>("1 2 3").empty());
}

TEST(Tokenizers, TokenizerFindsNonOverlappingHitsInOrder) {
    EXPECT_EQ(all<MatchNameObject>("/Type/Page /Kids[/A]"), V({"/Type", "/Page", "/Kids", "/A"}));
    // Behind a hit the scan goes on from its end: "1 0 R" is not also read as "0 ...".
    EXPECT_EQ(all<MatchIndirectObject>("1 0 R 2 0 R"), V({"1 0 R", "2 0 R"}));
    EXPECT_EQ(all<MatchNumberObject>("3.14.15"), V({"3.14", "15"}));
}

TEST(Tokenizers, EmptyAndNullRanges) {
    Tokenizer<MatchNameObject> t;
    t.Tokenize(nullptr, nullptr);
    EXPECT_TRUE(t.empty());
    const char* s = "/A";
    t.Tokenize(s + 2, s);  // reversed range
    EXPECT_TRUE(t.empty());
    t.Tokenize(s, s + 2);
    t.Tokenize(s, s + 2);  // appends
    EXPECT_EQ(t.size(), 2u);
}

TEST(Tokenizers, RecursiveKeepsOnlyInnerTokens) {
    EXPECT_EQ(scan<MediaBoxTokenizer>("<< /MediaBox [0 0 612.5 792] /CropBox [1 2 3 4] >>"),
              V({"0", "0", "612.5", "792"}));
    EXPECT_EQ(scan<CropBoxTokenizer>("/CropBox[1 2 3 4]"), V({"1", "2", "3", "4"}));
    EXPECT_EQ(scan<BleedBoxTokenizer>("/BleedBox\n[ 5 6 7 8 ]"), V({"5", "6", "7", "8"}));
    EXPECT_EQ(scan<TrimBoxTokenizer>("/TrimBox [9 9 9 9]"), V({"9", "9", "9", "9"}));
    EXPECT_EQ(scan<ArtBoxTokenizer>("/ArtBox [1 1 2 2]"), V({"1", "1", "2", "2"}));
    // Only the first box entry counts (the outer tokenizer is a OneTokenizer).
    EXPECT_EQ(scan<MediaBoxTokenizer>("/MediaBox [1] /MediaBox [2]"), V({"1"}));
}

TEST(Tokenizers, BoxNeedsAnArrayNotAReference) {
    EXPECT_TRUE(scan<MediaBoxTokenizer>("/MediaBox 3 0 R").empty());
    // A number without a digit before its point loses the point.
    EXPECT_EQ(scan<MediaBoxTokenizer>("/MediaBox [-.5 0 1. 2]"), V({"5", "0", "1.", "2"}));
}

// ---- white space, delimiters, numbers ----------------------------------------

TEST(Rules, WhiteSpaceIsExactlySixBytes) {
    for (char c : std::string("\0\t\n\f\r ", 6)) EXPECT_EQ(at<MatchWSpace>(std::string(1, c)).size(), 1u);
    // Backspace, bell and vertical tab are not white space for the grammar.
    for (char c : std::string("\a\b\va")) EXPECT_EQ(at<MatchWSpace>(std::string(1, c)), "<fail>");
}

TEST(Rules, DelimiterTestConsumesNothing) {
    for (char c : std::string("%()/<>[]{}")) EXPECT_EQ(at<MatchDelimerCharacter>(std::string(1, c)), "");
    EXPECT_EQ(at<MatchDelimerCharacter>("a"), "<fail>");
    EXPECT_EQ(at<MatchDelimerCharacter>(""), "<fail>");
}

TEST(Rules, Integers) {
    EXPECT_EQ(at<MatchInteger>("+12x"), "+12");
    EXPECT_EQ(at<MatchInteger>("-3"), "-3");
    EXPECT_EQ(at<MatchInteger>("-"), "<fail>");
    EXPECT_EQ(at<MatchInteger>("1.5"), "1");
}

TEST(Rules, NumbersNeedADigitBeforeThePoint) {
    EXPECT_EQ(at<MatchNumberObject>("-1.25 "), "-1.25");
    EXPECT_EQ(at<MatchNumberObject>("+7"), "+7");
    EXPECT_EQ(at<MatchNumberObject>("12..3"), "12.");
    EXPECT_EQ(at<MatchNumberObject>("-.5"), "<fail>");
    EXPECT_EQ(at<MatchNumberObject>(".5"), "<fail>");
    EXPECT_EQ(first<MatchNumberObject>("-.5"), "5");
    EXPECT_EQ(first<MatchNumberObject>("x+.25"), "25");
}

TEST(Rules, TrailingPointKeptOnlyWhenSomethingFollows) {
    EXPECT_EQ(first<MatchNumberObject>("1."), "1");
    EXPECT_EQ(first<MatchNumberObject>("1. "), "1.");
    EXPECT_EQ(first<MatchNumberObject>("-1."), "-1");
    EXPECT_EQ(first<MatchNumberObject>("1.5"), "1.5");
}

TEST(Rules, BooleanAndNullAreFoundInsideWords) {
    EXPECT_EQ(first<MatchBooleanObject>("/Untrue"), "true");
    EXPECT_EQ(first<MatchBooleanObject>("falsehood"), "false");
    EXPECT_EQ(first<MatchBooleanObject>("tru fals"), "<none>");
    EXPECT_EQ(first<MatchString<null_string>>("/nullify"), "null");
    EXPECT_EQ(first<MatchNullObject>("nul"), "<none>");
}

// ---- names --------------------------------------------------------------------

TEST(Rules, NamesEndAtDelimiterWhiteSpaceOrEnd) {
    EXPECT_EQ(at<MatchNameObject>("/Type/Page"), "/Type");
    EXPECT_EQ(at<MatchNameObject>("/A%comment"), "/A");
    EXPECT_EQ(at<MatchNameObject>("/A#20B c"), "/A#20B");
    EXPECT_EQ(at<MatchNameObject>("/1.5"), "/1.5");
    EXPECT_EQ(at<MatchNameObject>("/A{"), "/A");
    EXPECT_EQ(at<MatchNameObject>("/A"), "/A");
}

TEST(Rules, EmptyNameIsNeverMatched) {
    EXPECT_EQ(at<MatchNameObject>("/"), "<fail>");
    EXPECT_EQ(at<MatchNameObject>("/ A"), "<fail>");
    EXPECT_EQ(at<MatchNameObject>("/("), "<fail>");
    EXPECT_EQ(at<MatchNameObject>(std::string("/\0A", 3)), "<fail>");
    EXPECT_EQ(first<MatchNameObject>("//A"), "/A");
}

// ---- strings ------------------------------------------------------------------

TEST(Rules, LiteralStringsNestTheirOwnBrackets) {
    EXPECT_EQ(at<MatchStringObject>("(a(b)c) x"), "(a(b)c)");
    EXPECT_EQ(at<MatchStringObject>("()"), "()");
    EXPECT_EQ(at<MatchStringObject>("(a[b>>)"), "(a[b>>)");
    EXPECT_EQ(at<MatchStringObject>("(abc"), "<fail>");
    EXPECT_EQ(at<MatchStringObject>("("), "<fail>");
}

TEST(Rules, EscapedBracketLooksAtOneByteOnly) {
    EXPECT_EQ(at<MatchStringObject>("(a\\)b)"), "(a\\)b)");
    // No count of backslashes: "\\)" does not close either.
    EXPECT_EQ(at<MatchStringObject>("(a\\\\)b)"), "(a\\\\)b)");
    // "\(" opens no level, so the first ")" closes the string.
    EXPECT_EQ(at<MatchStringObject>("(a\\(b)c)"), "(a\\(b)");
    // At the start of the range there is no byte before "(".
    EXPECT_EQ(first<MatchStringObject>("\\(a)"), "<none>");
}

TEST(Rules, HexStrings) {
    EXPECT_EQ(at<MatchStringObject>("<41aF>"), "<41aF>");
    EXPECT_EQ(at<MatchStringObject>("<414>"), "<414>");
    EXPECT_EQ(at<MatchStringObject>("<>"), "<>");
    EXPECT_EQ(at<MatchStringObject>("<4 1>"), "<fail>");
    EXPECT_EQ(at<MatchStringObject>("<4g>"), "<fail>");
    EXPECT_EQ(at<MatchStringObject>("<<41>>"), "<fail>");
    // The literal form failed at "(", the hexadecimal one is found later.
    EXPECT_EQ(first<MatchStringObject>("(abc <41>"), "<41>");
}

// ---- arrays and dictionaries ----------------------------------------------------

TEST(Rules, BalancedNesting) {
    EXPECT_EQ(at<MatchArrayObject>("[1 [2 [3]] 4] 5"), "[1 [2 [3]] 4]");
    EXPECT_EQ(at<MatchArrayObject>("[[a][b]]"), "[[a][b]]");
    EXPECT_EQ(at<MatchArrayObject>("[]"), "[]");
    EXPECT_EQ(at<MatchDictionaryObject>("<< /A << /B 1 >> /C 2 >>x"), "<< /A << /B 1 >> /C 2 >>");
    EXPECT_EQ(at<MatchDictionaryObject>("<<>>"), "<<>>");
    EXPECT_EQ(all<MatchArrayObject>("[1] x [2]"), V({"[1]", "[2]"}));
}

TEST(Rules, OpeningBracketAtEndFails) {
    EXPECT_EQ(at<MatchArrayObject>("["), "<fail>");
    EXPECT_EQ(at<MatchDictionaryObject>("<<"), "<fail>");
    EXPECT_EQ(at<MatchArrayObject>("[ a"), "<fail>");
    EXPECT_EQ(at<MatchArrayObject>(""), "<fail>");
    EXPECT_EQ(at<MatchDictionaryObject>("<"), "<fail>");
}

TEST(Rules, OnlyTheOwnBracketPairIsCounted) {
    EXPECT_EQ(first<MatchDictionaryObject>("<< /A (>>) >>"), "<< /A (>>");
    EXPECT_EQ(first<MatchArrayObject>("[ (]) ]"), "[ (]");
    EXPECT_EQ(first<MatchArrayObject>("[<< ] >>]"), "[<< ]");
    EXPECT_EQ(first<MatchStringObject>("(a]b)"), "(a]b)");
}

TEST(Rules, DictionaryClosesOnFirstDoubleBracket) {
    // The hex string's ">" and the dictionary's ">" make the first ">>".
    EXPECT_EQ(first<MatchDictionaryObject>("<</A<41>>>"), "<</A<41>>");
}

TEST(Rules, UnterminatedOuterClosesOnInner) {
    EXPECT_EQ(first<MatchArrayObject>("[ [a] "), "[ [a]");
    EXPECT_EQ(first<MatchDictionaryObject>("<< /A << /B 1 >> "), "<< /A << /B 1 >>");
    EXPECT_EQ(first<MatchStringObject>("(a (b) c"), "(a (b)");
}

TEST(Rules, UnbalancedOpenersAreMatchedOnceEach) {
    // Openers that never close, between pairs that do: every start byte
    // retries them, which without remembering the failed places costs time
    // exponential in their nesting (a 309-byte input took seconds).
    std::string text;
    for (int i = 0; i < 40; ++i) text += "[D[D][];[J[][J[][[D]D;";
    const std::vector<std::string> hits = all<MatchArrayObject>(text);
    ASSERT_FALSE(hits.empty());
    for (const std::string& h : hits) EXPECT_TRUE(h.front() == '[' && h.back() == ']') << h;
    EXPECT_EQ(first<MatchArrayObject>("[D[D][];"), "[D[D][]");
}

TEST(Rules, NestingDepthIsBounded) {
    // Within the bound the match is exact.
    const std::string ok = std::string(200, '[') + std::string(200, ']');
    EXPECT_EQ(at<MatchArrayObject>(ok), ok);

    // Deeper text fails at every start byte whose construct would nest past the
    // bound; the first start within it gives the hit. No stack overflow.
    const int deep = 3000;
    const std::string hostile = std::string(deep, '[') + std::string(deep, ']');
    EXPECT_EQ(at<MatchArrayObject>(hostile), "<fail>");
    std::string hit = first<MatchArrayObject>(hostile);
    const std::size_t bound = re_NestRule<MatchChar<'['>, MatchChar<']'>>::kMaxNestDepth;
    EXPECT_EQ(hit, std::string(bound, '[') + std::string(bound, ']'));

    // The same bound for strings and dictionaries, and with nothing closing.
    const std::string parens(deep, '(');
    EXPECT_EQ(first<MatchStringObject>(parens), "<none>");
    std::string dicts;
    for (int i = 0; i < deep; ++i) dicts += "<<";
    EXPECT_EQ(first<MatchDictionaryObject>(dicts), "<none>");

    // The stream is left clean: a later match from the same stream works.
    TextStream s(hostile.data(), hostile.data() + hostile.size());
    EXPECT_FALSE(MatchArrayObject::Accept(s));
    EXPECT_EQ(s.NestDepth(), 0);
    EXPECT_FALSE(s.NestOverflow());
    s.SetPos(hostile.data() + deep - 1);
    EXPECT_EQ(s.GetElem(), '[');
    EXPECT_TRUE(MatchArrayObject::Accept(s));
    EXPECT_EQ(s.GetPos(), hostile.data() + deep + 1);
}

// ---- references, stream begin, rectangles, entries ------------------------------

TEST(Rules, References) {
    EXPECT_EQ(at<MatchIndirectObject>("12 0 R"), "12 0 R");
    EXPECT_EQ(at<MatchIndirectObject>("1  0\nR"), "1  0\nR");
    EXPECT_EQ(at<MatchIndirectObject>("-1 +0 R"), "-1 +0 R");
    EXPECT_EQ(at<MatchIndirectObject>("1 0R"), "<fail>");
    EXPECT_EQ(at<MatchIndirectObject>("1 0 obj"), "<fail>");
    EXPECT_EQ(at<MatchIndirectObject>("1.0 0 R"), "<fail>");
    // Nothing is required behind R.
    EXPECT_EQ(at<MatchIndirectObject>("1 0 Rx"), "1 0 R");
    // A hit from inside a name.
    EXPECT_EQ(first<MatchIndirectObject>("/A1 0 R"), "1 0 R");
}

TEST(Rules, StreamBeginAfterAnyWhiteSpace) {
    const std::string ws("\0\t\n\f\r ", 6);
    EXPECT_EQ(first<MatchStreamBegin>("<< /L 1 >>" + ws + "stream\nxyz"), ">>" + ws + "stream");
    EXPECT_EQ(first<MatchStreamBegin>(">>stream"), ">>stream");
    EXPECT_EQ(first<MatchStreamBegin>(">>x stream"), "<none>");
    EXPECT_EQ(first<MatchStreamBegin>(">>\vstream"), "<none>");
    EXPECT_EQ(first<MatchStreamBegin>(">> strea"), "<none>");
    // The token starts at the first ">" of the pair that is followed by "stream".
    EXPECT_EQ(first<MatchStreamBegin>(">>>stream"), ">>stream");
}

TEST(Rules, RectangleContentIsNotExamined) {
    EXPECT_EQ(at<MatchRectangle>("[ a b (c ]"), "[ a b (c ]");
    EXPECT_EQ(at<MatchRectangle>("[]"), "[]");
    EXPECT_EQ(at<MatchRectangle>("[1 [2] 3]"), "[1 [2]");
    EXPECT_EQ(at<MatchRectangle>("["), "<fail>");
    EXPECT_EQ(at<MatchRectangle>("[  "), "<fail>");
}

TEST(Rules, LengthEntryNeedsWhiteSpace) {
    EXPECT_EQ(first<MatchLengthEntry>("<< /Length 12 >>"), "/Length 12");
    EXPECT_EQ(first<MatchLengthEntry>("/Length\n5 0 R/F"), "/Length\n5 0 R");
    EXPECT_EQ(first<MatchLengthEntry>("/Length12"), "<none>");
    EXPECT_EQ(first<MatchLengthEntry>("/Length /X"), "<none>");
    // "/Length1" of a font file: "/Length" then "1" is no white space.
    EXPECT_EQ(first<MatchLengthEntry>("/Length1 300 /Length 7"), "/Length 7");
}

TEST(Rules, FilterEntryWhiteSpaceOptional) {
    EXPECT_EQ(first<MatchFilterEntry>("<</Filter/FlateDecode>>"), "/Filter/FlateDecode");
    EXPECT_EQ(first<MatchFilterEntry>("/Filter [/AHx /Fl] "), "/Filter [/AHx /Fl]");
    EXPECT_EQ(first<MatchFilterEntry>("/Filter 4 0 R"), "/Filter 4 0 R");
    // Tried in order: a reference before a name.
    EXPECT_EQ(first<MatchFilterEntry>("/Filter 4 /X"), "<none>");
    EXPECT_EQ(first<MatchFilterEntry>("/Filter (x)"), "<none>");
}
