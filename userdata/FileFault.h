#pragma once

#include <string>

/// What is wrong with one line of a file that an administrator writes.
struct FileFault {
  int line;          ///< counted from 1; 0 for the file as a whole
  std::string text;  ///< the reason, in plain words
};
