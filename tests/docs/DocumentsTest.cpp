#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "sigweave/sigweave.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;

const fs::path ROOT = SIGWEAVE_ROOT;

std::vector<fs::path> Documents() {
    std::vector<fs::path> found = {ROOT / "README.md", ROOT / "CONTRIBUTING.md"};
    for (const auto& entry : fs::directory_iterator(ROOT / "docs"))
        if (entry.path().extension() == ".md") found.push_back(entry.path());
    return found;
}

// Without the indentation, which a document may change.
std::vector<std::string> ReadLines(const fs::path& path) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        const std::size_t begin = line.find_first_not_of(" \t");
        lines.push_back(begin != line.npos ? line.substr(begin) : "");
    }
    return lines;
}

// "```language file" opens a fragment that is in that file.
TEST(Documents, QuoteFilesOfTheTree) {
    int fragments = 0;
    for (const fs::path& document : Documents()) {
        const std::vector<std::string> lines = ReadLines(document);
        for (auto at = lines.begin(); at != lines.end(); ++at) {
            if (!at->starts_with("```")) continue;
            const std::string place = document.filename().string() + ": " + *at;
            std::smatch parts;
            ASSERT_TRUE(std::regex_match(*at, parts, std::regex("```\\w+ (\\S+)"))) << place << ": no file";
            const auto end = std::find(at + 1, lines.end(), "```");
            ASSERT_NE(end, lines.end()) << place;
            const std::vector<std::string> quoted = ReadLines(ROOT / parts[1].str());
            EXPECT_NE(std::search(quoted.begin(), quoted.end(), at + 1, end), quoted.end()) << place;
            at = end;
            ++fragments;
        }
    }
    EXPECT_GT(fragments, 10);
}

TEST(Documents, LinkToWhatIsThere) {
    const std::regex link("\\]\\(([^)#:]+)(#[^)]*)?\\)");
    for (const fs::path& document : Documents())
        for (const std::string& line : ReadLines(document))
            for (std::sregex_iterator at(line.begin(), line.end(), link), end; at != end; ++at)
                EXPECT_TRUE(fs::exists(document.parent_path() / (*at)[1].str()))
                    << document.filename() << ": " << (*at)[1];
}

TEST(Documents, ShowARecordingAsItIs) {
    tc::StreamRecordReader reader;
    ASSERT_TRUE(reader.Open((ROOT / "examples/volts.xml").c_str())) << reader.GetError();
    ASSERT_EQ(reader.Next(), 1) << reader.GetError();
    const TCIOStream::DataSegment& segment = *reader.GetBlock().Segment(0);
    EXPECT_THAT(std::vector<double>(segment.GetDoubles(), segment.GetDoubles() + segment.GetElementCount()),
                ElementsAre(0.0, 0.5, std::numeric_limits<double>::infinity()));
    EXPECT_EQ(reader.GetBlock().GetTI()->GetTimestamp(), 1772366400000.0);  // 2026-03-01 12:00 UTC
    TCString unit;
    EXPECT_STREQ(reader.GetBlock().GetTI()->GetUnit().ToString(unit), "V * 1e-003");
}

}  // namespace
