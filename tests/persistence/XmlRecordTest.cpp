#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "sigweave/persistence/TCXML.h"
#include "sigweave/persistence/XmlRecord.h"
#include "tests/support/OwnFolder.h"

namespace {

constexpr const char* PATH = "record.xml";

std::string Content(const char* path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

void Write(const std::string& content) {
    std::ofstream(PATH, std::ios::binary) << content;
}

// What each part holds, followed by what ended the reading: "end" or the error.
std::vector<std::string> ReadParts() {
    tc::XmlRecordReader reader;
    if (!reader.Open(PATH, "Stream")) return {reader.GetError()};
    std::vector<std::string> parts;
    TCXML part;
    int result = 0;
    while ((result = reader.Next(part)) == 1) {
        TCString xml;
        EXPECT_TRUE(part.GetNodeXML(part.GetDocument(), xml));
        parts.emplace_back(xml);
    }
    EXPECT_EQ(result, reader.Next(part)) << "the end stays the end";
    parts.push_back(result == 0 ? "end" : reader.GetError());
    return parts;
}

TEST(XmlRecord, IsAWholeDocumentAfterEachPart) {
    TCXML part, whole;
    tc::XmlRecordWriter writer;
    ASSERT_TRUE(writer.Open(PATH, "Stream")) << writer.GetError();
    EXPECT_TRUE(whole.Load(PATH));
    std::string expected = "<Stream>";
    for (const char* child :
         {"<Block><N>1</N></Block>", "<Block/><Block a=\"2\"/>", "<!--c--><Block>x<y/></Block>"}) {
        ASSERT_TRUE(part.LoadXML(("<Part>" + std::string(child) + "</Part>").c_str()));
        EXPECT_TRUE(writer.Append(part)) << writer.GetError();
        expected += child;
        TCString xml;
        ASSERT_TRUE(whole.Load(PATH) && whole.GetNodeXML(whole.SelectSingleNode("/*"), xml));
        EXPECT_STREQ(xml, (expected + "</Stream>").c_str());
    }
    ASSERT_TRUE(writer.Close() && whole.Load(PATH) && whole.Save("saved.xml"));
    EXPECT_EQ(Content(PATH), Content("saved.xml"));
}

// Whoever began to read sees what is hidden, to its end.
TEST(XmlRecord, KeepsTheRoomWhenItIsReadJustThen) {
    tc::XmlRecordWriter writer;
    ASSERT_TRUE(writer.Open(PATH, "Stream"));
    std::ifstream reader(PATH);
    ASSERT_TRUE(writer.Close());
    TCXML whole;
    EXPECT_TRUE(whole.Load(PATH)) << std::string(whole.GetError());
    EXPECT_TRUE(Content(PATH).ends_with("<?part?>\n"));
}

// As other programs read: page by page, while the file changes.
std::string InPages(const char* path) {
    const int file = open(path, O_RDONLY);
    std::string content;
    char page[4096];
    for (ssize_t count; (count = read(file, page, sizeof page)) > 0;)
        content.append(page, static_cast<std::size_t>(count));
    close(file);
    return content;
}

// The parts grow, so that closing tags come to lie on every place of a page; a reader has several pieces.
void WriteForever() {
    tc::XmlRecordWriter writer;
    TCXML part;
    if (!writer.Open(PATH, "Stream")) return;
    for (std::size_t size = 0;; size = (size + 997) % 60'000)
        if (!part.LoadXML(("<a><Block>" + std::string(size, 'x') + "</Block></a>").c_str()) ||
            !writer.Append(part))
            return;
}

TEST(XmlRecord, IsAWholeDocumentToWhoReadsItMeanwhile) {
    std::filesystem::remove(ProgramFolder() / PATH);
    const pid_t writing = fork();
    if (writing == 0) {
        WriteForever();
        _exit(1);
    }
    int loads = 0, failures = 0, failuresOfOthers = 0;
    std::error_code ignored;
    while (!std::filesystem::exists(PATH, ignored)) continue;
    while (loads < 200 && std::filesystem::file_size(PATH) < 30'000'000) {
        TCXML whole, others;
        failures += whole.Load(PATH) ? 0 : 1;
        for (int i = 0; i < 10; ++i, ++loads)
            failuresOfOthers += others.LoadXML(InPages(PATH).c_str()) ? 0 : 1;
    }
    kill(writing, SIGKILL);
    waitpid(writing, nullptr, 0);
    EXPECT_EQ(failures, 0) << "of " << loads / 10;
    EXPECT_EQ(failuresOfOthers, 0) << "of " << loads;
    RecordProperty("loads", loads);
}

// A kill within a write leaves a part of what was written.
TEST(XmlRecord, IsAWholeDocumentWhenTheWriterIsKilled) {
    TCXML part, whole;
    ASSERT_TRUE(part.LoadXML(("<a><Block>" + std::string(1'000'000, 'x') + "</Block></a>").c_str()));
    for (std::uintmax_t megabytes = 1; megabytes <= 10; ++megabytes) {
        std::filesystem::remove(ProgramFolder() / PATH);
        const pid_t writing = fork();
        if (writing == 0) {
            tc::XmlRecordWriter writer;
            if (writer.Open(PATH, "Stream"))
                while (writer.Append(part)) continue;
            _exit(1);
        }
        std::error_code ignored;
        const auto hasSize = [&] { return std::filesystem::file_size(PATH, ignored); };
        while (hasSize() == static_cast<std::uintmax_t>(-1) || hasSize() < megabytes * 1'000'000) continue;
        kill(writing, SIGKILL);
        waitpid(writing, nullptr, 0);
        EXPECT_TRUE(whole.Load(PATH)) << std::string(whole.GetError());
    }
}

TEST(XmlRecord, TakesThePlaceOfAnEarlierFileThatNobodyWrites) {
    Write("<Stream>earlier</Stream>");
    std::ifstream reader(PATH);
    tc::XmlRecordWriter first, second;
    ASSERT_TRUE(first.Open(PATH, "Stream")) << first.GetError();
    EXPECT_FALSE(second.Open(PATH, "Stream"));
    EXPECT_NE(second.GetError().find("it is being written"), std::string::npos) << second.GetError();
    EXPECT_EQ(ReadParts(), std::vector<std::string>{"end"}) << "the first one's";
    std::string earlier;
    EXPECT_TRUE(std::getline(reader, earlier));
    EXPECT_EQ(earlier, "<Stream>earlier</Stream>") << "who reads the old file keeps it";
}

TEST(XmlRecord, KeepsTheOldFilesModeAndItsContentWhenItFails) {
    namespace fs = std::filesystem;
    Write("<Stream>earlier</Stream>");
    tc::XmlRecordWriter writer;
    fs::permissions(PATH, fs::perms::owner_read);
    EXPECT_TRUE(geteuid() == 0 || !writer.Open(PATH, "Stream"));
    EXPECT_FALSE(writer.Open("record.xml/", "Stream"));
    EXPECT_EQ(Content(PATH), "<Stream>earlier</Stream>");
    fs::permissions(PATH, fs::perms::owner_read | fs::perms::owner_write | fs::perms::others_read);
    // A further name: it is one file, so it is written in its place, and longer than what comes.
    Write("<Stream>" + std::string(300, 'x') + "</Stream>");
    fs::remove(ProgramFolder() / "further.xml");
    fs::create_hard_link(PATH, "further.xml");
    ASSERT_TRUE(writer.Open(PATH, "Stream") && writer.Close()) << writer.GetError();
    EXPECT_EQ(Content("further.xml"), Content(PATH));
    EXPECT_EQ(ReadParts(), std::vector<std::string>{"end"});
    fs::remove(ProgramFolder() / "further.xml");
    ASSERT_TRUE(writer.Open(PATH, "Stream") && writer.Close());
    EXPECT_EQ(fs::status(PATH).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write | fs::perms::others_read);
}

TEST(XmlRecord, RefusesWhatItCannotKeep) {
    TCXML part;
    tc::XmlRecordWriter writer;
    EXPECT_FALSE(writer.Append(part)) << "nothing is open";
    EXPECT_FALSE(writer.Open(PATH, "two words"));
    EXPECT_FALSE(writer.Open("no\\such\\folder.xml", "Stream"));
    EXPECT_NE(writer.GetError().find("no\\such\\folder.xml"), std::string::npos);
    ASSERT_TRUE(writer.Open(PATH, "Stream"));
    for (const char* text : {"<a>text</a>", "<a xmlns:p='u'><p:b/></a>"}) {
        ASSERT_TRUE(part.LoadXML(text));
        EXPECT_FALSE(writer.Append(part)) << text;
    }
    EXPECT_EQ(ReadParts(), std::vector<std::string>{"end"});
}

TEST(XmlRecord, ReadsOnePartAtATime) {
    Write("<!--h--><Stream v='1' xmlns:p='u'>\n <Block><N> 1 </N></Block> <?pi?>text<p:Block/></Stream>");
    EXPECT_EQ(ReadParts(),
              (std::vector<std::string>{"<Stream xmlns:p=\"u\" v=\"1\"><Block><N> 1 </N></Block></Stream>",
                                        "<Stream xmlns:p=\"u\" v=\"1\"><p:Block/></Stream>", "end"}));
}

TEST(XmlRecord, GivesPartsThatOutliveTheReader) {
    Write("<Stream><Block xml:space='preserve'> <N/></Block><Block/></Stream>");
    TCXML part;
    {
        tc::XmlRecordReader reader;
        ASSERT_TRUE(reader.Open(PATH, "Stream") && reader.Next(part) == 1);
    }
    TCString xml;
    EXPECT_TRUE(part.GetNodeXML(part.GetDocument(), xml));
    EXPECT_STREQ(xml, "<Stream><Block xml:space=\"preserve\"> <N/></Block></Stream>");
    tc::XmlRecordReader reader;
    EXPECT_FALSE(reader.Open(".", "Stream"));
    EXPECT_NE(reader.GetError().find("could not be loaded"), std::string::npos) << reader.GetError();
}

TEST(XmlRecord, GivesThePartsBeforeTheDamage) {
    const std::string whole = "<Stream><Block><N>1</N></Block></Stream>";
    for (std::size_t size = 0; size < whole.size(); ++size) {
        Write(whole.substr(0, size));
        const auto parts = ReadParts();
        EXPECT_EQ(parts.size(), size < whole.size() - 9 ? 1u : 2u) << size;
        EXPECT_NE(parts.back(), "end") << size;
        EXPECT_NE(parts.back(), "") << size;
    }
    Write("<Streams/>");
    EXPECT_NE(ReadParts().back().find("'Streams'"), std::string::npos);
    std::filesystem::remove(ProgramFolder() / PATH);
    EXPECT_EQ(ReadParts().size(), 1u);
}

TEST(XmlRecord, ReadsAShortDocumentInUtf16) {
    std::string utf16 = "\xFF\xFE";
    for (const char letter : std::string("<Stream><Block/><Block>x</Block></Stream>"))
        utf16.append({letter, '\0'});
    Write(utf16);
    const std::vector<std::string> parts = ReadParts();
    ASSERT_EQ(parts.size(), 3u) << parts.front();
    EXPECT_EQ(parts[1], "<Stream><Block>x</Block></Stream>");
    EXPECT_EQ(parts[2], "end");
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool HOLDS_FREED_MEMORY = true;
#else
constexpr bool HOLDS_FREED_MEMORY = false;
#endif

TEST(XmlRecord, KeepsMemoryFlat) {
    if (HOLDS_FREED_MEMORY) GTEST_SKIP() << "the sanitizer keeps what is released";
    const std::string text(100'000, 'x');
    TCXML part;
    tc::XmlRecordWriter writer;
    ASSERT_TRUE(part.LoadXML(("<a><Block>" + text + "</Block></a>").c_str()) && writer.Open(PATH, "Stream"));
    for (int i = 0; i < 300; ++i) ASSERT_TRUE(writer.Append(part));
    ASSERT_TRUE(writer.Close());

    const auto resident = [] {
        long pages = 0, used = 0;
        std::ifstream("/proc/self/statm") >> pages >> used;
        return used * 4096;
    };
    const long before = resident();
    tc::XmlRecordReader reader;
    ASSERT_TRUE(reader.Open(PATH, "Stream"));
    int count = 0;
    for (; reader.Next(part) == 1; ++count) EXPECT_LT(resident() - before, 4'000'000) << count;
    EXPECT_EQ(count, 300);
}

}  // namespace
