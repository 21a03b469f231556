#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <string>
#include <vector>

#include "python/src/Samples.h"

namespace python {

// Texts and arrays as Python has them. Whoever calls these has the interpreter.

// Bytes of modules need not be UTF-8.
pybind11::str ToPython(const std::string& text);

const pybind11::dtype& TypeOf(Kind kind);

// A read-only view of values that `base` keeps alive.
pybind11::object ViewOf(const pybind11::dtype& type, int dimensions, const pybind11::ssize_t* shape,
                        const void* data, const pybind11::object& base);
pybind11::object ArrayOf(const Samples& samples, int dimensions, const pybind11::ssize_t* shape,
                         const pybind11::object& base);

// Of each block: first value, count, start in seconds, rate, state.
pybind11::object MarksOf(const Samples& samples);
pybind11::dict InfoToPython(const Info& info);

// Those of the parts to which something came.
pybind11::list PartsOf(const Track& track);

// Classes and functions of the module.
void BindRecordings(pybind11::module_& core);

}  // namespace python
