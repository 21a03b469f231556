#include "sigweave/platform/Archive.h"

#include <climits>
#include <istream>
#include <ostream>
#include <utility>

namespace {

// At most `maxLength` characters of the line; false when the text has ended before the first one.
bool ReadLine(std::istream& in, std::string& line, std::size_t maxLength) {
    using Traits = std::istream::traits_type;
    line.clear();
    auto* characters = in.rdbuf();
    bool any = false;
    while (line.size() < maxLength) {
        const Traits::int_type next = characters->sbumpc();
        if (Traits::eq_int_type(next, Traits::eof())) break;
        any = true;
        if (next == '\n') break;
        line += Traits::to_char_type(next);
    }
    if (!any) in.setstate(std::ios::eofbit);
    if (line.ends_with('\r') && line.size() < maxLength) line.pop_back();
    return any;
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
