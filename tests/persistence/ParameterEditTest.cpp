#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>
#include <vector>

#include "sigweave/persistence/TCProcessParameters.h"

namespace {

std::string Str(const TCString& text) {
    return {static_cast<const char*>(text), static_cast<std::size_t>(text.GetLength())};
}

// What the text says, kept as plain lists.
struct Model {
    struct Entry {
        std::string name;
        std::optional<std::string> value;
        bool operator==(const Entry&) const = default;
    };
    struct Section {
        std::string name;
        std::vector<Entry> entries;
        bool operator==(const Section&) const = default;
    };
    std::vector<Section> sections{{"", {}}};
    bool operator==(const Model&) const = default;

    static Model Of(const TCProcessParameters& text) {
        Model model;
        for (int s = 1; s < text.GetSectionCount(); ++s)
            model.sections.push_back({Str(text.GetSectionName(s)), {}});
        int section = 0;
        for (int i = 0; i < text.GetParamCount(); ++i) {
            while (section + 1 < text.GetSectionCount() &&
                   text.GetSectionPosition(section + 1) < text.GetParamPosition(i))
                ++section;
            std::optional<std::string> value;
            if (text.GetParamValType(i) != TCProcessParameters::NO_VALUE) value = Str(text.GetParamValStr(i));
            model.sections[static_cast<std::size_t>(section)].entries.push_back(
                {Str(text.GetParamName(i)), value});
        }
        return model;
    }
    Section* Find(const std::string& name) {
        for (Section& section : sections)
            if (section.name == name) return &section;
        return nullptr;
    }
    std::pair<Section*, std::size_t> Locate(int index) {
        auto left = static_cast<std::size_t>(index);
        for (Section& section : sections) {
            if (left < section.entries.size()) return {&section, left};
            left -= section.entries.size();
        }
        return {nullptr, 0};
    }
};

struct Syntax {
    const char* label;
    bool unquote;
    const char* prefix;
    const char* delimiter;
    const char* split;
};

// Random edits of a text with comments; after each the text says what the model says, and the comments are as
// they were.
class RandomEdits : public testing::TestWithParam<Syntax> {
 protected:
    RandomEdits() : text(GetParam().unquote, false, GetParam().prefix, nullptr, nullptr, "#") {
        text.AddParamDelimiter(GetParam().delimiter);
        text.AddParamDelimiter("\r\n");  // so that lines end comments in each syntax
        text.AddParamSplitStr(GetParam().split);
        const std::string end = GetParam().delimiter;
        start = "# one\r\n" + end + "[s]" + end + end + "# two\r\n" + end + "[t]# three\r\n" + end + "[]" +
                end + "[s]";
        EXPECT_EQ(text.ParseParamString(start.c_str()), 0);
        model = Model::Of(text);
    }
    std::size_t Roll(std::size_t sides) { return random() % sides; }
    std::string Word(const char* letters, std::size_t longest) {
        std::string word;
        for (std::size_t n = Roll(longest + 1); n > 0; --n)
            word += letters[Roll(std::char_traits<char>::length(letters))];
        return word;
    }
    void Insert() {
        const std::string name = Roll(8) == 0 ? Word("a=#[\r\n;\"", 3) : Word("abc", 2);
        const std::string section =
            Roll(8) == 0 ? Word("s]\n", 2) : std::vector<std::string>{"", "s", "t", "u"}[Roll(4)];
        const int count = text.GetParamCount();
        const int index = text.InsertParameter(name.c_str(), section.c_str(), Roll(2) == 0);
        if (text.GetParamCount() == count) return;
        ++done;
        if (model.Find(section) == nullptr) model.sections.push_back({section, {}});
        model.Find(section)->entries.push_back({name, std::nullopt});
        EXPECT_EQ(Str(text.GetParamName(index)), name);
        EXPECT_EQ(Str(text.GetParamSection(index)), section);
    }
    void SetValue(int index) {
        std::string value = Word("ab1 =#[]'\"\\\r\n;-", 5);
        if (value.size() > 1 && value.back() == value.front()) value += 'x';  // else its marks may be its own
        if (!text.SetParamValStr(index, value.c_str())) {
            const bool bothMarks = value.find('"') != value.npos && value.find('\'') != value.npos;
            const bool halfSplit =
                Str(text.GetParamName(index)).ends_with('=');  // "a=" and "==" make "a" and "="
            EXPECT_TRUE(index < 0 || index >= text.GetParamCount() || halfSplit ||
                        (!GetParam().unquote && bothMarks))
                << "refused " << value;
            return;
        }
        ++done;
        const auto [section, entry] = model.Locate(index);
        section->entries[entry].value = value.empty() ? std::nullopt : std::optional(value);
    }
    void Delete(int index) {
        if (!text.DeleteParameter(index)) return;
        ++done;
        const auto [section, entry] = model.Locate(index);
        section->entries.erase(section->entries.begin() + static_cast<std::ptrdiff_t>(entry));
    }
    void Clear(int index) {
        if (!text.ClearParamVal(index)) return;
        ++done;
        const auto [section, entry] = model.Locate(index);
        section->entries[entry].value.reset();
    }
    void DeleteSection() {
        const std::string name = Word("stuv", 1);
        if (!text.DeleteSection(name.c_str())) return;
        ++done;
        Model::Section* section = model.Find(name);
        section->entries.clear();
        if (section != &model.sections.front())
            model.sections.erase(model.sections.begin() + (section - model.sections.data()));
    }
    void Step() {
        const auto index = static_cast<int>(Roll(static_cast<std::size_t>(text.GetParamCount()) + 2)) - 1;
        const std::size_t dice = Roll(100);
        if (dice < 40) return Insert();
        if (dice < 75) return SetValue(index);
        if (dice < 85) return Clear(index);
        return dice < 99 ? Delete(index) : DeleteSection();
    }

    std::mt19937 random{20240607};
    TCProcessParameters text;
    Model model;
    std::string start;
    int done = 0;
};

TEST_P(RandomEdits, TextAndTableAgreeWithAPlainModel) {
    for (int step = 0; step < 6000; ++step) {
        const std::string before = Str(text.BuildParamString());
        const int doneBefore = done;
        Step();
        const std::string after = Str(text.BuildParamString());
        ASSERT_TRUE(text.CheckConsistency()) << step << "\n" << before << "\n----\n" << after;
        ASSERT_TRUE(Model::Of(text) == model) << step << "\n" << before << "\n----\n" << after;
        ASSERT_TRUE(done != doneBefore || after == before) << step;
        std::size_t at = 0;
        for (const char* comment : {"# one\r\n", "# two\r\n", "# three\r\n"}) {
            at = after.find(comment, at);
            ASSERT_NE(at, after.npos) << comment << step << "\n" << before << "\n----\n" << after;
        }
    }
    EXPECT_GT(done, 3000);
}

INSTANTIATE_TEST_SUITE_P(Syntaxes, RandomEdits,
                         testing::Values(Syntax{"Default", false, "", "\r\n", "="},
                                         Syntax{"Unquoting", true, "", "\r\n", "="},
                                         Syntax{"DoubledTokens", false, "", ";;", "=="},
                                         Syntax{"Prefixes", true, "-", "\r\n", "="}),
                         [](const auto& row) { return row.param.label; });

}  // namespace
