#pragma once

#include <optional>
#include <span>
#include <string>

#include "sigweave/foundation/TCString.h"
#include "sigweave/signal/TCSI_Unit.h"

// What is known of a signal before it comes; what is not known is empty.
struct TCForetoldSignal {
    std::optional<TCString> name;
    std::optional<double> samplerate;  // samples per second
    std::optional<TCSI_Unit> unit;
};

// What a module learns, and what it answers, when a host asks before a run whether it could begin (see
// TCBaseModuleEx::CheckStart).
struct TCStartCheck {
    // By input: what is known of the signal that its line will bring; nothing for one without a line.
    std::span<const TCForetoldSignal> inputs;
    // A line each; one about a parameter or an input begins with its name and a colon.
    TCString mistakes;
    TCString warnings;

    void Refuse(const std::string& line) { Add(mistakes, line); }
    void Warn(const std::string& line) { Add(warnings, line); }

 private:
    static void Add(TCString& lines, const std::string& line) {
        if (!lines.IsEmpty()) lines += "\n";
        lines += line.c_str();
    }
};

// A parameter that counts only while another one, a CHOICE or a SWITCH, has one of the values: words between
// '|'. For what TCModuleParameter::enabledWhen cannot say, as a second condition.
struct TCParameterEffect {
    const char* name;
    const char* other;
    const char* values;
};
