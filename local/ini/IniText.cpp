#include "local/ini/IniText.h"

#include <algorithm>

#include "support/TrimmedText.h"

namespace {

constexpr std::string_view kBlanks = " \t\r\v\f";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool IsComment(char c) { return c == '#' || c == ';'; }

char ToLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

/// Whether the text would end its line, or the text as a whole where it is read as a C string.
bool BreaksLine(std::string_view text) {
  return text.find_first_of(std::string_view{"\n\r\0", 3}) != std::string_view::npos;
}

}  // namespace

bool IsSameName(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return ToLower(x) == ToLower(y); });
}

IniText::IniText(std::string text) : m_text(std::move(text)) { Parse(); }

void IniText::Parse() {
  std::size_t heading = kNoHeading;
  std::size_t number = 0;
  std::size_t begin = m_text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
  while (begin < m_text.size()) {
    const std::size_t newline = m_text.find('\n', begin);
    const std::size_t end = newline == std::string::npos ? m_text.size() : newline;
    const std::size_t next = newline == std::string::npos ? end : end + 1;
    ParseLine({begin, end}, next, ++number, heading);
    begin = next;
  }
  CloseFaults();
}

void IniText::ParseLine(Span line, std::size_t next, std::size_t number, std::size_t& heading) {
  const Span content = Trim(line);
  const std::string_view text = View(content);
  if (text.empty() || IsComment(text.front())) {
    return;
  }
  if (text.find('\0') != std::string_view::npos) {
    AddFault(line, number, "a zero byte in the line");
  } else if (text.front() == '[') {
    ParseHeading(content, next, number, heading);
  } else {
    ParseEntry(content, next, number, heading);
  }
}

void IniText::ParseHeading(Span line, std::size_t next, std::size_t number, std::size_t& heading) {
  heading = kNoHeading;
  const std::string_view text = View(line);
  const std::size_t close = text.find(']');
  if (close == std::string_view::npos) {
    AddFault(line, number, "no ']' after the section");
    return;
  }
  const std::string_view rest = Trimmed(text.substr(close + 1), kBlanks);
  if (!rest.empty() && !IsComment(rest.front())) {
    AddFault(line, number, "text after the section");
    return;
  }
  Heading found;
  found.insertAt = next;
  const Span name{line.begin + 1, line.begin + close};
  const std::size_t slash = View(name).find('/');
  if (slash == std::string_view::npos) {
    found.section = Trim(name);
  } else {
    found.section = Trim({name.begin, name.begin + slash});
    found.subSection = Trim({name.begin + slash + 1, name.end});
  }
  if (View(found.section).empty() ||
      (slash != std::string_view::npos && View(found.subSection).empty())) {
    AddFault(line, number, "an empty section name");
    return;
  }
  heading = m_headings.size();
  m_headings.push_back(found);
}

void IniText::ParseEntry(Span line, std::size_t next, std::size_t number, std::size_t heading) {
  const std::size_t equals = View(line).find('=');
  if (equals == std::string_view::npos) {
    AddFault(line, number, "neither section, comment nor key = value");
    return;
  }
  Entry entry;
  entry.heading = heading;
  entry.key = Trim({line.begin, line.begin + equals});
  entry.value = Trim({line.begin + equals + 1, line.end});
  if (View(entry.key).empty()) {
    AddFault(line, number, "no key before the '='");
  } else if (heading == kNoHeading) {
    AddFault(line, number, "a key that belongs to no section");
  } else {
    m_entries.push_back(entry);
    m_headings[heading].insertAt = next;
  }
}

void IniText::AddFault(Span line, std::size_t number, const char* problem) {
  ++m_faultCount;
  if (m_faults.size() < kMaxFaults) {
    m_faults.push_back({number, problem, std::string(View(Trim(line)).substr(0, kMaxFaultText))});
  }
}

void IniText::CloseFaults() {
  if (m_faultCount > m_faults.size()) {
    m_faults.push_back(
        {0, std::to_string(m_faultCount - m_faults.size()) + " more lines can't be used", ""});
  }
}

std::string_view IniText::View(Span span) const {
  return std::string_view{m_text}.substr(span.begin, span.end - span.begin);
}

IniText::Span IniText::Trim(Span span) const {
  const std::string_view text = View(span);
  const std::string_view trimmed = Trimmed(text, kBlanks);
  if (trimmed.empty()) {
    return {span.begin, span.begin};
  }
  const std::size_t begin = span.begin + static_cast<std::size_t>(trimmed.data() - text.data());
  return {begin, begin + trimmed.size()};
}

bool IniText::IsHeading(const Heading& heading, std::string_view section,
                        std::string_view subSection) const {
  return IsSameName(View(heading.section), section) &&
         IsSameName(View(heading.subSection), subSection);
}

const IniText::Entry* IniText::FindEntry(std::string_view section, std::string_view subSection,
                                         std::string_view key) const {
  const auto found = std::find_if(m_entries.begin(), m_entries.end(), [&](const Entry& entry) {
    return IsSameName(View(entry.key), key) &&
           IsHeading(m_headings[entry.heading], section, subSection);
  });
  return found == m_entries.end() ? nullptr : &*found;
}

std::optional<std::string> IniText::Find(std::string_view section, std::string_view subSection,
                                         std::string_view key) const {
  const Entry* entry = FindEntry(section, subSection, key);
  if (entry == nullptr) {
    return std::nullopt;
  }
  return std::string(View(entry->value));
}

std::vector<std::pair<std::string, std::string>> IniText::Section(
    std::string_view section, std::string_view subSection) const {
  std::vector<std::pair<std::string, std::string>> pairs;
  for (const Entry& entry : m_entries) {
    if (IsHeading(m_headings[entry.heading], section, subSection)) {
      pairs.emplace_back(View(entry.key), View(entry.value));
    }
  }
  return pairs;
}

std::vector<IniSetting> IniText::Settings() const {
  std::vector<IniSetting> settings;
  std::size_t number = 1;
  std::size_t counted = 0;
  for (const Entry& entry : m_entries) {
    const std::string_view passed = View({counted, entry.key.begin});
    number += static_cast<std::size_t>(std::count(passed.begin(), passed.end(), '\n'));
    counted = entry.key.begin;
    const Heading& heading = m_headings[entry.heading];
    settings.push_back({number, std::string(View(heading.section)),
                        std::string(View(heading.subSection)), std::string(View(entry.key)),
                        std::string(View(entry.value))});
  }
  return settings;
}

bool IniText::Set(std::string_view section, std::string_view subSection, std::string_view key,
                  std::string_view value, std::string& error) {
  if (BreaksLine(value)) {
    error = "the value holds a line end or a zero byte";
    return false;
  }
  if (Trimmed(value, kBlanks) != value) {
    error = "the value begins or ends with a blank";
    return false;
  }
  if (BreaksLine(section) || BreaksLine(subSection) || BreaksLine(key)) {
    error = "a name holds a line end or a zero byte";
    return false;
  }
  IniText edited(Edited(section, subSection, key, value));
  if (edited.Find(section, subSection, key) != value) {
    error = "the section or key is no possible name";
    return false;
  }
  *this = std::move(edited);
  return true;
}

void IniText::Respell(std::string_view section, std::string_view subSection, std::string_view key) {
  if (const Entry* entry = FindEntry(section, subSection, key)) {
    m_text.replace(entry->key.begin, key.size(), key);
  }
}

bool IniText::Remove(std::string_view section, std::string_view subSection, std::string_view key) {
  bool isRemoved = false;
  while (const Entry* entry = FindEntry(section, subSection, key)) {
    const std::size_t before = m_text.rfind('\n', entry->key.begin);
    const std::size_t begin = before == std::string::npos ? 0 : before + 1;
    const std::size_t end = m_text.find('\n', entry->key.begin);
    std::string text = m_text;
    text.erase(begin, end == std::string::npos ? end : end + 1 - begin);
    *this = IniText(std::move(text));
    isRemoved = true;
  }
  return isRemoved;
}

bool IniText::HasSection(std::string_view section) const {
  return std::any_of(m_headings.begin(), m_headings.end(),
                     [&](const Heading& heading) { return IsHeading(heading, section, {}); });
}

std::string IniText::Edited(std::string_view section, std::string_view subSection,
                            std::string_view key, std::string_view value) const {
  std::string text = m_text;
  if (const Entry* entry = FindEntry(section, subSection, key)) {
    std::size_t begin = entry->value.begin;
    std::size_t end = entry->value.end;
    if (begin == end) {
      // A value that was empty goes behind the blank that stands there, in place of further ones.
      end = std::min(text.find_first_not_of(" \t\v\f", begin), text.size());
      begin += begin < end ? 1U : 0U;
    }
    return text.replace(begin, end - begin, value);
  }
  const std::string lineEnd = LineEnd();
  const std::string line = std::string(key) + " = " + std::string(value) + lineEnd;
  const auto heading = std::find_if(
      m_headings.begin(), m_headings.end(),
      [&](const Heading& candidate) { return IsHeading(candidate, section, subSection); });
  const bool isNew = heading == m_headings.end();
  std::string added;
  const std::size_t place = isNew ? text.size() : heading->insertAt;
  if (place > 0 && text[place - 1] != '\n') {
    added += lineEnd;
  }
  if (isNew) {
    added += (text.empty() ? std::string{} : lineEnd) + '[' + std::string(section);
    added += (subSection.empty() ? std::string{} : '/' + std::string(subSection)) + ']' + lineEnd;
  }
  return text.insert(place, added + line);
}

const char* IniText::LineEnd() const {
  const std::size_t newline = m_text.find('\n');
  const bool isDos = newline != std::string::npos && newline > 0 && m_text[newline - 1] == '\r';
  return isDos ? "\r\n" : "\n";
}
