#include "host/Conversion.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "host/GraphText.h"
#include "host/GraphXml.h"
#include "sigweave/persistence/TCXML.h"
#include "sigweave/platform/ReplacedFile.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/FileMessages.h"

namespace host {
namespace {

using tc::Bilingual;

namespace fs = std::filesystem;

bool Write(const tc::ReplacedFile& file, const std::string& text) {
    return std::fwrite(text.data(), 1, text.size(), file.Get()) == text.size();
}

std::string Join(const PortName& port) {
    return port.instance + "." + port.port;
}

std::string FindDifference(const InstanceEntry& wanted, const InstanceEntry& written) {
    if (wanted.module != written.module)
        return Bilingual("the module '%1' of %2", "das Modul '%1' von %2").With({wanted.module, wanted.name});
    for (std::size_t index = 0; index < wanted.settings.size(); ++index) {
        const Setting& setting = wanted.settings[index];
        if (index >= written.settings.size() || setting.name != written.settings[index].name ||
            setting.value != written.settings[index].value)
            return Bilingual("the setting '%1' of %2", "die Einstellung '%1' von %2")
                .With({setting.name, wanted.name});
    }
    if (wanted.settings.size() == written.settings.size()) return "";
    return Bilingual("a setting of %1", "eine Einstellung von %1").With({wanted.name});
}

bool IsSame(const ViewEntry& a, const ViewEntry& b) {
    return a.section == b.section && a.name == b.name && a.value == b.value;
}

bool IsSame(const LineEntry& a, const LineEntry& b) {
    return Join(a.from) == Join(b.from) && Join(a.to) == Join(b.to);
}

}  // namespace

std::string FindDifference(const GraphFile& graph, const GraphFile& written) {
    const auto& instances = graph.GetInstances();
    for (std::size_t index = 0; index < instances.size(); ++index) {
        if (index >= written.GetInstances().size() ||
            instances[index].name != written.GetInstances()[index].name)
            return Bilingual("the instance '%1'", "die Instanz '%1'").With({instances[index].name});
        std::string difference = FindDifference(instances[index], written.GetInstances()[index]);
        if (!difference.empty()) return difference;
    }
    if (graph.GetEngine() && written.GetEngine()) {
        std::string difference = FindDifference(*graph.GetEngine(), *written.GetEngine());
        if (!difference.empty()) return difference;
    }
    const auto& lines = graph.GetLines();
    for (std::size_t index = 0; index < lines.size(); ++index)
        if (index >= written.GetLines().size() || !IsSame(lines[index], written.GetLines()[index]))
            return Bilingual("the line from '%1' to '%2'", "die Verbindung von '%1' nach '%2'")
                .With({Join(lines[index].from), Join(lines[index].to)});
    const bool sameView =
        std::ranges::equal(graph.GetView(), written.GetView(),
                           [](const ViewEntry& a, const ViewEntry& b) { return IsSame(a, b); });
    const bool same = sameView && graph.GetEngine().has_value() == written.GetEngine().has_value() &&
                      instances.size() == written.GetInstances().size() &&
                      lines.size() == written.GetLines().size() &&
                      graph.AcceptsDifferences() == written.AcceptsDifferences();
    return same ? "" : Bilingual("a part of it", "ein Teil davon").Text();
}

bool ConvertTo(const GraphFile& graph, const std::string& path, std::string& error) {
    std::error_code ignored;
    const fs::file_status status = fs::status(path, ignored);
    // What /dev/stdout leads to may be an ordinary file, but not one to replace.
    if ((fs::exists(status) && !fs::is_regular_file(status)) || path.starts_with("/dev/")) {
        error = Bilingual("%1 is not an ordinary file; name another one",
                          "%1 ist keine gewöhnliche Datei; nennen Sie eine andere")
                    .With({path});
        return false;
    }
    errno = 0;
    const auto target = tc::ReplacedFile::Open(path);
    if (target == nullptr) {
        error = tc::WhyNotWritten(path, errno);
        return false;
    }
    const bool toText = graph.GetForm() == GraphForm::Xml;
    TCXML xml;
    TCString text;
    const bool made = toText || (WriteGraphXml(graph, xml) && xml.GetNodeXML(xml.GetDocument(), text));
    if (toText) text = WriteGraphText(graph).c_str();
    Mistakes mistakes;
    std::string lost =
        made ? FindDifference(graph, GraphFile::Parse(path, std::string(text), mistakes)) : std::string();
    if (made && lost.empty() && !mistakes.IsEmpty()) lost = mistakes.InOrder().front().text;
    if (!lost.empty()) {
        static constexpr Bilingual NOT_IN_TEXT(
            "%1: %2 cannot be said in parameter text; give it a simpler name",
            "%1: %2 lässt sich in Parametertext nicht ausdrücken; geben Sie einen einfacheren Namen");
        static constexpr Bilingual NOT_IN_XML(
            "%1: %2 cannot be said in an XML document; give it a simpler name",
            "%1: %2 lässt sich in einem XML-Dokument nicht ausdrücken; geben Sie einen einfacheren Namen");
        error = (toText ? NOT_IN_TEXT : NOT_IN_XML).With({graph.GetPath(), lost});
        return false;
    }
    errno = 0;
    const bool written =
        toText ? Write(*target, std::string(text)) && target->Commit() : made && xml.Save(path.c_str());
    if (!written)
        error = tc::WhyNotWritten(
            path, toText ? std::generic_category().message(errno) : std::string(xml.GetError()));
    return written;
}

}  // namespace host
