// A module that minds in which order it is called, and, where the environment variable WITNESS is set, fails
// as soon as it has seen all that a host may do to it.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/TCBaseModuleEx.h"

namespace {

enum Sight : unsigned {
    LAST_INSTANCE,
    CHANGED_SETTING,
    NO_SUCH_PORT,
    OTHER_MESSAGE,
    LINE_REMOVED,
    NOTHING_WAITS,
    INTERRUPTION,
    LEFT_WAITING,
    NO_VALUES,
    MANY_VALUES,
    NOT_A_NUMBER,
    LARGEST_NUMBER,
    WRONG_RATE,
    NO_NAME,
    WRONG_STATE,
    LONG_SIGNAL,
    OUTPUT_TYPE,
    SIGHTS
};

void See(Sight sight, bool isThere = true) {
    static unsigned seen = 0;
    seen |= isThere ? 1u << sight : 0;
    if (seen == (1u << SIGHTS) - 1 && std::getenv("WITNESS") != nullptr)
        throw std::runtime_error("it has seen everything");
}

void Demand(bool isFulfilled, const char* what) {
    if (!isFulfilled) throw std::logic_error(std::string("out of order: ") + what);
}

// Two of them must be given, and the name of the file has an ending.
constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "level", .kind = TCModuleParameter::INTEGER, .defaultValue = "1", .minimum = 0, .maximum = 9},
    {.name = "label", .kind = TCModuleParameter::TEXT, .defaultValue = nullptr},
    {.name = "log", .kind = TCModuleParameter::OUTPUT_FILE, .defaultValue = nullptr}};

class Witness final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Witness";

    explicit Witness(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
        portHelper->SetPort(INPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
        portHelper->SetPort(OUTPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
        portHelper->SetObligatoryInput(0);
        portHelper->UseTypeInfoFromInput(0, 0);
        See(LAST_INSTANCE, instance == 4);
    }
    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "Minds how it is called"; }
    const char* GetBaseName() const override { return "Witness"; }

    bool OnSettingsChanged(TCString& error) override {
        Demand(!hasBegun, "settings in a run");
        See(CHANGED_SETTING, ParamInt("level") == 9);
        if (std::string_view(ParamText("log")).ends_with(".csv")) return true;
        error = "log: must end in .csv";
        return false;
    }
    const char* GetInputName(int port) override {
        See(NO_SUCH_PORT, port < 0);
        return TCBaseModuleEx::GetInputName(port);
    }
    int ValidatePortType(PORTTYPE kind, int port, const char* type, int items) override {
        const int fits = TCBaseModuleEx::ValidatePortType(kind, port, type, items);
        isValidated = fits != 0;
        See(OUTPUT_TYPE, kind == OUTPUT);
        return fits;
    }
    void AddLine(PORTTYPE kind, int port) override {
        Demand(!isRunning && (kind == OUTPUT || isValidated), "a line whose type was not taken");
        TCBaseModuleEx::AddLine(kind, port);
    }
    void DelLine(PORTTYPE kind, int port) override {
        Demand(!isRunning, "a line removed in a run");
        See(LINE_REMOVED, kind == INPUT);
        TCBaseModuleEx::DelLine(kind, port);
    }
    int ComputeValidationData(CALLED_FROM from) override {
        isComputed = from == CALLED_FROM_RUN;
        return TCBaseModuleEx::ComputeValidationData(from);
    }
    long GetMessageA(unsigned message, long value) override {
        See(OTHER_MESSAGE, message == 10);
        if (message == TCPortHelper::MESSAGE_RUNNING) {
            Demand(value == 0 || isComputed, "a run without the types of now");
            isRunning = value != 0;
        }
        return TCBaseModuleEx::GetMessageA(message, value);
    }
    int Init() override {
        Demand(isRunning, "Init before the run");
        Demand(portHelper->FirstInCycle(true), "Init without the first cycle");
        const int code = TCBaseModuleEx::Init();
        hasBegun = code >= 0;
        isOpen = false;
        return code;
    }
    int Fetch() override {
        Demand(hasBegun, "Fetch before Init");
        See(NOTHING_WAITS, !portHelper->AnyDataAvail());
        const int verdict = TCBaseModuleEx::Fetch();
        hasWork = verdict == 0;
        return verdict;
    }
    void Interrupt() override {
        Demand(hasBegun, "Interrupt before Init");
        See(INTERRUPTION);
        TCBaseModuleEx::Interrupt();
    }
    int Execute() override {
        Demand(hasWork, "Execute without work");
        hasWork = false;
        const int code = portHelper->TakeBlock(0);
        if (code <= 0) return code;
        int count = 0;
        const double* const values = portHelper->AccessDblData(0, count);
        Look(values, count, *portHelper->LastTypeInfo(0));
        return portHelper->WriteDblData(0, static_cast<unsigned long>(count), values);
    }
    int Done() override {
        See(LEFT_WAITING, portHelper->AnyDataAvail());
        hasBegun = hasWork = false;
        return TCBaseModuleEx::Done();
    }

 private:
    void Look(const double* values, int count, const TCTypeInfo& ti) {
        const auto any = [&](auto isSuch) { return std::any_of(values, values + count, isSuch); };
        const TCBLOCKSTATUS state = ti.GetState();
        const bool begins = state == START || state == COMPLETE;
        See(NO_VALUES, count == 0);
        See(MANY_VALUES, count == 4096);
        See(NOT_A_NUMBER, any([](double value) { return std::isnan(value); }));
        See(LARGEST_NUMBER, any([](double value) { return value > 1e308 && std::isfinite(value); }));
        See(WRONG_RATE, !(ti.GetSamplerate() > 0.0));
        See(NO_NAME, *ti.GetSignalname() == '\0');
        See(WRONG_STATE, begins == isOpen);
        pieces = begins || begins == isOpen ? 1 : pieces + 1;
        See(LONG_SIGNAL, state == STOP && pieces > 4);
        isOpen = state == START || state == BUSY;
    }

    bool isValidated = false, isComputed = false, isRunning = false, hasBegun = false, hasWork = false;
    bool isOpen = false;
    int pieces = 0;
};

}  // namespace

TC_MODULE_LIBRARY(Witness);
