// Generic combinators of the grammar. A rule is a type with one static
// operation, Accept(stream): on success the cursor stands behind the match;
// on failure the cursor is back where the rule started. Everything resolves at
// build time into plain functions; matching allocates nothing.
#ifndef PDFKILN_YARD_BASE_GRAMMAR_H
#define PDFKILN_YARD_BASE_GRAMMAR_H

#include "parser_input_stream.h"

namespace yard {

// Adapter that calls a rule.
template <typename Rule_T>
struct match {
    template <typename ParserState_T>
    static bool op(ParserState_T& p) {
        return Rule_T::Accept(p);
    }
};

// Always matches, consumes nothing.
struct re_true {
    template <typename ParserState_T>
    static bool Accept(ParserState_T&) {
        return true;
    }
};

template <char C>
struct MatchChar {
    template <typename ParserState_T>
    static bool Accept(ParserState_T& p) {
        return p.AdvancePast(C);
    }
};

// One byte in the inclusive range [Lo, Hi].
template <char Lo, char Hi>
struct MatchCharRange {
    template <typename ParserState_T>
    static bool Accept(ParserState_T& p) {
        if (p.AtEnd()) return false;
        char c = p.GetElem();
        if (c < Lo || c > Hi) return false;
        p.GotoNext();
        return true;
    }
};

// The exact bytes of S::text (a NUL-terminated literal), in sequence.
template <typename S>
struct MatchString {
    template <typename ParserState_T>
    static bool Accept(ParserState_T& p) {
        auto start = p.GetPos();
        for (const char* s = S::text; *s; ++s) {
            if (!p.AdvancePast(*s)) {
                p.SetPos(start);
                return false;
            }
        }
        return true;
    }
};

template <typename A, typename B>
struct re_and {
    template <typename ParserState_T>
    static bool Accept(ParserState_T& p) {
        auto start = p.GetPos();
        if (A::Accept(p) && B::Accept(p)) return true;
        p.SetPos(start);
        return false;
    }
};

template <typename A, typename B, typename C>
struct re_and3 {
    template <typename ParserState_T>
    static bool Accept(ParserState_T& p) {
        auto start = p.GetPos();
        if (A::Accept(p) && B::Accept(p) && C::Accept(p)) return true;
        p.SetPos(start);
        return false;
    }
};

// A, or when A fails at this place, B.
template <typename A, typename B>
struct re_or {
    template <typename ParserState_T>
    static bool Accept(ParserState_T& p) {
        return A::Accept(p) || B::Accept(p);
    }
};

template <typename A, typename B, typename C>
struct re_or3 {
    template <typename ParserState_T>
    static bool Accept(ParserState_T& p) {
        return A::Accept(p) || B::Accept(p) || C::Accept(p);
    }
};

// R or nothing; always succeeds.
template <typename R>
struct re_opt {
    template <typename ParserState_T>
    static bool Accept(ParserState_T& p) {
        R::Accept(p);
        return true;
    }
};

// R zero or more times, greedily; always succeeds. A pass that matches
// without consuming ends the loop, so an empty-matching R cannot spin.
template <typename R>
struct re_star {
    template <typename ParserState_T>
    static bool Accept(ParserState_T& p) {
        for (;;) {
            auto before = p.GetPos();
            if (!R::Accept(p)) return true;
            if (p.GetPos() == before) return true;
        }
    }
};

template <typename R>
struct re_plus {
    template <typename ParserState_T>
    static bool Accept(ParserState_T& p) {
        if (!R::Accept(p)) return false;
        return re_star<R>::Accept(p);
    }
};

// R exactly N times.
template <typename R, unsigned N>
struct re_repeat {
    template <typename ParserState_T>
    static bool Accept(ParserState_T& p) {
        auto start = p.GetPos();
        for (unsigned i = 0; i < N; ++i) {
            if (!R::Accept(p)) {
                p.SetPos(start);
                return false;
            }
        }
        return true;
    }
};

// Steps forward byte by byte until R matches, and consumes that match.
// Fails at end of text with the cursor restored.
template <typename R>
struct re_until {
    template <typename ParserState_T>
    static bool Accept(ParserState_T& p) {
        auto start = p.GetPos();
        while (!p.AtEnd()) {
            if (R::Accept(p)) return true;
            p.GotoNext();
        }
        p.SetPos(start);
        return false;
    }
};

// Balanced brackets. `Rule` is the whole construct:
//
//   re_and3<Begin, re_star<re_and3<Help1, MatchHelp, Help1>>, re_until<End>>
//
// Help1 moves, without consuming, to the next place where Begin or End
// matches (and fails at end of text); MatchHelp applies Rule there, so it
// fails at once on an End and matches a nested construct on a Begin. When the
// repetition stops, the failed pass has put the cursor back to where it
// started, and re_until consumes the first End from there. Only this bracket
// pair is counted: an array rule knows nothing of strings or dictionaries.
//
// The recursion follows the nesting depth of the text. To keep hostile input
// from exhausting the stack, a construct nested deeper than kMaxNestDepth is
// not matched: the overflow is recorded in the stream and makes every
// enclosing level fail as well, so the whole match fails and the caller sees
// a plain miss at that start byte.
template <typename Begin, typename End>
struct re_NestRule {
    enum { kMaxNestDepth = 256 };

    struct Help1 {
        template <typename ParserState_T>
        static bool Accept(ParserState_T& p) {
            auto start = p.GetPos();
            while (!p.AtEnd()) {
                auto here = p.GetPos();
                if (Begin::Accept(p) || End::Accept(p)) {
                    p.SetPos(here);
                    return true;
                }
                p.GotoNext();
            }
            p.SetPos(start);
            return false;
        }
    };

    struct Rule;

    struct MatchHelp {
        template <typename ParserState_T>
        static bool Accept(ParserState_T& p) {
            return Rule::Accept(p);
        }
    };

    struct Rule {
        template <typename ParserState_T>
        static bool Accept(ParserState_T& p) {
            if (p.AtEnd()) return false;
            auto start = p.GetPos();
            static const int kind = ParserState_T::NextNestRule();
            bool known = false;
            auto to = start;
            if (p.KnownNest(kind, start, known, to)) {
                if (known) p.SetPos(to);
                return known;
            }
            if (!Begin::Accept(p)) return false;
            if (p.AtEnd()) {
                p.SetPos(start);
                return false;
            }
            if (p.NestDepth() >= kMaxNestDepth) {
                p.SetNestOverflow();
                p.SetPos(start);
                return false;
            }
            p.EnterNest();
            re_star<re_and3<Help1, MatchHelp, Help1>>::Accept(p);
            bool ok = !p.NestOverflow() && re_until<End>::Accept(p);
            // An answer that the depth limit decided says nothing of a
            // shallower try; any other holds for every later try here.
            const bool overflow = p.NestOverflow();
            const auto end = p.GetPos();
            if (!ok) p.SetPos(start);
            p.LeaveNest();
            if (!overflow) p.NoteNest(kind, start, ok, end);
            return ok;
        }
    };
};

}  // namespace yard

#endif
