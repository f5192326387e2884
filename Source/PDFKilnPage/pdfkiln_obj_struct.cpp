// Logical structure and document parts: the walks that leave behind, in the
// source, the page of each structure element (tagPages) and the first page
// of each document part (partPages).
#include "pdfkiln_obj_struct.h"

#include <deque>
#include <set>

#include "pdfkiln_scan.h"
#include "pdfkiln_sourfile.h"

namespace PDF_KILN {

namespace {

// A reference where one is expected; otherwise the value is stepped over.
bool readRef(CSourFile& in, SObj& out) {
    CObjRef ref;
    if (ref.Read(in)) {
        out = SObj(ref.num, ref.gen);
        return true;
    }
    scan::skipValue(in);
    return false;
}

// Reads every node below `start`, each once, breadth first with a work list:
// a cycle, a node reached twice or a tree of any depth ends. False when a
// node could not be read to its end (the walk goes on with the others).
template <class Node>
bool walk(CSourFile& in, const std::vector<SObj>& start, int& count) {
    CSourFile& root = in.root();
    std::set<SObj> seen;
    std::deque<SObj> work(start.begin(), start.end());
    bool ok = true;
    while (!work.empty()) {
        const SObj key(work.front().num, work.front().gen);
        work.pop_front();
        if (key.num <= 0 || !seen.insert(key).second) continue;
        Node node(key);
        if (!scan::atObject(root, key, [&](CSourFile& s) { return node.Read(s); })) ok = false;
        ++count;
        for (const SObj& c : node.children)
            if (!seen.count(c)) work.push_back(c);
    }
    return ok;
}

// The children of a /K value: one reference, or the references of an array
// at its own level (marked-content numbers and the dictionaries of marked
// content and object references pass by).
void readKids(CSourFile& in, std::vector<SObj>& kids) {
    CObjRef ref;
    if (ref.Read(in)) {
        kids.push_back(SObj(ref.num, ref.gen));
        return;
    }
    scan::readRefArray(in, kids, false);
    in.clear(in.rdstate() & ~std::ios::failbit);
}

}  // namespace

bool CTag::Read(CSourFile& in) {
    children.clear();
    page = SObj();
    if (!scan::openDict(in)) return false;
    const bool ok = scan::forEachKey(in, [&](const std::string& key) {
        if (key == nmK) {
            readKids(in, children);
            return true;
        }
        if (key == nmPg) {
            readRef(in, page);
            return true;
        }
        return scan::skipValue(in);
    });
    if (page.num != 0 || page.gen != 0) in.root().tagPages[SObj(self.num, self.gen)] = page;
    return ok;
}

bool CDPart::Read(CSourFile& in) {
    children.clear();
    page = SObj();
    if (!scan::openDict(in)) return false;
    bool partsRead = false;
    const bool ok = scan::forEachKey(in, [&](const std::string& key) {
        if (key == nmDParts) {
            // An array of arrays of parts; the read ends behind it.
            scan::readRefArray(in, children, true);
            in.clear(in.rdstate() & ~std::ios::failbit);
            partsRead = true;
            return false;
        }
        if (key == nmStart) {
            readRef(in, page);
            return true;
        }
        return scan::skipValue(in);
    });
    if (page.num != 0 || page.gen != 0) in.root().partPages[SObj(self.num, self.gen)] = page;
    return ok || (partsRead && in.good());
}

bool CStructTreeRoot::Read(CSourFile& in) {
    nodesRead = 0;
    if (!scan::openDict(in)) return false;
    std::vector<SObj> kids;
    const bool ok = scan::forEachKey(in, [&](const std::string& key) {
        if (key == nmK) {
            readKids(in, kids);
            return true;
        }
        return scan::skipValue(in);
    });
    const bool walked = walk<CTag>(in, kids, nodesRead);
    return ok && walked;
}

bool CDPartRoot::Read(CSourFile& in) {
    nodesRead = 0;
    if (!scan::openDict(in)) return false;
    std::vector<SObj> top;
    const bool ok = scan::forEachKey(in, [&](const std::string& key) {
        if (key == nmDPartRootNode) {
            SObj node;
            if (readRef(in, node)) top.push_back(node);
            return true;
        }
        return scan::skipValue(in);
    });
    const bool walked = walk<CDPart>(in, top, nodesRead);
    return ok && walked;
}

}  // namespace PDF_KILN
