#include "PDFKilnPage/crypt/keycache.h"


namespace pcrypt {

namespace {

void wipe(std::string& s)
{
    volatile char* p = s.data();
    for (std::size_t i = 0; i < s.size(); ++i)
        p[i] = 0;
    s.clear();
}

} // namespace

DerivedKeyCache::~DerivedKeyCache()
{
    for (Entry& e : m_entries) {
        wipe(e.input);
        wipe(e.output);
    }
}

const std::string* DerivedKeyCache::find(const std::string& input) const
{
    for (const Entry& e : m_entries)
        if (e.input == input)
            return &e.output;
    return nullptr;
}

void DerivedKeyCache::store(const std::string& input, const std::string& output)
{
    if (!input.empty()) {
        if (input[0] == HashR6)
            ++m_computedHashR6;
        else if (input[0] == KeyMD5)
            ++m_computedKeyMD5;
    }
    if (m_entries.size() < kCapacity) {
        m_entries.push_back(Entry{input, output});
        return;
    }
    Entry& e = m_entries[m_next];
    m_next = (m_next + 1) % kCapacity;
    wipe(e.input);
    wipe(e.output);
    e.input = input;
    e.output = output;
}

std::size_t DerivedKeyCache::computed(Kind kind) const
{
    return kind == HashR6 ? m_computedHashR6 : kind == KeyMD5 ? m_computedKeyMD5 : 0;
}

} // namespace pcrypt
