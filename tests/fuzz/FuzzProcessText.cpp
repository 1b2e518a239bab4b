#include <cstddef>
#include <cstdint>
#include <string>

#include "collect/ProcessSourceLINUX.h"

/// Any bytes as each of the files of one process.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const ProcessSourceUser source;
  std::string text(reinterpret_cast<const char*>(data), size);
  x_proc record;
  static_cast<void>(source.Get_Stat_Info(text.c_str(), &record));
  static_cast<void>(source.Get_Statm_Info(text.c_str(), &record));
  static_cast<void>(source.Get_Status_Info(text.c_str(), &record));
  ProcessSourceUser::Get_CmdLine_Info(text.data(), static_cast<int>(text.size()));
  return 0;
}
