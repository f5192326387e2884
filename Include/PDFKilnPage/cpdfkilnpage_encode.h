// The page facade for a 7-bit output: every filtered binary stream of a
// page's objects is wrapped in an ASCII85 layer.
#ifndef CPDFKILNPAGE_ENCODE_H
#define CPDFKILNPAGE_ENCODE_H

#include <string>

#include "ZQGraphicService/ZqFilter.h"
#include "pdfkiln_page.h"

namespace PDF_KILN {

class CPDFKilnPage_Encode : public CPDFKilnPage {
public:
    CPDFKilnPage_Encode(std::istream& in, const std::string& password);
    CPDFKilnPage_Encode(const char* fileName, const std::string& password);

    // Numbers and renders the page's objects as the base class does, then
    // re-encodes their streams: new data, /Length and /Filter. Returns 0.
    int setStartObjNo(int startNo) override;

    // True for an object with a stream, a /Filter whose first filter is not
    // /ASCII85Decode, and a byte above 127 in its data.
    bool checkNeedASCII85Encode(iterator it);
    // True when no byte of the stream data has its high bit set. Writes the
    // diagnostic line "stream length old<N>" to standard output.
    bool checkStreamIsASCII(iterator it);
    // The object's text and the first and last byte of its stream data
    // (offsets; last < first for empty data). Both the text's start without
    // a stream.
    void findStreamPos(iterator it, std::string*& text, std::size_t& first, std::size_t& last);
    // The object's text and the bounds [start, end) of its /Filter entry;
    // without one, both at the "stream" keyword.
    void findFilterPos(iterator it, std::string*& text, std::size_t& start, std::size_t& end);
    // The entry with the added filter in front: "/Filter /FlateDecode"
    // becomes "/Filter  [/ASCII85Decode/FlateDecode ]".
    std::string constructFilterEntity(const std::string& oldEntry) const;

    // Options, off by default.
    // A /DecodeParms entry gets a null in front, so that its parameters
    // stay with the filter they were written for.
    void setDecodeParmsFollow(bool on) { decodeParmsFollow = on; }
    // A stream without /Filter whose data holds bytes above 127 is wrapped
    // as well, with a /Filter /ASCII85Decode entry of its own.
    void setEncodeUnfiltered(bool on) { encodeUnfiltered = on; }
    // The data starts right behind the "stream" keyword's line end, also
    // when its first bytes are blanks or NULs (which findStreamPos passes
    // over).
    void setExactStreamStart(bool on) { exactStreamStart = on; }

    ZQGraphicService_NS::FilterPropTD filterProp;

private:
    // The stream's /Length value: its bounds in the text that holds it
    // (false when there is none) and the number.
    bool lengthValue(iterator it, iterator& where, std::size_t& begin, std::size_t& end, long& length);
    // Where the stream's dictionary ends: the data and anything behind
    // "stream" is never searched for entries.
    static std::size_t dictionaryEnd(const std::string& text);
    void encodeStream(iterator it, bool unfiltered);
    bool decodeParmsFollow = false;
    bool encodeUnfiltered = false;
    bool exactStreamStart = false;
};

}  // namespace PDF_KILN

#endif
