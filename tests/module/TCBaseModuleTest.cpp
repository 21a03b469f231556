#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/TCBaseModule.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/module/TCTranslated.h"
#include "sigweave/module/TCValidateActualPortType.h"
#include "sigweave/services/Profile.h"

namespace {

class Bare final : public TCBaseModule {
 public:
    explicit Bare(int instance, const char* name = "Filter") : TCBaseModule(instance), baseName(name) {}
    const char* GetModuleId() const override { return "Bare"; }
    const char* GetDescription() const override { return "Declares nothing."; }
    int Execute() override { return 0; }
    const char* GetBaseName() const override { return baseName; }
    TCPortHelper& MakeHelper() {
        portHelper = std::make_unique<TCPortHelper>(this);
        return *portHelper;
    }
    const char* baseName;
};

// The position of a virtual operation in the table of its class: what the platform's binary interface keeps
// in a pointer to it is one more than its offset in bytes.
template <typename Class, typename Signature>
int SlotOf(Signature Class::*operation) {
    std::intptr_t word = 0;
    std::memcpy(&word, &operation, sizeof word);
    return static_cast<int>((word - 1) / static_cast<std::intptr_t>(sizeof(void*)));
}

template <typename... Operations>
void ExpectSlotsInOrder(Operations... operations) {
    int slot = 0;
    for (int found : {SlotOf(operations)...}) EXPECT_EQ(found, slot++);
}

TEST(TCBaseModule, VirtualOperationsKeepTheirSlots) {
    using M = TCBaseModule;
    using Ex = TCBaseModuleEx;
    using Checker = TCValidateActualPortType;
    ExpectSlotsInOrder(&M::GetModuleId, &M::GetTypeOfModule, &M::GetDescription, &M::GetFrameColor,
                       &M::AddLine, &M::DelLine, &M::OnLeftDblClk, &M::GetMessageA, &M::GetBaseAdr,
                       &M::SetBaseAdr, &M::DelBaseAdr, &M::GetNoInput, &M::GetNoOutput, &M::GetInputName,
                       &M::GetOutputName, &M::GetPortType, &M::ValidatePortType, &M::Init, &M::Fetch,
                       &M::Execute, &M::Done, &M::SetInputStream, &M::AddOutputStream, &M::DeleteStreams,
                       &M::ComputeValidationData, &M::BuildPropertyDialog, &M::OnEndShowDialog,
                       &M::GetBaseName, &Ex::GetProgress, &Ex::Interrupt, &Ex::OnSettingsChanged,
                       &Ex::GetLastErrorText, &Ex::OnInputsDeclared, &Ex::GetFiles, &Ex::CheckStart,
                       &Ex::ForetellOutput, &Ex::OnLiveChanged, &Ex::OfferRunFacts, &Ex::GetWaitHandle);
    ExpectSlotsInOrder(&Checker::ValidateTokenSet, &Checker::ValidateDeclaratorSet, &Checker::ExtractToken,
                       &Checker::ExtractDeclarator);
    ExpectSlotsInOrder(&TCArray<int>::GetGrowBy);
    static_assert(std::has_virtual_destructor_v<TCArray<int>>);
    static_assert(!std::has_virtual_destructor_v<Checker>);
}

// What a module answers to the host, in the order of its operations.
std::string Answers(TCBaseModule& module) {
    const char* type = "kept";
    int count = 7;
    module.GetPortType(INPUT, 0, type, count);
    std::string text = std::string(type) + " " + std::to_string(count) + " '" + module.GetInputName(0) +
                       "' '" + module.GetOutputName(1) + "' '" + module.GetInputName(-1) + "'";
    const TCIOStream* stream = module.SetInputStream(0, 0, 5);
    for (const int answer :
         {module.GetNoInput(), module.GetNoOutput(), module.Init(), module.Fetch(), module.Done(),
          module.ValidatePortType(INPUT, 0, "SWORD{BIN}", 1), module.ValidatePortType(INPUT, 0, type, count),
          stream ? stream->precision() : -1})
        text += " " + std::to_string(answer);
    return text;
}

TEST(TCBaseModule, AnswersFromItsHelperIfThereIsOne) {
    Bare module(0);
    int accepted = 1, other = 2;
    RET_PORT hit;
    TCIOStream receiver;
    for (const long nothing :
         {long{module.GetTypeOfModule()}, long{module.ComputeValidationData(CALLED_FROM_RUN)},
          long{module.OnEndShowDialog(other)}, static_cast<long>(module.GetFrameColor()),
          module.GetBaseAdr(INPUT, 0), long{module.OnLeftDblClk(0, 0, hit)}, module.GetMessageA(44, 3)})
        EXPECT_EQ(nothing, 0);
    EXPECT_EQ(std::pair(module.OnEndShowDialog(accepted), hit.action), std::pair(1, 2));
    EXPECT_EQ(module.Priority(), 255);
    module.Priority(3);
    EXPECT_EQ(module.Priority(), 3);
    EXPECT_EQ(Answers(module), "kept 7 '' '' '' 0 0 0 1 0 0 0 -1");

    TCPortHelper& helper = module.MakeHelper();
    helper.SetPort(INPUT, 0, "In", "DOUBLE[]", "", true);
    helper.SetPort(OUTPUT, 1, "Out", "", "", false);
    helper.SetObligatoryInput(0);
    EXPECT_EQ(module.Init(), -3);
    EXPECT_EQ(Answers(module), "TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN} 2 'In' 'Out' '' 1 2 0 1 0 0 1 5");
    EXPECT_EQ(module.GetMessageA(44, 3), -1);
    module.AddLine(INPUT, 0);
    EXPECT_TRUE(helper.IsWired(INPUT, 0));
    module.ComputeValidationData(CALLED_FROM_EDIT);
    helper.ChangeType(INPUT, 0, "SWORD[]", "", false);
    EXPECT_EQ(module.ComputeValidationData(CALLED_FROM_EDIT), 1);
    EXPECT_EQ(module.ComputeValidationData(CALLED_FROM_EDIT), 0) << "the types are stored";
    module.DelLine(INPUT, 0);
    EXPECT_FALSE(helper.IsWired(INPUT, 0));
    module.AddOutputStream(1, receiver.SetInputStream(3));
    EXPECT_TRUE(helper.IsWired(OUTPUT, 1, TCPortHelper::STREAM_CONNECTED));
    module.DeleteStreams();
    EXPECT_FALSE(helper.IsWired(OUTPUT, 1, TCPortHelper::STREAM_CONNECTED));
}

TEST(TCBaseModule, NamesCarryTheInstance) {
    EXPECT_STREQ(Bare(0).GetModuleName(), "Filter");
    EXPECT_STREQ(Bare(3).GetModuleName(), "Filter3");
    EXPECT_STREQ(Bare(3, nullptr).GetModuleName(), "3");
    Bare fft(3, "FFT2");
    EXPECT_STREQ(fft.GetModuleName(), "FFT2 3");
    fft.baseName = "Other";
    EXPECT_STREQ(fft.GetModuleName(), "FFT2 3") << "kept from the first call";
}

TEST(TCBaseModule, MessagesReachTheirServices) {
    static unsigned translated;
    translated = 0;
    TCTranslated::SetHandler([](unsigned id, long param) {
        translated = translated * 100 + id;
        return param;
    });
    Bare module(0);
    for (unsigned id : {0u, 3u, 22u, 23u, 48u, 4u, 5u, 47u}) EXPECT_EQ(module.GetMessageA(id, 9), 0) << id;
    EXPECT_EQ(translated, 2223u);
    TCTranslated::SetHandler(nullptr);

    module.GetMessageA(41, 1);
    EXPECT_EQ(module.GetMessageA(41, 0), 1) << "answers the language before";
    const TCString path = GetRegistryPath();
    EXPECT_EQ(module.GetMessageA(43, reinterpret_cast<long>("Software\\Other\\")), 0);
    EXPECT_STREQ(ChangeRegistryPath(path), "Software\\Other\\");
}

class Library {
 public:
    explicit Library(const std::string& name)
        : handle(TCLoadModuleLibrary(TEST_LIBRARIES + name + ".so", error)) {}
    ~Library() { TCFreeModuleLibrary(handle); }
    template <typename Entry>
    Entry Find(const char* name) const {
        return reinterpret_cast<Entry>(GetProcAddress(handle, name));
    }

    std::string error;
    HINSTANCE handle;
};

TEST(ModuleLibrary, CreatesAndDeletesByKind) {
    Library library("small-modules");
    ASSERT_NE(library.handle, nullptr) << library.error;
    EXPECT_EQ(library.Find<int (*)()>("TCModuleLibrary_GetCount")(), 2);
    const auto getId = library.Find<decltype(&TCModuleLibrary_GetId)>("TCModuleLibrary_GetId");
    const auto create = library.Find<decltype(&TCModuleLibrary_Create)>("TCModuleLibrary_Create");
    const auto destroy = library.Find<decltype(&TCModuleLibrary_Delete)>("TCModuleLibrary_Delete");
    const int* alive = library.Find<int*>("smallModulesAlive");
    EXPECT_EQ(library.Find<int*>("TCGetInterfaceVersionProvidedByBase"), nullptr) << "of another library";

    EXPECT_STREQ(getId(1), "FFT2");
    EXPECT_EQ(getId(2), nullptr);
    EXPECT_EQ(create(-1, 0), nullptr);
    TCBaseModule* module = create(0, 3);
    EXPECT_STREQ(module->GetModuleName(), "Filter3");
    EXPECT_EQ(*alive, 1);
    destroy(0, module);
    EXPECT_EQ(*alive, 0) << "deleted as the class that it is";
    destroy(0, nullptr);
}

TEST(ModuleLibrary, InterfaceVersionsHaveFloors) {
    const struct {
        const char* library;
        int provided;
        int required;
    } rows[] = {{"no-version", 800, 700},
                {"old-version", 800, 700},
                {"small-modules", TC_INTERFACE_VERSION, TC_INTERFACE_VERSION},
                {"new-version", 900, 900}};
    for (const auto& row : rows) {
        Library library(row.library);
        EXPECT_EQ(TCGetInterfaceVersionProvidedByBase(library.handle), row.provided) << row.library;
        EXPECT_EQ(TCGetInterfaceVersionRequiredByBase(library.handle), row.required) << row.library;
    }
    EXPECT_EQ(TCGetInterfaceVersionProvidedByBase(nullptr), 800);
    EXPECT_EQ(TCGetInterfaceVersionRequiredByBase(nullptr), 700);
}

// What is compiled into a module library: what it derives from, keeps and hands over.
TEST(ModuleLibrary, InterfaceVersionRisesWithEveryLayout) {
    if (sizeof(void*) != 8) GTEST_SKIP() << "the sizes are those of 64 bits";
    const std::vector<std::size_t> layouts = {
        TC_INTERFACE_VERSION,     sizeof(TCModuleParameter),
        sizeof(TCBaseModule),     sizeof(TCBaseModuleEx),
        sizeof(TCModuleResult),   sizeof(TCModuleFile),
        sizeof(TCForetoldSignal), sizeof(TCStartCheck),
        sizeof(TCTypeInfo),       sizeof(TCSI_Unit),
        sizeof(TCString),         static_cast<std::size_t>(SlotOf(&TCBaseModuleEx::GetWaitHandle))};
    EXPECT_EQ(layouts, std::vector<std::size_t>({802, 168, 56, 312, 56, 40, 64, 48, 88, 16, 16, 38}))
        << "raise TC_INTERFACE_VERSION after a release that had the old layout, then enter the new one here";
}

}  // namespace
