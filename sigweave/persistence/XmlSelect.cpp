#include "sigweave/persistence/XmlSelect.h"

#include <algorithm>
#include <memory>
#include <string>

namespace tc {
namespace {

using Nodes = std::vector<xmlNode*>;

// Steps of the engine that one expression may take; some seconds.
constexpr unsigned long MOST_STEPS = 100'000'000;

// --- Paths of names

bool BeginsName(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool IsName(std::string_view text) {
    return !text.empty() && BeginsName(text[0]) && std::ranges::all_of(text, [](char c) {
        return BeginsName(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
    });
}

std::string_view TakeStep(std::string_view& path) {
    const std::string_view step = path.substr(0, path.find('/'));
    path.remove_prefix(std::min(step.size() + 1, path.size()));
    return step;
}

// Whether the expression is a path like Name, Range/Min or State/@Value, which needs no engine.
bool IsPathOfNames(std::string_view path) {
    if (path.empty() || path.back() == '/') return false;
    while (!path.empty()) {
        std::string_view step = TakeStep(path);
        if (path.empty() && step.starts_with('@')) step.remove_prefix(1);
        if (!IsName(step)) return false;
    }
    return true;
}

void FollowPath(xmlNode* from, std::string_view path, bool first, Nodes& found) {
    std::string_view step = TakeStep(path);
    const bool attribute = step.starts_with('@');
    if (attribute) {
        if (from->type != XML_ELEMENT_NODE) return;
        step.remove_prefix(1);
        for (xmlAttr* node = from->properties; node != nullptr; node = node->next)
            if (node->ns == nullptr && ViewOf(node->name) == step)
                return found.push_back(reinterpret_cast<xmlNode*>(node));
        return;
    }
    if (from->type != XML_ELEMENT_NODE && from->type != XML_DOCUMENT_NODE) return;
    for (xmlNode* node = from->children; node != nullptr; node = node->next) {
        if (node->type != XML_ELEMENT_NODE || node->ns != nullptr || ViewOf(node->name) != step) continue;
        if (path.empty())
            found.push_back(node);
        else
            FollowPath(node, path, first, found);
        if (first && !found.empty()) return;
    }
}

// --- Expressions

// As XPath 1.0 writes it, which knows no escapes.
std::string Literal(std::string_view text) {
    if (text.find('"') == text.npos) return '"' + std::string(text) + '"';
    if (text.find('\'') == text.npos) return '\'' + std::string(text) + '\'';
    std::string concat = "concat(";
    while (!text.empty()) {
        const char quote = text[0] == '"' ? '\'' : '"';
        const std::string_view part = text.substr(0, text.find(quote));
        if (concat.back() != '(') concat += ',';
        concat.append(1, quote).append(part).append(1, quote);
        text.remove_prefix(part.size());
    }
    return concat + ')';
}

// Reads the literal behind its opening quote; false when it is not closed.
bool TakeLiteral(std::string_view& xpath, std::string& text) {
    while (!xpath.empty()) {
        const char c = xpath[0];
        xpath.remove_prefix(1);
        if (c == '"') return true;
        const bool escape =
            c == '\\' && !xpath.empty() && std::string_view("\\\"'").find(xpath[0]) != xpath.npos;
        text += escape ? xpath[0] : c;
        if (escape) xpath.remove_prefix(1);
    }
    return false;
}

// A literal may describe a stored text whose blanks at the ends were escaped, or one where they were left as
// they are.
std::string UnescapeEndBlanks(std::string text) {
    constexpr std::string_view BLANK = "\\x20";
    if (text.starts_with(BLANK)) text.replace(0, BLANK.size(), " ");
    if (!text.ends_with(BLANK)) return text;
    const std::size_t at = text.size() - BLANK.size();
    const std::size_t before = text.find_last_not_of('\\', at);
    if ((at - before) % 2 != 0) text.replace(at, BLANK.size(), " ");
    return text;
}

std::optional<std::string> RewriteLiterals(std::string_view xpath, bool unescapeEndBlanks) {
    std::string out;
    while (!xpath.empty()) {
        const std::string_view plain = xpath.substr(0, xpath.find_first_of("\"'"));
        out += plain;
        xpath.remove_prefix(plain.size());
        if (xpath.empty()) break;
        const char quote = xpath[0];
        xpath.remove_prefix(1);
        std::string text;
        if (quote == '"') {
            if (!TakeLiteral(xpath, text)) return std::nullopt;
            out += Literal(unescapeEndBlanks ? UnescapeEndBlanks(std::move(text)) : text);
            continue;
        }
        const std::size_t end = xpath.find('\'');
        if (end == xpath.npos) return std::nullopt;
        out.append(1, '\'').append(xpath.substr(0, end + 1));
        xpath.remove_prefix(end + 1);
    }
    return out;
}

struct Release {
    void operator()(xmlXPathContext* context) const { xmlXPathFreeContext(context); }
    void operator()(xmlXPathObject* object) const { xmlXPathFreeObject(object); }
    void operator()(xmlNs** list) const { xmlFree(list); }
};

void Ignore(void*, xmlError*) {}

// Prefixes mean in the expression what they mean at the node.
std::unique_ptr<xmlNs*, Release> UsePrefixes(xmlXPathContext& context, xmlNode* from) {
    std::unique_ptr<xmlNs*, Release> list(xmlGetNsList(context.doc, from));
    context.namespaces = list.get();
    for (xmlNs** ns = list.get(); ns != nullptr && *ns != nullptr; ++ns) ++context.nsNr;
    return list;
}

std::optional<Nodes> Evaluate(xmlNode* from, const std::string& xpath, bool first) {
    const std::unique_ptr<xmlXPathContext, Release> context(xmlXPathNewContext(from->doc));
    if (context == nullptr) return std::nullopt;
    context->error = Ignore;
    context->node = from;
    context->opLimit = MOST_STEPS;
    const auto prefixes = UsePrefixes(*context, from);
    const XmlErrorReceiver receiver(Ignore, nullptr);
    const std::unique_ptr<xmlXPathObject, Release> object(
        xmlXPathEval(XmlChars(xpath.c_str()), context.get()));
    if (object == nullptr || object->type != XPATH_NODESET) return std::nullopt;
    if (object->nodesetval == nullptr) return Nodes();
    xmlXPathNodeSetSort(object->nodesetval);
    Nodes nodes(object->nodesetval->nodeTab, object->nodesetval->nodeTab + object->nodesetval->nodeNr);
    // Namespace nodes are no nodes of the tree: they end with the result.
    if (std::ranges::count(nodes, XML_NAMESPACE_DECL, &xmlNode::type) != 0) return std::nullopt;
    if (first && nodes.size() > 1) nodes.erase(nodes.begin() + 1, nodes.end());
    return nodes;
}

}  // namespace

std::optional<Nodes> SelectXmlNodes(xmlNode* from, std::string_view xpath, bool first) {
    if (IsPathOfNames(xpath)) {
        Nodes found;
        FollowPath(from, xpath, first, found);
        return found;
    }
    const auto exact = RewriteLiterals(xpath, false);
    if (!exact) return std::nullopt;
    auto nodes = Evaluate(from, *exact, first);
    if (!nodes || !nodes->empty()) return nodes;
    // Deliberately a second look: quoting leaves blanks at the ends of a stored text alone, while a prepared
    // search text escapes them.
    const auto blanks = RewriteLiterals(xpath, true);
    return blanks != exact ? Evaluate(from, *blanks, first) : nodes;
}

}  // namespace tc
