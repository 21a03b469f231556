#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/Interruption.h"
#include "host/RunGauge.h"
#include "host/Runner.h"
#include "sigweave/platform/Event.h"
#include "sigweave/platform/Thread.h"

class TCBaseModule;

namespace host {

// Says on standard error what the program waits for when a file gives or takes nothing for 1.5 s. Only pipes,
// devices and sockets can keep it waiting: where there is none of them, these objects do nothing.

// While it lives, the thread that made it opens and reads the files for the instance (empty: the program).
class FileWait {
 public:
    FileWait(const std::string& instance, const std::vector<std::string>& files);
    ~FileWait() { done.Set(); }

 private:
    tc::Event done;
    std::unique_ptr<tc::Thread> thread;  // the last member: it ends first
};

// While it lives, a run with that gauge goes. When the run was asked to end and a module does not come back
// from its file, `giveUp` is called, on another thread: a library that reads on after a signal would wait
// there for good.
class RunWait {
 public:
    // The gauge and the interruption must outlive it.
    RunWait(RunGauge& runGauge, const std::vector<RunModule>& modules, const Interruption& wish,
            std::function<void()> whenStuck);
    ~RunWait() { done.Set(); }
    // Whether there is anything to wait for.
    bool MayBe() const { return thread != nullptr; }

 private:
    void Watch();

    RunGauge& gauge;
    const Interruption& interruption;
    std::function<void()> giveUp;
    std::vector<std::string> instances;
    std::vector<std::string> files;  // of each module the one that may keep it waiting; empty: none
    tc::Event done;
    std::unique_ptr<tc::Thread> thread;
};

// The first of the files that may keep the one who opens or reads it waiting; empty: none.
std::string FirstThatMayWait(const std::vector<std::string>& files);
// Says that the instance waits for that.
void TellWait(const std::string& instance, const std::string& what);

// What the parameters of a module name to be read or written.
std::vector<std::string> FilesOf(TCBaseModule& module);

}  // namespace host
