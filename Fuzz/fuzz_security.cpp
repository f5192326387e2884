// Fuzz target: an /Encrypt dictionary, a password and some data, through the
// dictionary reader, the password trials and the per-object cipher.
//
// Input layout: the dictionary text, then a 0xFF byte, then the password (up
// to the next 0xFF), then the data to decrypt. Missing parts are empty.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "PDFKilnPage/PDFKilnPage.h"

using namespace PDF_KILN;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t a = input.find('\xff');
    const std::size_t b = a == std::string::npos ? std::string::npos : input.find('\xff', a + 1);
    const std::string dict = input.substr(0, a);
    const std::string password =
        a == std::string::npos ? std::string() : input.substr(a + 1, b == std::string::npos ? std::string::npos : b - a - 1);
    const std::string payload = b == std::string::npos ? std::string() : input.substr(b + 1);

    std::stringstream text("7 0 obj\n" + dict + "\nendobj\n");
    CSourFile view(text);
    CEncrypt enc;
    enc.self = SObj(7, 0);
    view.setf(std::ios::skipws);
    if (!enc.Read(view)) return 0;
    const unsigned char id[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    std::memcpy(enc.ID, id, sizeof id);
    enc.IDLength = sizeof id;

    try {
        pcrypt::EncryptInfo info;
        saveEncryptInfo(enc, info);
        pcrypt::PDFDecryptionManager manager;
        bool nonEmptyTried = false, emptyWorked = false;
        manager.getFileKey(info, password.substr(0, 200), nonEmptyTried, emptyWorked);
        pcrypt::EncryptInfo second;
        saveEncryptInfo(enc, second);
        manager.calPassWordState(second, password.substr(0, 200));
        resaveEncryptInfo(info, enc);

        std::vector<unsigned char> buf(payload.size() + 32);
        std::memcpy(buf.data(), payload.data(), payload.size());
        int n = static_cast<int>(payload.size());
        manager.DecryptData(info, 7, 0, buf.data(), n);

        enc.passwordState = 2;
        std::string s = payload;
        SObj key(7, 0);
        DecryptString(enc, &key, s);
        std::string out = payload;
        encryptString(enc, &key, out);
    } catch (const std::exception&) {
        // Documented throws (for instance a hash shorter than the algorithm
        // needs) are results, not findings.
    }
    return 0;
}
