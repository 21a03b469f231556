#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "host/FormSession.h"
#include "host/Graph.h"
#include "host/InstanceDialog.h"
#include "host/TerminalForm.h"
#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/StringResources.h"
#include "sigweave/ui/TCDialog.h"
#include "tests/host/ProgramBench.h"

// Each parameter of each module that comes with the program is set to right, wrong and limit values in both
// front ends: what they take is one line of the file and no mistake for `check`; what they refuse, `check`
// refuses with the same words.
namespace {

using Json = nlohmann::json;

// Where any text would do for the declaration, but not for the module.
struct Given {
    const char* module;
    const char* parameter;
    const char* value;
};
constexpr Given GIVEN[] = {{"Filter", "corner", "100"},    {"BusSelect", "expression", "a"},
                           {"Hdf5File", "file", "a.h5"},   {"MatFile", "file", "a.mat"},
                           {"SoundFile", "file", "a.wav"}, {"TableFile", "file", "a.csv"},
                           {"XmlPlayer", "file", "a.xml"}};

const char* DefaultFor(const std::string& module, const TCModuleParameter& parameter) {
    for (const Given& given : GIVEN)
        if (module == given.module && std::string(parameter.name) == given.parameter) return given.value;
    return parameter.defaultValue != nullptr ? parameter.defaultValue : "given";
}

// Right ones, wrong ones, and those at and just beyond a limit.
std::vector<std::string> ValuesFor(const TCModuleParameter& parameter) {
    std::vector<std::string> values = {"x y", ""};
    const auto add = [&](double number) { values.push_back(tc::ShortestText(number)); };
    if (parameter.kind == TCModuleParameter::INTEGER || parameter.kind == TCModuleParameter::NUMBER) {
        values.insert(values.end(), {"3", "1,5", "4 furlong"});
        if (parameter.minimum > -1e300) add(parameter.minimum), add(parameter.minimum - 1);
        if (parameter.maximum < 1e300) add(parameter.maximum), add(parameter.maximum + 1);
    }
    if (*parameter.unit != '\0') values.push_back(std::string("2 k") + parameter.unit);
    if (parameter.kind == TCModuleParameter::SWITCH) values.insert(values.end(), {"yes", "no", "1"});
    for (const char* words : {parameter.choices, parameter.suggestions}) {
        const std::string all = words;
        if (!all.empty()) values.push_back(all.substr(all.rfind('|') + 1));
    }
    return values;
}

std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream all(text);
    for (std::string line; std::getline(all, line);) lines.push_back(line);
    return lines;
}

class EveryModule : public testing::Test {
 protected:
    EveryModule() : catalogue({SIGWEAVE_MODULE_DIR}), own(MakeOwnFolder()) {
        set.graph = (std::filesystem::path(own->Path()) / "a.graph").string();
        set.instance = "m";
    }

    void Write(const std::string& text) const { std::ofstream(set.graph, std::ios::binary) << text; }
    std::string File() const { return ReadAll(set.graph); }

    // The texts of all mistakes.
    std::vector<std::string> Check(const std::string& text) const {
        host::Mistakes mistakes;
        const host::GraphFile file = host::GraphFile::Parse(set.graph, text, mistakes);
        host::HostWindow window;
        const host::Graph graph(file, catalogue, window, mistakes);
        std::vector<std::string> texts;
        for (const host::Mistake& mistake : mistakes.InOrder()) texts.push_back(mistake.text);
        return texts;
    }

    // The refusals; empty when the file was written.
    std::string InJson(const std::string& name, const std::string& value) const {
        host::InstanceDialog instance(set, catalogue);
        host::Mistakes mistakes;
        EXPECT_TRUE(instance.Open(mistakes));
        TCDialog shown(instance.Description());
        host::FormSession session(shown);
        std::string texts;
        for (const Json& command : {Json{{"set", {{name, value}}}}, Json{{"end", "ok"}}}) {
            const Json answer = Json::parse(session.Answer(command.dump()));
            if (answer["ok"] == false) texts += answer["text"].get<std::string>() + "\n";
        }
        return texts;
    }

    std::string InTerminal(const std::string& name, const std::string& value) const {
        host::InstanceDialog instance(set, catalogue);
        host::Mistakes mistakes;
        EXPECT_TRUE(instance.Open(mistakes));
        TCDialog shown(instance.Description());
        const std::vector<std::string> typed = {name + "=" + value, "ok"};
        std::vector<std::string> said(1);  // before each line that is typed, and behind the last
        const auto read = [&](const std::string&, bool, std::string& line) {
            if (said.size() > typed.size()) return false;
            line = typed[said.size() - 1];
            said.emplace_back();
            return true;
        };
        const auto say = [&](const std::string& line) { said.back() += line + "\n"; };
        host::TerminalForm form(shown, {read, say}, "");
        const bool isDone = form.Run() == TCDialog::OK;
        const bool isSet = shown.GetText(name) == value;
        return (isSet ? "" : said[1]) + (isDone ? "" : said[2]);
    }

    // Where both agree, what they say.
    void Try(const std::string& graph, const std::string& name, const std::string& value) {
        const std::vector<std::string> before = Check(graph);
        std::string refusals[2];
        std::string files[2];
        for (const int front : {0, 1}) {
            Write(graph);
            refusals[front] = front == 0 ? InJson(name, value) : InTerminal(name, value);
            files[front] = File();
        }
        const std::string what = graph + name + "=" + value + "\n";
        EXPECT_EQ(files[0], files[1]) << what;
        EXPECT_EQ(refusals[0], refusals[1]) << what;
        std::vector<std::string> wanted = LinesOf(graph);
        std::replace_if(
            wanted.begin(), wanted.end(),
            [&](const std::string& line) { return line.starts_with(name + "="); }, name + "=" + value);
        const std::string changed = [&] {
            std::string text;
            for (const std::string& line : wanted) text += line + "\n";
            return text;
        }();
        const std::vector<std::string> after = Check(changed);
        if (refusals[0].empty()) {
            EXPECT_EQ(files[0], changed) << what;
            EXPECT_LE(after.size(), before.size()) << what << testing::PrintToString(after);
            ++taken;
        } else {
            EXPECT_EQ(files[0], graph) << what;
            const std::string first = refusals[0].substr(0, refusals[0].find('\n'));
            const bool isSame = std::ranges::any_of(after, [&](const std::string& text) {
                return text.starts_with("m." + first) || text.starts_with(first);
            });
            EXPECT_TRUE(isSame) << what << first << testing::PrintToString(after);
            ++refused;
        }
    }

    const host::ModuleCatalogue catalogue;
    std::unique_ptr<tc::OwnedFolder> own;
    host::SetOptions set;
    int taken = 0;
    int refused = 0;
};

TEST_F(EveryModule, IsSetTheSameInBothFrontEnds) {
    int parameters = 0;
    for (const auto& [id, entry] : catalogue.Entries()) {
        std::string error;
        const host::ModulePointer made = catalogue.Create(entry, 0, error);
        auto* const module = dynamic_cast<TCBaseModuleEx*>(made.get());
        if (module == nullptr) continue;
        for (const TCModuleParameter& parameter : module->GetParameters()) {
            ++parameters;
            const std::string condition = parameter.enabledWhen.parameter;
            std::string graph = "[m]\nmodule=" + id + "\n";
            for (const TCModuleParameter& other : module->GetParameters()) {
                const std::string words = parameter.enabledWhen.values;
                if (other.name == condition)
                    graph += condition + "=" + words.substr(0, words.find('|')) + "\n";
                else if (&other == &parameter || other.defaultValue == nullptr)
                    graph += std::string(other.name) + "=" + DefaultFor(id, other) + "\n# kept\n";
            }
            for (const std::string& value : ValuesFor(parameter))
                if (value != DefaultFor(id, parameter)) Try(graph, parameter.name, value);
        }
    }
    EXPECT_GT(parameters, 50);
    EXPECT_GT(taken, parameters);
    EXPECT_GT(refused, parameters);
}

TEST_F(EveryModule, HasLabelsInBothLanguages) {
    for (const auto& [id, entry] : catalogue.Entries()) {
        std::string error;
        const host::ModulePointer made = catalogue.Create(entry, 0, error);
        auto* const module = dynamic_cast<TCBaseModuleEx*>(made.get());
        if (module == nullptr) continue;
        for (const TCModuleParameter& parameter : module->GetParameters())
            for (const int language : {0, 1}) {
                TCSetLoadStrResLanguage(language);
                EXPECT_STRNE(parameter.label.Text(), "") << id << "." << parameter.name;
            }
    }
    TCSetLoadStrResLanguage(0);
}

}  // namespace
