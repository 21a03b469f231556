#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

// How the files of the tree include one another: CONTRIBUTING.md describes the layers.
namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;

const fs::path ROOT = SIGWEAVE_ROOT;

// From the bottom up. A file belongs to the longest prefix.
constexpr const char* LAYERS[] = {
    "sigweave/platform/",
    "sigweave/foundation/",
    "sigweave/services/",
    "sigweave/signal/",
    "sigweave/persistence/",
    "sigweave/signal/forms/",
    "sigweave/recording/",
    "sigweave/ui/",
    "sigweave/module/",
    "sigweave/sigweave.h",
    "modules/",
    "host/",
    "studio/server/",
    "python/src/",
};

// The only includes that go up.
struct Exception {
    const char* file;
    const char* header;
    const char* reason;
};
constexpr Exception EXCEPTIONS[] = {
    {"sigweave/foundation/TCError.cpp", "sigweave/module/TCModuleMessage.h",
     "an error without a main window goes to the module messages"},
    {"sigweave/signal/TCBlockBuffer", "sigweave/module/TCPortHelper.h",
     "a block buffer belongs to the signal data and reads and writes through the ports of its module"},
};

int Layer(const std::string& file) {
    std::size_t length = 0;
    int layer = -1;
    for (int i = 0; i < static_cast<int>(std::size(LAYERS)); ++i) {
        const std::string prefix = LAYERS[i];
        if (!file.starts_with(prefix) || prefix.size() <= length) continue;
        length = prefix.size();
        layer = i;
    }
    return layer;
}

bool IsExcepted(const std::string& file, const std::string& header) {
    return std::ranges::any_of(EXCEPTIONS, [&](const Exception& exception) {
        return file.starts_with(exception.file) && header == exception.header;
    });
}

// By file, as it is named from the root: what it includes, quoted or in angle brackets.
std::map<std::string, std::vector<std::string>> ReadIncludes() {
    std::map<std::string, std::vector<std::string>> includes;
    const std::regex directive("^#include [<\"]([^>\"]+)[>\"]");
    for (const char* folder : {"sigweave", "modules", "host", "studio/server", "python/src"})
        for (const auto& entry : fs::recursive_directory_iterator(ROOT / folder)) {
            const std::string extension = entry.path().extension().string();
            if (extension != ".h" && extension != ".cpp") continue;
            std::vector<std::string>& headers = includes[entry.path().lexically_relative(ROOT).string()];
            std::ifstream file(entry.path());
            std::smatch match;
            for (std::string line; std::getline(file, line);)
                if (std::regex_search(line, match, directive)) headers.push_back(match[1]);
        }
    return includes;
}

TEST(Includes, NeverGoUp) {
    std::set<std::string> wrong;
    std::size_t used = 0;
    for (const auto& [file, headers] : ReadIncludes())
        for (const std::string& header : headers) {
            if (Layer(header) <= Layer(file)) continue;
            if (IsExcepted(file, header))
                ++used;
            else
                wrong.insert(file + " includes " + header);
        }
    EXPECT_THAT(wrong, IsEmpty());
    EXPECT_GE(used, std::size(EXCEPTIONS)) << "an exception that nothing needs any more";
}

// A header from which one can come back to it.
TEST(Includes, FormNoLoop) {
    const auto includes = ReadIncludes();
    std::set<std::string> wrong;
    for (const auto& [start, ignored] : includes) {
        std::vector<std::string> open = {start};
        std::set<std::string> seen;
        while (!open.empty()) {
            const std::string file = open.back();
            open.pop_back();
            const auto found = includes.find(file);
            if (found == includes.end()) continue;
            for (const std::string& header : found->second) {
                if (header == start) wrong.insert(start);
                if (seen.insert(header).second) open.push_back(header);
            }
        }
    }
    EXPECT_THAT(wrong, IsEmpty());
}

TEST(Includes, OfTheSystemStandInOneFolder) {
    const std::regex system(
        "^(sys/|linux/|asm/|net/|arpa/|netinet/"
        "|(unistd|fcntl|dlfcn|pthread|poll|sched|signal|spawn|termios|dirent|"
        "iconv|langinfo|pwd|grp|semaphore|ucontext|malloc|link|elf|execinfo)\\.h$)");
    std::set<std::string> wrong;
    for (const auto& [file, headers] : ReadIncludes())
        for (const std::string& header : headers)
            if (!file.starts_with("sigweave/platform/linux/") && std::regex_search(header, system))
                wrong.insert(file + " includes " + header);
    EXPECT_THAT(wrong, IsEmpty());
}

TEST(Includes, OfTheUmbrellaReachEveryPublicHeader) {
    const auto includes = ReadIncludes();
    const std::vector<std::string>& direct = includes.at("sigweave/sigweave.h");
    std::istringstream headers(PUBLIC_HEADERS);
    std::set<std::string> missing;
    int count = 0;
    for (std::string path; std::getline(headers, path, '|'); ++count) {
        const std::string name = fs::path(path).lexically_relative(ROOT).string();
        if (name != "sigweave/sigweave.h" && std::ranges::find(direct, name) == direct.end())
            missing.insert(name);
    }
    EXPECT_GT(count, 50);
    EXPECT_THAT(missing, IsEmpty());
}

}  // namespace
