// The combinators, the tokenizers and the PDF rules, including every place
// where the rules are looser than PDF itself.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "yard/pdf_rules.h"

using namespace PDF_RULES;

namespace {

// The hits of a tokenizer over `text`, joined by '|'.
template <typename Tok>
std::string scan(const std::string& text) {
    Tok tok;
    tok.Tokenize(text.data(), text.data() + text.size());
    std::string out;
    for (const yard::Token& t : tok) out += (out.empty() ? "" : "|") + t.str();
    return out;
}

template <typename Rule>
std::string all(const std::string& text) {
    return scan<Tokenizer<Rule>>(text);
}

// The first hit of a rule anywhere in `text`, or "<none>".
template <typename Rule>
std::string first(const std::string& text) {
    const std::string hit = scan<OneTokenizer<Rule>>(text);
    return hit.empty() ? std::string("<none>") : hit;
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

struct ab_string { static constexpr const char* text = "ab"; };

// A rule applied one way, and its inputs with the expected results.
struct RuleCase {
    std::string (*apply)(const std::string&);
    const char* rule;
    std::vector<std::pair<std::string, std::string>> cases;
};

#define AT(...) &at<__VA_ARGS__>, "at " #__VA_ARGS__
#define FIRST(...) &first<__VA_ARGS__>, "first " #__VA_ARGS__
#define ALL(...) &all<__VA_ARGS__>, "all " #__VA_ARGS__
#define SCAN(...) &scan<__VA_ARGS__>, #__VA_ARGS__

const std::string kWs("\0\t\n\f\r ", 6);  // the six white-space bytes

const RuleCase kRuleCases[] = {
    // Sequences restore the cursor on failure.
    {AT(MatchString<ab_string>), {{"abc", "ab"}, {"ax", "<fail>"}, {"a", "<fail>"}}},
    {AT(re_and<MatchChar<'a'>, MatchChar<'b'>>), {{"ac", "<fail>"}}},
    {AT(re_and3<MatchChar<'a'>, MatchChar<'b'>, MatchChar<'c'>>), {{"abd", "<fail>"}, {"abcd", "abc"}}},
    {AT(MatchCharRange<'0', '9'>), {{"7", "7"}, {"a", "<fail>"}}},
    // Repetition; a rule that matches without consuming cannot make re_star spin.
    {AT(re_star<MatchChar<'a'>>), {{"aaab", "aaa"}, {"b", ""}}},
    {AT(re_plus<MatchChar<'a'>>), {{"b", "<fail>"}, {"aab", "aa"}}},
    {AT(re_repeat<MatchChar<'a'>, 2>), {{"aaa", "aa"}}},
    {AT(re_repeat<MatchChar<'a'>, 3>), {{"aab", "<fail>"}}},
    {AT(re_star<re_true>), {{"abc", ""}}},
    // re_until consumes up to and including its first match.
    {AT(re_until<MatchChar<']'>>), {{"ab]c]", "ab]"}, {"abc", "<fail>"}, {"", "<fail>"}}},

    // OneTokenizer takes the first hit only; Tokenizer goes on behind each hit.
    {SCAN(OneTokenizer<MatchNameObject>), {{"1 /A /B", "/A"}, {"1 2 3", ""}}},
    {ALL(MatchNameObject), {{"/Type/Page /Kids[/A]", "/Type|/Page|/Kids|/A"}}},
    {ALL(MatchIndirectObject), {{"1 0 R 2 0 R", "1 0 R|2 0 R"}}},
    {ALL(MatchNumberObject), {{"3.14.15", "3.14|15"}}},
    {ALL(MatchArrayObject), {{"[1] x [2]", "[1]|[2]"}}},
    // Box tokenizers keep only the numbers of the first box entry's array.
    {SCAN(MediaBoxTokenizer), {{"<< /MediaBox [0 0 612.5 792] /CropBox [1 2 3 4] >>", "0|0|612.5|792"}}},
    {SCAN(CropBoxTokenizer), {{"/CropBox[1 2 3 4]", "1|2|3|4"}}},
    {SCAN(BleedBoxTokenizer), {{"/BleedBox\n[ 5 6 7 8 ]", "5|6|7|8"}}},
    {SCAN(TrimBoxTokenizer), {{"/TrimBox [9 9 9 9]", "9|9|9|9"}}},
    {SCAN(ArtBoxTokenizer), {{"/ArtBox [1 1 2 2]", "1|1|2|2"}}},
    {SCAN(MediaBoxTokenizer), {{"/MediaBox [1] /MediaBox [2]", "1"}, {"/MediaBox 3 0 R", ""}}},
    // A number without a digit before its point loses the point.
    {SCAN(MediaBoxTokenizer), {{"/MediaBox [-.5 0 1. 2]", "5|0|1.|2"}}},

    // Delimiters are tested without consuming anything.
    {AT(MatchDelimerCharacter), {{"a", "<fail>"}, {"", "<fail>"}}},
    // Integers and numbers: a digit must stand before the point.
    {AT(MatchInteger), {{"+12x", "+12"}, {"-3", "-3"}, {"-", "<fail>"}, {"1.5", "1"}}},
    {AT(MatchNumberObject), {{"-1.25 ", "-1.25"}, {"+7", "+7"}, {"12..3", "12."}, {"-.5", "<fail>"},
        {".5", "<fail>"}}},
    {FIRST(MatchNumberObject), {{"-.5", "5"}, {"x+.25", "25"}}},
    // A trailing point is kept only when something follows it.
    {FIRST(MatchNumberObject), {{"1.", "1"}, {"1. ", "1."}, {"-1.", "-1"}, {"1.5", "1.5"}}},
    // Booleans and null are found inside words.
    {FIRST(MatchBooleanObject), {{"/Untrue", "true"}, {"falsehood", "false"}, {"tru fals", "<none>"}}},
    {FIRST(MatchString<null_string>), {{"/nullify", "null"}}},
    {FIRST(MatchNullObject), {{"nul", "<none>"}}},

    // Names end at a delimiter, white space or the end; an empty name never matches.
    {AT(MatchNameObject), {{"/Type/Page", "/Type"}, {"/A%comment", "/A"}, {"/A#20B c", "/A#20B"}, {"/1.5", "/1.5"},
        {"/A{", "/A"}, {"/A", "/A"}, {"/", "<fail>"}, {"/ A", "<fail>"}, {"/(", "<fail>"},
        {std::string("/\0A", 3), "<fail>"}}},
    {FIRST(MatchNameObject), {{"//A", "/A"}}},

    // Literal strings nest their own brackets.
    {AT(MatchStringObject), {{"(a(b)c) x", "(a(b)c)"}, {"()", "()"}, {"(a[b>>)", "(a[b>>)"}, {"(abc", "<fail>"},
        {"(", "<fail>"}}},
    // An escaped bracket looks at one byte before it only: "\\)" does not close,
    // "\(" opens no level, and at the start of the range there is no byte before.
    {AT(MatchStringObject), {{"(a\\)b)", "(a\\)b)"}, {"(a\\\\)b)", "(a\\\\)b)"}, {"(a\\(b)c)", "(a\\(b)"}}},
    {FIRST(MatchStringObject), {{"\\(a)", "<none>"}}},
    // Hexadecimal strings; the literal form failed at "(" and the hex one is found later.
    {AT(MatchStringObject), {{"<41aF>", "<41aF>"}, {"<414>", "<414>"}, {"<>", "<>"}, {"<4 1>", "<fail>"},
        {"<4g>", "<fail>"}, {"<<41>>", "<fail>"}}},
    {FIRST(MatchStringObject), {{"(abc <41>", "<41>"}}},

    // Arrays and dictionaries nest; an opener at the end fails.
    {AT(MatchArrayObject), {{"[1 [2 [3]] 4] 5", "[1 [2 [3]] 4]"}, {"[[a][b]]", "[[a][b]]"}, {"[]", "[]"}}},
    {AT(MatchDictionaryObject), {{"<< /A << /B 1 >> /C 2 >>x", "<< /A << /B 1 >> /C 2 >>"}, {"<<>>", "<<>>"}}},
    {AT(MatchArrayObject), {{"[", "<fail>"}, {"[ a", "<fail>"}, {"", "<fail>"}}},
    {AT(MatchDictionaryObject), {{"<<", "<fail>"}, {"<", "<fail>"}}},
    // Only the own bracket pair is counted.
    {FIRST(MatchDictionaryObject), {{"<< /A (>>) >>", "<< /A (>>"}}},
    {FIRST(MatchArrayObject), {{"[ (]) ]", "[ (]"}, {"[<< ] >>]", "[<< ]"}}},
    {FIRST(MatchStringObject), {{"(a]b)", "(a]b)"}}},
    // The hex string's ">" and the dictionary's ">" make the first ">>".
    {FIRST(MatchDictionaryObject), {{"<</A<41>>>", "<</A<41>>"}}},
    // An unterminated outer construct closes on its inner one.
    {FIRST(MatchArrayObject), {{"[ [a] ", "[ [a]"}}},
    {FIRST(MatchDictionaryObject), {{"<< /A << /B 1 >> ", "<< /A << /B 1 >>"}}},
    {FIRST(MatchStringObject), {{"(a (b) c", "(a (b)"}}},
    {FIRST(MatchArrayObject), {{"[D[D][];", "[D[D][]"}}},

    // References; nothing is required behind R, and a hit may start inside a name.
    {AT(MatchIndirectObject), {{"12 0 R", "12 0 R"}, {"1  0\nR", "1  0\nR"}, {"-1 +0 R", "-1 +0 R"},
        {"1 0R", "<fail>"}, {"1 0 obj", "<fail>"}, {"1.0 0 R", "<fail>"}, {"1 0 Rx", "1 0 R"}}},
    {FIRST(MatchIndirectObject), {{"/A1 0 R", "1 0 R"}}},
    // The stream begin: ">>", any white space, "stream"; from the ">" of the pair followed by it.
    {FIRST(MatchStreamBegin), {{"<< /L 1 >>" + kWs + "stream\nxyz", ">>" + kWs + "stream"},
        {">>stream", ">>stream"}, {">>x stream", "<none>"}, {">>\vstream", "<none>"}, {">> strea", "<none>"},
        {">>>stream", ">>stream"}}},
    // A rectangle's content is not examined.
    {AT(MatchRectangle), {{"[ a b (c ]", "[ a b (c ]"}, {"[]", "[]"}, {"[1 [2] 3]", "[1 [2]"}, {"[", "<fail>"},
        {"[  ", "<fail>"}}},
    // /Length needs white space ("/Length1" of a font file is no /Length).
    {FIRST(MatchLengthEntry), {{"<< /Length 12 >>", "/Length 12"}, {"/Length\n5 0 R/F", "/Length\n5 0 R"},
        {"/Length12", "<none>"}, {"/Length /X", "<none>"}, {"/Length1 300 /Length 7", "/Length 7"}}},
    // /Filter needs none; a reference is tried before a name.
    {FIRST(MatchFilterEntry), {{"<</Filter/FlateDecode>>", "/Filter/FlateDecode"},
        {"/Filter [/AHx /Fl] ", "/Filter [/AHx /Fl]"}, {"/Filter 4 0 R", "/Filter 4 0 R"},
        {"/Filter 4 /X", "<none>"}, {"/Filter (x)", "<none>"}}},
};

}  // namespace

TEST(Rules, Table) {
    for (const RuleCase& r : kRuleCases)
        for (const auto& c : r.cases) EXPECT_EQ(r.apply(c.first), c.second) << r.rule << " on \"" << c.first << "\"";
    // White space is exactly six bytes: not backspace, bell or vertical tab.
    for (char c : kWs) EXPECT_EQ(at<MatchWSpace>(std::string(1, c)).size(), 1u);
    for (char c : std::string("\a\b\va")) EXPECT_EQ(at<MatchWSpace>(std::string(1, c)), "<fail>");
    for (char c : std::string("%()/<>[]{}")) EXPECT_EQ(at<MatchDelimerCharacter>(std::string(1, c)), "");
}

TEST(ParserInputStream, CursorOperationsAndTokenizerRanges) {
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
    // A tokenizer over empty, null and reversed ranges finds nothing, and appends.
    Tokenizer<MatchNameObject> tok;
    tok.Tokenize(nullptr, nullptr);
    EXPECT_TRUE(tok.empty());
    const char* a = "/A";
    tok.Tokenize(a + 2, a);  // reversed range
    EXPECT_TRUE(tok.empty());
    tok.Tokenize(a, a + 2);
    tok.Tokenize(a, a + 2);  // appends
    EXPECT_EQ(tok.size(), 2u);
}

TEST(Rules, UnbalancedOpenersAndNestingDepth) {
    // Every start byte retries the openers that never close; without
    // remembering the failed places that costs time exponential in their nesting.
    std::string text;
    for (int i = 0; i < 40; ++i) text += "[D[D][];[J[][J[][[D]D;";
    Tokenizer<MatchArrayObject> hits;
    hits.Tokenize(text.data(), text.data() + text.size());
    ASSERT_FALSE(hits.empty());
    for (const yard::Token& h : hits) EXPECT_TRUE(h.str().front() == '[' && h.str().back() == ']') << h.str();
    const std::string ok = std::string(200, '[') + std::string(200, ']');
    EXPECT_EQ(at<MatchArrayObject>(ok), ok);
    // Deeper text fails at every start byte whose construct would nest past the
    // bound; the first start within it gives the hit. No stack overflow.
    const int deep = 3000;
    const std::string hostile = std::string(deep, '[') + std::string(deep, ']');
    EXPECT_EQ(at<MatchArrayObject>(hostile), "<fail>");
    const std::size_t bound = re_NestRule<MatchChar<'['>, MatchChar<']'>>::kMaxNestDepth;
    EXPECT_EQ(first<MatchArrayObject>(hostile), std::string(bound, '[') + std::string(bound, ']'));
    EXPECT_EQ(first<MatchStringObject>(std::string(deep, '(')), "<none>");
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
