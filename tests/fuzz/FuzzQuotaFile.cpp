#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "collect/filesystem/QuotaSource.h"
#include "support/OsCalls.h"
#include "tests/fuzz/FuzzHelp.h"
#include "tests/scripted/ProcessTree.h"

namespace {

/// A file of some blocks with numbers put in, each by a byte of its block, one of its place and
/// four of its own: bytes alone would not find the way down a tree of sparse blocks.
std::string TreeOf(Input& input) {
  constexpr std::size_t kBlocks = 8;
  std::string file(kBlocks * kQuotaBlock, '\0');
  while (!input.IsEmpty()) {
    const std::size_t block = input.Byte() % kBlocks;
    const std::size_t place = input.Byte() * std::size_t{4};
    input.Bytes(4).copy(file.data() + block * kQuotaBlock + place, 4);
  }
  return file;
}

}  // namespace

/// A quota file of either format, or of the second one by its numbers, which the first byte, a
/// digit in the seeds, chooses, and a user whose id is the next four.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const process_tree::HostTree host;
  static ::passwd user;
  static bool isAsked;
  Input input(data, size);
  const auto kind = static_cast<std::uint8_t>(input.Byte() - '0') % 3;
  const std::string_view id = input.Bytes(sizeof user.pw_uid);
  if (id.size() < sizeof user.pw_uid) {
    return 0;
  }
  Os().quotactl = [](int, const char*, int, char*) {
    errno = ESRCH;
    return -1;
  };
  Os().setpwent = [] { isAsked = false; };
  Os().getpwent = []() -> ::passwd* {
    const bool first = !isAsked;
    isAsked = true;
    return first ? &user : nullptr;
  };
  std::memcpy(&user.pw_uid, id.data(), sizeof user.pw_uid);
  host.Write("/etc/mtab", "/dev/a / ext3 usrquota 0 0\n");
  std::filesystem::remove(host.Path("/quota.user"));
  std::filesystem::remove(host.Path("/aquota.user"));
  host.Write(kind == 0 ? "/quota.user" : "/aquota.user",
             kind == 2 ? TreeOf(input) : std::string(input.Rest()));
  std::vector<Quota> rows;
  QuotaSourceUser source;
  const UtlErrorPtr error(source.readAll(nullptr, rows));
  Require(rows.size() <= 1 && (rows.empty() || rows[0].uid == user.pw_uid));
  return 0;
}
