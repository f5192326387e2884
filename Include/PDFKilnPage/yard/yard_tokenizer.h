// Tokenizers: scan a byte range for the places where a rule matches and keep
// the hits, in text order, as tokens that point into the caller's text.
#ifndef PDFKILN_YARD_TOKENIZER_H
#define PDFKILN_YARD_TOKENIZER_H

#include <cstddef>
#include <list>
#include <string>

#include "parser_input_stream.h"

namespace yard {

typedef ParserInputStream<char, const char*> TextStream;

// A hit: first byte and one past the last byte. Owns nothing, so the text
// must outlive the token.
struct Token {
    const char* first = nullptr;
    const char* second = nullptr;

    Token() = default;
    Token(const char* b, const char* e) : first(b), second(e) {}
    std::size_t size() const { return static_cast<std::size_t>(second - first); }
    std::string str() const { return std::string(first, second); }
};

typedef std::list<Token> TokenList;

// Common part of the tokenizers: the list and the scan. The scan tries the
// rule at every byte of [begin, end); a match that consumes nothing is no hit.
// Each hit allocates one list node; the matching itself allocates nothing.
class TokenizerBase {
public:
    const TokenList& GetTokens() const { return tokens; }
    bool empty() const { return tokens.empty(); }
    std::size_t size() const { return tokens.size(); }
    TokenList::const_iterator begin() const { return tokens.begin(); }
    TokenList::const_iterator end() const { return tokens.end(); }
    void clear() { tokens.clear(); }
    // Moves this tokenizer's tokens to the back of `dst` (no allocation).
    void MoveTokensTo(TokenList& dst) { dst.splice(dst.end(), tokens); }

protected:
    template <typename Rule_T>
    void Scan(const char* first, const char* last, bool all) {
        if (!first || !last || first >= last) return;
        TextStream stream(first, last);
        const char* s = first;
        while (s < last) {
            stream.SetPos(s);
            if (Rule_T::Accept(stream) && stream.GetPos() > s) {
                tokens.push_back(Token(s, stream.GetPos()));
                if (!all) return;
                s = stream.GetPos();
            } else {
                ++s;
            }
        }
    }

    TokenList tokens;
};

// The first hit of Rule_T in the range, if any.
template <typename Rule_T>
class OneTokenizer : public TokenizerBase {
public:
    void Tokenize(const char* first, const char* last) { Scan<Rule_T>(first, last, false); }
};

// Every non-overlapping hit of Rule_T; the scan goes on behind each hit.
template <typename Rule_T>
class Tokenizer : public TokenizerBase {
public:
    void Tokenize(const char* first, const char* last) { Scan<Rule_T>(first, last, true); }
};

// Runs the tokenizer Outer_T over the range, then Tokenizer<Inner_T> over
// each of its tokens; only the inner tokens are kept.
template <typename Inner_T, typename Outer_T>
class TokenizerRecursive : public TokenizerBase {
public:
    void Tokenize(const char* first, const char* last) {
        Outer_T outer;
        outer.Tokenize(first, last);
        for (const Token& t : outer.GetTokens()) {
            Tokenizer<Inner_T> inner;
            inner.Tokenize(t.first, t.second);
            inner.MoveTokensTo(tokens);
        }
    }
};

}  // namespace yard

#endif
