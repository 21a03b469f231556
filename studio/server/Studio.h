#pragma once

#include <atomic>
#include <chrono>
#include <list>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "host/SettingEdit.h"
#include "sigweave/platform/Thread.h"
#include "studio/server/Checker.h"
#include "studio/server/Command.h"
#include "studio/server/Folders.h"
#include "studio/server/GraphDocument.h"
#include "studio/server/RecordingScan.h"
#include "studio/server/RunProcess.h"
#include "studio/server/WebServer.h"
#include "studio/server/Worker.h"

namespace studio {

struct StudioOptions {
    std::string graph;
    std::vector<std::string> folders;  // with module libraries
    std::vector<std::string> choice;   // folders that files may be chosen from
    std::string program;               // this one, for runs
    bool mayChange = true;             // false: viewers only look
};

// The document, its run and all viewers of it. Everything on the worker's thread; viewers are reached through
// the server's thread, the run is a process of its own.
class Studio {
 public:
    Studio(const StudioOptions& studioOptions, Worker& studioWorker);
    ~Studio();
    // False, with the reason, when the graph cannot be read. It is checked by the first call of Begin.
    bool Open(std::string& error);
    void Begin();
    // Which must outlive it. Before any of the next.
    void SetServer(WebServer& webServer) { server = &webServer; }

    void Opened(WebServer::Viewer viewer);
    void Received(WebServer::Viewer viewer, const std::string& message);
    void Closed(WebServer::Viewer viewer, bool tooSlow);
    // From time to time.
    void Tick();
    // Asks a run that goes on to end, and waits for it for some seconds. The last call.
    void EndRun();

 private:
    using Json = nlohmann::ordered_json;
    using Clock = std::chrono::steady_clock;

    struct Looking {
        bool greeted = false;
        std::string name;                   // that its page chose; stays over connections
        std::map<int, std::set<int>> keys;  // its traces by our keys
        RunProcess::Pictures waiting;       // of each key the newest
        std::int64_t dropped = 0;           // pictures that it never saw
        std::int64_t frame = 0;             // the last one that was sent
        std::int64_t confirmed = 0;         // the last one that it has
        Clock::time_point since;            // when the first one was sent that it has not confirmed
    };

    bool DoAtOnce(WebServer::Viewer viewer, Looking& looking, const Command& command);
    void Do(WebServer::Viewer viewer, const Command& command);
    Json Change(const Command& command);
    Json ChangeText(WebServer::Viewer viewer, const Command& command);
    Json Save(const Command& command);
    Json AskAbout(const Command& command);
    void ChangeRun(const std::string& instance, const Json& changed);
    void LookAtRecording(WebServer::Viewer viewer, const Command& command);
    Json Run(const Command& command);
    Json StopRun();
    void Watch(WebServer::Viewer viewer, Looking& looking, const std::vector<Wish>& wishes);
    void Greet(WebServer::Viewer viewer, Looking& looking, const Command& command);
    void SetLanguage(const std::string& code);
    bool PrepareEdit(Edit& edit, bool force, const std::string& text, std::string& error, Json& answer);

    std::string WhyNotWired(const std::string& from, const std::string& to, const std::string& text);
    void Check();
    void TellState();
    void TellRun();
    Json RunState() const;
    void SendFrame(WebServer::Viewer viewer, Looking& looking);
    void TakePictures();
    void RunSaid(const std::string& text);
    void RunEnded(int code);
    Json WatchOrder() const;
    void Send(WebServer::Viewer viewer, const Json& json) const;
    void SendAll(const Json& json) const;

    StudioOptions options;
    Worker& worker;
    WebServer* server = nullptr;
    Checker checker;
    Folders choice;
    GraphDocument document;
    Json checked;  // the state of the document
    std::map<WebServer::Viewer, Looking> viewers;
    std::set<std::string> tooSlow;  // names of those that were closed for it

    struct Asked {
        int key;
        Wish wish;
    };
    std::vector<Asked> asked;  // by all viewers, each wish once
    int lastKey = 0;

    std::unique_ptr<RunProcess> run;
    std::int64_t runNumber = 0;
    bool isStopping = false;
    bool isRealtime = false;
    Json lastFigures;
    Json lastReport;
    bool toldOutside = false;
    Worker files;                      // of the thread that reads recordings, which takes long
    std::list<RecordingScan> scans;    // on that thread; the one asked for last is the first
    std::atomic<int> filesWaiting{0};  // requests
    std::unique_ptr<tc::Thread> filesThread;
    int ticks = 0;
    Clock::time_point lastTick;
};

}  // namespace studio
