#include <set>

#include "host/Guard.h"
#include "host/check/Checks.h"
#include "host/check/NameRules.h"
#include "host/check/Stand.h"
#include "sigweave/module/TCValidateActualPortType.h"
#include "sigweave/services/Bilingual.h"

namespace host::check {
namespace {

using tc::Bilingual;

constexpr int MOST_PORTS = 65536;

void MustSay(const char* text, const char* call) {
    if (!Text(text).empty()) return;
    Fail(Bilingual("%1 answers nothing", "%1 liefert nichts").With({call}),
         Bilingual("return a text that lives as long as the module",
                   "geben Sie einen Text zurück, der so lange lebt wie das Modul")
             .Text());
}

void CheckWords(TCBaseModule& module, const std::string& id, const CheckSubject& subject) {
    subject.Call("GetModuleId");
    if (Text(module.GetModuleId()) != id)
        Fail(Bilingual("GetModuleId answers '%1', and its library calls it '%2'",
                       "GetModuleId liefert '%1', die Bibliothek nennt es '%2'")
                 .With({Text(module.GetModuleId()), id}),
             Bilingual("return ID", "geben Sie ID zurück").Text());
    subject.Call("GetDescription");
    MustSay(module.GetDescription(), "GetDescription");
    subject.Call("GetBaseName");
    MustSay(module.GetBaseName(), "GetBaseName");
    subject.Call("GetModuleName");
    MustSay(module.GetModuleName(), "GetModuleName");
    subject.Call("GetTypeOfModule");
    const int type = module.GetTypeOfModule();
    if (type != 0 && type != 1)
        Fail(Bilingual("GetTypeOfModule answers %1", "GetTypeOfModule liefert %1")
                 .With({std::to_string(type)}),
             Bilingual("return 1 for a source and 0 for all others",
                       "geben Sie 1 für eine Quelle zurück, sonst 0")
                 .Text());
}

// One direction of a module's ports.
class PortList {
 public:
    PortList(TCBaseModule& checkedModule, PORTTYPE portKind, const CheckSubject& checkSubject)
        : module(checkedModule), kind(portKind), subject(checkSubject) {}

    int Check() {
        subject.Call(kind == INPUT ? "GetNoInput" : "GetNoOutput");
        const int count = kind == INPUT ? module.GetNoInput() : module.GetNoOutput();
        if (count < 0 || count > MOST_PORTS)
            Fail(Bilingual("%1 is not a possible number of ports",
                           "%1 ist keine mögliche Zahl von Anschlüssen")
                     .With({std::to_string(count)}),
                 Bilingual("there are 0 to 65536 of a kind", "es gibt 0 bis 65536 einer Art").Text());
        for (int port = 0; port < count; ++port) Check(port);
        for (const int outside : {-1, count}) {  // must be survived, whatever the answer
            Name(outside);
            const char* type = nullptr;
            int items = 0;
            module.GetPortType(kind, outside, type, items);
        }
        return count;
    }

 private:
    std::string Name(int port) const {
        subject.Call(kind == INPUT ? "GetInputName" : "GetOutputName");
        return Text(kind == INPUT ? module.GetInputName(port) : module.GetOutputName(port));
    }

    void Check(int port) {
        const std::string name = Name(port);
        const std::string mistake = WhyNoPortName(name, kind == OUTPUT);
        const Bilingual& word = kind == INPUT ? INPUT_WORD : OUTPUT_WORD;
        const std::string which = word.With({std::to_string(port), name});
        if (!mistake.empty())
            Fail(Bilingual("the name of %1 %2", "der Name von %1 %2").With({which, mistake}),
                 Bilingual("a line of a graph file must be able to name it",
                           "eine Verbindung in einer Graphdatei muss ihn nennen können")
                     .Text());
        if (!names.insert(name).second)
            Fail(Bilingual("the name of %1 is used twice", "den Namen von %1 gibt es zweimal").With({which}),
                 Bilingual("give each port a name of its own; MakePortNameUnique makes one",
                           "geben Sie jedem Anschluss einen eigenen Namen; MakePortNameUnique macht einen")
                     .Text());
        CheckType(port, which);
    }

    void CheckType(int port, const std::string& which) {
        const char* type = nullptr;
        int items = 0;
        subject.Call("GetPortType");
        module.GetPortType(kind, port, type, items);
        const std::string text = Text(type);
        if (text.empty() && items == 0) return;  // it adopts the type of its line
        const TCPortHelper::TYPE code = TCPortHelper::Datatype(items, type);
        if (!IsTypeText(text, items) || (code & TCPortHelper::TYPE_UNKNOWN) != 0)
            Fail(Bilingual("%1 has the type '%2' of %3 items, which does not exist",
                           "%1 hat den Typ '%2' aus %3 Teilen, "
                           "den es nicht gibt")
                     .With({which, text, std::to_string(items)}),
                 Bilingual(
                     "a type is token{declarator}, as DOUBLE[]{TIME_DOMAIN}; docs/module-guide.md lists the "
                     "tokens",
                     "ein Typ ist Token{Deklarator}, wie DOUBLE[]{TIME_DOMAIN}; docs/module-guide.md nennt "
                     "die Token")
                     .Text());
        subject.Call("ValidatePortType");
        if (module.ValidatePortType(kind, port, type, items) == 0)
            Fail(Bilingual("%1 refuses its own type '%2'", "%1 lehnt den eigenen Typ '%2' ab")
                     .With({which, text}),
                 Bilingual("let ValidatePortType take what GetPortType answers",
                           "lassen Sie ValidatePortType annehmen, was GetPortType liefert")
                     .Text());
    }

    // As many items token{declarator} as there are said to be.
    static bool IsTypeText(const std::string& text, int items) {
        TCValidateActualPortType parser;
        parser.FillValidation(items, text.c_str());
        bool complete = items > 0;
        for (int item = 0; item < items && complete; ++item) {
            TCString token;
            TCString declarator;
            complete = parser.GetInternalToken(item, token, declarator) && !token.IsEmpty();
        }
        return complete && parser.GetInternalPortType() == text.c_str();
    }

    static constexpr Bilingual INPUT_WORD{"input %1 ('%2')", "Eingang %1 ('%2')"};
    static constexpr Bilingual OUTPUT_WORD{"output %1 ('%2')", "Ausgang %1 ('%2')"};

    TCBaseModule& module;
    PORTTYPE kind;
    const CheckSubject& subject;
    std::set<std::string> names;
};

}  // namespace

Finding CheckCreation(CheckSubject& subject) {
    const int kinds = subject.Library().FirstKind() + static_cast<int>(subject.Library().GetIds().size());
    for (const int outside : {-1, kinds}) {
        subject.Call("TCModuleLibrary_Create");
        if (subject.Library().create(outside, 0) == nullptr) continue;
        Fail(Bilingual("the library creates a module of kind %1, which does not exist",
                       "die Bibliothek erzeugt ein Modul der Art %1, die es nicht gibt")
                 .With({std::to_string(outside)}),
             Bilingual("export the entry points with TC_MODULE_LIBRARY(...)",
                       "exportieren Sie die Schnittstellenfunktionen mit TC_MODULE_LIBRARY(...)")
                 .Text());
    }
    const ModulePointer first = subject.Create(0);
    const ModulePointer second = subject.Create(2);
    CheckWords(*first, subject.Id(), subject);
    CheckWords(*second, subject.Id(), subject);
    if (second->GetInstance() != 2)
        Fail(Bilingual("the instance number 2 became %1", "aus der Instanznummer 2 wurde %1")
                 .With({std::to_string(second->GetInstance())}),
             Bilingual("pass the constructor's argument on to the base",
                       "geben Sie das Argument des Konstruktors an die Basis weiter")
                 .Text());
    subject.Call("TCModuleLibrary_Delete");
    return Passed(Text(first->GetDescription()));
}

Finding CheckPorts(CheckSubject& subject) {
    Stand stand(subject);
    std::string numbers;
    for (const long wanted : {3L, 1L}) {
        subject.Call("GetMessageA");
        const bool isFixed = stand.Module().GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, wanted) < 0;
        const int inputs = PortList(stand.Module(), INPUT, subject).Check();
        const int outputs = PortList(stand.Module(), OUTPUT, subject).Check();
        numbers =
            Bilingual("%1 inputs, %2 outputs", "%1 Eingänge, %2 Ausgänge")
                .With({isFixed ? std::to_string(inputs) : Bilingual("any number of", "beliebig viele").Text(),
                       std::to_string(outputs)});
        if (isFixed) break;
    }
    return Passed(numbers);
}

}  // namespace host::check
