#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// What most tests are written with: the framework, its matchers by their own names, and those parts
// of the standard library and of the system's, which a test that includes this header does not name
// again.

using testing::AllOf;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

/// All that a file holds; empty if it can't be opened.
inline std::string FileText(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return std::move(text).str();
}

/// The parts of a text up to each mark; the last one may lack it.
[[nodiscard]] inline std::vector<std::string> CutAt(char mark, const std::string& text) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, mark);) {
    parts.push_back(part);
  }
  return parts;
}

[[nodiscard]] inline std::string Repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) {
    all += text;
  }
  return all;
}

/// Asks every few milliseconds until the condition holds; whether it does in the end.
template <class Condition>
[[nodiscard]] bool WaitUntil(const Condition& condition,
                             std::chrono::seconds longest = std::chrono::seconds(30)) {
  const auto end = std::chrono::steady_clock::now() + longest;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return condition();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}
