#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "studio/server/Folders.h"
#include "tests/support/OwnFolder.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> Names(const nlohmann::ordered_json& listed) {
    std::vector<std::string> names;
    for (const auto& entry : listed["entries"]) names.push_back(entry["name"]);
    return names;
}

TEST(Folders, ShowWhatIsBelowThemAndNothingElse) {
    const auto own = MakeOwnFolder();
    const fs::path top = fs::canonical(own->Path());
    const fs::path seen = top / "seen";
    fs::create_directories(seen / "inner");
    fs::create_directories(top / "seen but not");
    for (const char* name : {"b.wav", "a.wav", ".hidden"}) std::ofstream(seen / name) << "x";
    std::ofstream(top / "secret") << "x";
    fs::create_symlink(top / "secret", seen / "out");
    fs::create_directory_symlink("inner", seen / "link");
    const studio::Folders folders({seen.string(), (top / "none").string()});

    EXPECT_THAT(Names(folders.List("")), ElementsAre(seen.string()));
    const auto listed = folders.List(seen.string() + "/inner/..");
    EXPECT_THAT(Names(listed), ElementsAre("inner", "link", "a.wav", "b.wav"));
    EXPECT_EQ(listed["up"], "");
    EXPECT_EQ(listed["entries"][2]["path"], (seen / "a.wav").string());
    EXPECT_EQ(folders.List((seen / "inner").string())["up"], seen.string());
    for (const std::string& path :
         {top.string(), seen.string() + "/..", (top / "seen but not").string(), std::string("/"),
          (seen / "a.wav").string() + "/x", std::string("inner")}) {
        const auto refused = folders.List(path);
        EXPECT_EQ(refused["ok"], false) << path;
        EXPECT_THAT(refused["text"].get<std::string>(), HasSubstr("--folder")) << path;
    }
}

}  // namespace
