#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string_view>
#include <vector>

#include "collect/filesystem/StorageSource.h"
#include "support/ProductOptions.h"
#include "tests/scripted/ProcessTree.h"

/// Any bytes as a file of scan results, with another one beside it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const process_tree::HostTree host;
  static const bool isChosen = [] {
    ProductOptions::Instance().Set("Storage", "Directory", host.Path("/results").c_str());
    host.Write("/results/:other", "0\troot\t8\n");
    return true;
  }();
  host.Write("/results/:a", {reinterpret_cast<const char*>(data), size});
  std::vector<Storage> rows;
  StorageSourceUser source;
  const UtlErrorPtr error(source.readAll(nullptr, rows));
  return isChosen && error == nullptr && !rows.empty() ? 0 : -1;
}
