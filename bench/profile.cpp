// Is a profile value read within 10 us, and a saved one no slower than a durable replacement of a settings
// file?
#include "sigweave/services/Profile.h"

#include <benchmark/benchmark.h>
#include <glib.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr int GROUPS = 10;
constexpr int ENTRIES = 20;

struct Name {
    std::string group;
    std::string entry;
};

std::vector<Name> Names() {
    std::vector<Name> names;
    for (int i = 0; i < GROUPS * ENTRIES; ++i) {
        names.push_back({"group" + std::to_string(i / ENTRIES), "name" + std::to_string(i)});
    }
    return names;
}

std::string Folder() {
    const std::filesystem::path folder = std::filesystem::absolute("bench-profile");
    std::filesystem::create_directories(folder);
    setenv("SIGWEAVE_USER_HIVE", (folder / "user.db").c_str(), 1);
    setenv("SIGWEAVE_MACHINE_HIVE", (folder / "machine.db").c_str(), 1);
    return folder.string();
}

using SaveInt = void (*)(const char*, const char*, int);
using LoadInt = int (*)(const char*, const char*, int);

void Read(benchmark::State& state, SaveInt save, LoadInt load) {
    Folder();
    const std::vector<Name> names = Names();
    for (const Name& name : names) save(name.group.c_str(), name.entry.c_str(), 1);
    std::size_t i = 0;
    for (auto _ : state) {
        const Name& name = names[i++ % names.size()];
        if (load(name.group.c_str(), name.entry.c_str(), 0) != 1) state.SkipWithError("value missing");
    }
}

void BM_Profile_ReadUser(benchmark::State& state) {
    Read(state, SaveUserProfileInt, LoadUserProfileInt);
}
void BM_Profile_ReadMachine(benchmark::State& state) {
    Read(state, SaveMachineProfileInt, LoadMachineProfileInt);
}

void Write(benchmark::State& state, SaveInt save) {
    Folder();
    // A value that is there already would cost no write.
    static int value = 0;
    save("group", "name", ++value);
    for (auto _ : state) save("group", "name", ++value);
}

void BM_Profile_WriteUser(benchmark::State& state) {
    Write(state, SaveUserProfileInt);
}
void BM_Profile_WriteMachine(benchmark::State& state) {
    Write(state, SaveMachineProfileInt);
}

// The peer: GLib's key file, loaded and saved anew each time, so that it sees what other processes wrote.
std::string KeyFile() {
    const std::string file = Folder() + "/settings.ini";
    GKeyFile* settings = g_key_file_new();
    for (const Name& name : Names())
        g_key_file_set_integer(settings, name.group.c_str(), name.entry.c_str(), 1);
    g_key_file_save_to_file(settings, file.c_str(), nullptr);
    g_key_file_free(settings);
    return file;
}

void BM_Profile_Read_KeyFile(benchmark::State& state) {
    const std::string file = KeyFile();
    for (auto _ : state) {
        GKeyFile* settings = g_key_file_new();
        g_key_file_load_from_file(settings, file.c_str(), G_KEY_FILE_NONE, nullptr);
        benchmark::DoNotOptimize(g_key_file_get_integer(settings, "group5", "name105", nullptr));
        g_key_file_free(settings);
    }
}

void BM_Profile_Write_KeyFile(benchmark::State& state) {
    const std::string file = KeyFile();
    int value = 0;
    for (auto _ : state) {
        GKeyFile* settings = g_key_file_new();
        g_key_file_load_from_file(settings, file.c_str(), G_KEY_FILE_KEEP_COMMENTS, nullptr);
        g_key_file_set_integer(settings, "group5", "name105", ++value);
        g_key_file_save_to_file(settings, file.c_str(), nullptr);
        g_key_file_free(settings);
    }
}

BENCHMARK(BM_Profile_ReadUser)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Profile_ReadMachine)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Profile_Read_KeyFile)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Profile_WriteUser)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Profile_WriteMachine)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Profile_Write_KeyFile)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace
