// Tokens and file blocks: the token reader, the small stream helpers of
// CFileBlock and the name tables.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "pdfkiln_obj.h"

using namespace PDF_KILN;

namespace {

std::vector<std::string> tokens(const std::string& text, std::size_t max) {
    std::istringstream in(text);
    std::vector<std::string> out;
    std::string t;
    while (out.size() < max && in.good()) {
        readPDFString(in, t);
        out.push_back(t);
    }
    return out;
}

std::string nul(const std::string& s) { return s + std::string(1, '\0'); }

}  // namespace

TEST(Tokens, DelimitersNamesPercentAndWhiteSpace) {
    const struct { std::string text; std::vector<std::string> want; } cases[] = {
        // Double angles are one token, a single angle one byte; a token that
        // touches the end of the input carries a zero byte.
        {"<<>> <a >b", {"<<", ">>", "<", "a", ">", nul("b")}},
        // Names split at a slash; a reference is three tokens.
        {"/Name/Other 12 0 R 12R ", {"/Name", "/Other", "12", "0", "R", "12R"}},
        // Delimiters other than the slash are single bytes.
        {"((x)) [] {} / ", {"(", "(", "x", ")", ")", "[", "]", "{", "}", "/"}},
        // Percent is a regular character.
        {"%comment % x", {"%comment", "%", nul("x")}},
        // Bytes 7 and 8 are white space.
        {std::string("a\x07" "b\x08" "c\x00" "d ", 8), {"a", "b", "c", "d"}},
        {"1 0 obj\nendobj", {"1", "0", "obj", nul("endobj")}},
    };
    for (const auto& c : cases) EXPECT_EQ(tokens(c.text, c.want.size()), c.want) << c.text;
    EXPECT_NE(nul("endobj"), kwendobj);
    EXPECT_EQ(tokenArray[7], 1);
    EXPECT_EQ(tokenArray[static_cast<unsigned char>('%')], 0);
    EXPECT_EQ(tokenArray[static_cast<unsigned char>('{')], 2);
    // A token is replaced, not appended; at the end of the input it is one zero byte, again and again.
    std::istringstream in("abc  ");
    std::string t = "previous";
    in >> t;
    EXPECT_EQ(t, "abc");
    readPDFString(in, t);
    EXPECT_EQ(t, nul(""));
    readPDFString(in, t);
    EXPECT_EQ(t, nul(""));
}

TEST(FileBlock, IsNumExtStr2IntAndCharVector) {
    EXPECT_TRUE(CFileBlock::IsNum(""));
    EXPECT_TRUE(CFileBlock::IsNum("0012"));
    for (const char* s : {"-1", "1.5", "+1"}) EXPECT_FALSE(CFileBlock::IsNum(s)) << s;
    // Big-endian; width zero consumes nothing.
    const char buf[] = {'\x01', '\x02', '\x03', '\xFF'};
    int pos = 0, v = -1;
    ExtStr2Int(buf, pos, 0, v);
    EXPECT_EQ(pos, 0);
    EXPECT_EQ(v, 0);
    ExtStr2Int(buf, pos, 3, v);
    EXPECT_EQ(pos, 3);
    EXPECT_EQ(v, 0x010203);
    ExtStr2Int(buf, pos, 1, v);
    EXPECT_EQ(v, 255);
    // Index zero of a charVector always exists.
    charVector cv;
    EXPECT_EQ(cv[0u], '\0');
    EXPECT_EQ(cv.size(), 1u);
    EXPECT_STREQ(CFileError().what(), std::exception().what());
}

TEST(FileBlock, FindStrStopsBehindTheTokenAndThrowsAtEnd) {
    std::istringstream in("a b trailer c");
    EXPECT_TRUE(CFileBlock::FindStr(in, "trailer"));
    std::string t;
    readPDFString(in, t);
    EXPECT_EQ(t, nul("c"));
    EXPECT_THROW(CFileBlock::FindStr(in, "xref"), CFileError);
    std::istringstream none("a b c");
    EXPECT_THROW(CFileBlock::FindStr(none, "zz"), CFileError);
    // FindStrInObj stops at endobj and at the end of the input.
    std::istringstream behind("/A 1 endobj /B 2");
    EXPECT_FALSE(CFileBlock::FindStrInObj(behind, "/B"));
    std::istringstream ok("/A 1 /B 2 endobj");
    EXPECT_TRUE(CFileBlock::FindStrInObj(ok, "/B"));
    std::istringstream empty("");
    empty.get();
    EXPECT_FALSE(CFileBlock::FindStrInObj(empty, "/B"));
}

TEST(FileBlock, SkipCommentIsDictStartAndGetWords) {
    std::istringstream comments("  % one\r% two\n  <<");
    CFileBlock::skipComment(comments);
    EXPECT_EQ(comments.peek(), '<');
    const struct { const char* text; bool dict; char next; } cases[] = {
        {"%c\n<< /A 1 >>", true, '<'}, {" [1 2]", true, '['}, {"<41>", false, '<'}, {"<", false, '<'}};
    for (const auto& c : cases) {
        std::istringstream in(c.text);
        EXPECT_EQ(CFileBlock::isDictStart(in), c.dict) << c.text;
        EXPECT_EQ(in.peek(), c.next) << c.text;
    }
    std::istringstream dict("%c\n<< /A 1 >>");
    CFileBlock::isDictStart(dict);
    std::string t;
    readPDFString(dict, t);
    EXPECT_EQ(t, "<<");
    // GetWords cuts at the first matching delimiter rule.
    const struct { const char* in; const char* word; const char* rest; } words[] = {
        {"  abc<<def x", "abc", "<<def"}, {"ab>>cd x", "ab", ">>cd"}, {"/Type/Page x", "/Type", "/Page"},
        {"12[3] x", "12", "[3]"},         {"12]x y", "12", "]x"},     {"plain more", "plain", "more"},
    };
    for (const auto& c : words) {
        std::istringstream in(c.in);
        std::string w = "old";
        CFileBlock::GetWords(in, w);
        EXPECT_EQ(w, c.word) << c.in;
        in.clear();
        std::string rest;
        char ch = 0;
        in >> std::ws;
        while (in.get(ch) && ch != ' ') rest += ch;
        EXPECT_EQ(rest, c.rest) << c.in;
    }
}

TEST(FileBlock, RedHexStringReadsPairsSkipsLineEndsAndPadsAnOddDigit) {
    std::stringstream out;
    std::istringstream in("41\n42\r4>tail");
    int count = 0;
    EXPECT_TRUE(CFileBlock::RedHexString(out, in, count));
    EXPECT_EQ(count, 3);
    EXPECT_EQ(out.str(), "AB@");
}

TEST(Names, KeptSpellingsAndIrregularNames) {
    const std::pair<const char*, const char*> names[] = {
        {nmASCIIHexDecode, "/ASCIIHexDecod"}, {nmJavaScript, "/JaveScript"}, {nmPubSec, "/Adobe.PubSec"},
        {nmAdbepkcs7s3, "/adbe.pkcs7.s3"},    {nmDecodeParms, "/DecodeParms"}, {nm3DA, "/3DA"},
        {nameTable[0], "/SD"},                {nameTable[255], "/W"},          {kw_EOF_, "%%EOF."}, {kw_r_n, "\r\n"}};
    for (const auto& n : names) EXPECT_STREQ(n.first, n.second);
}
