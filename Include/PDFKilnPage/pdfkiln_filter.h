// The /Filter chain of a stream: which decoders, with which parameters, and
// running stream bytes through them.
#ifndef PDFKILN_FILTER_H
#define PDFKILN_FILTER_H

#include <istream>
#include <cstddef>
#include <map>
#include <string>

#include "ZQGraphicService/ZqFilter.h"

namespace PDF_KILN {

class CFilter {
public:
    // The reader has just consumed /Filter; `in` stands before the value.
    // dictStart > 0 is where the stream dictionary starts (so /DecodeParms is
    // found wherever it stands); otherwise /DecodeParms is searched forward.
    bool ReadFilter(std::istream& in, long dictStart);
    bool ReadParameter(std::istream& in, ZQGraphicService_NS::FilterPropTD& prop);
    ZQGraphicService_NS::FILTER_TYPE GetFilterType(std::string name);
    bool IsNeedCompType(ZQGraphicService_NS::FILTER_TYPE type);
    // Runs the chain over `data` in place; `result` receives each stage's output.
    int filterStream(std::string& data, std::string& result);
    // Cuts `data` to `length` bytes, runs the chain, updates `length`.
    int filterStreamType(std::string& data, int& length);

    std::map<int, ZQGraphicService_NS::FilterPropTD> stages;
    // Largest output a stage of filterStreamType may produce, 0 for the
    // decoders' own cap. While it is set, any failure of the chain is
    // reported as the filter failure code.
    std::size_t decodedBudget = 0;
    // Set by filterStreamType when a stage's output passed its limit.
    bool passedLimit = false;
};

}  // namespace PDF_KILN

#endif
