#include "host/GraphFile.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "host/FileWait.h"
#include "host/GraphText.h"
#include "host/GraphXml.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr std::size_t MAX_SIZE = 16 << 20;
constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";

bool ReadBytes(const std::string& path, std::string& text, std::string& error) {
    std::error_code failed;
    const auto status = std::filesystem::status(path, failed);
    if (std::filesystem::is_directory(status)) {
        error = Bilingual("is a folder, not a graph file", "ist ein Ordner, keine Graphdatei").Text();
        return false;
    }
    const FileWait wait("", {path});
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        const bool isHidden = failed == std::errc::permission_denied;
        error = std::filesystem::exists(status) || isHidden
                    ? Bilingual("cannot be read; check its permissions",
                                "ist nicht lesbar; prüfen Sie die Rechte")
                          .Text()
                    : Bilingual("there is no such file; check the path",
                                "diese Datei gibt es nicht; prüfen Sie den Pfad")
                          .Text();
        return false;
    }
    constexpr std::size_t AT_FIRST = 1 << 16;
    std::size_t got = 0;
    while (file && got <= MAX_SIZE) {
        text.resize(std::min(std::max(AT_FIRST, 2 * got), MAX_SIZE + 1));
        file.read(text.data() + got, static_cast<std::streamsize>(text.size() - got));
        got += static_cast<std::size_t>(file.gcount());
    }
    text.resize(got);
    if (!file.bad()) return true;
    error = Bilingual("cannot be read", "ist nicht lesbar").Text();
    return false;
}

bool IsBinary(char byte) {
    const auto code = static_cast<unsigned char>(byte);
    return (code < ' ' && byte != '\t' && byte != '\n' && byte != '\r') || code == 0x7F;
}

// Why the text cannot be a graph at all; empty when it may be one.
std::string WhyNoGraph(const std::string& text) {
    if (text.size() > MAX_SIZE)
        return Bilingual(
                   "is larger than 16 MB, the most that a graph file may have; is it the right file?",
                   "ist größer als 16 MB, mehr darf eine Graphdatei nicht haben; ist es die richtige Datei?")
            .Text();
    if (text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF"))
        return Bilingual("is in UTF-16; save it in UTF-8, which editors offer as an encoding",
                         "ist in UTF-16; speichern Sie sie in UTF-8, das Editoren als Kodierung anbieten")
            .Text();
    if (std::any_of(text.begin(), text.end(), IsBinary))
        return Bilingual("is a binary file, not a graph; a graph is plain text or XML, in UTF-8",
                         "ist eine Binärdatei, kein Graph; ein Graph ist einfacher Text oder XML, in UTF-8")
            .Text();
    if (text.empty())
        return Bilingual("is empty; 'sigweave --help' shows an example",
                         "ist leer; ein Beispiel zeigt 'sigweave --help'")
            .Text();
    return "";
}

}  // namespace

std::string PortText(const PortName& name) {
    return name.port.empty() ? name.instance : name.instance + "." + name.port;
}

GraphFile GraphFile::Read(const std::string& path, Mistakes& mistakes) {
    std::string text;
    std::string error;
    if (ReadBytes(path, text, error)) return Parse(path, text, mistakes);
    mistakes.Add({path.empty() ? "''" : path}, std::move(error));
    GraphFile graph;
    graph.path = path;
    return graph;
}

std::string GraphFile::ReadText(const std::string& path, Mistakes& mistakes) {
    std::string text;
    std::string error;
    if (ReadBytes(path, text, error)) return text;
    mistakes.Add({path.empty() ? "''" : path}, std::move(error));
    return "";
}

GraphFile GraphFile::Parse(const std::string& path, const std::string& text, Mistakes& mistakes) {
    GraphFile graph;
    graph.path = path;
    std::string reason = WhyNoGraph(text);
    if (reason.empty())
        graph.Fill(text, mistakes);
    else
        mistakes.Add({path}, std::move(reason));
    return graph;
}

void GraphFile::Fill(std::string_view text, Mistakes& mistakes) {
    if (text.starts_with(BYTE_ORDER_MARK)) text.remove_prefix(BYTE_ORDER_MARK.size());
    form = LooksLikeXml(text) ? GraphForm::Xml : GraphForm::Text;
    GraphBuilder builder(*this, mistakes);
    form == GraphForm::Xml ? ReadGraphXml(std::string(text), builder) : ReadGraphText(text, builder);
    builder.Finish();
}

InstanceEntry* GraphFile::FindInstance(const std::string& name) {
    const auto found = std::find_if(instances.begin(), instances.end(),
                                    [&](const InstanceEntry& entry) { return entry.name == name; });
    return found != instances.end() ? &*found : nullptr;
}

void GraphFile::Set(const std::string& argument, Mistakes& mistakes) {
    const Place place{"--set " + argument};
    const std::size_t split = argument.find('=');
    const std::size_t point = argument.find('.');
    if (split == std::string::npos || point == std::string::npos || point == 0 || point + 1 >= split)
        return mistakes.Add(
            place, Bilingual("must be INSTANCE.PARAMETER=VALUE, for example --set voice.block=512",
                             "muss INSTANZ.PARAMETER=WERT lauten, zum Beispiel --set voice.block=512")
                       .Text());
    const std::string name = argument.substr(0, point);
    InstanceEntry* instance = FindInstance(name);
    if (instance == nullptr) {
        CStringArray names;
        for (const InstanceEntry& entry : instances) names.push_back(entry.name);
        return mistakes.Add(
            place, Bilingual("the graph has no instance '%1'; %2", "der Graph hat keine Instanz '%1'; %2")
                       .With({name, tc::SuggestNames(name, names)}));
    }
    const Setting setting{argument.substr(point + 1, split - point - 1), argument.substr(split + 1), place,
                          true};
    if (setting.name == "module")
        return mistakes.Add(place, Bilingual("the module of an instance can only be chosen in the graph file",
                                             "das Modul einer Instanz legt nur die Graphdatei fest")
                                       .Text());
    std::erase_if(instance->settings, [&](const Setting& old) { return old.name == setting.name; });
    instance->settings.push_back(setting);
}

}  // namespace host
