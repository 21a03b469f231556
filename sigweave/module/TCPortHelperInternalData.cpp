#include <algorithm>
#include <climits>
#include <cstring>
#include <exception>

#include "sigweave/module/PortValueOperations.h"

using Impl = TCPortHelper::TCPortHelperImpl;
using PORT = Impl::PORT;
using TYPE = TCPortHelper::TYPE;
using tc::InternalData;
using tc::PortValueTraits;

namespace {

template <class T>
constexpr bool HAS_MATRIX = requires {
    PortValueTraits<T>::MATRIX_KIND;
};

constexpr TYPE MATRICES = TCPortHelper::TYPE_SWORDMATRIX | TCPortHelper::TYPE_DOUBLEMATRIX;

template <class T>
T* Resize(InternalData& internal, std::size_t count, int rows, int cols) {
    using Vector = std::vector<T>;
    if (!std::holds_alternative<Vector>(internal.values)) internal.values.emplace<Vector>();
    Vector& values = std::get<Vector>(internal.values);
    try {
        values.resize(count);
    } catch (const std::exception&) {
        return nullptr;
    }
    internal.rows = rows;
    internal.cols = cols;
    return values.data();
}

template <class T>
T* AllocData(Impl& impl, unsigned output, unsigned long count) {
    PORT* port = impl.Port(OUTPUT, output);
    if (port == nullptr || (port->Code() & PortValueTraits<T>::KINDS) == 0) return nullptr;
    return count != 0 && count <= INT_MAX ? Resize<T>(port->internalData, count, 0, 0) : nullptr;
}

template <class T>
T* AllocMatrix(Impl& impl, unsigned output, int rows, int cols) {
    PORT* port = impl.Port(OUTPUT, output);
    if (port == nullptr || (port->Code() & PortValueTraits<T>::MATRIX_KIND) == 0) return nullptr;
    if (rows <= 0 || cols <= 0 || std::int64_t{rows} * cols > INT_MAX) return nullptr;
    return Resize<T>(port->internalData, static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols),
                     rows, cols);
}

// Calls `work` with a pointer that has the port's element type; 0 for a port without one.
template <class Work>
int WithElements(TYPE code, Work work) {
    if ((code & (Impl::INT_KINDS | TCPortHelper::TYPE_SWORDMATRIX)) != 0)
        return work(static_cast<int*>(nullptr));
    if ((code & (Impl::DOUBLE_KINDS | TCPortHelper::TYPE_DOUBLEMATRIX)) != 0)
        return work(static_cast<double*>(nullptr));
    return (code & Impl::TEXT_KINDS) != 0 ? work(static_cast<TCString*>(nullptr)) : 0;
}

// Copies the block just taken to the input's own buffer.
template <class T>
int KeepBlock(Impl& impl, PORT& input) {
    const TCIOStream::DataSegment* segment = input.stream->Segment(0);
    if (segment == nullptr || segment->GetElementCount() == 0) return 0;
    const T* data = PortValueTraits<T>::Data(*segment);
    if (data == nullptr) return impl.WrongData(input);
    int rows = 0;
    int cols = 0;
    if ((input.Code() & MATRICES) != 0) segment->GetShape(rows, cols);
    const std::size_t count = static_cast<std::size_t>(segment->GetElementCount());
    T* kept = Resize<T>(input.internalData, count, rows, cols);
    if (kept == nullptr) return impl.Fail(input, TCPortHelper::NOT_CREATED);
    return impl.Guarded(input, [&] {
        std::copy_n(data, count, kept);
        return 1;
    });
}

// A matrix is copied: the port's buffer is filled anew while receivers still hold the block.
template <class T>
int WriteValues(Impl& impl, unsigned output, const InternalData& internal, const std::vector<T>& values) {
    if constexpr (HAS_MATRIX<T>) {
        if (internal.rows != 0)
            return tc::WriteMatrix(impl, output, internal.rows, internal.cols, values.data(), true);
    }
    return tc::WriteData(impl, output, values.size(), values.data());
}

template <class T>
int WritePolymorphic(Impl& impl, PORT& port, unsigned output, unsigned long count, const T* values,
                     int columns) {
    if constexpr (HAS_MATRIX<T>) {
        if ((port.Code() & MATRICES) != 0) {
            const auto cols = static_cast<unsigned long>(std::max(columns, 0));
            const bool fits = cols != 0 && count % cols == 0 && count <= INT_MAX;
            if (!fits) return impl.Fail(port, TCPortHelper::NOT_CREATED);
            return tc::WriteMatrix(impl, output, static_cast<int>(count / cols), columns, values, false);
        }
    }
    return tc::WriteData(impl, output, count, values);
}

// Part of a matrix is of no use: with too small a buffer the block stays where it is.
template <class T>
int ReadMatrixData(Impl& impl, PORT& port, unsigned long& count, T* buffer, int* columns) {
    if (count < static_cast<unsigned long>(port.ValuesWaiting()))
        return impl.Fail(port, TCPortHelper::NOT_CREATED);
    const int result = tc::ReadChecked(impl, port, count, buffer);
    int rows = 0;
    if (result == 1 && columns != nullptr) port.stream->Segment(0)->GetShape(rows, *columns);
    return result;
}

template <class T>
bool AreSame(const std::vector<T>& a, const std::vector<T>& b) {
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}
bool AreSame(const std::vector<TCString>& a, const std::vector<TCString>& b) {
    return std::ranges::equal(a, b,
                              [](const TCString& x, const TCString& y) { return x.CompareBin(y) == 0; });
}
bool AreSame(const std::monostate&, const std::monostate&) {
    return false;
}

}  // namespace

int* TCPortHelper::AllocIntData(unsigned output, unsigned long count) {
    return AllocData<int>(*impl, output, count);
}
double* TCPortHelper::AllocDblData(unsigned output, unsigned long count) {
    return AllocData<double>(*impl, output, count);
}
TCString* TCPortHelper::AllocStringData(unsigned output, unsigned long count) {
    return AllocData<TCString>(*impl, output, count);
}
int* TCPortHelper::AllocIntMatrix(unsigned output, int rows, int cols) {
    return AllocMatrix<int>(*impl, output, rows, cols);
}
double* TCPortHelper::AllocDblMatrix(unsigned output, int rows, int cols) {
    return AllocMatrix<double>(*impl, output, rows, cols);
}

int TCPortHelper::WriteInternalData(unsigned output) {
    const PORT* port = impl->Port(OUTPUT, output);
    if (port == nullptr) return 0;
    const InternalData& internal = port->internalData;
    const auto write = [&](const auto& values) {
        if constexpr (requires { values.data(); }) return WriteValues(*impl, output, internal, values);
        return 0;
    };
    return std::visit(write, internal.values);
}

int TCPortHelper::ReadInternalData(unsigned input) {
    PORT* port = impl->Port(INPUT, input);
    if (port == nullptr) return 0;
    return WithElements(port->Code(), [&]<class T>(const T*) {
        return impl->Take(*port, false) ? KeepBlock<T>(*impl, *port) : 0;
    });
}

bool TCPortHelper::CompareWithInternalData(unsigned input, unsigned output) const {
    const PORT* in = impl->Port(INPUT, input);
    const PORT* out = impl->Port(OUTPUT, output);
    if (in == nullptr || out == nullptr) return false;
    const InternalData& a = in->internalData;
    const InternalData& b = out->internalData;
    if (a.rows != b.rows || a.cols != b.cols || a.values.index() != b.values.index()) return false;
    const auto same = [&b]<class Values>(const Values& values) {
        return AreSame(values, std::get<Values>(b.values));
    };
    return std::visit(same, a.values);
}

int TCPortHelper::WritePolymorphicData(unsigned output, unsigned long count, const void* values,
                                       int columns) {
    PORT* port = impl->WritablePort(output, 0);
    if (port == nullptr || values == nullptr || count == 0) return 0;
    return WithElements(port->Code(), [&]<class T>(const T*) {
        return WritePolymorphic(*impl, *port, output, count, static_cast<const T*>(values), columns);
    });
}

int TCPortHelper::ReadPolymorphicData(unsigned input, unsigned long& count, void* buffer, int* columns) {
    PORT* port = impl->Port(INPUT, input);
    if (columns != nullptr) *columns = 0;
    if (port == nullptr) return 0;
    return WithElements(port->Code(), [&]<class T>(const T*) {
        return (port->Code() & MATRICES) != 0
                   ? ReadMatrixData(*impl, *port, count, static_cast<T*>(buffer), columns)
                   : tc::ReadData(*impl, input, count, static_cast<T*>(buffer));
    });
}
