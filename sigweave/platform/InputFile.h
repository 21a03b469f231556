#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace tc {

// An ordinary file that is read at any place, also while another program still writes it. Any thread.
class InputFile {
 public:
    // Null when it cannot be opened or is no ordinary file; `errno` then says why (ENODEV for the latter).
    static std::unique_ptr<InputFile> Open(const char* path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    // In bytes, as it is now; -1 when the system does not say.
    std::int64_t Size() const;
    // Reads up to `count` bytes; answers how many there were: fewer at the end of the file, -1 on failure.
    std::int64_t ReadAt(std::int64_t offset, char* buffer, std::size_t count) const;
    // The first bytes as memory that cannot be written, of which the system reads what is looked at; null
    // when it cannot, or when the file is shorter. It stays when this object goes. A file that somebody
    // shortens while its bytes are looked at ends the process, so look only into files that never become
    // shorter.
    std::shared_ptr<const char> Map(std::int64_t bytes) const;
    // Whether somebody has it open as an OutputFile or an exclusive ReplacedFile.
    bool IsBeingWritten() const;

 private:
    explicit InputFile(int opened) : descriptor(opened) {}

    int descriptor;
};

}  // namespace tc
