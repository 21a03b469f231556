#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "host/Runner.h"

// Modules and lines under short names: Wire("a", "b") joins the next free ports.
class RunnerBench {
 public:
    template <class Module>
    Module& Add(const std::string& name, const std::string& settings = "", int inputs = 1) {
        auto module = std::make_shared<Module>(0);
        TCString error;
        EXPECT_TRUE(module->SetSettings(settings.c_str(), error)) << static_cast<const char*>(error);
        module->GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, inputs);
        modules.push_back({name, module.get()});
        owners.push_back(module);
        return *module;
    }

    void Wire(const std::string& from, const std::string& to, int input = 0) {
        const host::RunLine line{Index(from), 0, Index(to), input};
        TCBaseModule& source = *modules[static_cast<std::size_t>(line.from)].module;
        TCBaseModule& target = *modules[static_cast<std::size_t>(line.to)].module;
        source.AddLine(OUTPUT, 0);
        const char* type = nullptr;
        int count = 0;
        source.GetPortType(OUTPUT, 0, type, count);
        EXPECT_EQ(target.ValidatePortType(INPUT, input, type, count), 1);
        target.AddLine(INPUT, input);
        lines.push_back(line);
    }

    void Drive(const std::string& from, const std::string& to, int parameter) {
        lines.push_back({Index(from), 0, Index(to), -1, parameter});
    }

    host::RunReport Run(host::RunOptions options = {}) { return host::Runner(modules, lines, options).Run(); }

    // From its first step on.
    host::RunReport RunInterrupted() {
        host::Interruption interruption;
        interruption.Raise();
        host::RunOptions options;
        options.interruption = &interruption;
        return Run(options);
    }

 private:
    int Index(const std::string& name) const {
        for (std::size_t index = 0; index < modules.size(); ++index)
            if (modules[index].instance == name) return static_cast<int>(index);
        return -1;
    }

    std::vector<std::shared_ptr<void>> owners;
    std::vector<host::RunModule> modules;
    std::vector<host::RunLine> lines;
};
