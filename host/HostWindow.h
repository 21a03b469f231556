#pragma once

#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "sigweave/platform/Window.h"

struct VALIDATION_STRUCT;

namespace host {

// A drawing surface of a program that draws nothing: 96 pixels per inch.
class ConsoleDevice final : public CDC {
 public:
    int GetPixelsPerInchX() const override { return 96; }
    int GetPixelsPerInchY() const override { return 96; }
    int SetMapMode(int mode) override;
    void LPtoDP(CPoint&) const override {}

 private:
    int mapMode = 1;
};

// The main window of a program without windows. It prints the errors and balloons of modules with the
// instance's name, and decides whether a line may join two ports of different types.
class HostWindow final : public CWnd {
 public:
    // Installs itself as the main window for as long as it lives; of several, the youngest is the main
    // window.
    HostWindow();
    ~HostWindow() override;

    // Whether differing declarators are accepted without a question, and how the user says so.
    void AcceptDifferences(bool accept, const char* remedy) {
        acceptAll = accept;
        acceptRemedy = remedy;
    }
    // The line that is being checked, for questions: "voice.Channel 1=levels.Signal", and the types that it
    // joins, for refusals; empty where a port has none yet.
    void BeginLine(const std::string& text, const std::string& output, const std::string& input) {
        line = text;
        outputType = output;
        inputType = input;
    }
    // What was refused since the last call, in words with the remedy.
    std::vector<std::string> TakeRefusals();

    long SendMessageA(unsigned message, unsigned long command, void* record) override;
    CDC* GetDC() override { return &device; }
    CRect GetClientRect() const override { return {}; }
    bool GetControlRect(int, CRect&) const override { return false; }

 private:
    void Validate(VALIDATION_STRUCT& difference);
    bool Accepts(const VALIDATION_STRUCT& difference);

    ConsoleDevice device;
    bool acceptAll = false;
    std::string acceptRemedy;
    std::string line;
    std::string outputType;
    std::string inputType;
    std::vector<std::string> refusals;
    // Module, expected, actual: a question is asked once.
    std::set<std::tuple<std::string, std::string, std::string>> accepted;
};

}  // namespace host
