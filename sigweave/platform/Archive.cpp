#include "sigweave/platform/Archive.h"

#include <climits>
#include <istream>
#include <ostream>
#include <streambuf>
#include <utility>

namespace {

using Traits = std::streambuf::traits_type;

bool EatLineEnd(std::streambuf& characters) {
    const bool carriageReturn = characters.sgetc() == '\r';
    if (carriageReturn) characters.sbumpc();
    if (characters.sgetc() == '\n') return characters.sbumpc() != Traits::eof();
    if (carriageReturn) characters.sungetc();
    return false;
}

// At most `maxLength` characters of the line; false when the text has ended before the first one.
bool ReadLine(std::istream& in, std::string& line, std::size_t maxLength) {
    std::streambuf& characters = *in.rdbuf();
    line.clear();
    while (!EatLineEnd(characters)) {
        if (line.size() == maxLength || characters.sgetc() == Traits::eof()) return !line.empty();
        line += Traits::to_char_type(characters.sbumpc());
    }
    return true;
}

}  // namespace

CArchiveException::CArchiveException(int cause, std::string fileName)
    : m_cause(cause), m_strFileName(std::move(fileName)) {}

void CArchive::WriteString(const char* text) {
    if (output != nullptr && text != nullptr) *output << text;
}

bool CArchive::ReadString(std::string& line) {
    line.clear();
    return input != nullptr && ReadLine(*input, line, line.max_size());
}

char* CArchive::ReadString(char* buffer, unsigned maxLength) {
    std::string line;
    if (input == nullptr || buffer == nullptr || !ReadLine(*input, line, maxLength)) return nullptr;
    buffer[line.copy(buffer, maxLength)] = '\0';
    return buffer;
}
