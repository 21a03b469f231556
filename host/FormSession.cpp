#include "host/FormSession.h"

#include <iostream>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

#include "sigweave/services/Bilingual.h"
#include "sigweave/ui/PropertyText.h"
#include "sigweave/ui/TCPropertyChooser.h"

namespace host {
namespace {

using Json = nlohmann::ordered_json;
using Info = TCPropertyDialogInfo;
using tc::Bilingual;

constexpr Bilingual NO_COMMAND(
    "this line is no command; write {\"set\": {\"name\": \"value\"}}, {\"press\": \"name\"}, {\"undo\": "
    "true}, {\"choose\": \"name\"} or {\"end\": \"ok\"}",
    "diese Zeile ist kein Befehl; schreiben Sie {\"set\": {\"Name\": \"Wert\"}}, {\"press\": \"Name\"}, "
    "{\"undo\": true}, {\"choose\": \"Name\"} oder {\"end\": \"ok\"}");
constexpr Bilingual NO_TEXT(
    "%1: a value is written as a text, a number, true or false, that of a list as "
    "rows of texts",
    "%1: ein Wert wird als Text, als Zahl, als true oder false geschrieben, der einer "
    "Liste als Zeilen aus Texten");
constexpr Bilingual NOTHING_TO_UNDO("there is no change to take back",
                                    "es gibt keine Änderung, die sich zurücknehmen ließe");

// By Info::KIND.
constexpr const char* KINDS[] = {"int",   "double", "string", "bool",     "combo",  "edit-combo",
                                 "radio", "slider", "time",   "file",     "output", "folder",
                                 "font",  "colour", "list",   "text",     "button", "read-only",
                                 "label", "group",  "page",   "separator"};

std::string Write(const Json& line) {
    return line.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void AddText(Json& json, const char* name, const CString& text) {
    if (!text.empty()) json[name] = text;
}

template <class Described>  // an item, or a column of a list
void AddLimits(Json& json, const Described& described) {
    AddText(json, "unit", described.unit);
    if (described.minimum > std::numeric_limits<double>::lowest()) json["minimum"] = described.minimum;
    if (described.maximum < std::numeric_limits<double>::max()) json["maximum"] = described.maximum;
    if (!described.choices.empty()) json["choices"] = described.choices;
}

Json DescribeColumn(const TCPropertyColumn& column) {
    Json json = {{"kind", KINDS[column.kind]}, {"key", column.key}};
    AddText(json, "label", column.label.Get());
    AddLimits(json, column);
    if (column.unique) json["unique"] = true;
    return json;
}

// What may change while the dialog is up.
Json DescribeState(const TCDialog& dialog, const Info& item) {
    Json json = {{"key", item.key}};
    if (item.secret) {
        json["given"] = !dialog.GetText(item.key).empty();
    } else if (item.kind == Info::LIST) {
        CArray<CStringArray> rows;
        tc::ReadPropertyRows(dialog.GetText(item.key), rows);
        json["value"] = rows;
    } else if (item.HasValue()) {
        json["value"] = dialog.GetText(item.key);
    }
    if (!dialog.IsEnabled(item.key)) json["enabled"] = false;
    if (!dialog.IsShown(item.key)) json["shown"] = false;
    return json;
}

Json DescribeItem(const TCDialog& dialog, const Info& item) {
    Json json = DescribeState(dialog, item);
    json["kind"] = KINDS[item.kind];
    AddText(json, "label", item.label.Get());
    AddText(json, "help", item.help.Get());
    AddLimits(json, item);
    if (item.step > 0.0) json["step"] = item.step;
    if (item.logarithmic) json["scale"] = "logarithmic";
    if (item.digits >= 0) json["digits"] = item.digits;
    if (item.live) json["live"] = true;
    if (item.secret) json["secret"] = true;
    if (!item.suggestions.empty()) json["suggestions"] = item.suggestions;
    AddText(json, "filter", item.fileFilter);
    AddText(json, "language", item.language);
    AddText(json, "parent", item.parent);
    if (item.required) json["required"] = true;
    for (const TCPropertyColumn& column : item.columns) json["columns"].push_back(DescribeColumn(column));
    return json;
}

template <class Describe>
Json ForEachItem(const TCDialog& dialog, Describe describe) {
    Json items = Json::array();
    const TCPropertyDialog& description = dialog.GetDescription();
    for (int i = 0; i < description.GetCount(); ++i) items.push_back(describe(dialog, *description.Get(i)));
    return items;
}

Json DescribeForm(const TCDialog& dialog) {
    Json form;
    AddText(form, "title", dialog.GetDescription().title.Get());
    form["items"] = ForEachItem(dialog, DescribeItem);
    return form;
}

// The text form of a value; false for what is none.
bool ReadValue(const Json& value, CString& text) {
    if (value.is_string()) {
        text = value.get<CString>();
    } else if (value.is_number()) {
        text = value.dump();
    } else if (value.is_boolean()) {
        text = value.get<bool>() ? "yes" : "no";
    } else if (value.is_array()) {
        CArray<CStringArray> rows;
        for (const Json& row : value) {
            CStringArray& cells = rows.emplace_back();
            if (!row.is_array()) return false;
            for (const Json& cell : row)
                if (cell.is_array() || !ReadValue(cell, cells.emplace_back())) return false;
        }
        text = tc::WritePropertyRows(rows);
    } else {
        return false;
    }
    return true;
}

// Nothing is set when one is refused.
bool Set(TCDialog& dialog, const Json& values, TCDialog::Refusal& refusal) {
    int done = 0;
    for (const auto& [key, value] : values.items()) {
        CString text;
        const bool isText = ReadValue(value, text);
        if (!isText) refusal = {key, NO_TEXT.With({key})};
        const CString before = dialog.GetText(key);
        if (isText && dialog.SetText(key, text, refusal)) {
            done += before != text;
            continue;
        }
        while (done-- > 0) dialog.Undo();
        return false;
    }
    return true;
}

Json Refuse(const TCDialog::Refusal& refusal) {
    Json answer = {{"ok", false}};
    AddText(answer, "key", refusal.key);
    answer["text"] = refusal.text;
    return answer;
}

constexpr Bilingual NO_CHOICE("%1: there is nothing to choose from; set a value",
                              "%1: hier gibt es keine Auswahl; setzen Sie einen Wert");

}  // namespace

// The chooser of an item, while it is up.
struct FormSession::Chooser {
    CString key;
    CString text;
    TCPropertyDialog description;
    std::unique_ptr<TCDialog> dialog;
    std::unique_ptr<FormSession> session;
};

FormSession::FormSession(TCDialog& dialog, std::string folderOfPaths)
    : shown(dialog), folder(std::move(folderOfPaths)) {}

FormSession::~FormSession() = default;

std::string FormSession::Describe() const {
    return Write({{"form", DescribeForm(shown)}});
}

bool FormSession::Do(const std::string& line, TCDialog::Refusal& refusal) {
    refusal = {"", NO_COMMAND.Text()};
    const Json parsed = Json::parse(line, nullptr, false);
    if (!parsed.is_object() || parsed.size() != 1) return false;
    const std::string command = parsed.begin().key();
    const Json& given = parsed.begin().value();
    if (command == "set" && given.is_object()) return Set(shown, given, refusal);
    if (command == "press" && given.is_string()) return shown.Press(given.get<CString>(), refusal);
    if (command == "choose" && given.is_string()) return Choose(given.get<CString>(), refusal);
    if (command == "undo") {
        refusal.text = NOTHING_TO_UNDO.Text();
        return shown.Undo();
    }
    if (command != "end" || (given != "ok" && given != "cancel")) return false;
    const int wanted = given == "ok" ? TCDialog::OK : TCDialog::CANCEL;
    over = shown.End(wanted, refusal);
    if (over) result = wanted;
    return over;
}

bool FormSession::Choose(const CString& key, TCDialog::Refusal& refusal) {
    const Info* const item = shown.GetDescription().Find(key);
    auto made = std::make_unique<Chooser>();
    made->key = key;
    made->text = shown.GetText(key);
    if (item == nullptr || TCPropertyChooser(made->description, *item, made->text, folder) == 0) {
        refusal = {key, NO_CHOICE.With({key})};
        return false;
    }
    made->dialog = std::make_unique<TCDialog>(made->description);
    made->session = std::make_unique<FormSession>(*made->dialog, folder);
    chooser = std::move(made);
    return true;
}

// Of the chooser, until it is over: then the item has what was chosen.
std::string FormSession::AnswerOfChooser(const std::string& line) {
    std::string answer = chooser->session->Answer(line);
    if (!chooser->session->IsOver()) return answer;
    const std::unique_ptr<Chooser> done = std::move(chooser);
    if (done->session->GetResult() != TCDialog::OK) return Write({{"ok", true}});
    return Answer(Write({{"set", {{done->key, done->text}}}}));
}

std::string FormSession::Answer(const std::string& line) {
    if (chooser != nullptr) return AnswerOfChooser(line);
    const Json before = ForEachItem(shown, DescribeState);
    TCDialog::Refusal refusal;
    if (!Do(line, refusal)) return Write(Refuse(refusal));
    Json answer = {{"ok", true}};
    if (chooser != nullptr) {
        answer["chooser"] = DescribeForm(*chooser->dialog);
        return Write(answer);
    }
    if (over) answer["result"] = result;
    const Json now = ForEachItem(shown, DescribeState);
    bool sameItems = now.size() == before.size();
    Json changed = Json::array();
    for (std::size_t i = 0; sameItems && i < now.size(); ++i) {
        sameItems = now[i]["key"] == before[i]["key"];
        if (now[i] != before[i]) changed.push_back(now[i]);
    }
    if (!sameItems)
        answer["form"] = DescribeForm(shown);
    else if (!changed.empty())
        answer["items"] = changed;
    return Write(answer);
}

void FormSession::Run(std::istream& in, std::ostream& out) {
    out << Describe() << std::endl;
    for (std::string line; !over && out && std::getline(in, line);) out << Answer(line) << std::endl;
}

}  // namespace host
