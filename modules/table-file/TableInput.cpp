// The only file that knows zlib.
#include "modules/table-file/TableInput.h"

#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "modules/common/InputPath.h"
#include "sigweave/services/Bilingual.h"

namespace {

using tc::Bilingual;

constexpr std::size_t PIECE = 1 << 20;

}  // namespace

void TableInput::Closer::operator()(void* opened) const {
    gzclose(static_cast<gzFile>(opened));
}

bool TableInput::Open(const std::string& name, std::string& error) {
    *this = TableInput();
    path = name;
    error = tc::WhyNoInputFile(path);
    if (!error.empty()) return false;
    file.reset(gzopen(path.c_str(), "rb"));
    if (file == nullptr) {
        error = tc::NotReadable(path);
        return false;
    }
    buffer.resize(PIECE + 1);
    gzbuffer(static_cast<gzFile>(file.get()), 1 << 18);
    const bool hasLines = Fill();
    error = failure;
    if (!hasLines && error.empty())
        error = Bilingual("%1 holds no rows; export or copy it again",
                          "%1 enthält keine Zeilen; exportieren oder kopieren Sie sie neu")
                    .With({path});
    return error.empty();
}

bool TableInput::Fill() {
    const std::size_t before = whole - begin;
    std::memmove(buffer.data(), buffer.data() + begin, end - begin);
    end -= begin;
    whole -= begin;
    begin = 0;
    while (whole <= before && !isOver && failure.empty()) {
        if (!ReadPiece()) break;
        for (std::size_t at = end; at > whole; --at)
            if (buffer[at - 1] == '\n') whole = at;
    }
    return whole > before;
}

// More bytes after those that are there; at the end of the file the last line gets its end.
bool TableInput::ReadPiece() {
    if (end - begin > MOST_IN_ROW) {
        failure = Bilingual("%1 has a row of more than 16 MB; is it a table?",
                            "%1 hat eine Zeile mit mehr als 16 MB; ist sie eine Tabelle?")
                      .With({path});
        return false;
    }
    buffer.resize(std::max(buffer.size(), end + PIECE + 1));
    const auto opened = static_cast<gzFile>(file.get());
    const int count = gzread(opened, buffer.data() + end, static_cast<unsigned>(PIECE));
    int code = Z_OK;
    const char* const words = gzerror(opened, &code);
    if (count < 0 || (code != Z_OK && code != Z_STREAM_END)) {
        failure = Bilingual("%1 breaks off or is damaged: %2; copy it again",
                            "%1 bricht ab oder ist beschädigt: %2; kopieren Sie sie neu")
                      .With({path, code == Z_ERRNO ? std::strerror(errno) : words});
    }
    char* const piece = buffer.data() + end;
    std::size_t length = static_cast<std::size_t>(std::max(count, 0));
    if (isFirst && length >= 2 &&
        (std::memcmp(piece, "\xFF\xFE", 2) == 0 || std::memcmp(piece, "\xFE\xFF", 2) == 0)) {
        failure =
            Bilingual("%1 is in UTF-16; save it in UTF-8", "%1 ist in UTF-16; speichern Sie sie in UTF-8")
                .With({path});
        return false;
    }
    if (isFirst) hasCarriageReturnsOnly = length > 0 && std::memchr(piece, '\n', length) == nullptr;
    if (hasCarriageReturnsOnly) std::replace(piece, piece + length, '\r', '\n');
    if (isFirst && length >= 3 && std::memcmp(piece, "\xEF\xBB\xBF", 3) == 0) {
        length -= 3;
        std::memmove(piece, piece + 3, length);
    }
    isFirst = isFirst && count <= 0;
    end += length;
    if (count <= 0 || !failure.empty()) EndLastLine();
    return true;
}

void TableInput::EndLastLine() {
    isOver = true;
    if (end > begin && buffer[end - 1] != '\n' && failure.empty()) buffer[end++] = '\n';
}
