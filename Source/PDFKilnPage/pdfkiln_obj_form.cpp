// The dictionaries below the catalog that are read for their lists and for
// the objects they bring along: the interactive form, optional content
// properties and the name dictionary (Parts 4.5, 4.6).
#include <algorithm>
#include <list>

#include "pdfkiln_destfile.h"
#include "pdfkiln_obj_catalog.h"
#include "pdfkiln_obj_page.h"
#include "pdfkiln_scan.h"
#include "pdfkiln_sourfile.h"

namespace PDF_KILN {

namespace {

// Enters references into the closure as objects of the name and form kind
// (the source's name-tree set), and what they reach with them: the page's
// closure reader follows them, keeping pages out.
void enterClosure(CSourFile& root, const SObj& holder, const std::vector<SObj>& refs) {
    std::list<SObj> work;
    for (const SObj& r : refs) {
        SObj o(r.num, r.gen);
        if (o.num <= 0 || root.isPage(o) || root.fileObjects.count(o)) continue;
        root.formObjects.insert(o);
        root.insertFileObject(o);
        work.push_back(o);
    }
    if (work.empty()) return;
    StreamRecover<CSourFile> keep(root);
    CPage reader(holder);
    reader.ReadOthers(root, work);
}

void appendUnique(std::vector<SObj>& to, const std::vector<SObj>& from) {
    for (const SObj& o : from)
        if (std::find(to.begin(), to.end(), o) == to.end()) to.push_back(o);
}

}  // namespace

// ---------------------------------------------------------------------------
// CAcroForm

bool CAcroForm::Read(CSourFile& in) {
    fields.clear();
    calculationOrder.clear();
    pending.clear();
    if (!scan::openDict(in)) return readOk = false;
    CSourFile& root = in.root();
    readOk = scan::forEachKey(in, [&](const std::string& key) {
        if (key == nmFields) {
            std::vector<SObj> list;
            scan::readRefArray(in, list, false);
            in.clear(in.rdstate() & ~std::ios::failbit);
            appendUnique(fields, list);
            for (const SObj& f : list) root.fieldSet.insert(SObj(f.num, f.gen));
            return true;
        }
        if (key == nmCO) {
            // The calculation order names fields: they come with their pages.
            std::vector<SObj> list;
            scan::readRefArray(in, list, false);
            in.clear(in.rdstate() & ~std::ios::failbit);
            appendUnique(calculationOrder, list);
            return true;
        }
        return scan::collectRefs(in, pending);
    });
    return readOk;
}

void CAcroForm::ReadOthers(CSourFile& in) {
    std::vector<SObj> refs;
    refs.swap(pending);
    enterClosure(in.root(), self, refs);
}

bool CAcroForm::Write(CDestFile& out, CSourFile&) {
    out.RecordObjInfo(self);
    out << self.num << ' ' << self.gen << ' ' << kwobj << kw_n << "<<";
    out.curObj = SObj(self.num, self.gen);
    out << nmFields << '[';
    // The fields of every source, in file order, in one list.
    for (const auto& s : out.sources) {
        if (!s.second) continue;
        const CSourFile& src = *s.second;
        for (const SObj& f : src.catalog.acroForm.fields) {
            auto entry = src.fieldSet.find(f);
            if (entry != src.fieldSet.end() && (entry->aux & 0x200)) continue;
            auto mapped = out.newObjTable.find(NewObjTable{0, s.first, f.num, f.gen});
            // A field that did not come along leaves the dictionary unfinished.
            if (mapped == out.newObjTable.end()) return false;
            out << mapped->second.num << ' ' << mapped->second.gen << " R ";
        }
    }
    out << "] >>" << kw_n << kwendobj << kw_n;
    out.writtenLength = static_cast<int>(out.size());
    return true;
}

// ---------------------------------------------------------------------------
// COCProperties

bool COCProperties::ReadArray(CSourFile& in, std::vector<SObj>& out) {
    const bool ok = scan::readRefArray(in, out, true);
    in.clear(in.rdstate() & ~std::ios::failbit);
    return ok;
}

bool COCProperties::ReadD(CSourFile& in) {
    CObjRef ref;
    if (ref.Read(in)) {
        // The configuration in an object of its own; a reference to a
        // reference is no configuration.
        return scan::atObject(in, SObj(ref.num, ref.gen), [&](CSourFile& s) {
            CObjRef again;
            const std::streampos at = s.tellg();
            if (again.Read(s)) return false;
            s.clear();
            s.seekg(at);
            return ReadD(s);
        });
    }
    if (!scan::openDict(in)) return false;
    return scan::forEachKey(in, [&](const std::string& key) {
        if (key == nmOFF) return ReadArray(in, off), true;
        if (key == nmON) return ReadArray(in, on), true;
        if (key == nmOrder) return ReadArray(in, order), true;
        if (key == nmBaseState) {
            CObjRef r;
            if (r.Read(in)) return true;
            readPDFString(in, baseState);
            if (baseState.empty() || baseState[0] != '/') baseState.clear();
            return true;
        }
        return scan::skipValue(in);
    });
}

bool COCProperties::Read(CSourFile& in) {
    off.clear();
    on.clear();
    ocgs.clear();
    order.clear();
    baseState.clear();
    if (!scan::openDict(in)) return readOk = false;
    readOk = scan::forEachKey(in, [&](const std::string& key) {
        if (key == nmD) {
            const std::streampos at = in.tellg();
            if (!ReadD(in)) {
                // A configuration that does not read is stepped over.
                in.clear();
                in.seekg(at);
                return scan::skipValue(in);
            }
            return true;
        }
        if (key == nmOCGs) return ReadArray(in, ocgs), true;
        return scan::skipValue(in);
    });
    return readOk;
}

bool COCProperties::Write(CDestFile& out, CSourFile&) {
    out.RecordObjInfo(self);
    out << self.num << ' ' << self.gen << ' ' << kwobj << kw_n << "<<" << nmD << "<<" << nmOFF << '[';
    out.curObj = SObj(self.num, self.gen);
    auto list = [&out](const std::vector<SObj>& v) {
        for (const SObj& o : v) {
            const SObj* mapped = out.newNumber(o.num, o.gen);
            if (mapped) out << ' ' << mapped->num << ' ' << mapped->gen << " R";
            else out << " null ";
        }
    };
    list(off);
    out << ']' << nmON << '[';
    list(on);
    out << "]>> >>" << kw_n << kwendobj << kw_n;
    out.writtenLength = static_cast<int>(out.size());
    return true;
}

// ---------------------------------------------------------------------------
// CNames

bool CNames::Read(CSourFile& in) {
    if (walked) return readOk;
    walked = true;
    if (!scan::openDict(in)) return readOk = false;
    std::vector<SObj> refs;
    readOk = scan::forEachKey(in, [&](const std::string&) { return scan::collectRefs(in, refs); });
    // Behind the dictionary's own references: the trees' nodes and their
    // values, to any depth; the page guard keeps destinations' pages out.
    const std::streampos behind = in.tellg();
    enterClosure(in.root(), self, refs);
    in.clear();
    if (behind != std::streampos(-1)) in.seekg(behind);
    return readOk;
}

}  // namespace PDF_KILN
