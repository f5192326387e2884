// StepDataReader, StreamReader and DataReader.
#include "jbig2/datareader.h"

#include <cstring>
#include <istream>
#include <new>

#include "jbig2/imagedata.h"
#include "jbig2/jbig2result.h"

namespace jbig2 {

uint16_t StepDataReader::getShort() {
    const uint16_t v = static_cast<uint16_t>((peekByte(0) << 8) | peekByte(1));
    m_pos += 2;
    return v;
}

uint32_t StepDataReader::getInt() {
    const uint32_t v = (static_cast<uint32_t>(peekByte(0)) << 24) | (static_cast<uint32_t>(peekByte(1)) << 16) |
                       (static_cast<uint32_t>(peekByte(2)) << 8) | peekByte(3);
    m_pos += 4;
    return v;
}

StreamReader::StreamReader(std::istream* stream)
    : m_data(nullptr), m_size(0), m_pos(0), m_total(0), m_stream(stream) {}

StreamReader::~StreamReader() { delete[] m_data; }

void StreamReader::readData(int64_t n) {
    if (n < 0 || n > m_total) n = m_total;
    const std::size_t want = static_cast<std::size_t>(n);
    const std::size_t avail = m_size - m_pos;
    if (avail >= want || !m_stream) return;
    checkAllocation(want);
    unsigned char* buf = new (std::nothrow) unsigned char[want];
    if (!buf) throw JBIG2_OUT_OF_MEMORY;
    if (avail) std::memcpy(buf, m_data + m_pos, avail);
    std::size_t got = 0;
    if (m_stream->good()) {
        m_stream->read(reinterpret_cast<char*>(buf + avail), static_cast<std::streamsize>(want - avail));
        got = static_cast<std::size_t>(m_stream->gcount());
    }
    delete[] m_data;
    m_data = buf;
    m_size = avail + got;
    m_pos = 0;
}

StepDataReader StreamReader::view(std::size_t limit) const {
    const std::size_t avail = m_size - m_pos;
    return StepDataReader(m_data + m_pos, limit < avail ? limit : avail);
}

void StreamReader::move(uint64_t n) {
    const std::size_t avail = m_size - m_pos;
    m_pos += (n < avail) ? static_cast<std::size_t>(n) : avail;
}

DataReader::DataReader(const unsigned char* data, uint32_t size)
    : m_data(data), m_size(size), m_pos(0), m_word(0), m_bitsUsed(0) {
    m_word = getNextDWord(0);
}

DataReader::~DataReader() {}

uint32_t DataReader::getNextDWordAtEnd(uint32_t offset) const {
    uint32_t v = 0;
    for (uint32_t i = 0; i < 4; ++i) {
        v <<= 8;
        const uint64_t at = static_cast<uint64_t>(offset) + i;
        if (at < m_size) v |= m_data[at];
    }
    return v;
}

uint32_t DataReader::getNextDWord() {
    const uint32_t v = getNextDWord(m_pos);
    getNBitsMore(32);
    return v;
}

uint32_t DataReader::bytesConsumed() const {
    const uint32_t b = m_pos + (m_bitsUsed ? 1 : 0);
    return b < m_size ? b : m_size;
}

}  // namespace jbig2
