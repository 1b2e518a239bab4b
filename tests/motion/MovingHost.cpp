#include "tests/motion/MovingHost.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/HostPaths.h"

namespace {

struct Model {
  std::filesystem::path file;
  std::string text;
};

std::vector<Model> ReadModels() {
  std::vector<Model> models;
  const char* folder = ::getenv("QMT_MOTION_MODELS");
  if (folder == nullptr) {
    return models;
  }
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) {
      std::ostringstream text;
      text << std::ifstream(entry.path()).rdbuf();
      const auto place = entry.path().lexically_relative(folder);
      models.push_back({HostPath("/" + place.string()), std::move(text).str()});
    }
  }
  return models;
}

/// The counter that stands in a pair of braces.
std::string Counter(const std::string& text, std::int64_t passed) {
  unsigned long long base = 0;
  unsigned long long rate = 0;
  unsigned bits = 0;
  if (std::sscanf(text.c_str(), "%llu %llu %u", &base, &rate, &bits) != 3 || bits == 0 ||
      bits > 64) {
    std::fprintf(stderr, "motion: no counter: {%s}\n", text.c_str());
    std::abort();
  }
  const unsigned long long value = base + rate * static_cast<unsigned long long>(passed);
  return std::to_string(bits == 64 ? value : value & ((1ULL << bits) - 1));
}

std::string Filled(const std::string& model, std::int64_t passed) {
  std::string text;
  std::size_t done = 0;
  for (;;) {
    const std::size_t begin = model.find('{', done);
    const std::size_t end = model.find('}', begin);
    if (begin == std::string::npos || end == std::string::npos) {
      return text + model.substr(done);
    }
    text += model.substr(done, begin - done);
    text += Counter(model.substr(begin + 1, end - begin - 1), passed);
    done = end + 1;
  }
}

}  // namespace

void motion::MoveHost(std::int64_t second) {
  static const std::vector<Model> models = ReadModels();
  static const std::int64_t start = second;
  static std::int64_t last = -1;
  if (std::exchange(last, second) == second) {
    return;
  }
  for (const Model& model : models) {
    std::ofstream(model.file, std::ios::binary) << Filled(model.text, second - start);
  }
}
