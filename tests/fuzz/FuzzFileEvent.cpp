#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "collect/log/MessagesSource.h"
#include "support/ProductOptions.h"
#include "tests/fuzz/FuzzHelp.h"
#include "tests/scripted/ScriptedNode.h"

/// The first line, at most 40 bytes, as what follows the path in the option of a followed file; the
/// rest as what is appended to that file. Each line is one row.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int descriptor = ::memfd_create("log", MFD_CLOEXEC);
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::string tail(input.substr(0, std::min<std::size_t>(input.find('\n'), 40)));
  const std::string_view text = input.substr(tail.size());
  const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
  ProductOptions::Instance().Set("Messages", "EventFile1", (path + "*" + tail).c_str());
  ScriptedNode::Reset();
  MessagesSourceUser::ResetState();
  Require(::ftruncate(descriptor, 0) == 0);
  const auto begin = std::chrono::steady_clock::now();
  MessagesSourceUser source;
  Require(::pwrite(descriptor, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
  std::vector<Messages> rows;
  Require(source.readAll(nullptr, rows) == nullptr);
  // A process that was stopped meanwhile has spent its time.
  const bool isInTime = std::chrono::steady_clock::now() - begin < MessagesSourceUser::kMaxRunTime;
  Require(!isInTime ||
          static_cast<std::ptrdiff_t>(rows.size()) == std::count(text.begin(), text.end(), '\n'));
  for (const Messages& row : rows) {
    Require(row.text.back() == '\0');
    Require(std::string_view(row.GetText()).starts_with("qmtdmon ") == (row.id != 0));
  }
  return 0;
}
