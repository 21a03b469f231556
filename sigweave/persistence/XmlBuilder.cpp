#include "sigweave/persistence/XmlBuilder.h"

#include <algorithm>
#include <array>
#include <climits>
#include <new>
#include <utility>

namespace tc {
namespace {

// The limits of the engine are lifted: it cuts no text, and what would need a limit is refused here.
constexpr int OPTIONS = XML_PARSE_NONET | XML_PARSE_HUGE | XML_PARSE_BIG_LINES;

constexpr std::ptrdiff_t SOURCE_BEFORE = 40, SOURCE_LENGTH = 60;

constexpr std::size_t PIECE_SIZE = 1 << 16;

bool IsBlank(std::string_view text) {
    return text.find_first_not_of(" \t\r\n") == text.npos;
}

bool EndsLine(char c) {
    return c == '\n' || c == '\r' || c == '\0';
}

std::string SourceLine(const xmlParserInput& input) {
    const auto* const begin = reinterpret_cast<const char*>(input.base);
    const auto* const end = reinterpret_cast<const char*>(input.end);
    const auto* const at = reinterpret_cast<const char*>(input.cur);
    if (begin == nullptr || at == nullptr || at < begin || at > end) return {};
    const char* first = at;
    if (first > begin && (first == end || EndsLine(*first))) --first;
    while (first > begin && at - first < SOURCE_BEFORE && !EndsLine(first[-1])) --first;
    const char* last = std::find_if(first, std::min(end, first + SOURCE_LENGTH), EndsLine);
    while (first < last && (*first & 0xC0) == 0x80) ++first;
    return {first, last};
}

std::string UnclosedElement(const xmlNode& element) {
    return "The document ends inside the element '" + std::string(ViewOf(element.name)) + "'";
}

}  // namespace

// The engine's calls, as its interface wants them.
struct XmlBuilder::Events {
    static XmlBuilder& Builder(void* context) {
        return *static_cast<XmlBuilder*>(static_cast<xmlParserCtxt*>(context)->_private);
    }

    static void Error(void* context, xmlError* record) { Builder(context).Note(*record); }

    static void StartElement(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri,
                             int namespaceCount, const xmlChar** namespaces, int count, int defaultCount,
                             const xmlChar** attributes) {
        XmlBuilder& builder = Builder(context);
        builder.FlushText(false);
        if (++builder.level > MOST_LEVELS)
            return builder.Fail(XML_ERR_INTERNAL_ERROR,
                                "Elements are nested deeper than " + std::to_string(MOST_LEVELS) + " levels");
        for (const xmlChar** attribute = attributes;
             attributes != nullptr && attribute < attributes + 5 * count; attribute += 5)
            builder.keepsSomeBlanks |= ViewOf(attribute[0]) == "space" && ViewOf(attribute[1]) == "xml";
        xmlSAX2StartElementNs(context, name, prefix, uri, namespaceCount, namespaces, count, defaultCount,
                              attributes);
    }

    static void EndElement(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri) {
        XmlBuilder& builder = Builder(context);
        builder.FlushText(true);
        xmlNode* const node = builder.context->node;
        xmlSAX2EndElementNs(context, name, prefix, uri);
        if (--builder.level == 1 && builder.onChild) builder.onChild(node);
    }

    static void AddText(XmlBuilder& builder, const xmlChar* bytes, int length, bool section) {
        if (builder.textIsSection != section) builder.FlushText(false);
        builder.textIsSection = section;
        if (builder.text.size() + static_cast<std::size_t>(length) > INT_MAX)
            return builder.Fail(XML_ERR_INTERNAL_ERROR, "A text is longer than 2 GB");
        builder.text.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
    }
    static void Text(void* context, const xmlChar* bytes, int length) {
        AddText(Builder(context), bytes, length, false);
    }
    static void Section(void* context, const xmlChar* bytes, int length) {
        AddText(Builder(context), bytes, length, true);
    }

    static void Comment(void* context, const xmlChar* bytes) {
        Builder(context).FlushText(false);
        xmlSAX2Comment(context, bytes);
    }
    static void Instruction(void* context, const xmlChar* target, const xmlChar* data) {
        Builder(context).FlushText(false);
        xmlSAX2ProcessingInstruction(context, target, data);
    }

    // Asked when an entity is declared, too, so that its text is kept for writing. One that is not declared
    // is reported by the engine.
    static xmlEntity* GetEntity(void* context, const xmlChar* name) {
        return Declared(context, xmlSAX2GetEntity(context, name));
    }
    static xmlEntity* GetParameterEntity(void* context, const xmlChar* name) {
        return Declared(context, xmlSAX2GetParameterEntity(context, name));
    }
    static xmlEntity* Declared(void* context, xmlEntity* entity) {
        XmlBuilder& builder = Builder(context);
        if (entity == nullptr || builder.context->instate == XML_PARSER_ENTITY_VALUE) return entity;
        builder.Fail(XML_ERR_ENTITY_PROCESSING, "Entities of the document itself are not resolved: '" +
                                                    std::string(ViewOf(entity->name)) + "'");
        return nullptr;
    }
};

XmlBuilder::XmlBuilder(bool keepAllBlanks) : keepBlanks(keepAllBlanks) {
    PrepareXmlEngine();
    context = xmlCreatePushParserCtxt(nullptr, nullptr, nullptr, 0, nullptr);
    if (context == nullptr) throw std::bad_alloc();
    xmlCtxtUseOptions(context, OPTIONS);
    context->_private = this;
    xmlSAXHandler& handler = *context->sax;
    handler.serror = Events::Error;
    handler.startElementNs = Events::StartElement;
    handler.endElementNs = Events::EndElement;
    handler.characters = handler.ignorableWhitespace = Events::Text;
    handler.cdataBlock = Events::Section;
    handler.comment = Events::Comment;
    handler.processingInstruction = Events::Instruction;
    handler.getEntity = Events::GetEntity;
    handler.getParameterEntity = Events::GetParameterEntity;
}

XmlBuilder::~XmlBuilder() {
    xmlFreeDoc(context->myDoc);
    xmlFreeParserCtxt(context);
}

bool XmlBuilder::Feed(std::string_view piece) {
    while (!failed && !piece.empty()) {
        const std::string_view part = piece.substr(0, PIECE_SIZE);
        Parse(part, false);
        piece.remove_prefix(part.size());
    }
    return !failed;
}

void XmlBuilder::Parse(std::string_view piece, bool last) {
    const XmlErrorReceiver receiver(Events::Error, context);
    xmlParseChunk(context, piece.data(), static_cast<int>(piece.size()), last ? 1 : 0);
    // The engine gives up without a record when it cannot decode the text.
    if (!failed && !last && context->instate == XML_PARSER_EOF)
        Fail(XML_ERR_INVALID_ENCODING, "The text is not in its encoding");
}

bool XmlBuilder::FeedFrom(std::FILE& file) {
    std::array<char, PIECE_SIZE> piece;
    const std::size_t size = std::fread(piece.data(), 1, piece.size(), &file);
    return size > 0 && Feed({piece.data(), size});
}

std::string_view XmlBuilder::RootName() const {
    const xmlNode* const root = xmlDocGetRootElement(context->myDoc);
    return root != nullptr ? ViewOf(root->name) : "";
}

xmlDoc* XmlBuilder::Finish() {
    if (!failed && context->nodeNr > 0) Fail(XML_ERR_TAG_NOT_FINISHED, UnclosedElement(*context->node));
    if (!failed && xmlDocGetRootElement(context->myDoc) == nullptr)
        Fail(XML_ERR_DOCUMENT_EMPTY, "There is no element");
    if (!failed) Parse({}, true);
    if (!failed && context->wellFormed == 0) Fail(context->errNo, "The document is not well-formed");
    return failed ? nullptr : std::exchange(context->myDoc, nullptr);
}

void XmlBuilder::Fail(int code, std::string reason) {
    if (!std::exchange(failed, true)) {
        error.code = code;
        error.reason = std::move(reason);
        error.position = std::max(xmlByteConsumed(context), 0L);
        if (const xmlParserInput* input = context->input) {
            error.line = input->line;
            error.column = input->col;
            error.source = SourceLine(*input);
        }
    }
    // Enough to build no more; stopping the engine inside its calls would take its input away from it.
    context->wellFormed = 0;
    context->disableSAX = 1;
}

void XmlBuilder::Note(const xmlError& record) {
    // A namespace whose name is no address is still a namespace.
    if (record.level < XML_ERR_ERROR || record.code == XML_WAR_NS_URI || failed) return;
    std::string reason(record.message != nullptr ? record.message : "");
    Fail(record.code, reason.substr(0, reason.find('\n')));
    error.line = record.line;
    error.column = record.int2;
}

void XmlBuilder::FlushText(bool atElementEnd) {
    xmlNode* const parent = context->node;
    if (text.empty() || parent == nullptr) return;
    const bool isWholeText = atElementEnd && parent->children == nullptr;
    const bool kept = keepBlanks || textIsSection || isWholeText || !IsBlank(text) ||
                      (keepsSomeBlanks && xmlNodeGetSpacePreserve(parent) == 1);
    if (kept) {
        const auto length = static_cast<int>(text.size());
        const xmlChar* const bytes = XmlChars(text.data());
        xmlNode* const node = textIsSection ? xmlNewCDataBlock(context->myDoc, bytes, length)
                                            : xmlNewDocTextLen(context->myDoc, bytes, length);
        if (node == nullptr) return Fail(XML_ERR_NO_MEMORY, "Out of memory");
        // Not the engine's way to add a node, which would join texts and free one of them.
        node->parent = parent;
        node->prev = parent->last;
        (parent->last != nullptr ? parent->last->next : parent->children) = node;
        parent->last = node;
    }
    text.clear();
}

}  // namespace tc
