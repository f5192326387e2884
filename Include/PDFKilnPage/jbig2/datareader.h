// Byte and bit readers of the jbig2 decoder. Every read is
// bounded by the reader's own size: bytes past it read as zero.
#ifndef PDFKILN_JBIG2_DATAREADER_H
#define PDFKILN_JBIG2_DATAREADER_H

#include <cstddef>
#include <cstdint>
#include <iosfwd>

namespace jbig2 {

// A bounded view of bytes. Each segment steps through its own view; the frame
// then moves the main position by what was consumed.
class StepDataReader {
public:
    StepDataReader(const unsigned char* data, std::size_t size) : m_data(data), m_size(size), m_pos(0) {}

    // One byte; 0 past the end, and the position doesn't move then.
    unsigned char getByte() {
        if (m_pos >= m_size) return 0;
        return m_data[m_pos++];
    }
    // Big-endian; these always move by their width, reading 0 for bytes past
    // the end, as the original code didn't test the size.
    uint16_t getShort();
    uint32_t getInt();

    // The byte at an offset from the position, 0 past the end; no move.
    unsigned char peekByte(std::size_t offset = 0) const {
        return (m_pos + offset < m_size) ? m_data[m_pos + offset] : 0;
    }

    const unsigned char* getData() const { return m_data; }
    std::size_t getSize() const { return m_size; }
    std::size_t getPosition() const { return m_pos; }
    void setPosition(std::size_t pos) { m_pos = pos; }
    void skip(std::size_t n) { m_pos += n; }
    // Start of the unread rest, and its length (0 once past the end).
    const unsigned char* current() const { return m_data + (m_pos < m_size ? m_pos : m_size); }
    std::size_t remaining() const { return m_pos < m_size ? m_size - m_pos : 0; }

private:
    const unsigned char* m_data;
    std::size_t m_size;
    std::size_t m_pos;
};

// The frame's buffer over the input stream.
class StreamReader {
public:
    explicit StreamReader(std::istream* stream);
    ~StreamReader();
    StreamReader(const StreamReader&) = delete;
    StreamReader& operator=(const StreamReader&) = delete;

    void setTotal(int64_t total) { m_total = total; }
    int64_t getTotal() const { return m_total; }
    // Makes at least min(n, total) bytes available from the position (n below
    // 0 means total), reading from the stream as needed. Throws
    // JBIG2_OUT_OF_MEMORY when the buffer can't be had.
    void readData(int64_t n);
    // View of the unread rest of the buffer (or of at most `limit` bytes).
    StepDataReader view() const { return StepDataReader(m_data + m_pos, m_size - m_pos); }
    StepDataReader view(std::size_t limit) const;
    // Moves the position, never past the bytes in the buffer.
    void move(uint64_t n);
    std::size_t available() const { return m_size - m_pos; }
    std::istream* stream() const { return m_stream; }

private:
    unsigned char* m_data;
    std::size_t m_size;  // bytes in the buffer
    std::size_t m_pos;   // consumed position
    int64_t m_total;     // total size of the stream
    std::istream* m_stream;
};

// Bit reader: bytes past the size read as zero.
class DataReader {
public:
    DataReader(const unsigned char* data, uint32_t size);
    virtual ~DataReader();

    // The big-endian word at the byte position, which then moves by 4.
    uint32_t getNextDWord();
    // The big-endian word at a byte offset; zero bytes past the size.
    uint32_t getNextDWord(uint32_t offset) const {
        if (offset < m_size && m_size - offset > 4) {
            const unsigned char* p = m_data + offset;
            return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
                   (static_cast<uint32_t>(p[2]) << 8) | p[3];
        }
        return getNextDWordAtEnd(offset);
    }
    // The next 32 bits from the bit position, without moving.
    uint32_t peekNextDWord() const {
        if (m_bitsUsed == 0) return m_word;
        return (m_word << m_bitsUsed) | (getNextDWord(m_pos + 4) >> (32 - m_bitsUsed));
    }
    // Advances the bit position by n bits.
    void getNBitsMore(uint32_t n) {
        uint64_t bit = static_cast<uint64_t>(m_pos) * 8 + m_bitsUsed + n;
        // Positions far past the end all read zero; keep the counters bounded.
        const uint64_t limit = (static_cast<uint64_t>(m_size) + 8) * 8;
        if (bit > limit) bit = limit;
        const uint32_t pos = static_cast<uint32_t>(bit >> 3);
        m_bitsUsed = static_cast<uint32_t>(bit & 7);
        if (pos != m_pos) {
            m_pos = pos;
            m_word = getNextDWord(m_pos);
        }
    }
    // The word that holds the bits ready for examining.
    uint32_t getWord() const { return m_word; }
    // One bit of a packed row, most significant first.
    static int getBits(const unsigned char* data, uint32_t bitIndex) {
        return (data[bitIndex >> 3] >> (7 - (bitIndex & 7))) & 1;
    }
    // Whole bytes touched by what has been consumed.
    uint32_t bytesConsumed() const;
    // Bits consumed from the start.
    uint64_t bitPosition() const { return static_cast<uint64_t>(m_pos) * 8 + m_bitsUsed; }
    uint32_t getSize() const { return m_size; }

protected:
    // getNextDWord near and past the end, a byte at a time.
    uint32_t getNextDWordAtEnd(uint32_t offset) const;

    const unsigned char* m_data;
    uint32_t m_size;
    uint32_t m_pos;       // byte position of m_word
    uint32_t m_word;      // 32 bits from m_pos
    uint32_t m_bitsUsed;  // bits of m_word already consumed (0..7)
};

}  // namespace jbig2

#endif
