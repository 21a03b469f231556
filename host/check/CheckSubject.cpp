#include "host/check/CheckSubject.h"

#include <algorithm>

#include "host/check/Finding.h"
#include "sigweave/module/TCModuleMessage.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/StringResources.h"

namespace host::check {

using tc::Bilingual;

namespace {

using Change = tc::ChildPlace::Change;

struct PlaceFault {
    Change change;
    Bilingual reason;  // with what was found
    Bilingual remedy;
};

constexpr PlaceFault PLACE_FAULTS[] = {
    {Change::Elsewhere,
     {"it changed the working directory to '%1'", "es hat das Arbeitsverzeichnis auf '%1' geändert"},
     {"the working directory belongs to the host and to all its modules; open files by their full path",
      "das Arbeitsverzeichnis gehört dem Programm und allen Modulen; öffnen Sie Dateien mit dem ganzen "
      "Pfad"}},
    {Change::Replaced,
     {"it renamed or replaced the folder in which it works",
      "es hat den Ordner, in dem es arbeitet, umbenannt oder ersetzt"},
     {"create, rename and remove only the module's own files and folders",
      "legen Sie nur eigene Dateien und Ordner an, und benennen und löschen Sie nur solche"}},
    {Change::Closed,
     {"it closed the file descriptor %1, which it had not opened",
      "es hat den Dateideskriptor %1 geschlossen, den es nicht geöffnet hatte"},
     {"close only what the module opened, and once",
      "schließen Sie nur, was das Modul geöffnet hat, und nur einmal"}},
    {Change::Redirected,
     {"it redirected the standard stream %1", "es hat den Standardkanal %1 umgelenkt"},
     {"the standard streams belong to the host; send texts with TCModuleMessage, and write files of the "
      "module's "
      "own",
      "die Standardkanäle gehören dem Programm; senden Sie Texte mit TCModuleMessage, und schreiben Sie "
      "eigene "
      "Dateien"}},
};

void DropMessage(const char*, TCModuleMessage::Types, const char*) {}

}  // namespace

const ModuleLibrary& CheckSubject::Library() {
    if (library != nullptr) return *library;
    std::string error;
    Call("dlopen");
    library = ModuleLibrary::Open(options.library, error);
    if (library == nullptr) DoesNotApply(error);
    return *library;
}

void CheckSubject::CheckPlace() const {
    const tc::ChildPlace::Finding found = place.WhatChanged();
    if (found.change == Change::None) return;
    const PlaceFault& fault = *std::ranges::find(PLACE_FAULTS, found.change, &PlaceFault::change);
    Fail(fault.reason.With({found.what}), fault.remedy.Text());
}

void CheckSubject::EnterFreshFolder() {
    CheckPlace();
    if (!place.EnterFresh())
        Fail(
            Bilingual("the check could not make an empty folder for the next run",
                      "die Prüfung konnte für den nächsten Lauf keinen leeren Ordner anlegen")
                .Text(),
            Bilingual(
                "close only what the module opened, and write less than the folder for temporary files holds",
                "schließen Sie nur, was das Modul geöffnet hat, und schreiben Sie weniger, als in den "
                "Ordner für temporäre Dateien passt")
                .Text());
}

int CheckSubject::Kind() {
    const std::vector<std::string>& ids = Library().GetIds();
    return Library().FirstKind() + static_cast<int>(std::find(ids.begin(), ids.end(), id) - ids.begin());
}

ModulePointer CheckSubject::Create(int instance) {
    const int kind = Kind();
    Call("TCModuleLibrary_Create");
    ModulePointer module(Library().create(kind, instance), {Library().destroy, kind});
    if (module == nullptr)
        Fail(
            Bilingual("the library did not create it", "die Bibliothek hat es nicht erzeugt").Text(),
            Bilingual("name its class in TC_MODULE_LIBRARY(...), and let its constructor do no more than "
                      "declare ports",
                      "nennen Sie seine Klasse in TC_MODULE_LIBRARY(...), und lassen Sie den Konstruktor nur "
                      "Anschlüsse angeben")
                .Text());
    Greet(*module);
    return module;
}

void CheckSubject::Greet(TCBaseModule& module) {
    Call("GetMessageA");
    module.GetMessageA(TCBaseModule::MESSAGE_SINK, reinterpret_cast<long>(&DropMessage));
    module.GetMessageA(TCBaseModule::MESSAGE_LANGUAGE, TCGetResourceLanguage());
    module.GetMessageA(TCPortHelper::MESSAGE_INSTANCE_HANDLE, reinterpret_cast<long>(Library().GetHandle()));
}

}  // namespace host::check
