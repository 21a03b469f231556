#pragma once

#include <algorithm>
#include <climits>
#include <cstdint>

#include "sigweave/module/PortRecord.h"
#include "sigweave/module/PortValueTraits.h"

// Writing and reading blocks of any element type through a port; see TCPortHelper for the results.
namespace tc {

using PortHelperImpl = TCPortHelper::TCPortHelperImpl;

// The order of every write: metadata first, also when there is nothing to write.
template <class Write>
int WriteBlock(PortHelperImpl& impl, PortHelperImpl::PORT& port, bool anything, std::uint64_t count,
               Write write) {
    const bool carriesTypeInfo = port.CarriesTypeInfo();
    if (carriesTypeInfo) impl.PrepareTypeInfo(port);
    if (!anything || count == 0) return 0;
    if (count > INT_MAX) return impl.Fail(port, TCPortHelper::NOT_CREATED);
    if (carriesTypeInfo)
        if (const int result = impl.HandOverTypeInfo(port); result < 0) return result;
    return impl.FinishBlock(port, write(*port.stream));
}

template <class T>
int WriteData(PortHelperImpl& impl, unsigned output, unsigned long count, const T* values) {
    auto* port = impl.WritablePort(output, PortValueTraits<T>::KINDS);
    if (port == nullptr) return 0;
    return WriteBlock(impl, *port, values != nullptr, count, [&](TCIOStream& stream) {
        const unsigned long skipped = port->IsSingleValue() ? count - 1 : 0;
        return PortValueTraits<T>::Write(stream, values + skipped, static_cast<int>(count - skipped));
    });
}

template <class T>
int WriteMatrix(PortHelperImpl& impl, unsigned output, int rows, int cols, const T* values, bool copy) {
    auto* port = impl.WritablePort(output, PortValueTraits<T>::MATRIX_KIND);
    if (port == nullptr) return 0;
    const bool anything = values != nullptr && rows > 0 && cols > 0;
    const std::uint64_t count = anything ? std::uint64_t(rows) * std::uint64_t(cols) : 0;
    return WriteBlock(impl, *port, anything, count, [&](TCIOStream& stream) {
        return PortValueTraits<T>::WriteMatrix(stream, values, rows, cols, copy);
    });
}

// Takes the next block and copies at most `count` of its values; `count` gets the number read.
template <class T>
int ReadBlock(PortHelperImpl& impl, PortHelperImpl::PORT& port, T* buffer, int& count) {
    count = std::min(count, port.ValuesWaiting());
    const int wanted = buffer != nullptr ? count : 0;
    const int result = impl.FinishRead(port, wanted, PortValueTraits<T>::Read(*port.stream, buffer, &count));
    if (result != 1) count = 0;
    return result;
}

// The same with the count of the interface, which is lowered before anything else is asked of it.
template <class T>
int ReadChecked(PortHelperImpl& impl, PortHelperImpl::PORT& port, unsigned long& count, T* buffer) {
    if (!port.HoldsBlock()) return 0;
    int read = static_cast<int>(std::min<unsigned long>(count, INT_MAX));
    const int result = ReadBlock(impl, port, buffer, read);
    count = static_cast<unsigned long>(read);
    return result;
}

template <class T>
int ReadData(PortHelperImpl& impl, unsigned input, unsigned long& count, T* buffer) {
    auto* port = impl.ReadablePort(input, PortValueTraits<T>::KINDS);
    return port != nullptr ? ReadChecked(impl, *port, count, buffer) : 0;
}

}  // namespace tc
