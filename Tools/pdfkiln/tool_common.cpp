// Shared by the sub-commands: argument checks, file checks and opening.
#include "tool_common.h"

#include "commands.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "PDFKilnPage/PDFKilnPage.h"

using namespace PDF_KILN;

namespace tool {

int usageError(const char* command, const std::string& message) {
    std::fprintf(stderr, "pdfkiln %s: %s\nTry 'pdfkiln help %s'.\n", command, message.c_str(), command);
    return kExitUsage;
}

bool parseCount(const char* command, const char* option, const char* text, int max, int& out) {
    long long v = 0;
    const char* p = text;
    bool digits = *p != 0;
    for (; *p; ++p) {
        if (*p < '0' || *p > '9' || v > INT_MAX) {
            digits = false;
            break;
        }
        v = v * 10 + (*p - '0');
    }
    if (!digits || v < 1 || v > max) {
        usageError(command, std::string(option) + " wants a whole number from 1 to " + std::to_string(max) +
                                ", not '" + text + "'");
        return false;
    }
    out = static_cast<int>(v);
    return true;
}

std::string fileProblem(const std::string& path) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) return std::strerror(errno);
    if (S_ISDIR(st.st_mode)) return std::strerror(EISDIR);
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
        std::fclose(f);
        return std::string();
    }
    return std::strerror(errno);
}

bool sameFile(const std::string& a, const std::string& b) {
    struct stat sa, sb;
    if (::stat(a.c_str(), &sa) != 0 || ::stat(b.c_str(), &sb) != 0) return false;
    return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

const char* resultText(int rc) {
    switch (rc) {
        case kResultBadFile: return "not a usable PDF file";
        case kResultBadXRef: return "the cross-reference chain could not be read";
        case kResultNotLocalised: return "the catalog could not be located";
        case kResultBadPage: return "bad page";
        case kResultFilterFailed: return "a stream does not decode";
        case kResultStdException: return "internal error while reading";
        default: return "failed";
    }
}

namespace {

// What the password trials of the document say: 0 opened, else the words.
const char* passwordProblem(CPDFKilnPage& doc, bool given) {
    const CEncrypt& enc = doc.getSource()->fileInfo.encrypt;
    if (enc.handlerKind == 0 && enc.V == 0) return nullptr;
    if (enc.handlerKind == 3 || std::strcmp(enc.Filter, nmStandard) != 0)
        return "encrypted with a security handler other than the standard one";
    switch (doc.SetSourcePassword()) {
        case 1: return given ? "the password is not correct (at most 32 bytes are used)" : "encrypted file";
        case 5: return given ? "the password is not correct" : "a password is required (give it with --password)";
        default: return nullptr;
    }
}

}  // namespace

int openDocument(CPDFKilnPage& doc, const std::string& file, const ReadOptions& o) {
    const std::string problem = fileProblem(file);
    if (!problem.empty()) {
        std::fprintf(stderr, "pdfkiln: %s: %s\n", file.c_str(), problem.c_str());
        return kExitFailed;
    }
    doc.setBalancedStrings(!o.strict);
    doc.setRebuildObjectTable(!o.strict);
    doc.setDecodedBudget(decodedBudget());
    // One reading with the given password instead of a reading with the
    // empty one and another with the password.
    doc.setPasswordAtOpening(!o.password.empty());
    int rc = doc.init();
    if (doc.getSource()) {
        // An encrypted file that does not open with the password it got is
        // a password problem first, whatever else failed behind it.
        if (const char* why = doc.getSource()->fileInfo.encrypt.handlerKind || rc == 0
                                  ? passwordProblem(doc, !o.password.empty())
                                  : nullptr) {
            std::fprintf(stderr, "pdfkiln: %s: %s\n", file.c_str(), why);
            return kExitPassword;
        }
    }
    if (rc == 0 && !o.password.empty()) {
        try {
            doc.SetSourcePassword(o.password);
        } catch (int code) {
            rc = code;
        }
    }
    if (rc != 0) {
        std::fprintf(stderr, "pdfkiln: %s: %s (%d)\n", file.c_str(), resultText(rc), rc);
        return kExitFailed;
    }
    return kExitOk;
}

}  // namespace tool
