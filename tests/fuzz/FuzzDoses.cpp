// fuzz_doses_WING FOLDER [SECONDS [TARGET]...]
//
// A small dose of the fuzz targets of one wing, without a fuzzer and by the compiler of the tests:
// each target takes the inputs of its folder below FOLDER, the project's tests/fuzz, and then
// changes of them for so many seconds (0.3). The changes are the same in each run. What a target
// ends the program by has its input in the working folder, as "TARGET.dose".

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <vector>

// Each target of the wing, as DOSE(name).
#define DOSE(name) extern "C" int FuzzDose_##name(const std::uint8_t* data, std::size_t size);
#include <fuzz_doses.inc>
#undef DOSE

namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kMostBytes = 65536;
constexpr std::size_t kMostChanges = 8;

struct DoseTarget {
  std::string_view name;
  int (*take)(const std::uint8_t* data, std::size_t size);
};

constexpr DoseTarget kDoseTargets[] = {
#define DOSE(name) {#name, FuzzDose_##name},
#include <fuzz_doses.inc>
#undef DOSE
};

std::vector<Bytes> ReadInputs(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> paths;
  if (std::filesystem::is_directory(folder)) {
    std::ranges::copy(std::filesystem::directory_iterator(folder), std::back_inserter(paths));
  }
  std::ranges::sort(paths);
  std::vector<Bytes> inputs;
  for (const auto& path : paths) {
    std::ifstream file(path, std::ios::binary);
    inputs.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return inputs;
}

/// Makes changes of inputs as a fuzzer does: bits, numbers, pieces that go, come twice or come from
/// another one.
class Changer {
 public:
  [[nodiscard]] Bytes Change(const std::vector<Bytes>& inputs) {
    Bytes bytes = inputs.empty() ? Bytes{} : inputs[Below(inputs.size())];
    for (std::size_t count = 1 + Below(kMostChanges); count > 0; --count) {
      ChangeOnce(bytes, inputs);
    }
    bytes.resize(std::min(bytes.size(), kMostBytes));
    return bytes;
  }

 private:
  std::size_t Below(std::size_t bound) { return m_random() % bound; }
  void ChangeOnce(Bytes& bytes, const std::vector<Bytes>& inputs);
  /// A piece of the bytes: where it begins, and its length.
  std::pair<std::ptrdiff_t, std::ptrdiff_t> Piece(const Bytes& bytes) {
    const std::size_t begin = Below(bytes.size());
    return {
        static_cast<std::ptrdiff_t>(begin),
        static_cast<std::ptrdiff_t>(1 + Below(std::min<std::size_t>(bytes.size() - begin, 64)))};
  }

  std::mt19937_64 m_random{20'240'101};
};

void Changer::ChangeOnce(Bytes& bytes, const std::vector<Bytes>& inputs) {
  static constexpr std::string_view kOddPieces[] = {"-1",
                                                    "0",
                                                    "4294967296",
                                                    "18446744073709551616",
                                                    "\n",
                                                    {"\0", 1},
                                                    "\xff\xff\xff\xff",
                                                    "\x7f\xff\xff\xff",
                                                    "1e999",
                                                    " ",
                                                    "..",
                                                    "/",
                                                    "\"",
                                                    "{",
                                                    "]",
                                                    "%n"};
  static_assert(std::ranges::none_of(kOddPieces, &std::string_view::empty));
  if (bytes.empty()) {
    bytes.push_back(static_cast<std::uint8_t>(m_random()));
    return;
  }
  const auto [begin, length] = Piece(bytes);
  const auto piece = bytes.begin() + begin;
  switch (Below(6)) {
    case 0:
      bytes[static_cast<std::size_t>(begin)] ^= static_cast<std::uint8_t>(1U << Below(8));
      break;
    case 1:
      bytes[static_cast<std::size_t>(begin)] = static_cast<std::uint8_t>(m_random());
      break;
    case 2:
      bytes.erase(piece, piece + length);
      break;
    case 3: {
      const Bytes copy(piece, piece + length);
      bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(Below(bytes.size())), copy.begin(),
                   copy.end());
      break;
    }
    case 4: {
      const std::string_view odd = kOddPieces[Below(std::size(kOddPieces))];
      bytes.insert(piece, odd.begin(), odd.end());
      break;
    }
    default: {
      const Bytes& other = inputs.empty() ? bytes : inputs[Below(inputs.size())];
      if (!other.empty()) {
        const auto [from, count] = Piece(other);
        const Bytes copy(other.begin() + from, other.begin() + from + count);
        bytes.insert(piece, copy.begin(), copy.end());
      }
    }
  }
}

/// The input is there when the target ends the program by it.
void TakeInput(const DoseTarget& target, const Bytes& bytes) {
  static const std::uint8_t kNothing = 0;
  const std::string path = std::string(target.name) + ".dose";
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  target.take(bytes.empty() ? &kNothing : bytes.data(), bytes.size());
}

void TakeDose(const DoseTarget& target, const std::filesystem::path& folder, double seconds) {
  const std::string name(target.name);
  std::vector<Bytes> inputs = ReadInputs(folder / "corpus" / name);
  std::ranges::move(ReadInputs(folder / "reproducers" / name), std::back_inserter(inputs));
  for (const Bytes& input : inputs) {
    TakeInput(target, input);
  }
  Changer changer;
  std::size_t changes = 0;
  const auto end = Clock::now() + std::chrono::duration<double>(seconds);
  while (Clock::now() < end) {
    TakeInput(target, changer.Change(inputs));
    ++changes;
  }
  std::error_code ignored;
  std::filesystem::remove(name + ".dose", ignored);
  std::printf("%-20s %6zu inputs %8zu changes\n", name.c_str(), inputs.size(), changes);
}

/// The same in a process of its own, as a target leaves switches behind; whether it ended well.
bool HasTakenDose(const DoseTarget& target, const std::filesystem::path& folder, double seconds) {
  const pid_t child = ::fork();
  if (child == 0) {
    TakeDose(target, folder, seconds);
    std::exit(0);
  }
  int status = 0;
  const bool isWell = child > 0 && ::waitpid(child, &status, 0) == child && status == 0;
  if (!isWell) {
    std::printf("%.*s: ended by the input in %.*s.dose, with status %d\n",
                static_cast<int>(target.name.size()), target.name.data(),
                static_cast<int>(target.name.size()), target.name.data(), status);
    std::fflush(stdout);
  }
  return isWell;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.empty()) {
    std::fputs("usage: fuzz_doses FOLDER [SECONDS [TARGET]...]\n", stderr);
    return 2;
  }
  const double seconds = words.size() > 1 ? std::strtod(words[1].c_str(), nullptr) : 0.3;
  bool isWell = true;
  for (const DoseTarget& target : kDoseTargets) {
    if (words.size() < 3 || std::ranges::count(words.begin() + 2, words.end(), target.name) > 0) {
      isWell = HasTakenDose(target, words[0], seconds) && isWell;
    }
  }
  return isWell ? 0 : 1;
}
