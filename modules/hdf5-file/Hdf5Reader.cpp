// The only file of the modules that knows HDF5.
#include "modules/hdf5-file/Hdf5Reader.h"

#include <hdf5.h>

#include <algorithm>

#include "modules/common/InputPath.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"

namespace {

using tc::Bilingual;

constexpr std::size_t MOST_DATASETS = 10000;
constexpr hsize_t MOST_ATTRIBUTE = 1 << 16;  // bytes
constexpr hssize_t MOST_TEXT = 1 << 16;      // characters
constexpr const char* MATLAB_CLASS = "MATLAB_class";
constexpr hsize_t MOST_CHUNK = 1 << 26;  // elements

// An identifier of the library, with the function that closes it.
class Id {
 public:
    Id(hid_t opened, herr_t (*closing)(hid_t)) : id(opened), close(closing) {}
    ~Id() {
        if (id >= 0) close(id);
    }
    Id(const Id&) = delete;
    Id& operator=(const Id&) = delete;
    operator hid_t() const { return id; }

 private:
    hid_t id;
    herr_t (*close)(hid_t);
};

bool IsNumeric(hid_t dataset) {
    const Id type(H5Dget_type(dataset), H5Tclose);
    const Id space(H5Dget_space(dataset), H5Sclose);
    const H5T_class_t kind = H5Tget_class(type);
    const int rank = H5Sget_simple_extent_ndims(space);
    return (kind == H5T_INTEGER || kind == H5T_FLOAT) && (rank == 1 || rank == 2);
}

herr_t AddDataset(hid_t group, const char* name, const H5O_info_t* info, void* names) {
    auto& found = *static_cast<CStringArray*>(names);
    if (info->type != H5O_TYPE_DATASET || found.size() >= MOST_DATASETS) return 0;
    const Id dataset(H5Dopen2(group, name, H5P_DEFAULT), H5Dclose);
    if (dataset >= 0 && IsNumeric(dataset)) found.push_back(name);
    return 0;
}

std::string ReadText(hid_t attribute, hid_t type) {
    const Id space(H5Aget_space(attribute), H5Sclose);
    const std::size_t size = H5Tget_size(type);
    if (H5Sget_simple_extent_npoints(space) != 1 || size > MOST_ATTRIBUTE) return "";
    const Id memory(H5Tcopy(H5T_C_S1), H5Tclose);
    H5Tset_cset(memory, H5Tget_cset(type));
    if (H5Tis_variable_str(type) > 0) {
        char* text = nullptr;
        H5Tset_size(memory, H5T_VARIABLE);
        if (H5Aread(attribute, memory, &text) < 0 || text == nullptr) return "";
        const std::string copy(text);
        H5free_memory(text);
        return copy;
    }
    std::string text(size + 1, '\0');
    H5Tset_size(memory, size + 1);
    if (H5Aread(attribute, memory, text.data()) < 0) return "";
    return text.substr(0, text.find('\0'));
}

// The text of an attribute; empty when there is none.
std::string AttributeText(hid_t object, const char* name) {
    if (H5Aexists(object, name) <= 0) return "";
    const Id attribute(H5Aopen(object, name, H5P_DEFAULT), H5Aclose);
    const Id type(H5Aget_type(attribute), H5Tclose);
    return H5Tget_class(type) == H5T_STRING ? ReadText(attribute, type) : "";
}

herr_t TakeAttribute(hid_t object, const char* name, const H5A_info_t* info, void* facts) {
    if (!tc::IsFactName(name) || info->data_size > MOST_ATTRIBUTE) return 0;
    const Id attribute(H5Aopen(object, name, H5P_DEFAULT), H5Aclose);
    const Id type(H5Aget_type(attribute), H5Tclose);
    const Id space(H5Aget_space(attribute), H5Sclose);
    auto& known = *static_cast<tc::ArrayFacts*>(facts);
    const H5T_class_t kind = H5Tget_class(type);
    double number = 0.0;
    if (kind == H5T_STRING) tc::TakeFact(name, ReadText(attribute, type), known);
    if ((kind == H5T_INTEGER || kind == H5T_FLOAT) && H5Sget_simple_extent_npoints(space) == 1 &&
        H5Aread(attribute, H5T_NATIVE_DOUBLE, &number) >= 0)
        tc::TakeFact(name, number, known);
    return 0;
}

// A variable of MAT 7.3 that says something of the others.
herr_t TakeVariable(hid_t file, const char* name, const H5L_info_t*, void* facts) {
    if (!tc::IsFactName(name)) return 0;
    const Id dataset(H5Dopen2(file, name, H5P_DEFAULT), H5Dclose);
    if (dataset < 0 || !IsNumeric(dataset)) return 0;
    const Id space(H5Dget_space(dataset), H5Sclose);
    const hssize_t count = H5Sget_simple_extent_npoints(space);
    if (count < 1 || count > MOST_TEXT) return 0;
    std::vector<double> values(static_cast<std::size_t>(count));
    if (H5Dread(dataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()) < 0) return 0;
    auto& known = *static_cast<tc::ArrayFacts*>(facts);
    if (AttributeText(dataset, MATLAB_CLASS) != "char") {
        if (count == 1) tc::TakeFact(name, values[0], known);
        return 0;
    }
    std::string text;
    for (const double code : values)
        if (code >= 1.0 && code <= 65535.0) tc::AppendCharacter(static_cast<unsigned>(code), text);
    tc::TakeFact(name, text, known);
    return 0;
}

herr_t AddVariable(hid_t file, const char* name, const H5L_info_t* link, void* names) {
    auto& found = *static_cast<CStringArray*>(names);
    if (link->type != H5L_TYPE_HARD || found.size() >= MOST_DATASETS || tc::IsFactName(name)) return 0;
    const Id object(H5Oopen(file, name, H5P_DEFAULT), H5Oclose);
    if (object < 0 || H5Iget_type(object) != H5I_DATASET || !IsNumeric(object)) return 0;
    const std::string kind = AttributeText(object, MATLAB_CLASS);
    if (kind != "char" && kind != "cell" && H5Aexists(object, "MATLAB_empty") <= 0) found.push_back(name);
    return 0;
}

class Reader final : public tc::ArrayReader {
 public:
    Reader(const std::string& name, hid_t opened, bool isMat)
        : path(name), file(opened, H5Fclose), isMatlab(isMat) {}

    bool IsOpen() const { return file >= 0; }
    CStringArray Datasets() const {
        CStringArray names;
        if (isMatlab)
            H5Literate(file, H5_INDEX_NAME, H5_ITER_INC, nullptr, AddVariable, &names);
        else
            H5Ovisit2(file, H5_INDEX_NAME, H5_ITER_INC, AddDataset, &names, H5O_INFO_BASIC);
        return names;
    }
    bool OpenDataset(const std::string& name, tc::ArrayLayout layout, std::string& error);
    const tc::ArrayFacts& Facts() const override { return facts; }
    bool Read(std::int64_t begin, std::int64_t count, double* values, std::int64_t stride,
              std::string& error) override;

 private:
    // Those of the groups first, so that what is nearer counts.
    void ReadFacts(const std::string& name) {
        if (isMatlab) {
            H5Literate(file, H5_INDEX_NAME, H5_ITER_INC, nullptr, TakeVariable, &facts);
            return;
        }
        for (std::size_t at = 0; at != name.npos; at = name.find('/', at + 1)) {
            const Id object(H5Oopen(file, at == 0 ? "/" : name.substr(0, at).c_str(), H5P_DEFAULT), H5Oclose);
            if (object >= 0) H5Aiterate2(object, H5_INDEX_NAME, H5_ITER_INC, nullptr, TakeAttribute, &facts);
        }
        H5Aiterate2(*dataset, H5_INDEX_NAME, H5_ITER_INC, nullptr, TakeAttribute, &facts);
    }
    // Why the dataset is not read: it leads to other files, or could not be read by pieces.
    std::string WhyRefused() const {
        const Id layout(H5Dget_create_plist(*dataset), H5Pclose);
        const H5D_layout_t kind = H5Pget_layout(layout);
        hsize_t chunk[2] = {1, 1};
        if (kind == H5D_CHUNKED && (H5Pget_chunk(layout, 2, chunk) < 1 || chunk[0] > MOST_CHUNK / chunk[1]))
            return Bilingual("its chunks are too large", "seine Teile sind zu groß").Text();
        const bool isElsewhere = kind == H5D_VIRTUAL || kind < 0 || H5Pget_external_count(layout) != 0;
        return isElsewhere
                   ? Bilingual("its values are in other files", "seine Werte liegen in anderen Dateien")
                         .Text()
                   : "";
    }

    std::string path;
    Id file;
    bool isMatlab;
    std::unique_ptr<Id> dataset;
    tc::ArrayFacts facts;
    tc::ArrayShape shape;
    bool hasTwoDimensions = false;
    std::vector<double> piece;
};

bool Reader::OpenDataset(const std::string& name, tc::ArrayLayout layout, std::string& error) {
    dataset = std::make_unique<Id>(H5Dopen2(file, name.c_str(), H5P_DEFAULT), H5Dclose);
    const Id space(H5Dget_space(*dataset), H5Sclose);
    hsize_t sizes[2] = {0, 1};
    const int rank = H5Sget_simple_extent_dims(space, sizes, nullptr);
    std::vector<std::int64_t> lengths;
    for (int i = 0; i < rank; ++i) lengths.push_back(static_cast<std::int64_t>(sizes[i]));
    std::string reason =
        rank > 0 ? WhyRefused() : Bilingual("it cannot be read", "es ist nicht lesbar").Text();
    if (isMatlab) std::ranges::reverse(lengths);
    if (reason.empty()) tc::FindShape(lengths, layout, shape, reason);
    if (isMatlab) shape.areRows = rank == 2 && !shape.areRows;
    if (!reason.empty()) {
        error = Bilingual("%4: '%1' of %2: %3", "%4: '%1' von %2: %3")
                    .With({name, path, reason, isMatlab ? "variable" : "dataset"});
        return false;
    }
    hasTwoDimensions = rank == 2;
    facts.channels = static_cast<std::size_t>(shape.channels);
    facts.samples = shape.samples;
    ReadFacts(name);
    return true;
}

bool Reader::Read(std::int64_t begin, std::int64_t count, double* values, std::int64_t stride,
                  std::string& error) {
    const auto first = static_cast<hsize_t>(begin), length = static_cast<hsize_t>(count);
    const auto channels = static_cast<hsize_t>(shape.channels);
    const hsize_t from[] = {shape.areRows ? 0 : first, shape.areRows ? first : 0};
    const hsize_t size[] = {shape.areRows ? channels : length, shape.areRows ? length : channels};
    const Id target(H5Screate_simple(hasTwoDimensions ? 2 : 1, size, nullptr), H5Sclose);
    const Id source(H5Dget_space(*dataset), H5Sclose);
    piece.resize(static_cast<std::size_t>(length * channels));
    double* const to = channels > 1 ? piece.data() : values;
    if (H5Sselect_hyperslab(source, H5S_SELECT_SET, from, nullptr, size, nullptr) < 0 ||
        H5Dread(*dataset, H5T_NATIVE_DOUBLE, target, source, H5P_DEFAULT, to) < 0) {
        error = Bilingual("%1 cannot be read from sample %2 on; it is damaged or was cut off, copy it again",
                          "%1 ist ab Abtastwert %2 nicht lesbar; sie ist beschädigt oder abgeschnitten, "
                          "kopieren Sie sie neu")
                    .With({path, std::to_string(begin + 1)});
        return false;
    }
    for (std::int64_t c = 0; c < shape.channels && channels > 1; ++c)
        for (std::int64_t i = 0; i < count; ++i)
            values[c * stride + i] =
                piece[static_cast<std::size_t>(shape.areRows ? c * count + i : i * shape.channels + c)];
    return true;
}

std::unique_ptr<tc::ArrayReader> Open(const std::string& path, const std::string& wanted,
                                      tc::ArrayLayout layout, bool isMatlab, std::string& error) {
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);  // what is wrong is said in our own words
    H5PLset_loading_state(0);                     // a file loads no library
    error = tc::WhyNoInputFile(path);
    auto reader = std::make_unique<Reader>(
        path, error.empty() ? H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT) : H5I_INVALID_HID, isMatlab);
    if (error.empty() && !reader->IsOpen())
        error =
            Bilingual(
                "%1 is no HDF5 file, or it is damaged; check the name, or copy it again",
                "%1 ist keine HDF5-Datei oder beschädigt; prüfen Sie den Namen, oder kopieren Sie sie neu")
                .With({path});
    if (!error.empty()) {
        error = "file: " + error;
        return nullptr;
    }
    constexpr Bilingual DATASET("a dataset of numbers with one or two dimensions in %1; %2",
                                "ein Datensatz von Zahlen mit einer oder zwei Dimensionen in %1; %2");
    constexpr Bilingual VARIABLE("an array of real numbers in %1; %2", "ein Feld reeller Zahlen in %1; %2");
    const std::string name = tc::ChooseArray(path, isMatlab ? "variable" : "dataset",
                                             wanted.starts_with('/') ? wanted.substr(1) : wanted,
                                             reader->Datasets(), isMatlab ? VARIABLE : DATASET, error);
    return !name.empty() && reader->OpenDataset(name, layout, error) ? std::move(reader) : nullptr;
}

}  // namespace

std::unique_ptr<tc::ArrayReader> OpenHdf5(const std::string& path, const std::string& wanted,
                                          tc::ArrayLayout layout, std::string& error) {
    return Open(path, wanted, layout, false, error);
}

std::unique_ptr<tc::ArrayReader> OpenHdf5Mat(const std::string& path, const std::string& wanted,
                                             tc::ArrayLayout layout, std::string& error) {
    return Open(path, wanted, layout, true, error);
}
