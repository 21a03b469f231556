// How fast is a parameter text read, searched and changed, next to GLib's key file?
// 1 MB of 20,000 name=value lines in 200 sections.
#include <benchmark/benchmark.h>
#include <glib.h>

#include <cstdint>
#include <memory>
#include <string>

#include "sigweave/persistence/TCProcessParameters.h"

namespace {

constexpr int SECTIONS = 200;
constexpr int LINES = 100;
constexpr const char* SECTION = "section number 117";
constexpr const char* NAME = "parameter_name_42";

const std::string& Text() {
    static const std::string text = [] {
        std::string all;
        for (int s = 0; s < SECTIONS; ++s) {
            all += "[section number " + std::to_string(s) + "]\n";
            for (int i = 0; i < LINES; ++i)
                all += "parameter_name_" + std::to_string(i) + "=some value text, " +
                       std::to_string(s * LINES + i) + " of 20000\n";
        }
        return all;
    }();
    return text;
}

using KeyFile = std::unique_ptr<GKeyFile, decltype(&g_key_file_free)>;

KeyFile LoadKeyFile() {
    KeyFile file(g_key_file_new(), g_key_file_free);
    g_key_file_load_from_data(file.get(), Text().data(), Text().size(), G_KEY_FILE_NONE, nullptr);
    return file;
}

TCProcessParameters Parse() {
    TCProcessParameters text(false, false, nullptr, "\n", "=", "#");
    text.ParseParamString(Text().c_str());
    return text;
}

void SetBytes(benchmark::State& state) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(Text().size()));
}

void BM_ParameterText_Parse(benchmark::State& state) {
    for (auto _ : state)
        if (Parse().GetParamCount() != SECTIONS * LINES) state.SkipWithError("not parsed");
    SetBytes(state);
}
BENCHMARK(BM_ParameterText_Parse)->Unit(benchmark::kMicrosecond);

void BM_ParameterText_ParseGKeyFile(benchmark::State& state) {
    for (auto _ : state)
        if (!g_key_file_has_group(LoadKeyFile().get(), SECTION)) state.SkipWithError("not parsed");
    SetBytes(state);
}
BENCHMARK(BM_ParameterText_ParseGKeyFile)->Unit(benchmark::kMicrosecond);

// One value changed, and the whole text with it.
void BM_ParameterText_SetValue(benchmark::State& state) {
    TCProcessParameters text = Parse();
    const int index = text.FindParameter(NAME, SECTION);
    int value = 0;
    for (auto _ : state) {
        if (!text.SetParamValInt(index, value++ * 7919)) state.SkipWithError("not set");
        benchmark::DoNotOptimize(static_cast<const char*>(text.BuildParamString()));
    }
}
BENCHMARK(BM_ParameterText_SetValue)->Unit(benchmark::kMicrosecond);

void BM_ParameterText_SetValueGKeyFile(benchmark::State& state) {
    const KeyFile file = LoadKeyFile();
    int value = 0;
    for (auto _ : state) {
        g_key_file_set_integer(file.get(), SECTION, NAME, value++ * 7919);
        const std::unique_ptr<gchar, decltype(&g_free)> all(g_key_file_to_data(file.get(), nullptr, nullptr),
                                                            g_free);
        benchmark::DoNotOptimize(all.get());
    }
}
BENCHMARK(BM_ParameterText_SetValueGKeyFile)->Unit(benchmark::kMicrosecond);

// GLib hashes its names; here the parameters are tried in order, 11,700 of them.
void BM_ParameterText_Find(benchmark::State& state) {
    const TCProcessParameters text = Parse();
    for (auto _ : state) benchmark::DoNotOptimize(text.FindParameter(NAME, SECTION));
}
BENCHMARK(BM_ParameterText_Find)->Unit(benchmark::kMicrosecond);

void BM_ParameterText_FindGKeyFile(benchmark::State& state) {
    const KeyFile file = LoadKeyFile();
    for (auto _ : state) benchmark::DoNotOptimize(g_key_file_has_key(file.get(), SECTION, NAME, nullptr));
}
BENCHMARK(BM_ParameterText_FindGKeyFile)->Unit(benchmark::kMicrosecond);

}  // namespace
