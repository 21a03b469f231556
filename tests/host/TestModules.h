#pragma once

#include <algorithm>
#include <csignal>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/module/TCModuleMessage.h"

// Small modules for the tests of the host, in the test program itself and in a module library.

// Blocks of numbers: block k holds `size` times the value k. 0 blocks: without end.
class TestSource final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "TestSource";
    static constexpr TCModuleParameter PARAMETERS[] = {
        {"blocks", TCModuleParameter::INTEGER, "10", "", "How many", 0, 1e9},
        {"size", TCModuleParameter::INTEGER, "4", "", "Values a block", 1, 1e6},
        {"meaning", TCModuleParameter::TEXT, "TIME_DOMAIN"},
        {"kind", TCModuleParameter::CHOICE, "DOUBLE[]", "", "", 0, 0, "DOUBLE[]|SWORD[]"},
        {"interrupt_at", TCModuleParameter::INTEGER, "-1", "", "The block at which the user types Ctrl-C"},
        {"interrupts", TCModuleParameter::INTEGER, "1", "", "How often"},
        {"signal", TCModuleParameter::INTEGER, "2", "", "What comes in place of Ctrl-C's signal"},
        {"file", TCModuleParameter::FILE, "", "", "Told as a result"},
        {"rate", TCModuleParameter::NUMBER, "1", "Hz", "Values a second"},
        {"burst", TCModuleParameter::INTEGER, "1", "", "Blocks a step", 1, 1e6},
    };

    explicit TestSource(int instance) : TCBaseModuleEx(instance, PARAMETERS) { DeclareSource(); }
    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "Makes blocks"; }
    const char* GetBaseName() const override { return "Test source"; }

    bool OnSettingsChanged(TCString& error) override {
        if (ParamInt("size") == 999) error = "size: 999 is odd\nblocks: too many\nnobody likes it";
        if (!error.IsEmpty()) return false;
        portHelper->ClearPorts(true);
        portHelper->SetPort(OUTPUT, 0, "Signal", ParamStr("kind"), ParamStr("meaning"), true);
        return true;
    }

    int Init() override {
        values.SetSize(ParamInt("size"));
        made = 0;
        return TCBaseModuleEx::Init();
    }

    int Execute() override {
        if (made == ParamInt("interrupt_at"))
            for (int count = ParamInt("interrupts"); count > 0; --count) std::raise(ParamInt("signal"));
        int code = 0;
        bool last = false;
        for (int left = ParamInt("burst"); left > 0 && !last && code >= 0; --left)
            code = Write(last = IsInterrupted() || made + 1 == ParamInt("blocks"));
        if (last) portHelper->SetReadyFlag(false);
        return code;
    }

    int Done() override {
        AddResult(ParamStr("file"), "made", made, TCSI_Unit());
        return TCBaseModuleEx::Done();
    }

 private:
    int Write(bool last) {
        TCTypeInfo info;
        info.SetState(made == 0 ? (last ? COMPLETE : START) : last ? STOP : BUSY);
        info.SetSamplerate(ParamDbl("rate"));
        info.SetTimestamp(1.6e12 + 1000.0 * made * values.GetSize() / ParamDbl("rate"));
        for (double& value : values) value = made;
        portHelper->SetTypeInfo(0, info);
        ++made;
        return portHelper->WriteDblArray(0, values);
    }

    TCArray<double, double> values;
    int made = 0;
};

// A source that no interrupt ends. What comes to it is taken and lost.
class TestDeaf final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "TestDeaf";
    static constexpr TCModuleParameter PARAMETERS[] = {{"rate", TCModuleParameter::NUMBER, "1", "Hz"}};

    explicit TestDeaf(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
        DeclareSource();
        portHelper->SetPort(INPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
        portHelper->SetPort(OUTPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
    }
    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "Goes on"; }
    const char* GetBaseName() const override { return "Test deaf"; }

    int Fetch() override { return 0; }
    int Execute() override {
        portHelper->TakeBlock(0);
        TCTypeInfo info;
        info.SetState(begun ? BUSY : START);
        info.SetSamplerate(ParamDbl("rate"));
        portHelper->SetTypeInfo(0, info);
        begun = true;
        return portHelper->WriteDblVal(0, 1.0);
    }

 private:
    bool begun = false;
};

// Hands on what it gets; fails at block `fail_at`, keeps everything waiting from block `hoard_from` on.
class TestPass final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "TestPass";
    static constexpr TCModuleParameter PARAMETERS[] = {
        {"fail_at", TCModuleParameter::INTEGER, "-1"},
        {"hoard_from", TCModuleParameter::INTEGER, "1000000000"},
        {"talk_at", TCModuleParameter::INTEGER, "-1", "", "The block at which it has something to say"},
        {"talk_always", TCModuleParameter::SWITCH, "no"},
    };

    explicit TestPass(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
        const unsigned type = portHelper->SetPort(INPUT, 0, "Signal", "", "", true);
        portHelper->AttachPort(OUTPUT, 0, "Signal", type);
        portHelper->SetObligatoryInput(0);
    }
    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "Hands blocks on"; }
    const char* GetBaseName() const override { return "Test pass"; }

    int Execute() override {
        if (seen == ParamInt("fail_at")) return Fail(-7, "the wire is broken");
        if (seen >= ParamInt("hoard_from")) return 0;
        if (++seen == ParamInt("talk_at")) {
            TCModuleMessage::Warning(GetModuleName(), "the wire\nis hot");
            TCModuleMessage::Debug(GetModuleName(), "%d degrees", 40);
        }
        if (ParamBool("talk_always")) {
            TCModuleMessage::Warning(GetModuleName(), "it is cold");
            TCModuleMessage::Notice(GetModuleName(), "it is late");
        }
        portHelper->ForwardBlock(0, 0);
        return 0;
    }

 private:
    int seen = 0;
};

// Takes one block from each of its inputs, when all have one.
class TestJoin final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "TestJoin";

    static constexpr TCModuleParameter PARAMETERS[] = {{"log", TCModuleParameter::OUTPUT_FILE, ""}};

    explicit TestJoin(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
        UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
    }
    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "Adds signals up"; }
    const char* GetBaseName() const override { return "Test join"; }

    int Init() override {
        sum = 0.0;
        stopped = 0;
        return TCBaseModuleEx::Init();
    }

    int Fetch() override {
        for (int port = 0; port < GetNoInput(); ++port)
            if (portHelper->BlocksOnStream(INPUT, static_cast<unsigned>(port)) == 0) return 1;
        return 0;
    }

    int Execute() override {
        for (unsigned port = 0; port < static_cast<unsigned>(GetNoInput()); ++port) {
            portHelper->TakeBlock(port);
            int count = 0;
            const double* values = portHelper->AccessDblData(port, count);
            for (int index = 0; index < count; ++index) sum += values[index];
            stopped += portHelper->IsPacketStop(port) ? 1 : 0;
        }
        return 0;
    }

    int Done() override {
        AddResult("caf\xE9", "sum", sum, TCSI_Unit());
        AddResult("", "stopped", stopped, TCSI_Unit());
        AddResult("", "nothing", std::numeric_limits<double>::quiet_NaN(), TCSI_Unit());
        AddResult("", "third", 1.0 / 3.0, TCSI_Unit());
        return TCBaseModuleEx::Done();
    }

 private:
    double sum = 0.0;
    int stopped = 0;
};

// Takes whatever comes at any of its inputs at once, and finds how far apart the inputs were at most.
class TestGreedy final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "TestGreedy";

    explicit TestGreedy(int instance) : TCBaseModuleEx(instance, {}) {
        UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
    }
    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "Takes all at once"; }
    const char* GetBaseName() const override { return "Test greedy"; }

    int Init() override {
        taken.assign(static_cast<std::size_t>(GetNoInput()), 0);
        apart = 0;
        return TCBaseModuleEx::Init();
    }
    int Execute() override {
        for (unsigned port = 0; port < taken.size(); ++port) {
            if (portHelper->TakeBlock(port) <= 0) continue;
            int count = 0;
            portHelper->AccessDblData(port, count);
            taken[port] += count;
        }
        const auto [least, most] = std::minmax_element(taken.begin(), taken.end());
        apart = std::max(apart, *most - *least);
        return 0;
    }
    int Done() override {
        AddResult("", "apart", apart, TCSI_Unit());
        return TCBaseModuleEx::Done();
    }

 private:
    std::vector<int> taken;
    int apart = 0;
};

// Works as many steps at each block, for an output that may lead nowhere.
class TestCutter final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "TestCutter";
    static constexpr TCModuleParameter PARAMETERS[] = {{"pieces", TCModuleParameter::INTEGER, "10"}};

    explicit TestCutter(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
        portHelper->SetPort(INPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
        portHelper->SetPort(OUTPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
    }
    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "Cuts blocks"; }
    const char* GetBaseName() const override { return "Test cutter"; }

    int Init() override {
        left = cut = 0;
        return TCBaseModuleEx::Init();
    }
    int Fetch() override { return left > 0 ? 0 : TCBaseModuleEx::Fetch(); }
    int Execute() override {
        if (left == 0 && portHelper->TakeBlock(0) > 0) left = ParamInt("pieces");
        if (left == 0) return 0;
        --left;
        ++cut;
        return 0;
    }
    int Done() override {
        AddResult("", "pieces", cut, TCSI_Unit());
        return TCBaseModuleEx::Done();
    }

 private:
    int left = 0;
    int cut = 0;
};

// A source that reads a byte of its file, and makes no block.
class TestReader final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "TestReader";
    static constexpr TCModuleParameter PARAMETERS[] = {{"file", TCModuleParameter::FILE, nullptr}};

    explicit TestReader(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
        DeclareSource();
        portHelper->SetPort(OUTPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
    }
    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "Reads a file"; }
    const char* GetBaseName() const override { return "Test reader"; }

    int Execute() override {
        std::ifstream file(std::string(ParamStr("file")));
        if (!file) return Fail(-1, "its file cannot be opened");
        file.get();
        portHelper->SetReadyFlag(false);
        return 0;
    }
};
