// Compact tables keyed by object (number, generation), for what the page-tree
// walk learns about every page of a document: a hash table holds 8 bytes of
// key and the value per slot, where an ordered tree spends 80 to 130 bytes a
// node. Order of iteration is unspecified.
#ifndef PDFKILN_REFTABLE_H
#define PDFKILN_REFTABLE_H

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

#include "pdfkiln_obj.h"
#include "pdfkiln_obj_page.h"

namespace PDF_KILN {

// An object key without the word an SObj carries.
struct SRef {
    int num = 0;
    int gen = 0;
    int aux = 0;
    SRef() = default;
    SRef(const SObj& o) : num(o.num), gen(o.gen), aux(o.aux) {}
    operator SObj() const { return SObj(num, gen, aux); }
};

// A number and generation alone, for values whose third word no one reads.
struct SKey {
    int num = 0;
    int gen = 0;
    SKey() = default;
    SKey(const SObj& o) : num(o.num), gen(o.gen) {}
    operator SObj() const { return SObj(num, gen); }
};

template <class V>
class RefMap {
public:
    struct Entry {
        SObj first;
        V& second;
    };
    class iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = Entry;
        using difference_type = std::ptrdiff_t;
        using reference = Entry;
        struct Arrow {
            Entry e;
            Entry* operator->() { return &e; }
        };
        using pointer = Arrow;

        iterator(RefMap* m, std::size_t at) : m_(m), at_(at) {}
        Entry operator*() const {
            const std::uint64_t k = m_->keys_[at_];
            return Entry{SObj(static_cast<int>(static_cast<std::uint32_t>(k >> 32)),
                              static_cast<int>(static_cast<std::uint32_t>(k))),
                         m_->vals_[at_]};
        }
        Arrow operator->() const { return Arrow{**this}; }
        iterator& operator++() {
            at_ = m_->nextUsed(at_ + 1);
            return *this;
        }
        bool operator==(const iterator& o) const { return at_ == o.at_; }
        bool operator!=(const iterator& o) const { return at_ != o.at_; }

    private:
        RefMap* m_;
        std::size_t at_;
    };

    iterator begin() { return iterator(this, nextUsed(0)); }
    iterator end() { return iterator(this, keys_.size()); }
    iterator find(const SObj& key) {
        const std::size_t at = slotOf(pack(key));
        return at < keys_.size() && used_[at] ? iterator(this, at) : end();
    }
    const V* get(const SObj& key) const {
        const std::size_t at = slotOf(pack(key));
        return at < keys_.size() && used_[at] ? &vals_[at] : nullptr;
    }
    std::size_t count(const SObj& key) const { return get(key) ? 1 : 0; }
    V& operator[](const SObj& key) { return emplace(key, V()).first->second; }
    // Enters (key, value) unless the key is present; true when entered.
    std::pair<iterator, bool> emplace(const SObj& key, V value) {
        const std::uint64_t k = pack(key);
        std::size_t at = slotOf(k);
        if (at < keys_.size() && used_[at]) return {iterator(this, at), false};
        if ((size_ + 1) * 4 > keys_.size() * 3) {
            grow();
            at = slotOf(k);
        }
        keys_[at] = k;
        vals_[at] = std::move(value);
        used_[at] = true;
        ++size_;
        return {iterator(this, at), true};
    }
    std::pair<iterator, bool> insert(const SObj& key) { return emplace(key, V()); }
    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    void clear() {
        std::vector<std::uint64_t>().swap(keys_);
        std::vector<V>().swap(vals_);
        std::vector<bool>().swap(used_);
        size_ = 0;
    }

private:
    static std::uint64_t pack(const SObj& o) {
        return (static_cast<std::uint64_t>(static_cast<std::uint32_t>(o.num)) << 32) |
               static_cast<std::uint32_t>(o.gen);
    }
    static std::size_t hash(std::uint64_t k) {
        k ^= k >> 33;
        k *= 0xff51afd7ed558ccdULL;
        k ^= k >> 33;
        return static_cast<std::size_t>(k);
    }
    // The slot holding `k`, or the free slot where it would go; past the end
    // when the table has no slots yet.
    std::size_t slotOf(std::uint64_t k) const {
        if (keys_.empty()) return 0;
        const std::size_t mask = keys_.size() - 1;
        std::size_t at = hash(k) & mask;
        while (used_[at] && keys_[at] != k) at = (at + 1) & mask;
        return at;
    }
    std::size_t nextUsed(std::size_t from) const {
        while (from < keys_.size() && !used_[from]) ++from;
        return from;
    }
    void grow() {
        std::vector<std::uint64_t> keys(keys_.empty() ? 16 : keys_.size() * 2);
        std::vector<V> vals(keys.size());
        std::vector<bool> used(keys.size());
        keys.swap(keys_);
        vals.swap(vals_);
        used.swap(used_);
        for (std::size_t i = 0; i < keys.size(); ++i) {
            if (!used[i]) continue;
            const std::size_t at = slotOf(keys[i]);
            keys_[at] = keys[i];
            vals_[at] = std::move(vals[i]);
            used_[at] = true;
        }
    }

    std::vector<std::uint64_t> keys_;
    std::vector<V> vals_;
    std::vector<bool> used_;
    std::size_t size_ = 0;
};

// A set of object keys.
class RefSet {
public:
    bool insert(const SObj& key) { return map_.emplace(key, 0).second; }
    std::size_t count(const SObj& key) const { return map_.count(key); }
    std::size_t size() const { return map_.size(); }
    bool empty() const { return map_.empty(); }
    void clear() { map_.clear(); }

private:
    RefMap<char> map_;
};

// Boxes, rotation and inherited references of every page. Pages name their
// record by index into a list in which a record equal to one of the last few
// entered is not entered again: the pages of a book share one or two. A
// CPaperInfo is made for a page only when asked for, then kept, so pointers
// handed out stay valid.
class PaperTable {
public:
    // Replaces what the page had; a CPaperInfo handed out before shows the new values.
    void set(const SObj& page, const CPaperInfo& info);
    const CPaperInfo* get(const SObj& page) const;
    void clear();

private:
    struct Record {
        RectTD box[5];
        int rotate;
        SRef resources, font, xobject;
        bool operator==(const Record& o) const;
    };
    static void fill(const Record& rec, CPaperInfo& info);

    RefMap<std::uint32_t> index_;
    std::vector<Record> records_;
    mutable RefMap<std::unique_ptr<CPaperInfo>> shown_;
};

}  // namespace PDF_KILN

#endif
