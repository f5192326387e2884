// Memory blocks, argument checking, and the byte-oriented filters: ASCIIHex,
// ASCII85 and RunLength.
#include <gtest/gtest.h>

#include <cstdlib>

#include "filter_test_util.h"

using namespace filtertest;
using namespace ZQGraphicService_NS;
using namespace std::string_literals;

TEST(FilterMemBlock, InitClearAndOwnership) {
    FilterMemBlock b;
    std::memset(&b, 0xAB, sizeof b);
    Zq_MemInit(&b);
    EXPECT_EQ(b.capacity, 0);
    EXPECT_EQ(b.length, 0);
    EXPECT_EQ(b.data, nullptr);
    EXPECT_EQ(b.reserved24, 0);

    // Library-owned output: freed by the first clear (ASan reports a leak
    // otherwise), and a second clear is harmless.
    Bytes in = bytes("48656C6C6F>");
    FilterMemBlock src = inputBlock(in);
    FilterPropTD p = props(FILTER_ASCIIHEX);
    ASSERT_EQ(Zq_InflateStream(&src, &b, &p), ZQ_OK);
    EXPECT_EQ(blockText(b), "Hello");
    EXPECT_GE(b.capacity, b.length);
    EXPECT_NE(b.reserved24, 0);
    Zq_MemClear(&b);
    EXPECT_EQ(b.data, nullptr);
    EXPECT_EQ(b.length, 0);
    Zq_MemClear(&b);
    Zq_MemClear(nullptr);
    Zq_MemInit(nullptr);

    // Caller memory (stack and malloc) is never freed: ASan would flag a free
    // of the stack array, and the malloc'd block is freed here exactly once.
    unsigned char stackBuf[16] = {1, 2, 3};
    unsigned char* heap = static_cast<unsigned char*>(std::malloc(8));
    for (unsigned char* data : {stackBuf, heap}) {
        FilterMemBlock caller{};
        caller.data = data;
        caller.length = caller.capacity = 3;
        Zq_MemClear(&caller);
        EXPECT_EQ(caller.data, nullptr);
    }
    std::free(heap);
}

TEST(FilterMemBlock, ReusedOutputBlocksDoNotLeakAndInPlaceWorks) {
    Bytes in = bytes("41424344>");
    FilterMemBlock src = inputBlock(in), out;
    Zq_MemInit(&out);
    FilterPropTD hex = props(FILTER_ASCIIHEX);
    ASSERT_EQ(Zq_InflateStream(&src, &out, &hex), ZQ_OK);
    ASSERT_EQ(Zq_InflateStream(&src, &out, &hex), ZQ_OK);  // the first result is released
    EXPECT_EQ(blockText(out), "ABCD");

    // Encode then decode within one block, as a stage chain might.
    FilterPropTD a85{};
    a85.type = FILTER_ASCII85;
    ASSERT_EQ(Zq_DeflateStream(&out, &out, &a85, 2), ZQ_OK);
    EXPECT_EQ(blockText(out), "5sdq,~>");
    ASSERT_EQ(Zq_InflateStream(&out, &out, &a85), ZQ_OK);
    EXPECT_EQ(blockText(out), "ABCD");

    // A failing call leaves the output as it was.
    Bytes bad = bytes("4G>");
    FilterMemBlock badSrc = inputBlock(bad);
    EXPECT_EQ(Zq_InflateStream(&badSrc, &out, &hex), ZQ_CORRUPT);
    EXPECT_EQ(blockText(out), "ABCD");
    Zq_MemClear(&out);
}

TEST(FilterArguments, NullsUnknownKindsAndBadBlocks) {
    Bytes in = bytes("00>");
    FilterMemBlock src = inputBlock(in), out;
    Zq_MemInit(&out);
    FilterPropTD p = props(FILTER_ASCIIHEX);
    EXPECT_EQ(Zq_InflateStream(nullptr, &out, &p), ZQ_BAD_ARGUMENT);
    EXPECT_EQ(Zq_InflateStream(&src, nullptr, &p), ZQ_BAD_ARGUMENT);
    EXPECT_EQ(Zq_InflateStream(&src, &out, nullptr), ZQ_BAD_ARGUMENT);
    EXPECT_EQ(Zq_DeflateStream(nullptr, &out, &p, 0), ZQ_BAD_ARGUMENT);
    EXPECT_EQ(Zq_DeflateStream(&src, nullptr, &p, 0), ZQ_BAD_ARGUMENT);
    EXPECT_EQ(Zq_DeflateStream(&src, &out, nullptr, 0), ZQ_BAD_ARGUMENT);
    for (int kind : {-1, 0, 8, 9, 10, 11, 1000}) {
        FilterPropTD k = props(kind);
        EXPECT_EQ(Zq_InflateStream(&src, &out, &k), ZQ_BAD_ARGUMENT) << kind;
    }
    for (int kind : {0, 2, 5, 6, 7, 10, -3}) {
        FilterPropTD k = props(kind);
        EXPECT_EQ(Zq_DeflateStream(&src, &out, &k, 0), ZQ_BAD_ARGUMENT) << kind;
    }
    FilterMemBlock negative = src, nullData{};
    negative.length = -1;
    nullData.length = 4;
    EXPECT_EQ(Zq_InflateStream(&negative, &out, &p), ZQ_BAD_ARGUMENT);
    EXPECT_EQ(Zq_InflateStream(&nullData, &out, &p), ZQ_BAD_ARGUMENT);
    EXPECT_EQ(out.data, nullptr);  // untouched by the failures

    // An empty input with a null pointer is an empty stream, not an error.
    FilterMemBlock empty{};
    for (int kind : {1, 2, 3, 4, 5}) {
        FilterPropTD k = props(kind);
        ASSERT_EQ(Zq_InflateStream(&empty, &out, &k), ZQ_OK) << kind;
        EXPECT_EQ(out.length, 0);
        EXPECT_NE(out.data, nullptr);
        Zq_MemClear(&out);
    }
}

TEST(TextFilters, DecodeRules) {
    const FilterPropTD hex = props(FILTER_ASCIIHEX), a85 = props(FILTER_ASCII85), rl = props(FILTER_RUNLENGTH);
    std::string literal128 = "\x7f";
    for (int i = 0; i < 128; ++i) literal128 += static_cast<char>(i);
    const DecodeCase cases[] = {
        {hex, "48656c6C6f>", ZQ_OK, "Hello"},
        {hex, " 4 8\n65\r\t6c\f6c 6f >ignored", ZQ_OK, "Hello"},
        {hex, "414>", ZQ_OK, "\x41\x40"},
        {hex, "7", ZQ_OK, "\x70"},  // no '>', odd digit
        {hex, ">", ZQ_OK, ""},
        {hex, "41\0" "42"s, ZQ_OK, "AB"},
        {hex, "4G>", ZQ_CORRUPT, ""},
        {hex, "41 x>", ZQ_CORRUPT, ""},
        {hex, "<41>", ZQ_CORRUPT, ""},
        {hex, "41~>", ZQ_CORRUPT, ""},
        {hex, "0x41", ZQ_CORRUPT, ""},
        {a85, "zz!!~>", ZQ_OK, std::string(9, '\0')},
        {a85, " 9jq\no^ \r\nBl bD-~>", ZQ_OK, "Man is d"},
        {a85, "<~9jqo^~>", ZQ_OK, "Man "},
        {a85, "9jqo^", ZQ_OK, "Man "},   // no "~>"
        {a85, "9jqo^~", ZQ_OK, "Man "},  // '~' alone ends
        {a85, "9jqo^v~>", ZQ_CORRUPT, ""},  // 'v' is past 'u'
        {a85, "9j z~>", ZQ_CORRUPT, ""},    // 'z' inside a group
        {a85, "s8W-\"~>", ZQ_CORRUPT, ""},  // group worth 2^32
        {a85, "9jqo^9~>", ZQ_CORRUPT, ""},  // a single final character
        {a85, "9jqo^{~>", ZQ_CORRUPT, ""},
        {a85, "uuuu~>", ZQ_CORRUPT, ""},  // final partial group overflowing
        // literal "ABC", 4 x 'z', EOD, then junk that must be ignored
        {rl, "\x02" "ABC\xfd" "z\x80\0Q"s, ZQ_OK, "ABCzzzz"},
        {rl, "\x81\x07", ZQ_OK, std::string(128, '\x07')},
        {rl, "\xff\x07", ZQ_OK, "\x07\x07"},
        {rl, literal128, ZQ_OK, literal128.substr(1)},
        // No EOD, truncated literal, and a repeat byte that never came.
        {rl, "\x01hi", ZQ_OK, "hi"},
        {rl, "\x05hi", ZQ_OK, "hi"},
        {rl, "\0x\xc8"s, ZQ_OK, "x"},
        {rl, "\x80", ZQ_OK, ""},
    };
    expectDecodes(cases);
}

TEST(TextFilters, EncodingsBothWays) {
    // ASCII85 vectors are the reference encodings of Adobe's btoa variant.
    const struct {
        int type;
        std::string plain, encoded;
    } cases[] = {
        {FILTER_ASCIIHEX, "Hello\x01\xff", "48656C6C6F01FF>"},
        {FILTER_ASCIIHEX, "", ">"},
        {FILTER_ASCII85, "Man is distinguished", "9jqo^BlbD-BleB1DJ+*+F(f,q~>"},
        {FILTER_ASCII85, "M", "9`~>"},
        {FILTER_ASCII85, "Ma", "9jn~>"},
        {FILTER_ASCII85, "Man", "9jqo~>"},
        {FILTER_ASCII85, "Man ", "9jqo^~>"},
        {FILTER_ASCII85, "sure.", "F*2M7/c~>"},
        {FILTER_ASCII85, "easure.", "ARTY&Eb-j~>"},
        {FILTER_ASCII85, std::string(4, '\0'), "z~>"},
        {FILTER_ASCII85, std::string(5, '\0'), "z!!~>"},
        {FILTER_ASCII85, "\0\0\0\0\x01\x02"s, "z!<N~>"},
        {FILTER_ASCII85, "\xff\xff\xff\xff", "s8W-!~>"},
        {FILTER_ASCII85, "", "~>"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(text(encode(bytes(c.plain), c.type).data), c.encoded) << c.encoded;
        EXPECT_EQ(text(decode(bytes(c.encoded), c.type).data), c.plain) << c.encoded;
    }
    // Random data of every tail length, with a 'z' group, and one long run.
    for (int type : {FILTER_ASCIIHEX, FILTER_ASCII85})
        for (std::size_t n = 0; n <= 40; ++n) {
            Bytes data = randomBytes(n == 40 ? 5000 : n, uint32_t(n));
            if (n > 8) std::fill(data.begin() + 4, data.begin() + 8, 0);
            Result e = encode(data, type);
            ASSERT_EQ(e.rc, ZQ_OK);
            Result d = decode(e.data, type);
            ASSERT_EQ(d.rc, ZQ_OK);
            EXPECT_EQ(d.data, data) << type << " " << n;
        }
}
