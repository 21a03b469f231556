// The only file of the host that knows libsndfile.
#include <sndfile.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "host/RecordExport.h"
#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/platform/ReplacedFile.h"
#include "sigweave/services/FileMessages.h"

namespace host {
namespace {

class WaveFile final : public ExportFile {
 public:
    WaveFile(std::unique_ptr<tc::ReplacedFile> target, SNDFILE* opened, const std::string& name)
        : file(std::move(target)), wave(opened), path(name) {}
    ~WaveFile() override { sf_close(wave); }

    std::string Write(std::span<const double> samples) override {
        const auto count = static_cast<sf_count_t>(samples.size());
        if (sf_write_double(wave, samples.data(), count) == count) return "";
        return tc::WhyNotWritten(path, sf_strerror(wave));
    }
    std::string Close() override {
        const int failed = sf_close(wave);
        wave = nullptr;
        errno = 0;
        if (failed == 0 && file->Commit()) return "";
        return tc::WhyNotWritten(
            path, failed != 0 ? sf_error_number(failed) : std::generic_category().message(errno));
    }

 private:
    std::unique_ptr<tc::ReplacedFile> file;
    SNDFILE* wave;
    std::string path;
};

}  // namespace

OpenedExport OpenWave(const std::string& path, bool mayReplace, const ExportSignal& signal,
                      std::string& error) {
    errno = 0;
    std::unique_ptr<tc::ReplacedFile> file =
        tc::ReplacedFile::Open(path, {.exclusive = true, .mayReplace = mayReplace});
    if (file == nullptr) {
        error = tc::WhyNotWritten(path, std::generic_category().message(errno));
        return nullptr;
    }
    SF_INFO info{};
    info.samplerate = static_cast<int>(signal.rate);
    info.channels = 1;
    constexpr std::int64_t MOST_IN_WAV = (std::int64_t{4} << 30) / 8 - 4096;
    info.format = (signal.samples <= MOST_IN_WAV ? SF_FORMAT_WAV : SF_FORMAT_RF64) | SF_FORMAT_DOUBLE;
    SNDFILE* const wave = sf_open_fd(fileno(file->Get()), SFM_WRITE, &info, SF_FALSE);
    if (wave == nullptr) {
        error = tc::WhyNotWritten(path, sf_strerror(nullptr));
        return nullptr;
    }
    sf_command(wave, SFC_SET_CLIPPING, nullptr, SF_FALSE);
    sf_set_string(wave, SF_STR_TITLE, signal.name.c_str());
    const std::string comment = "unit=" + signal.unit + "; start=" + tc::ShortestText(signal.start) +
                                " ms since 1970-01-01 00:00 UTC";
    sf_set_string(wave, SF_STR_COMMENT, comment.c_str());
    return std::make_unique<WaveFile>(std::move(file), wave, path);
}

}  // namespace host
