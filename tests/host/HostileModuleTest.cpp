// Modules that do harm: each is found, and nothing of the user's is touched.
#include <gmock/gmock.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "sigweave/platform/Confinement.h"
#include "tests/host/Enclosure.h"

void PrintTo(Enclosure::Lacks lacks, std::ostream* out) {
    *out << "degree " << static_cast<int>(lacks);
}

namespace {

using Json = nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Lacks = Enclosure::Lacks;

constexpr const char* LIBRARY = TEST_LIBRARIES "/hostile/Hostile.so";

// What keeps the module from harm, and so where its row can be tried.
enum Degree : unsigned { CONFINED = 1, BY_RULES = 2, UNCONFINED = 4, WITHOUT_FILTERS = 8, ANYWHERE = 15 };

struct Row {
    const char* deed;
    const char* reason;  // nullptr: it is no fault
    unsigned degrees;
};

// What the system says to a write where all is read-only, and where rules forbid it.
constexpr const char* REFUSED = "Read-only file system|Permission denied";
constexpr const char* SIGNALLED = "it sent a signal to the program that checks it";

constexpr Row ROWS[] = {
    {"enter-canary", "it changed the working directory to '.*canary'", ANYWHERE},
    {"enter-root", "it changed the working directory to '/'", ANYWHERE},
    {"replace-folder", "it renamed or replaced the folder in which it works", ANYWHERE},
    {"make-closed-folder", nullptr, ANYWHERE},
    {"make-deep-folder", nullptr, ANYWHERE},
    {"start-a-long-life", nullptr, ANYWHERE},
    {"remove-outside", REFUSED, CONFINED | BY_RULES},
    {"rename-outside", REFUSED, CONFINED | BY_RULES},
    {"truncate-outside", REFUSED, CONFINED | BY_RULES},
    {"open-outside", REFUSED, CONFINED | BY_RULES},
    {"change-mode-outside", REFUSED, CONFINED},
    {"kill-parent", SIGNALLED, ANYWHERE},
    {"stop-parent", SIGNALLED, ANYWHERE},
    {"kill-all", SIGNALLED, CONFINED | BY_RULES | UNCONFINED},
    {"close-streams", "it closed the file descriptor 1", ANYWHERE},
    {"redirect-output", "it redirected the standard stream 1", ANYWHERE},
};

class HostileModule : public testing::TestWithParam<Lacks> {};

std::vector<Json> Failed(const Json& report) {
    std::vector<Json> failed;
    for (const Json& check : report["checks"])
        if (check["status"] == "failed") failed.push_back(check);
    return failed;
}

void ExpectFinding(const Row& row, const Enclosure::Answer& answer) {
    const Json report = Json::parse(answer.out, nullptr, false);
    ASSERT_FALSE(report.is_discarded()) << answer.out << answer.err;
    const std::vector<Json> failed = Failed(report);
    EXPECT_EQ(answer.code, row.reason != nullptr ? 1 : 0) << answer.out;
    ASSERT_EQ(failed.size(), row.reason != nullptr ? 1u : 0u) << answer.out;
    if (row.reason == nullptr) return;
    EXPECT_EQ(failed[0]["check"], "run");
    EXPECT_THAT(failed[0]["reason"].get<std::string>(), testing::ContainsRegex(row.reason));
    EXPECT_NE(failed[0]["remedy"], "");
}

struct Told {
    const char* confinement;
    const char* warning;
};

constexpr Told TOLD[] = {{"namespaces", ""},
                         {"file rules", "confines .* by its rules for files alone"},
                         {"none", "no means to confine .* in a container of its own"},
                         {"none", "no means to confine .* in a container of its own"}};

TEST_P(HostileModule, IsFoundAndDoesNoHarm) {
    const Lacks lacks = GetParam();
    const Told& told = TOLD[static_cast<std::size_t>(lacks)];
    if (lacks == Lacks::Namespaces && tc::FileRulesVersion() < 3)
        GTEST_SKIP() << "the rules for files of this system do not keep files from being emptied";
    for (const Row& row : ROWS) {
        if ((row.degrees >> static_cast<unsigned>(lacks) & 1) == 0) continue;
        SCOPED_TRACE(row.deed);
        const Enclosure enclosure;
        const Enclosure::Answer answer = enclosure.Run(
            std::string(SIGWEAVE_PROGRAM " check-module ") + LIBRARY + " --report json --time-limit 20",
            row.deed, lacks);
        if (!answer.whyNot.empty()) GTEST_SKIP() << answer.whyNot;
        ExpectFinding(row, answer);
        EXPECT_THAT(answer.out, HasSubstr(std::string("\"confinement\": \"") + told.confinement));
        EXPECT_THAT(answer.err, testing::ContainsRegex(told.warning));
        EXPECT_FALSE(answer.leftProcesses);
        enclosure.ExpectUntouched();
    }
}

std::string NameOf(const testing::TestParamInfo<Lacks>& info) {
    constexpr const char* NAMES[] = {"Confined", "ByRulesForFilesAlone", "Unconfined", "WithoutFilters"};
    return NAMES[static_cast<std::size_t>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(CheckModule, HostileModule,
                         testing::Values(Lacks::Nothing, Lacks::Namespaces, Lacks::AllConfinement,
                                         Lacks::FiltersToo),
                         NameOf);

TEST(HostileModuleWithoutFolder, DoesNotBegin) {
    const Enclosure enclosure;
    const Enclosure::Answer answer = enclosure.Run(std::string(SIGWEAVE_PROGRAM " check-module ") + LIBRARY,
                                                   "remove-outside", Lacks::EnteringFolders);
    if (!answer.whyNot.empty()) GTEST_SKIP() << answer.whyNot;
    EXPECT_EQ(answer.code, 2);
    EXPECT_THAT(answer.out, IsEmpty());
    EXPECT_THAT(answer.err, HasSubstr("its temporary folder could not be entered (Permission denied)"));
    enclosure.ExpectUntouched();
}

// The report of a run reaches its reader whatever a module does to the standard streams.
TEST(HostileModuleInARun, DoesNotSilenceTheReport) {
    constexpr const char* ROWS_OF_RUNS[][2] = {{"close-streams", "a module closed standard output"},
                                               {"redirect-output", "a module redirected standard output"}};
    for (const auto& [deed, warning] : ROWS_OF_RUNS) {
        SCOPED_TRACE(deed);
        const Enclosure enclosure;
        std::ofstream(enclosure.Here() / "a.graph")
            << "[g]\nmodule=Generator\nduration=1\n[h]\nmodule=Hostile\n[s]\nmodule=Statistics\n"
               "[lines]\ng.Signal=h.Signal\nh.Signal=s.Signal\n";
        const Enclosure::Answer answer =
            enclosure.Run("SIGWEAVE_MODULE_PATH=: '" SIGWEAVE_PROGRAM
                          "' run a.graph --module-path " TEST_LIBRARIES "/hostile:",
                          deed);
        if (!answer.whyNot.empty()) GTEST_SKIP() << answer.whyNot;
        EXPECT_EQ(answer.code, 0) << answer.err;
        EXPECT_THAT(answer.out, AllOf(HasSubstr("\ns "), HasSubstr("\ncomplete: a.graph")));
        EXPECT_THAT(answer.err, HasSubstr(warning));
        std::ostringstream own;
        own << std::ifstream(enclosure.Here() / "own.txt").rdbuf();
        EXPECT_THAT(own.str(), Not(HasSubstr("complete")));
    }
}

}  // namespace
