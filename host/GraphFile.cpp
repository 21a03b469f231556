#include "host/GraphFile.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "host/GraphText.h"
#include "host/GraphXml.h"
#include "sigweave/foundation/NearNames.h"

namespace host {
namespace {

constexpr std::size_t MAX_SIZE = 16 << 20;
constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";

bool ReadBytes(const std::string& path, std::string& text, std::string& error) {
    std::error_code failed;
    const auto status = std::filesystem::status(path, failed);
    if (std::filesystem::is_directory(status)) {
        error = "is a folder, not a graph file";
        return false;
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        error = std::filesystem::exists(status) ? "cannot be read; check its permissions"
                                                : "there is no such file; check the path";
        return false;
    }
    text.resize(MAX_SIZE + 1);
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (!file.bad()) return true;
    error = "cannot be read";
    return false;
}

bool IsBinary(char byte) {
    const auto code = static_cast<unsigned char>(byte);
    return (code < ' ' && byte != '\t' && byte != '\n' && byte != '\r') || code == 0x7F;
}

// Why the text cannot be a graph at all; null when it may be one.
const char* WhyNoGraph(const std::string& text) {
    if (text.size() > MAX_SIZE)
        return "is larger than 16 MB, the most that a graph file may have; is it the right file?";
    if (std::any_of(text.begin(), text.end(), IsBinary))
        return "is a binary file, not a graph; a graph is plain text or XML, in UTF-8";
    return nullptr;
}

}  // namespace

GraphFile GraphFile::Read(const std::string& path, Mistakes& mistakes) {
    std::string text;
    std::string error;
    if (ReadBytes(path, text, error)) return Parse(path, text, mistakes);
    mistakes.Add({path.empty() ? "''" : path}, std::move(error));
    GraphFile graph;
    graph.path = path;
    return graph;
}

GraphFile GraphFile::Parse(const std::string& path, const std::string& text, Mistakes& mistakes) {
    GraphFile graph;
    graph.path = path;
    if (const char* reason = WhyNoGraph(text))
        mistakes.Add({path}, reason);
    else if (text.empty())
        mistakes.Add({path}, "is empty; 'sigweave --help' shows an example");
    else
        graph.Fill(text, mistakes);
    return graph;
}

void GraphFile::Fill(std::string_view text, Mistakes& mistakes) {
    if (text.starts_with(BYTE_ORDER_MARK)) text.remove_prefix(BYTE_ORDER_MARK.size());
    form = LooksLikeXml(text) ? GraphForm::Xml : GraphForm::Text;
    GraphBuilder builder(*this, mistakes);
    form == GraphForm::Xml ? ReadGraphXml(std::string(text), builder) : ReadGraphText(text, builder);
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
        return mistakes.Add(place, "must be INSTANCE.PARAMETER=VALUE, for example --set voice.block=512");
    InstanceEntry* instance = FindInstance(argument.substr(0, point));
    if (instance == nullptr) {
        CStringArray names;
        for (const InstanceEntry& entry : instances) names.push_back(entry.name);
        return mistakes.Add(place, "the graph has no instance '" + argument.substr(0, point) + "'; " +
                                       tc::SuggestNames(argument.substr(0, point), names));
    }
    const Setting setting{argument.substr(point + 1, split - point - 1), argument.substr(split + 1), place,
                          true};
    if (setting.name == "module")
        return mistakes.Add(place, "the module of an instance can only be chosen in the graph file");
    std::erase_if(instance->settings, [&](const Setting& old) { return old.name == setting.name; });
    instance->settings.push_back(setting);
}

}  // namespace host
