#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "studio/server/GraphEdit.h"

namespace studio {

// What a viewer wants to see of one output.
struct Wish {
    enum Kind { Envelope, Samples, Level, Spectrogram, Texts };
    int trace = 0;     // the viewer's number for it
    std::string port;  // instance.Output
    Kind kind = Envelope;
    double seconds = 1.0;      // the length of the window; of Level: of what each level is taken
    std::int64_t samples = 0;  // of Samples and Texts: how many; else 0
    bool triggers = false;     // an envelope that begins where the signal rises through `level`
    double level = 0.0;
};

// The word of messages for a kind, and the kind of a word: false for others.
const char* WordOf(Wish::Kind kind);
bool KindOf(std::string_view word, Wish::Kind& kind);

// One message of a viewer (docs/studio.md describes them).
struct Command {
    enum Kind {
        Hello,
        Text,
        Change,
        Undo,
        Redo,
        Run,
        Stop,
        Save,
        Reload,
        Form,
        Set,
        Try,
        Watch,
        Got,
        Language,
        Presets,
        Keep,
        Load,
        Files,
        Recording
    };
    Kind kind = Hello;
    std::int64_t id = 0;        // comes back in the answer; 0: no answer is wanted
    std::int64_t version = -1;  // of the text that it is about
    std::string text;           // Text: the graph; Set: the line for the form
    std::string name;    // Form, Set, Presets, Keep, Load, Recording: the instance; Files: a folder; Try:
                         // instance.Output; Save: the file; Hello: the viewer's own name for itself; Language
    std::string other;   // Try: instance.Input; Keep, Load: the preset
    bool force = false;  // Save: over what another program wrote; Change: a line that does not fit too
    bool realtime = false;     // Run
    std::vector<Edit> edits;   // Change
    std::vector<Wish> wishes;  // Watch
    std::int64_t number = 0;   // Got: of the picture; Recording: of the signal, from 0 on
    std::int64_t first = 0;    // Recording: the first sample
    std::int64_t count = 0;    // Recording: samples; 0: all
};

// False, with the reason in `error`, for what is no such message. Every text, number and list in it is within
// limits then, whatever was sent.
bool ReadCommand(std::string_view message, Command& command, std::string& error);

}  // namespace studio
