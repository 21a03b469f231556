#include "host/check/CheckSubject.h"

#include <algorithm>

#include "host/check/Finding.h"
#include "sigweave/module/TCModuleMessage.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/StringResources.h"

namespace host::check {

using tc::Bilingual;

namespace {

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

int CheckSubject::Kind() {
    const std::vector<std::string>& ids = Library().GetIds();
    return static_cast<int>(std::find(ids.begin(), ids.end(), id) - ids.begin());
}

ModulePointer CheckSubject::Create(int instance) {
    const int kind = Kind();
    Call("TCModuleLibrary_Create");
    ModulePointer module(Library().create(kind, instance), {Library().destroy, kind});
    if (module == nullptr)
        Fail(
            Bilingual("the library did not create it", "die Bibliothek erzeugte es nicht").Text(),
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
