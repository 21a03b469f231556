#pragma once

#include <string>
#include <vector>

#include "sigweave/module/TCModuleMessage.h"
#include "sigweave/platform/DebugOutput.h"

// Gathers module messages, as "severity module: text", while it lives. `module` and `text` may be null.
class MessageLog {
 public:
    MessageLog() {
        Lines().clear();
        TCModuleMessage::s_PFN = [](const char* module, TCModuleMessage::Types type, const char* text) {
            const auto orNull = [](const char* value) {
                return std::string(value != nullptr ? value : "null");
            };
            Lines().push_back(std::to_string(static_cast<int>(type)) + " " + orNull(module) + ": " +
                              orNull(text));
        };
    }
    ~MessageLog() { TCModuleMessage::s_PFN = nullptr; }
    static std::vector<std::string>& Lines() {
        static std::vector<std::string> lines;
        return lines;
    }
};

// Gathers the debugger output while it lives.
class DebugLog {
 public:
    DebugLog() {
        Text().clear();
        TCSetDebugOutput([](const char* text) { Text() += text; });
    }
    ~DebugLog() { TCSetDebugOutput(nullptr); }
    static std::string& Text() {
        static std::string text;
        return text;
    }
};
