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
messages::List processList;
thread_local messages::Collection* collection = nullptr;

}  // namespace

const char* ToText(Severity severity) {
    constexpr const char* WORDS[] = {"error", "warning", "note"};
    return WORDS[static_cast<int>(severity)];
}

namespace messages {

void List::Add(Message message) {
    if (message.text.size() > LONGEST_TEXT) message.text.replace(LONGEST_TEXT, std::string::npos, " ...");
    const std::tuple key(message.severity, message.instance, message.text);
    const auto known = positions.find(key);
    if (known != positions.end()) {
        kept[known->second].times += message.times;
    } else if (std::ranges::count(kept, message.severity, &Message::severity) < MOST_KEPT) {
        positions.emplace(key, kept.size());
        kept.push_back(std::move(message));
    } else {
        more += message.times;
    }
}

std::vector<Message> List::Take(std::int64_t& leftOut) {
    leftOut = std::exchange(more, 0);
    positions.clear();
    return std::exchange(kept, {});
}

Collection::Collection() {
    collection = this;
}

Collection::~Collection() {
    collection = nullptr;
}

Collection* Collection::Current() {
    return collection;
}

Collection::Shared::Shared(Collection* shared) {
    collection = shared;
}

Collection::Shared::~Shared() {
    collection = nullptr;
}

void Add(Message message) {
    if (collection != nullptr) return collection->list.Add(std::move(message));
    const std::lock_guard lock(mutex);
    processList.Add(std::move(message));
}

std::vector<Message> Take(std::int64_t& leftOut) {
    if (collection != nullptr) return collection->list.Take(leftOut);
    const std::lock_guard lock(mutex);
    return processList.Take(leftOut);
}

}  // namespace messages

}  // namespace host
