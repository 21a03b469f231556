#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "studio/server/RunProcess.h"

namespace studio {

// The process that creates modules to look at them (see Workshop.h), as the server sees it: one that ends or
// does not answer is replaced by a new one, and whatever made it end is found and reported. One thread.
class Checker {
 public:
    using Json = nlohmann::ordered_json;

    // `program` is this one; nothing is started yet.
    Checker(std::string program, std::vector<std::string> folders);
    ~Checker();

    // So that the process is there when it is first asked.
    void Prepare();
    // The answer to a request; nothing, with the reason in `WhyNot`, when there was none.
    std::optional<Json> Ask(const Json& request);
    const std::string& WhyNot() const { return whyNot; }
    void SetLanguage(const std::string& code);

    // All modules but those that crash.
    Json Catalogue();
    // As CheckText; a graph that cannot be checked has what the text alone says, and the reason as a mistake
    // at the instance that it comes from.
    Json Check(const std::string& path, const std::string& text);

 private:
    bool Start();
    void AddReason(Json& checked, const std::string& path, const std::string& text);

    std::string program;
    std::vector<std::string> folders;
    std::string whyNot;
    Json catalogue;

    std::mutex mutex;  // of the next
    std::condition_variable changed;
    std::optional<std::string> answer;
    std::optional<int> ended;
    std::unique_ptr<RunProcess> process;  // the last member: it ends first
};

}  // namespace studio
