#pragma once

#include "sigweave/module/TCPortHelperImpl.h"

namespace tc {

constexpr TCPortHelper::TYPE KIND_MASK = 0x00FFFFFF;

// What the value operations need to know of an element type: the port kinds that hold it, the stream's
// element type, and the stream operations that move it.
template <class T>
struct PortValueTraits;

template <>
struct PortValueTraits<int> {
    static constexpr TCPortHelper::TYPE KINDS = TCPortHelper::TCPortHelperImpl::INT_KINDS;
    static constexpr TCPortHelper::TYPE SINGLE = TCPortHelper::TYPE_SWORD1;
    static constexpr TCPortHelper::TYPE ARRAY = TCPortHelper::TYPE_SWORDARRAY;
    static constexpr TCPortHelper::TYPE MATRIX_KIND = TCPortHelper::TYPE_SWORDMATRIX;
    static constexpr TCPortHelper::TYPE MATRIX = TCPortHelper::TYPE_POINTER | MATRIX_KIND;
    static constexpr TCIOStream::DATATYPE ELEMENT = TCIOStream::INT;
    static constexpr const char* NAME = "int";
    static constexpr const char* SEGMENT_NAME = "integer";

    static int Write(TCIOStream& stream, const int* data, int count) {
        return stream.WriteIntVec(data, count);
    }
    static int WriteMatrix(TCIOStream& stream, const int* data, int rows, int cols, bool copy) {
        return stream.WriteIntMat(data, rows, cols, copy);
    }
    static int Read(TCIOStream& stream, int* buffer, int* count) { return stream.ReadIntVec(buffer, count); }
    static const int* Data(const TCIOStream::DataSegment& segment) { return segment.GetInts(); }
};

template <>
struct PortValueTraits<double> {
    static constexpr TCPortHelper::TYPE KINDS = TCPortHelper::TCPortHelperImpl::DOUBLE_KINDS;
    static constexpr TCPortHelper::TYPE SINGLE = TCPortHelper::TYPE_DOUBLE1;
    static constexpr TCPortHelper::TYPE ARRAY = TCPortHelper::TYPE_DOUBLEARRAY;
    static constexpr TCPortHelper::TYPE MATRIX_KIND = TCPortHelper::TYPE_DOUBLEMATRIX;
    static constexpr TCPortHelper::TYPE MATRIX = TCPortHelper::TYPE_POINTER | MATRIX_KIND;
    static constexpr TCIOStream::DATATYPE ELEMENT = TCIOStream::DOUBLE;
    static constexpr const char* NAME = "double";
    static constexpr const char* SEGMENT_NAME = "double";

    static int Write(TCIOStream& stream, const double* data, int count) {
        return stream.WriteDblVec(data, count);
    }
    static int WriteMatrix(TCIOStream& stream, const double* data, int rows, int cols, bool copy) {
        return stream.WriteDblMat(data, rows, cols, copy);
    }
    static int Read(TCIOStream& stream, double* buffer, int* count) {
        return stream.ReadDblVec(buffer, count);
    }
    static const double* Data(const TCIOStream::DataSegment& segment) { return segment.GetDoubles(); }
};

template <>
struct PortValueTraits<TCString> {
    static constexpr TCPortHelper::TYPE KINDS = TCPortHelper::TCPortHelperImpl::TEXT_KINDS;
    static constexpr TCPortHelper::TYPE SINGLE = TCPortHelper::TYPE_TEXT;
    static constexpr TCPortHelper::TYPE ARRAY = TCPortHelper::TYPE_TEXTARRAY;
    static constexpr TCIOStream::DATATYPE ELEMENT = TCIOStream::STRING;
    static constexpr const char* NAME = "string";
    static constexpr const char* SEGMENT_NAME = "string";

    static int Write(TCIOStream& stream, const TCString* data, int count) {
        return stream.WriteStrVec(data, count);
    }
    static int Read(TCIOStream& stream, TCString* buffer, int* count) {
        return stream.ReadStrVec(buffer, count);
    }
    static const TCString* Data(const TCIOStream::DataSegment& segment) { return segment.GetStrings(); }
};

// Texts in the second string type; in the stream they are the same.
template <>
struct PortValueTraits<CString> : PortValueTraits<TCString> {
    static int Write(TCIOStream& stream, const CString* data, int count) {
        return stream.WriteStrVec(data, count);
    }
    static int Read(TCIOStream& stream, CString* buffer, int* count) {
        return stream.ReadStrVec(buffer, count);
    }
};

template <class T>
void AssignValue(T& to, const T& from) {
    to = from;
}
inline void AssignValue(CString& to, const TCString& from) {
    to.assign(from, static_cast<std::size_t>(from.GetLength()));
}

// The array types of the interface hold their size as an int or as a std::size_t.
template <class T, class ARG>
void ResizeArray(TCArray<T, ARG>& values, int size) {
    values.SetSize(size != 0 ? size : -1);
}
template <class T>
void ResizeArray(std::vector<T>& values, int size) {
    values.resize(static_cast<std::size_t>(size));
}
template <class T, class ARG>
T* ArrayData(TCArray<T, ARG>& values) {
    return values.GetData();
}
template <class T>
T* ArrayData(std::vector<T>& values) {
    return values.data();
}

}  // namespace tc
