// Input from memory: the document's bytes and a seekable read buffer over them.
#include "pdfkiln_memsource.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

namespace PDF_KILN {

void CMemoryBuf::reset(const char* data, std::size_t size) {
    base_ = const_cast<char*>(data);
    size_ = data ? size : 0;
    past_ = 0;
    setg(base_, base_, base_ + size_);
}

CMemoryBuf::pos_type CMemoryBuf::seekoff(off_type off, std::ios_base::seekdir dir, std::ios_base::openmode which) {
    if (!(which & std::ios_base::in)) return pos_type(off_type(-1));
    const off_type size = static_cast<off_type>(size_);
    const off_type here = (gptr() - base_) + past_;
    off_type to;
    switch (dir) {
        case std::ios_base::beg: to = off; break;
        case std::ios_base::cur: to = here + off; break;
        default: to = size + off; break;
    }
    if (to < 0) return pos_type(off_type(-1));
    if (to <= size) {
        past_ = 0;
        setg(base_, base_ + to, base_ + size_);
    } else {
        // Beyond the end, as a file allows: an empty read area there makes
        // every read meet the end and leaves nothing to put back.
        past_ = to - size;
        setg(base_ + size_, base_ + size_, base_ + size_);
    }
    return pos_type(to);
}

CMemoryBuf::pos_type CMemoryBuf::seekpos(pos_type pos, std::ios_base::openmode which) {
    return seekoff(off_type(pos), std::ios_base::beg, which);
}

CMemSource::~CMemSource() { release(); }

void CMemSource::release() {
    if (mapped_) munmap(mapped_, size_);
    mapped_ = nullptr;
    copy_.clear();
    copy_.shrink_to_fit();
    data_ = nullptr;
    size_ = 0;
    buf_.reset(nullptr, 0);
}

bool CMemSource::loadFile(const char* name) {
    release();
    if (!name) return false;
    const int fd = ::open(name, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat st;
    bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
    if (ok && st.st_size > 0) {
        void* m = ::mmap(nullptr, static_cast<std::size_t>(st.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
        if (m != MAP_FAILED) {
            mapped_ = m;
            data_ = static_cast<const char*>(m);
            size_ = static_cast<std::size_t>(st.st_size);
        } else {
            // Where the file cannot be mapped, read it whole.
            copy_.resize(static_cast<std::size_t>(st.st_size));
            std::size_t got = 0;
            while (got < copy_.size()) {
                const ssize_t n = ::read(fd, &copy_[got], copy_.size() - got);
                if (n <= 0) break;
                got += static_cast<std::size_t>(n);
            }
            copy_.resize(got);
            data_ = copy_.data();
            size_ = copy_.size();
        }
    }
    ::close(fd);
    if (!ok) return false;
    buf_.reset(data_, size_);
    return true;
}

bool CMemSource::loadStream(std::istream& in) {
    release();
    if (!in.good()) return false;
    std::streambuf* sb = in.rdbuf();
    if (!sb) return false;
    sb->pubseekoff(0, std::ios_base::beg, std::ios_base::in);
    char chunk[65536];
    for (;;) {
        const std::streamsize n = sb->sgetn(chunk, sizeof chunk);
        if (n <= 0) break;
        copy_.append(chunk, static_cast<std::size_t>(n));
    }
    sb->pubseekoff(0, std::ios_base::beg, std::ios_base::in);
    data_ = copy_.data();
    size_ = copy_.size();
    buf_.reset(data_, size_);
    return true;
}

}  // namespace PDF_KILN
