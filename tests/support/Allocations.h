#pragma once

// Counts what the whole test program takes from the heap, and makes it fail on demand.
namespace allocations {

// False under valgrind, which brings allocation of its own: nothing is counted then, and nothing fails.
bool AreSeen();

int Count();
// How many of them were not given back.
int Live();
// After `after` further allocations all fail; negative: none does.
void FailAfter(int after);

}  // namespace allocations
