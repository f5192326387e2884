// pdfkiln find: a deep property search from the catalog.
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "PDFKilnPage/PDFKilnPage.h"
#include "commands.h"
#include "tool_common.h"

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
    tool::ReadOptions read;
    FindingHint hint;
    std::vector<std::string> keys;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--password") {
            if (i + 1 >= argc) return tool::usageError("find", "--password needs a value");
            read.password = argv[++i];
        } else if (arg == "--strict") {
            read.strict = true;
        } else if (arg.size() > 1 && arg[0] == '-') {
            return tool::usageError("find", "unknown option '" + arg + "'");
        } else if (!file) {
            file = argv[i];
        } else {
            std::string wanted = argv[i];
            EPDFType type = ePDFDictionary;
            std::size_t colon = wanted.find(':');
            if (colon != std::string::npos) {
                if (!typeByName(wanted.substr(colon + 1), type))
                    return tool::usageError("find", "unknown type '" + wanted.substr(colon + 1) + "' in '" + arg + "'");
                wanted.resize(colon);
            }
            if (wanted.empty() || wanted[0] != '/') wanted.insert(0, "/");
            if (wanted.size() < 2) return tool::usageError("find", "empty key in '" + arg + "'");
            hint.insertHintInfo(wanted.c_str(), type);
            keys.push_back(wanted);
        }
    }
    if (!file) return tool::usageError("find", "no FILE given");
    if (keys.empty()) return tool::usageError("find", "no /Key given");
    CPDFKilnPage doc(file, read.password);
    if (int status = tool::openDocument(doc, file, read)) return status;
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
