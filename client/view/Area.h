#pragma once

#include <cstddef>

/// A stretch of lines of a canvas.
struct Area {
  std::size_t line = 0;
  std::size_t height = 0;
};
