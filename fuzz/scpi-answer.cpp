// What an instrument answers. The first bytes of an input say what is expected, and how it is cut. However it
// is cut, the same values come out up to the first answer that is wrong.
#include <algorithm>
#include <cstring>
#include <span>

#include "fuzz/Fuzz.h"
#include "modules/instrument/ScpiAnswer.h"

namespace {

std::string Read(const live::SampleFormat* format, std::size_t count, std::span<const std::byte> bytes,
                 std::size_t cut) {
    ScpiAnswer answer(format, count);
    std::vector<double> values;
    std::string error;
    std::string found;
    for (std::size_t at = 0; at < bytes.size(); at += cut) {
        answer.Give(bytes.subspan(at, std::min(cut, bytes.size() - at)));
        ScpiAnswer::State state;
        while ((state = answer.Take(values, error)) == ScpiAnswer::COMPLETE) {
            fuzz::Require(format != nullptr || values.size() == count, "as many numbers as were asked for");
            found.append(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(double));
            found += "|";
        }
        fuzz::Require((state == ScpiAnswer::WRONG) == !error.empty(),
                      "what is wrong has a reason, nothing else");
        if (state == ScpiAnswer::WRONG) return found;
    }
    if (answer.Take(values, error, true) == ScpiAnswer::COMPLETE)  // a block of open length
        found.append(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(double));
    return found;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 3) return 0;
    const std::size_t formats = std::size(live::FORMATS);
    const live::SampleFormat* const format =
        data[0] % (formats + 1) < formats ? &live::FORMATS[data[0] % (formats + 1)] : nullptr;
    const std::size_t count = 1 + data[1] % 4;
    const std::span bytes(reinterpret_cast<const std::byte*>(data) + 3, size - 3);
    fuzz::RequireSame(Read(format, count, bytes, 1 + data[2]), Read(format, count, bytes, size),
                      "however it is cut, the same comes out");
    return 0;
}
