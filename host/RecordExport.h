#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace host {

struct ExportOptions {
    std::string recording;
    std::string format;
    std::string target;  // a file or a folder; empty: the recording's name with the ending of the format
    bool overwrite = false;
};

// The words of the formats.
std::vector<std::string> ExportFormats();

// Writes the signals of a recording in a format of others, each to a file of its own. What the format cannot
// hold is said before anything is written, and nothing is where a file would be replaced against
// `overwrite`, or the recording at all. 0: all was exported; 1: a file could not be written, or the
// recording is damaged; 2: it is none, or has nothing that the format can hold.
int ExportRecording(const ExportOptions& options);

// What a file is to say of its signal.
struct ExportSignal {
    std::string name;
    std::string unit;
    double rate = 0.0;   // samples per second
    double start = 0.0;  // milliseconds since 1970
    std::int64_t samples = 0;
};

// A file that takes samples one after the other. It has its name when `Close` succeeded; else nothing is left
// of it. Operations answer why not, empty when they succeeded.
class ExportFile {
 public:
    virtual ~ExportFile() = default;
    virtual std::string Write(std::span<const double> samples) = 0;
    virtual std::string Close() = 0;
};
using OpenedExport = std::unique_ptr<ExportFile>;

// WAV with 64-bit floating-point samples, RF64 beyond 4 GB. Null with the reason in `error`.
OpenedExport OpenWave(const std::string& path, bool mayReplace, const ExportSignal& signal,
                      std::string& error);
// Where the program was built with the libraries of these formats.
OpenedExport OpenHdf5(const std::string& path, bool mayReplace, const ExportSignal& signal,
                      std::string& error);
OpenedExport OpenMat(const std::string& path, bool mayReplace, const ExportSignal& signal,
                     std::string& error);

}  // namespace host
