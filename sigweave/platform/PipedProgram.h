#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// A part of the seam that the library does not need: it is built into the host.
namespace tc {

// Another program that works while this one goes on. What is written here it reads at its standard input;
// what it writes to REPORT_PATH is read here. Its standard output and error are this program's standard
// error, so that nothing that its parts print gets among its reports. It gets nothing else that is open here.
class PipedProgram {
 public:
    static constexpr const char* REPORT_PATH = "/dev/fd/3";

    // Starts the program without a shell, in a process group of its own. Null, with the number in `errno`,
    // when that fails. One thread at a time: others that start programs meanwhile would keep its pipes open.
    static std::unique_ptr<PipedProgram> Start(const std::string& path,
                                               const std::vector<std::string>& arguments);
    // Ends it at once, if it has not ended.
    ~PipedProgram();
    PipedProgram(const PipedProgram&) = delete;
    PipedProgram& operator=(const PipedProgram&) = delete;

    // Waits while the pipe is full. False when the program does not read any more. One thread.
    bool Write(std::string_view text);
    // Its standard input ends. On the thread of `Write`.
    void CloseInput();
    // Waits for bytes; 0 when there will be no more. One thread, which may be another one.
    std::size_t Read(char* bytes, std::size_t most);
    // Any thread; the program may have ended.
    void Kill();
    // Waits for its end: its exit code, or 128 and the signal that ended it. On the thread of `Read`, after
    // it answered 0.
    int Wait();

 private:
    PipedProgram() = default;

    struct Impl;
    std::unique_ptr<Impl> impl;
};

}  // namespace tc
