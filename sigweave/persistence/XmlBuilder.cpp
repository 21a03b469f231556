#include "sigweave/persistence/XmlBuilder.h"

#include <algorithm>
#include <climits>
#include <new>
#include <utility>

#include "sigweave/foundation/Ascii.h"

namespace tc {
namespace {

// The limits of the engine are lifted: it cuts no text, and what would need a limit is refused here.
constexpr int OPTIONS = XML_PARSE_NONET | XML_PARSE_HUGE | XML_PARSE_BIG_LINES;

constexpr std::ptrdiff_t SOURCE_BEFORE = 40, SOURCE_LENGTH = 60;

constexpr std::size_t PIECE_SIZE = 1 << 16, MOST_PIECE_SIZE = 1 << 28;

constexpr std::size_t MOST_DOCTYPE_SIZE = 1 << 16;

// What the engine has not used yet.
std::string_view Pending(const xmlParserCtxt& context) {
    const xmlParserInput* const input = context.input;
    if (input == nullptr || input->cur == nullptr || input->cur >= input->end) return {};
    return {reinterpret_cast<const char*>(input->cur), static_cast<std::size_t>(input->end - input->cur)};
}

// The engine searches what it could not use yet from its start again, so the next piece is as long as that.
std::size_t NextPieceSize(const xmlParserCtxt& context) {
    return std::clamp(Pending(context).size(), PIECE_SIZE, MOST_PIECE_SIZE);
}

int CountAttributes(std::string_view tag) {
    int count = 0;
    for (std::size_t at; (at = tag.find_first_of("\"'")) != tag.npos; ++count) {
        const std::size_t end = tag.find(tag[at], at + 1);
        tag.remove_prefix(end != tag.npos ? end + 1 : tag.size());
    }
    return count;
}

// The engine leaves a reference in the place of each ampersand of a namespace's name.
void ResolveAmpersands(const xmlNs* ns) {
    constexpr std::string_view REFERENCE = "&#38;";
    for (; ns != nullptr; ns = ns->next) {
        if (ViewOf(ns->href).find(REFERENCE) == std::string_view::npos) continue;
        std::string name(ViewOf(ns->href));
        for (std::size_t at = 0; (at = name.find(REFERENCE, at)) != name.npos; ++at)
            name.erase(at + 1, REFERENCE.size() - 1);
        std::ranges::copy(std::string_view(name.c_str(), name.size() + 1), const_cast<xmlChar*>(ns->href));
    }
}

bool IsBlank(std::string_view text) {
    return text.find_first_not_of(" \t\r\n") == text.npos;
}

bool EndsLine(char c) {
    return IsLineEnd(c) || c == '\0';
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
        if (count + namespaceCount > MOST_ATTRIBUTES) return builder.FailAttributes();
        for (const xmlChar** attribute = attributes;
             attributes != nullptr && attribute < attributes + 5 * count; attribute += 5)
            builder.keepsSomeBlanks |= ViewOf(attribute[0]) == "space" && ViewOf(attribute[1]) == "xml";
        xmlSAX2StartElementNs(context, name, prefix, uri, namespaceCount, namespaces, count, defaultCount,
                              attributes);
        if (namespaceCount > 0) ResolveAmpersands(builder.context->node->nsDef);
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

    // Unlike other default values that of a namespace would be filled in, for each element again.
    static void Attribute(void* context, const xmlChar* element, const xmlChar* name, int type, int use,
                          const xmlChar* value, xmlEnumeration* choices) {
        const bool isNamespace = ViewOf(name) == "xmlns" || ViewOf(name).starts_with("xmlns:");
        if (isNamespace && value != nullptr)
            Builder(context).Fail(XML_ERR_ATTRIBUTE_NOT_FINISHED, "Namespaces have no default values");
        xmlSAX2AttributeDecl(context, element, name, type, use, value, choices);
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

XmlBuilder::XmlBuilder(bool keepAllBlanks, bool keepBlanksAlone)
    : keepBlanks(keepAllBlanks), keepWholeBlanks(keepBlanksAlone) {
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
    handler.attributeDecl = Events::Attribute;
    handler.getEntity = Events::GetEntity;
    handler.getParameterEntity = Events::GetParameterEntity;
}

XmlBuilder::~XmlBuilder() {
    xmlFreeDoc(context->myDoc);
    xmlFreeParserCtxt(context);
}

bool XmlBuilder::Feed(std::string_view piece) {
    while (!failed && !piece.empty()) {
        const std::string_view part = piece.substr(0, NextPieceSize(*context));
        Parse(part, false);
        piece.remove_prefix(part.size());
    }
    return !failed;
}

void XmlBuilder::Parse(std::string_view piece, bool last) {
    const XmlErrorReceiver receiver(Events::Error, context);
    xmlParseChunk(context, piece.data(), static_cast<int>(piece.size()), last ? 1 : 0);
    if (!failed && !undecoded.empty()) Fail(XML_ERR_INVALID_ENCODING, std::exchange(undecoded, {}));
    // The engine gives up without a record when it cannot decode the text.
    if (!failed && !last && context->instate == XML_PARSER_EOF)
        Fail(XML_ERR_INVALID_ENCODING, "The text is not in its encoding");
    if (!last) RefuseSlow(Pending(*context));
}

// The engine compares each attribute of an element, and each name of an enumeration in a document type, with
// all others.
void XmlBuilder::RefuseSlow(std::string_view pending) {
    if (pending.size() < PIECE_SIZE) return;
    const bool inDoctype = context->instate == XML_PARSER_DTD || pending.starts_with("<!DOCTYPE");
    if (inDoctype && pending.size() > MOST_DOCTYPE_SIZE)
        Fail(XML_ERR_INTERNAL_ERROR, "The document type is longer than 64 KB");
    if (context->instate == XML_PARSER_START_TAG && CountAttributes(pending) > MOST_ATTRIBUTES)
        FailAttributes();
}

void XmlBuilder::FailAttributes() {
    Fail(XML_ERR_INTERNAL_ERROR,
         "An element has more than " + std::to_string(MOST_ATTRIBUTES) + " attributes");
}

bool XmlBuilder::FeedFrom(std::FILE& file) {
    filePiece.resize(NextPieceSize(*context));
    const std::size_t size = std::fread(filePiece.data(), 1, filePiece.size(), &file);
    return size > 0 && Feed({filePiece.data(), size});
}

std::string_view XmlBuilder::RootName() const {
    const xmlNode* const root = xmlDocGetRootElement(context->myDoc);
    return root != nullptr ? ViewOf(root->name) : "";
}

xmlDoc* XmlBuilder::Finish() {
    // What the engine waits for the end of, it knows best what is wrong with.
    if (!failed && !IsBlank(Pending(*context))) Parse({}, true);
    const bool open = context->nodeNr > 0, empty = xmlDocGetRootElement(context->myDoc) == nullptr;
    // Its word for content after the end, and for an end that comes too early.
    if (error.code == XML_ERR_DOCUMENT_END) failed = !open && !empty;
    if (!failed && open) Fail(XML_ERR_TAG_NOT_FINISHED, UnclosedElement(*context->node));
    if (!failed && empty) Fail(XML_ERR_DOCUMENT_EMPTY, "There is no element");
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
    reason.resize(std::min(reason.size(), reason.find('\n')));
    // Reported while the engine moves its input, of which nothing can be read before that call has ended.
    if (record.domain == XML_FROM_I18N || record.domain == XML_FROM_IO) {
        if (undecoded.empty()) undecoded = std::move(reason);
        return;
    }
    Fail(record.code, std::move(reason));
    error.line = record.line;
    error.column = record.int2;
}

void XmlBuilder::FlushText(bool atElementEnd) {
    xmlNode* const parent = context->node;
    if (text.empty() || parent == nullptr) return;
    const bool isWholeText = keepWholeBlanks && atElementEnd && parent->children == nullptr;
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
