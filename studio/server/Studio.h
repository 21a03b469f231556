#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "host/HostWindow.h"
#include "host/ModuleCatalogue.h"
#include "host/SettingEdit.h"
#include "studio/server/Command.h"
#include "studio/server/GraphDocument.h"
#include "studio/server/RunProcess.h"
#include "studio/server/WebServer.h"
#include "studio/server/Worker.h"

class TCBaseModuleEx;

namespace studio {

struct StudioOptions {
    std::string graph;
    std::vector<std::string> folders;  // with module libraries
    std::string program;               // this one, for runs
    bool mayChange = true;             // false: viewers only look
};

// The document, its run and all viewers of it. Everything on the worker's thread; viewers are reached through
// the server's thread, the run is a process of its own.
class Studio {
 public:
    Studio(const StudioOptions& studioOptions, Worker& studioWorker);
    ~Studio();
    // False, with the reason, when the graph cannot be read.
    bool Open(std::string& error);
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
        bool isUnderWay = false;            // it has not confirmed that one
        Clock::time_point since;            // when it was sent
    };

    void Do(WebServer::Viewer viewer, Looking& looking, const Command& command);
    Json Change(const Command& command);
    Json ChangeText(WebServer::Viewer viewer, const Command& command);
    Json Save(const Command& command);
    Json ShowForm(const std::string& instance);
    Json SetInForm(const Command& command);
    void ChangeRun(const std::string& instance, const host::SettingValues& changed,
                   const TCBaseModuleEx& module);
    Json Run(const Command& command);
    Json StopRun();
    void Watch(WebServer::Viewer viewer, Looking& looking, const std::vector<Wish>& wishes);
    void Greet(WebServer::Viewer viewer, Looking& looking, const Command& command);
    void SetLanguage(const std::string& code);
    bool PrepareEdit(Edit& edit, bool force, const std::string& text, std::string& error, Json& answer);

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
    host::HostWindow window;
    host::ModuleCatalogue catalogue;
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
    int ticks = 0;
};

}  // namespace studio
