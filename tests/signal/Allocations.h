#pragma once

// Counts what the whole test program takes from the heap, and makes it fail on demand.
namespace allocations {

int Count();
// The next but `after` allocation fails, and all behind it; negative: none.
void FailAfter(int after);

}  // namespace allocations
