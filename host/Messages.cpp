#include "host/Messages.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <tuple>
#include <utility>

namespace host {
namespace {

constexpr std::ptrdiff_t MOST_KEPT = 1000;  // of each severity
constexpr std::size_t LONGEST_TEXT = 10000;

std::mutex mutex;
std::vector<Message> kept;
std::map<std::tuple<Severity, std::string, std::string>, std::size_t> positions;
std::int64_t leftOut = 0;

}  // namespace

const char* ToText(Severity severity) {
    constexpr const char* WORDS[] = {"error", "warning", "note"};
    return WORDS[static_cast<int>(severity)];
}

void messages::Add(Message message) {
    if (message.text.size() > LONGEST_TEXT) message.text.replace(LONGEST_TEXT, std::string::npos, " ...");
    const std::lock_guard lock(mutex);
    const std::tuple key(message.severity, message.instance, message.text);
    const auto known = positions.find(key);
    if (known != positions.end()) {
        kept[known->second].times += message.times;
    } else if (std::ranges::count(kept, message.severity, &Message::severity) < MOST_KEPT) {
        positions.emplace(key, kept.size());
        kept.push_back(std::move(message));
    } else {
        leftOut += message.times;
    }
}

std::vector<Message> messages::Take(std::int64_t& more) {
    const std::lock_guard lock(mutex);
    more = std::exchange(leftOut, 0);
    positions.clear();
    return std::exchange(kept, {});
}

}  // namespace host
