#include "PDFKilnPage/crypt/rc4.h"

#include <algorithm>
#include <cstring>

namespace pcrypt {

PDFEncryptionRC4::PDFEncryptionRC4() = default;

PDFEncryptionRC4::PDFEncryptionRC4(unsigned char* key, int size)
{
    SetEncryptionKey(key, size);
}

PDFEncryptionRC4::~PDFEncryptionRC4()
{
    // The key is secret material; do not leave it in freed memory.
    std::fill(m_key.begin(), m_key.end(), '\0');
}

void PDFEncryptionRC4::SetEncryptionKey(unsigned char* key, int size)
{
    std::fill(m_key.begin(), m_key.end(), '\0');
    if (key == nullptr || size <= 0)
        m_key.clear();
    else
        m_key.assign(reinterpret_cast<const char*>(key), static_cast<size_t>(size));
}

void PDFEncryptionRC4::newRC4(unsigned char* data, int size)
{
    RC4(data, size, reinterpret_cast<unsigned char*>(m_key.data()), static_cast<int>(m_key.size()));
}

void PDFEncryptionRC4::PrepareKey(const unsigned char* key, int keySize, RC4_KEY* st)
{
    for (int i = 0; i < 256; ++i)
        st->state[i] = static_cast<unsigned char>(i);
    st->x = 0;
    st->y = 0;
    if (key == nullptr || keySize <= 0)
        return;
    unsigned char j = 0;
    int k = 0;
    for (int i = 0; i < 256; ++i) {
        unsigned char t = st->state[i];
        j = static_cast<unsigned char>(j + t + key[k]);
        st->state[i] = st->state[j];
        st->state[j] = t;
        if (++k == keySize)
            k = 0;
    }
}

void PDFEncryptionRC4::RC4Imp(unsigned char* data, int size, RC4_KEY* st)
{
    if (data == nullptr || size <= 0)
        return;
    unsigned char x = st->x;
    unsigned char y = st->y;
    unsigned char* s = st->state;
    for (int i = 0; i < size; ++i) {
        x = static_cast<unsigned char>(x + 1);
        unsigned char tx = s[x];
        y = static_cast<unsigned char>(y + tx);
        unsigned char ty = s[y];
        s[x] = ty;
        s[y] = tx;
        data[i] ^= s[static_cast<unsigned char>(tx + ty)];
    }
    st->x = x;
    st->y = y;
}

void PDFEncryptionRC4::RC4(unsigned char* data, int size, unsigned char* key, int keySize)
{
    if (data == nullptr || size <= 0 || key == nullptr || keySize <= 0)
        return;
    RC4_KEY st;
    PrepareKey(key, keySize, &st);
    RC4Imp(data, size, &st);
    std::memset(&st, 0, sizeof st);
}

void PDFEncryptionRC4::RC4(std::string& data, int size, const std::string& key)
{
    if (size < 0)
        size = 0;
    std::string block(static_cast<size_t>(size), '\0');
    std::memcpy(block.data(), data.data(), std::min(data.size(), block.size()));
    RC4(reinterpret_cast<unsigned char*>(block.data()), size,
        reinterpret_cast<unsigned char*>(const_cast<char*>(key.data())), static_cast<int>(key.size()));
    data.swap(block);
}

} // namespace pcrypt
