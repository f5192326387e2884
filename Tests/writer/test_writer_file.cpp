// The file's tail: cross-reference table, trailer, /ID, /Info and /Encrypt.
#include <gtest/gtest.h>

#include <cstring>

#include "pdf_builder.h"
#include "pdfkiln_destfile.h"

using namespace PDF_KILN;

namespace {

TEST(XRef, OneSubsectionWithTenAndFiveDigitFieldsAndTheIdentifier) {
    CDestFile out;
    out.Write();  // enters the free head
    out += "%PDF-1.4\n";
    for (int n = 1; n <= 3; ++n) {
        out.RecordObjInfo(SObj(n, 0));
        out += std::to_string(n) + " 0 obj\n<< >>\nendobj\n";
    }
    out.catalog.self = SObj(1, 0);
    const std::size_t before = out.size();
    out.fileInfo.WriteXRef(out);
    const std::string tail = out.substr(before);
    EXPECT_EQ(tail.rfind("xref\r\n0 4\r\n0000000000 65535 f\r\n0000000009 00000 n\r\n", 0), 0u) << tail;
    const std::string trailer = "trailer\r\n<</Size 4 /Root 1 0 R >>\nstartxref\n" + std::to_string(before) + "\n%%EOF";
    EXPECT_NE(tail.find(trailer), std::string::npos) << tail;
    EXPECT_EQ(tail.back(), 'F') << "no line end follows %%EOF";
    EXPECT_EQ(tail.find("/ID"), std::string::npos) << "no identifier unless one is set";
    // The second identifier is copied from the first.
    CDestFile set;
    set.catalog.self = SObj(1, 0);
    const unsigned char id[] = {0xab, 0x01, 0x02};
    std::memcpy(set.fileInfo.fileId.id1, id, 3);
    set.fileInfo.fileId.id1Length = 3;
    set.fileInfo.WriteXRef(set);
    EXPECT_NE(set.find("/ID[<ab0102><ab0102>]"), std::string::npos) << set;
}

// /Info fields in their order, each on a line; the revision-three /Encrypt with and without crypt filters.
TEST(InfoAndEncrypt, DictionariesAsWritten) {
    pdftest::Source src(pdftest::minimalPdf());
    CDestFile out;
    CFileInfo::CInfo& info = out.fileInfo.info;
    info.self = SObj(9, 0);
    info.title = "T(1)";
    info.creator = "C";
    for (std::string* empty : {&info.author, &info.subject, &info.keywords, &info.producer}) empty->clear();
    info.creationDate = "D:2026";
    info.modDate = "D:2027";
    info.Write(out, src.file);
    EXPECT_EQ(std::string(out),
              "9 0 obj\n<</Title (T\\(1\\))\n/Creator (C)\n/CreationDate (D:2026)\n/Trapped (Unknown)\n"
              "/ModDate (D:2027)>>endobj\n");
    EXPECT_EQ(out.fileInfo.ownTable.count(SObj(9, 0)), 1u);

    CDestFile out15;
    CEncrypt& enc = out15.fileInfo.encrypt;
    enc.self = SObj(7, 0);
    enc.R = 3;
    enc.V = 2;
    enc.Length = 128;
    enc.P = -4;
    out15.versionText = "%PDF-1.5";
    enc.Write(out15, src.file);
    EXPECT_EQ(out15.rfind("7 0 obj\n<</R 3/Length 128/Filter /Standard/P -4/V 2/O(", 0), 0u) << out15;
    EXPECT_EQ(out15.find("/CF"), std::string::npos) << "a 1.5 header writes no crypt filters";

    CDestFile out16;
    out16.fileInfo.encrypt.self = SObj(7, 0);
    out16.fileInfo.encrypt.EncryptMetadata = false;
    out16.versionText = "%PDF-1.6";
    out16.fileInfo.encrypt.Write(out16, src.file);
    EXPECT_NE(out16.find("\n/CF<</StdCF<</Length 16/CFM/V2/AuthEvent/DocOpen>>>>/StmF/StdCF/StrF/StdCF"
                         "/EncryptMetadata false>>endobj\n"),
              std::string::npos)
        << out16;
}

}  // namespace
