#include "host/Conversion.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>

#include "host/GraphText.h"
#include "host/GraphXml.h"
#include "sigweave/persistence/TCXML.h"
#include "sigweave/platform/Fork.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/FileMessages.h"

namespace host {
namespace {

using tc::Bilingual;

namespace fs = std::filesystem;

// A file beside the one that it is to become; gone with this object unless it was given its name.
class NewFile {
 public:
    explicit NewFile(std::string partPath) : path(std::move(partPath)) {}
    ~NewFile() {
        std::error_code ignored;
        if (!path.empty()) fs::remove(path, ignored);
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    const std::string& GetPath() const { return path; }
    std::error_code Rename(const std::string& name) {
        std::error_code failed;
        fs::rename(path, name, failed);
        if (!failed) path.clear();
        return failed;
    }

 private:
    std::string path;
};

bool WriteText(const std::string& path, const std::string& text, std::string& error) {
    errno = 0;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "wb"), &std::fclose);
    const bool written =
        file != nullptr && std::fwrite(text.data(), 1, text.size(), file.get()) == text.size();
    const bool closed = file != nullptr && std::fclose(file.release()) == 0;
    if (!written || !closed) error = std::generic_category().message(errno);
    return written && closed;
}

bool WriteXml(const GraphFile& graph, const std::string& path, std::string& error) {
    TCXML xml;
    if (WriteGraphXml(graph, xml) && xml.Save(path.c_str())) return true;
    error = std::string(xml.GetError());
    return false;
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
    const auto& lines = graph.GetLines();
    for (std::size_t index = 0; index < lines.size(); ++index)
        if (index >= written.GetLines().size() || !IsSame(lines[index], written.GetLines()[index]))
            return Bilingual("the line from '%1' to '%2'", "die Verbindung von '%1' nach '%2'")
                .With({Join(lines[index].from), Join(lines[index].to)});
    const bool same = instances.size() == written.GetInstances().size() &&
                      lines.size() == written.GetLines().size() &&
                      graph.AcceptsDifferences() == written.AcceptsDifferences();
    return same ? "" : Bilingual("a part of it", "ein Teil davon").Text();
}

bool ConvertTo(const GraphFile& graph, const std::string& path, std::string& error) {
    std::error_code ignored;
    const fs::file_status status = fs::status(path, ignored);
    // What /dev/stdout leads to may be an ordinary file, but not one to replace.
    if ((fs::exists(status) && !fs::is_regular_file(status)) || path.starts_with("/dev/")) {
        error = Bilingual("%1 is no ordinary file; name another one",
                          "%1 ist keine gewöhnliche Datei; nennen Sie eine andere")
                    .With({path});
        return false;
    }
    const std::string target = fs::exists(status) ? fs::canonical(path, ignored).string() : path;
    NewFile part(target + "." + std::to_string(tc::ProcessId()) + ".part");
    const bool toText = graph.GetForm() == GraphForm::Xml;
    if (!(toText ? WriteText(part.GetPath(), WriteGraphText(graph), error)
                 : WriteXml(graph, part.GetPath(), error))) {
        error = tc::WhyNotWritten(path, error);
        return false;
    }
    Mistakes mistakes;
    std::string lost = FindDifference(graph, GraphFile::Read(part.GetPath(), mistakes));
    if (lost.empty() && !mistakes.IsEmpty()) lost = mistakes.InOrder().front().text;
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
    const std::error_code failed = part.Rename(target);
    if (failed) error = tc::WhyNotWritten(path, failed.message());
    return !failed;
}

}  // namespace host
