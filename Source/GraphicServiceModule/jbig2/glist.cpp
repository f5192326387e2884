// GList of the JBIG2Dec decoder: a growing array of pointers.
#include "jbig2/glist.h"

#include <cstdlib>
#include <new>

#include "jbig2/jbig2decsegments.h"

GList::GList() : data(nullptr), size(0), length(0) {}

GList::GList(int sizeA) : data(nullptr), size(0), length(0) {
    if (sizeA > 0) {
        data = static_cast<void**>(std::malloc(static_cast<std::size_t>(sizeA) * sizeof(void*)));
        if (data) size = sizeA;
    }
}

GList::~GList() { std::free(data); }

void GList::expand() {
    const int newSize = size ? 2 * size : 8;
    void** p = static_cast<void**>(std::realloc(data, static_cast<std::size_t>(newSize) * sizeof(void*)));
    if (!p) throw JBIG2DecStop();
    data = p;
    size = newSize;
}

void GList::append(void* p) {
    if (length >= size) expand();
    data[length++] = p;
}

void* GList::del(int i) {
    if (i < 0 || i >= length) return nullptr;
    void* p = data[i];
    for (int k = i; k + 1 < length; ++k) data[k] = data[k + 1];
    --length;
    return p;
}
