#include <gmock/gmock.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "sigweave/recording/RecordingWriter.h"
#include "studio/server/RecordingScan.h"
#include "tests/support/OwnFolder.h"

namespace {

using studio::RecordingScan;
using Json = nlohmann::ordered_json;

// A recording of one signal that counts up at 1 kHz.
class Counting {
 public:
    explicit Counting(const std::string& path) {
        writer.Prepare(path.c_str(), true);
        writer.AddSignal("Signal 1", "TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}", 2);
        writer.Begin({});
        out.AddOutputStream(in.SetInputStream(9));
        info.SetSamplerate(1000.0);
        info.SetTimestamp(5000.0);
        info.SetSignalname("count");
        info.SetState(START);
    }
    void Write(int blocks, int size) {
        std::vector<double> values(static_cast<std::size_t>(size));
        for (int block = 0; block < blocks; ++block) {
            for (double& value : values) value = next++;
            out.SetTI(&info, false);
            out.WriteDblVec(values.data(), size);
            EXPECT_TRUE(writer.Append(0, in)) << writer.GetError();
            in.RemoveContents(true);
            info.SetState(BUSY);
        }
    }
    bool Close() { return writer.Close(); }

 private:
    tc::RecordingWriter writer;
    TCIOStream out;
    TCIOStream in;
    TCTypeInfo info;
    double next = 0.0;
};

Json Show(RecordingScan& scan, std::int64_t first, std::int64_t count) {
    std::string error;
    Json json;
    do {
        EXPECT_TRUE(scan.ReadOn(1000, error)) << error;
        json = scan.Show(0, first, count);
    } while (json["whole"] != true);
    return json;
}

TEST(RecordingScan, ShowsAllAndSingleSamplesWhileTheFileGrows) {
    const auto own = MakeOwnFolder();
    const std::string path = (own->Path() / "r.mcap").string();
    RecordingScan scan(path);
    std::string error;
    EXPECT_FALSE(scan.ReadOn(10, error));
    EXPECT_NE(error.find("r.mcap"), error.npos);
    Counting recording(path);
    recording.Write(3, 1000);
    const Json first = Show(scan, 0, 0);
    EXPECT_EQ(first["perColumn"], 3);
    EXPECT_EQ(first["signals"][0]["samples"], 3000);
    EXPECT_EQ(first["signals"][0]["name"], "count");
    EXPECT_EQ(first["signals"][0]["start"], 5000.0);
    EXPECT_EQ(first["low"].size(), 1000u);
    EXPECT_EQ(first["high"][999], 2999.0);
    recording.Write(997, 1000);
    const Json all = Show(scan, 0, 0);
    const auto per = all["perColumn"].get<std::int64_t>();
    ASSERT_GE(per, 1000);
    EXPECT_EQ(all["low"][0], 0.0);
    EXPECT_EQ(all["high"][0], static_cast<double>(per - 1));
    EXPECT_EQ(all["high"].back(), 999999.0);
    const Json single = Show(scan, 765432, 100);
    EXPECT_EQ(single["perColumn"], 1);
    EXPECT_EQ(single["first"], 765432);
    ASSERT_EQ(single["low"].size(), 100u);
    EXPECT_EQ(single["low"][0], 765432.0);
    EXPECT_EQ(single["low"][99], 765531.0);
    EXPECT_EQ(Show(scan, 999990, 1000)["low"].size(), 10u);
    EXPECT_TRUE(Show(scan, 5000000, 10)["low"].empty());
    EXPECT_EQ(scan.Show(7, 0, 0)["ok"], false);
    EXPECT_TRUE(recording.Close());
    EXPECT_EQ(Show(scan, 0, 0)["growing"], false);
}

// The overview keeps its size: 32768 parts of 256 samples are 8 M samples, and then parts grow.
TEST(RecordingScan, KeepsTheSizeOfItsOverview) {
    const auto own = MakeOwnFolder();
    const std::string path = (own->Path() / "r.mcap").string();
    Counting recording(path);
    recording.Write(100, 100000);
    RecordingScan scan(path);
    const Json all = Show(scan, 0, 0);
    EXPECT_EQ(all["perColumn"].get<std::int64_t>() % 512, 0);
    for (std::size_t i = 0; i < all["low"].size(); ++i)
        EXPECT_EQ(all["low"][i],
                  static_cast<double>(static_cast<std::int64_t>(i) * all["perColumn"].get<std::int64_t>()));
    EXPECT_EQ(all["high"].back(), 9999999.0);
    EXPECT_EQ(Show(scan, 9876543, 2)["high"], Json::array({9876543.0, 9876544.0}));
}

}  // namespace
