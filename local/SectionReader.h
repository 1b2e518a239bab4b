#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "local/ini/LocalIniFile.h"
#include "node/IniListing.h"

/// Whether an address may have a query.
enum class UrlQuery { kTaken, kRefused };

/// Takes the settings of one section by their keys and notes what is wrong with them: values that a
/// setting doesn't take, and at the end the keys that nobody has asked for.
class SectionReader {
 public:
  /// Bytes of a value; a longer one is a fault.
  static constexpr std::size_t kMostBytes = 4096;
  /// Addresses of one setting.
  static constexpr std::size_t kMostUrls = 16;

  /// `settings` are those of the section `name`, in file order.
  SectionReader(std::string name, std::vector<IniSetting> settings);

  /// The setting; null if there is none or its value is empty or a fault. It lies in the reader.
  [[nodiscard]] const IniSetting* Find(std::string_view key);
  /// The value; empty for none.
  [[nodiscard]] std::string Text(std::string_view key);
  /// A whole number from `least` to `most`, or else `otherwise`.
  [[nodiscard]] long Whole(std::string_view key, long least, long most, long otherwise);
  /// See IsHttpUrl; empty for none.
  [[nodiscard]] std::string Url(std::string_view key);
  /// Those of the words that are addresses, in their order, each once.
  [[nodiscard]] std::vector<std::string> Urls(std::string_view key,
                                              UrlQuery query = UrlQuery::kTaken);
  /// Whether Find has noted a fault of the key's value.
  [[nodiscard]] bool IsBad(std::string_view key);
  /// Notes a fault where the first key has a value and the second has none, be it a fault.
  void Need(std::string_view key, std::string_view other);
  /// Notes a fault where both keys have a value.
  void Exclude(std::string_view key, std::string_view other);
  /// Notes that the setting must be `wanted` and is not.
  void NoteWrong(const IniSetting& setting, const std::string& wanted);
  void Note(std::size_t line, const std::string& text);
  /// What is wrong, in the order of the lines; the reader is used up.
  [[nodiscard]] std::vector<IniProblem> Finish();

 private:
  struct Entry {
    IniSetting setting;
    bool isAsked = false;
    bool isBad = false;
  };
  void NoteNoUrl(const IniSetting& setting, UrlQuery query);
  [[nodiscard]] Entry* FindEntry(std::string_view key);

  std::string m_name;
  std::vector<Entry> m_entries;
  std::vector<IniProblem> m_problems;
};

/// Whether the text is a whole address "http://HOST..." or "https://HOST...", with a port or
/// without, of printable ASCII, without a user and without a fragment.
[[nodiscard]] bool IsHttpUrl(std::string_view text);
