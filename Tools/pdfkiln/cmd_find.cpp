// pdfkiln find: a deep property search from the catalog.
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "PDFKilnPage/PDFKilnPage.h"
#include "commands.h"

using namespace PDF_KILN;

namespace {

bool typeByName(const std::string& name, EPDFType& type) {
    static const std::pair<const char*, EPDFType> names[] = {
        {"none", ePDFNone},     {"boolean", ePDFBoolean}, {"number", ePDFNumber},
        {"string", ePDFString}, {"name", ePDFName},       {"array", ePDFArray},
        {"dictionary", ePDFDictionary}, {"null", ePDFNull}, {"stream", ePDFStream},
        {"reference", ePDFIndirect}};
    for (const auto& n : names) {
        if (name == n.first) {
            type = n.second;
            return true;
        }
    }
    return false;
}

}  // namespace

int cmdFind(int argc, char** argv) {
    const char* file = nullptr;
    std::string password;
    FindingHint hint;
    std::vector<std::string> keys;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--password") && i + 1 < argc) {
            password = argv[++i];
        } else if (!file) {
            file = argv[i];
        } else {
            std::string wanted = argv[i];
            EPDFType type = ePDFDictionary;
            std::size_t colon = wanted.find(':');
            if (colon != std::string::npos) {
                if (!typeByName(wanted.substr(colon + 1), type)) {
                    std::fprintf(stderr, "pdfkiln: unknown type in '%s'\n", argv[i]);
                    return 2;
                }
                wanted.resize(colon);
            }
            if (wanted.empty() || wanted[0] != '/') wanted.insert(0, "/");
            hint.insertHintInfo(wanted.c_str(), type);
            keys.push_back(wanted);
        }
    }
    if (!file || keys.empty()) {
        std::fputs("usage: pdfkiln find FILE [--password P] /Key[:type]...\n", stderr);
        return 2;
    }
    CPDFKilnPage doc(file, password);
    doc.setDecodedBudget(decodedBudget());
    int rc = doc.init();
    if (rc == 0 && !password.empty()) {
        try {
            doc.SetSourcePassword(password);
        } catch (int code) {
            rc = code;
        }
    }
    if (rc != 0) {
        std::fprintf(stderr, "pdfkiln: %s: cannot open (%d)\n", file, rc);
        return 1;
    }
    try {
        FindingValue finder(hint, doc.getSource());
        finder.find(true);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "pdfkiln: %s\n", e.what());
        return 1;
    }
    hint.outPutValue(std::cout);
    return 0;
}
