#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "sigweave/platform/PipedProgram.h"
#include "sigweave/platform/Thread.h"

namespace studio {

// A process of the studio, as that of one run (see RunChild), as the server sees it. Of each picture the
// newest is kept until it is taken, however long that takes.
class RunProcess {
 public:
    // Called on a thread of its own.
    struct Handlers {
        std::function<void(std::string text)> onText;
        std::function<void()> onPictures;     // all of one time are there; once until they are taken
        std::function<void(int code)> onEnd;  // the last call
    };
    using Pictures = std::map<int, std::shared_ptr<const std::string>>;  // by key

    // Null, with the number in `errno`, when the process cannot be started. `part` is the argument that says
    // which it is, `order` its first line.
    static std::unique_ptr<RunProcess> Start(const std::string& program, const std::string& part,
                                             const std::string& order, Handlers handlers);

    // --- One thread

    // A line; false when the run does not listen any more.
    bool Send(const std::string& line);
    void Kill() { program->Kill(); }
    // Lets the run end its signals and finish its files; kills it when that takes longer. The last call.
    void End(std::chrono::milliseconds patience);
    Pictures TakePictures();

 private:
    RunProcess() = default;
    void Read();
    void Take(char kind, std::string content);

    Handlers handlers;
    std::unique_ptr<tc::PipedProgram> program;
    std::mutex mutex;  // of the next
    Pictures pictures;
    bool isTold = false;  // of them
    bool hasEnded = false;
    std::condition_variable ends;
    std::unique_ptr<tc::Thread> reader;  // the last member: it ends first
 public:
    ~RunProcess();
};

}  // namespace studio
