#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string_view>

namespace tc {

// A file that is written from its start or its end on, and that others may read meanwhile. Any thread.
class OutputFile {
 public:
    // Makes the file, or empties an existing one unless it is appended to. Null when that is refused, also
    // because somebody else has it open as an output file.
    static std::unique_ptr<OutputFile> Open(const char* path, bool append);
    // Takes over a descriptor that is open for writing.
    static std::unique_ptr<OutputFile> Adopt(int opened);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Hands the parts to the system in one piece, so that no other write comes between them; false when it
    // did not take all of them.
    bool Write(std::initializer_list<std::string_view> parts);
    // Over what is there, and beyond the end.
    bool WriteAt(std::int64_t offset, std::string_view text);
    // Cuts off everything after that many bytes, at once.
    bool Shrink(std::int64_t size);
    // In bytes; -1 when the system does not say.
    std::int64_t Size() const;
    // Has the file for this object alone until `Release`: whoever opens it then waits. False when it is open
    // elsewhere, in this process or another one; true also where the system cannot say.
    bool Claim();
    void Release();
    // Begins it anew.
    bool Empty();
    // Returns when what was written is on the disk.
    bool Flush();
    // Once; false when the system reports that something was lost.
    bool Close();

 private:
    explicit OutputFile(int opened);

    int descriptor;
    int owner;  // the process that opened it, and gives it free for others when it closes it
};

}  // namespace tc
