#include "studio/server/Command.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

namespace studio {
namespace {

using Json = nlohmann::json;

constexpr std::size_t MOST_NAME = 1000;
constexpr std::size_t MOST_TEXT = 4U << 20;
constexpr std::size_t MOST_ITEMS = 20000;
constexpr std::size_t MOST_WISHES = 64;
constexpr int MOST_DEPTH = 8;
constexpr int FARTHEST = 1000000;  // of a position
constexpr std::int64_t MOST_SAMPLES = 65536;

constexpr struct {
    const char* word;
    Command::Kind kind;
} KINDS[] = {{"hello", Command::Hello},       {"text", Command::Text},
             {"change", Command::Change},     {"undo", Command::Undo},
             {"redo", Command::Redo},         {"run", Command::Run},
             {"stop", Command::Stop},         {"save", Command::Save},
             {"reload", Command::Reload},     {"form", Command::Form},
             {"set", Command::Set},           {"try", Command::Try},
             {"watch", Command::Watch},       {"got", Command::Got},
             {"language", Command::Language}, {"presets", Command::Presets},
             {"keep", Command::Keep},         {"load", Command::Load},
             {"files", Command::Files},       {"recording", Command::Recording}};

constexpr struct {
    const char* word;
    Edit::Kind kind;
} EDITS[] = {{"place", Edit::Place},   {"copy", Edit::Copy},       {"remove", Edit::Remove},
             {"rename", Edit::Rename}, {"connect", Edit::Connect}, {"disconnect", Edit::Disconnect},
             {"move", Edit::Move},     {"set", Edit::Set}};

// In the order of Wish::Kind.
constexpr const char* WISHES[] = {"envelope", "samples", "level", "spectrogram", "texts"};

// Reads members of one object. What is there must be right; what is not there keeps its default.
class Members {
 public:
    explicit Members(const Json& value) : json(value), right(value.is_object()) {}

    bool AreRight() const { return right; }
    const Json* Find(const char* name) const {
        if (!right) return nullptr;
        const auto found = json.find(name);
        return found != json.end() ? &*found : nullptr;
    }
    void Read(const char* name, std::string& text, std::size_t most = MOST_NAME) {
        const Json* const value = Find(name);
        if (value == nullptr) return;
        const auto* const given = value->get_ptr<const Json::string_t*>();
        if (given == nullptr || given->size() > most || given->find('\0') != given->npos) return Refuse();
        text = *given;
    }
    void Read(const char* name, bool& flag) {
        const Json* const value = Find(name);
        if (value == nullptr) return;
        value->is_boolean() ? void(flag = value->get<bool>()) : Refuse();
    }
    void Read(const char* name, std::int64_t& number, std::int64_t least, std::int64_t most) {
        const Json* const value = Find(name);
        if (value == nullptr) return;
        if (!value->is_number_integer()) return Refuse();
        // A number beyond the signed ones would read as a negative one.
        const bool isLarge =
            value->is_number_unsigned() && value->get<std::uint64_t>() > std::uint64_t(INT64_MAX);
        if (isLarge || value->get<std::int64_t>() < least || value->get<std::int64_t>() > most)
            return Refuse();
        number = value->get<std::int64_t>();
    }
    void Read(const char* name, double& number, double least, double most) {
        const Json* const value = Find(name);
        if (value == nullptr) return;
        const double given = value->is_number() ? value->get<double>() : NAN;
        given >= least&& given <= most ? void(number = given) : Refuse();
    }
    template <class Take>
    void ForEach(const char* name, std::size_t most, Take take) {
        const Json* const value = Find(name);
        if (value == nullptr) return;
        if (!value->is_array() || value->size() > most) return Refuse();
        for (const Json& item : *value)
            if (!take(item)) return Refuse();
    }
    void Refuse() { right = false; }

 private:
    const Json& json;
    bool right;
};

template <class Table, class Kind>
bool FindWord(const Table& table, const std::string& word, Kind& kind) {
    for (const auto& row : table)
        if (word == row.word) {
            kind = row.kind;
            return true;
        }
    return false;
}

bool ReadPosition(const Json& json, Position& position) {
    Members members(json);
    std::int64_t x = 0;
    std::int64_t y = 0;
    members.Read("instance", position.instance);
    members.Read("x", x, -FARTHEST, FARTHEST);
    members.Read("y", y, -FARTHEST, FARTHEST);
    position.x = static_cast<int>(x);
    position.y = static_cast<int>(y);
    return members.AreRight();
}

bool ReadEdit(const Json& json, Edit& edit) {
    Members members(json);
    std::string kind;
    members.Read("kind", kind);
    members.Read("name", edit.name);
    members.Read("other", edit.other);
    members.ForEach("names", MOST_ITEMS, [&](const Json& item) {
        if (!item.is_string() || item.get_ref<const std::string&>().size() > MOST_NAME) return false;
        edit.names.push_back(item.get<std::string>());
        return true;
    });
    members.ForEach("positions", MOST_ITEMS,
                    [&](const Json& item) { return ReadPosition(item, edit.positions.emplace_back()); });
    members.ForEach("settings", MOST_ITEMS, [&](const Json& item) {
        Members setting(item);
        auto& [name, value] = edit.settings.emplace_back();
        setting.Read("name", name);
        setting.Read("value", value, MOST_TEXT);
        return setting.AreRight();
    });
    return members.AreRight() && FindWord(EDITS, kind, edit.kind);
}

bool ReadWish(const Json& json, Wish& wish) {
    constexpr double LONGEST = 1e6;
    Members members(json);
    std::int64_t trace = 0;
    std::string kind = "envelope";
    members.Read("trace", trace, 0, 1000000);
    members.Read("port", wish.port);
    members.Read("kind", kind);
    members.Read("seconds", wish.seconds, 1e-9, LONGEST);
    members.Read("samples", wish.samples, 1, MOST_SAMPLES);
    members.Read("triggers", wish.triggers);
    members.Read("level", wish.level, -1e300, 1e300);
    wish.trace = static_cast<int>(trace);
    return members.AreRight() && KindOf(kind, wish.kind);
}

bool ReadMembers(const Json& json, Command& command) {
    Members members(json);
    std::string word;
    members.Read("do", word);
    members.Read("id", command.id, 0, INT64_MAX);
    members.Read("version", command.version, -1, INT64_MAX);
    members.Read("text", command.text, MOST_TEXT);
    members.Read("name", command.name);
    members.Read("other", command.other);
    members.Read("force", command.force);
    members.Read("realtime", command.realtime);
    members.Read("number", command.number, 0, INT64_MAX);
    members.Read("first", command.first, 0, INT64_MAX / 4);
    members.Read("count", command.count, 0, INT64_MAX / 4);
    members.ForEach("edits", MOST_ITEMS,
                    [&](const Json& item) { return ReadEdit(item, command.edits.emplace_back()); });
    members.ForEach("wishes", MOST_WISHES,
                    [&](const Json& item) { return ReadWish(item, command.wishes.emplace_back()); });
    return members.AreRight() && FindWord(KINDS, word, command.kind);
}

}  // namespace

const char* WordOf(Wish::Kind kind) {
    return WISHES[kind];
}

bool KindOf(std::string_view word, Wish::Kind& kind) {
    const auto* const found = std::ranges::find(WISHES, word);
    if (found == std::end(WISHES)) return false;
    kind = static_cast<Wish::Kind>(found - WISHES);
    return true;
}

bool ReadCommand(std::string_view message, Command& command, std::string& error) {
    const auto notTooDeep = [](int depth, Json::parse_event_t, Json&) { return depth <= MOST_DEPTH; };
    const Json json = Json::parse(message, notTooDeep, false);
    command = {};
    if (json.is_object() && ReadMembers(json, command)) return true;
    command = {};
    error = "this is no message of the page";
    return false;
}

}  // namespace studio
