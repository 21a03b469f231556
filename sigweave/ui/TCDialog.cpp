#include "sigweave/ui/TCDialog.h"

#include <algorithm>
#include <set>

#include "sigweave/foundation/HostRecords.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"
#include "sigweave/ui/PropertyText.h"

namespace {

using tc::Bilingual;
using Info = TCPropertyDialogInfo;

constexpr int INPUT_BALLOON = 6;
constexpr int OUTPUT_BALLOON = 7;
constexpr int MOST_NESTED = 64;  // groups in one another; more is a loop

constexpr Bilingual UNKNOWN("%1: there is no such parameter; %2", "%1: diesen Parameter gibt es nicht; %2");
constexpr Bilingual READ_ONLY("%1: can only be read", "%1: kann nur gelesen werden");
constexpr Bilingual NOT_NOW("%1: can be changed only while %2 is %3",
                            "%1: lässt sich nur ändern, solange %2 %3 ist");
constexpr Bilingual NO_BUTTON("%1: is no button", "%1: ist kein Knopf");
constexpr Bilingual PORT_TWICE("%1: two ports are called '%2'; give one of them another name",
                               "%1: zwei Anschlüsse heißen '%2'; geben Sie einem einen anderen Namen");
constexpr Bilingual INPUTS("Inputs", "Eingänge");
constexpr Bilingual OUTPUTS("Outputs", "Ausgänge");

CString Unknown(const CString& key, const TCPropertyDialog& dialog) {
    CStringArray keys;
    for (int i = 0; i < dialog.GetCount(); ++i)
        if (dialog.Get(i)->HasValue()) keys.push_back(dialog.Get(i)->key);
    return UNKNOWN.With({key, tc::SuggestNames(key, keys)});
}

// As values are read, whatever blanks a file has around them.
CString Trimmed(const CString& text) {
    constexpr const char* BLANKS = " \t";
    const std::size_t first = text.find_first_not_of(BLANKS);
    if (first == text.npos) return "";
    return text.substr(first, text.find_last_not_of(BLANKS) + 1 - first);
}

// The names of ports that an item gives, with their kinds.
using PortNames = CArray<std::pair<Info::PORTS, CString>>;
PortNames PortNamesOf(const Info& item, const CString& text) {
    PortNames names;
    if (item.kind != Info::LIST) {
        if (item.ports != Info::NO_PORTS) names.emplace_back(item.ports, text);
        return names;
    }
    CArray<CStringArray> rows;
    tc::ReadPropertyRows(text, rows);
    for (const CStringArray& row : rows)
        for (std::size_t i = 0; i < std::min(row.size(), item.columns.size()); ++i)
            if (item.columns[i].ports != Info::NO_PORTS) names.emplace_back(item.columns[i].ports, row[i]);
    return names;
}

}  // namespace

TCDialog::TCDialog(TCPropertyDialog& description, CWnd* window) : dialog(description), parent(window) {
    Load();
}

void TCDialog::Load() {
    undo.clear();
    texts.clear();
    TakeFromBound(true);
}

// All texts, or of those only whose variable has changed.
void TCDialog::TakeFromBound(bool all) {
    Texts before = std::exchange(bound, {});
    Texts kept = std::exchange(texts, {});
    for (int i = 0; i < dialog.GetCount(); ++i) {
        const Info& item = *dialog.Get(i);
        if (!item.HasValue()) continue;
        const CString now = bound[item.key] = item.get();
        const bool keeps = !all && kept.contains(item.key) && before[item.key] == now;
        texts[item.key] = keeps ? kept[item.key] : now;
    }
}

CString TCDialog::GetText(const CString& key) const {
    const auto found = texts.find(key);
    return found != texts.end() ? found->second : CString();
}

bool TCDialog::IsChanged(const CString& key) const {
    const auto found = bound.find(key);
    return found != bound.end() && found->second != GetText(key);
}

bool TCDialog::Holds(const TCPropertyCondition& condition, const Texts& texts) {
    if (condition.values.empty()) return true;
    const auto found = texts.find(condition.key);
    return found != texts.end() && std::ranges::count(condition.values, Trimmed(found->second)) > 0;
}

bool TCDialog::HoldForAll(const CString& key, TCPropertyCondition Info::*condition) const {
    const Info* item = dialog.Find(key);
    if (item == nullptr) return false;
    for (int nested = 0; item != nullptr && nested < MOST_NESTED; ++nested) {
        if (!Holds(item->*condition, texts)) return false;
        item = item->parent.empty() ? nullptr : dialog.Find(item->parent);
    }
    return true;
}

bool TCDialog::IsEnabled(const CString& key) const {
    return HoldForAll(key, &Info::enabledWhen);
}

bool TCDialog::IsShown(const CString& key) const {
    return HoldForAll(key, &Info::shownWhen);
}

bool TCDialog::IsExchanged(const Info& item) const {
    return item.HasValue() && item.IsEditable() && IsEnabled(item.key) && IsShown(item.key);
}

// Empty when it can be changed: names the condition that does not hold, of the item or of what it is in.
CString TCDialog::WhyNotNow(const Info& item) const {
    const Info* at = &item;
    for (int nested = 0; at != nullptr && nested < MOST_NESTED; ++nested) {
        for (const TCPropertyCondition* condition : {&at->enabledWhen, &at->shownWhen}) {
            if (Holds(*condition, texts)) continue;
            CString values;
            for (const CString& value : condition->values) values += (values.empty() ? "" : ", ") + value;
            return NOT_NOW.With({item.key, condition->key, values});
        }
        at = at->parent.empty() ? nullptr : dialog.Find(at->parent);
    }
    return "";
}

bool TCDialog::SetText(const CString& key, const CString& text, Refusal& refusal) {
    const Info* const item = dialog.Find(key);
    CString reason;
    if (item == nullptr || !item->HasValue())
        reason = Unknown(key, dialog);
    else if (!item->IsEditable())
        reason = READ_ONLY.With({key});
    else
        reason = WhyNotNow(*item);
    if (reason.empty()) reason = item->WhyNotAllowed(text);
    if (!reason.empty()) {
        refusal = {key, reason};
        return false;
    }
    const CString before = GetText(key);
    if (before == text) return true;
    undo.emplace_back(key, before);
    Change(CString(key), text);
    return true;
}

void TCDialog::Change(const CString& key, const CString& text) {
    texts[key] = text;
    const Info* const item = dialog.Find(key);
    if (item == nullptr || !item->rebuilds || !dialog.onRebuild) return;
    const Texts now = texts;
    dialog.onRebuild(dialog, [&now](const char* other) {
        const auto found = now.find(other);
        return found != now.end() ? found->second : CString();
    });
    TakeFromBound(false);
}

bool TCDialog::Undo() {
    if (undo.empty()) return false;
    const auto [key, text] = undo.back();
    undo.pop_back();
    Change(key, text);
    return true;
}

bool TCDialog::Press(const CString& key, Refusal& refusal) {
    const Info* const item = dialog.Find(key);
    const bool isButton = item != nullptr && item->kind == Info::BUTTON && item->press;
    const CString reason = isButton ? WhyNotNow(*item) : NO_BUTTON.With({key});
    if (!reason.empty()) {
        refusal = {key, reason};
        return false;
    }
    const auto press = item->press;  // which may remove its own item
    press();
    TakeFromBound(false);
    return true;
}

TCDialog::Refusal TCDialog::About(const CString& text) const {
    const CString key = text.substr(0, text.find(':'));
    return {dialog.Find(key) != nullptr ? key : CString(), text};
}

bool TCDialog::CheckAll(Refusal& refusal) const {
    for (int i = 0; i < dialog.GetCount(); ++i) {
        const Info& item = *dialog.Get(i);
        if (!IsExchanged(item)) continue;
        const CString reason = item.WhyNotAllowed(GetText(item.key));
        if (reason.empty()) continue;
        refusal = {item.key, reason};
        return false;
    }
    if (!CheckPortNames(refusal)) return false;
    if (!dialog.checkTogether) return true;
    const CString reason = dialog.checkTogether([this](const char* key) { return GetText(key); });
    if (!reason.empty()) refusal = About(reason);
    return reason.empty();
}

bool TCDialog::CheckPortNames(Refusal& refusal) const {
    std::set<std::pair<Info::PORTS, CString>> seen;
    for (int i = 0; i < dialog.GetCount(); ++i) {
        const Info& item = *dialog.Get(i);
        if (!IsShown(item.key)) continue;
        for (const auto& [kind, name] : PortNamesOf(item, GetText(item.key))) {
            if (name.empty() || seen.emplace(kind, name).second) continue;
            refusal = {item.key, PORT_TWICE.With({item.key, name})};
            PointAtPortName(item, kind == Info::INPUT_PORTS, name, refusal.text);
            return false;
        }
    }
    return true;
}

void TCDialog::PointAtPortName(const Info& item, bool isInput, const CString& name,
                               const CString& text) const {
    CWnd* const mainWindow = TCGetMainWindow();
    if (mainWindow == nullptr) return;
    TCBalloonRecord record{};
    record.one = 1;
    record.window = parent != nullptr ? parent : mainWindow;
    CRect target;
    if (!record.window->GetControlRect(item.controlId, target)) target = record.window->GetClientRect();
    record.x = (target.left + target.right) / 2;
    record.y = (target.top + target.bottom) / 2;
    record.kind = isInput ? INPUT_BALLOON : OUTPUT_BALLOON;
    record.caption = (isInput ? INPUTS : OUTPUTS).Text();
    record.icon = IDI_INFORMATION;
    record.text = text.c_str();
    record.portText = name.c_str();
    mainWindow->SendMessageA(TC_HOST_MESSAGE, static_cast<unsigned long>(HostCommand::ShowBalloon), &record);
}

bool TCDialog::Store(Refusal& refusal) {
    return CheckAll(refusal) && Apply(refusal);
}

bool TCDialog::Apply(Refusal& refusal) {
    CArray<std::pair<const Info*, CString>> changed;  // with the value before
    for (int i = 0; i < dialog.GetCount(); ++i) {
        const Info& item = *dialog.Get(i);
        const CString before = item.HasValue() ? item.get() : CString();
        if (IsExchanged(item) && before != GetText(item.key)) changed.emplace_back(&item, before);
    }
    for (const auto& [item, before] : changed) item->set(GetText(item->key));
    CString reason;
    if (dialog.apply && !dialog.apply(reason)) {
        std::ranges::reverse(changed);
        for (const auto& [item, before] : changed)
            if (item->get() != before) item->set(before);
        refusal = About(reason);
        return false;
    }
    TakeFromBound(true);
    undo.clear();
    return true;
}

bool TCDialog::End(int result, Refusal& refusal) {
    return result != OK || Store(refusal);
}
