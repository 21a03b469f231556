#pragma once

// Marks what the shared library exports; everything else is hidden.
#define TC_API __attribute__((visibility("default")))

// Marks a private member of an exported class: nobody outside can call it, so the library may change it at
// will.
#define TC_LOCAL __attribute__((visibility("hidden")))

// Before a printf-style function: which argument is the format text, and which the first one for it, counted
// from 1; the object of a member function counts.
#define TC_PRINTF(text, first) __attribute__((format(printf, text, first)))
