// Memory blocks, argument checking, and the byte-oriented filters: ASCIIHex,
// ASCII85 and RunLength.
#include <gtest/gtest.h>

#include <cstdlib>

#include "filter_test_util.h"

using namespace filtertest;
using namespace ZQGraphicService_NS;

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
    EXPECT_EQ(std::string(reinterpret_cast<char*>(b.data), b.length), "Hello");
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
    FilterMemBlock caller = inputBlock(Bytes());
    caller.data = stackBuf;
    caller.length = caller.capacity = 3;
    Zq_MemClear(&caller);
    EXPECT_EQ(caller.data, nullptr);
    unsigned char* heap = static_cast<unsigned char*>(std::malloc(8));
    FilterMemBlock caller2{};
    caller2.data = heap;
    caller2.length = caller2.capacity = 8;
    Zq_MemClear(&caller2);
    std::free(heap);
}

TEST(FilterMemBlock, ReusedOutputBlocksDoNotLeakAndInPlaceWorks) {
    Bytes in = bytes("41424344>");
    FilterMemBlock src = inputBlock(in);
    FilterMemBlock out;
    Zq_MemInit(&out);
    FilterPropTD hex = props(FILTER_ASCIIHEX);
    ASSERT_EQ(Zq_InflateStream(&src, &out, &hex), ZQ_OK);
    ASSERT_EQ(Zq_InflateStream(&src, &out, &hex), ZQ_OK);  // the first result is released
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out.data), out.length), "ABCD");

    // Encode then decode within one block, as a stage chain might.
    FilterPropTD a85{};
    a85.type = FILTER_ASCII85;
    ASSERT_EQ(Zq_DeflateStream(&out, &out, &a85, 2), ZQ_OK);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out.data), out.length), "5sdq,~>");
    ASSERT_EQ(Zq_InflateStream(&out, &out, &a85), ZQ_OK);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out.data), out.length), "ABCD");

    // A failing call leaves the output as it was.
    Bytes bad = bytes("4G>");
    FilterMemBlock badSrc = inputBlock(bad);
    EXPECT_EQ(Zq_InflateStream(&badSrc, &out, &hex), ZQ_CORRUPT);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out.data), out.length), "ABCD");
    Zq_MemClear(&out);
}

TEST(FilterArguments, NullsUnknownKindsAndBadBlocks) {
    Bytes in = bytes("00>");
    FilterMemBlock src = inputBlock(in);
    FilterMemBlock out;
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
    FilterMemBlock negative = src;
    negative.length = -1;
    EXPECT_EQ(Zq_InflateStream(&negative, &out, &p), ZQ_BAD_ARGUMENT);
    FilterMemBlock nullData{};
    nullData.length = 4;
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

TEST(ASCIIHex, DecodeRules) {
    EXPECT_EQ(text(decode(bytes("48656c6C6f>"), FILTER_ASCIIHEX).data), "Hello");
    EXPECT_EQ(text(decode(bytes(" 4 8\n65\r\t6c\f6c 6f >ignored"), FILTER_ASCIIHEX).data), "Hello");
    EXPECT_EQ(decode(bytes("414>"), FILTER_ASCIIHEX).data, (Bytes{0x41, 0x40}));
    EXPECT_EQ(decode(bytes("7"), FILTER_ASCIIHEX).data, (Bytes{0x70}));  // no '>', odd digit
    EXPECT_EQ(decode(bytes(">"), FILTER_ASCIIHEX).data, Bytes{});
    Bytes withNul = bytes("41");
    withNul.push_back(0);
    withNul.push_back('4');
    withNul.push_back('2');
    EXPECT_EQ(text(decode(withNul, FILTER_ASCIIHEX).data), "AB");
    for (const char* bad : {"4G>", "41 x>", "<41>", "41~>", "0x41"})
        EXPECT_EQ(decode(bytes(bad), FILTER_ASCIIHEX).rc, ZQ_CORRUPT) << bad;
}

TEST(ASCIIHex, EncodeRoundTrip) {
    EXPECT_EQ(text(encode(bytes("Hello\x01\xff"), FILTER_ASCIIHEX).data), "48656C6C6F01FF>");
    EXPECT_EQ(text(encode(Bytes{}, FILTER_ASCIIHEX).data), ">");
    Bytes data = randomBytes(5000, 7);
    Result e = encode(data, FILTER_ASCIIHEX);
    ASSERT_EQ(e.rc, ZQ_OK);
    EXPECT_EQ(decode(e.data, FILTER_ASCIIHEX).data, data);
}

TEST(ASCII85, PublishedVectors) {
    // Reference encodings of well-known strings (Adobe's btoa variant).
    const std::pair<const char*, const char*> vectors[] = {
        {"Man is distinguished", "9jqo^BlbD-BleB1DJ+*+F(f,q"},
        {"M", "9`"},
        {"Ma", "9jn"},
        {"Man", "9jqo"},
        {"Man ", "9jqo^"},
        {"sure.", "F*2M7/c"},
        {"easure.", "ARTY&Eb-j"},
    };
    for (const auto& v : vectors) {
        Bytes plain = bytes(v.first);
        EXPECT_EQ(text(encode(plain, FILTER_ASCII85).data), std::string(v.second) + "~>") << v.first;
        EXPECT_EQ(text(decode(bytes(std::string(v.second) + "~>"), FILTER_ASCII85).data), v.first);
    }
    EXPECT_EQ(text(encode(Bytes(4, 0), FILTER_ASCII85).data), "z~>");
    EXPECT_EQ(text(encode(Bytes(5, 0), FILTER_ASCII85).data), "z!!~>");
    EXPECT_EQ(text(encode(Bytes{0, 0, 0, 0, 1, 2}, FILTER_ASCII85).data), "z!<N~>");
    EXPECT_EQ(text(encode(Bytes(4, 0xff), FILTER_ASCII85).data), "s8W-!~>");
    EXPECT_EQ(text(encode(Bytes{}, FILTER_ASCII85).data), "~>");
}

TEST(ASCII85, DecodeRules) {
    EXPECT_EQ(decode(bytes("z~>"), FILTER_ASCII85).data, Bytes(4, 0));
    EXPECT_EQ(decode(bytes("zz!!~>"), FILTER_ASCII85).data, Bytes(9, 0));
    EXPECT_EQ(text(decode(bytes(" 9jq\no^ \r\nBl bD-~>"), FILTER_ASCII85).data), "Man is d");
    EXPECT_EQ(text(decode(bytes("<~9jqo^~>"), FILTER_ASCII85).data), "Man ");
    EXPECT_EQ(text(decode(bytes("9jqo^"), FILTER_ASCII85).data), "Man ");     // no "~>"
    EXPECT_EQ(text(decode(bytes("9jqo^~"), FILTER_ASCII85).data), "Man ");    // '~' alone ends
    EXPECT_EQ(decode(bytes("s8W-!~>"), FILTER_ASCII85).data, Bytes(4, 0xff));
    EXPECT_EQ(decode(bytes("~>"), FILTER_ASCII85).data, Bytes{});
    const char* corrupt[] = {
        "9jqo^v~>",   // 'v' is past 'u'
        "9j z~>",     // 'z' inside a group
        "s8W-\"~>",   // group worth 2^32
        "9jqo^9~>",   // a single final character
        "9jqo^{~>",
        "uuuu~>",     // final partial group overflowing
    };
    for (const char* c : corrupt) EXPECT_EQ(decode(bytes(c), FILTER_ASCII85).rc, ZQ_CORRUPT) << c;
}

TEST(ASCII85, RoundTripAllTailLengths) {
    for (std::size_t n = 0; n < 40; ++n) {
        Bytes data = randomBytes(n, uint32_t(n));
        if (n > 8) std::fill(data.begin() + 4, data.begin() + 8, 0);  // one 'z' group
        Result e = encode(data, FILTER_ASCII85);
        ASSERT_EQ(e.rc, ZQ_OK);
        Result d = decode(e.data, FILTER_ASCII85);
        ASSERT_EQ(d.rc, ZQ_OK);
        EXPECT_EQ(d.data, data) << n;
    }
}

TEST(RunLength, DecodeRules) {
    // literal "ABC", 4 x 'z', EOD, then junk that must be ignored
    Bytes enc = {2, 'A', 'B', 'C', 253, 'z', 128, 0, 'Q'};
    EXPECT_EQ(text(decode(enc, FILTER_RUNLENGTH).data), "ABCzzzz");
    EXPECT_EQ(decode(Bytes{129, 7}, FILTER_RUNLENGTH).data, Bytes(128, 7));
    EXPECT_EQ(decode(Bytes{255, 7}, FILTER_RUNLENGTH).data, Bytes(2, 7));
    Bytes literal128 = {127};
    for (int i = 0; i < 128; ++i) literal128.push_back(static_cast<unsigned char>(i));
    Result r = decode(literal128, FILTER_RUNLENGTH);
    ASSERT_EQ(r.data.size(), 128u);
    EXPECT_EQ(r.data[127], 127);
    // No EOD, truncated literal, and a repeat byte that never came.
    EXPECT_EQ(text(decode(Bytes{1, 'h', 'i'}, FILTER_RUNLENGTH).data), "hi");
    EXPECT_EQ(text(decode(Bytes{5, 'h', 'i'}, FILTER_RUNLENGTH).data), "hi");
    Result cut = decode(Bytes{0, 'x', 200}, FILTER_RUNLENGTH);
    EXPECT_EQ(cut.rc, ZQ_OK);
    EXPECT_EQ(text(cut.data), "x");
    EXPECT_EQ(decode(Bytes{128}, FILTER_RUNLENGTH).data, Bytes{});
}
