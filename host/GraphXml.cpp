#include "host/GraphXml.h"

#include <algorithm>
#include <map>
#include <sstream>

#include "host/CommentCursor.h"
#include "sigweave/persistence/TCXML.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr const char* ROOT = "Graph";
constexpr const char* MODULE = "Module";
constexpr const char* SETTING = "Setting";
constexpr const char* LINE = "Line";
constexpr const char* VIEW = "View";

std::string_view TrimWhiteSpace(std::string_view text) {
    constexpr std::string_view WHITE = " \t\r\n";
    const std::size_t first = text.find_first_not_of(WHITE);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(WHITE) - first + 1);
}

class Reader {
 public:
    explicit Reader(GraphBuilder& graphBuilder) : builder(graphBuilder) {}

    void Read(const std::string& text) {
        if (!xml.LoadXML(text.c_str())) return TellDamage();
        const TCXMLNode root = Enter(xml.SelectSingleNode("/*"));
        if (NameOf(root) != ROOT)
            return builder.Tell(Bilingual("the root element is <%1>; that of a graph is <Graph>",
                                          "das äußerste Element ist <%1>; bei einem Graphen ist es <Graph>")
                                    .With({NameOf(root)}));
        const Attributes attributes = ReadAttributes(root, {"accept"});
        if (attributes.contains("accept")) builder.SetAccept(attributes.at("accept"));
        ForEachChild(root, {MODULE, LINE, VIEW}, [&](const TCXMLNode& node, const std::string& name) {
            if (name == VIEW) return ReadView(node);
            name == MODULE ? ReadModule(node) : ReadLine(node);
        });
        ReadComments();
    }

 private:
    using Attributes = std::map<std::string, std::string>;

    void TellDamage() {
        builder.SetLine(xml.GetErrorLine());
        builder.Tell(std::string(xml.GetError()));
    }

    // What is reported from here on is about that node.
    const TCXMLNode& Enter(const TCXMLNode& node) {
        builder.SetLine(xml.GetNodeLine(node));
        return node;
    }

    std::string NameOf(const TCXMLNode& node) {
        TCString name;
        xml.GetNodeName(node, name);
        return std::string(name);
    }

    template <class Work>
    void ForEach(const char* xpath, const TCXMLNode& node, Work work) {
        TCXMLNodeList list = xml.SelectNodes(xpath, node);
        while (const TCXMLNode found = xml.NextNode(list)) work(found);
    }

    template <class Work>
    void ForEachChild(const TCXMLNode& node, const CStringArray& known, Work work) {
        ForEach("text()", node, [&](const TCXMLNode& text) {
            TCString value;
            xml.GetNodeValue(text, value);
            const std::string_view content = TrimWhiteSpace(std::string_view(value, value.GetLength()));
            if (content.empty()) return;
            Enter(node);
            builder.Tell(Bilingual("there is '%1' between the elements; remove it",
                                   "'%1' steht zwischen den Elementen; entfernen Sie es")
                             .With({content}));
        });
        ForEach("*", node, [&](const TCXMLNode& child) {
            const std::string name = NameOf(Enter(child));
            if (std::find(known.begin(), known.end(), name) != known.end()) return work(child, name);
            builder.Tell(Bilingual("<%1> is not known here; %2", "<%1> ist hier unbekannt; %2")
                             .With({name, tc::SuggestNames(name, known)}));
        });
    }

    // A name or value as it was meant. Mistakes in it are reported with `what`.
    std::string Unquote(const TCString& written, const std::string& what) {
        TCString text;
        text.AllocCopy(TrimWhiteSpace(std::string_view(written, written.GetLength())));
        if (!TCXML::UnquoteNodeTextString(text))
            builder.Tell(
                Bilingual(
                    "a backslash in %1 does not begin an escape; write \\\\ for the backslash itself",
                    "ein umgekehrter Schrägstrich in %1 leitet kein Sonderzeichen ein; schreiben Sie \\\\ "
                    "für den Schrägstrich selbst")
                    .With({what}));
        return TCString::TCString2BinCString(text);
    }

    Attributes ReadAttributes(const TCXMLNode& node, const CStringArray& known) {
        Attributes attributes;
        ForEach("@*", node, [&](const TCXMLNode& attribute) {
            const std::string name = NameOf(attribute);
            TCString value;
            xml.GetNodeValue(attribute, value);
            if (std::find(known.begin(), known.end(), name) == known.end())
                return builder.Tell(
                    Bilingual("<%1> has no attribute '%2'; %3", "<%1> hat kein Attribut '%2'; %3")
                        .With({NameOf(node), name, tc::SuggestNames(name, known)}));
            attributes[name] = Unquote(value, Bilingual("the attribute %1", "dem Attribut %1").With({name}));
        });
        return attributes;
    }

    bool HasAll(const Attributes& attributes, const CStringArray& needed, const TCXMLNode& node) {
        bool all = true;
        for (const std::string& name : needed) {
            const auto found = attributes.find(name);
            if (found != attributes.end() && !found->second.empty()) continue;
            builder.Tell(Bilingual("<%1> needs the attribute %2; write %2=\"...\"",
                                   "<%1> braucht das Attribut %2; schreiben Sie %2=\"...\"")
                             .With({NameOf(node), name}));
            all = false;
        }
        return all;
    }

    void ReadModule(const TCXMLNode& node) {
        const Attributes attributes = ReadAttributes(node, {"name", "kind"});
        if (!HasAll(attributes, {"name"}, node) || !builder.BeginInstance(attributes.at("name"))) return;
        if (attributes.contains("kind")) builder.SetModule(attributes.at("kind"));
        ForEachChild(node, {SETTING},
                     [&](const TCXMLNode& setting, const std::string&) { ReadSetting(setting); });
    }

    void ReadSetting(const TCXMLNode& node) {
        const Attributes attributes = ReadAttributes(node, {"name"});
        if (xml.SelectSingleNode("*", node))
            return builder.Tell(
                Bilingual("a setting is text; write &lt; for the sign < in it",
                          "eine Einstellung ist Text; schreiben Sie &lt; für das Zeichen < darin")
                    .Text());
        if (!HasAll(attributes, {"name"}, node)) return;
        const std::string& name = attributes.at("name");
        TCString value;
        xml.GetNodeText(node, value);
        builder.AddSetting(name,
                           Unquote(value, Bilingual("the setting %1", "der Einstellung %1").With({name})));
    }

    void ReadLine(const TCXMLNode& node) {
        builder.CountLine();
        const Attributes attributes = ReadAttributes(node, {"from", "to"});
        ForEachChild(node, {}, [](const TCXMLNode&, const std::string&) {});
        Enter(node);
        if (!HasAll(attributes, {"from", "to"}, node)) return;
        const std::string& from = attributes.at("from");
        const std::string& to = attributes.at("to");
        if (!builder.AddLine(from, to))
            builder.Tell(Bilingual("'%1' to '%2' is not a line; write from=\"instance.Output\" "
                                   "to=\"instance.Input\"",
                                   "'%1' nach '%2' ist keine Verbindung; schreiben Sie "
                                   "from=\"Instanz.Ausgang\" to=\"Instanz.Eingang\"")
                             .With({from, to}));
    }

    void ReadView(const TCXMLNode& node) {
        const Attributes attributes = ReadAttributes(node, {"section", "name"});
        if (!HasAll(attributes, {"section", "name"}, node)) return;
        const std::string& name = attributes.at("name");
        TCString value;
        xml.GetNodeText(node, value);
        builder.AddView(attributes.at("section"), name,
                        Unquote(value, Bilingual("the element %1", "dem Element %1").With({name})));
    }

    void ReadComments() {
        ForEach("//comment()", {}, [&](const TCXMLNode& comment) {
            Enter(comment);
            TCString text;
            xml.GetNodeValue(comment, text);
            std::istringstream lines{std::string(TrimWhiteSpace(std::string_view(text, text.GetLength())))};
            for (std::string line; std::getline(lines, line);) builder.AddComment(TrimWhiteSpace(line));
        });
    }

    GraphBuilder& builder;
    TCXML xml;
};

// Blanks at the ends are escaped too, for programs that lay out documents anew move them.
std::string Quote(const std::string& text) {
    TCString bytes;
    bytes.AllocCopy(text);
    std::string quoted(TCXML::QuoteNodeTextString(bytes));
    for (std::size_t at = 0; (at = quoted.find('\x7F', at)) != std::string::npos;)
        quoted.replace(at, 1, "\\x7f");
    if (quoted.ends_with(' ')) quoted.replace(quoted.size() - 1, 1, "\\x20");
    if (quoted.starts_with(' ')) quoted.replace(0, 1, "\\x20");
    return quoted;
}

std::string QuotePort(const PortName& name) {
    return PortText({Quote(name.instance), name.port.empty() ? "" : Quote(name.port)});
}

// XML has no two hyphens in a comment, and none at its end.
std::string CommentText(std::string text) {
    for (std::size_t at = 0; (at = text.find("--", at)) != std::string::npos; ++at) text.insert(at + 1, " ");
    return " " + text + " ";
}

class Writer {
 public:
    Writer(const GraphFile& graphFile, TCXML& document) : graph(graphFile), xml(document), comments(graph) {}

    bool Write() {
        if (!xml.LoadXML("<Graph/>")) return false;
        const TCXMLNode root = xml.SelectSingleNode("/*");
        if (graph.AcceptsDifferences()) Set(root, "accept", "yes");
        if (graph.GetEngine()) Write(*graph.GetEngine(), root);
        for (const InstanceEntry& instance : graph.GetInstances()) Write(instance, root);
        for (const LineEntry& line : graph.GetLines()) {
            Write(comments.Before(line.place), root);
            const TCXMLNode node = Create(LINE, root);
            Set(node, "from", QuotePort(line.from));
            Set(node, "to", QuotePort(line.to));
        }
        for (const ViewEntry& entry : graph.GetView()) {
            const TCXMLNode node = Create(VIEW, root);
            Set(node, "section", Quote(entry.section));
            Set(node, "name", Quote(entry.name));
            done = done && (entry.value.empty() || xml.SetNodeText(node, Quote(entry.value).c_str()));
        }
        Write(comments.Rest(), root);
        return done;
    }

 private:
    TCXMLNode Create(const char* name, const TCXMLNode& parent) {
        TCXMLNode node = xml.CreateElement(name, parent);
        done = done && node;
        return node;
    }

    void Set(const TCXMLNode& node, const char* name, const std::string& value) {
        done = done && xml.SetAttribute(node, name, value.c_str());
    }

    void Write(const std::vector<std::string>& texts, const TCXMLNode& parent) {
        for (const std::string& text : texts)
            done = done && xml.CreateComment(CommentText(text).c_str(), parent);
    }

    void Write(const InstanceEntry& instance, const TCXMLNode& root) {
        Write(comments.Before(instance.place), root);
        const TCXMLNode node = Create(MODULE, root);
        Set(node, "name", Quote(instance.name));
        if (!instance.module.empty()) Set(node, "kind", Quote(instance.module));
        Write(comments.Before(instance.modulePlace), node);
        for (const Setting& setting : instance.settings) {
            Write(comments.Before(setting.place), node);
            const TCXMLNode written = Create(SETTING, node);
            Set(written, "name", Quote(setting.name));
            done = done && (setting.value.empty() || xml.SetNodeText(written, Quote(setting.value).c_str()));
        }
    }

    const GraphFile& graph;
    TCXML& xml;
    CommentCursor comments;
    bool done = true;
};

}  // namespace

bool LooksLikeXml(std::string_view text) {
    return TrimWhiteSpace(text).starts_with('<');
}

void ReadGraphXml(const std::string& text, GraphBuilder& builder) {
    Reader(builder).Read(text);
}

bool WriteGraphXml(const GraphFile& graph, TCXML& xml) {
    return Writer(graph, xml).Write();
}

}  // namespace host
