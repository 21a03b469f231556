// TCIOStream::DeSerializeBlock, given the input as a frame, and as what follows the header of a frame
// that is otherwise right: else the checksum would keep every input out.
#include "fuzz/StreamLine.h"
#include "tests/support/PackedFrame.h"

namespace {

std::string WithHeader(std::string body) {
    body.resize((body.size() + 7) / 8 * 8);
    const std::uint32_t header[] = {0x4B425753, 2, static_cast<std::uint32_t>(body.size() + 24), 0, 0, 0};
    std::string frame(reinterpret_cast<const char*>(header), sizeof header);
    frame += body;
    SignFrame(frame);
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
