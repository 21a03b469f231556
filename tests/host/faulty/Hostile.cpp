// A module that does what the environment variable DEED says, in each Execute. It does nothing where the
// system's disk is not read-only: tests/host/Enclosure.h is the only place for it.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/TCBaseModuleEx.h"

namespace {

std::string Canary() {
    return std::getenv("CANARY");
}

// As careful code does with what it could not do.
void Must(int answer) {
    if (answer != 0) throw std::system_error(errno, std::generic_category());
}

void ReplaceFolder() {
    char path[4096];
    if (getcwd(path, sizeof path) == nullptr) return;
    const std::string here = path;
    Must(rename(path, (here + ".old").c_str()));
    Must(symlink(Canary().c_str(), path));
}

void MakeClosedFolder() {
    mkdir("closed", 0700);
    mkdir("closed/below", 0700);
    chmod("closed/below", 0);
    chmod("closed", 0);
}

// Once: it takes its time.
void MakeDeepFolder() {
    static bool isMade = false;
    if (std::exchange(isMade, true)) return;
    std::string path = "deep";
    for (int level = 0; level < 150; ++level, path += "/d") mkdir(path.c_str(), 0700);
    if (symlink(Canary().c_str(), (path + "link").c_str()) != 0) return;
    mkfifo("fifo", 0600);
}

void StartALongLife() {
    if (fork() != 0) return;
    setsid();
    if (fork() == 0) pause();
    _exit(0);
}

void Redirect() {
    const int file = open("own.txt", O_WRONLY | O_CREAT, 0600);
    dup2(file, STDOUT_FILENO);
    close(file);
}

void CloseStreams() {
    close(STDOUT_FILENO);
    close(STDERR_FILENO);
}

void EmptyByOpening() {
    const int file = open((Canary() + "/a.txt").c_str(), O_WRONLY | O_TRUNC);
    Must(file >= 0 ? close(file) : -1);
}

struct Deed {
    std::string_view name;
    void (*act)();
};

constexpr Deed DEEDS[] = {
    {"enter-canary", [] { Must(chdir(Canary().c_str())); }},
    {"enter-root", [] { Must(chdir("/")); }},
    {"replace-folder", ReplaceFolder},
    {"make-closed-folder", MakeClosedFolder},
    {"make-deep-folder", MakeDeepFolder},
    {"remove-outside", [] { Must(unlink((Canary() + "/a.txt").c_str())); }},
    {"rename-outside", [] { Must(rename((Canary() + "/below").c_str(), (Canary() + "/c").c_str())); }},
    {"truncate-outside", [] { Must(truncate((Canary() + "/a.txt").c_str(), 0)); }},
    {"open-outside", EmptyByOpening},
    {"change-mode-outside", [] { Must(chmod((Canary() + "/a.txt").c_str(), 0)); }},
    {"kill-parent", [] { kill(getppid(), SIGKILL); }},
    {"stop-parent", [] { kill(getppid(), SIGTERM); }},
    {"kill-all", [] { kill(-1, SIGKILL); }},
    {"close-streams", CloseStreams},
    {"redirect-output", Redirect},
    {"start-a-long-life", StartALongLife},
};

class Hostile final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Hostile";

    explicit Hostile(int instance) : TCBaseModuleEx(instance, std::span<const TCModuleParameter>()) {
        portHelper->SetPort(INPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
        portHelper->SetPort(OUTPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
        portHelper->UseTypeInfoFromInput(0, 0);
    }
    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "Does harm where it can do none"; }
    const char* GetBaseName() const override { return "Hostile"; }

    int Execute() override {
        const int code = portHelper->TakeBlock(0);
        if (code <= 0) return code;
        DoTheDeed();
        int count = 0;
        const double* const values = portHelper->AccessDblData(0, count);
        return portHelper->WriteDblData(0, static_cast<std::size_t>(count), values);
    }

 private:
    static void DoTheDeed() {
        struct statvfs root;
        const bool isHarmless = statvfs("/", &root) == 0 && (root.f_flag & ST_RDONLY) != 0;
        const char* const wanted = std::getenv("DEED");
        for (const Deed& deed : DEEDS)
            if (isHarmless && wanted != nullptr && deed.name == wanted) deed.act();
    }
};

}  // namespace

TC_MODULE_LIBRARY(Hostile);
