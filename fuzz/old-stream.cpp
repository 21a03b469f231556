// TCIOStream::DeSerializeForOldStream, and the single tokens of TCSerializeOldStream but for texts, whose
// lengths are trusted there.
#include <type_traits>

#include "fuzz/StreamLine.h"
#include "sigweave/persistence/TCSerializeOldStream.h"

namespace {

using Token = TCSerializeOldStream;

void ReadBlock(const std::string& text) {
    fuzz::Line line;
    const char* at = text.data();
    const char* end = at + text.size();
    const int result = line.writer.DeSerializeForOldStream(at, end);
    fuzz::Require((at > text.data()) == (result == 1) && at <= end,
                  "reading moves behind a block that was read");
    if (result != 1) return;
    fuzz::Show(line.input);
    const TCString written = line.input.SerializeForOldStream(0);
    fuzz::Line again;
    const char* next = written;
    fuzz::Require(again.writer.DeSerializeForOldStream(next, next + written.GetLength()) == 1,
                  "what was written can be read");
    fuzz::Require(again.input.SerializeForOldStream(0) == written, "and is written the same again");
    fuzz::Require(fuzz::TakeFrame(again.input) == fuzz::TakeFrame(line.input), "as a frame too");
}

// One token, or those of a unit, at `p`: moved past it, and written and read the same again.
template <typename Value>
bool ReadToken(const char*& p) {
    const char* at = p;
    Value value{};
    if (!Token::DeSerialize(value, at)) {
        fuzz::Require(at == p || std::is_same_v<Value, TCSI_Unit>, "a token that does not fit stays");
        return false;
    }
    fuzz::Require(at > p, "reading moves behind the token");
    p = at;
    const TCString written = Token::Serialize(value);
    const char* start = written;
    Value again{};
    fuzz::Require(Token::DeSerialize(again, start) && Token::Serialize(again) == written,
                  "a token that was read is written the same");
    return true;
}

void ReadTokens(std::string text) {
    text.append(16, '\0');  // no token but a text is longer than the room in which a terminator may be
    const char* p = text.c_str();
    const char* end = p + text.size() - 16;
    while (p < end && (ReadToken<TCSI_Unit>(p) || ReadToken<double>(p) || ReadToken<const void*>(p) ||
                       ReadToken<int>(p) || Token::EatOneWS(p))) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    ReadBlock(input);
    ReadTokens(input);
    return 0;
}
