#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <clocale>
#include <csignal>
#include <filesystem>
#include <fstream>
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
#include "studio/server/Workshop.h"

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
    std::vector<std::string> folders;
    std::string listen = "127.0.0.1";
    std::vector<std::string> names;
    std::string passwordFile;
    std::string certificate;
    std::string key;
    bool insecure = false;
    bool isRun = false;    // a run of the studio, for itself alone
    bool isCheck = false;  // its workshop
};

// Made when it is first asked for, not before the standard streams are kept: it takes the number of one that
// is closed.
tc::Event& Interrupted() {
    static tc::Event interrupted;
    return interrupted;
}

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

// The first line of a file that only its owner can read. Empty, with the reason, when it is none.
std::string ReadPassword(const std::string& path, std::string& error) {
    constexpr std::size_t SHORTEST = 12;
    std::error_code failed;
    const fs::perms mode = fs::status(path, failed).permissions();
    std::ifstream file(path);
    std::string line;
    if (failed || !std::getline(file, line)) {
        error = Bilingual("the file '%1' with the password cannot be read",
                          "die Datei '%1' mit dem Passwort lässt sich nicht lesen")
                    .With({path});
        return {};
    }
    if (line.ends_with('\r')) line.pop_back();
    if ((mode & (fs::perms::group_read | fs::perms::others_read)) != fs::perms::none)
        error =
            Bilingual("others can read the file '%1' with the password; run: chmod 600 '%1'",
                      "andere können die Datei '%1' mit dem Passwort lesen; führen Sie aus: chmod 600 '%1'")
                .With({path});
    else if (line.size() < SHORTEST)
        error = Bilingual("the password in '%1' is too short; it needs at least %2 characters",
                          "das Passwort in '%1' ist zu kurz; es braucht mindestens %2 Zeichen")
                    .With({path, std::to_string(SHORTEST)});
    return error.empty() ? line : std::string();
}

bool IsOfThisMachine(const std::string& address) {
    return address.starts_with("127.") || address == "::1";
}

bool IsEverywhere(const std::string& address) {
    return address == "0.0.0.0" || address == "::";
}

// As it is in the header Host and in addresses of pages.
std::string HostText(const std::string& address) {
    return address.find(':') != address.npos ? "[" + address + "]" : address;
}

// Who may reach the server. False, with the reason, when others could who should not.
bool OpenTo(const Arguments& arguments, studio::Access& access, std::string& error) {
    access.isEncrypted = !arguments.certificate.empty();
    if (access.isEncrypted != !arguments.key.empty()) {
        error = Bilingual("a certificate needs its key: give both --certificate and --key",
                          "ein Zertifikat braucht seinen Schlüssel: geben Sie --certificate und --key an")
                    .Text();
        return false;
    }
    if (!arguments.passwordFile.empty()) access.password = ReadPassword(arguments.passwordFile, error);
    if (!error.empty()) return false;
    access.names = arguments.names;
    access.names.push_back(HostText(arguments.listen));
    access.anyAddress = IsEverywhere(arguments.listen);
    const bool isSafe = access.isEncrypted && !access.password.empty();
    if (isSafe || IsOfThisMachine(arguments.listen)) return true;
    if (!arguments.insecure) {
        error = Bilingual(
                    "others could read along and take over at %1: give --password-file, --certificate and "
                    "--key, or listen on 127.0.0.1 and use ssh -L (with --insecure the studio starts anyway)",
                    "an %1 könnten andere mitlesen und eingreifen: geben Sie --password-file, --certificate "
                    "und --key an, oder bleiben Sie bei 127.0.0.1 und nehmen Sie ssh -L (mit --insecure "
                    "startet das Studio trotzdem)")
                    .With({arguments.listen});
        return false;
    }
    host::console::Warning(Bilingual("whoever is on the way to %1 can read along and take over",
                                     "wer auf dem Weg zu %1 sitzt, kann mitlesen und eingreifen")
                               .With({arguments.listen}));
    return true;
}

std::string AddressOf(const Arguments& arguments, const studio::Access& access, int port,
                      const std::string& token) {
    const std::string name = !arguments.names.empty()         ? arguments.names.front()
                             : IsEverywhere(arguments.listen) ? "localhost"
                                                              : HostText(arguments.listen);
    const std::string page =
        (access.isEncrypted ? "https://" : "http://") + name + ":" + std::to_string(port) + "/";
    return access.password.empty() ? page + "?token=" + token : page;
}

// False, with the reason, when a folder is not there.
bool MakeOptions(const Arguments& arguments, studio::StudioOptions& options, std::string& error) {
    options.graph = arguments.graph.empty() ? NewGraph() : arguments.graph;
    options.folders = host::ModuleCatalogue::FoldersOf(arguments.modulePath);
    options.program = (fs::path(TCGetProgramFolder()) / "sigweave-studio").string();
    options.mayChange = !arguments.watch;
    options.choice = arguments.folders;
    if (options.choice.empty()) options.choice.push_back(fs::absolute(options.graph).parent_path().string());
    for (const std::string& folder : arguments.folders)
        if (std::error_code failed; !fs::is_directory(folder, failed))
            error = Bilingual("there is no folder '%1'", "es gibt keinen Ordner '%1'").With({folder});
    return error.empty();
}

// Null, with the reason, when the port cannot be opened.
std::unique_ptr<studio::WebServer> OpenServer(const Arguments& arguments, const studio::PageFiles& files,
                                              studio::Studio& studio, studio::Worker& worker,
                                              std::string& error) {
    studio::WebServer::Options options;
    options.address = arguments.listen;
    options.port = arguments.port;
    options.certificate = arguments.certificate;
    options.key = arguments.key;
    studio::WebServer::Handlers handlers;
    handlers.opened = [&](auto viewer) { worker.Post([&studio, viewer] { studio.Opened(viewer); }); };
    handlers.received = [&](auto viewer, std::string text) {
        worker.Post([&studio, viewer, text = std::move(text)] { studio.Received(viewer, text); });
    };
    handlers.closed = [&](auto viewer, bool slow) {
        worker.Post([&studio, viewer, slow] { studio.Closed(viewer, slow); });
    };
    try {
        return std::make_unique<studio::WebServer>(options, files, std::move(handlers));
    } catch (const std::exception& failure) {
        error =
            Bilingual(
                "the port %1 of %2 cannot be opened: %3; give another --port or none, and to --listen an "
                "address of this machine",
                "der Port %1 an %2 lässt sich nicht öffnen: %3; geben Sie einen anderen --port oder keinen "
                "an, und bei --listen eine Adresse dieses Rechners")
                .With({std::to_string(arguments.port), arguments.listen, failure.what()});
        return nullptr;
    }
}

bool PrintAddress(const Arguments& arguments, const std::string& address) {
    const Bilingual here("%1\nOpen this address in a browser on this machine; Ctrl-C ends the studio.\n",
                         "%1\nÖffnen Sie diese Adresse in einem Browser auf diesem Rechner; Strg-C "
                         "beendet das Studio.\n");
    const Bilingual anywhere("%1\nOpen this address in a browser; Ctrl-C ends the studio.\n",
                             "%1\nÖffnen Sie diese Adresse in einem Browser; Strg-C beendet das Studio.\n");
    return host::console::Print((IsOfThisMachine(arguments.listen) ? here : anywhere).With({address}));
}

int Serve(const Arguments& arguments) {
    studio::PageFiles files;
    studio::StudioOptions options;
    studio::Access access;
    std::string error;
    if (!files.Read(arguments.page.empty() ? PageFolder() : arguments.page, error) ||
        !MakeOptions(arguments, options, error) || !OpenTo(arguments, access, error)) {
        host::console::Error(error);
        return host::EXIT_WRONG_INPUT;
    }
    studio::Worker worker;
    studio::Studio studio(options, worker);
    if (!studio.Open(error)) {
        host::console::Error(error);
        return host::EXIT_WRONG_INPUT;
    }
    const std::unique_ptr<studio::WebServer> server = OpenServer(arguments, files, studio, worker, error);
    if (server == nullptr) {
        host::console::Error(error);
        return host::EXIT_INCOMPLETE;
    }
    studio.SetServer(*server);
    const std::string token = studio::Gate::MakeToken();
    server->SetGate(studio::Gate(token, server->Port(), access));
    if (!PrintAddress(arguments, AddressOf(arguments, access, server->Port(), token)))
        return host::EXIT_INCOMPLETE;
    host::console::BeSilent();
    Interrupted();  // before a signal asks for it
    TCOnInterrupt([] { Interrupted().Set(); }, WaitingCalls::GoOn);
    worker.Post([&studio] { studio.Begin(); });
    const tc::Thread serving("serve", [&server] { server->Run(); });
    worker.Run(TICK, [&] {
        studio.Tick();
        if (tc::WaitForHandle(Interrupted().GetHandle(), 0.0) == tc::WAIT_SIGNALLED) worker.Stop();
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
    app.add_option("--listen", arguments.listen, "The address to listen on; default: 127.0.0.1")
        ->type_name("ADDRESS");
    app.add_option("--name", arguments.names, "A name under which the studio is reached; may be repeated")
        ->type_name("NAME")
        ->allow_extra_args(false);
    app.add_option("--password-file", arguments.passwordFile, "A file whose first line is the password")
        ->type_name("FILE");
    app.add_option("--certificate", arguments.certificate, "The certificate for TLS, as PEM")
        ->type_name("FILE");
    app.add_option("--key", arguments.key, "Its private key, as PEM")->type_name("FILE");
    app.add_flag("--insecure", arguments.insecure, "Listen on other addresses without password or TLS")
        ->disable_flag_override();
    app.add_option("--folder", arguments.folders,
                   "A folder that files may be chosen from; may be repeated; default: that of the graph")
        ->type_name("FOLDER")
        ->allow_extra_args(false);
    app.add_flag("--run", arguments.isRun)->group("");
    app.add_flag("--check", arguments.isCheck)->group("");
    std::string language;
    app.add_option("--language", language, "The language of messages")->type_name("en|de");
    try {
        std::reverse(words.begin(), words.end());
        app.parse(words);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? host::EXIT_COMPLETE : host::EXIT_WRONG_INPUT;
    }
    if (arguments.isCheck) return studio::RunWorkshop();
    return arguments.isRun ? studio::RunChild() : Serve(arguments);
}
