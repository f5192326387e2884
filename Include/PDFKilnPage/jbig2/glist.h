// GList: the growing array of pointers of the JBIG2Dec decoder.
// It owns the array, not what the pointers point to.
#ifndef PDFKILN_JBIG2DEC_GLIST_H
#define PDFKILN_JBIG2DEC_GLIST_H

class GList {
public:
    GList();
    explicit GList(int sizeA);
    ~GList();
    GList(const GList&) = delete;
    GList& operator=(const GList&) = delete;

    int getLength() const { return length; }
    // Item i, or null outside 0..length-1.
    void* get(int i) const { return (i >= 0 && i < length) ? data[i] : nullptr; }
    void append(void* p);
    // Removes item i and returns it (null outside the list).
    void* del(int i);
    void clear() { length = 0; }

private:
    void expand();

    void** data;
    int size;
    int length;
};

#endif
