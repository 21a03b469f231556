#pragma once

#include <memory>

#include "sigweave/foundation/TCString.h"
#include "sigweave/module/TCPortHelper.h"
#include "sigweave/platform/Export.h"

class TCPropertyDialog;

// Filled by OnLeftDblClk: which port was hit, and what the host shall do. The meaning of the numbers is the
// host's; the base sets the action 2.
struct RET_PORT {
    int kind = 0;
    int index = 0;
    int action = 0;
};

// The base of every module. A module makes its helper and declares its ports on it, in its constructor, and
// does its work in `Execute`; the host holds it only through this class. What the module does not override is
// answered from the helper. Without a helper there are no ports, no work and no streams.
//
//   constructed -> ports declared -> wired -> Init -> (Fetch, Execute)... -> Done -> DeleteStreams -> deleted
//
// The tag after an operation says when the host calls it (docs/module-guide.md): [control] outside of runs,
// on the thread that edits the graph; [run] from Init to Done, on the one thread that runs it; [any] at any
// time between construction and deletion. A module is never called by two threads at once.
//
// The destructor is not virtual: the library that created a module deletes it, as the class that it is. The
// order of the virtual operations is part of the binary interface (never change, only append in derived
// classes).
class TC_API TCBaseModule {
 public:
    // Messages that the base answers itself, with 0 unless said otherwise (never change, only append).
    enum MESSAGE : unsigned {
        MESSAGE_TRANSLATION_FIRST = 22,  // both go to TCTranslated
        MESSAGE_TRANSLATION_SECOND = 23,
        MESSAGE_SINK = 27,           // param: see TCModuleMessage::Init
        MESSAGE_LANGUAGE = 41,       // param: the language of string resources; answers the one before
        MESSAGE_REGISTRY_PATH = 43,  // param: the address of the settings profile's new path
    };

    // `instance` distinguishes several modules of one kind in a graph; 0 means there is only one.
    explicit TCBaseModule(int instance);
    TCBaseModule(const TCBaseModule&) = delete;
    TCBaseModule& operator=(const TCBaseModule&) = delete;

    // 0: the stable id that graph files use. [any]
    virtual const char* GetModuleId() const = 0;
    // 1: 1 for a source, else 0. [any]
    virtual int GetTypeOfModule();
    // 2: one line that says what the module does. [any]
    virtual const char* GetDescription() const = 0;
    // 3: 0 means the host's default. [any]
    virtual unsigned long GetFrameColor();
    // 4, 5: a line to the port was drawn or removed. [control]
    virtual void AddLine(PORTTYPE kind, int port);
    virtual void DelLine(PORTTYPE kind, int port);
    // 6: the user double-clicked the module. [control]
    virtual PORTTYPE OnLeftDblClk(unsigned flags, int position, RET_PORT& port);
    // 7: a message of the host; handlers pass what they do not know on to the base. Those of
    // TCPortHelper::MESSAGE go to the helper; unknown ones answer 0. [any]
    virtual long GetMessageA(unsigned id, long param);
    // 8, 9, 10: unused by the library. [control]
    virtual long GetBaseAdr(PORTTYPE kind, int port);
    virtual void SetBaseAdr(PORTTYPE kind, int port, long address);
    virtual void DelBaseAdr(PORTTYPE kind, int port, long address);
    // 11 to 15: the ports as they are declared now. Texts are valid until the ports change; a type is null,
    // with 0 items, while it is still to be adopted. [any]
    virtual int GetNoInput();
    virtual int GetNoOutput();
    virtual const char* GetInputName(int port);
    virtual const char* GetOutputName(int port);
    virtual void GetPortType(PORTTYPE kind, int port, const char*& typeString, int& count);
    // 16: 1 when the port takes the type that a line brings, else 0. May ask the host. [control]
    virtual int ValidatePortType(PORTTYPE kind, int port, const char* typeString, int count);
    // 17: begins a run; 0, or a negative code and there is no run. Overrides call the base's, as for Done.
    // [run]
    virtual int Init();
    // 18: 0 there is work, 1 there is none, 2 (once) a source has ended. [run]
    virtual int Fetch();
    // 19: one step of work; 0, or a negative code that ends the run. [run]
    virtual int Execute() = 0;
    // 20: ends a run, also one that failed. [run]
    virtual int Done();
    // 21, 22, 23: connect the wired ports, receivers to outputs, and take all connections away. [control]
    virtual TCIOStream* SetInputStream(int port, int unused, int precision);
    virtual void AddOutputStream(int port, TCIOStream* receiver);
    virtual void DeleteStreams();
    // 24: before a run; see TCPortHelper::ComputeValidationData. [control]
    virtual int ComputeValidationData(CALLED_FROM from);
    // 25, 26: settings dialog: 0 there is none; 1 when it ended with the result 1, else 0. [control]
    virtual int BuildPropertyDialog(TCPropertyDialog& dialog);
    virtual int OnEndShowDialog(int& result);
    // 27: the name that the user sees, without the instance number. [any]
    virtual const char* GetBaseName() const = 0;

    // The base name followed by the instance number ("Filter3", "FFT2 3"), built at the first call. Valid
    // as long as the module.
    const char* GetModuleName();
    int GetInstance() const { return instanceNumber; }
    void Priority(int newPriority) { priority = newPriority; }
    int Priority() const { return priority; }
    // Null until the module has created it. Owned by the module.
    TCPortHelper* GetPortHelper() const { return portHelper.get(); }

 protected:
    ~TCBaseModule();

 private:
    CString moduleName;
    int instanceNumber;
    int priority = 255;

 protected:
    std::unique_ptr<TCPortHelper> portHelper;
};

// The version handshake between the library and a module library: what the library's side takes the module to
// provide (never below 800) and to require (never below 700). A null handle, or a library that exports
// neither TCGetInterfaceVersionProvidedByModule nor TCGetInterfaceVersionRequiredByModule, counts as 800 and
// 700.
extern "C" {
TC_API int TCGetInterfaceVersionProvidedByBase(HINSTANCE module);
TC_API int TCGetInterfaceVersionRequiredByBase(HINSTANCE module);
}
