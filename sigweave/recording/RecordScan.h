#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "sigweave/platform/InputFile.h"
#include "sigweave/recording/RecordBytes.h"

namespace tc::recording {

// What is at a place of the file.
struct Found {
    enum Kind { NOTHING, END, BLOCK, RECORD, TAIL_RECORDS };
    Kind kind = NOTHING;
    std::int64_t size = 0;
    MessageHead head;          // of BLOCK
    Opcode opcode = HEADER;    // of RECORD
    std::string_view content;  // without the seal; valid until the next look
    std::string_view record;
};

// The records of a file that may be damaged and may grow: what is whole at a place, and where the next whole
// thing is. Lengths in the file are not trusted. Owns the file, and remembers nothing of what it saw but the
// bytes last read. One thread.
class RecordScan {
 public:
    explicit RecordScan(std::unique_ptr<InputFile> input);

    // As it was when it was opened or last refreshed.
    std::int64_t Size() const { return size; }
    // What has been written since belongs to it; false when it has become shorter.
    bool Refresh();
    const InputFile& File() const { return *file; }
    // All of it in memory, from where it is read from then on; null when that is not possible.
    std::shared_ptr<const char> Map();

    Found Look(std::int64_t place) { return Look(place, window); }
    // The bytes, valid until the next call; null when the file does not have them.
    const char* View(std::int64_t place, std::int64_t count) { return window.View(place, count, size); }
    // Where the next whole block begins, at any byte; -1 when there is none.
    std::int64_t FindBlock(std::int64_t from);
    // The index record at that place. What `Look` and `View` answered stays valid.
    bool IndexAt(std::int64_t place, Index& index);
    // The last one of the file; it has its own offset at its end, in front of the tail of a file that was
    // closed. Otherwise its mark is looked for, backwards.
    bool ReadLastIndex(Index& index);

 private:
    // A piece of the file in memory, which moves.
    class Window {
     public:
        explicit Window(const InputFile& input) : file(&input) {}

        const char* View(std::int64_t offset, std::int64_t size, std::int64_t fileSize);
        void Forget() { count = 0; }
        // The first bytes of the file are there, and need not be read.
        void Use(const char* bytes, std::int64_t size);

     private:
        const InputFile* file;
        std::vector<char> buffer;
        std::int64_t begin = 0;
        std::int64_t count = 0;
        const char* mapped = nullptr;
        std::int64_t mappedSize = 0;
    };

    Found Look(std::int64_t place, Window& view) const;
    Found LookForRecord(std::int64_t place, Window& view) const;

    const std::unique_ptr<InputFile> file;
    Window window;  // where the blocks are read
    Window probe;   // where else is looked
    std::int64_t size;
    std::shared_ptr<const char> mapped;
};

}  // namespace tc::recording
