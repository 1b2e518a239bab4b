#pragma once

#include <new>

/// Does `step`. Where it lacks memory `instead` is done, so that what hangs on the step goes on
/// without it, before std::bad_alloc goes on to the loop, which tells of it.
template <class Step, class Instead>
void OrIfNoMemory(const Step& step, const Instead& instead) {
  try {
    step();
  } catch (const std::bad_alloc&) {
    instead();
    throw;
  }
}
