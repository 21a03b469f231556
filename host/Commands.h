#pragma once

#include <string>
#include <vector>

#include "host/RunLimit.h"
#include "host/RunLog.h"

namespace host {

// What the command line asks for, and the program's answers to it. Each answers the exit code.
enum ExitCode : int { EXIT_COMPLETE = 0, EXIT_INCOMPLETE = 1, EXIT_WRONG_INPUT = 2, EXIT_INTERRUPTED = 130 };

struct CommandOptions {
    std::string graph;
    std::string records[2];
    std::string target;  // the file that a conversion writes
    std::string moduleId;
    std::vector<std::string> settings;  // INSTANCE.PARAMETER=VALUE
    std::vector<std::string>
        modulePath;  // each folders separated by colons; empty: the environment's or the default
    bool json = false;
    std::string reportFile;  // for the JSON report; empty: none
    bool strict = false;     // warnings count as a failure
    LogOptions log;
    bool realtime = false;
    RunLimit limit;
    std::string threads = "1";  // a number, or auto
    std::string place;          // the only one to run; empty: all of the graph
    std::string engine;         // the address of the server that joins the places; empty: the graph's
    bool newRun = false;        // what the server has of an earlier run is forgotten
    std::string changes;        // a file of changes to make in the run; empty: none
    std::string writeChanges;   // the file for those that were made
};

int RunGraph(const CommandOptions& options);
int CheckGraph(const CommandOptions& options);
// Writes the graph in its other form, parameter text or XML, to the target.
int ConvertGraph(const CommandOptions& options);
// Runs the graph of a recording, or another one, with the recorded sources, and compares. 0: identical; 1:
// not, or the run was not complete; 2: the recording or the graph cannot be used.
int RerunRecording(const CommandOptions& options);
// 0 when two recordings are equal, 1 when they differ, 2 when one cannot be read.
int DiffRecords(const CommandOptions& options);
int ShowModules(const CommandOptions& options);
// See PresetCommand.h.
struct PresetOptions;
int UsePresets(const CommandOptions& options, const PresetOptions& presets);

}  // namespace host
