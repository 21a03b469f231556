// Samples as plain bytes, with sequence numbers. The first bytes of an input say how they are packed and cut.
// However a stream is cut, the same samples and losses come out.
#include <algorithm>
#include <span>
#include <vector>

#include "fuzz/Fuzz.h"
#include "modules/live/Packets.h"
#include "modules/live/SampleFormat.h"

namespace {

// What came out: samples, and each loss as a text between them.
struct Found {
    std::string text;
    std::size_t bytes = 0;
};

void Take(live::Packets& packets, const live::SampleFormat& format, int channels, Found& found) {
    for (live::Packets::Piece piece; packets.Next(piece);) {
        const std::size_t frameBytes = static_cast<std::size_t>(channels * format.bytes);
        const std::size_t frames = piece.frames.size() / frameBytes;
        fuzz::Require(frames > 0 && piece.frames.size() % frameBytes == 0, "pieces are whole frames");
        std::vector<double> values(frames);
        for (int channel = 0; channel < channels; ++channel)
            live::Decode(format, piece.frames.data() + channel * format.bytes, frameBytes, frames, 1.0, 0.0,
                         values.data());
        fuzz::Require(piece.lost >= live::UNKNOWN_LOSS, "a loss has a length, or is not known");
        if (piece.lost != 0) found.text += "[" + std::to_string(piece.lost) + "]";
        found.text.append(reinterpret_cast<const char*>(piece.frames.data()), piece.frames.size());
        found.bytes += piece.frames.size();
    }
}

Found Unpack(const live::Packing& packing, const live::SampleFormat& format, int channels,
             std::span<const std::byte> bytes, std::size_t cut, bool areDatagrams) {
    live::Packets packets(packing);
    Found found;
    for (std::size_t at = 0; at < bytes.size(); at += cut) {
        packets.Give(bytes.subspan(at, std::min(cut, bytes.size() - at)), areDatagrams);
        Take(packets, format, channels, found);
    }
    fuzz::Require(found.bytes <= bytes.size(), "nothing is made up");
    return found;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr int NUMBER_BYTES[] = {0, 2, 4, 8};
    if (size < 5) return 0;
    const live::SampleFormat& format = live::FORMATS[data[0] % std::size(live::FORMATS)];
    const int channels = 1 + data[1] % 4;
    const live::Packing packing = {.frameBytes = channels * format.bytes,
                                   .numberBytes = NUMBER_BYTES[data[2] & 3],
                                   .isNumberBigEndian = (data[2] & 4) != 0,
                                   .numbersFrames = (data[2] & 8) != 0,
                                   .packetFrames = 1 + data[3] % 16};
    const std::size_t cut = 1 + data[4];
    const std::span bytes(reinterpret_cast<const std::byte*>(data) + 5, size - 5);
    Unpack(packing, format, channels, bytes, cut, true);
    const Found pieces = Unpack(packing, format, channels, bytes, cut, false);
    const Found whole = Unpack(packing, format, channels, bytes, bytes.size() + 1, false);
    fuzz::RequireSame(pieces.text, whole.text, "however it is cut, the same comes out");
    return 0;
}
