// Memory stream of the support library.
#include "ZQXml/ZQMemStream.h"

#include <cstring>

ZQMemStream::ZQMemStream(const void* initial, std::size_t size, std::size_t blockSize)
    : block(blockSize ? blockSize : 8192) {
    if (initial) write(initial, size);
}

bool ZQMemStream::write(const void* data, std::size_t size) {
    if (size == 0) return true;
    if (!data || size > kMaxSize - used) return false;
    const std::size_t need = used + size;
    if (need > bytes.size()) bytes.resize((need + block - 1) / block * block);
    std::memcpy(bytes.data() + used, data, size);
    used = need;
    return true;
}
