// The /Filter chain of a stream and the run of its stages.
#include "pdfkiln_filter.h"

#include <cstring>

#include "pdfkiln_obj.h"

namespace PDF_KILN {

using namespace ZQGraphicService_NS;

namespace {

// Applies the Flate defaults to a stage record just before it runs.
void applyFlateDefaults(FilterPropTD& p) {
    if (p.aux16 < 1) p.aux16 = 100;
    if (p.colors < 1) p.colors = 1;
    if (p.aux24 < 0) p.aux24 = 0;
    if (p.aux28 < 0) p.aux28 = 0;
    if (p.bitsPerComponent < 1) p.bitsPerComponent = 8;
    if (p.aux48 < 0) p.aux48 = 0;
    if (p.aux52 < 0) p.aux52 = 0;
    if (p.aux60 < 0) p.aux60 = 0;
}

}  // namespace

FILTER_TYPE CFilter::GetFilterType(std::string name) {
    if (tokenIs(name, nmFlateDecode) || tokenIs(name, nmFl)) return FILTER_FLATE;
    if (tokenIs(name, nmLZWDecode) || tokenIs(name, nmLZW)) return FILTER_LZW;
    if (tokenIs(name, nmASCIIHexDecode) || tokenIs(name, nmAHx)) return FILTER_ASCIIHEX;
    if (tokenIs(name, nmASCII85Decode) || tokenIs(name, nmA85)) return FILTER_ASCII85;
    if (tokenIs(name, nmRunLengthDecode) || tokenIs(name, nmRL)) return FILTER_RUNLENGTH;
    if (tokenIs(name, nmCCITTFaxDecode) || tokenIs(name, nmCCF)) return FILTER_CCITTFAX;
    if (tokenIs(name, nmDCTDecode) || tokenIs(name, nmDCT)) return FILTER_DCT;
    return FILTER_UNKNOWN;
}

bool CFilter::IsNeedCompType(FILTER_TYPE type) { return type >= FILTER_FLATE && type <= FILTER_DCT; }

bool CFilter::ReadParameter(std::istream& in, FilterPropTD& prop) {
    std::string token;
    readPDFString(in, token);
    if (!tokenIs(token, "<<")) return false;
    for (;;) {
        // End of input ends the loop: a parameter dictionary that never closes
        // is a failed read, not an endless one.
        if (!in.good()) return false;
        readPDFString(in, token);
        if (tokenIs(token, ">>")) return true;
        int32_t* field = nullptr;
        if (tokenIs(token, "/Columns")) field = &prop.columns;
        else if (tokenIs(token, "/Predictor")) field = &prop.predictor;
        else if (tokenIs(token, "/Colors")) field = &prop.colors;
        else if (tokenIs(token, nmBitsPerComponent)) field = &prop.bitsPerComponent;
        else if (tokenIs(token, "/EarlyChange")) field = &prop.earlyChange;
        if (field) {
            int v = 0;
            in >> v;
            if (!in.good()) return false;
            *field = v;
        }
    }
}

bool CFilter::ReadFilter(std::istream& in, long dictStart) {
    FilterPropTD prop;
    std::memset(&prop, 0, sizeof prop);
    prop.earlyChange = 1;
    std::string token;
    readPDFString(in, token);
    if (tokenIs(token, "[")) {
        readPDFString(in, token);
        int counter = 0;
        for (;;) {
            if (tokenIs(token, "]")) return true;
            if (!in.good()) return false;
            FILTER_TYPE type = GetFilterType(token);
            if (!IsNeedCompType(type)) return false;
            readPDFString(in, token);
            if (tokenIs(token, nmDecodeParms)) {
                if (!ReadParameter(in, prop)) return false;
            }
            prop.type = type;
            stages.insert({counter, prop});
            ++counter;
        }
    }
    FILTER_TYPE type = GetFilterType(token);
    if (!IsNeedCompType(type)) return false;
    std::streampos back = in.tellg();
    if (dictStart > 0) in.seekg(dictStart);
    while (in.good() && !tokenIs(token, nmDecodeParms) && !tokenIs(token, kwstream)) readPDFString(in, token);
    if (tokenIs(token, nmDecodeParms)) {
        if (!ReadParameter(in, prop)) return false;
    }
    in.clear();
    in.seekg(back);
    prop.type = type;
    stages.insert({0, prop});
    return true;
}

int CFilter::filterStream(std::string& data, std::string& result) {
    if (stages.empty()) return 0;
    for (auto& stage : stages) {
        FilterMemBlock in, out;
        Zq_MemInit(&in);
        Zq_MemInit(&out);
        if (data.size() > static_cast<std::size_t>(INT32_MAX)) return ZQ_TOO_LARGE;
        in.capacity = in.length = static_cast<int32_t>(data.size());
        in.data = reinterpret_cast<unsigned char*>(data.empty() ? nullptr : &data[0]);
        if (stage.second.type == FILTER_FLATE) applyFlateDefaults(stage.second);
        int rc = Zq_InflateStream(&in, &out, &stage.second);
        if (rc != 0) {
            Zq_MemClear(&out);
            return rc == ZQ_CORRUPT ? kResultFilterFailed : rc;
        }
        data.assign(reinterpret_cast<const char*>(out.data), out.data ? static_cast<std::size_t>(out.length) : 0);
        result = data;
        Zq_MemClear(&out);
    }
    return 0;
}

int CFilter::filterStreamType(std::string& data, int& length) {
    if (length >= 0 && static_cast<std::size_t>(length) < data.size()) data.resize(static_cast<std::size_t>(length));
    // Each stage decodes straight into a string of its own, which then takes
    // the place of its input: a stream's output exists once, beside only the
    // input of the stage that makes it.
    const std::size_t limit = decodedBudget > 0 && decodedBudget < kMaxStageOutput ? decodedBudget : kMaxStageOutput;
    std::string next;
    for (auto& stage : stages) {
        int rc = ZQ_TOO_LARGE;
        if (data.size() <= static_cast<std::size_t>(INT32_MAX)) {
            if (stage.second.type == FILTER_FLATE) applyFlateDefaults(stage.second);
            rc = Zq_InflateInto(reinterpret_cast<const unsigned char*>(data.data()), data.size(), next, stage.second,
                                limit);
        }
        if (rc != 0) {
            passedLimit = rc == ZQ_TOO_LARGE;
            // Under a budget every failure of the chain is the filter failure.
            if (decodedBudget > 0 || rc == ZQ_CORRUPT) return kResultFilterFailed;
            return rc;
        }
        data.swap(next);
        std::string().swap(next);
    }
    length = static_cast<int>(data.size());
    return 0;
}

}  // namespace PDF_KILN
