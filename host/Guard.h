#pragma once

#include <exception>
#include <string>
#include <utility>

#include "sigweave/services/Bilingual.h"

namespace host {

// Runs code of a module, which must not take the program down: answers what it threw, empty when nothing.
template <class Work>
std::string WhatItThrows(Work&& work) {
    try {
        std::forward<Work>(work)();
        return {};
    } catch (const std::exception& failure) {
        return tc::Bilingual("it threw an exception: %1", "es hat eine Ausnahme geworfen: %1")
            .With({failure.what()});
    } catch (...) {
        return tc::Bilingual("it threw something that is not an exception",
                             "es hat etwas geworfen, das keine Ausnahme ist")
            .Text();
    }
}

// A text of a module, which may be null.
inline std::string Text(const char* text) {
    return text != nullptr ? text : "";
}

}  // namespace host
