#include "sigweave/services/Profile.h"

#include <cstdlib>
#include <string>

#include "sigweave/platform/CodePage.h"
#include "sigweave/platform/Fork.h"
#include "sigweave/services/ProfileEntries.h"
#include "sigweave/services/ProfileStore.h"
#include "sigweave/services/UserFolders.h"

namespace {

using tc::ProfileStore;

// --- Where the hives are -------------------------------------------------------------------------

std::string UserHivePath() {
    std::string path = tc::EnvironmentText("SIGWEAVE_USER_HIVE");
    if (!path.empty()) return path;
    const std::string folder = tc::UserFolderPath(tc::UserFolder::Config);
    return folder.empty() ? "" : folder + "/sigweave/profile.db";
}

std::string MachineHivePath() {
    const std::string path = tc::EnvironmentText("SIGWEAVE_MACHINE_HIVE");
    return !path.empty() ? path : "/var/lib/sigweave/profile.db";
}

// --- The hives of the process --------------------------------------------------------------------

struct Hives {
    TCString registryPath = "Software\\Varnholt\\SIGWEAVE\\";
    // Most users may not write in the machine hive's folder.
    ProfileStore machine{MachineHivePath, ProfileStore::Journal::Rollback};
    ProfileStore user{UserHivePath, ProfileStore::Journal::WriteAhead};
};

Hives& TheHives();

void PrepareFork() {
    TheHives().machine.BeforeFork();
    TheHives().user.BeforeFork();
}

void FinishFork() {
    TheHives().user.AfterFork();
    TheHives().machine.AfterFork();
}

void CloseHives() {
    TheHives().machine.Close();
    TheHives().user.Close();
}

// Never destroyed, the path included: a module may save settings while the process goes down.
union HivesStorage {
    Hives hives;
    HivesStorage() noexcept : hives() {
        tc::AtFork(PrepareFork, FinishFork, FinishFork);
        std::atexit(CloseHives);
    }
    ~HivesStorage() {}
};

Hives& TheHives() {
    static HivesStorage storage;
    return storage.hives;
}

// Made when the library is loaded: a fork during a first use would leave the child waiting for it for good.
[[maybe_unused]] const Hives& madeAtLoad = TheHives();

// --- The operations ------------------------------------------------------------------------------

const char* OrEmpty(const char* text) {
    return text != nullptr ? text : "";
}

TCString Key(const char* section) {
    return TheHives().registryPath + OrEmpty(section);
}

bool Exists(ProfileStore& hive, const char* section, const char* entry) {
    constexpr std::size_t LONGEST = 255;
    const auto value = hive.Read(Key(section), OrEmpty(entry));
    if (!value) return false;
    const auto* text = std::get_if<std::string>(&*value);
    return text == nullptr || text->size() + 1 <= LONGEST;
}

template <typename T>
T Load(ProfileStore& hive, const char* section, const char* entry, T defaultValue) {
    auto value = hive.Read(Key(section), OrEmpty(entry));
    T* found = value ? std::get_if<T>(&*value) : nullptr;
    return found != nullptr ? std::move(*found) : defaultValue;
}

TCString LoadText(ProfileStore& hive, const char* section, const char* entry) {
    return Load(hive, section, entry, std::string()).c_str();
}

bool Save(ProfileStore& hive, const char* section, const char* entry, const ProfileStore::Value& value) {
    return hive.Write(Key(section), OrEmpty(entry), value);
}

bool Delete(ProfileStore& hive, const char* section, const char* entry) {
    return hive.Delete(Key(section), OrEmpty(entry));
}

ProfileStore& StoreOf(tc::Hive hive) {
    return hive == tc::Hive::Machine ? TheHives().machine : TheHives().user;
}

}  // namespace

TCString ChangeRegistryPath(const char* path) {
    TCString before = TheHives().registryPath;
    TheHives().registryPath = OrEmpty(path);
    return before;
}

const char* GetRegistryPath() {
    return TheHives().registryPath;
}

bool ExistsMachineProfileKey(const char* section, const char* entry) {
    return Exists(TheHives().machine, section, entry);
}

bool ExistsUserProfileKey(const char* section, const char* entry) {
    return Exists(TheHives().user, section, entry);
}

int LoadMachineProfileInt(const char* section, const char* entry, int defaultValue) {
    return Load(TheHives().machine, section, entry, defaultValue);
}

int LoadUserProfileInt(const char* section, const char* entry, int defaultValue) {
    return Load(TheHives().user, section, entry, defaultValue);
}

void SaveMachineProfileInt(const char* section, const char* entry, int value) {
    Save(TheHives().machine, section, entry, value);
}

void SaveUserProfileInt(const char* section, const char* entry, int value) {
    Save(TheHives().user, section, entry, value);
}

void DeleteMachineProfileInt(const char* section, const char* entry) {
    Delete(TheHives().machine, section, entry);
}

void DeleteUserProfileInt(const char* section, const char* entry) {
    Delete(TheHives().user, section, entry);
}

TCString LoadMachineProfileString(const char* section, const char* entry) {
    return LoadText(TheHives().machine, section, entry);
}

TCString LoadUserProfileString(const char* section, const char* entry) {
    return LoadText(TheHives().user, section, entry);
}

void SaveMachineProfileString(const char* section, const char* entry, const char* value) {
    Save(TheHives().machine, section, entry, OrEmpty(value));
}

void SaveUserProfileString(const char* section, const char* entry, const char* value) {
    Save(TheHives().user, section, entry, OrEmpty(value));
}

void DeleteMachineProfileString(const char* section, const char* entry) {
    Delete(TheHives().machine, section, entry);
}

void DeleteUserProfileString(const char* section, const char* entry) {
    Delete(TheHives().user, section, entry);
}

namespace tc {

std::optional<std::vector<ProfileEntry>> ReadProfile(Hive hive) {
    auto all = StoreOf(hive).List();
    if (!all) return std::nullopt;
    std::vector<ProfileEntry> entries;
    for (ProfileStore::Entry& entry : *all) {
        const std::size_t section = PrefixNoCase(entry.key, GetRegistryPath());
        if (section == std::string::npos) continue;
        entries.push_back({entry.key.substr(section), std::move(entry.name), std::move(entry.value)});
    }
    return entries;
}

bool SaveProfileEntry(Hive hive, const char* section, const char* entry,
                      const std::variant<std::int32_t, std::string>& value) {
    return Save(StoreOf(hive), section, entry, value);
}

bool DeleteProfileEntry(Hive hive, const char* section, const char* entry) {
    return Delete(StoreOf(hive), section, entry);
}

std::string ProfilePath(Hive hive) {
    return hive == Hive::Machine ? MachineHivePath() : UserHivePath();
}

}  // namespace tc
