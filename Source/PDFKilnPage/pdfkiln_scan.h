// Walking one object's dictionary by keys and values: the small readers that
// the structure classes below the catalog (forms, optional content, names,
// logical structure, document parts) share. Every reader stops at the end of
// the input, at "endobj" and at "stream", so no input makes one spin.
#ifndef PDFKILN_SCAN_H
#define PDFKILN_SCAN_H

#include <istream>
#include <string>
#include <vector>

#include "pdfkiln_obj.h"
#include "pdfkiln_sourfile.h"

namespace PDF_KILN {
namespace scan {

// The token reader ran out of input (a token at the end keeps a zero byte).
bool ended(const std::istream& in, const std::string& token);

// Steps over an optional "n g obj" and the dictionary's "<<"; false when no
// dictionary starts there.
bool openDict(CSourFile& in);

// Discards one value: a reference, a string, a balanced array or dictionary,
// or a single token. False when the input ends (or an object ends) inside it.
bool skipValue(CSourFile& in);

// The rest of a value whose opener ("<<", "[", "(" or "<") was just read.
bool skipOpened(CSourFile& in, const std::string& opener);

// Reads one value and appends every reference in it, at any depth, in text
// order. References are not followed.
bool collectRefs(CSourFile& in, std::vector<SObj>& out);

// Reads an array and appends the references in it, nested arrays included
// (`flat`) or only those at its own level. A reference in place of the
// array is followed to the array object, a few times at most. False when no
// array was read.
bool readRefArray(CSourFile& in, std::vector<SObj>& out, bool flat);

// Calls `onKey(key)` for each key of the dictionary whose "<<" was just read,
// with the stream behind the key; `onKey` reads the value (skipValue when it
// has no use for it) and returns false to stop early. True when the
// dictionary's ">>" was reached.
template <class OnKey>
bool forEachKey(CSourFile& in, OnKey onKey) {
    std::string token;
    for (;;) {
        CObjRef ref;
        if (ref.Read(in)) continue;  // a stray value where a key belongs
        readPDFString(in, token);
        if (ended(in, token) || token == kwendobj || token == kwstream) return false;
        if (token == ">>") return true;
        if (token[0] == '/') {
            if (!onKey(token)) return false;
            if (!in.good()) return false;
            continue;
        }
        // A value without its key is stepped over whole.
        if ((token == "<<" || token == "[" || token == "(" || token == "<") && !skipOpened(in, token)) return false;
    }
}

// Runs `read(stream)` on the text of object `ref` (behind its "n g obj"),
// and puts the file back where it was. False when the object cannot be
// located; otherwise what `read` returns.
template <class Read>
bool atObject(CSourFile& in, const SObj& ref, Read read) {
    CSourFile& root = in.root();
    const std::streampos back = root.tellg();
    bool ok = false;
    {
        CObjReader at(root, SObj(ref.num, ref.gen));
        if (at) ok = read(at.stream());
    }
    root.clear();
    root.seekg(back);
    return ok;
}

}  // namespace scan
}  // namespace PDF_KILN

#endif
