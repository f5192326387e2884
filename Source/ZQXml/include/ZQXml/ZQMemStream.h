// A growable memory stream: bytes written in, read back as one block.
#ifndef ZQXML_ZQMEMSTREAM_H
#define ZQXML_ZQMEMSTREAM_H

#include <cstddef>
#include <vector>

#include "ZQMutex.h"

class ZQMemStream : public ZQRefCounted {
public:
    // `initial` (may be null) is copied in as the first `size` bytes; the
    // storage then grows in whole blocks of `blockSize` bytes.
    explicit ZQMemStream(const void* initial = nullptr, std::size_t size = 0, std::size_t blockSize = 8192);

    // Appends; false (and nothing written) when the stream would pass its
    // limit or the bytes are null with a size.
    bool write(const void* data, std::size_t size);
    const char* data() const { return bytes.data(); }
    std::size_t size() const { return used; }

    // The most a stream holds: 1 GiB, below the int range libxml2 reads.
    static constexpr std::size_t kMaxSize = std::size_t(1) << 30;

private:
    std::vector<char> bytes;
    std::size_t used = 0;
    std::size_t block;
};

#endif
