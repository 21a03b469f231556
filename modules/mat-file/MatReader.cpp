// The only file of the modules that knows libmatio.
#include "modules/mat-file/MatReader.h"

#include <hdf5.h>
#include <matio.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "modules/common/InputPath.h"
#include "modules/hdf5-file/Hdf5Reader.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"

namespace {

using tc::Bilingual;

constexpr std::size_t MOST_TEXT = 1 << 16;
constexpr std::size_t MOST_VARIABLES = 10000;

struct Closer {
    void operator()(mat_t* file) const { Mat_Close(file); }
    void operator()(matvar_t* variable) const { Mat_VarFree(variable); }
};
using Variable = std::unique_ptr<matvar_t, Closer>;

// What is wrong is said in our own words.
void Drop(int, char*) {}

// The bytes of a value in memory; 0 for what is no array of real numbers.
std::size_t BytesOf(const matvar_t& variable) {
    constexpr struct {
        matio_classes kind;
        std::size_t bytes;
    } KINDS[] = {{MAT_C_DOUBLE, 8}, {MAT_C_SINGLE, 4}, {MAT_C_INT8, 1},  {MAT_C_UINT8, 1},
                 {MAT_C_INT16, 2},  {MAT_C_UINT16, 2}, {MAT_C_INT32, 4}, {MAT_C_UINT32, 4},
                 {MAT_C_INT64, 8},  {MAT_C_UINT64, 8}};
    const auto found =
        std::ranges::find_if(KINDS, [&](const auto& row) { return row.kind == variable.class_type; });
    return found != std::end(KINDS) && !variable.isComplex ? found->bytes : 0;
}

std::size_t CountOf(const matvar_t& variable) {
    std::size_t count = variable.rank > 0 ? 1 : 0;
    for (int i = 0; i < variable.rank; ++i)
        if (__builtin_mul_overflow(count, variable.dims[i], &count)) return 0;
    return count;
}

template <class Value>
void Widen(const std::vector<char>& bytes, std::vector<double>& values) {
    for (std::size_t i = 0; i < values.size(); ++i) {
        Value value;
        std::memcpy(&value, bytes.data() + i * sizeof value, sizeof value);
        values[i] = static_cast<double>(value);
    }
}

void Widen(matio_classes kind, const std::vector<char>& bytes, std::vector<double>& values) {
    switch (kind) {
        case MAT_C_SINGLE:
            return Widen<float>(bytes, values);
        case MAT_C_INT8:
            return Widen<std::int8_t>(bytes, values);
        case MAT_C_UINT8:
            return Widen<std::uint8_t>(bytes, values);
        case MAT_C_INT16:
            return Widen<std::int16_t>(bytes, values);
        case MAT_C_UINT16:
            return Widen<std::uint16_t>(bytes, values);
        case MAT_C_INT32:
            return Widen<std::int32_t>(bytes, values);
        case MAT_C_UINT32:
            return Widen<std::uint32_t>(bytes, values);
        case MAT_C_INT64:
            return Widen<std::int64_t>(bytes, values);
        case MAT_C_UINT64:
            return Widen<std::uint64_t>(bytes, values);
        default:
            return Widen<double>(bytes, values);
    }
}

std::string TextOf(const matvar_t& variable) {
    const auto* const bytes = static_cast<const unsigned char*>(variable.data);
    const std::size_t count = std::min(CountOf(variable), MOST_TEXT);
    std::string text;
    if (bytes == nullptr) return text;
    const bool isWide = variable.data_type == MAT_T_UTF16 || variable.data_type == MAT_T_UINT16;
    if (!isWide) return std::string(reinterpret_cast<const char*>(bytes), std::min(count, variable.nbytes));
    for (std::size_t i = 0; i < count && 2 * i + 1 < variable.nbytes; ++i)
        tc::AppendCharacter(bytes[2 * i] | static_cast<unsigned>(bytes[2 * i + 1]) << 8, text);
    return text;
}

class Reader final : public tc::ArrayReader {
 public:
    Reader(const std::string& name, mat_t* opened) : path(name), file(opened) {}

    bool IsOpen() const { return file != nullptr; }
    // The arrays, and what the other variables say.
    CStringArray Variables() {
        CStringArray names;
        std::vector<std::string> known;
        for (std::size_t i = 0; i < MOST_VARIABLES; ++i) {
            const Variable info(Mat_VarReadNextInfo(file.get()));
            if (info == nullptr) break;
            const std::string name = info->name != nullptr ? info->name : "";
            const std::size_t count = CountOf(*info);
            if (tc::IsFactName(name) &&
                (count == 1 || (info->class_type == MAT_C_CHAR && count <= MOST_TEXT)))
                known.push_back(name);
            else if (BytesOf(*info) > 0 && count > 1 && info->rank == 2)
                names.push_back(name);
        }
        for (const std::string& name : known) TakeVariable(name);
        return names;
    }
    bool OpenVariable(const std::string& name, tc::ArrayLayout layout, std::string& error);
    const tc::ArrayFacts& Facts() const override { return facts; }
    bool Read(std::int64_t begin, std::int64_t count, double* values, std::int64_t stride,
              std::string& error) override;

 private:
    void TakeVariable(const std::string& name) {
        const Variable read(Mat_VarRead(file.get(), name.c_str()));
        if (read == nullptr || read->data == nullptr) return;
        if (read->class_type == MAT_C_CHAR) return tc::TakeFact(name, TextOf(*read), facts);
        const std::size_t size = BytesOf(*read);
        if (size == 0 || read->nbytes < size) return;
        const auto* const first = static_cast<const char*>(read->data);
        std::vector<double> number(1);
        Widen(read->class_type, std::vector<char>(first, first + size), number);
        tc::TakeFact(name, number[0], facts);
    }

    std::string path;
    std::unique_ptr<mat_t, Closer> file;
    Variable variable;
    tc::ArrayFacts facts;
    tc::ArrayShape shape;
    std::vector<char> bytes;
    std::vector<double> piece;
};

bool Reader::OpenVariable(const std::string& name, tc::ArrayLayout layout, std::string& error) {
    variable.reset(Mat_VarReadInfo(file.get(), name.c_str()));
    std::string reason;
    if (variable == nullptr || variable->rank != 2 || BytesOf(*variable) == 0 || CountOf(*variable) == 0)
        reason = Bilingual("it cannot be read", "sie ist nicht lesbar").Text();
    else if (CountOf(*variable) > INT_MAX)
        reason = Bilingual("it is too large for the MAT library; convert it to HDF5",
                           "sie ist zu groß für die MAT-Bibliothek; wandeln Sie sie in HDF5 um")
                     .Text();
    if (reason.empty())
        tc::FindShape(
            {static_cast<std::int64_t>(variable->dims[0]), static_cast<std::int64_t>(variable->dims[1])},
            layout, shape, reason);
    if (!reason.empty()) {
        error = Bilingual("variable: '%1' of %2: %3", "variable: '%1' von %2: %3").With({name, path, reason});
        return false;
    }
    facts.channels = static_cast<std::size_t>(shape.channels);
    facts.samples = shape.samples;
    return true;
}

// In the file the values of a column follow each other.
bool Reader::Read(std::int64_t begin, std::int64_t count, double* values, std::int64_t stride,
                  std::string& error) {
    const auto length = static_cast<std::size_t>(count * shape.channels);
    int start[] = {shape.areRows ? 0 : static_cast<int>(begin), shape.areRows ? static_cast<int>(begin) : 0};
    int steps[] = {1, 1};
    int edges[] = {static_cast<int>(shape.areRows ? shape.channels : count),
                   static_cast<int>(shape.areRows ? count : shape.channels)};
    bytes.resize(length * BytesOf(*variable));
    piece.resize(length);
    // Pieces that are whole in the file are read as such: libmatio 1.5 reads whole columns from the first on.
    const bool isWhole = shape.areRows || shape.channels == 1;
    const int code =
        isWhole ? Mat_VarReadDataLinear(file.get(), variable.get(), bytes.data(),
                                        static_cast<int>(begin * shape.channels), 1, static_cast<int>(length))
                : Mat_VarReadData(file.get(), variable.get(), bytes.data(), start, steps, edges);
    if (code != 0) {
        error = Bilingual("%1 cannot be read from sample %2 on; it is damaged or was cut off, copy it again",
                          "%1 ist ab Abtastwert %2 nicht lesbar; sie ist beschädigt oder abgeschnitten, "
                          "kopieren Sie sie neu")
                    .With({path, std::to_string(begin + 1)});
        return false;
    }
    Widen(variable->class_type, bytes, piece);
    for (std::int64_t c = 0; c < shape.channels; ++c)
        for (std::int64_t i = 0; i < count; ++i)
            values[c * stride + i] =
                piece[static_cast<std::size_t>(shape.areRows ? i * shape.channels + c : c * count + i)];
    return true;
}

}  // namespace

std::unique_ptr<tc::ArrayReader> OpenMat(const std::string& path, const std::string& wanted,
                                         tc::ArrayLayout layout, std::string& error) {
    Mat_LogInitFunc("", Drop);
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    H5PLset_loading_state(0);  // a file loads no library
    error = tc::WhyNoInputFile(path);
    if (error.empty() && H5Fis_hdf5(path.c_str()) > 0) return OpenHdf5Mat(path, wanted, layout, error);
    auto reader =
        std::make_unique<Reader>(path, error.empty() ? Mat_Open(path.c_str(), MAT_ACC_RDONLY) : nullptr);
    if (error.empty() && !reader->IsOpen())
        error =
            Bilingual(
                "%1 is no MAT file of version 5 or 7.3, or it is damaged; check the name, or save it again",
                "%1 ist keine MAT-Datei der Version 5 oder 7.3 oder beschädigt; prüfen Sie den Namen, oder "
                "speichern Sie sie neu")
                .With({path});
    if (!error.empty()) {
        error = "file: " + error;
        return nullptr;
    }
    const std::string name = tc::ChooseArray(
        path, "variable", wanted, reader->Variables(),
        Bilingual("an array of real numbers in %1; %2", "ein Feld reeller Zahlen in %1; %2"), error);
    return !name.empty() && reader->OpenVariable(name, layout, error) ? std::move(reader) : nullptr;
}
