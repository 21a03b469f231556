#include <gmock/gmock.h>

#include <cstdlib>
#include <set>

#include "studio/server/Checker.h"
#include "tests/support/OwnFolder.h"

// With modules in a process of their own, some of which crash.
namespace {

using studio::Checker;
using testing::HasSubstr;
using Json = Checker::Json;

const std::string TONE = "[tone]\nmodule=Generator\nfrequency=50\n\n";

class Checking : public testing::Test {
 protected:
    Checking() : checker(SIGWEAVE_STUDIO_PROGRAM, {SIGWEAVE_MODULE_DIR, SIGWEAVE_CRASHING_DIR}) {}

    Json Ask(const char* ask, const std::string& text, Json more = Json::object()) {
        Json request = {{"ask", ask}, {"path", "a.graph"}, {"text", text}, {"name", "tone"}};
        request.update(more);
        auto answer = checker.Ask(request);
        return answer ? *std::move(answer) : Json{{"ok", false}, {"text", checker.WhyNot()}};
    }

    Checker checker;
};

TEST_F(Checking, ListsAllModulesButThoseThatCrash) {
    std::set<std::string> ids;
    for (const Json& module : checker.Catalogue()) ids.insert(module["id"]);
    EXPECT_TRUE(ids.contains("Generator"));
    EXPECT_TRUE(ids.contains("CrashesWhenSet"));
    EXPECT_FALSE(ids.contains("CrashesAlways"));
}

TEST_F(Checking, NamesTheInstanceThatCrashesAndGoesOn) {
    const std::string crashing = TONE + "[bad]\nmodule=CrashesWhenSet\ncrash=yes\n";
    const Json checked = checker.Check("a.graph", crashing);
    ASSERT_EQ(checked["instances"].size(), 2u);
    const Json reason = checked["mistakes"].back();
    EXPECT_EQ(reason["instance"], "bad");
    EXPECT_EQ(reason["line"], 5);
    EXPECT_THAT(reason["text"].get<std::string>(), HasSubstr("crashed"));
    const Json good =
        checker.Check("a.graph", TONE + "[bad]\nmodule=CrashesWhenSet\n[lines]\ntone.Signal=bad.Signal\n");
    EXPECT_EQ(good["mistakes"], Json::array());
    EXPECT_EQ(good["instances"][1]["inputs"][0]["name"], "Signal");
}

TEST_F(Checking, RefusesAFormWhoseModuleCrashes) {
    const Json form = Ask("form", "[tone]\nmodule=CrashesAlways\n");
    EXPECT_EQ(form["ok"], false);
    EXPECT_THAT(form["text"].get<std::string>(), HasSubstr("crashed"));
    EXPECT_EQ(Ask("form", TONE)["ok"], true);
}

TEST_F(Checking, SetsValuesInTheTextAndSaysWhichCountInARun) {
    const Json set = Ask("set", TONE, {{"line", R"({"set":{"frequency":"60 Hz","rate":"1000"}})"}});
    EXPECT_THAT(set["text"].get<std::string>(), HasSubstr("frequency=60 Hz\nrate=1000\n"));
    EXPECT_EQ(set["changed"], Json::parse(R"([["frequency","60 Hz",true],["rate","1000",false]])"));
    EXPECT_EQ(Ask("set", TONE, {{"line", R"({"set":{"frequency":"-1"}})"}})["ok"], false);
}

TEST_F(Checking, KeepsAndLoadsPresets) {
    const auto own = MakeOwnFolder();
    ASSERT_EQ(setenv("XDG_DATA_HOME", own->Path().c_str(), 1), 0);
    const std::string set = "[tone]\nmodule=Generator\nfrequency=3 kHz\namplitude=2\n";
    EXPECT_EQ(Ask("keep", set, {{"preset", "high"}})["presets"], Json::array({"high"}));
    EXPECT_EQ(Ask("keep", set, {{"preset", "../../x"}})["ok"], false);
    EXPECT_EQ(Ask("load", TONE, {{"preset", "other"}})["ok"], false);
    const Json loaded = Ask("load", TONE, {{"preset", "high"}});
    EXPECT_THAT(loaded["text"].get<std::string>(), HasSubstr("frequency=3 kHz\namplitude=2\n"));
    EXPECT_EQ(Ask("presets", "[tone]\nmodule=Filter\n")["presets"], Json::array());
    unsetenv("XDG_DATA_HOME");
}

}  // namespace
