// Input from memory: the document's bytes and a seekable read buffer over them.
#include "pdfkiln_memsource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace PDF_KILN {

namespace {

// A file is read in windows of this size, aligned to it, and this many are
// kept: reading a page touches its own objects and a few shared ones.
constexpr std::size_t kWindowSize = 64 * 1024;
constexpr std::size_t kWindows = 8;

}  // namespace

CMemoryBuf::~CMemoryBuf() { closeFile(); }

void CMemoryBuf::closeFile() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    windows_.clear();
    winOff_ = 0;
}

void CMemoryBuf::reset(const char* data, std::size_t size) {
    closeFile();
    base_ = const_cast<char*>(data);
    size_ = data ? size : 0;
    past_ = 0;
    setg(base_, base_, base_ + size_);
}

void CMemoryBuf::resetFile(int fd, std::size_t size) {
    closeFile();
    base_ = nullptr;
    size_ = size;
    past_ = 0;
    fd_ = fd;
    windows_.resize(kWindows);
    setg(nullptr, nullptr, nullptr);
    showWindow(0);
}

CMemoryBuf::off_type CMemoryBuf::position() const {
    return static_cast<off_type>(winOff_) + (gptr() - eback()) + past_;
}

bool CMemoryBuf::copyRange(std::size_t from, std::size_t to, std::string& out) const {
    if (to < from || past_ > 0) return false;
    if (fd_ < 0) {
        if (to > size_) return false;
        out.append(base_ + from, to - from);
        return true;
    }
    if (!eback() || from < winOff_) return false;
    const std::size_t shown = static_cast<std::size_t>(egptr() - eback());
    if (to - winOff_ > shown) return false;
    out.append(eback() + (from - winOff_), to - from);
    return true;
}

bool CMemoryBuf::showWindow(std::size_t offset) {
    if (offset >= size_) return false;
    const std::size_t start = offset / kWindowSize * kWindowSize;
    Window* slot = nullptr;
    for (Window& w : windows_) {
        if (w.loaded && w.off == start) {
            slot = &w;
            break;
        }
    }
    if (!slot) {
        // The window read longest ago makes room.
        slot = &windows_[0];
        for (Window& w : windows_)
            if (!w.loaded || w.used < slot->used) slot = &w;
        const std::size_t want = std::min(kWindowSize, size_ - start);
        slot->bytes.resize(want);
        std::size_t got = 0;
        while (got < want) {
            const ssize_t n = ::pread(fd_, slot->bytes.data() + got, want - got, static_cast<off_t>(start + got));
            if (n <= 0) break;
            got += static_cast<std::size_t>(n);
        }
        slot->bytes.resize(got);
        slot->off = start;
        slot->loaded = got > 0;
        if (!slot->loaded) return false;
    }
    slot->used = ++clock_;
    char* b = slot->bytes.data();
    const std::size_t at = offset - start;
    if (at >= slot->bytes.size()) return false;
    winOff_ = start;
    setg(b, b + at, b + slot->bytes.size());
    return true;
}

CMemoryBuf::pos_type CMemoryBuf::seekoff(off_type off, std::ios_base::seekdir dir, std::ios_base::openmode which) {
    if (!(which & std::ios_base::in)) return pos_type(off_type(-1));
    const off_type size = static_cast<off_type>(size_);
    off_type to;
    switch (dir) {
        case std::ios_base::beg: to = off; break;
        case std::ios_base::cur: to = position() + off; break;
        default: to = size + off; break;
    }
    if (to < 0) return pos_type(off_type(-1));
    past_ = 0;
    if (fd_ < 0) {
        if (to <= size) {
            setg(base_, base_ + to, base_ + size_);
        } else {
            // Beyond the end, as a file allows: an empty read area there makes
            // every read meet the end and leaves nothing to put back.
            past_ = to - size;
            setg(base_ + size_, base_ + size_, base_ + size_);
        }
        return pos_type(to);
    }
    const off_type inWindow = to - static_cast<off_type>(winOff_);
    if (eback() && inWindow >= 0 && inWindow < egptr() - eback()) {
        setg(eback(), eback() + inWindow, egptr());
    } else if (!showWindow(static_cast<std::size_t>(to))) {
        // At or beyond the end: an empty read area standing for that place.
        winOff_ = size_;
        past_ = to - size;
        setg(nullptr, nullptr, nullptr);
    }
    return pos_type(to);
}

CMemoryBuf::pos_type CMemoryBuf::seekpos(pos_type pos, std::ios_base::openmode which) {
    return seekoff(off_type(pos), std::ios_base::beg, which);
}

CMemoryBuf::int_type CMemoryBuf::underflow() {
    if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
    if (fd_ < 0 || past_ > 0) return traits_type::eof();
    const std::size_t next = winOff_ + static_cast<std::size_t>(egptr() - eback());
    if (!showWindow(next)) return traits_type::eof();
    return traits_type::to_int_type(*gptr());
}

CMemoryBuf::int_type CMemoryBuf::pbackfail(int_type c) {
    // Stepping back over the start of a window shows the window before it.
    if (fd_ < 0 || past_ > 0 || gptr() != eback() || winOff_ == 0) return traits_type::eof();
    if (!showWindow(winOff_ - 1)) return traits_type::eof();
    if (!traits_type::eq_int_type(c, traits_type::eof()) && !traits_type::eq(traits_type::to_char_type(c), *gptr()))
        return traits_type::eof();
    return traits_type::to_int_type(*gptr());
}

bool CMemSource::loadFile(const char* name) {
    if (!name) return false;
    const int fd = ::open(name, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return false;
    }
    buf_.resetFile(fd, static_cast<std::size_t>(st.st_size));
    return true;
}

bool CMemSource::loadStream(std::istream& in) {
    copy_.clear();
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
    buf_.reset(copy_.data(), copy_.size());
    return true;
}

}  // namespace PDF_KILN
