#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

// Internal.
namespace tc {

// One hive of the settings profile: keys that hold named values, in one SQLite database. Keys and names
// compare without case, by Unicode. Every write is a transaction of its own, on the disk when it returns;
// several processes and threads may use a hive at once, and a crash loses no more than the write in progress.
//
// The connection is kept between calls, but never across a fork: call `BeforeFork` and `AfterFork` around it.
// It is made anew when the path of the hive changes, and when the file is removed or replaced. Reading makes
// no file. A hive with a rollback journal remembers what it read until the file's header shows a change by
// anyone; a value that was complete when reading began is never missed.
//
// A hive that may be read is read, also where nothing may be written next to it. Failures are silent: nothing
// is read, nothing is written.
class ProfileStore {
 public:
    using Value = std::variant<std::int32_t, std::string>;
    // A key without entries has one without name and value.
    struct Entry {
        std::string key;
        std::string name;
        std::optional<Value> value;
    };
    // How writes become durable. WriteAhead is faster; Rollback lets those read who may not write in the
    // folder.
    enum class Journal { WriteAhead, Rollback };
    // The hive's file; empty when there is none.
    using PathFinder = std::string (*)();

    ProfileStore(PathFinder hivePath, Journal hiveJournal);
    ~ProfileStore();

    std::optional<Value> Read(const char* key, const char* name);
    // Everything, ordered by key and name; missing when there is a file that is no hive or may not be read.
    std::optional<std::vector<Entry>> List();
    // Makes the key when there is none. Whether it is on the disk.
    bool Write(const char* key, const char* name, const Value& value);
    // Leaves the key, and makes it when there is none. Whether that is on the disk.
    bool Delete(const char* key, const char* name);
    void Close();

    // In the parent before the fork, and after it on both sides. The store is locked in between.
    void BeforeFork();
    void AfterFork() { mutex.unlock(); }

 private:
    class Connection;
    enum class Access { Read, Write };

    Connection* Connect(Access access);
    void Drop();

    PathFinder findPath;
    Journal journal;
    std::mutex mutex;
    std::unique_ptr<Connection> connection;
};

}  // namespace tc
