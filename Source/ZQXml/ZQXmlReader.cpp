// The pull parser on libxml2's xmlTextReader.
#include <libxml/parser.h>
#include <libxml/xmlerror.h>
#include <libxml/xmlreader.h>

#include <climits>
#include <mutex>

#include "ZQXml/ZQXml.h"

namespace {

const std::string kEmpty;

const char* text(const xmlChar* s) { return reinterpret_cast<const char*>(s); }

// Parser options: no network, no DTD loading or attribute defaulting, no
// entity substitution, no messages on standard error. XML_PARSE_HUGE stays
// off, so libxml2's size, depth and amplification limits hold.
constexpr int kOptions = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_NOCDATA;

// Some of libxml2's messages (encoder errors among them) go to its generic
// error handler whatever the parser options say; while this parser reads,
// that handler is a silent one, and the caller's is put back afterwards.
void silent(void*, const char*, ...) {}

class QuietErrors {
public:
    QuietErrors() : handler(xmlGenericError), context(xmlGenericErrorContext) {
        xmlSetGenericErrorFunc(nullptr, &silent);
    }
    ~QuietErrors() { xmlSetGenericErrorFunc(context, handler); }

private:
    xmlGenericErrorFunc handler;
    void* context;
};

}  // namespace

const std::string& ZQNameTable::getSharedNameString(const char* s) {
    return s ? getSharedNameString(std::string(s)) : getSharedNameString(kEmpty);
}

const std::string& ZQNameTable::getSharedNameString(const std::string& s) { return *names.insert(s).first; }

ZQName::ZQName() : pfx(&kEmpty), local(&kEmpty), uri(&kEmpty) {}

struct ZQXmlParser::Impl {
    xmlTextReaderPtr reader = nullptr;
    std::string error;
    bool finished = false;

    static void onError(void* self, xmlErrorPtr e) {
        Impl* impl = static_cast<Impl*>(self);
        if (impl->error.empty() && e) impl->error = e->message ? e->message : "XML error";
    }
};

ZQXmlParser::ZQXmlParser(const ZQRef<ZQMemStream>& s) : stream(s), impl(new Impl) {}

ZQXmlParser::~ZQXmlParser() {
    if (impl->reader) xmlFreeTextReader(impl->reader);
}

ZQRef<ZQXmlParser> ZQXmlUtil::getRootParser(const ZQRef<ZQMemStream>& stream) {
    if (!stream || stream->size() == 0 || stream->size() > static_cast<std::size_t>(INT_MAX)) return nullptr;
    static std::once_flag init;
    std::call_once(init, [] { xmlInitParser(); });
    ZQRef<ZQXmlParser> parser(new ZQXmlParser(stream));
    const QuietErrors quiet;
    parser->impl->reader =
        xmlReaderForMemory(stream->data(), static_cast<int>(stream->size()), nullptr, nullptr, kOptions);
    if (!parser->impl->reader) return nullptr;
    xmlTextReaderSetStructuredErrorHandler(parser->impl->reader, &ZQXmlParser::Impl::onError, parser->impl.get());
    return parser;
}

ZQRef<ZQNode> ZQXmlParser::next() {
    if (impl->finished) return nullptr;
    xmlTextReaderPtr r = impl->reader;
    const QuietErrors quiet;
    for (;;) {
        const int rc = xmlTextReaderRead(r);
        if (rc == 0) {
            impl->finished = true;
            return nullptr;
        }
        if (rc < 0) {
            impl->finished = true;
            throw ZQXmlException(impl->error.empty() ? "XML document is not well formed" : impl->error);
        }
        const int type = xmlTextReaderNodeType(r);
        ZQNodeKind kind;
        switch (type) {
            case XML_READER_TYPE_ELEMENT: kind = eZQElement; break;
            case XML_READER_TYPE_END_ELEMENT: kind = eZQEndElement; break;
            case XML_READER_TYPE_TEXT:
            case XML_READER_TYPE_CDATA: kind = eZQText; break;
            case XML_READER_TYPE_WHITESPACE:
            case XML_READER_TYPE_SIGNIFICANT_WHITESPACE: kind = eZQWhitespace; break;
            case XML_READER_TYPE_COMMENT: kind = eZQComment; break;
            case XML_READER_TYPE_PROCESSING_INSTRUCTION: kind = eZQProcessingInstruction; break;
            case XML_READER_TYPE_DOCUMENT_TYPE:
            case XML_READER_TYPE_ENTITY_REFERENCE:
            case XML_READER_TYPE_ENTITY:
                impl->finished = true;
                throw ZQXmlException("document type declarations and entity references are not read");
            default: kind = eZQOther; break;
        }
        const ZQName name(names.getSharedNameString(text(xmlTextReaderConstPrefix(r))),
                          names.getSharedNameString(text(xmlTextReaderConstLocalName(r))),
                          names.getSharedNameString(text(xmlTextReaderConstNamespaceUri(r))));
        const int depth = xmlTextReaderDepth(r);
        std::string value;
        if (kind != eZQElement && kind != eZQEndElement && xmlTextReaderHasValue(r) == 1) {
            const char* v = text(xmlTextReaderConstValue(r));
            if (v) value = v;
        }
        ZQNodeIterable attributes;
        const bool empty = kind == eZQElement && xmlTextReaderIsEmptyElement(r) == 1;
        if (kind == eZQElement && xmlTextReaderHasAttributes(r) == 1) {
            auto list = std::make_shared<ZQNodeIterable::List>();
            // Namespace declarations come first, then attributes, in
            // document order.
            while (xmlTextReaderMoveToNextAttribute(r) == 1) {
                const char* v = text(xmlTextReaderConstValue(r));
                list->push_back(ZQRef<ZQNode>(
                    new ZQNode(eZQAttribute,
                               ZQName(names.getSharedNameString(text(xmlTextReaderConstPrefix(r))),
                                      names.getSharedNameString(text(xmlTextReaderConstLocalName(r))),
                                      names.getSharedNameString(text(xmlTextReaderConstNamespaceUri(r)))),
                               v ? v : "", xmlTextReaderDepth(r), false, ZQNodeIterable())));
            }
            xmlTextReaderMoveToElement(r);
            attributes = ZQNodeIterable(list);
        }
        ++count;
        return ZQRef<ZQNode>(new ZQNode(kind, name, std::move(value), depth, empty, attributes));
    }
}
