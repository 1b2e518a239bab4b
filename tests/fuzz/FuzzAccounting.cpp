// The accounting file, which is read while it grows, is cut and is replaced.
#include <string>
#include <string_view>
#include <vector>

#include "collect/accounting/AcctSourceLINUX.h"
#include "support/HostPaths.h"
#include "support/OsCalls.h"
#include "support/ProductOptions.h"
#include "tests/fuzz/FuzzHelp.h"

namespace {

constexpr const char* kAccountFile = "/pacct";
constexpr std::size_t kRecordBytes = 64;

/// Reads all rows that are there; how many.
std::size_t ReadRows() {
  AcctSourceUser source;
  std::vector<Acct> rows;
  const UtlErrorPtr error(source.readAll(nullptr, rows));
  for (const Acct& row : rows) {
    Require(row.comm.back() == '\0' && row.GetComm().size() <= 8);
    static_cast<void>(row.GetEndTime());
  }
  return rows.size();
}

}  // namespace

/// The input is the file's content at one look after another: each is as many records as a byte in
/// front tells, of which the last one may be cut.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const FuzzFolder folder;
  SetHostRoot(folder.Path());
  Os().acct = [](const char*) { return 0; };
  AcctSourceUser::ResetState();
  Input input(data, size);
  ProductOptions::Instance().Set("Acct", "FileName", kAccountFile);
  ProductOptions::Instance().Set("Acct", "Truncate", input.Byte() % 2 == 0 ? "Y" : "N");
  ProductOptions::Instance().Set("Acct", "Size", "256");
  while (!input.IsEmpty()) {
    const std::size_t head = input.Byte();
    const std::string_view bytes = input.Bytes(head % 8 * kRecordBytes + head / 64 * 8);
    folder.Write("pacct", bytes);
    Require(ReadRows() <= bytes.size() / kRecordBytes);
  }
  return 0;
}
