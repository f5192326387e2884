// The input of the grammar: a window over the caller's text with a cursor.
// Rules read the bytes between the cursor and the end; nothing is copied.
#ifndef PDFKILN_YARD_PARSER_INPUT_STREAM_H
#define PDFKILN_YARD_PARSER_INPUT_STREAM_H

#include <cassert>

namespace yard {

template <typename Elem_T, typename Iter_T>
class ParserInputStream {
public:
    typedef Elem_T value_type;
    typedef Iter_T iterator;

    ParserInputStream(Iter_T first, Iter_T last) : begin(first), pos(first), end(last) {}

    bool AtEnd() const { return pos == end; }

    Elem_T GetElem() const {
        assert(!AtEnd());
        return *pos;
    }

    void GotoNext() {
        assert(!AtEnd());
        ++pos;
    }

    // Consumes `c` if it stands at the cursor.
    bool AdvancePast(Elem_T c) {
        if (AtEnd() || *pos != c) return false;
        ++pos;
        return true;
    }

    Iter_T GetPos() const { return pos; }
    void SetPos(Iter_T p) { pos = p; }
    Iter_T Begin() const { return begin; }
    Iter_T End() const { return end; }

    // Bookkeeping of the nest rule (see re_NestRule): how deep the current
    // match is nested, and whether it went past the limit. Kept in the stream
    // so that rules stay free of state of their own and threads never share it.
    int NestDepth() const { return nestDepth; }
    void EnterNest() { ++nestDepth; }
    void LeaveNest() {
        if (--nestDepth == 0) nestOverflow = false;
    }
    bool NestOverflow() const { return nestOverflow; }
    void SetNestOverflow() { nestOverflow = true; }

private:
    Iter_T begin;
    Iter_T pos;
    Iter_T end;
    int nestDepth = 0;
    bool nestOverflow = false;
};

}  // namespace yard

#endif
