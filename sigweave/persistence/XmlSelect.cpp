#include "sigweave/persistence/XmlSelect.h"

#include <algorithm>
#include <memory>
#include <string>

#include "sigweave/foundation/Ascii.h"

namespace tc {
namespace {

using Nodes = std::vector<xmlNode*>;

// Steps of the engine that one expression may take; some seconds.
constexpr unsigned long MOST_STEPS = 100'000'000;

// --- Paths of names

bool BeginsName(char c) {
    return IsLetter(c) || c == '_';
}

bool IsName(std::string_view text) {
    return !text.empty() && BeginsName(text[0]) && std::ranges::all_of(text, [](char c) {
        return BeginsName(c) || IsDigit(c) || c == '-' || c == '.';
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

constexpr const char* WHITE = " \t\r\n";

std::string VariableName(std::size_t index) {
    return "t" + std::to_string(index);
}

// Reads the literal after its opening quote; false when it is not closed.
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

// Blanks where the literal has escapes for them at its ends. Nothing without one.
std::optional<std::string> UnescapeEndBlanks(std::string text) {
    constexpr std::string_view BLANK = "\\x20";
    const bool first = text.starts_with(BLANK);
    if (first) text.replace(0, BLANK.size(), " ");
    if (!text.ends_with(BLANK)) return first ? std::optional(text) : std::nullopt;
    const std::size_t at = text.size() - BLANK.size();
    const std::size_t before = text.find_last_not_of('\\', at);
    const bool last = (at - before) % 2 != 0;
    if (last) text.replace(at, BLANK.size(), " ");
    return first || last ? std::optional(text) : std::nullopt;
}

// What a literal means. With escaped blanks at its ends it means two texts, for quoting leaves the blanks of
// a stored text alone: equal to it is what is equal to one of them.
struct Literal {
    std::string text;
    std::optional<std::string> withBlanks;
    bool isUnequal;  // compared with !=, which two texts cannot be
};

// The expression with a variable in the place of each literal; nothing when one is not closed.
std::optional<std::string> TakeLiterals(std::string_view xpath, std::vector<Literal>& literals) {
    std::string out;
    while (!xpath.empty()) {
        const std::string_view plain = xpath.substr(0, xpath.find_first_of("\"'"));
        out += plain;
        xpath.remove_prefix(plain.size());
        if (xpath.empty()) break;
        const bool escapes = xpath[0] == '"';
        xpath.remove_prefix(1);
        std::string text;
        if (!escapes) {
            const std::size_t end = xpath.find('\'');
            if (end == xpath.npos) return std::nullopt;
            text = xpath.substr(0, end);
            xpath.remove_prefix(end + 1);
        } else if (!TakeLiteral(xpath, text)) {
            return std::nullopt;
        }
        const std::string_view behind = xpath.substr(std::min(xpath.find_first_not_of(WHITE), xpath.size()));
        const std::string_view before = std::string_view(out).substr(0, out.find_last_not_of(WHITE) + 1);
        if (before.ends_with("processing-instruction(")) {  // the one place where no variable is allowed
            out += '"' + text + '"';
            continue;
        }
        const bool isUnequal = before.ends_with("!=") || behind.starts_with("!=");
        out += " $" + VariableName(literals.size()) + " ";
        auto withBlanks = escapes ? UnescapeEndBlanks(text) : std::nullopt;
        literals.push_back({std::move(text), std::move(withBlanks), isUnequal});
    }
    return out;
}

struct Release {
    void operator()(xmlXPathContext* context) const { xmlXPathFreeContext(context); }
    void operator()(xmlXPathObject* object) const { xmlXPathFreeObject(object); }
    void operator()(xmlNs** list) const { xmlFree(list); }
    void operator()(xmlDoc* tree) const { xmlFreeDoc(tree); }
};

// The texts that literals mean, as nodes of a tree of their own: a set of two is equal to what one is equal
// to, and as one text it is its first.
class LiteralTexts {
 public:
    explicit LiteralTexts(bool newBlanksFirst)
        : blanksFirst(newBlanksFirst),
          tree(xmlNewDoc(XmlChars("1.0"))),
          root(xmlNewNode(nullptr, XmlChars("r"))) {
        xmlDocSetRootElement(tree.get(), root);
    }

    xmlXPathObject* Object(const Literal& literal) {
        if (!literal.withBlanks) return xmlXPathNewString(XmlChars(literal.text.c_str()));
        const std::string& first = blanksFirst ? *literal.withBlanks : literal.text;
        if (literal.isUnequal) return xmlXPathNewString(XmlChars(first.c_str()));
        xmlXPathObject* const both = xmlXPathNewNodeSet(Node(first));
        xmlXPathNodeSetAdd(both->nodesetval, Node(blanksFirst ? literal.text : *literal.withBlanks));
        return both;
    }

 private:
    xmlNode* Node(const std::string& text) {
        return xmlNewTextChild(root, nullptr, XmlChars("t"), XmlChars(text.c_str()));
    }

    const bool blanksFirst;
    const std::unique_ptr<xmlDoc, Release> tree;
    xmlNode* const root;
};

void Ignore(void*, xmlError*) {}

// Prefixes mean in the expression what they mean at the node.
std::unique_ptr<xmlNs*, Release> UsePrefixes(xmlXPathContext& context, xmlNode* from) {
    std::unique_ptr<xmlNs*, Release> list(xmlGetNsList(context.doc, from));
    context.namespaces = list.get();
    for (xmlNs** ns = list.get(); ns != nullptr && *ns != nullptr; ++ns) ++context.nsNr;
    return list;
}

std::optional<Nodes> Evaluate(xmlNode* from, const std::string& xpath, const std::vector<Literal>& literals,
                              bool blanksFirst, bool first) {
    LiteralTexts texts(blanksFirst);
    const std::unique_ptr<xmlXPathContext, Release> context(xmlXPathNewContext(from->doc));
    if (context == nullptr) return std::nullopt;
    context->error = Ignore;
    context->node = from;
    context->opLimit = MOST_STEPS;
    for (std::size_t i = 0; i < literals.size(); ++i)
        xmlXPathRegisterVariable(context.get(), XmlChars(VariableName(i).c_str()), texts.Object(literals[i]));
    const auto prefixes = UsePrefixes(*context, from);
    const XmlErrorReceiver receiver(Ignore, nullptr);
    const std::unique_ptr<xmlXPathObject, Release> object(
        xmlXPathEval(XmlChars(xpath.c_str()), context.get()));
    if (object == nullptr || object->type != XPATH_NODESET) return std::nullopt;
    if (object->nodesetval == nullptr) return Nodes();
    xmlXPathNodeSetSort(object->nodesetval);
    Nodes nodes(object->nodesetval->nodeTab, object->nodesetval->nodeTab + object->nodesetval->nodeNr);
    // Namespace nodes are no nodes of the tree: they end with the result. So do the texts of literals.
    const auto isOfTheTree = [&](const xmlNode* node) {
        return node->type != XML_NAMESPACE_DECL && node->doc == from->doc;
    };
    if (!std::ranges::all_of(nodes, isOfTheTree)) return std::nullopt;
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
    std::vector<Literal> literals;
    const auto expression = TakeLiterals(xpath, literals);
    if (!expression) return std::nullopt;
    auto nodes = Evaluate(from, *expression, literals, true, first);
    const bool mayMeanOthers =
        std::ranges::any_of(literals, [](const Literal& l) { return l.withBlanks.has_value(); });
    // For functions, which take one text: a program may have stored the escapes.
    return nodes && nodes->empty() && mayMeanOthers ? Evaluate(from, *expression, literals, false, first)
                                                    : nodes;
}

}  // namespace tc
