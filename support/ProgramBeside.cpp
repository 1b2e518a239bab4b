#include "support/ProgramBeside.h"

#include <unistd.h>

#include <filesystem>
#include <system_error>

std::string FindProgramBeside(const std::string& name, const std::string& folder) {
  std::error_code error;
  const std::filesystem::path own =
      std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
  if (error) {
    return "";
  }
  for (const std::filesystem::path& path : {own / name, own.parent_path() / folder / name}) {
    if (::access(path.c_str(), X_OK) == 0) {
      return path.string();
    }
  }
  return "";
}
