// Link targets: destinations, actions and named-destination lookup. These
// classes only read: a link's target survives as the reference that the
// annotation copier writes in place of its destination.
#include "pdfkiln_obj_action.h"

#include <algorithm>
#include <cfloat>

#include "pdfkiln_obj_catalog.h"
#include "pdfkiln_sourfile.h"

namespace PDF_KILN {

namespace {

// References followed from one destination or action, and /Next actions
// chained, before the value is taken as broken.
constexpr int kMaxFollow = 16;
// Levels of a name tree walked before a branch is given up.
constexpr int kMaxTreeDepth = 32;
// Tokens one value may take.
constexpr int kMaxTokens = 1 << 16;

bool ended(const std::istream& in, const std::string& token) {
    return !in.good() && (token.empty() || token.back() == '\0');
}

// The 1-based index of a page in the source's page vector, 0 when it is none.
int pageIndex(CSourFile& root, const SObj& ref) {
    if (!root.isPage(ref)) return 0;
    auto it = std::find(root.pages.begin(), root.pages.end(), ref);
    return it == root.pages.end() ? 0 : static_cast<int>(it - root.pages.begin()) + 1;
}

// A page reference, or a structure element that names one.
int targetPage(CSourFile& root, const SObj& ref) {
    if (int p = pageIndex(root, ref)) return p;
    root.catalog.readStructure(root);
    auto tag = root.tagPages.find(ref);
    if (tag != root.tagPages.end()) return pageIndex(root, tag->second);
    return 0;
}

// A string value whose opener was read: its bytes.
std::string readString(CSourFile& in, const std::string& opener) {
    CStringType s;
    s.isHex = opener == "<";
    s.Read(in);
    return s.text;
}

}  // namespace

int CDest::GetDestStyle(const std::string& n) {
    static const char* const styles[] = {"/XYZ", "/Fit", "/FitH", "/FitV", "/FitR", "/FitB", "/FitBH", "/FitBV"};
    for (int i = 0; i < 8; ++i) {
        if (n == styles[i]) {
            style = i + 1;
            return 1;
        }
    }
    return 0;
}

bool CDest::GetFit(CSourFile& in) {
    int count = 0;
    switch (style) {
        case kXYZ: count = 3; break;
        case kFitH: case kFitV: case kFitBH: case kFitBV: count = 1; break;
        case kFitR: count = 4; break;
        default: return true;
    }
    for (int i = 0; i < count; ++i) {
        const std::streampos at = in.tellg();
        float v = 0;
        if (in >> v) {
            pos[i] = v;
            continue;
        }
        in.clear();
        in.seekg(at);
        std::string token;
        readPDFString(in, token);
        if (token == "null") {
            // A left or top that stays as it is: the largest finite float.
            pos[i] = FLT_MAX;
            continue;
        }
        in.clear();
        in.seekg(at);
        return false;
    }
    return true;
}

bool CDest::Read(CSourFile& in) {
    CSourFile& root = in.root();
    int arrayDepth = 0;
    bool first = true;
    std::string token;
    for (int n = 0; n < kMaxTokens && in.good(); ++n) {
        CObjRef ref;
        if (ref.Read(in)) {
            const SObj r(ref.num, ref.gen);
            if (arrayDepth == 0 && first && !root.isPage(r)) root.catalog.readStructure(root);
            if (arrayDepth == 0 && first && !root.isPage(r) && !root.tagPages.count(r)) {
                // The destination is an object of its own: read it there.
                if (depth >= kMaxFollow) return false;
                const std::streampos back = root.tellg();
                bool ok = false;
                {
                    CObjReader at(in, r);
                    if (at) {
                        ++depth;
                        ok = Read(at.stream());
                        --depth;
                    }
                }
                root.clear();
                root.seekg(back);
                if (&in != &root) in.clear();
                return ok;
            }
            if (arrayDepth <= 1 && page == 0) page = targetPage(root, r);
            first = false;
            if (arrayDepth == 0) return true;
            continue;
        }
        readPDFString(in, token);
        if (ended(in, token) || token == kwendobj || token == kwstream) break;
        if (token == "[") {
            ++arrayDepth;
            continue;
        }
        if (token == "]") {
            if (--arrayDepth <= 0) return true;
            continue;
        }
        if (token == "(" || token == "<") {
            const std::string s = readString(in, token);
            if (arrayDepth == 0) {
                name = s;
                return true;
            }
            continue;
        }
        if (token == "<<") {
            if (arrayDepth != 0) return false;
            // A dictionary that holds the destination behind /D.
            int dict = 1;
            while (dict > 0 && in.good() && ++n < kMaxTokens) {
                readPDFString(in, token);
                if (ended(in, token)) return false;
                if (token == "<<") ++dict;
                else if (token == ">>") --dict;
                else if (token == "(" || token == "<") readString(in, token);
                else if (dict == 1 && token == nmD) return Read(in);
            }
            return false;
        }
        if (token == "null") {
            page = 0;
            first = false;
            continue;
        }
        if (token[0] == '/') {
            if (arrayDepth == 0) {
                name = token.substr(1);
                return true;
            }
            if (arrayDepth == 1 && GetDestStyle(token)) {
                GetFit(in);
                in.clear(in.rdstate() & ~std::ios::failbit);
            }
            first = false;
            continue;
        }
        if (arrayDepth == 0) return false;
        first = false;  // a page number (a remote destination)
    }
    return false;
}

// ---------------------------------------------------------------------------

int CAction::getActionType(const std::string& n) { return n == nmGoTo || n == nmGoToDp ? 0 : 8; }

bool CAction::Read(CSourFile& in) {
    CSourFile& root = in.root();
    CObjRef ref;
    if (ref.Read(in)) {
        if (depth >= kMaxFollow) return false;
        const std::streampos back = root.tellg();
        bool ok = false;
        {
            CObjReader at(in, SObj(ref.num, ref.gen));
            if (at) {
                ++depth;
                ok = Read(at.stream());
                --depth;
            }
        }
        root.clear();
        root.seekg(back);
        if (&in != &root) in.clear();
        return ok;
    }
    std::string token;
    readPDFString(in, token);
    if (token != "<<") return false;
    int dict = 1;
    for (int n = 0; dict > 0 && in.good() && n < kMaxTokens; ++n) {
        CObjRef skipped;
        if (skipped.Read(in)) continue;
        readPDFString(in, token);
        if (ended(in, token) || token == kwendobj || token == kwstream) return false;
        if (token == "<<") {
            ++dict;
        } else if (token == ">>") {
            --dict;
        } else if (token == "(" || token == "<") {
            readString(in, token);
        } else if (dict == 1 && token == nmS) {
            std::string s;
            readPDFString(in, s);
            type = getActionType(s);
            remote = s == nmGoToR;
        } else if (dict == 1 && (token == nmD || token == nmSD) && type == 0) {
            CDest d;
            if (d.Read(in)) {
                hasDest = true;
                dest.page = d.page;
                dest.style = d.style ? d.style : CDest::kFit;
                std::copy(d.pos, d.pos + 4, dest.pos);
                dest.name = d.name;
            }
            in.clear(in.rdstate() & ~std::ios::failbit);
        } else if (dict == 1 && token == nmDp) {
            CObjRef part;
            if (part.Read(in)) {
                hasDest = true;
                dest.style = CDest::kFit;
                root.catalog.readStructure(root);
                auto it = root.partPages.find(SObj(part.num, part.gen));
                dest.page = it == root.partPages.end() ? 0 : pageIndex(root, it->second);
            }
        } else if (dict == 1 && token == nmNext) {
            if (depth >= kMaxFollow) continue;
            CAction next;
            next.depth = depth + 1;
            const std::streampos at = in.tellg();
            CObjRef probe;
            const bool isRef = probe.Read(in);
            in.clear();
            in.seekg(at);
            if (isRef || in.peek() == '<') {
                next.Read(in);
                in.clear(in.rdstate() & ~std::ios::failbit);
            }
        }
    }
    return dict == 0;
}

// ---------------------------------------------------------------------------

bool CDests::readValue(CSourFile& root, CSourFile& in) {
    (void)root;
    found = true;
    return dest.Read(in);
}

bool CDests::readNodeAt(CSourFile& root, CSourFile& in, int depth, std::set<SObj>& seen) {
    std::string token;
    readPDFString(in, token);
    if (token != "<<") return false;
    int dict = 1;
    for (int n = 0; dict > 0 && in.good() && n < kMaxTokens; ++n) {
        readPDFString(in, token);
        if (ended(in, token) || token == kwendobj || token == kwstream) return false;
        if (token == "<<") {
            ++dict;
        } else if (token == ">>") {
            --dict;
        } else if (token == "(" || token == "<") {
            readString(in, token);
        } else if (dict == 1 && token == nmNames) {
            // [ key value key value ... ]
            readPDFString(in, token);
            if (token != "[") return false;
            for (; n < kMaxTokens && in.good(); ++n) {
                readPDFString(in, token);
                if (ended(in, token) || token == "]") break;
                std::string key;
                if (token == "(" || token == "<") key = readString(in, token);
                else key = token;
                if (key == name) return readValue(root, in);
                if (!skipValue(in)) return false;
            }
        } else if (dict == 1 && token == nmKids) {
            readPDFString(in, token);
            if (token != "[") return false;
            std::vector<SObj> kids;
            for (; n < kMaxTokens && in.good(); ++n) {
                CObjRef kid;
                if (!kid.Read(in)) break;
                kids.push_back(SObj(kid.num, kid.gen));
            }
            for (const SObj& k : kids) {
                if (readNode(root, k, depth + 1, seen)) return true;
                if (found) return false;
            }
        } else if (dict == 1 && !token.empty() && token[0] == '/' && token.substr(1) == name && depth == 0) {
            // The catalog's /Dests dictionary names its destinations as keys.
            return readValue(root, in);
        }
    }
    return false;
}

bool CDests::readNode(CSourFile& root, const SObj& node, int depth, std::set<SObj>& seen) {
    if (depth > kMaxTreeDepth || !seen.insert(node).second) return false;
    const std::streampos back = root.tellg();
    bool ok = false;
    {
        CObjReader at(root, node);
        if (at) ok = readNodeAt(root, at.stream(), depth, seen);
    }
    root.clear();
    root.seekg(back);
    return ok;
}

// Reads the catalog: its /Dests dictionary first, then the /Dests tree of its
// /Names, whether each is held directly or by reference.
bool CDests::Read(CSourFile& in) {
    CSourFile& root = in.root();
    StreamRecover<CSourFile> keep(root);
    CObjReader cat(root, root.catalog.self);
    if (!cat) return false;
    CSourFile& s = cat.stream();
    std::string token;
    readPDFString(s, token);
    if (token != "<<") return false;
    std::set<SObj> seen;
    int dict = 1;
    for (int n = 0; dict > 0 && s.good() && n < kMaxTokens; ++n) {
        CObjRef skipped;
        if (skipped.Read(s)) continue;
        readPDFString(s, token);
        if (ended(s, token) || token == kwendobj) break;
        if (token == "<<") {
            ++dict;
        } else if (token == ">>") {
            --dict;
        } else if (token == "(" || token == "<") {
            readString(s, token);
        } else if (dict == 1 && (token == nmDests || token == nmNames)) {
            const bool isNames = token == nmNames;
            CObjRef ref;
            std::streampos behind;
            auto lookIn = [&](CSourFile& at) -> bool {
                if (!isNames) return readNodeAt(root, at, 0, seen);
                // The name dictionary: its /Dests entry is the tree.
                std::string t;
                readPDFString(at, t);
                if (t != "<<") return false;
                int d = 1;
                for (int k = 0; d > 0 && at.good() && k < kMaxTokens; ++k) {
                    CObjRef r;
                    if (r.Read(at)) continue;
                    readPDFString(at, t);
                    if (ended(at, t) || t == kwendobj) return false;
                    if (t == "<<") ++d;
                    else if (t == ">>") --d;
                    else if (t == "(" || t == "<") readString(at, t);
                    else if (d == 1 && t == nmDests) {
                        CObjRef tree;
                        if (tree.Read(at)) return readNode(root, SObj(tree.num, tree.gen), 1, seen);
                        return readNodeAt(root, at, 1, seen);
                    }
                }
                return false;
            };
            bool hit = false;
            if (ref.Read(s)) {
                behind = s.tellg();
                const SObj target(ref.num, ref.gen);
                if (seen.insert(target).second) {
                    CObjReader at(root, target);
                    if (at) hit = lookIn(at.stream());
                }
                root.clear();
                s.clear();
                s.seekg(behind);
            } else {
                const std::streampos start = s.tellg();
                hit = lookIn(s);
                if (!hit) {
                    s.clear();
                    s.seekg(start);
                    if (!skipValue(s)) break;
                }
            }
            if (hit || found) return found;
        }
    }
    return found;
}

// ---------------------------------------------------------------------------

bool CSourFile::getNameDest(const std::string& destName, DestTD& dest) {
    if (destName.empty()) return false;
    CDests dests;
    dests.flags |= 16;
    dests.name = destName;
    dests.Read(*this);
    clear();
    dest.page = dests.dest.page;
    dest.style = dests.dest.style ? dests.dest.style : CDest::kFit;
    std::copy(dests.dest.pos, dests.dest.pos + 4, dest.pos);
    return true;
}

}  // namespace PDF_KILN
