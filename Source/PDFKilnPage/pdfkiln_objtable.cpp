// The object table: a vector of slots by object number, and an ordered map
// for what does not fit a slot.
#include "pdfkiln_obj.h"

#include <algorithm>
#include <stdexcept>

namespace PDF_KILN {

namespace {
// Numbers up to this far past the entries already held take a slot of the
// vector; a hostile number of two billion goes to the map instead of
// growing the vector to it.
constexpr std::size_t kSlack = 65536;
}  // namespace

bool ObjTable::slotFor(int num, int gen) {
    if (num < 0 || gen == kNoEntry) return false;
    const std::size_t n = static_cast<std::size_t>(num);
    if (n < flat_.size()) return flat_[n].gen == kNoEntry;
    if (n > 8 * size_ + kSlack) return false;
    flat_.resize(n + 1);
    return true;
}

const SObjState* ObjTable::state(int num, int gen) const {
    if (num >= 0 && static_cast<std::size_t>(num) < flat_.size() && flat_[static_cast<std::size_t>(num)].gen == gen &&
        gen != kNoEntry)
        return &flat_[static_cast<std::size_t>(num)].st;
    if (extra_.empty()) return nullptr;
    auto it = extra_.find({num, gen});
    return it == extra_.end() ? nullptr : &it->second;
}

ObjTable::iterator ObjTable::find(const SObj& key) {
    const int num = key.num, gen = key.gen;
    if (num >= 0 && static_cast<std::size_t>(num) < flat_.size() && gen != kNoEntry &&
        flat_[static_cast<std::size_t>(num)].gen == gen)
        return iterator(this, static_cast<std::size_t>(num), extra_.upper_bound({num, gen}));
    auto x = extra_.find({num, gen});
    if (x == extra_.end()) return end();
    // The vector's next entry after (num, gen): this number's slot when it
    // holds a higher generation, else the next used one.
    std::size_t f = 0;
    if (num >= 0) {
        f = static_cast<std::size_t>(num);
        if (!(f < flat_.size() && flat_[f].gen != kNoEntry && flat_[f].gen > gen)) f = nextUsed(f + 1);
    } else {
        f = nextUsed(0);
    }
    return iterator(this, f, x);
}

std::pair<ObjTable::iterator, bool> ObjTable::insert(const std::pair<SObj, SObjState>& entry) {
    const int num = entry.first.num, gen = entry.first.gen;
    auto at = find(entry.first);
    if (at != end()) return {at, false};
    if (slotFor(num, gen)) {
        Slot& s = flat_[static_cast<std::size_t>(num)];
        s.gen = gen;
        s.st = entry.second;
    } else {
        extra_.emplace(std::make_pair(num, gen), entry.second);
    }
    ++size_;
    return {find(entry.first), true};
}

SObjState& ObjTable::operator[](const SObj& key) {
    if (SObjState* st = state(key.num, key.gen)) return *st;
    insert({SObj(key.num, key.gen), SObjState()});
    return *state(key.num, key.gen);
}

const SObjState& ObjTable::at(const SObj& key) const {
    const SObjState* st = state(key.num, key.gen);
    if (!st) throw std::out_of_range("object table");
    return *st;
}

void ObjTable::erase(const SObj& key) {
    const int num = key.num, gen = key.gen;
    if (num >= 0 && static_cast<std::size_t>(num) < flat_.size() && gen != kNoEntry &&
        flat_[static_cast<std::size_t>(num)].gen == gen) {
        flat_[static_cast<std::size_t>(num)] = Slot();
        --size_;
        return;
    }
    if (extra_.erase({num, gen})) --size_;
}

SObjState* ObjTable::lowestOf(int num, int* gen) {
    SObjState* best = nullptr;
    int bestGen = 0;
    if (num >= 0 && static_cast<std::size_t>(num) < flat_.size() && flat_[static_cast<std::size_t>(num)].gen != kNoEntry) {
        best = &flat_[static_cast<std::size_t>(num)].st;
        bestGen = flat_[static_cast<std::size_t>(num)].gen;
    }
    auto x = extra_.lower_bound({num, INT32_MIN});
    if (x != extra_.end() && x->first.first == num && (!best || x->first.second < bestGen)) {
        best = &x->second;
        bestGen = x->first.second;
    }
    if (best && gen) *gen = bestGen;
    return best;
}

int ObjTable::highestNumber() const {
    int high = -1;
    const std::size_t f = flat_.size();
    for (std::size_t i = f; i-- > 0;) {
        if (flat_[i].gen != kNoEntry) {
            high = static_cast<int>(i);
            break;
        }
    }
    if (!extra_.empty()) high = std::max(high, extra_.rbegin()->first.first);
    return high;
}

void ObjTable::clear() {
    flat_.clear();
    flat_.shrink_to_fit();
    extra_.clear();
    size_ = 0;
}

}  // namespace PDF_KILN
