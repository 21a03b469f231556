#pragma once

#include <pybind11/pybind11.h>

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/RunTime.h"
#include "sigweave/signal/TCTypeInfo.h"

namespace python {

// While it lives, the calling thread has the interpreter. Any thread.
class Interpreter {
 public:
    Interpreter() {
        thread_local const KnownThread known;
        state = PyGILState_Ensure();
    }
    ~Interpreter() { PyGILState_Release(state); }
    Interpreter(const Interpreter&) = delete;
    Interpreter& operator=(const Interpreter&) = delete;

 private:
    // What Python knows of a thread stays until the thread ends: to make it anew for each block takes longer
    // than a step does.
    class KnownThread {
     public:
        KnownThread() {
            if (PyGILState_GetThisThreadState() != nullptr) return;
            PyGILState_Ensure();
            own = PyEval_SaveThread();
        }
        ~KnownThread() {
            if (own == nullptr) return;
            PyEval_RestoreThread(own);
            PyGILState_Release(PyGILState_UNLOCKED);
        }
        KnownThread(const KnownThread&) = delete;
        KnownThread& operator=(const KnownThread&) = delete;

     private:
        PyThreadState* own = nullptr;
    };

    PyGILState_STATE state;
};

// A class of a file in Python. It stays for good, for the interpreter does too.
struct ModuleClass {
    std::string id;
    std::string description;
    std::deque<std::string> texts;  // of the parameters
    std::vector<TCModuleParameter> parameters;
    std::vector<std::string> inputs;  // names of the ports
    std::vector<std::string> outputs;
    bool isSource = false;
    PyObject* type = nullptr;
};

// One line about the error that Python has raised, and `trace`, its traceback. The error is over then.
std::string Explain(pybind11::error_already_set& error, std::string& trace);

// A module whose steps are done by an instance of a class in Python. Same threads as every module.
class PythonModule final : public TCBaseModuleEx {
 public:
    PythonModule(int instance, const ModuleClass& moduleClass);
    ~PythonModule();

    const char* GetModuleId() const override { return kind.id.c_str(); }
    const char* GetDescription() const override { return kind.description.c_str(); }
    int Init() override;
    int Execute() override;
    int Done() override;
    bool OnLiveChanged(TCString& error) override;

 private:
    struct Input {
        TCTypeInfo described;    // what had arrived when the module was asked last
        pybind11::object array;  // for the values of a block; used again when the module did not keep it
        const TCTypeInfo* arrived = nullptr;
        const double* values = nullptr;
        int count = 0;
    };
    struct Output {
        TCTypeInfo said;            // what the module says of its blocks
        TCTypeInfo sent;            // of the block that is sent
        std::int64_t position = 0;  // values of a source that were sent
        bool begins = false;        // a signal whose first block is still to be sent
        bool isOpen = false;        // a signal whose last block is
    };
    struct Values {
        const double* data = nullptr;
        int count = 0;
        pybind11::object keeper;
    };

    std::string Say(pybind11::error_already_set& error) const;
    template <class Work>
    int Guard(Work work);
    pybind11::dict Settings(bool onlyLive) const;
    int Take();
    std::string WhyNotTogether() const;
    int Step();
    int Produce();
    int EndSource();
    void SetStart(double milliseconds);
    pybind11::object Call();
    PyObject* ArrayFor(Input& input) const;
    Values ValuesOf(PyObject* result) const;
    int SendAll(const pybind11::object& result, const TCTypeInfo& arrived, int taken);
    int Send(std::size_t index, PyObject* result, const TCTypeInfo& arrived, int taken);
    void Describe();
    void TakeResults();

    const ModuleClass& kind;
    pybind11::object module;  // only touched by who has the interpreter
    pybind11::object execute;
    std::vector<Input> inputs;
    std::vector<Output> outputs;
    bool isDescribed = false;
    double start = -1.0;  // that the module has, in milliseconds
    tc::RunTime runTime;
};

}  // namespace python
