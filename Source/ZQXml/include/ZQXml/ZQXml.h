// A pull XML parser over a memory stream: the document is read node by node
// (element starts with their attributes, text, element ends), each node a
// reference-counted object, names interned in the parser's name table.
//
// Parsing rests on libxml2's text reader with its limits on (nesting depth,
// text node size, entity amplification), no network access, no external
// DTD or entity loading and no entity substitution. A document type
// declaration is refused outright: the documents read here (XMP packets)
// never have one, and refusing it keeps every entity trick out.
#ifndef ZQXML_ZQXML_H
#define ZQXML_ZQXML_H

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <unordered_set>
#include <vector>

#include "ZQMemStream.h"
#include "ZQMutex.h"

// Raised by the parser on a document that is not well formed, or that it
// refuses (a DTD, a limit passed).
class ZQXmlException : public std::runtime_error {
public:
    explicit ZQXmlException(const std::string& what) : std::runtime_error(what) {}
};

// Interned strings: one copy of every name a parser meets, so that names
// compare by address.
class ZQNameTable {
public:
    // The table's copy of `text` ("" for null); stays valid for the table's life.
    const std::string& getSharedNameString(const char* text);
    const std::string& getSharedNameString(const std::string& text);
    std::size_t size() const { return names.size(); }

private:
    std::unordered_set<std::string> names;
};

// A qualified name: prefix, local name and namespace URI, each interned.
class ZQName {
public:
    ZQName();
    ZQName(const std::string& prefix, const std::string& localName, const std::string& namespaceURI)
        : pfx(&prefix), local(&localName), uri(&namespaceURI) {}
    const std::string& prefix() const { return *pfx; }
    const std::string& localName() const { return *local; }
    const std::string& namespaceURI() const { return *uri; }
    // "prefix:local", or the local name alone.
    std::string qualified() const { return pfx->empty() ? *local : *pfx + ":" + *local; }

private:
    const std::string* pfx;
    const std::string* local;
    const std::string* uri;
};

enum ZQNodeKind {
    eZQElement = 1,
    eZQAttribute = 2,   // attributes and namespace declarations alike
    eZQText = 3,        // character data, CDATA sections included
    eZQWhitespace = 4,  // white space between elements
    eZQComment = 5,
    eZQProcessingInstruction = 6,
    eZQEndElement = 7,
    eZQOther = 8
};

class ZQNode;

// A sequence of nodes, walked either way (the attributes of an element).
class ZQNodeIterable {
public:
    typedef std::vector<ZQRef<ZQNode>> List;
    typedef List::const_iterator const_iterator;
    typedef List::const_reverse_iterator const_reverse_iterator;

    ZQNodeIterable() : list(none()) {}
    explicit ZQNodeIterable(std::shared_ptr<const List> l) : list(std::move(l)) {}
    const_iterator begin() const { return list->begin(); }
    const_iterator end() const { return list->end(); }
    const_reverse_iterator rbegin() const { return list->rbegin(); }
    const_reverse_iterator rend() const { return list->rend(); }
    std::size_t size() const { return list->size(); }
    bool empty() const { return list->empty(); }
    const ZQRef<ZQNode>& operator[](std::size_t i) const { return (*list)[i]; }

private:
    static const std::shared_ptr<const List>& none() {
        static const std::shared_ptr<const List> empty = std::make_shared<List>();
        return empty;
    }
    std::shared_ptr<const List> list;
};

class ZQNode : public ZQRefCounted {
public:
    ZQNode(ZQNodeKind kind, const ZQName& name, std::string value, int depth, bool emptyElement,
           ZQNodeIterable attributes)
        : nodeKind(kind), nodeName(name), nodeValue(std::move(value)), nodeDepth(depth),
          isEmpty(emptyElement), attrs(std::move(attributes)) {}

    ZQNodeKind kind() const { return nodeKind; }
    const ZQName& name() const { return nodeName; }
    // Text of a text, attribute, comment or instruction node; "" otherwise.
    const std::string& value() const { return nodeValue; }
    // 0 for the root element; an attribute stands one below its element.
    int depth() const { return nodeDepth; }
    // An element written "<x/>": no end node follows it.
    bool emptyElement() const { return isEmpty; }
    const ZQNodeIterable& attributes() const { return attrs; }

private:
    ZQNodeKind nodeKind;
    ZQName nodeName;
    std::string nodeValue;
    int nodeDepth;
    bool isEmpty;
    ZQNodeIterable attrs;
};

// One pass over a document. Holds its stream for as long as it lives.
class ZQXmlParser : public ZQRefCounted {
public:
    // The next node; null at the end of the document. Throws
    // ZQXmlException on a document that is not well formed or is refused.
    ZQRef<ZQNode> next();
    ZQNameTable& nameTable() { return names; }
    // Nodes handed out so far.
    std::size_t nodeCount() const { return count; }

    ~ZQXmlParser() override;

    struct Impl;

private:
    friend class ZQXmlUtil;
    explicit ZQXmlParser(const ZQRef<ZQMemStream>& stream);
    ZQRef<ZQMemStream> stream;
    ZQNameTable names;
    std::unique_ptr<Impl> impl;
    std::size_t count = 0;
};

class ZQXmlUtil {
public:
    // A parser at the start of the document in `stream`; null when no
    // parser can start (an empty stream, a reader that cannot be made).
    static ZQRef<ZQXmlParser> getRootParser(const ZQRef<ZQMemStream>& stream);
};

#endif
