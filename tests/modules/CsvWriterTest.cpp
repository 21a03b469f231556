#include <gmock/gmock.h>

#include <bit>
#include <charconv>
#include <clocale>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <sstream>

#include "tests/support/ModuleBench.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;

struct CsvWriter : testing::Test {
    bool Open(const std::string& path, int inputs = 1, const std::string& more = "") {
        bench.WireInputs(
            std::vector<const char*>(static_cast<std::size_t>(inputs), ModuleBench::TIME_DOMAIN));
        return bench.Set("file=\"" + path + "\"\n" + more) && bench.Start();
    }
    ModuleBench bench{"csv-writer", "CsvWriter"};
};

TEST_F(CsvWriter, HeadersAndRowsOfSignalsOfDifferentLength) {
    const std::string path = FreshFile("table.csv");
    ASSERT_TRUE(Open(path, 3)) << bench.Error();
    ASSERT_TRUE(bench.Feed(2, {7.0, 8.0, 9.0, 1e300}, {"say \"a, b\"", 8000.5, "V * 1e-003"}, 1));
    ASSERT_TRUE(bench.Feed(0, {0.1, -2.5}, {"x", 100.0}, 1));
    EXPECT_FALSE(std::filesystem::exists(path));
    ASSERT_TRUE(bench.Finish()) << bench.Error();
    EXPECT_EQ(ReadText(path),
              "x,Signal 2,\"say \"\"a, b\"\"\"\n,,mV\n100,,8000.5\n"
              "0.1,,7\n-2.5,,8\n,,9\n,,1e+300\n");
    EXPECT_FALSE(std::filesystem::exists(path + ".part"));
}

// Two signals one after the other; the second column is shorter.
TEST_F(CsvWriter, CountsTheTimeFromWhereTheFirstSignalBegins) {
    const std::string path = FreshFile("time.csv");
    ASSERT_TRUE(Open(path, 2)) << bench.Error();
    ASSERT_TRUE(bench.Feed(0, {1.0, 2.0, 3.0}, {"x", 8.0, "V"}) &&
                bench.Feed(0, {4.0, 5.0}, {"x", 8.0, "V"}));
    ASSERT_TRUE(bench.Feed(1, {9.0}, {"y", 8.0}, 1, true, false) &&
                bench.Feed(1, {8.0}, {"y", 8.0}, 1, false, true) && bench.Finish());
    EXPECT_EQ(ReadText(path), "time,x,y\ns,V,\nsamplerate,8,8\n0,1,9\n0.125,2,8\n0.25,3,\n0,4,\n0.125,5,\n");
}

// The rate of a spectrum counts its values for each hertz.
TEST_F(CsvWriter, CallsTheBinSpacingOfASpectrumByItsName) {
    const std::string path = FreshFile("spectrum.csv");
    bench.WireInputs({ModuleBench::FREQ_DOMAIN});
    ASSERT_TRUE(bench.Set("file=\"" + path + "\"") && bench.Run({7.0, 8.0, 9.0}, {"s", 0.125, "V"}));
    EXPECT_EQ(ReadText(path), "frequency,s\nHz,V\nbin spacing,8\n0,7\n8,8\n16,9\n");
    const std::string plain = FreshFile("plain.csv");
    ASSERT_TRUE(bench.Set("time=no\nfile=\"" + plain + "\"") && bench.Run({7.0}, {"s", 0.125, "V"}));
    EXPECT_EQ(ReadText(plain), "s\nV\n8\n7\n");
    const std::string slices = FreshFile("slices.csv");
    ASSERT_TRUE(bench.Set("file=\"" + slices + "\"") && bench.Start() &&
                bench.Feed(0, {7.0, 8.0, 9.0, 4.0, 5.0, 6.0}, {"s", 0.125, "V"}, 3) && bench.Finish());
    EXPECT_THAT(ReadText(slices), testing::EndsWith("\n0,7\n8,8\n16,9\n0,4\n8,5\n16,6\n"));
}

TEST_F(CsvWriter, HasNoTimeWhereSignalsDiffer) {
    const std::string path = FreshFile("differ.csv");
    bench.WireInputs({ModuleBench::TIME_DOMAIN, ModuleBench::FREQ_DOMAIN});
    ASSERT_TRUE(bench.Set("file=\"" + path + "\"") && bench.Start() && bench.Feed(0, {1.0}, {"x", 8.0}) &&
                bench.Feed(1, {2.0}, {"s", 8.0}) && bench.Finish());
    EXPECT_EQ(ReadText(path), "x,s\n,\n8,0.125\n1,2\n");
}

TEST_F(CsvWriter, KeepsFilesThatOthersMade) {
    using std::filesystem::perms;
    const std::string path = FreshFile("shared.csv");
    std::ofstream(path + ".part") << "precious";
    std::ofstream(path) << "old";
    std::filesystem::permissions(path, perms::owner_read | perms::owner_write);
    ASSERT_TRUE(Open(path, 1, "overwrite=yes"));
    ModuleBench second("csv-writer", "CsvWriter");
    second.WireInputs({ModuleBench::TIME_DOMAIN});
    EXPECT_FALSE(second.Set("overwrite=yes\nfile=\"" + path + "\"") && second.Start());
    EXPECT_THAT(second.Error(), HasSubstr("is being written by another module or program"));
    ASSERT_TRUE(bench.Feed(0, {1.0}, {"x", 1.0}) && bench.Finish()) << bench.Error();
    EXPECT_EQ(ReadText(path), "time,x\ns,\nsamplerate,1\n0,1\n");
    EXPECT_EQ(ReadText(path + ".part"), "precious");
    EXPECT_FALSE(std::filesystem::exists(path + ".part2"));
    EXPECT_EQ(std::filesystem::status(path).permissions(), perms::owner_read | perms::owner_write);
}

// Where there is no such file yet, neither when the first one begins nor when the second one does.
TEST_F(CsvWriter, IsRefusedWhatAnotherOneBegan) {
    const std::string path = FreshFile("new.csv");
    ASSERT_TRUE(Open(path));
    ModuleBench second("csv-writer", "CsvWriter");
    second.WireInputs({ModuleBench::TIME_DOMAIN});
    EXPECT_FALSE(second.Set("file=\"" + path + "\"") && second.Start());
    ASSERT_TRUE(bench.Feed(0, {1.0}, {"x", 1.0}));
    std::ofstream(path) << "made meanwhile";
    EXPECT_FALSE(bench.Finish());
    EXPECT_THAT(bench.Error(), HasSubstr("overwrite=yes"));
    EXPECT_EQ(ReadText(path), "made meanwhile");
    EXPECT_EQ(ReadText(path + ".part"), "time,x\ns,\nsamplerate,1\n0,1\n");
}

TEST_F(CsvWriter, ReadsBackBitForBitInEveryLocale) {
    std::setlocale(LC_ALL, "de_DE.UTF-8");
    std::mt19937_64 random(5);
    std::vector<double> values = {0.1, -0.0, 5e-324, 1.7976931348623157e308,
                                  std::numeric_limits<double>::infinity()};
    for (int i = 0; i < 5000; ++i)
        values.push_back(std::bit_cast<double>(random() & 0x800FFFFFFFFFFFFF) * 1e300);
    const std::string path = FreshFile("exact.csv");
    ASSERT_TRUE(Open(path, 1, "time=no") && bench.Feed(0, values) && bench.Finish()) << bench.Error();
    std::setlocale(LC_ALL, "C.UTF-8");
    std::istringstream lines(ReadText(path));
    std::string line;
    for (int i = 0; i < 3; ++i) std::getline(lines, line);
    for (const double value : values) {
        ASSERT_TRUE(std::getline(lines, line));
        double read = 0.0;
        std::from_chars(line.data(), line.data() + line.size(), read);
        ASSERT_EQ(std::bit_cast<std::uint64_t>(read), std::bit_cast<std::uint64_t>(value)) << line;
    }
    EXPECT_FALSE(std::getline(lines, line));
}

// The first signal is read whole before the second one begins: most of it must wait outside the memory.
TEST_F(CsvWriter, JoinsSignalsThatArriveOneAfterTheOther) {
    std::vector<double> first(200000), second(200000);
    for (std::size_t i = 0; i < first.size(); ++i) second[i] = -(first[i] = static_cast<double>(i));
    const std::string path = FreshFile("apart.csv");
    ASSERT_TRUE(Open(path, 2, "separator=semicolon\ntime=no"));
    ASSERT_TRUE(bench.Feed(0, first) && bench.Feed(1, second) && bench.Finish()) << bench.Error();
    std::istringstream lines(ReadText(path));
    std::string line;
    for (int i = 0; i < 3; ++i) std::getline(lines, line);
    for (int i = 0; i < 200000; ++i) {
        std::getline(lines, line);
        ASSERT_EQ(line, std::to_string(i) + ";-" + std::to_string(i)) << i;
    }
}

TEST_F(CsvWriter, ReplacesAFileOnlyWhenTold) {
    const std::string path = FreshFile("precious.csv");
    std::ofstream(path) << "precious";
    EXPECT_FALSE(Open(path));
    EXPECT_THAT(bench.Error(), AllOf(HasSubstr("precious.csv"), HasSubstr("overwrite=yes")));
    EXPECT_EQ(ReadText(path), "precious");
    const std::string link = FreshFile("link.csv");
    std::filesystem::create_symlink(path, link);
    ASSERT_TRUE(bench.Set("file=\"" + link + "\"\noverwrite=yes") && bench.Run({1.0}, {"x", 1.0}))
        << bench.Error();
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_TRUE(bench.Start() && bench.Finish()) << "another module failed to start";
    EXPECT_EQ(ReadText(path), "time,x\ns,\nsamplerate,1\n0,1\n");
}

TEST_F(CsvWriter, LeavesNothingThatLooksComplete) {
    const std::string path = FreshFile("broken.csv");
    ASSERT_TRUE(Open(path, 1, "time=no") && bench.Feed(0, {1.0, 2.0}, {"x", 1.0}, 1, true, false) &&
                bench.Finish());
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_THAT(ModuleBench::TakeWarnings(), HasSubstr("broken.csv.part"));
    EXPECT_EQ(ReadText(path + ".part"), "x\n\"\"\n1\n1\n2\n");
}

TEST_F(CsvWriter, SaysWhyItCannotWrite) {
    EXPECT_FALSE(Open("/no/such/folder/a.csv"));
    EXPECT_THAT(bench.Error(), HasSubstr("/no/such/folder/a.csv cannot be written: No such file"));
    ModuleBench full("csv-writer", "CsvWriter");
    full.WireInputs({ModuleBench::TIME_DOMAIN});
    ASSERT_TRUE(full.Set("file=/dev/full"));
    EXPECT_FALSE(full.Run(std::vector<double>(100000, 1.0)));
    EXPECT_THAT(full.Error(), HasSubstr("/dev/full cannot be written: No space left"));
}

}  // namespace
