// The only file that knows HDF5.
#include <hdf5.h>

#include <cerrno>
#include <system_error>

#include "host/RecordExport.h"
#include "sigweave/platform/ReplacedFile.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/FileMessages.h"

namespace host {
namespace {

constexpr tc::Bilingual FAILED("the HDF5 library could not write it",
                               "die HDF5-Bibliothek konnte nicht schreiben");

// An identifier of the library, with the function that closes it.
class Id {
 public:
    Id(hid_t opened, herr_t (*closing)(hid_t)) : id(opened), close(closing) {}
    ~Id() { Close(); }
    Id(const Id&) = delete;
    Id& operator=(const Id&) = delete;
    operator hid_t() const { return id; }
    bool Close() {
        const bool isClosed = id < 0 || close(id) >= 0;
        id = H5I_INVALID_HID;
        return isClosed;
    }

 private:
    hid_t id;
    herr_t (*close)(hid_t);
};

bool PutText(hid_t dataset, const char* name, const std::string& value) {
    const Id type(H5Tcopy(H5T_C_S1), H5Tclose);
    H5Tset_size(type, value.size() + 1);
    H5Tset_cset(type, H5T_CSET_UTF8);
    const Id space(H5Screate(H5S_SCALAR), H5Sclose);
    const Id attribute(H5Acreate2(dataset, name, type, space, H5P_DEFAULT, H5P_DEFAULT), H5Aclose);
    return attribute >= 0 && H5Awrite(attribute, type, value.c_str()) >= 0;
}

bool PutNumber(hid_t dataset, const char* name, double value) {
    const Id space(H5Screate(H5S_SCALAR), H5Sclose);
    const Id attribute(H5Acreate2(dataset, name, H5T_IEEE_F64LE, space, H5P_DEFAULT, H5P_DEFAULT), H5Aclose);
    return attribute >= 0 && H5Awrite(attribute, H5T_NATIVE_DOUBLE, &value) >= 0;
}

hid_t MakeSamples(hid_t file) {
    constexpr hsize_t NONE = 0, MOST = H5S_UNLIMITED, PIECE = 1 << 16;
    const Id space(H5Screate_simple(1, &NONE, &MOST), H5Sclose);
    const Id layout(H5Pcreate(H5P_DATASET_CREATE), H5Pclose);
    H5Pset_chunk(layout, 1, &PIECE);
    return H5Dcreate2(file, "samples", H5T_IEEE_F64LE, space, H5P_DEFAULT, layout, H5P_DEFAULT);
}

// One dataset "samples" with the attributes name, unit, sample_rate and start_time.
class Hdf5File final : public ExportFile {
 public:
    Hdf5File(std::unique_ptr<tc::ReplacedFile> target, const std::string& name)
        : file(std::move(target)),
          path(name),
          hdf5(H5Fcreate(file->PartName().c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT), H5Fclose),
          samples(hdf5 >= 0 ? MakeSamples(hdf5) : H5I_INVALID_HID, H5Dclose) {}

    bool Describe(const ExportSignal& signal) {
        return samples >= 0 && PutText(samples, "name", signal.name) &&
               PutText(samples, "unit", signal.unit) && PutNumber(samples, "sample_rate", signal.rate) &&
               PutNumber(samples, "start_time", signal.start / 1000.0);
    }
    std::string Write(std::span<const double> values) override {
        const hsize_t begin = count, more = values.size();
        if (more == 0) return "";
        count += more;
        if (H5Dset_extent(samples, &count) < 0) return Failure();
        const Id target(H5Dget_space(samples), H5Sclose);
        const Id source(H5Screate_simple(1, &more, nullptr), H5Sclose);
        const bool isWritten =
            H5Sselect_hyperslab(target, H5S_SELECT_SET, &begin, nullptr, &more, nullptr) >= 0 &&
            H5Dwrite(samples, H5T_NATIVE_DOUBLE, source, target, H5P_DEFAULT, values.data()) >= 0;
        return isWritten ? "" : Failure();
    }
    std::string Close() override {
        if (!samples.Close() || !hdf5.Close()) return Failure();
        errno = 0;
        return file->Commit() ? "" : tc::WhyNotWritten(path, std::generic_category().message(errno));
    }
    std::string Failure() const { return tc::WhyNotWritten(path, FAILED.Text()); }

 private:
    std::unique_ptr<tc::ReplacedFile> file;
    std::string path;
    Id hdf5;
    Id samples;
    hsize_t count = 0;
};

}  // namespace

OpenedExport OpenHdf5(const std::string& path, bool mayReplace, const ExportSignal& signal,
                      std::string& error) {
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    errno = 0;
    std::unique_ptr<tc::ReplacedFile> file =
        tc::ReplacedFile::Open(path, {.exclusive = false, .mayReplace = mayReplace});
    if (file == nullptr) {
        error = tc::WhyNotWritten(path, std::generic_category().message(errno));
        return nullptr;
    }
    auto made = std::make_unique<Hdf5File>(std::move(file), path);
    if (made->Describe(signal)) return made;
    error = made->Failure();
    return nullptr;
}

}  // namespace host
