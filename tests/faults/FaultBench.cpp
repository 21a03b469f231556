#include "tests/faults/FaultBench.h"

#include <sqlite3.h>

std::string CheckDatabase(const char* path) {
    sqlite3* database = nullptr;
    std::string answer;
    const auto take = [](void* text, int, char** values, char**) {
        static_cast<std::string*>(text)->append(values[0]);
        return 0;
    };
    sqlite3_open(path, &database);
    sqlite3_busy_timeout(database, 10'000);
    if (sqlite3_exec(database, "PRAGMA integrity_check", take, &answer, nullptr) != SQLITE_OK)
        answer = sqlite3_errmsg(database);
    sqlite3_close(database);
    return answer;
}
