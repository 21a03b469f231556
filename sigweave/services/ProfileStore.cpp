#include "sigweave/services/ProfileStore.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <initializer_list>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "sigweave/platform/CodePage.h"
#include "sigweave/platform/Fork.h"

namespace tc {

namespace {

constexpr int BUSY_MILLISECONDS = 10'000;

// The types of stored values, as registries number them (never change, only append).
constexpr int TYPE_TEXT = 1;
constexpr int TYPE_INTEGER = 4;

// An empty key is a row of `keys` alone.
constexpr const char* TABLES =
    "CREATE TABLE IF NOT EXISTS keys (name TEXT PRIMARY KEY COLLATE NOCASE) WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS entries (key TEXT NOT NULL COLLATE NOCASE, name TEXT NOT NULL COLLATE NOCASE,"
    " type INTEGER NOT NULL, data NOT NULL, PRIMARY KEY (key, name)) WITHOUT ROWID";
// Counts, so that there is a row even of no entry, and the file still locked when that has been read.
constexpr const char* READ_ENTRY = "SELECT type, data, count(*) FROM entries WHERE key = ?1 AND name = ?2";
constexpr const char* LIST_ENTRIES =
    "SELECT type, data, keys.name, entries.name FROM keys LEFT JOIN entries ON entries.key = keys.name"
    " ORDER BY keys.name, entries.name";
constexpr const char* MAKE_KEY = "INSERT OR IGNORE INTO keys VALUES (?1)";
constexpr const char* WRITE_ENTRY =
    "INSERT INTO entries VALUES (?1, ?2, ?3, ?4)"
    " ON CONFLICT (key, name) DO UPDATE SET type = excluded.type, data = excluded.data";
constexpr const char* DELETE_ENTRY = "DELETE FROM entries WHERE key = ?1 AND name = ?2";
// The spelling that is in use of a key and of a name, the one that differs least first. The tables themselves
// compare without the case of ASCII letters only.
constexpr const char* FIND_KEY =
    "SELECT name FROM keys WHERE name = ?1 COLLATE ANYCASE ORDER BY name != ?1 LIMIT 1";
constexpr const char* FIND_NAME =
    "SELECT name FROM entries WHERE key = ?1 AND name = ?2 COLLATE ANYCASE ORDER BY name != ?2 LIMIT 1";

using Database = std::unique_ptr<sqlite3, decltype([](sqlite3* database) { sqlite3_close_v2(database); })>;

bool Execute(sqlite3* database, const char* sql) {
    return sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

// A prepared statement, used by one `Run` at a time.
class Statement {
 public:
    bool Prepare(sqlite3* database, const char* sql) {
        if (statement != nullptr) return true;
        sqlite3_stmt* made = nullptr;
        sqlite3_prepare_v3(database, sql, -1, SQLITE_PREPARE_PERSISTENT, &made, nullptr);
        statement.reset(made);
        return made != nullptr;
    }
    sqlite3_stmt* get() const { return statement.get(); }

 private:
    std::unique_ptr<sqlite3_stmt, decltype([](sqlite3_stmt* made) { sqlite3_finalize(made); })> statement;
};

// One execution of a statement; the texts bound to it must outlive it.
class Run {
 public:
    Run(const Statement& prepared, std::initializer_list<const char*> texts) : statement(prepared.get()) {
        int index = 0;
        for (const char* text : texts) sqlite3_bind_text(statement, ++index, text, -1, SQLITE_STATIC);
    }
    ~Run() {
        sqlite3_reset(statement);
        sqlite3_clear_bindings(statement);
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    bool HasRow() { return sqlite3_step(statement) == SQLITE_ROW; }
    bool IsDone() { return sqlite3_step(statement) == SQLITE_DONE; }

    sqlite3_stmt* const statement;
};

void BindValue(sqlite3_stmt* statement, const ProfileStore::Value& value) {
    constexpr int TYPE = 3;
    constexpr int DATA = 4;
    if (const auto* number = std::get_if<std::int32_t>(&value)) {
        sqlite3_bind_int(statement, TYPE, TYPE_INTEGER);
        sqlite3_bind_int(statement, DATA, *number);
        return;
    }
    const std::string& text = std::get<std::string>(value);
    sqlite3_bind_int(statement, TYPE, TYPE_TEXT);
    sqlite3_bind_text(statement, DATA, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}

std::optional<ProfileStore::Value> RowValue(sqlite3_stmt* row) {
    switch (sqlite3_column_int(row, 0)) {
        case TYPE_INTEGER:
            return sqlite3_column_int(row, 1);
        case TYPE_TEXT: {
            const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(row, 1));
            if (text == nullptr) return std::nullopt;
            return std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(row, 1)));
        }
        default:
            return std::nullopt;
    }
}

std::string RowText(sqlite3_stmt* row, int column) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(row, column));
    return text != nullptr ? text : "";
}

// Only whether they are equal matters.
int CompareAnyCase(void*, int aSize, const void* a, int bSize, const void* b) {
    const std::string_view text(static_cast<const char*>(a), static_cast<std::size_t>(aSize));
    const std::string_view other(static_cast<const char*>(b), static_cast<std::size_t>(bSize));
    return PrefixNoCase(text, other) == text.size() ? 0 : text < other ? -1 : 1;
}

bool IsAscii(const char* text) {
    return std::ranges::none_of(std::string_view(text), [](char c) { return (c & 0x80) != 0; });
}

Database OpenDatabase(const std::string& path, int flags) {
    sqlite3* opened = nullptr;
    // The store's mutex is all the locking that a connection needs.
    const int result = sqlite3_open_v2(path.c_str(), &opened, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    Database database(opened);
    if (result != SQLITE_OK) return nullptr;
    sqlite3_busy_timeout(opened, BUSY_MILLISECONDS);
    sqlite3_create_collation(opened, "ANYCASE", SQLITE_UTF8, nullptr, CompareAnyCase);
    Execute(opened, "PRAGMA synchronous = FULL");
    return database;
}

// A hive with a write-ahead log is read with a file of locks next to it. Where that can be neither found nor
// made, nobody writes the hive either.
bool LacksLocks(sqlite3* database) {
    const int result = sqlite3_exec(database, "SELECT 1 FROM sqlite_schema", nullptr, nullptr, nullptr);
    return result == SQLITE_CANTOPEN || result == SQLITE_READONLY;
}

Database OpenUnchanging(const std::string& path) {
    std::error_code ignored;
    std::string uri = "file://";
    for (const char c : std::filesystem::absolute(path, ignored).string()) {
        constexpr std::string_view MEANINGFUL = "%?#";
        const auto special = MEANINGFUL.find(c);
        special == std::string_view::npos ? uri += c : uri += std::array{"%25", "%3F", "%23"}[special];
    }
    return OpenDatabase(uri + "?immutable=1", SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
}

// What the file's header says of its content. With a rollback journal every commit counts up in it, before
// the commit is complete; SQLite trusts its own page cache on the same bytes.
using Stamp = std::array<unsigned char, 40>;

std::optional<Stamp> ReadStamp(sqlite3* database) {
    constexpr std::size_t WRITE_VERSION = 18;
    constexpr unsigned char ROLLBACK = 1;
    // The connection's own handle: closing a second one would give up the process's locks on the file.
    sqlite3_file* file = nullptr;
    sqlite3_file_control(database, nullptr, SQLITE_FCNTL_FILE_POINTER, &file);
    Stamp stamp;
    if (file == nullptr || file->pMethods == nullptr) return std::nullopt;
    if (file->pMethods->xRead(file, stamp.data(), stamp.size(), 0) != SQLITE_OK) return std::nullopt;
    if (stamp[WRITE_VERSION] != ROLLBACK) return std::nullopt;
    return stamp;
}

// Values as they were read, good for as long as the file bears the stamp that it bore then.
class ReadValues {
 public:
    // Null when there is none; else the value, if the stamp is still good.
    const std::optional<ProfileStore::Value>* Find(const char* key, const char* name) const {
        const auto found = values.find(Place(key, name));
        return found != values.end() ? &found->second : nullptr;
    }
    bool AreGoodFor(const std::optional<Stamp>& now) const { return now == stamp; }

    // `now` was read under the lock under which the value was.
    void Keep(const Stamp& now, const char* key, const char* name,
              const std::optional<ProfileStore::Value>& value) {
        constexpr std::size_t MOST = 1000;
        constexpr std::size_t LONGEST = 1000;
        if (now != stamp || values.size() >= MOST) values.clear();
        stamp = now;
        const auto* text = value ? std::get_if<std::string>(&*value) : nullptr;
        if (text == nullptr || text->size() <= LONGEST) values[Place(key, name)] = value;
    }

 private:
    static std::string Place(const char* key, const char* name) {
        std::string place = key;
        place += '\0';
        return place += name;
    }

    Stamp stamp{};
    std::unordered_map<std::string, std::optional<ProfileStore::Value>> values;
};

}  // namespace

class ProfileStore::Connection {
 public:
    // An unchanging one is good for one call: it does not see what others change.
    Connection(std::string filePath, Database opened, Journal hiveJournal, bool unchanging)
        : path(std::move(filePath)),
          journal(hiveJournal),
          isUnchanging(unchanging),
          database(std::move(opened)) {}

    // When the file is gone, the journal at its path belongs to another one: closing must not remove that.
    ~Connection() {
        if (HasMoved()) sqlite3_db_config(database.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool IsOurs() const { return process == ProcessId(); }
    bool IsAt(const std::string& place) const { return !isUnchanging && place == path && !HasMoved(); }

    std::optional<Value> Read(const char* key, const char* name) {
        const auto* known = readValues.Find(key, name);
        if (known != nullptr && readValues.AreGoodFor(FileStamp())) return *known;
        if (!readEntry.Prepare(database.get(), READ_ENTRY)) return std::nullopt;
        const std::string usedKey = UsedKey(key);
        const std::string usedName = UsedName(usedKey.c_str(), name);
        Run run(readEntry, {usedKey.c_str(), usedName.c_str()});
        if (!run.HasRow()) return std::nullopt;
        std::optional<Value> value = RowValue(run.statement);
        if (const auto stamp = FileStamp()) readValues.Keep(*stamp, key, name, value);
        return value;
    }

    std::optional<std::vector<Entry>> List() {
        Statement list;
        // A file without tables is one that nobody has written yet.
        if (!list.Prepare(database.get(), LIST_ENTRIES)) {
            if (sqlite3_errcode(database.get()) == SQLITE_ERROR) return std::vector<Entry>();
            return std::nullopt;
        }
        std::vector<Entry> entries;
        const Run run(list, {});
        int result = SQLITE_ROW;
        while ((result = sqlite3_step(run.statement)) == SQLITE_ROW)
            entries.push_back(
                {RowText(run.statement, 2), RowText(run.statement, 3), RowValue(run.statement)});
        if (result != SQLITE_DONE) return std::nullopt;
        return entries;
    }

    bool Write(const char* key, const char* name, const Value& value) {
        return ChangeEntry(key, name, [&](const char* usedKey, const char* usedName) {
            Run run(writeEntry, {usedKey, usedName});
            BindValue(run.statement, value);
            return run.IsDone();
        });
    }

    bool Delete(const char* key, const char* name) {
        return ChangeEntry(key, name, [&](const char* usedKey, const char* usedName) {
            return Run(deleteEntry, {usedKey, usedName}).IsDone();
        });
    }

    void PrepareWriting() {
        if (writable) return;
        // Refused while others are at it; then the mode stays as it is, and either is safe.
        if (journal == Journal::WriteAhead) Execute(database.get(), "PRAGMA journal_mode = WAL");
        writable = InTransaction([this] { return Execute(database.get(), TABLES); }) &&
                   makeKey.Prepare(database.get(), MAKE_KEY) &&
                   writeEntry.Prepare(database.get(), WRITE_ENTRY) &&
                   deleteEntry.Prepare(database.get(), DELETE_ENTRY);
    }

 private:
    std::optional<Stamp> FileStamp() const {
        return journal == Journal::Rollback ? ReadStamp(database.get()) : std::nullopt;
    }

    bool HasMoved() const {
        int moved = 0;
        sqlite3_file_control(database.get(), nullptr, SQLITE_FCNTL_HAS_MOVED, &moved);
        return moved != 0;
    }

    // After a failure the next write makes sure of the tables again: the file may have been emptied in place.
    template <typename Change>
    bool ChangeEntry(const char* key, const char* name, Change change) {
        if (!writable) return false;
        return writable = InTransaction([&] {
                   const std::string usedKey = UsedKey(key);
                   const std::string usedName = UsedName(usedKey.c_str(), name);
                   return Run(makeKey, {usedKey.c_str()}).IsDone() &&
                          change(usedKey.c_str(), usedName.c_str());
               });
    }

    std::string UsedKey(const char* key) { return IsAscii(key) ? key : Used(findKey, FIND_KEY, {key}, key); }
    std::string UsedName(const char* key, const char* name) {
        return IsAscii(name) ? name : Used(findName, FIND_NAME, {key, name}, name);
    }
    // The spelling that the query finds, else the one that was given.
    std::string Used(Statement& query, const char* sql, std::initializer_list<const char*> texts,
                     const char* given) {
        if (!query.Prepare(database.get(), sql)) return given;
        Run run(query, texts);
        return run.HasRow() ? RowText(run.statement, 0) : given;
    }

    // Takes the write lock at once, so that two writers never wait for each other.
    template <typename Change>
    bool InTransaction(Change change) {
        if (!Execute(database.get(), "BEGIN IMMEDIATE")) return false;
        if (change() && Execute(database.get(), "COMMIT")) return true;
        Execute(database.get(), "ROLLBACK");
        return false;
    }

    const int process = ProcessId();
    const std::string path;
    const Journal journal;
    const bool isUnchanging;
    bool writable = false;
    ReadValues readValues;
    Database database;
    // After the database, so that they go first.
    Statement readEntry;
    Statement makeKey;
    Statement writeEntry;
    Statement deleteEntry;
    Statement findKey;
    Statement findName;
};

ProfileStore::ProfileStore(PathFinder hivePath, Journal hiveJournal)
    : findPath(hivePath), journal(hiveJournal) {}

ProfileStore::~ProfileStore() = default;

std::optional<ProfileStore::Value> ProfileStore::Read(const char* key, const char* name) {
    const std::lock_guard lock(mutex);
    Connection* open = Connect(Access::Read);
    return open != nullptr ? open->Read(key, name) : std::nullopt;
}

std::optional<std::vector<ProfileStore::Entry>> ProfileStore::List() {
    const std::lock_guard lock(mutex);
    if (Connection* open = Connect(Access::Read)) return open->List();
    std::error_code failed;
    const bool isThere = std::filesystem::exists(findPath(), failed) || failed;
    return isThere ? std::nullopt : std::optional(std::vector<Entry>());
}

bool ProfileStore::Write(const char* key, const char* name, const Value& value) {
    const std::lock_guard lock(mutex);
    Connection* open = Connect(Access::Write);
    return open != nullptr && open->Write(key, name, value);
}

bool ProfileStore::Delete(const char* key, const char* name) {
    const std::lock_guard lock(mutex);
    Connection* open = Connect(Access::Write);
    return open != nullptr && open->Delete(key, name);
}

void ProfileStore::Close() {
    const std::lock_guard lock(mutex);
    Drop();
}

void ProfileStore::BeforeFork() {
    mutex.lock();
    Drop();
}

ProfileStore::Connection* ProfileStore::Connect(Access access) {
    const std::string path = findPath();
    if (connection != nullptr && !(connection->IsOurs() && connection->IsAt(path))) Drop();
    if (connection == nullptr && !path.empty()) {
        int flags = SQLITE_OPEN_READWRITE;
        if (access == Access::Write) {
            std::error_code ignored;
            std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
            flags |= SQLITE_OPEN_CREATE;
        }
        Database database = OpenDatabase(path, flags);
        const bool unchanging = database != nullptr && LacksLocks(database.get());
        if (unchanging) database = OpenUnchanging(path);
        if (database != nullptr)
            connection = std::make_unique<Connection>(path, std::move(database), journal, unchanging);
    }
    if (connection != nullptr && access == Access::Write) connection->PrepareWriting();
    return connection.get();
}

// A connection of another process (of a parent that forked without notice) must be neither used nor closed
// here.
void ProfileStore::Drop() {
    if (connection != nullptr && !connection->IsOurs()) static_cast<void>(connection.release());
    connection.reset();
}

}  // namespace tc
