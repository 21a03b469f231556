#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sstream>

#include "studio/server/RunProcess.h"
#include "tests/support/OwnFolder.h"

// Runs in processes of their own, as the studio starts them.
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

constexpr auto LONGEST = 60s;

std::string ReadAll(const std::filesystem::path& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

// Waits for the end, or until `isEnough`.
struct Watched {
    explicit Watched(const json& order) {
        studio::RunProcess::Handlers handlers;
        handlers.onText = [this](std::string text) { Note([&] { texts.push_back(json::parse(text)); }); };
        handlers.onPictures = [this] { Note([this] { hasPictures = true; }); };
        handlers.onEnd = [this](int code) { Note([&] { end = code; }); };
        process =
            studio::RunProcess::Start(SIGWEAVE_STUDIO_PROGRAM, "--run", order.dump(), std::move(handlers));
    }
    template <class Work>
    void Note(Work work) {
        const std::lock_guard lock(mutex);
        work();
        changed.notify_all();
    }
    template <class Condition>
    bool WaitFor(Condition isEnough) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, LONGEST, isEnough);
    }
    bool WaitForEnd() {
        return WaitFor([this] { return end >= 0; });
    }
    json WaitForChange(const std::string& parameter) {
        json change;
        WaitFor([&] {
            for (const json& text : texts)
                if (text.contains("set") && text["set"]["parameter"] == parameter) change = text["set"];
            return !change.is_null();
        });
        return change;
    }
    json Find(const char* name) {
        const std::lock_guard lock(mutex);
        for (const json& text : texts)
            if (text.contains(name)) return text;
        return nullptr;
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<json> texts;
    bool hasPictures = false;
    int end = -1;
    std::unique_ptr<studio::RunProcess> process;  // the last member: it ends first
};

class StudioRun : public testing::Test {
 protected:
    StudioRun() : own(MakeOwnFolder()), folder(own->Path()) {}

    json Order(const std::string& duration, const std::string& record) const {
        return {
            {"path", (folder / "a.graph").string()},
            {"text",
             "[tone]\nmodule=Generator\nfrequency=50\nrate=8000\nstart=2026-03-01T12:00:00Z\nduration=" +
                 duration +
                 "\n[low]\nmodule=Filter\ncorner=100\n[levels]\nmodule=Statistics\n"
                 "[record]\nmodule=XmlRecorder\nfile=" +
                 record +
                 "\n[lines]\ntone.Signal=low.Signal\nlow.Signal=levels.Signal\nlow.Signal=record.Signal\n"},
            {"folders", {SIGWEAVE_MODULE_DIR}}};
    }
    static json Watching(int count) {
        json wishes = json::array();
        for (int i = 0; i < count; ++i)
            wishes.push_back(
                {{"key", i}, {"port", i % 2 == 0 ? "low.Signal" : "tone.Signal"}, {"seconds", 0.01 + i}});
        return wishes;
    }

    std::unique_ptr<tc::OwnedFolder> own;
    std::filesystem::path folder;
};

TEST_F(StudioRun, GivesTheSameBytesWhoeverLooks) {
    std::string bytes[2];
    for (int watching = 0; watching < 2; ++watching) {
        const std::string record = "r" + std::to_string(watching) + ".xml";
        json order = Order("2", record);
        if (watching == 1) order["watch"] = Watching(50);
        Watched run(order);
        ASSERT_TRUE(run.WaitForEnd());
        EXPECT_EQ(run.Find("report")["report"]["verdict"], "complete");
        EXPECT_EQ(run.hasPictures, watching == 1);
        bytes[watching] = ReadAll(folder / record);
    }
    EXPECT_FALSE(bytes[0].empty());
    EXPECT_TRUE(bytes[0] == bytes[1]);
}

TEST_F(StudioRun, CanBeLookedAtLaterAndEndedEarly) {
    json order = Order("1000000", "r.xml");
    order["realtime"] = true;
    Watched run(order);
    ASSERT_TRUE(run.WaitFor([&] { return !run.texts.empty(); }));
    ASSERT_TRUE(run.process->Send(json({{"watch", Watching(1)}}).dump()));
    ASSERT_TRUE(run.WaitFor([&] { return run.hasPictures; }));
    run.process->Send("this is no order");
    run.process->Send(R"({"watch":7})");
    EXPECT_EQ(run.process->TakePictures().size(), 1u);
    run.process->Send(R"({"stop":true})");
    ASSERT_TRUE(run.WaitForEnd());
    EXPECT_EQ(run.Find("report")["report"]["verdict"], "interrupted");
}

TEST_F(StudioRun, ChangesLiveParametersAndTellsWhatBecameOfIt) {
    json order = Order("1000000", "r.xml");
    order["realtime"] = true;
    Watched run(order);
    ASSERT_TRUE(run.WaitFor([&] { return !run.texts.empty(); }));
    run.process->Send(R"({"set":{"instance":"low","parameter":"corner","value":"200"}})");
    EXPECT_EQ(run.WaitForChange("corner")["refusal"], "");
    run.process->Send(R"({"set":{"instance":"low","parameter":"order","value":"2"}})");
    EXPECT_NE(run.WaitForChange("order")["refusal"], "");
    run.process->End(30s);
    EXPECT_EQ(run.Find("report")["report"]["changes"].size(), 1u);
}

TEST_F(StudioRun, TellsTheMistakesOfAGraphThatCannotRun) {
    Watched run({{"path", "a.graph"}, {"text", "[a]\nmodule=Nothing\n"}, {"folders", {SIGWEAVE_MODULE_DIR}}});
    ASSERT_TRUE(run.WaitForEnd());
    const json report = run.Find("report")["report"];
    EXPECT_EQ(report["verdict"], "mistakes");
    EXPECT_EQ(report["mistakes"].back()["line"], 2);
}

TEST_F(StudioRun, FinishesItsFilesWhenTheStudioEnds) {
    Watched run(Order("1000000", "r.xml"));
    ASSERT_TRUE(run.WaitFor([&] { return !run.texts.empty(); }));
    run.process->End(30s);
    EXPECT_EQ(run.Find("report")["report"]["verdict"], "interrupted");
    EXPECT_TRUE(ReadAll(folder / "r.xml").ends_with(">\n"));
}

// A browser whose connection the studio closes would never know of it while a run kept it open.
TEST_F(StudioRun, GetsNothingThatIsOpenInTheStudio) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    Watched run(Order("1000000", "r.xml"));
    ASSERT_TRUE(run.WaitFor([&] { return !run.texts.empty(); }));
    close(ends[1]);
    char byte = 0;
    EXPECT_EQ(read(ends[0], &byte, 1), 0) << "the end of what nobody has open any more";
    close(ends[0]);
    run.process->Kill();
    EXPECT_TRUE(run.WaitForEnd());
}

TEST_F(StudioRun, IsKilledWithoutAWord) {
    Watched run(Order("1000000", "r.xml"));
    ASSERT_TRUE(run.WaitFor([&] { return !run.texts.empty(); }));
    run.process->Kill();
    ASSERT_TRUE(run.WaitForEnd());
    EXPECT_EQ(run.end, 128 + 9);
    EXPECT_TRUE(run.Find("report").is_null());
}

}  // namespace
