// Key derivations already made for one document. The password trials of the
// standard security handler ask for the same derivation many times over: the
// empty password at every opening, each password once to test it and again
// for its key, and all of it again when a password is set. The cache keeps
// each result under the whole of its input, so an answer is reused only for
// exactly the same question, and the trials still run in their order with
// every result as before.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace pcrypt {

class DerivedKeyCache {
public:
    // What was derived; the first byte of every input.
    enum Kind : char {
        HashR6 = 'H', // the iterated hash of revision 6 (caculateHashR6)
        KeyMD5 = 'M'  // the MD5 based file key or owner key of revisions 2 to 4
    };

    DerivedKeyCache() = default;
    ~DerivedKeyCache();
    DerivedKeyCache(const DerivedKeyCache&) = delete;
    DerivedKeyCache& operator=(const DerivedKeyCache&) = delete;

    // The output for `input`, computed by `derive` only when not known yet.
    template <typename Derive>
    std::string get(const std::string& input, Derive derive)
    {
        if (const std::string* known = find(input))
            return *known;
        std::string output = derive();
        store(input, output, true);
        return output;
    }

    // Whether `input` has an output here, asked for or made ahead.
    bool contains(const std::string& input) const;
    // An output made ahead of its question (several derivations run together
    // for less than the sum of their times). It counts as computed only once
    // get asks for it, so `computed` tells the derivations the trials needed.
    void putAhead(const std::string& input, const std::string& output);

    // How many derivations of a kind were computed, not found.
    std::size_t computed(Kind kind) const;

private:
    struct Entry {
        std::string input;
        std::string output;
        bool asked = true;
    };
    // A document asks for a handful of derivations; the oldest make way.
    static constexpr std::size_t kCapacity = 16;

    // The entry for `input`, or the number of entries where there is none.
    std::size_t indexOf(const std::string& input) const;
    // Marks an entry made ahead as asked for (and counts it).
    const std::string* find(const std::string& input);
    void store(const std::string& input, const std::string& output, bool asked);
    void count(const std::string& input);

    std::vector<Entry> m_entries;
    std::size_t m_next = 0;
    std::size_t m_computedHashR6 = 0;
    std::size_t m_computedKeyMD5 = 0;
};

} // namespace pcrypt
