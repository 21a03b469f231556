#include "studio/server/Studio.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <system_error>

#include "host/SettingEdit.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/StringResources.h"

namespace studio {
namespace {

using tc::Bilingual;
using namespace std::chrono_literals;

constexpr auto FROZEN_AFTER = 1s;
constexpr int FRAMES_UNDER_WAY = 2;  // so that the way to the viewer and back does not set the pace
constexpr auto TICK_AT_MOST = 500ms;
constexpr int SCAN_TIME = 300;  // ms
constexpr int MOST_FILE_REQUESTS = 32;
constexpr std::size_t MOST_SCANS = 4;
constexpr auto END_PATIENCE = 10s;
constexpr std::size_t MOST_NAMES = 1000;

constexpr Bilingual STALE("the graph has changed meanwhile", "der Graph hat sich inzwischen geändert");
constexpr Bilingual READ_ONLY("this studio was started with --watch, for looking alone",
                              "dieses Studio wurde mit --watch gestartet, nur zum Zusehen");
constexpr Bilingual RUNS_ALREADY("the graph is running already", "der Graph läuft schon");
constexpr Bilingual NO_RUN("nothing is running", "es läuft nichts");
constexpr Bilingual NO_START("the run could not be started: %1", "der Lauf ließ sich nicht starten: %1");
constexpr Bilingual RUN_DIED(
    "the process of the run ended without a report (code %1): a module has probably crashed",
    "der Prozess des Laufs endete ohne Bericht (Code %1): vermutlich ist ein Modul abgestürzt");
constexpr Bilingual NO_RECORDING("'%1' has no setting 'file' with a recording",
                                 "'%1' hat keine Einstellung 'file' mit einer Aufzeichnung");
constexpr Bilingual TOO_BUSY("recordings are asked for too often; wait a moment",
                             "Aufzeichnungen werden zu oft angefragt; warten Sie einen Moment");
constexpr Bilingual TOO_SLOW(
    "the connection was closed because this page took nothing for a second",
    "die Verbindung wurde geschlossen, weil diese Seite eine Sekunde lang nichts annahm");

using Json = nlohmann::ordered_json;

Json Refuse(const std::string& reason) {
    return {{"ok", false}, {"text", reason}};
}

bool ChangesSomething(Command::Kind kind) {
    constexpr Command::Kind LOOKS[] = {Command::Hello, Command::Form,    Command::Try,      Command::Watch,
                                       Command::Got,   Command::Presets, Command::Recording};
    return std::ranges::find(LOOKS, kind) == std::end(LOOKS);
}

bool IsSame(const Wish& a, const Wish& b) {
    return a.port == b.port && a.kind == b.kind && a.seconds == b.seconds && a.samples == b.samples &&
           a.triggers == b.triggers && a.level == b.level;
}

// "SoundFile" becomes "soundfile".
std::string NameFor(const std::string& module) {
    std::string name = module;
    for (char& c : name)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    return name;
}

// Of what the workshop is asked (see Workshop.h).
const char* AskOf(Command::Kind kind) {
    switch (kind) {
        case Command::Set:
            return "set";
        case Command::Presets:
            return "presets";
        case Command::Keep:
            return "keep";
        case Command::Load:
            return "load";
        default:
            return "form";
    }
}

}  // namespace

Studio::Studio(const StudioOptions& studioOptions, Worker& studioWorker)
    : options(studioOptions),
      worker(studioWorker),
      checker(studioOptions.program, studioOptions.folders),
      choice(studioOptions.choice) {}

Studio::~Studio() {
    files.Stop();
}

bool Studio::Open(std::string& error) {
    if (!document.Open(options.graph, error)) return false;
    checker.Prepare();
    return true;
}

void Studio::Begin() {
    lastTick = Clock::now();
    filesThread = std::make_unique<tc::Thread>("recordings", [this] { files.Run(1h, [] {}); });
    Check();
}

// --- Viewers

void Studio::Opened(WebServer::Viewer viewer) {
    viewers[viewer];
}

void Studio::Closed(WebServer::Viewer viewer, bool wasTooSlow) {
    const auto found = viewers.find(viewer);
    if (found == viewers.end()) return;
    if (wasTooSlow && !found->second.name.empty() && tooSlow.size() < MOST_NAMES)
        tooSlow.insert(found->second.name);
    Watch(viewer, found->second, {});
    viewers.erase(viewer);
}

void Studio::Received(WebServer::Viewer viewer, const std::string& message) {
    const auto found = viewers.find(viewer);
    if (found == viewers.end()) return;
    Command command;
    std::string error;
    if (!ReadCommand(message, command, error)) return Send(viewer, {{"refused", error}});
    if (ChangesSomething(command.kind) && !options.mayChange) {
        Json answer = Refuse(READ_ONLY.Text());
        answer["answer"] = command.id;
        return Send(viewer, answer);
    }
    if (!DoAtOnce(viewer, found->second, command)) Do(viewer, command);
}

// What is answered in a way of its own.
bool Studio::DoAtOnce(WebServer::Viewer viewer, Looking& looking, const Command& command) {
    switch (command.kind) {
        case Command::Hello:
            Greet(viewer, looking, command);
            return true;
        case Command::Got:
            if (command.number > looking.confirmed && command.number <= looking.frame) {
                looking.confirmed = command.number;
                looking.since = Clock::now();
            }
            SendFrame(viewer, looking);
            return true;
        case Command::Recording:
            LookAtRecording(viewer, command);
            return true;
        case Command::Watch:
            Watch(viewer, looking, command.wishes);
            return true;
        default:
            return false;
    }
}

void Studio::Do(WebServer::Viewer viewer, const Command& command) {
    Json answer = {{"ok", true}};
    const std::int64_t before = document.Version();
    switch (command.kind) {
        case Command::Text:
            answer = ChangeText(viewer, command);
            break;
        case Command::Change:
            answer = Change(command);
            break;
        case Command::Undo:
            document.Undo();
            break;
        case Command::Redo:
            document.Redo();
            break;
        case Command::Run:
            answer = Run(command);
            break;
        case Command::Stop:
            answer = StopRun();
            break;
        case Command::Save:
            answer = Save(command);
            break;
        case Command::Reload: {
            std::string error;
            if (!document.Reload(error)) answer = Refuse(error);
            toldOutside = false;
            break;
        }
        case Command::Form:
        case Command::Set:
        case Command::Presets:
        case Command::Keep:
        case Command::Load:
            answer = AskAbout(command);
            break;
        case Command::Files:
            answer = choice.List(command.name);
            break;
        case Command::Try: {
            const std::string reason = WhyNotWired(command.name, command.other, document.Text());
            if (!reason.empty()) answer = Refuse(reason);
            break;
        }
        case Command::Language:
            SetLanguage(command.name);
            break;
        default:
            return;
    }
    if (document.Version() != before) {
        Check();
        TellState();
    }
    answer["answer"] = command.id;
    answer["version"] = document.Version();
    Send(viewer, answer);
}

void Studio::Greet(WebServer::Viewer viewer, Looking& looking, const Command& command) {
    looking.greeted = true;
    looking.name = command.name;
    Json hello = {{"hello", 1},
                  {"modules", checker.Catalogue()},
                  {"language", TCGetResourceLanguage() == 1 ? "de" : "en"},
                  {"readOnly", !options.mayChange}};
    if (tooSlow.erase(command.name) > 0) hello["dropped"] = TOO_SLOW.Text();
    Send(viewer, hello);
    Send(viewer, checked);
    Send(viewer, RunState());
    if (!lastFigures.is_null()) Send(viewer, lastFigures);
    if (!lastReport.is_null()) Send(viewer, lastReport);
}

// One for all viewers, as the document is.
void Studio::SetLanguage(const std::string& code) {
    TCSetLoadStrResLanguage(code == "de" ? 1 : 0);
    checker.SetLanguage(code);
    Check();
    SendAll({{"language", code == "de" ? "de" : "en"}, {"modules", checker.Catalogue()}});
    TellState();
}

void Studio::Send(WebServer::Viewer viewer, const Json& json) const {
    server->Send(viewer, std::make_shared<const std::string>(
                             json.dump(-1, ' ', false, Json::error_handler_t::replace)));
}

void Studio::SendAll(const Json& json) const {
    const auto text =
        std::make_shared<const std::string>(json.dump(-1, ' ', false, Json::error_handler_t::replace));
    for (const auto& [viewer, looking] : viewers)
        if (looking.greeted) server->Send(viewer, text);
}

void Studio::Tick() {
    // What viewers confirmed while a check took long was not read yet.
    const auto late = Clock::now() - lastTick - TICK_AT_MOST;
    lastTick = Clock::now();
    for (auto& [viewer, looking] : viewers) {
        if (late > 0s) looking.since += late;
        if (looking.confirmed < looking.frame && Clock::now() - looking.since > FROZEN_AFTER) {
            looking.confirmed = looking.frame;
            looking.waiting.clear();
            server->Drop(viewer);
        }
    }
    if (++ticks % 4 != 0 || toldOutside || !document.HasChangedOutside()) return;
    toldOutside = true;
    SendAll({{"outside", true}});
}

// --- The document

void Studio::Check() {
    checked = checker.Check(document.Path(), document.Text());
    checked["state"] = document.Version();
    checked["path"] = document.Path();
    std::error_code failed;
    const std::filesystem::path path = std::filesystem::absolute(document.Path(), failed);
    checked["folder"] = std::filesystem::weakly_canonical(path, failed).parent_path().string();
    checked["text"] = document.Text();
    checked["changed"] = document.IsChanged();
    checked["canUndo"] = document.CanUndo();
    checked["canRedo"] = document.CanRedo();
}

void Studio::TellState() {
    SendAll(checked);
}

Json Studio::ChangeText(WebServer::Viewer viewer, const Command& command) {
    if (command.version != document.Version()) return Refuse(STALE.Text());
    document.Change(command.text, "typing " + std::to_string(viewer));
    return {{"ok", true}};
}

bool Studio::PrepareEdit(Edit& edit, bool force, const std::string& text, std::string& error, Json& answer) {
    host::Mistakes ignored;
    if (edit.kind == Edit::Place || edit.kind == Edit::Copy) {
        std::string& name = edit.kind == Edit::Place ? edit.name : edit.other;
        if (name.empty())
            name = FreeName(host::GraphFile::Parse("", text, ignored),
                            edit.kind == Edit::Place ? NameFor(edit.other) : edit.name);
        for (Position& position : edit.positions) position.instance = name;
        answer["name"] = name;
    }
    if (edit.kind == Edit::Connect && !force) error = WhyNotWired(edit.name, edit.other, text);
    return error.empty();
}

// All of it or nothing.
Json Studio::Change(const Command& command) {
    std::string text = document.Text();
    std::string error;
    Json answer = {{"ok", true}};
    for (Edit edit : command.edits)
        if (!PrepareEdit(edit, command.force, text, error, answer) || !EditGraph(edit, text, error))
            return Refuse(error);
    document.Change(text);
    return answer;
}

Json Studio::Save(const Command& command) {
    std::string error;
    const GraphDocument::Saving saving =
        command.name.empty() ? document.Save(command.force, error) : document.SaveAs(command.name, error);
    if (saving != GraphDocument::Saving::Done) {
        Json answer = Refuse(error);
        answer["outside"] = saving == GraphDocument::Saving::ChangedOutside;
        return answer;
    }
    toldOutside = false;
    Check();
    TellState();
    return {{"ok", true}};
}

std::string Studio::WhyNotWired(const std::string& from, const std::string& to, const std::string& text) {
    const auto said =
        checker.Ask({{"ask", "wire"}, {"path", document.Path()}, {"text", text}, {"from", from}, {"to", to}});
    return said ? said->value("reason", "") : checker.WhyNot();
}

// What it changes goes into the graph's text at once.
Json Studio::AskAbout(const Command& command) {
    auto said = checker.Ask({{"ask", AskOf(command.kind)},
                             {"path", document.Path()},
                             {"text", document.Text()},
                             {"name", command.name},
                             {"line", command.text},
                             {"preset", command.other}});
    if (!said || !said->is_object()) return Refuse(checker.WhyNot());
    if (!said->contains("changed")) return *std::move(said);
    document.Change(said->value("text", document.Text()));
    ChangeRun(command.name, (*said)["changed"]);
    said->erase("changed");
    said->erase("text");
    return *std::move(said);
}

// What may change in a run changes in the one that goes on too.
void Studio::ChangeRun(const std::string& instance, const Json& changed) {
    if (run == nullptr) return;
    for (const Json& each : changed) {
        if (each.size() != 3 || each[2] != true) continue;
        const Json line = {{"set", {{"instance", instance}, {"parameter", each[0]}, {"value", each[1]}}}};
        run->Send(line.dump(-1, ' ', false, Json::error_handler_t::replace));
    }
}

// --- Recordings

// The answer comes from another thread, when it has read some more of the file.
void Studio::LookAtRecording(WebServer::Viewer viewer, const Command& command) {
    host::Mistakes ignored;
    const host::GraphFile file = host::GraphFile::Parse(document.Path(), document.Text(), ignored);
    const host::InstanceEntry* const entry = host::FindInstance(file, command.name);
    std::string path;
    for (const host::Setting& setting : entry != nullptr ? entry->settings : std::vector<host::Setting>())
        if (setting.name == "file") path = setting.value;
    const auto answer = [this, viewer, id = command.id](Json json) {
        json["answer"] = id;
        Send(viewer, json);
    };
    if (path.empty()) return answer(Refuse(NO_RECORDING.With({command.name})));
    if (filesWaiting >= MOST_FILE_REQUESTS) return answer(Refuse(TOO_BUSY.Text()));
    ++filesWaiting;
    path = (std::filesystem::path(document.Path()).parent_path() / path).string();
    files.Post([this, path, command, answer] {
        auto found = std::ranges::find(scans, path, &RecordingScan::Path);
        if (found == scans.end()) found = scans.emplace(scans.begin(), path);
        scans.splice(scans.begin(), scans, found);
        if (scans.size() > MOST_SCANS) scans.pop_back();
        std::string error;
        const Json shown =
            found->ReadOn(SCAN_TIME, error)
                ? found->Show(static_cast<int>(std::min<std::int64_t>(command.number, INT_MAX)),
                              command.first, command.count)
                : Refuse(error);
        --filesWaiting;
        worker.Post([answer, shown] { answer(shown); });
    });
}

// --- The run

Json Studio::Run(const Command& command) {
    if (run != nullptr) return Refuse(RUNS_ALREADY.Text());
    const Json order = {{"path", document.Path()},      {"text", document.Text()},
                        {"folders", options.folders},   {"language", TCGetResourceLanguage()},
                        {"realtime", command.realtime}, {"watch", WatchOrder()}};
    const std::int64_t number = ++runNumber;
    const auto onWorker = [this, number](std::function<void()> work) {
        worker.Post([this, number, work = std::move(work)] {
            if (number == runNumber && run != nullptr) work();
        });
    };
    RunProcess::Handlers handlers;
    handlers.onText = [this, onWorker](std::string text) {
        onWorker([this, text = std::move(text)] { RunSaid(text); });
    };
    handlers.onPictures = [this, onWorker] { onWorker([this] { TakePictures(); }); };
    handlers.onEnd = [this, onWorker](int code) { onWorker([this, code] { RunEnded(code); }); };
    errno = 0;
    run = RunProcess::Start(options.program, "--run",
                            order.dump(-1, ' ', false, Json::error_handler_t::replace), std::move(handlers));
    if (run == nullptr) return Refuse(NO_START.With({std::generic_category().message(errno)}));
    lastFigures = nullptr;
    lastReport = nullptr;
    isStopping = false;
    isRealtime = command.realtime;
    TellRun();
    return {{"ok", true}};
}

void Studio::EndRun() {
    if (run != nullptr) run->End(END_PATIENCE);
}

// The second time at once.
Json Studio::StopRun() {
    if (run == nullptr) return Refuse(NO_RUN.Text());
    if (isStopping)
        run->Kill();
    else
        run->Send(R"({"stop":true})");
    isStopping = true;
    TellRun();
    return {{"ok", true}};
}

void Studio::TellRun() {
    SendAll(RunState());
}

Json Studio::RunState() const {
    return {{"run",
             {{"running", run != nullptr},
              {"stopping", isStopping},
              {"number", runNumber},
              {"realtime", isRealtime}}}};
}

void Studio::RunSaid(const std::string& text) {
    Json said = Json::parse(text, nullptr, false);
    if (!said.is_object()) return;
    if (said.contains("figures")) lastFigures = said;
    if (said.contains("report")) lastReport = said;
    SendAll(said);
}

void Studio::RunEnded(int code) {
    TakePictures();
    run.reset();
    if (lastReport.is_null()) {
        lastReport = {{"report", nullptr}, {"verdict", RUN_DIED.With({std::to_string(code)})}};
        SendAll(lastReport);
    }
    isStopping = false;
    TellRun();
}

// --- Looking

Json Studio::WatchOrder() const {
    Json order = Json::array();
    for (const auto& [key, wish] : asked)
        order.push_back({{"key", key},
                         {"port", wish.port},
                         {"kind", WordOf(wish.kind)},
                         {"seconds", wish.seconds},
                         {"samples", wish.samples},
                         {"triggers", wish.triggers},
                         {"level", wish.level}});
    return order;
}

// Wishes that agree are one trace of the run.
void Studio::Watch(WebServer::Viewer viewer, Looking& looking, const std::vector<Wish>& wishes) {
    const Json before = WatchOrder();
    looking.keys.clear();
    Json told = Json::array();
    for (const Wish& wish : wishes) {
        auto found = std::ranges::find_if(asked, [&](const Asked& one) { return IsSame(one.wish, wish); });
        if (found == asked.end()) found = asked.insert(asked.end(), {++lastKey, wish});
        looking.keys[found->key].insert(wish.trace);
        told.push_back({{"trace", wish.trace}, {"key", found->key}});
    }
    std::erase_if(asked, [this](const Asked& one) {
        return std::ranges::none_of(viewers,
                                    [&](const auto& each) { return each.second.keys.contains(one.key); });
    });
    std::erase_if(looking.waiting, [&](const auto& each) { return !looking.keys.contains(each.first); });
    if (!wishes.empty()) Send(viewer, {{"watching", std::move(told)}});
    if (const Json now = WatchOrder(); run != nullptr && now != before)
        run->Send(Json({{"watch", now}}).dump());
}

void Studio::TakePictures() {
    const RunProcess::Pictures pictures = run->TakePictures();
    for (auto& [viewer, looking] : viewers) {
        for (const auto& [key, picture] : pictures) {
            if (!looking.keys.contains(key)) continue;
            auto& slot = looking.waiting[key];
            looking.dropped += slot != nullptr;
            slot = picture;
        }
        SendFrame(viewer, looking);
    }
}

// The next pictures go when the viewer has confirmed the ones before the last: whoever is slow sees fewer,
// but never old ones.
void Studio::SendFrame(WebServer::Viewer viewer, Looking& looking) {
    if (looking.frame - looking.confirmed >= FRAMES_UNDER_WAY || looking.waiting.empty()) return;
    std::vector<WebServer::Message> pictures;
    for (auto& [key, picture] : looking.waiting) pictures.push_back(std::move(picture));
    looking.waiting.clear();
    server->SendBinary(viewer, std::move(pictures));
    if (looking.confirmed == looking.frame) looking.since = Clock::now();
    Send(viewer, {{"frame", ++looking.frame}, {"dropped", looking.dropped}});
}

}  // namespace studio
