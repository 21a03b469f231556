#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// The bytes of a text file, plain or compressed with gzip, a piece of whole lines at a time, in memory that
// does not grow with the file. Line ends are line feeds, perhaps after a carriage return; those of a file
// with carriage returns alone are changed into line feeds. A byte order mark is left out, and the last line
// has an end.
class TableInput {
 public:
    // The longest row.
    static constexpr std::size_t MOST_IN_ROW = 16 << 20;

    // False with the file's name, the reason and the remedy in `error`.
    bool Open(const std::string& path, std::string& error);

    // What has not been taken, all of it whole lines; empty at the end of the file and after a failure.
    std::string_view Lines() const { return {buffer.data() + begin, whole - begin}; }
    // Takes the first bytes of Lines.
    void Take(std::size_t count) { begin += count; }
    // Adds at least one line to Lines, which may move; false at the end of the file and after a failure.
    bool Fill();
    // Why the file could not be read to its end; empty when it could, so far.
    const std::string& Failure() const { return failure; }

 private:
    struct Closer {
        void operator()(void* file) const;
    };

    bool ReadPiece();
    void EndLastLine();

    std::string path;
    std::unique_ptr<void, Closer> file;
    std::vector<char> buffer;
    std::size_t begin = 0;
    std::size_t whole = 0;  // the end of the last whole line
    std::size_t end = 0;
    bool isFirst = true;
    bool isOver = false;
    bool hasCarriageReturnsOnly = false;
    std::string failure;
};
