#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <clocale>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <thread>

#include "host/Commands.h"
#include "host/Console.h"
#include "host/Language.h"
#include "host/ModuleCatalogue.h"
#include "sigweave/platform/Event.h"
#include "sigweave/platform/Process.h"
#include "sigweave/platform/StandardStreams.h"
#include "sigweave/platform/Thread.h"
#include "sigweave/services/Bilingual.h"
#include "studio/server/RunChild.h"
#include "studio/server/Studio.h"

namespace {

using tc::Bilingual;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr auto TICK = 250ms;

struct Arguments {
    std::string graph;
    std::vector<std::string> modulePath;
    std::string page;
    int port = 0;
    bool watch = false;
    bool isRun = false;  // a run of the studio, for itself alone
};

tc::Event interrupted;

// Beside the program as it is built, else as it is installed.
std::string PageFolder() {
    const fs::path program = TCGetProgramFolder();
    std::error_code ignored;
    for (const char* place : {"../share/sigweave/studio", "../studio-page"})
        if (fs::exists(program / place / "index.html", ignored))
            return (program / place).lexically_normal().string();
    return (program / "../share/sigweave/studio").lexically_normal().string();
}

// A new graph when none is named, with a name that no file has.
std::string NewGraph() {
    std::error_code ignored;
    std::string name = "untitled.graph";
    for (int number = 2; fs::symlink_status(name, ignored).type() != fs::file_type::not_found; ++number)
        name = "untitled " + std::to_string(number) + ".graph";
    return name;
}

int Serve(const Arguments& arguments) {
    studio::PageFiles files;
    std::string error;
    if (!files.Read(arguments.page.empty() ? PageFolder() : arguments.page, error)) {
        host::console::Error(error);
        return host::EXIT_WRONG_INPUT;
    }
    studio::StudioOptions options;
    options.graph = arguments.graph.empty() ? NewGraph() : arguments.graph;
    options.folders = host::ModuleCatalogue::FoldersOf(arguments.modulePath);
    options.program = (fs::path(TCGetProgramFolder()) / "sigweave-studio").string();
    options.mayChange = !arguments.watch;
    studio::Worker worker;
    studio::Studio studio(options, worker);
    if (!studio.Open(error)) {
        host::console::Error(error);
        return host::EXIT_WRONG_INPUT;
    }
    studio::WebServer::Options serverOptions;
    serverOptions.port = arguments.port;
    studio::WebServer::Handlers handlers;
    handlers.opened = [&](auto viewer) { worker.Post([&studio, viewer] { studio.Opened(viewer); }); };
    handlers.received = [&](auto viewer, std::string text) {
        worker.Post([&studio, viewer, text = std::move(text)] { studio.Received(viewer, text); });
    };
    handlers.closed = [&](auto viewer, bool slow) {
        worker.Post([&studio, viewer, slow] { studio.Closed(viewer, slow); });
    };
    std::unique_ptr<studio::WebServer> server;
    try {
        server = std::make_unique<studio::WebServer>(serverOptions, files, std::move(handlers));
    } catch (const std::exception& failure) {
        host::console::Error(
            Bilingual("the port %1 cannot be opened: %2", "der Port %1 lässt sich nicht öffnen: %2")
                .With({std::to_string(arguments.port), failure.what()}));
        return host::EXIT_INCOMPLETE;
    }
    studio.SetServer(*server);
    const std::string token = studio::Gate::MakeToken();
    server->SetGate(studio::Gate(token, server->Port()));
    const std::string address = "http://127.0.0.1:" + std::to_string(server->Port()) + "/?token=" + token;
    if (!host::console::Print(
            Bilingual("%1\nOpen this address in a browser on this machine; Ctrl-C ends the studio.\n",
                      "%1\nÖffnen Sie diese Adresse in einem Browser auf diesem Rechner; Strg-C "
                      "beendet das Studio.\n")
                .With({address})))
        return host::EXIT_INCOMPLETE;
    host::console::BeSilent();
    TCOnInterrupt([] { interrupted.Set(); }, WaitingCalls::GoOn);
    const tc::Thread serving("serve", [&server] { server->Run(); });
    worker.Run(TICK, [&] {
        studio.Tick();
        if (tc::WaitForHandle(interrupted.GetHandle(), 0.0) == tc::WAIT_SIGNALLED) worker.Stop();
    });
    server->Stop();
    studio.EndRun();
    return host::EXIT_COMPLETE;
}

}  // namespace

int main(int argc, char** argv) {
    tc::KeepStandardStreams();
    std::setlocale(LC_CTYPE, "");
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    std::vector<std::string> words(argv + 1, argv + argc);
    if (!host::ChooseLanguage(words)) return host::EXIT_WRONG_INPUT;
    Arguments arguments;
    CLI::App app("Builds, runs and shows a graph in the browser.", "sigweave studio");
    app.add_option("GRAPH", arguments.graph, "The graph file; without one a new graph")->type_name("");
    app.add_option("--module-path", arguments.modulePath,
                   "Folders with module libraries, separated by colons")
        ->type_name("FOLDERS")
        ->allow_extra_args(false);
    app.add_option("--port", arguments.port, "The port; default: one that is free")
        ->check(CLI::Validator(CLI::Range(0, 65535)).description(""))
        ->type_name("N");
    app.add_option("--page", arguments.page, "The folder of the built page")->type_name("FOLDER");
    app.add_flag("--watch", arguments.watch, "For looking alone: the page can change and start nothing")
        ->disable_flag_override();
    app.add_flag("--run", arguments.isRun)->group("");
    std::string language;
    app.add_option("--language", language, "The language of messages")->type_name("en|de");
    try {
        std::reverse(words.begin(), words.end());
        app.parse(words);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? host::EXIT_COMPLETE : host::EXIT_WRONG_INPUT;
    }
    return arguments.isRun ? studio::RunChild() : Serve(arguments);
}
