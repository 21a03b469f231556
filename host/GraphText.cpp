#include "host/GraphText.h"

#include <algorithm>

#include "host/CommentCursor.h"
#include "sigweave/persistence/ParameterQuote.h"
#include "sigweave/persistence/TCProcessParameters.h"
#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using tc::Bilingual;

bool IsComment(std::string_view line) {
    return line.front() == '#' || line.front() == ';';
}

// Why a quoted value that must stand alone on its line does not; null when it does.
const char* WhyBadQuotes(std::string_view value) {
    if (value.empty() || (value.front() != '"' && value.front() != '\'')) return nullptr;
    std::size_t end = 1;
    while (end < value.size() && value[end] != value.front()) end += value[end] == '\\' ? 2 : 1;
    if (end >= value.size())
        return Bilingual("the quotation mark is not closed on this line; add the closing one",
                         "das Anführungszeichen wird in dieser Zeile nicht geschlossen; ergänzen Sie das "
                         "schließende")
            .Text();
    if (end + 1 < value.size())
        return Bilingual(
                   "there is text behind the closing quotation mark; remove it, or put a comment on a line "
                   "of its own",
                   "hinter dem schließenden Anführungszeichen steht noch Text; entfernen Sie ihn, oder "
                   "setzen Sie einen Kommentar in eine eigene Zeile")
            .Text();
    return nullptr;
}

// Reads line by line, so that one mistake does not hide the next; what stands in a line is parameter text.
class Reader {
 public:
    explicit Reader(GraphBuilder& graphBuilder) : builder(graphBuilder) {
        syntax.Init(true, false, nullptr, "\r\n", "=", "#;");
    }

    void Read(std::string_view text) {
        for (int line = 1; !text.empty(); ++line) {
            builder.SetLine(line);
            const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
            ReadLine(TrimBlanks(text.substr(0, end)));
            const bool pair = text.substr(end).starts_with("\r\n");
            text.remove_prefix(std::min(end + (pair ? 2 : 1), text.size()));
        }
        if (!sawContent)
            builder.Tell(
                Bilingual("has nothing in it but blanks and comments; 'sigweave --help' shows an example",
                          "enthält nur Leerraum und Kommentare; ein Beispiel zeigt 'sigweave --help'")
                    .Text());
    }

 private:
    enum class Section { None, Lines, Instance, Skipped };

    void ReadLine(std::string_view line) {
        if (line.empty()) return;
        if (IsComment(line)) return builder.AddComment(TrimBlanks(line.substr(1)));
        sawContent = true;
        if (line.front() == '[')
            BeginSection(line);
        else
            ReadParameter(line);
    }

    void BeginSection(std::string_view line) {
        section = Section::Skipped;
        const std::size_t end = line.find(']');
        if (end == std::string_view::npos)
            return builder.Tell(Bilingual("the section name is not closed; write [name]",
                                          "der Abschnittsname ist nicht geschlossen; schreiben Sie [name]")
                                    .Text());
        ReadBehindName(TrimBlanks(line.substr(end + 1)));
        const std::string name(TrimBlanks(line.substr(1, end - 1)));
        if (name == LINES_SECTION)
            section = Section::Lines;
        else if (name.empty())
            builder.Tell(
                Bilingual(
                    "the section has no name; name it after the instance, for example [voice]",
                    "der Abschnitt hat keinen Namen; benennen Sie ihn nach der Instanz, zum Beispiel [voice]")
                    .Text());
        else if (builder.BeginInstance(name))
            section = Section::Instance;
    }

    void ReadBehindName(std::string_view rest) {
        if (rest.empty()) return;
        if (IsComment(rest)) return builder.AddComment(TrimBlanks(rest.substr(1)));
        builder.Tell(
            Bilingual("there is text behind the section name; put it on a line of its own",
                      "hinter dem Abschnittsnamen steht noch Text; setzen Sie ihn in eine eigene Zeile")
                .Text());
    }

    void ReadParameter(std::string_view line) {
        const std::size_t split = line.find('=');
        if (split == std::string_view::npos)
            return builder.Tell(Bilingual("'%1' is neither name=value, [section] nor a # comment",
                                          "'%1' ist weder Name=Wert noch [Abschnitt] noch ein #-Kommentar")
                                    .With({line}));
        const std::string_view value = TrimBlanks(line.substr(split + 1));
        if (const char* reason = WhyBadQuotes(value)) return builder.Tell(reason);
        const std::string text =
            std::string(TrimBlanks(line.substr(0, split))) + "=" + std::string(value) + "\n";
        if (text.front() == '=')
            return builder.Tell(
                Bilingual("there is no name before the '='", "vor dem '=' steht kein Name").Text());
        if (syntax.ParseParamString(text.c_str()) != 1)
            return builder.Tell(
                Bilingual("%1; a backslash in quotation marks is written \\\\, the last one \\x5c",
                          "%1; ein Rückstrich in Anführungszeichen wird als \\\\ "
                          "geschrieben, der letzte als \\x5c")
                    .With({std::string(syntax.GetErrorText())}));
        Take(std::string(syntax.GetParamName(0)), TCString::TCString2BinCString(syntax.GetParamValStr(0)));
    }

    void Take(const std::string& name, const std::string& value) {
        switch (section) {
            case Section::None:
                return builder.Tell(Bilingual("'%1' stands before the first section; put it behind the "
                                              "[instance] that it belongs to",
                                              "'%1' steht vor dem ersten Abschnitt; setzen Sie es hinter die "
                                              "[Instanz], zu der es gehört")
                                        .With({name}));
            case Section::Lines:
                return TakeLine(name, value);
            case Section::Instance:
                return builder.AddSetting(name, value);
            case Section::Skipped:
                return;
        }
    }

    void TakeLine(const std::string& name, const std::string& value) {
        if (name == "accept") return builder.SetAccept(value);
        if (!builder.AddLine(name, value))
            builder.Tell(
                Bilingual("'%1=%2' is no line; write instance.Output=instance.Input",
                          "'%1=%2' ist keine Verbindung; schreiben Sie Instanz.Ausgang=Instanz.Eingang")
                    .With({name, value}));
    }

    GraphBuilder& builder;
    TCProcessParameters syntax;
    Section section = Section::None;
    bool sawContent = false;
};

bool NeedsQuotes(std::string_view value) {
    if (value.empty()) return false;
    const auto isControl = [](char byte) { return static_cast<unsigned char>(byte) < ' ' || byte == 0x7F; };
    return value != TrimBlanks(value) || value.front() == '"' || value.front() == '\'' ||
           std::any_of(value.begin(), value.end(), isControl);
}

std::string Parameter(const std::string& name, const std::string& value) {
    TCString bytes;
    bytes.AllocCopy(value);
    return name + "=" + (NeedsQuotes(value) ? std::string(tc::QuoteParameter(bytes)) : value) + "\n";
}

class Writer {
 public:
    explicit Writer(const GraphFile& graphFile) : graph(graphFile), comments(graphFile) {}

    std::string Write() {
        for (const InstanceEntry& instance : graph.GetInstances()) Write(instance);
        if (!graph.GetLines().empty() || graph.AcceptsDifferences()) WriteLines();
        Write(comments.Rest());
        return std::move(text);
    }

 private:
    void Write(const std::vector<std::string>& lines) {
        for (const std::string& line : lines) text += line.empty() ? "#\n" : "# " + line + "\n";
    }

    void Separate() { text += text.empty() ? "" : "\n"; }

    void Write(const InstanceEntry& instance) {
        Separate();
        Write(comments.Before(instance.place));
        text += "[" + instance.name + "]\n";
        if (!instance.module.empty()) {
            Write(comments.Before(instance.modulePlace));
            text += Parameter("module", instance.module);
        }
        for (const Setting& setting : instance.settings) {
            Write(comments.Before(setting.place));
            text += Parameter(setting.name, setting.value);
        }
    }

    void WriteLines() {
        Separate();
        if (!graph.GetLines().empty()) Write(comments.Before(graph.GetLines().front().place));
        text += std::string("[") + LINES_SECTION + "]\n";
        if (graph.AcceptsDifferences()) text += "accept=yes\n";
        for (const LineEntry& line : graph.GetLines()) {
            Write(comments.Before(line.place));
            text +=
                Parameter(line.from.instance + "." + line.from.port, line.to.instance + "." + line.to.port);
        }
    }

    const GraphFile& graph;
    CommentCursor comments;
    std::string text;
};

}  // namespace

void ReadGraphText(std::string_view text, GraphBuilder& builder) {
    Reader(builder).Read(text);
}

std::string WriteGraphText(const GraphFile& graph) {
    return Writer(graph).Write();
}

}  // namespace host
