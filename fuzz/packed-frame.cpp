// TCIOStream::DeSerializeBlock, given the input as a frame, and as what stands behind the header of a frame
// that is otherwise right: else the checksum would keep every input out.
#include <cstring>

#include "fuzz/Fuzz.h"

namespace {

void Put(std::string& frame, std::size_t at, std::uint32_t value) {
    std::memcpy(frame.data() + at, &value, sizeof value);
}

std::uint32_t Checksum(const std::string& text) {
    std::uint32_t sum = UINT32_MAX;
    for (const char character : text) {
        sum ^= static_cast<unsigned char>(character);
        for (int bit = 0; bit < 8; ++bit) sum = (sum & 1) != 0 ? sum >> 1 ^ 0xEDB88320u : sum >> 1;
    }
    return ~sum;
}

std::string WithHeader(const std::string& body) {
    std::string frame = "SWBK" + std::string(12, '\0') + body;
    Put(frame, 4, 1);
    Put(frame, 8, static_cast<std::uint32_t>(frame.size()));
    Put(frame, 12, Checksum(body));
    return frame;
}

void Read(const std::string& frame) {
    fuzz::Line line;
    const int result = line.writer.DeSerializeBlock(frame.data(), static_cast<int>(frame.size()));
    fuzz::Require(result == 1 || result == -14, "a frame is read or refused");
    fuzz::Require(line.input.GetBlockCnt(nullptr) == (result == 1),
                  "a frame that is refused changes nothing");
    if (result != 1) return;
    fuzz::Show(line.input);
    fuzz::Require(fuzz::TakeFrame(line.input) == frame, "a frame that was read is written the same");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    Read(input);
    Read(WithHeader(input));
    return 0;
}
