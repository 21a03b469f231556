#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "sigweave/services/SystemTime.h"
#include "sigweave/services/TCLogFile.h"
#include "tests/support/OwnFolder.h"

namespace fs = std::filesystem;

namespace {

constexpr unsigned long ALL = 0xFFFFFFFF;

class LogFile : public testing::Test {
 protected:
    LogFile() : own(MakeOwnFolder()), folder(own->Path()) {}

    std::string File(const std::string& name = "a.log") const { return (folder / name).string(); }
    bool Open(TCLogFile& log, const std::string& name = "a.log", int splitSizeKB = 0) const {
        return log.Open(ALL, ALL, File(name).c_str(), false, false, splitSizeKB);
    }
    std::string Content(const std::string& name = "a.log") const {
        std::ifstream stream(File(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    // The lines of a file without their time stamps and thread numbers.
    std::vector<std::string> Lines(const std::string& name = "a.log") const {
        static const std::regex HEAD(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6,7}, [ \d]{5,}, (.*))");
        std::vector<std::string> lines;
        const std::string content = Content(name);
        for (std::size_t at = 0; at < content.size();) {
            const std::size_t end = content.find("\r\n", at);
            const std::string line = content.substr(at, end - at);
            std::smatch parts;
            lines.push_back(std::regex_match(line, parts, HEAD) ? parts[1].str() : "torn: " + line);
            at = end == std::string::npos ? content.size() : end + 2;
        }
        return lines;
    }
    std::vector<fs::path> Files() const { return {fs::directory_iterator(folder), fs::directory_iterator()}; }

    std::unique_ptr<tc::OwnedFolder> own;
    fs::path folder;
};

TEST_F(LogFile, WritesItsLines) {
    TCLogFile log;
    const double before = TCSystemTime() / 1000;
    EXPECT_FALSE(log.Log(0, TCLogFile::NOTICE, "early", "closed"));
    ASSERT_TRUE(log.Open(1, 0x7F, File().c_str(), true, false, 0));
    EXPECT_TRUE(log.Log(1, TCLogFile::ERROR, "Filter", "a\tb\r\n%s %d %5.2f", "text", -3, 1.5));
    EXPECT_TRUE(log.Log(0, TCLogFile::DATA, "Filter", nullptr));
    EXPECT_TRUE(log.Log(0, TCLogFile::CRITICAL, nullptr, ""));
    EXPECT_TRUE(log.Log(0, static_cast<TCLogFile::LOG_LEVEL>(3), "two levels", "x"));
    EXPECT_TRUE(log.Log(0, TCLogFile::WARNING, "Filter", "at %lpPtr, %lpPtr of %d",
                        reinterpret_cast<void*>(0x1f2aL), reinterpret_cast<void*>(0x7f0012345678L), 9));
    EXPECT_TRUE(log.Log(0, TCLogFile::WARNING, "Filter", "%d%%%%lpPtr", 7, 0x1f, 0x2a));
    EXPECT_TRUE(log.Close());
    EXPECT_FALSE(log.IsLogEnabled(0, TCLogFile::NOTICE));
    EXPECT_FALSE(log.Log(0, TCLogFile::NOTICE, "late", "closed"));
    const std::vector<std::string> expected = {
        "Logging, Trace    , TCLogFile::Open, logType= 1, logLevel= 127, logFlush= 1, logAppend= 0, "
        "logFileName is '" +
            File() + "'",
        ", Error    , Filter, a<\\t>b<\\r><\\n>text -3  1.50",
        "Logging, Data     , Filter",
        "Logging, Critical , ",
        "Logging,          , two levels, x",
        "Logging, Warning  , Filter, at 0x00001f2a, 0x12345678 of 9",
        "Logging, Warning  , Filter, 7%1f0000002a",
        "Logging, Trace    , TCLogFile::Close"};
    EXPECT_EQ(Lines(), expected);
    std::tm day{};
    int microseconds = 0, thread = 0;
    ASSERT_EQ(std::sscanf(Content().c_str(), "%d-%d-%d %d:%d:%d.%d, %d, ", &day.tm_year, &day.tm_mon,
                          &day.tm_mday, &day.tm_hour, &day.tm_min, &day.tm_sec, &microseconds, &thread),
              8);
    EXPECT_EQ(thread, gettid());
    day.tm_year -= 1900;
    --day.tm_mon;
    const double stamp = static_cast<double>(timegm(&day)) + microseconds * 1e-6;
    EXPECT_GE(stamp, before - 1e-6);
    EXPECT_LE(stamp, TCSystemTime() / 1000 + 1e-6);
}

TEST_F(LogFile, FiltersByTypeAndLevel) {
    TCLogFile log;
    EXPECT_FALSE(log.IsLogEnabled(0, TCLogFile::ERROR));
    ASSERT_TRUE(log.Open(1, TCLogFile::ERROR | TCLogFile::DATA, File().c_str(), false, false, 0));
    struct Row {
        unsigned long type;
        TCLogFile::LOG_LEVEL level;
        bool written;
    };
    for (const Row& row :
         {Row{1, TCLogFile::ERROR, true}, Row{2, TCLogFile::ERROR, false}, Row{3, TCLogFile::DATA, true},
          Row{0, TCLogFile::ERROR, true}, Row{0, TCLogFile::TRACE, false}, Row{1, TCLogFile::TRACE, false},
          Row{1UL << 32, TCLogFile::ERROR, false}}) {
        EXPECT_EQ(log.IsLogEnabled(row.type, row.level), row.written) << row.type << " " << row.level;
        EXPECT_EQ(log.Log(row.type, row.level, "s", "t"), row.written);
        EXPECT_EQ(log.LogBinary(row.type, row.level, "s", "t>", 0, nullptr), row.written);
    }
    log.Close();
    EXPECT_EQ(Lines().size(), 6u - 3u + 6u) << "a binary entry has an empty line after it";
}

TEST_F(LogFile, NamesTypesInAColumn) {
    TCLogFile log;
    Open(log);
    const char* names[] = {"Input", nullptr, "Calculation"};
    log.SetLogTypeNames(names, 3);
    log.SetLogTypeNames(nullptr, 3);
    EXPECT_TRUE(log.AddLogTypeName(8 + 3, "Out"));
    EXPECT_TRUE(log.AddLogTypeName(8, "Output")) << "begins with the name that is there";
    EXPECT_FALSE(log.AddLogTypeName(4, "Calculus"));
    EXPECT_TRUE(log.AddLogTypeName(0, "Input")) << "type 0 means the first slot";
    EXPECT_FALSE(log.AddLogTypeName(1UL << 32, "Logging")) << "the general name is no slot";
    EXPECT_TRUE(log.AddLogTypeName(1UL << 31, "Last"));
    for (const unsigned long type : {0UL, 1UL, 2UL, 7UL, 15UL, 1UL << 31, (1UL << 32) + 1})
        log.Log(type, TCLogFile::DATA, "s", nullptr);
    std::vector<std::string> lines = Lines();
    lines.erase(lines.begin());
    const std::vector<std::string> expected = {
        "Logging    , Data     , s",     "Input      , Data     , s", ", Data     , s",
        "Calculation, Data     , s",     "Out        , Data     , s", "Last       , Data     , s",
        "Unknown log type, Data     , s"};
    EXPECT_EQ(lines, expected);
    const std::vector<const char*> tooMany(33, "x");
    log.SetLogTypeNames(const_cast<const char**>(tooMany.data()), 33);
    log.Log(0, TCLogFile::DATA, "s", nullptr);
    EXPECT_EQ(Lines().back(), "Logging    , Data     , s") << "the general name is no slot";
}

TEST_F(LogFile, ExpandsItsName) {
    for (const char* ending : {"/", "\\"}) {
        TCLogFile log;
        std::string pattern = folder.string() + ending;
        std::replace(pattern.begin(), pattern.end(), '/', *ending);
        ASSERT_TRUE(log.Open(1, 0x7F, pattern.c_str(), false, false, 0));
        ASSERT_EQ(Files().size(), 1u);
        const std::string name = Files()[0].filename().string();
        const std::regex form(R"(TCLogFile_\d{4}-\d\d-\d\d_\d\d-\d\d-\d\d\.\d{6,7}\.txt)");
        EXPECT_TRUE(std::regex_match(name, form)) << name;
        const std::string first = Lines(name)[0];
        EXPECT_NE(first.find("%Us.txt', converted to '" + pattern + name + "'"), std::string::npos) << first;
        log.Close();
        fs::remove(File(name));
    }
}

TEST_F(LogFile, ChangesSettingsAndFilesWhileOpen) {
    TCLogFile log;
    Open(log);
    log.Open(ALL, TCLogFile::TRACE, File().c_str(), false, false, 0);
    EXPECT_FALSE(log.Log(0, TCLogFile::ERROR, "s", "no longer"));
    Open(log, "b.log");
    EXPECT_EQ(Lines().size(), 3u);
    EXPECT_EQ(Lines().back(), "Logging, Trace    , TCLogFile::Close");
    log.Close();
    log.Open(ALL, ALL, File().c_str(), false, true, 0);
    EXPECT_EQ(Lines().size(), 4u) << "appended";
    log.Close();
    Open(log);
    EXPECT_EQ(Lines().size(), 1u) << "begun anew";
}

TEST_F(LogFile, WritesBytesAsTheyAre) {
    TCLogFile log;
    Open(log);
    EXPECT_TRUE(log.LogBinary(0, TCLogFile::DATA, "Port", "%d\trx>", 3, "\x41\x0D\x42"));
    EXPECT_TRUE(log.LogBinary(0, TCLogFile::DATA, "Port", ">", 5, nullptr));
    const std::string before = Content();
    const std::string first = ", Logging, Data     , Port, %d\trx:3>\r\n\x41\x0D\x42\r\n";
    EXPECT_NE(before.find(first), std::string::npos);
    EXPECT_TRUE(before.ends_with(", Port, :5>\r\n\r\n"));
    for (const char* refused : {"rx", "", "> "})
        EXPECT_FALSE(log.LogBinary(0, TCLogFile::DATA, "s", refused, 1, "x"));
    EXPECT_FALSE(log.LogBinary(0, TCLogFile::DATA, "s", nullptr, 1, "x"));
    EXPECT_EQ(Content(), before);
}

TEST_F(LogFile, SplitsWhereTheLimitIsReached) {
    TCLogFile log;
    ASSERT_TRUE(Open(log, "%Us.log", 1));
    const std::string first = Files()[0].filename().string();
    while (Files().size() == 1)
        ASSERT_TRUE(log.Log(0, TCLogFile::NOTICE, "s", "%s", std::string(60, 'x').c_str()));
    const std::string second = (Files()[0].filename() == first ? Files()[1] : Files()[0]).filename().string();
    const std::vector<std::string> lines = Lines(first);
    EXPECT_EQ(lines.back(),
              "Logging, Trace    , TCLogFile::CheckSplitLogFile, Splitting logfile, next file is '" +
                  File(second) + "'");
    EXPECT_EQ(Lines(second), std::vector<std::string>({"Logging, Trace    , TCLogFile::CheckSplitLogFile, "
                                                       "Splitted logfile, last file was '" +
                                                       File(first) + "'"}));
    const std::size_t ending = Content(first).rfind("\r\n", Content(first).size() - 3) + 2;
    EXPECT_GE(ending, 1024u);
    EXPECT_LT(ending, 1024u + 150u) << "the line that reaches the limit splits";
}

TEST_F(LogFile, NeverSplitsAtSizesThatOverflow) {
    for (const int size : {0, -1, 2097152, 4194304, 2097153}) {
        TCLogFile log;
        ASSERT_TRUE(Open(log, "%Us.log", size));
        for (int i = 0; i < 40; ++i) log.Log(0, TCLogFile::NOTICE, "s", "%s", std::string(100, 'x').c_str());
        EXPECT_EQ(Files().size(), 1u) << size;
        log.Close();
        fs::remove(Files()[0]);
    }
    TCLogFile log;
    Open(log, "%Us.log", 4194305);  // wraps to 1 KB
    for (int i = 0; i < 9; ++i) log.Log(0, TCLogFile::NOTICE, "s", "%s", std::string(100, 'x').c_str());
    EXPECT_EQ(Files().size(), 2u);
}

TEST_F(LogFile, SharesItsFileWithCopies) {
    TCLogFile log;
    Open(log);
    TCLogFile copy(log);
    TCLogFile assigned;
    assigned = copy;
    assigned = *&assigned;
    EXPECT_TRUE(log.Log(0, TCLogFile::NOTICE, "log", "1"));
    EXPECT_TRUE(log.Close());
    EXPECT_TRUE(copy.Log(0, TCLogFile::NOTICE, "copy", "2"));
    EXPECT_TRUE(copy.Close());
    EXPECT_TRUE(assigned.Log(0, TCLogFile::NOTICE, "assigned", "3"));
    TCLogFile stranger;
    EXPECT_FALSE(Open(stranger)) << "somebody writes it";
    EXPECT_TRUE(assigned.Close());
    EXPECT_EQ(Lines().size(), 1u + 3u + 3u);
    EXPECT_TRUE(Open(stranger));
}

TEST_F(LogFile, SplitsIntoTheFileThatCopiesWrite) {
    TCLogFile log;
    ASSERT_TRUE(Open(log, "a.log", 1));
    TCLogFile copy(log);
    for (int i = 0; i < 60; ++i) {
        ASSERT_TRUE(log.Log(0, TCLogFile::NOTICE, "log", "%d %s", i, std::string(50, 'x').c_str()));
        ASSERT_TRUE(copy.Log(0, TCLogFile::NOTICE, "copy", "%d", i));
    }
    EXPECT_LT(Content().size(), 2500u) << "begun anew";
    for (const std::string& line : Lines()) EXPECT_FALSE(line.starts_with("torn")) << line;
}

TEST_F(LogFile, TellsADerivedClassWhetherItIsOpen) {
    class Steps : public TCLogFile {
     public:
        using TCLogFile::CloseFile;
        using TCLogFile::OpenFile;
    };
    Steps log;
    ASSERT_TRUE(Open(log));
    EXPECT_TRUE(log.CloseFile());
    EXPECT_FALSE(log.IsLogEnabled(0, TCLogFile::NOTICE));
    log.Close();
    EXPECT_TRUE(log.OpenFile(File().c_str()));
    EXPECT_TRUE(log.Log(0, TCLogFile::NOTICE, "s", "t"));
}

TEST_F(LogFile, RefusesFilesThatCannotBe) {
    fs::create_directory(File("folder"));
    for (const std::string& name : {File("missing/a.log"), File("folder"), std::string("/proc/a.log"),
                                    File(std::string(300, 'x')), File(std::string(10000, 'x'))}) {
        TCLogFile log;
        EXPECT_FALSE(log.Open(ALL, ALL, name.c_str(), false, false, 0)) << name;
        EXPECT_FALSE(log.Log(0, TCLogFile::NOTICE, "s", "t"));
        EXPECT_TRUE(log.Close());
    }
}

TEST_F(LogFile, TellsWhatAFullDiskDoesNotTake) {
    TCLogFile log;
    ASSERT_TRUE(log.Open(ALL, ALL, "/dev/full", true, true, 0));
    EXPECT_FALSE(log.Log(0, TCLogFile::NOTICE, "s", "t"));
    EXPECT_FALSE(log.LogBinary(0, TCLogFile::NOTICE, "s", "t>", 1, "x"));
    TCLogFile splitting;
    fs::create_directory(File("gone"));
    ASSERT_TRUE(Open(splitting, "gone/%Us.log", 1));
    fs::rename(File("gone"), File("another name"));
    while (splitting.Log(0, TCLogFile::NOTICE, "s", "until the split fails")) continue;
    EXPECT_FALSE(splitting.IsLogEnabled(0, TCLogFile::NOTICE));
}

// Ten threads; each file's lines are whole, and each thread's are all there in their order.
class LogThreads : public LogFile {
 protected:
    static constexpr int THREADS = 10;
    static constexpr int LINES = 2000;

    static void LogMany(TCLogFile& log) {
        std::vector<std::thread> threads;
        for (int thread = 0; thread < THREADS; ++thread) {
            threads.emplace_back([&log, thread] {
                for (int i = 0; i < LINES; ++i)
                    EXPECT_TRUE(
                        log.Log(1, TCLogFile::DATA, "s", "thread %d line %d of %s", thread, i, "many"));
            });
        }
        for (std::thread& thread : threads) thread.join();
    }
    void ExpectAll() const {
        std::map<std::string, int> seen;
        for (const fs::path& file : Files())
            for (const std::string& line : Lines(file.filename().string())) ++seen[line];
        for (int i = 0; i < THREADS * LINES; ++i) {
            const std::string text =
                "thread " + std::to_string(i / LINES) + " line " + std::to_string(i % LINES);
            ASSERT_EQ(seen[", Data     , s, " + text + " of many"], 1) << text;
        }
        for (const auto& [line, count] : seen) ASSERT_FALSE(line.starts_with("torn")) << line;
    }
};

TEST_F(LogThreads, LoseNothing) {
    TCLogFile log;
    Open(log);
    LogMany(log);
    ExpectAll();
}

TEST_F(LogThreads, LoseNothingWhenTheFileIsSplit) {
    TCLogFile log;
    Open(log, "%Us.log", 256);
    LogMany(log);
    EXPECT_GT(Files().size(), 4u);
    ExpectAll();
}

TEST_F(LogThreads, LoseNothingWithCopies) {
    TCLogFile log;
    Open(log);
    TCLogFile copy(log);
    std::thread other([&copy] {
        for (int i = 0; i < LINES; ++i) copy.LogBinary(0, TCLogFile::DATA, "s", "copy>", 4, "abcd");
    });
    LogMany(log);
    other.join();
    const std::string content = Content();
    int blocks = 0;
    for (std::size_t at = 0; (at = content.find("copy:4>\r\nabcd\r\n", at)) != std::string::npos; ++at)
        ++blocks;
    EXPECT_EQ(blocks, LINES);
}

TEST_F(LogFile, TakesAFileOfItsOwnInAFolderAtTheSameTime) {
    std::vector<TCLogFile> logs(8);
    std::vector<std::thread> threads;
    std::atomic<int> refused = 0;
    for (TCLogFile& log : logs)
        threads.emplace_back([&] {
            for (int i = 0; i < 100; ++i) {
                refused += !log.Open(ALL, ALL, (folder.string() + "/").c_str(), false, false, 0);
                log.Close();
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(refused, 0);
    EXPECT_FALSE(Open(logs[0]) && Open(logs[1])) << "a name without the time stays refused";
}

// The child's own log calls, and the parent's after it.
TEST_F(LogThreads, GoOnAfterAFork) {
    TCLogFile log;
    Open(log);
    std::vector<pid_t> children;
    std::thread forking([&] {
        for (int i = 0; i < 30; ++i) {
            const pid_t child = fork();
            if (child == 0) {
                alarm(20);
                const bool done = log.Log(0, TCLogFile::NOTICE, "child", "%d", i) && log.Close();
                std::_Exit(done ? 0 : 1);
            }
            children.push_back(child);
        }
    });
    LogMany(log);
    forking.join();
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    ExpectAll();
    TCLogFile stranger;
    EXPECT_FALSE(Open(stranger)) << "a child that closes leaves the file to the parent";
}

TEST_F(LogFile, IsFreeWhenItsProcessClosesIt) {
    TCLogFile log;
    Open(log);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        close(ends[1]);
        char word = 0;
        std::_Exit(read(ends[0], &word, 1) == 0 ? 0 : 1);
    }
    close(ends[0]);
    log.Close();
    EXPECT_TRUE(Open(log)) << "though a child has it open";
    close(ends[1]);
    waitpid(child, nullptr, 0);
}

}  // namespace
