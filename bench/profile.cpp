// Is a profile value read within 10 us, and a saved one no slower than a durable replacement of a settings
// file?
#include "sigweave/services/Profile.h"

#include <benchmark/benchmark.h>
#include <glib.h>
#include <stdlib.h>

#include <memory>
#include <string>
#include <vector>

#include "sigweave/platform/OwnedFolder.h"

namespace {

constexpr int NAMES = 200;
// More than are remembered: each value is read from the file itself.
constexpr int MANY_NAMES = 1200;
constexpr int ENTRIES = 20;

struct Name {
    std::string group;
    std::string entry;
};

std::vector<Name> Names(int count = NAMES) {
    std::vector<Name> names;
    for (int i = 0; i < count; ++i) {
        names.push_back({"group" + std::to_string(i / ENTRIES), "name" + std::to_string(i)});
    }
    return names;
}

// Where the hives are while the object lives.
class Folder {
 public:
    Folder() : own(tc::OwnedFolder::MakeTemporary("bench-profile-", failed)) {
        if (own == nullptr) std::abort();
        path = own->Path().string();
        setenv("SIGWEAVE_USER_HIVE", (path + "/user.db").c_str(), 1);
        setenv("SIGWEAVE_MACHINE_HIVE", (path + "/machine.db").c_str(), 1);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string path;

 private:
    std::error_code failed;
    std::unique_ptr<tc::OwnedFolder> own;
};

using SaveInt = void (*)(const char*, const char*, int);
using LoadInt = int (*)(const char*, const char*, int);

void Read(benchmark::State& state, int count, SaveInt save, LoadInt load) {
    const Folder folder;
    const std::vector<Name> names = Names(count);
    for (const Name& name : names) save(name.group.c_str(), name.entry.c_str(), 1);
    std::size_t i = 0;
    for (auto _ : state) {
        const Name& name = names[i++ % names.size()];
        if (load(name.group.c_str(), name.entry.c_str(), 0) != 1) state.SkipWithError("value missing");
    }
}

void BM_Profile_ReadUser(benchmark::State& state) {
    Read(state, NAMES, SaveUserProfileInt, LoadUserProfileInt);
}
void BM_Profile_ReadMachine(benchmark::State& state) {
    Read(state, NAMES, SaveMachineProfileInt, LoadMachineProfileInt);
}
void BM_Profile_ReadManyMachine(benchmark::State& state) {
    Read(state, MANY_NAMES, SaveMachineProfileInt, LoadMachineProfileInt);
}

void Write(benchmark::State& state, SaveInt save) {
    const Folder folder;
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
std::string KeyFile(const Folder& folder) {
    const std::string file = folder.path + "/settings.ini";
    GKeyFile* settings = g_key_file_new();
    for (const Name& name : Names())
        g_key_file_set_integer(settings, name.group.c_str(), name.entry.c_str(), 1);
    g_key_file_save_to_file(settings, file.c_str(), nullptr);
    g_key_file_free(settings);
    return file;
}

void BM_Profile_Read_KeyFile(benchmark::State& state) {
    const Folder folder;
    const std::string file = KeyFile(folder);
    for (auto _ : state) {
        GKeyFile* settings = g_key_file_new();
        g_key_file_load_from_file(settings, file.c_str(), G_KEY_FILE_NONE, nullptr);
        benchmark::DoNotOptimize(g_key_file_get_integer(settings, "group5", "name105", nullptr));
        g_key_file_free(settings);
    }
}

void BM_Profile_Write_KeyFile(benchmark::State& state) {
    const Folder folder;
    const std::string file = KeyFile(folder);
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
BENCHMARK(BM_Profile_ReadManyMachine)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Profile_Read_KeyFile)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Profile_WriteUser)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Profile_WriteMachine)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Profile_Write_KeyFile)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace
