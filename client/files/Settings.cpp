#include "client/files/Settings.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "json/RowText.h"
#include "support/TextFile.h"
#include "support/TrimmedText.h"

namespace {

constexpr std::size_t kMostBytes = std::size_t{1} << 20;
constexpr std::uint64_t kDefaultMegabytes = 512;
constexpr std::uint64_t kMostMegabytes = std::uint64_t{1} << 32;
constexpr const char* kDefaultListen = "127.0.0.1:9964";

std::vector<std::string> WordsOf(std::string_view text) {
  constexpr std::string_view kBetween = " \t,";
  std::vector<std::string> words;
  while (true) {
    text.remove_prefix(std::min(text.find_first_not_of(kBetween), text.size()));
    if (text.empty()) {
      return words;
    }
    const std::size_t end = std::min(text.find_first_of(kBetween), text.size());
    words.emplace_back(text.substr(0, end));
    text.remove_prefix(end);
  }
}

}  // namespace

Settings::Settings(const std::string& path) {
  const TextFilePtr file = OpenTextFile(path);
  if (!file) {
    return;
  }
  m_isRead = true;
  std::string text(kMostBytes, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), file.get()));
  std::string section;
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    const std::string_view line = Trimmed(rest.substr(0, end), kWhiteSpace);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (line.starts_with('[') && line.ends_with(']')) {
      section = LowerCase(line.substr(1, line.size() - 2));
    } else if (const std::size_t equals = line.find('='); equals != line.npos) {
      const std::string key =
          section + '/' + LowerCase(Trimmed(line.substr(0, equals), kWhiteSpace));
      m_values.emplace(key, Trimmed(line.substr(equals + 1), kWhiteSpace));
    }
  }
}

const std::string* Settings::Find(const std::string& key) const {
  const auto found = m_values.find(key);
  return found == m_values.end() ? nullptr : &found->second;
}

std::string Settings::Value(const std::string& key, const std::string& other) const {
  const std::string* value = Find(key);
  return value == nullptr || value->empty() ? other : *value;
}

std::optional<std::uint64_t> Settings::HistoryBytes() const {
  if (!m_isRead) {
    return std::nullopt;
  }
  const std::string text = Value("node/history megabytes", std::to_string(kDefaultMegabytes));
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  // The daemon takes its default for what is no number of these.
  const bool isNumber =
      error == std::errc{} && end == text.data() + text.size() && number <= kMostMegabytes;
  return (isNumber ? number : kDefaultMegabytes) << 20;
}

std::string Settings::WorkgroupFile() const { return Value("agent/workgroup file", "wgfile"); }

std::string Settings::EventFile() const { return Value("log records/mess/eventfile", ""); }

std::string Settings::HistoryFile() const {
  const std::string* file = Find("node/history file");
  return file == nullptr ? "records.db" : *file;
}

std::string Settings::GuardMode() const { return Value("agent/guard mode", ""); }

std::vector<std::string> Settings::Listen() const {
  const std::string mode = LowerCase(Value("http/gate", "child"));
  if (mode != "child" && mode != "unit") {
    return {};
  }
  for (const char* key : {"http/listen", "node/http listen"}) {
    if (const std::string* listen = Find(key)) {
      return WordsOf(*listen);
    }
  }
  return WordsOf(kDefaultListen);
}
