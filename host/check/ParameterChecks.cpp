#include <algorithm>
#include <set>
#include <sstream>
#include <vector>

#include "host/Guard.h"
#include "host/check/Checks.h"
#include "host/check/NameRules.h"
#include "host/check/ParameterValues.h"
#include "host/check/Stand.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/TCSI_Unit.h"

namespace host::check {
namespace {

using tc::Bilingual;

std::string Which(const TCModuleParameter& parameter) {
    return Bilingual("parameter '%1'", "Parameter '%1'").With({Text(parameter.name)});
}

void CheckName(const TCModuleParameter& parameter, std::set<std::string>& names) {
    const std::string mistake = WhyNoParameterName(Text(parameter.name));
    if (!mistake.empty())
        Fail(Bilingual("the name of %1 %2", "der Name von %1 %2").With({Which(parameter), mistake}),
             Bilingual("choose one of letters, digits and '_', for lines name=value",
                       "wählen Sie einen aus Buchstaben, Ziffern und '_', für Zeilen Name=Wert")
                 .Text());
    if (!names.insert(parameter.name).second || names.contains("module"))
        Fail(Bilingual("%1: this name is taken", "%1: dieser Name ist vergeben").With({Which(parameter)}),
             Bilingual("give each parameter a name of its own, and none the name 'module'",
                       "geben Sie jedem Parameter einen eigenen Namen und keinem den Namen 'module'")
                 .Text());
}

void CheckLimits(const TCModuleParameter& parameter) {
    if (!(parameter.minimum <= parameter.maximum))
        Fail(Bilingual("%1: the minimum is above the maximum", "%1: das Minimum liegt über dem Maximum")
                 .With({Which(parameter)}),
             Bilingual("exchange them", "vertauschen Sie beide").Text());
    if (parameter.kind == TCModuleParameter::CHOICE && Text(parameter.choices).empty())
        Fail(Bilingual("%1: there is nothing to choose from", "%1: es gibt nichts zu wählen")
                 .With({Which(parameter)}),
             Bilingual("name the words in `choices`", "nennen Sie die Wörter in `choices`").Text());
    if (parameter.defaultValue != nullptr && !parameter.Allows(parameter.defaultValue))
        Fail(Bilingual("%1: the default '%2' is not allowed; allowed is %3",
                       "%1: die Vorgabe '%2' ist nicht erlaubt; erlaubt ist %3")
                 .With({Which(parameter), parameter.defaultValue, std::string(parameter.DescribeAllowed())}),
             Bilingual("choose another default, or other limits",
                       "wählen Sie eine andere Vorgabe oder andere Grenzen")
                 .Text());
    TCSI_Unit unit;
    const std::string text = Text(parameter.unit);
    if (!text.empty() && !unit.FromString(text.c_str()))
        Fail(Bilingual("%1: '%2' is no unit", "%1: '%2' ist keine Einheit").With({Which(parameter), text}),
             Bilingual("write SI symbols, as m s^-2; what is not an SI unit belongs in the help",
                       "schreiben Sie SI-Zeichen, wie m s^-2; was keine SI-Einheit ist, gehört in die Hilfe")
                 .Text());
}

// The words of a list between '|'.
std::vector<std::string> WordsOf(const char* texts) {
    std::vector<std::string> words;
    std::istringstream all(Text(texts));
    for (std::string word; std::getline(all, word, '|');) words.push_back(word);
    return words;
}

// What a form needs: suggestions that are allowed, and conditions that can hold.
void CheckForm(const TCModuleParameter& parameter, const TCBaseModuleEx& module) {
    for (const std::string& value : WordsOf(parameter.suggestions))
        if (!parameter.Allows(value.c_str()))
            Fail(Bilingual("%1: the suggestion '%2' is not allowed; allowed is %3",
                           "%1: der Vorschlag '%2' ist nicht erlaubt; erlaubt ist %3")
                     .With({Which(parameter), value, std::string(parameter.DescribeAllowed())}),
                 Bilingual("suggest what the limits allow", "schlagen Sie vor, was die Grenzen erlauben")
                     .Text());
    const std::string other = Text(parameter.enabledWhen.parameter);
    if (other.empty()) return;
    const TCModuleParameter* const condition = module.FindParameter(other.c_str());
    const bool hasWords = condition != nullptr && (condition->kind == TCModuleParameter::CHOICE ||
                                                   condition->kind == TCModuleParameter::SWITCH);
    const std::vector<std::string> values = WordsOf(parameter.enabledWhen.values);
    const auto isOne = [&](const std::string& value) { return condition->FindChoice(value.c_str()) >= 0; };
    if (!hasWords || values.empty() || !std::ranges::all_of(values, isOne))
        Fail(Bilingual("%1: counts only while '%2' is '%3', which it cannot be",
                       "%1: zählt nur, solange '%2' '%3' ist, was es nicht sein kann")
                 .With({Which(parameter), other, Text(parameter.enabledWhen.values)}),
             Bilingual("name a choice or a switch in `enabledWhen`, and some of its words",
                       "nennen Sie in `enabledWhen` eine Auswahl oder einen Schalter und dessen Wörter")
                 .Text());
}

// The refusal of settings must come with a text, and leave them as they were.
class Refusals {
 public:
    Refusals(TCBaseModuleEx& checkedModule, const CheckSubject& checkSubject)
        : module(checkedModule), subject(checkSubject) {}

    void CheckForbidden(const TCModuleParameter& parameter) {
        const std::string before(module.GetSettings());
        for (const std::string& value : ForbiddenValues(parameter)) {
            TCString error;
            subject.Call("SetParameter");
            const bool taken = module.SetParameter(parameter.name, value.c_str(), error);
            if (taken || error.IsEmpty() || std::string(module.GetSettings()) != before)
                Fail(Bilingual("%1 takes the value '%2', or refuses it without a text",
                               "%1 nimmt den Wert '%2' an oder lehnt ihn ohne Text ab")
                         .With({Which(parameter), value}),
                     Bilingual("leave SetParameter to the base", "überlassen Sie SetParameter der Basis")
                         .Text());
        }
    }

    // Each allowed value is either refused in words, or comes back out of the settings' text as it was.
    void CheckRoundTrip(const TCModuleParameter& parameter) {
        const std::string before(module.GetSettings());
        for (const std::string& value : AllowedValues(parameter)) {
            Restore(before);
            TCString error;
            subject.Scene(std::string(parameter.name) + "=" + value.substr(0, 60));
            if (!module.SetParameter(parameter.name, value.c_str(), error)) continue;
            const std::string text(module.GetSettings());
            Restore(before);
            const std::string restored(module.GetSettings());
            subject.Call("SetSettings");
            error.Empty();
            if (!module.SetSettings(text.c_str(), error))
                CheckRefused(parameter, value, restored, std::string(error));
            else if (std::string(module.GetSettings()) != text || Get(parameter) != value)
                Fail(Bilingual("%1 does not round-trip: '%2' comes back as '%3'",
                               "%1 wird nicht unverändert zurückgelesen: aus '%2' wird '%3'")
                         .With({Which(parameter), value, Get(parameter)}),
                     Bilingual("do not change values in OnSettingsChanged: refuse what does not fit",
                               "ändern Sie in OnSettingsChanged keine Werte: lehnen Sie ab, was nicht passt")
                         .Text());
        }
        Restore(before);
    }

 private:
    std::string Get(const TCModuleParameter& parameter) const {
        return std::string(module.GetParameter(parameter.name));
    }

    void Restore(const std::string& settings) {
        TCString ignored;
        subject.Call("SetSettings");
        module.SetSettings(settings.c_str(), ignored);
    }

    void CheckRefused(const TCModuleParameter& parameter, const std::string& value, const std::string& before,
                      const std::string& error) {
        if (error.empty())
            Fail(Bilingual("%1='%2' is refused without a text", "%1='%2' wird ohne Text abgelehnt")
                     .With({Which(parameter), value}),
                 Bilingual("say in `error` of OnSettingsChanged what is wrong and what is allowed",
                           "nennen Sie in `error` von OnSettingsChanged, was falsch ist und was erlaubt wäre")
                     .Text());
        if (std::string(module.GetSettings()) != before)
            Fail(Bilingual("%1='%2' is refused, and the settings have changed all the same",
                           "%1='%2' wird abgelehnt, und die Einstellungen haben sich doch geändert")
                     .With({Which(parameter), value}),
                 Bilingual("change nothing in OnSettingsChanged before the values are known to fit",
                           "ändern Sie in OnSettingsChanged nichts, bevor die Werte sicher passen")
                     .Text());
    }

    TCBaseModuleEx& module;
    const CheckSubject& subject;
};

// Without settings when they lack something.
std::unique_ptr<Stand> MakeStand(CheckSubject& subject) {
    try {
        return std::make_unique<Stand>(subject);
    } catch (const Finding& finding) {
        if (finding.status == Finding::FAILED) throw;
        return std::make_unique<Stand>(subject, 0, false);
    }
}

}  // namespace

Finding CheckParameters(CheckSubject& subject) {
    const std::unique_ptr<Stand> stand = MakeStand(subject);
    if (stand->Extended() == nullptr || stand->Extended()->GetParameters().empty())
        DoesNotApply(Bilingual("it has none", "es hat keine").Text());
    std::set<std::string> names;
    for (const TCModuleParameter& parameter : stand->Extended()->GetParameters()) {
        CheckName(parameter, names);
        CheckLimits(parameter);
        CheckForm(parameter, *stand->Extended());
    }
    Refusals refusals(*stand->Extended(), subject);
    for (const TCModuleParameter& parameter : stand->Extended()->GetParameters()) {
        refusals.CheckForbidden(parameter);
        refusals.CheckRoundTrip(parameter);
    }
    return Passed(Bilingual("%1, each with its limits", "%1, jeder mit seinen Grenzen")
                      .With({std::to_string(names.size())}));
}

}  // namespace host::check
