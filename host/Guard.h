#pragma once

#include <exception>
#include <string>
#include <utility>

namespace host {

// Runs code of a module, which must not take the program down: answers what it threw, empty when nothing.
template <class Work>
std::string WhatItThrows(Work&& work) {
    try {
        std::forward<Work>(work)();
        return {};
    } catch (const std::exception& failure) {
        return std::string("it threw an exception: ") + failure.what();
    } catch (...) {
        return "it threw something that is no exception";
    }
}

// A text of a module, which may be null.
inline std::string Text(const char* text) {
    return text != nullptr ? text : "";
}

}  // namespace host
