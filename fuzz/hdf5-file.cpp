// Hdf5File on an HDF5 file: its arrays are played, or the module says why not.
#include "fuzz/Fuzz.h"
#include "fuzz/ModuleRun.h"
#include "fuzz/Scratch.h"
#include "modules/hdf5-file/Hdf5File.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::int64_t MOST_SAMPLES = 1 << 16;
    const std::string path = fuzz::WriteScratch("array", {reinterpret_cast<const char*>(data), size});
    fuzz::ModuleRun<Hdf5File> run;
    if (!run.Set("file=" + path + "\r\nblock=512\r\nrate=1\r\n")) return 0;
    run.WireOutputs(8);
    run.Play(MOST_SAMPLES);
    return 0;
}
