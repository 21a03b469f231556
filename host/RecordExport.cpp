#include "host/RecordExport.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

#include "host/AnyRecording.h"
#include "host/Commands.h"
#include "host/Console.h"
#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/platform/ReplacedFile.h"
#include "sigweave/recording/RecordingReader.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/FileMessages.h"

namespace host {
namespace {

using tc::Bilingual;
namespace fs = std::filesystem;

std::string SystemReason() {
    return std::generic_category().message(errno);
}

std::unique_ptr<tc::ReplacedFile> OpenTarget(const std::string& path, bool mayReplace, std::string& error) {
    errno = 0;
    auto file = tc::ReplacedFile::Open(path, {.exclusive = true, .mayReplace = mayReplace});
    if (file == nullptr) error = tc::WhyNotWritten(path, SystemReason());
    return file;
}

bool Put(tc::ReplacedFile& file, const void* bytes, std::size_t size) {
    errno = 0;
    return std::fwrite(bytes, 1, size, file.Get()) == size;
}

// In quotation marks where the cell would be taken apart.
std::string Cell(const std::string& text) {
    if (text.find_first_of(",;\t\"\r\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (const char character : text)
        quoted += character == '"' ? std::string("\"\"") : std::string(1, character);
    return quoted + '"';
}

// In the form of CsvWriter: see docs/csv-files.md.
class CsvTable final : public ExportFile {
 public:
    CsvTable(std::unique_ptr<tc::ReplacedFile> target, const std::string& name, const ExportSignal& signal)
        : file(std::move(target)), path(name), rate(signal.rate) {
        text = "time," + Cell(signal.name) + "\ns," + Cell(signal.unit) + "\nsamplerate," +
               tc::ShortestText(rate) + "\n";
    }

    std::string Write(std::span<const double> samples) override {
        for (const double sample : samples)
            text += tc::ShortestText(static_cast<double>(number++) / rate) + "," + tc::ShortestText(sample) +
                    "\n";
        const bool isWritten = Put(*file, text.data(), text.size());
        text.clear();
        return isWritten ? "" : tc::WhyNotWritten(path, SystemReason());
    }
    std::string Close() override {
        const std::string reason = Write({});
        if (!reason.empty()) return reason;
        return file->Commit() ? "" : tc::WhyNotWritten(path, SystemReason());
    }

 private:
    std::unique_ptr<tc::ReplacedFile> file;
    std::string path;
    double rate;
    std::string text;
    std::int64_t number = 0;
};

OpenedExport OpenCsv(const std::string& path, bool mayReplace, const ExportSignal& signal,
                     std::string& error) {
    auto file = OpenTarget(path, mayReplace, error);
    return file != nullptr ? std::make_unique<CsvTable>(std::move(file), path, signal) : nullptr;
}

// As ISO 8601, in UTC.
std::string DateTime(double milliseconds) {
    const auto seconds = static_cast<std::time_t>(std::floor(milliseconds / 1000.0));
    const int rest = static_cast<int>(std::floor(milliseconds - 1000.0 * static_cast<double>(seconds)));
    std::tm parts{};
    if (gmtime_r(&seconds, &parts) == nullptr) return "";
    char text[48];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, rest);
    return text;
}

// Samples in NAME.sigmf-data, what they mean in NAME.sigmf-meta. The names of both files are by the format.
class SigMf final : public ExportFile {
 public:
    SigMf(std::unique_ptr<tc::ReplacedFile> dataFile, std::unique_ptr<tc::ReplacedFile> metaFile,
          const std::string& name, const ExportSignal& itsSignal)
        : data(std::move(dataFile)), meta(std::move(metaFile)), path(name), signal(itsSignal) {}

    std::string Write(std::span<const double> samples) override {
        return Put(*data, samples.data(), samples.size_bytes()) ? ""
                                                                : tc::WhyNotWritten(path, SystemReason());
    }
    std::string Close() override {
        const nlohmann::ordered_json document = {
            {"global",
             {{"core:datatype", "rf64_le"},
              {"core:version", "1.0.0"},
              {"core:sample_rate", signal.rate},
              {"core:num_channels", 1},
              {"core:description", signal.name},
              {"core:recorder", "sigweave"},
              {"sigweave:unit", signal.unit}}},
            {"captures", nlohmann::ordered_json::array(
                             {{{"core:sample_start", 0}, {"core:datetime", DateTime(signal.start)}}})},
            {"annotations", nlohmann::ordered_json::array()}};
        const std::string text =
            document.dump(4, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
        const bool isWritten = Put(*meta, text.data(), text.size()) && data->Commit() && meta->Commit();
        return isWritten ? "" : tc::WhyNotWritten(path, SystemReason());
    }

 private:
    std::unique_ptr<tc::ReplacedFile> data;
    std::unique_ptr<tc::ReplacedFile> meta;
    std::string path;
    ExportSignal signal;
};

OpenedExport OpenSigMf(const std::string& path, bool mayReplace, const ExportSignal& signal,
                       std::string& error) {
    const std::string metaPath = fs::path(path).replace_extension(".sigmf-meta").string();
    auto data = OpenTarget(path, mayReplace, error);
    auto meta = data != nullptr ? OpenTarget(metaPath, mayReplace, error) : nullptr;
    return meta != nullptr ? std::make_unique<SigMf>(std::move(data), std::move(meta), path, signal)
                           : nullptr;
}

std::string WhyNoRate(const ExportSignal& signal) {
    if (signal.rate > 0.0 && std::isfinite(signal.rate)) return "";
    return Bilingual("has no samplerate above 0", "hat keine Abtastrate über 0").Text();
}

std::string WhyNoWave(const ExportSignal& signal) {
    constexpr double HIGHEST = 2147483647.0;
    if (signal.rate >= 1.0 && signal.rate <= HIGHEST && signal.rate == std::floor(signal.rate)) return "";
    return Bilingual("has the samplerate %1, and a WAV file has a whole number of samples per second",
                     "hat die Abtastrate %1, und eine WAV-Datei hat eine ganze Zahl von Werten je Sekunde")
        .With({tc::ShortestText(signal.rate)});
}

// Its version 5, which every reader knows, counts bytes in 32 bits.
[[maybe_unused]] std::string WhyNoMat(const ExportSignal& signal) {
    constexpr std::int64_t MOST = (std::int64_t{1} << 31) / 8 - 1024;
    if (signal.samples <= MOST) return WhyNoRate(signal);
    return Bilingual("has %1 samples, and a MAT file takes at most %2",
                     "hat %1 Werte, und eine MAT-Datei fasst höchstens %2")
        .With({std::to_string(signal.samples), std::to_string(MOST)});
}

struct Format {
    const char* word;
    const char* ending;
    const char* besides;  // that of a second file, the format then demands both; null: there is none
    std::string (*whyNot)(const ExportSignal& signal);
    OpenedExport (*open)(const std::string& path, bool mayReplace, const ExportSignal& signal,
                         std::string& error);
};
constexpr Format FORMATS[] = {{"csv", ".csv", nullptr, WhyNoRate, OpenCsv},
#ifdef SIGWEAVE_HDF5
                              {"hdf5", ".h5", nullptr, WhyNoRate, OpenHdf5},
#endif
#ifdef SIGWEAVE_MATIO
                              {"mat", ".mat", nullptr, WhyNoMat, OpenMat},
#endif
                              {"sigmf", ".sigmf-data", ".sigmf-meta", WhyNoRate, OpenSigMf},
                              {"wav", ".wav", nullptr, WhyNoWave, OpenWave}};

// Arrays of numbers in one dimension, and nothing else, are samples.
bool HasSamples(const TCIOStream::Block& block) {
    if (block.GetTI() == nullptr || block.SegmentCnt() != 1) return block.SegmentCnt() == 0;
    const TCIOStream::DataSegment& values = *block.Segment(0);
    return values.GetDimensionCount() == 1 && (values.GetDoubles() != nullptr || values.GetInts() != nullptr);
}

// One signal that is to be exported, and where to.
struct Job {
    int signal = 0;
    ExportSignal facts;
    std::string path;
};

class Export {
 public:
    Export(const ExportOptions& given, const Format& wanted) : options(given), format(wanted) {}

    int Run() {
        if (!reader.Open(options.recording.c_str())) {
            console::Error(WhyNotPacked(options.recording, reader.GetError()));
            return EXIT_WRONG_INPUT;
        }
        WarnOfTheEnd();
        Plan();
        if (jobs.empty()) {
            console::Error(
                Bilingual("%1 has no signal that %2 can hold", "%1 hat kein Signal, das %2 fassen kann")
                    .With({options.recording, format.word}));
            return EXIT_WRONG_INPUT;
        }
        std::string reason = WhyTaken();
        for (std::size_t i = 0; reason.empty() && i < jobs.size(); ++i) {
            reason = Write(jobs[i]);
            console::ShowProgress("");
        }
        if (!reason.empty()) console::Error(reason);
        return reason.empty() && !isDamaged ? EXIT_COMPLETE : EXIT_INCOMPLETE;
    }

 private:
    // What cannot be held is said here, before anything is written.
    void Plan() {
        const int signals = static_cast<int>(reader.GetSignals().size());
        for (int signal = 0; signal < signals; ++signal) {
            Job job;
            job.signal = signal;
            const std::string reason = Describe(signal, job.facts);
            if (reason.empty())
                jobs.push_back(std::move(job));
            else
                console::Warning(
                    Bilingual("'%1' is left out: it %2", "'%1' entfällt: es %2")
                        .With({reader.GetSignals()[static_cast<std::size_t>(signal)].name, reason}));
        }
        const fs::path base = Base();
        for (Job& job : jobs) {
            const std::string number = jobs.size() > 1 ? "-" + std::to_string(job.signal + 1) : "";
            job.path =
                (base.parent_path() / (base.stem().string() + number + base.extension().string())).string();
        }
    }

    // What is there of a recording that has no proper end is exported all the same.
    void WarnOfTheEnd() const {
        if (reader.IsClosed() && reader.GetBytesBehind() == 0) return;
        static constexpr Bilingual GROWS("%1 is still being written; the files have what it has now",
                                         "%1 wird noch geschrieben; die Dateien enthalten, was jetzt da ist");
        static constexpr Bilingual BROKEN(
            "%1 breaks off, as when its program is killed; the files have what is whole at its beginning",
            "%1 bricht ab, wie nach dem gewaltsamen Ende seines Programms; die Dateien enthalten, was am "
            "Anfang heil ist");
        console::Warning((reader.IsBeingWritten() ? GROWS : BROKEN).With({options.recording}));
    }

    // What the files are called, but for their numbers. A folder takes files of the recording's name.
    fs::path Base() const {
        const fs::path own = fs::path(options.recording).replace_extension(format.ending);
        if (options.target.empty()) return own;
        fs::path target = options.target;
        std::error_code ignored;
        if (!target.has_filename() || fs::is_directory(target, ignored)) return target / own.filename();
        if (format.besides != nullptr && target.extension() != format.ending) target += format.ending;
        return target;
    }

    // Why nothing is written at all: a file is there that must stay. Empty when there is none.
    std::string WhyTaken() const {
        for (const Job& job : jobs) {
            std::vector<fs::path> paths = {job.path};
            if (format.besides != nullptr)
                paths.push_back(fs::path(job.path).replace_extension(format.besides));
            for (const fs::path& path : paths) {
                std::error_code ignored;
                if (fs::equivalent(path, options.recording, ignored))
                    return Bilingual("%1 is the recording itself; name another file with --output",
                                     "%1 ist die Aufzeichnung selbst; nennen Sie mit --output eine andere "
                                     "Datei")
                        .With({path.string()});
                if (!options.overwrite && fs::is_regular_file(path, ignored))
                    return Bilingual(
                               "%1 is there already; nothing was written; --overwrite replaces it, and "
                               "--output names another file",
                               "%1 gibt es schon; nichts wurde geschrieben; --overwrite ersetzt sie, "
                               "und --output nennt eine andere Datei")
                        .With({path.string()});
            }
        }
        return "";
    }

    // Which signal is in which file, for several may have one name.
    void TellWritten(const Job& job, std::int64_t samples) const {
        if (tc::IsStandardStream(job.path)) return;
        const std::string& port = reader.GetSignals()[static_cast<std::size_t>(job.signal)].port;
        console::Print(Bilingual("%1: '%2'%3, samples: %4\n", "%1: '%2'%3, Werte: %4\n")
                           .With({job.path, job.facts.name, port.empty() ? "" : " (" + port + ")",
                                  std::to_string(samples)}));
    }

    // Why not; empty when the signal can be exported, as far as its first block says.
    std::string Describe(int signal, ExportSignal& facts) {
        const tc::RecordingSignal& known = reader.GetSignals()[static_cast<std::size_t>(signal)];
        if (!reader.Seek(signal, 1) || reader.Next() != 1)
            return Bilingual("has no block that can be read", "hat keinen lesbaren Block").Text();
        const TCIOStream::Block& block = reader.GetBlock();
        if (block.GetTI() == nullptr || !HasSamples(block))
            return Bilingual("has blocks that are not samples of one signal",
                             "hat Blöcke, die nicht die Werte eines Signals sind")
                .Text();
        facts = {known.name, known.unit, block.GetTI()->GetSamplerate(), block.GetTI()->GetTimestamp(),
                 known.samples};
        return format.whyNot(facts);
    }

    std::string Write(const Job& job) {
        std::string error;
        const OpenedExport file = format.open(job.path, options.overwrite, job.facts, error);
        if (file == nullptr) return error;
        reader.Seek(job.signal, 1);
        std::vector<double> samples;
        std::int64_t count = 0;
        std::int64_t next = 1;
        for (int read = 0; next <= reader.GetSignals()[static_cast<std::size_t>(job.signal)].blocks;) {
            read = reader.Next();
            if (read == 0) break;
            if (read > 0 && reader.GetSignal() != job.signal) continue;
            if (read < 0 || reader.GetBlockNumber() != next || !HasSamples(reader.GetBlock())) {
                isDamaged = true;
                console::Error(read < 0
                                   ? reader.GetError()
                                   : Bilingual("'%1': block %2 is no continuation of the samples",
                                               "'%1': Block %2 setzt die Werte nicht fort")
                                         .With({job.facts.name, std::to_string(reader.GetBlockNumber())}));
                console::Say(
                    Bilingual("%1 holds what is before it", "%1 enthält, was davor liegt").With({job.path}));
                break;
            }
            ++next;
            Take(reader.GetBlock(), samples);
            count += std::ssize(samples);
            error = file->Write(samples);
            if (!error.empty()) return error;
            ShowProgress(job);
        }
        error = file->Close();
        if (error.empty()) TellWritten(job, count);
        return error;
    }

    static void Take(const TCIOStream::Block& block, std::vector<double>& samples) {
        samples.clear();
        if (block.SegmentCnt() == 0) return;
        const TCIOStream::DataSegment& values = *block.Segment(0);
        const auto count = static_cast<std::size_t>(values.GetElementCount());
        if (const double* const doubles = values.GetDoubles()) samples.assign(doubles, doubles + count);
        if (const int* const ints = values.GetInts()) samples.assign(ints, ints + count);
    }

    void ShowProgress(const Job& job) {
        constexpr std::int64_t BETWEEN = 64 << 20;
        if (reader.GetFrameOffset() < shownAt + BETWEEN && reader.GetFrameOffset() >= shownAt) return;
        shownAt = reader.GetFrameOffset();
        console::ShowProgress(
            Bilingual("%1: %2 of %3 MB", "%1: %2 von %3 MB")
                .With({job.path, std::to_string(shownAt >> 20), std::to_string(reader.GetFileSize() >> 20)}));
    }

    const ExportOptions& options;
    const Format& format;
    tc::RecordingReader reader;
    std::vector<Job> jobs;
    std::int64_t shownAt = 0;
    bool isDamaged = false;
};

}  // namespace

std::vector<std::string> ExportFormats() {
    std::vector<std::string> words;
    for (const Format& format : FORMATS) words.push_back(format.word);
    return words;
}

int ExportRecording(const ExportOptions& options) {
    for (const Format& format : FORMATS)
        if (options.format == format.word) return Export(options, format).Run();
    return EXIT_WRONG_INPUT;
}

}  // namespace host
