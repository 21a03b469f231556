// The only file that knows libmatio.
#include <matio.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <system_error>

#include "host/RecordExport.h"
#include "sigweave/platform/ReplacedFile.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/FileMessages.h"

namespace host {
namespace {

constexpr tc::Bilingual FAILED("the MAT library could not write it",
                               "die MAT-Bibliothek konnte nicht schreiben");

// The variables samples, a column, and name, unit, sample_rate and start_time. The format wants the length of
// an array before its elements, so all of them are in memory until the end.
class MatFile final : public ExportFile {
 public:
    MatFile(std::unique_ptr<tc::ReplacedFile> target, const std::string& name, const ExportSignal& its)
        : file(std::move(target)), path(name), signal(its) {}

    std::string Write(std::span<const double> values) override {
        samples.insert(samples.end(), values.begin(), values.end());
        return "";
    }
    std::string Close() override {
        mat_t* const mat = Mat_CreateVer(file->PartName().c_str(), nullptr, MAT_FT_MAT5);
        const bool isWritten = mat != nullptr && PutNumbers(mat, "samples", samples.data(), samples.size()) &&
                               PutText(mat, "name", signal.name) && PutText(mat, "unit", signal.unit) &&
                               PutNumbers(mat, "sample_rate", &signal.rate, 1) && PutStart(mat);
        if (mat != nullptr && Mat_Close(mat) != 0) return tc::WhyNotWritten(path, FAILED.Text());
        if (!isWritten || !IsWhole()) return tc::WhyNotWritten(path, FAILED.Text());
        errno = 0;
        return file->Commit() ? "" : tc::WhyNotWritten(path, std::generic_category().message(errno));
    }

 private:
    // The library does not notice a full disk, so what it wrote is read again.
    bool IsWhole() const {
        mat_t* const mat = Mat_Open(file->PartName().c_str(), MAT_ACC_RDONLY);
        const double seconds = signal.start / 1000.0;
        const bool isWhole = mat != nullptr && HasNumbers(mat, "samples", samples) &&
                             HasNumbers(mat, "sample_rate", {&signal.rate, 1}) &&
                             HasNumbers(mat, "start_time", {&seconds, 1});
        if (mat != nullptr) Mat_Close(mat);
        return isWhole && HasWholeElements();
    }
    // After a head of 128 bytes one after the other: a type, a length, and as many bytes.
    bool HasWholeElements() const {
        std::ifstream written(file->PartName(), std::ios::binary);
        written.seekg(0, std::ios::end);
        const std::streamoff size = written.tellg();
        std::streamoff at = 128;
        std::uint32_t tag[2] = {};
        while (at < size && written.seekg(at).read(reinterpret_cast<char*>(tag), sizeof tag))
            at += static_cast<std::streamoff>(sizeof tag) + tag[1];
        return at == size;
    }
    static bool HasNumbers(mat_t* mat, const char* name, std::span<const double> values) {
        constexpr std::size_t AT_ONCE = 1 << 16;
        matvar_t* const found = Mat_VarReadInfo(mat, name);
        bool isSame = found != nullptr;
        std::vector<double> read;
        for (std::size_t at = 0; isSame && at < values.size(); at += read.size()) {
            const std::span<const double> wanted = values.subspan(at, std::min(AT_ONCE, values.size() - at));
            read.resize(wanted.size());
            // Unlike what is wanted, should nothing be read.
            std::ranges::transform(wanted, read.begin(),
                                   [](double value) { return value == 0.0 ? 1.0 : 0.0; });
            isSame = Mat_VarReadDataLinear(mat, found, read.data(), static_cast<int>(at), 1,
                                           static_cast<int>(read.size())) == 0 &&
                     std::memcmp(read.data(), wanted.data(), wanted.size_bytes()) == 0;
        }
        Mat_VarFree(found);
        return isSame;
    }

    static bool Put(mat_t* mat, matvar_t* variable) {
        const bool isWritten = variable != nullptr && Mat_VarWrite(mat, variable, MAT_COMPRESSION_NONE) == 0;
        Mat_VarFree(variable);
        return isWritten;
    }
    static bool PutNumbers(mat_t* mat, const char* name, const double* values, std::size_t count) {
        std::size_t shape[] = {count, 1};
        return Put(mat, Mat_VarCreate(name, MAT_C_DOUBLE, MAT_T_DOUBLE, 2, shape, const_cast<double*>(values),
                                      MAT_F_DONT_COPY_DATA));
    }
    static bool PutText(mat_t* mat, const char* name, const std::string& text) {
        std::size_t shape[] = {1, text.size()};
        return Put(mat,
                   Mat_VarCreate(name, MAT_C_CHAR, MAT_T_UTF8, 2, shape, const_cast<char*>(text.data()), 0));
    }
    bool PutStart(mat_t* mat) const {
        const double seconds = signal.start / 1000.0;
        return PutNumbers(mat, "start_time", &seconds, 1);
    }

    std::unique_ptr<tc::ReplacedFile> file;
    std::string path;
    ExportSignal signal;
    std::vector<double> samples;
};

}  // namespace

OpenedExport OpenMat(const std::string& path, bool mayReplace, const ExportSignal& signal,
                     std::string& error) {
    errno = 0;
    std::unique_ptr<tc::ReplacedFile> file =
        tc::ReplacedFile::Open(path, {.exclusive = false, .mayReplace = mayReplace});
    if (file != nullptr) return std::make_unique<MatFile>(std::move(file), path, signal);
    error = tc::WhyNotWritten(path, std::generic_category().message(errno));
    return nullptr;
}

}  // namespace host
