#include "local/SectionReader.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "local/ini/IniSection.h"

namespace {

bool IsPrintableAscii(char letter) { return letter > ' ' && letter < '\x7f'; }

bool HasControl(std::string_view text) {
  return std::ranges::any_of(text,
                             [](unsigned char letter) { return letter < ' ' || letter == 0x7f; });
}

std::optional<long> ReadWhole(std::string_view text) {
  long value = 0;
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
  return status == std::errc{} && end == text.data() + text.size() ? std::optional(value)
                                                                   : std::nullopt;
}

/// What stands behind the host: nothing, or ":" and a port.
bool IsPortPart(std::string_view text) {
  constexpr long kMostPort = 65535;
  if (text.empty()) {
    return true;
  }
  const std::optional<long> port = ReadWhole(text.substr(1));
  return text.front() == ':' && text.size() > 1 && text[1] != '-' && port && *port >= 1 &&
         *port <= kMostPort;
}

bool IsHostAndPort(std::string_view text) {
  if (text.starts_with('[')) {
    const std::size_t end = text.find(']');
    const std::string_view host = text.substr(1, end == std::string_view::npos ? 0 : end - 1);
    return end != std::string_view::npos && host.find(':') != std::string_view::npos &&
           host.find_first_not_of("0123456789abcdefABCDEF:.") == std::string_view::npos &&
           IsPortPart(text.substr(end + 1));
  }
  const std::size_t end = std::min(text.find(':'), text.size());
  const std::string_view host = text.substr(0, end);
  return !host.empty() && host.find_first_of("[]\\@\"<>%") == std::string_view::npos &&
         IsPortPart(text.substr(end));
}

}  // namespace

bool IsHttpUrl(std::string_view text) {
  const std::size_t mark = text.find("://");
  if (mark == std::string_view::npos || !std::ranges::all_of(text, IsPrintableAscii) ||
      text.find('#') != std::string_view::npos) {
    return false;
  }
  const std::string_view scheme = text.substr(0, mark);
  const std::string_view rest = text.substr(mark + 3);
  return (IsSameName(scheme, "http") || IsSameName(scheme, "https")) &&
         IsHostAndPort(rest.substr(0, rest.find_first_of("/?")));
}

SectionReader::SectionReader(std::string name, std::vector<IniSetting> settings)
    : m_name(std::move(name)) {
  for (IniSetting& setting : settings) {
    m_entries.push_back({std::move(setting)});
  }
}

SectionReader::Entry* SectionReader::FindEntry(std::string_view key) {
  const auto found = std::ranges::find_if(
      m_entries, [&](const Entry& entry) { return IsSameName(entry.setting.key, key); });
  return found == m_entries.end() ? nullptr : &*found;
}

const IniSetting* SectionReader::Find(std::string_view key) {
  Entry* const entry = FindEntry(key);
  if (entry == nullptr) {
    return nullptr;
  }
  const std::string& value = entry->setting.value;
  if (!std::exchange(entry->isAsked, true) && (value.size() > kMostBytes || HasControl(value))) {
    entry->isBad = true;
    Note(entry->setting.line, "\"" + entry->setting.key +
                                  "\" holds control characters, or more than " +
                                  std::to_string(kMostBytes) + " bytes");
  }
  return entry->isBad || value.empty() ? nullptr : &entry->setting;
}

std::string SectionReader::Text(std::string_view key) {
  const IniSetting* const setting = Find(key);
  return setting == nullptr ? "" : setting->value;
}

long SectionReader::Whole(std::string_view key, long least, long most, long otherwise) {
  const IniSetting* const setting = Find(key);
  if (setting == nullptr) {
    return otherwise;
  }
  const std::optional<long> value = ReadWhole(setting->value);
  if (!value || *value < least || *value > most) {
    NoteWrong(*setting, std::to_string(least) + " to " + std::to_string(most));
    return otherwise;
  }
  return *value;
}

std::string SectionReader::Url(std::string_view key) {
  const IniSetting* const setting = Find(key);
  if (setting == nullptr || IsHttpUrl(setting->value)) {
    return setting == nullptr ? "" : setting->value;
  }
  NoteNoUrl(*setting, UrlQuery::kTaken);
  return "";
}

void SectionReader::NoteNoUrl(const IniSetting& setting, UrlQuery query) {
  // The value is not shown: it may hold a password.
  Note(setting.line, "\"" + setting.key + "\" must be http://HOST... or https://HOST..., " +
                         (query == UrlQuery::kTaken ? "without a user and a #"
                                                    : "without a user, a query and a #"));
}

std::vector<std::string> SectionReader::Urls(std::string_view key, UrlQuery query) {
  const IniSetting* const setting = Find(key);
  std::vector<std::string> urls;
  for (std::string& word :
       setting == nullptr ? std::vector<std::string>{} : SettingWords(setting->value)) {
    if (!IsHttpUrl(word) || (query == UrlQuery::kRefused && word.find('?') != std::string::npos)) {
      NoteNoUrl(*setting, query);
    } else if (urls.size() == kMostUrls) {
      Note(setting->line, "\"" + setting->key + "\" holds more than " + std::to_string(kMostUrls) +
                              " addresses: the others are left out");
      break;
    } else if (std::ranges::find(urls, word) == urls.end()) {
      urls.push_back(std::move(word));
    }
  }
  return urls;
}

bool SectionReader::IsBad(std::string_view key) {
  const Entry* const entry = FindEntry(key);
  return entry != nullptr && entry->isBad;
}

void SectionReader::Need(std::string_view key, std::string_view other) {
  const IniSetting* const setting = Find(key);
  if (setting != nullptr && Find(other) == nullptr && !IsBad(other)) {
    Note(setting->line, "\"" + setting->key + "\" needs \"" + std::string(other) + "\" beside it");
  }
}

void SectionReader::Exclude(std::string_view key, std::string_view other) {
  const IniSetting* const setting = Find(key);
  if (setting != nullptr && Find(other) != nullptr) {
    Note(setting->line,
         "\"" + setting->key + "\" and \"" + std::string(other) + "\" exclude each other");
  }
}

void SectionReader::NoteWrong(const IniSetting& setting, const std::string& wanted) {
  Note(setting.line,
       "\"" + setting.key + "\" must be " + wanted + ", not \"" + setting.value + "\"");
}

void SectionReader::Note(std::size_t line, const std::string& text) {
  m_problems.push_back({line, "[" + m_name + "]: " + text});
}

std::vector<IniProblem> SectionReader::Finish() {
  for (const Entry& entry : m_entries) {
    // A second line with a key is told of by who looks at the whole file.
    const Entry* const first = FindEntry(entry.setting.key);
    if (!first->isAsked) {
      Note(entry.setting.line, "no setting \"" + entry.setting.key + "\"");
    }
  }
  std::ranges::stable_sort(m_problems, {}, &IniProblem::line);
  return std::move(m_problems);
}
