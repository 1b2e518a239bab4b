#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// One key of an ini file as its reader sees it.
struct IniSetting {
  std::size_t line = 0;  ///< counted from 1
  std::string section;
  std::string subSection;  ///< empty for none
  std::string key;
  std::string value;
};

/// What is wrong in an ini file.
struct IniProblem {
  std::size_t line = 0;  ///< counted from 1; 0 for what concerns no single line
  std::string text;
};

/// A whole ini file, read to be checked.
struct IniListing {
  std::string error;                 ///< path and reason of a file that can't be used at all
  std::vector<IniSetting> settings;  ///< in file order; those that the node itself reads left out
  std::vector<IniProblem> problems;  ///< of the text and of the settings that the node reads
};
