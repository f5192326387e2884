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

std::size_t DerivedKeyCache::indexOf(const std::string& input) const
{
    std::size_t i = 0;
    while (i < m_entries.size() && m_entries[i].input != input)
        ++i;
    return i;
}

const std::string* DerivedKeyCache::find(const std::string& input)
{
    const std::size_t i = indexOf(input);
    if (i == m_entries.size())
        return nullptr;
    Entry& e = m_entries[i];
    if (!e.asked) {
        e.asked = true;
        count(input);
    }
    return &e.output;
}

bool DerivedKeyCache::contains(const std::string& input) const
{
    return indexOf(input) < m_entries.size();
}

void DerivedKeyCache::putAhead(const std::string& input, const std::string& output)
{
    if (!contains(input))
        store(input, output, false);
}

void DerivedKeyCache::count(const std::string& input)
{
    if (input.empty())
        return;
    if (input[0] == HashR6)
        ++m_computedHashR6;
    else if (input[0] == KeyMD5)
        ++m_computedKeyMD5;
}

void DerivedKeyCache::store(const std::string& input, const std::string& output, bool asked)
{
    if (asked)
        count(input);
    if (m_entries.size() < kCapacity) {
        m_entries.push_back(Entry{input, output, asked});
        return;
    }
    Entry& e = m_entries[m_next];
    m_next = (m_next + 1) % kCapacity;
    wipe(e.input);
    wipe(e.output);
    e.input = input;
    e.output = output;
    e.asked = asked;
}

std::size_t DerivedKeyCache::computed(Kind kind) const
{
    return kind == HashR6 ? m_computedHashR6 : kind == KeyMD5 ? m_computedKeyMD5 : 0;
}

} // namespace pcrypt
