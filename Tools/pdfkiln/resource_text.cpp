// Resource text for the output: balancing and one entry per key. Every scan
// here is a loop with its own stack, so that the depth of the input's nesting
// costs memory in proportion, never the process stack; and every key lookup
// goes through an index, so that a dictionary of n keys costs n steps.
#include "resource_text.h"

#include <cctype>
#include <cstring>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

bool isWhite(char c) { return c == 0 || c == '\t' || c == '\n' || c == '\f' || c == '\r' || c == ' '; }
bool isRegular(char c) { return !isWhite(c) && std::strchr("()<>[]{}/%", c) == nullptr; }

// Past white space and comments.
void skipSpace(const std::string& t, std::size_t& at) {
    while (at < t.size()) {
        if (t[at] == '%') {
            while (at < t.size() && t[at] != '\n' && t[at] != '\r') ++at;
        } else if (isWhite(t[at])) {
            ++at;
        } else {
            break;
        }
    }
}

// Past a literal string that starts at `at`: balanced parentheses count, a
// backslash takes the byte behind it along. False (at the end) when it does
// not close.
bool skipString(const std::string& t, std::size_t& at) {
    std::size_t depth = 0;
    for (; at < t.size(); ++at) {
        const char c = t[at];
        if (c == '\\') {
            ++at;
        } else if (c == '(') {
            ++depth;
        } else if (c == ')' && --depth == 0) {
            ++at;
            return true;
        }
    }
    at = t.size();
    return false;
}

// Past one value: a reference, a number, a name, a string, or an array or
// dictionary with everything inside it.
bool skipValue(const std::string& t, std::size_t& at) {
    std::size_t depth = 0;
    for (;;) {
        skipSpace(t, at);
        if (at >= t.size()) return false;
        const char c = t[at];
        if (c == '(') {
            if (!skipString(t, at)) return false;
        } else if (t.compare(at, 2, "<<") == 0 || c == '[') {
            at += c == '[' ? 1 : 2;
            ++depth;
            continue;
        } else if (t.compare(at, 2, ">>") == 0 || c == ']') {
            if (depth == 0) return false;
            at += c == ']' ? 1 : 2;
            --depth;
        } else if (c == '<') {
            const std::size_t e = t.find('>', at);
            if (e == std::string::npos) return false;
            at = e + 1;
        } else if (c == '>' || c == ')' || c == '{' || c == '}') {
            return false;
        } else {
            // A name or a regular run; a number may start "n g R".
            ++at;
            while (at < t.size() && isRegular(t[at])) ++at;
            if (c != '/') {
                std::size_t p = at;
                skipSpace(t, p);
                std::size_t q = p;
                while (q < t.size() && std::isdigit(static_cast<unsigned char>(t[q]))) ++q;
                if (q > p) {
                    std::size_t r = q;
                    skipSpace(t, r);
                    if (r < t.size() && t[r] == 'R' && (r + 1 == t.size() || isRegular(t[r + 1]) == false)) at = r + 1;
                }
            }
        }
        if (depth == 0) return true;
    }
}

struct Dict {
    std::vector<std::pair<std::string, std::string>> entries;
    std::unordered_map<std::string, std::size_t> index;
    std::string pendingKey;  // the key whose dictionary value is being read

    void put(const std::string& key, std::string value) {
        const auto found = index.find(key);
        if (found != index.end()) {
            entries[found->second].second = std::move(value);
        } else {
            index.emplace(key, entries.size());
            entries.emplace_back(key, std::move(value));
        }
    }
    std::string text() const {
        std::string out = "<<";
        for (const auto& e : entries) out += e.first + " " + e.second + " ";
        return out + ">>";
    }
};

constexpr std::size_t kMaxRebuiltDepth = 32;

// The dictionary at `at` with each key once; false when the text is not a
// dictionary of key and value pairs, or nests dictionaries too deep.
bool dedupe(const std::string& t, std::size_t& at, std::string& out) {
    skipSpace(t, at);
    if (t.compare(at, 2, "<<") != 0) return false;
    at += 2;
    std::vector<Dict> open(1);
    for (;;) {
        skipSpace(t, at);
        if (at >= t.size()) return false;
        if (t.compare(at, 2, ">>") == 0) {
            at += 2;
            std::string done = open.back().text();
            open.pop_back();
            if (open.empty()) {
                out += done;
                return true;
            }
            open.back().put(open.back().pendingKey, std::move(done));
            continue;
        }
        if (t[at] != '/') return false;
        const std::size_t k = at;
        skipValue(t, at);
        std::string key = t.substr(k, at - k);
        skipSpace(t, at);
        if (t.compare(at, 2, "<<") == 0) {
            if (open.size() > kMaxRebuiltDepth) return false;
            at += 2;
            open.back().pendingKey = std::move(key);
            open.emplace_back();
            continue;
        }
        const std::size_t vs = at;
        if (!skipValue(t, at)) return false;
        open.back().put(key, t.substr(vs, at - vs));
    }
}

}  // namespace

std::string balancedResources(std::string r) {
    // Closers that have no opener go; openers left open are closed before
    // the last ">>". Strings and comments are passed over whole.
    std::string out;
    out.reserve(r.size());
    std::size_t square = 0;
    std::size_t at = 0;
    while (at < r.size()) {
        const char c = r[at];
        if (c == '(') {
            const std::size_t s = at;
            skipString(r, at);
            out.append(r, s, at - s);
            continue;
        }
        if (c == '%') {
            const std::size_t s = at;
            while (at < r.size() && r[at] != '\n' && r[at] != '\r') ++at;
            out.append(r, s, at - s);
            continue;
        }
        if (c == '[') {
            ++square;
        } else if (c == ']') {
            if (square == 0) {
                ++at;
                continue;
            }
            --square;
        }
        out += c;
        ++at;
    }
    if (square > 0) {
        const std::size_t last = out.rfind(">>");
        out.insert(last == std::string::npos ? out.size() : last, std::string(square, ']'));
    }
    if (out.find_first_not_of(" \t\r\n") == std::string::npos) return "<< >>";
    return out;
}

std::string cleanResources(const std::string& text) {
    const std::string r = balancedResources(text);
    std::size_t at = 0;
    std::string out;
    return dedupe(r, at, out) ? out : r;
}
