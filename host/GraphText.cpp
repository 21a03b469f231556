#include "host/GraphText.h"

#include <algorithm>
#include <cstdio>

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

bool IsQuoted(std::string_view value) {
    return !value.empty() && tc::IsQuotationMark(value.front());
}

// The greatest length of a sequence is 4, of which the first two bytes say whether it is allowed.
std::size_t Utf8Length(std::string_view text) {
    const auto byte = [&](std::size_t at) {
        return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
    };
    struct Lead {
        unsigned first, last, lowest, highest;  // of the lead byte, and of the one after it
        std::size_t length;
    };
    constexpr Lead LEADS[] = {{0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
                              {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3},
                              {0xEE, 0xEF, 0x80, 0xBF, 3}, {0xF0, 0xF0, 0x90, 0xBF, 4},
                              {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4}};
    if (byte(0) < 0x80) return 1;
    for (const Lead& lead : LEADS) {
        if (byte(0) < lead.first || byte(0) > lead.last) continue;
        bool valid = byte(1) >= lead.lowest && byte(1) <= lead.highest;
        for (std::size_t at = 2; at < lead.length; ++at) valid = valid && (byte(at) & 0xC0) == 0x80;
        return valid ? lead.length : 0;
    }
    return 0;
}

// The first byte of a line that is not UTF-8, counted from 1; 0 when there is none.
std::size_t FindBadByte(std::string_view line) {
    for (std::size_t at = 0; at < line.size();) {
        const std::size_t length = Utf8Length(line.substr(at));
        if (length == 0) return at + 1;
        at += length;
    }
    return 0;
}

// Why a quoted value is not alone on its line; empty when it is.
std::string WhyBadQuotes(std::string_view value) {
    if (!IsQuoted(value)) return "";
    const std::size_t end = tc::FindQuotedEnd(value, true);
    const bool isHidden = value.size() > 2 && value.back() == value.front();
    if (end == std::string_view::npos && isHidden)
        return Bilingual(
                   "the backslash before the last quotation mark hides the mark; write that backslash as "
                   "\\x5c",
                   "der umgekehrte Schrägstrich vor dem letzten Anführungszeichen verdeckt dieses; schreiben "
                   "Sie ihn als \\x5c")
            .Text();
    if (end == std::string_view::npos)
        return Bilingual("the quotation mark is not closed on this line; add the closing one",
                         "das Anführungszeichen wird in dieser Zeile nicht geschlossen; ergänzen Sie das "
                         "schließende")
            .Text();
    if (end < value.size())
        return Bilingual(
                   "there is text after the closing quotation mark; remove it, or put a comment on a line "
                   "of its own",
                   "hinter dem schließenden Anführungszeichen steht noch Text; entfernen Sie ihn, oder "
                   "setzen Sie einen Kommentar in eine eigene Zeile")
            .Text();
    return "";
}

// Reads line by line, so that one mistake does not hide the next; each line is parameter text.
class Reader {
 public:
    explicit Reader(GraphBuilder& graphBuilder) : builder(graphBuilder) {
        syntax.Init(true, false, nullptr, "\r\n", "=", "#;");
    }

    void Read(std::string_view text) {
        for (int line = 1; !text.empty(); ++line) {
            builder.SetLine(line);
            const std::string_view content = TakeTextLine(text).text;
            CheckBytes(content);
            ReadLine(TrimBlanks(content));
        }
        if (!sawContent)
            builder.Tell(
                Bilingual("contains only blanks and comments; 'sigweave --help' shows an example",
                          "enthält nur Leerraum und Kommentare; ein Beispiel zeigt 'sigweave --help'")
                    .Text());
    }

 private:
    void CheckBytes(std::string_view line) {
        const std::size_t bad = FindBadByte(line);
        if (bad > 0)
            builder.Tell(
                Bilingual(
                    "byte %1 of this line is not UTF-8; save the file in UTF-8, or write a byte of a file's "
                    "name as \\x and two digits, in quotation marks",
                    "Byte %1 dieser Zeile ist kein UTF-8; speichern Sie die Datei in UTF-8, oder schreiben "
                    "Sie ein Byte eines Dateinamens als \\x und zwei Ziffern, in Anführungszeichen")
                    .With({std::to_string(bad)}));
    }

    enum class Section { None, Lines, Instance, View, Skipped };

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
        else if (name.starts_with(VIEW_PREFIX))
            BeginView(name);
        else if (name.empty())
            builder.Tell(
                Bilingual(
                    "the section has no name; name it after the instance, for example [voice]",
                    "der Abschnitt hat keinen Namen; benennen Sie ihn nach der Instanz, zum Beispiel [voice]")
                    .Text());
        else if (builder.BeginInstance(name))
            section = Section::Instance;
    }

    void BeginView(const std::string& name) {
        section = Section::View;
        view = name.substr(VIEW_PREFIX.size());
    }

    void ReadBehindName(std::string_view rest) {
        if (rest.empty()) return;
        if (IsComment(rest)) return builder.AddComment(TrimBlanks(rest.substr(1)));
        builder.Tell(
            Bilingual("there is text after the section name; put it on a line of its own",
                      "hinter dem Abschnittsnamen steht noch Text; setzen Sie ihn in eine eigene Zeile")
                .Text());
    }

    void ReadParameter(std::string_view line) {
        const std::optional<TextSetting> split = SplitTextSetting(line);
        if (!split && section == Section::Lines) return RefuseLine(std::string(line));
        if (!split)
            return Refuse(Bilingual("'%1' is neither name=value, [section] nor a # comment",
                                    "'%1' ist weder Name=Wert noch [Abschnitt] noch ein #-Kommentar")
                              .With({line}));
        const std::string reason = WhyBadQuotes(split->value);
        if (!reason.empty()) return Refuse(reason);
        if (split->name.empty())
            return Refuse(Bilingual("there is no name before the '='", "vor dem '=' steht kein Name").Text());
        const std::string text = std::string(split->name) + "=" + std::string(split->value) + "\n";
        if (syntax.ParseParamString(text.c_str()) != 1)
            return Refuse(Bilingual("%1; a backslash in quotation marks is written \\\\, the last one \\x5c",
                                    "%1; ein umgekehrter Schrägstrich in Anführungszeichen wird als \\\\ "
                                    "geschrieben, der letzte als \\x5c")
                              .With({std::string(syntax.GetErrorText())}));
        Take(std::string(syntax.GetParamName(0)), TCString::TCString2BinCString(syntax.GetParamValStr(0)),
             IsQuoted(split->value));
    }

    void Take(const std::string& name, const std::string& value, bool quoted) {
        switch (section) {
            case Section::None:
                return builder.Tell(Bilingual("'%1' is before the first section; put it after the "
                                              "[instance] that it belongs to",
                                              "'%1' steht vor dem ersten Abschnitt; setzen Sie es hinter die "
                                              "[Instanz], zu der es gehört")
                                        .With({name}));
            case Section::Lines:
                return TakeLine(name, value);
            case Section::Instance:
                return builder.AddSetting(name, value, quoted);
            case Section::View:
                return builder.AddView(view, name, value);
            case Section::Skipped:
                return;
        }
    }

    void TakeLine(const std::string& name, const std::string& value) {
        if (name == "accept") return builder.SetAccept(value);
        if (!builder.AddLine(name, value)) RefuseLine(name + "=" + value);
    }

    void RefuseLine(const std::string& line) {
        Refuse(Bilingual("'%1' is not a line; write instance.Output=instance.Input",
                         "'%1' ist keine Verbindung; schreiben Sie Instanz.Ausgang=Instanz.Eingang")
                   .With({line}) +
               CommentHint(line));
    }

    // What was meant as a line counts as one, although it is wrong.
    void Refuse(std::string mistake) {
        if (section == Section::Lines) builder.CountLine();
        builder.Tell(std::move(mistake));
    }

    GraphBuilder& builder;
    TCProcessParameters syntax;
    Section section = Section::None;
    std::string view;  // of the section of that kind begun last
    bool sawContent = false;
};

bool NeedsQuotes(std::string_view value) {
    if (value.empty()) return false;
    const auto isControl = [](char byte) { return static_cast<unsigned char>(byte) < ' ' || byte == 0x7F; };
    return value != TrimBlanks(value) || IsQuoted(value) || FindComment(value) != std::string_view::npos ||
           FindBadByte(value) > 0 || std::any_of(value.begin(), value.end(), isControl);
}

// Those that are not UTF-8, of a value in quotation marks.
std::string EscapeBadBytes(const std::string& quoted) {
    std::string text;
    for (std::size_t at = 0; at < quoted.size();) {
        const std::size_t length = Utf8Length(std::string_view(quoted).substr(at));
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(quoted[at]));
        text += length > 0 ? quoted.substr(at, length) : escape;
        at += std::max<std::size_t>(length, 1);
    }
    return text;
}

std::string Parameter(const std::string& name, const std::string& value) {
    return WriteTextSetting(name, value) + "\n";
}

class Writer {
 public:
    explicit Writer(const GraphFile& graphFile) : graph(graphFile), comments(graphFile) {}

    std::string Write() {
        if (graph.GetEngine()) Write(*graph.GetEngine());
        for (const InstanceEntry& instance : graph.GetInstances()) Write(instance);
        if (!graph.GetLines().empty() || graph.AcceptsDifferences()) WriteLines();
        WriteView();
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
            text += Parameter(PortText(line.from), PortText(line.to));
        }
    }

    void WriteView() {
        const std::string* section = nullptr;
        for (const ViewEntry& entry : graph.GetView()) {
            if (section == nullptr || *section != entry.section) {
                Separate();
                Write(comments.Before(entry.place));
                text += "[" + std::string(VIEW_PREFIX) + entry.section + "]\n";
            }
            section = &entry.section;
            text += Parameter(entry.name, entry.value);
        }
    }

    const GraphFile& graph;
    CommentCursor comments;
    std::string text;
};

}  // namespace

TextLine TakeTextLine(std::string_view& text) {
    const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
    const std::size_t length =
        std::min<std::size_t>(text.substr(end).starts_with("\r\n") ? 2 : 1, text.size() - end);
    const TextLine line{text.substr(0, end), text.substr(end, length)};
    text.remove_prefix(end + length);
    return line;
}

std::optional<TextSetting> SplitTextSetting(std::string_view line) {
    const std::size_t split = line.find('=');
    if (split == std::string_view::npos) return std::nullopt;
    return TextSetting{TrimBlanks(line.substr(0, split)), TrimBlanks(line.substr(split + 1))};
}

std::size_t FindComment(std::string_view value) {
    for (std::size_t at = 1; at < value.size(); ++at)
        if (IsComment(value.substr(at)) && TrimBlanks(value.substr(at - 1, 1)).empty()) return at;
    return std::string_view::npos;
}

std::string CommentHint(std::string_view value) {
    const std::size_t at = FindComment(value);
    if (at == std::string_view::npos) return "";
    return Bilingual("; the comment '%1' must have a line of its own",
                     "; der Kommentar '%1' braucht eine eigene Zeile")
        .With({value.substr(at)});
}

std::string WriteTextSetting(const std::string& name, const std::string& value) {
    TCString bytes;
    bytes.AllocCopy(value);
    return name + "=" + (NeedsQuotes(value) ? EscapeBadBytes(std::string(tc::QuoteParameter(bytes))) : value);
}

void ReadGraphText(std::string_view text, GraphBuilder& builder) {
    Reader(builder).Read(text);
}

std::string WriteGraphText(const GraphFile& graph) {
    return Writer(graph).Write();
}

}  // namespace host
