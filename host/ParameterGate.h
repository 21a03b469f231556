#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sigweave/module/TCBaseModule.h"
#include "sigweave/module/TCExtPar.h"

class TCBaseModuleEx;

namespace host {

struct RunModule;
struct RunLine;

// Stands before a module of which signals drive parameters, and takes what is wired to it, signals and
// drivers. It hands the signals' blocks on one after the other by the time at which they begin, over all
// inputs (blocks that begin together go together), and each only when it is known which values hold for it:
//
//   The value for a block is the last one of the last driving block that has ended when the block begins, to
//   a microsecond; before the first one it is that of the settings.
//
// So a block waits until its driver has given one that ends later, or gives no more (EndLine). What the
// module gets, and with which values, depends on nothing but the blocks of these lines: it is a merge of
// their sequences. A driving block is as long as its values last by its samplerate; without one it ends when
// it begins. One without a time of its own, or a signal's, follows at once on the one before.
//
// Before a source there is nothing to hand on; who steps it asks Decide. One thread, that of the run.
class ParameterGate final : public TCBaseModule {
 public:
    // The module must outlive it. Warnings name the instance.
    ParameterGate(TCBaseModuleEx& driven, const std::string& instance);

    // Ports are numbered in the order in which they are added. Of a signal for an input of the module.
    int AddSignal(int input);
    // Of a driver, from a port as "sweep.Signal".
    int AddDriver(int parameter, const std::string& from);
    // Hears of the first value that each parameter refuses.
    std::function<void(const std::string& text)> onWarning;

    const std::string& GetInstanceName() const { return instance; }
    const std::vector<TCExtPar>& Parameters() const { return parameters; }
    // Null when no signal drives it.
    const TCExtPar* FindDriven(const std::string& parameter) const;
    // No more blocks will come to that port than wait there.
    void EndLine(int port);
    bool HasEnded(int port) const { return ports[static_cast<std::size_t>(port)].over; }
    // Before a source's next block, which begins at that time (milliseconds): true when its values are known;
    // they hold then.
    bool Decide(double time);
    // Takes what waits at the drivers: nothing comes that it could hold for.
    void DropDrivers();

    const char* GetModuleId() const override { return module.GetModuleId(); }
    const char* GetDescription() const override { return module.GetDescription(); }
    const char* GetBaseName() const override { return module.GetBaseName(); }
    int GetNoInput() override { return static_cast<int>(ports.size()); }
    int GetNoOutput() override { return GetNoInput(); }
    const char* GetInputName(int port) override;
    const char* GetOutputName(int port) override { return GetInputName(port); }
    void GetPortType(PORTTYPE kind, int port, const char*& typeString, int& count) override;
    int Fetch() override;
    int Execute() override;
    TCIOStream* SetInputStream(int port, int unused, int precision) override;
    void AddOutputStream(int port, TCIOStream* receiver) override;
    void DeleteStreams() override;

 private:
    struct Port {
        int input = -1;   // of the module, of a signal
        int driver = -1;  // among the parameters
        bool over = false;
        double last = 0.0;  // the time of the block before
        std::unique_ptr<TCIOStream> in = std::make_unique<TCIOStream>();
        std::unique_ptr<TCIOStream> kept = std::make_unique<TCIOStream>();  // whole signals that came before
        std::unique_ptr<TCIOStream> out = std::make_unique<TCIOStream>();
    };

    static void Collect(Port& port);
    static TCIOStream& Front(const Port& port);
    static double BeginOf(const Port& port);
    static double EndOf(const Port& port);
    bool FindNext(double& time) const;
    bool TakeDriversUpTo(double time);
    void TakeDriver(Port& port);
    void Apply();
    void Warn(const TCExtPar& parameter);
    bool AreSignalsOver() const;
    int HandOn(double time);

    TCBaseModuleEx& module;
    std::string instance;
    std::vector<Port> ports;
    std::vector<TCExtPar> parameters;
    std::vector<int> warned;  // parameters
};

// A gate for each module that has a driven parameter (RunLine::parameter). That of a source is noted in its
// entry; any other becomes a module of its own, behind all others, through which the module's lines go: those
// to it, in their order, and new ones from it, behind all others.
std::vector<std::unique_ptr<ParameterGate>> InsertGates(std::vector<RunModule>& modules,
                                                        std::vector<RunLine>& lines);

}  // namespace host
