#include "studio/server/Checker.h"

#include <cerrno>
#include <chrono>
#include <set>
#include <system_error>

#include "host/GraphFile.h"
#include "host/GraphText.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/StringResources.h"
#include "studio/server/GraphPicture.h"

namespace studio {
namespace {

using tc::Bilingual;
using namespace std::chrono_literals;

constexpr auto PATIENCE = 10s;
constexpr std::size_t MOST_SUSPECTS = 50;

constexpr Bilingual NO_START("the process that checks modules could not be started: %1",
                             "der Prozess, der Module prüft, ließ sich nicht starten: %1");
constexpr Bilingual CRASHED(
    "a module crashed while it was checked (code %1); remove it, or change its settings in the text",
    "ein Modul ist beim Prüfen abgestürzt (Code %1); entfernen Sie es, oder ändern Sie seine Einstellungen "
    "im Text");
constexpr Bilingual HANGS(
    "a module did not come back from being checked; remove it, or change its settings in the text",
    "ein Modul kam vom Prüfen nicht zurück; entfernen Sie es, oder ändern Sie seine Einstellungen im Text");

// A graph of that instance alone.
std::string TextOf(const host::InstanceEntry& entry) {
    std::string text = "[" + entry.name + "]\n" + host::WriteTextSetting("module", entry.module) + "\n";
    for (const host::Setting& setting : entry.settings)
        text += host::WriteTextSetting(setting.name, setting.value) + "\n";
    return text;
}

}  // namespace

Checker::Checker(std::string ownProgram, std::vector<std::string> moduleFolders)
    : program(std::move(ownProgram)), folders(std::move(moduleFolders)) {}

Checker::~Checker() = default;

void Checker::Prepare() {
    if (process == nullptr) Start();
}

bool Checker::Start() {
    RunProcess::Handlers handlers;
    handlers.onText = [this](std::string text) {
        const std::lock_guard lock(mutex);
        answer = std::move(text);
        changed.notify_all();
    };
    handlers.onPictures = [] {};
    handlers.onEnd = [this](int code) {
        const std::lock_guard lock(mutex);
        ended = code;
        changed.notify_all();
    };
    const Json order = {{"folders", folders}, {"language", TCGetResourceLanguage()}};
    answer.reset();
    ended.reset();
    errno = 0;
    process = RunProcess::Start(
        program, "--check", order.dump(-1, ' ', false, Json::error_handler_t::replace), std::move(handlers));
    if (process == nullptr) whyNot = NO_START.With({std::generic_category().message(errno)});
    return process != nullptr;
}

std::optional<Checker::Json> Checker::Ask(const Json& request) {
    if (process == nullptr && !Start()) return std::nullopt;
    process->Send(request.dump(-1, ' ', false, Json::error_handler_t::replace));
    std::unique_lock lock(mutex);
    changed.wait_for(lock, PATIENCE, [this] { return answer.has_value() || ended.has_value(); });
    if (answer.has_value()) {
        const std::string text = std::move(*answer);
        answer.reset();
        lock.unlock();
        return Json::parse(text, nullptr, false);
    }
    whyNot = ended.has_value() ? CRASHED.With({std::to_string(*ended)}) : HANGS.Text();
    lock.unlock();
    process.reset();
    return std::nullopt;
}

void Checker::SetLanguage(const std::string& code) {
    catalogue = nullptr;
    if (process != nullptr) Ask({{"ask", "language"}, {"code", code}});
}

Checker::Json Checker::Catalogue() {
    if (!catalogue.is_null()) return catalogue;
    catalogue = Json::array();
    if (const auto all = Ask({{"ask", "catalogue"}})) return catalogue = all->value("modules", Json::array());
    const auto ids = Ask({{"ask", "ids"}});
    for (const Json& id : ids ? ids->value("ids", Json::array()) : Json::array())
        if (const auto one = Ask({{"ask", "module"}, {"id", id}}))
            for (const Json& module : one->value("modules", Json::array())) catalogue.push_back(module);
    return catalogue;
}

Checker::Json Checker::Check(const std::string& path, const std::string& text) {
    auto checked = Ask({{"ask", "check"}, {"path", path}, {"text", text}});
    if (checked && checked->contains("instances")) return *std::move(checked);
    Json alone = ReadTextAlone(path, text);
    AddReason(alone, path, text);
    return alone;
}

// Each instance alone in a graph of its own: the one that the check does not survive is it. Of several of the
// same module with the same settings one is enough.
void Checker::AddReason(Json& checked, const std::string& path, const std::string& text) {
    Json reason = {{"text", whyNot}, {"line", 0}};
    host::Mistakes ignored;
    const host::GraphFile file = host::GraphFile::Parse(path, text, ignored);
    std::set<std::string> asked;
    for (const host::InstanceEntry& entry : file.GetInstances()) {
        const std::string alone = TextOf(entry);
        if (asked.size() >= MOST_SUSPECTS || !asked.insert(alone.substr(alone.find('\n'))).second) continue;
        if (Ask({{"ask", "check"}, {"path", path}, {"text", alone}})) continue;
        reason = {{"text", entry.name + ": " + whyNot}, {"line", entry.place.line}, {"instance", entry.name}};
        break;
    }
    checked["mistakes"].push_back(std::move(reason));
}

}  // namespace studio
