// Interlocked counters and the reference-counted base of the support
// library's shared objects (memory streams, parsers, nodes).
#ifndef ZQXML_ZQMUTEX_H
#define ZQXML_ZQMUTEX_H

#include <atomic>
#include <utility>

class ZQMutex {
public:
    // Adds or takes one, atomically; returns the new value.
    static long interlockedIncrement(std::atomic<long>& value);
    static long interlockedDecrement(std::atomic<long>& value);
};

// An object that deletes itself when its last ZQRef lets go of it.
class ZQRefCounted {
public:
    void addRef() const { ZQMutex::interlockedIncrement(refs); }
    void release() const {
        if (ZQMutex::interlockedDecrement(refs) == 0) delete this;
    }
    long refCount() const { return refs.load(); }

protected:
    ZQRefCounted() = default;
    ZQRefCounted(const ZQRefCounted&) = delete;
    ZQRefCounted& operator=(const ZQRefCounted&) = delete;
    virtual ~ZQRefCounted() = default;

private:
    mutable std::atomic<long> refs{0};
};

// An owning handle on a ZQRefCounted object.
template <typename T>
class ZQRef {
public:
    ZQRef() = default;
    ZQRef(T* p) : ptr(p) {  // NOLINT: implicit, as a raw pointer converts
        if (ptr) ptr->addRef();
    }
    ZQRef(const ZQRef& o) : ptr(o.ptr) {
        if (ptr) ptr->addRef();
    }
    ZQRef(ZQRef&& o) noexcept : ptr(o.ptr) { o.ptr = nullptr; }
    ~ZQRef() {
        if (ptr) ptr->release();
    }
    ZQRef& operator=(ZQRef o) noexcept {
        std::swap(ptr, o.ptr);
        return *this;
    }
    T* get() const { return ptr; }
    T* operator->() const { return ptr; }
    T& operator*() const { return *ptr; }
    explicit operator bool() const { return ptr != nullptr; }

private:
    T* ptr = nullptr;
};

#endif
