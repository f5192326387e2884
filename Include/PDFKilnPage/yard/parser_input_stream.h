// The input of the grammar: a window over the caller's text with a cursor.
// Rules read the bytes between the cursor and the end; nothing is copied.
#ifndef PDFKILN_YARD_PARSER_INPUT_STREAM_H
#define PDFKILN_YARD_PARSER_INPUT_STREAM_H

#include <atomic>
#include <cassert>
#include <cstddef>
#include <unordered_map>

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

    // A nest rule gives the same answer at the same place: the scan tries
    // every start byte, and unbalanced openers would otherwise be matched
    // over and over (exponential in their nesting). The answer is kept for
    // the places where a rule was tried (where it ended, or that it failed),
    // with the depth it was found at: it holds again at that depth or a
    // shallower one, where the depth limit cannot come nearer.
    bool KnownNest(int rule, Iter_T at, bool& matched, Iter_T& to) const {
        if (nestKnown.empty()) return false;
        auto it = nestKnown.find(key(rule, at));
        if (it == nestKnown.end() || nestDepth > it->second.depth) return false;
        matched = it->second.end >= 0;
        if (matched) to = begin + it->second.end;
        return true;
    }
    void NoteNest(int rule, Iter_T at, bool matched, Iter_T to) {
        Known& k = nestKnown[key(rule, at)];
        k.end = matched ? static_cast<long long>(to - begin) : -1;
        k.depth = nestDepth;
    }
    // A number for each kind of nest rule, given on first use.
    static int NextNestRule() {
        static std::atomic<int> next{0};
        return next++;
    }

private:
    Iter_T begin;
    Iter_T pos;
    Iter_T end;
    int nestDepth = 0;
    bool nestOverflow = false;
    struct Known {
        long long end = -1;  // -1: the rule failed there
        int depth = 0;
    };
    std::unordered_map<unsigned long long, Known> nestKnown;

    unsigned long long key(int rule, Iter_T at) const {
        return static_cast<unsigned long long>(at - begin) << 16 | static_cast<unsigned long long>(rule & 0xFFFF);
    }
};

}  // namespace yard

#endif
