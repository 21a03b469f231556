// TableFile on a text: its rows are played, or the module says what is wrong and where.
#include "fuzz/Fuzz.h"
#include "fuzz/ModuleRun.h"
#include "fuzz/Scratch.h"
#include "modules/table-file/TableFile.h"

namespace {

constexpr std::int64_t MOST_SAMPLES = 1 << 18;

}  // namespace

// The first part is the file, the others are settings; what is compressed is a file alone.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Parts parts(data, size);
    const bool isPacked = size > 1 && data[0] == 0x1F && data[1] == 0x8B;
    const std::string path = fuzz::WriteScratch("table", isPacked ? parts.Rest() : parts.Next());
    std::string settings;
    while (!isPacked && !parts.AtEnd()) settings += parts.Next() + "\r\n";
    for (const char* const known : {"", "rate=1\r\n"}) {
        fuzz::ModuleRun<TableFile> run;
        if (!run.Set("file=" + path + "\r\nblock=64\r\n" + known + settings)) continue;
        run.WireOutputs(8);
        run.Play(MOST_SAMPLES);
    }
    return 0;
}
