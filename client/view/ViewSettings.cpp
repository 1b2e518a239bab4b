#include "client/view/ViewSettings.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "client/ask/SafeText.h"
#include "json/RowText.h"
#include "support/AtomicFile.h"
#include "support/TextFile.h"

namespace {

constexpr const char* kSection = "[Columns]";
constexpr std::size_t kMostBytes = 65536;

std::string Variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

std::string SettingsFolder() {
  if (const std::string own = Variable("XDG_CONFIG_HOME"); own.starts_with('/')) {
    return own;
  }
  const std::string home = Variable("HOME");
  return home.starts_with('/') ? home + "/.config" : "";
}

std::vector<std::string> SplitLabels(std::string_view text) {
  std::vector<std::string> labels;
  while (!text.empty()) {
    const std::size_t comma = std::min(text.find(','), text.size());
    if (const std::string_view label = Trimmed(text.substr(0, comma)); !label.empty()) {
      labels.emplace_back(label);
    }
    text.remove_prefix(std::min(comma + 1, text.size()));
  }
  return labels;
}

}  // namespace

ViewSettings::ViewSettings() {
  const std::string folder = SettingsFolder();
  if (!folder.empty()) {
    m_path = folder + "/qmtctl/view.ini";
    Read();
  }
}

void ViewSettings::Read() {
  const TextFilePtr file = OpenTextFile(m_path);
  if (file == nullptr) {
    if (errno != ENOENT) {
      m_isReadable = false;
      m_complaint = m_path + " can't be read: " + std::generic_category().message(errno);
    }
    return;
  }
  std::string text(kMostBytes + 1, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), file.get()));
  if (text.size() > kMostBytes) {
    m_isReadable = false;
    m_complaint = m_path + " is too long";
    return;
  }
  bool isColumns = false;
  std::size_t number = 0;
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    const std::string_view line = Trimmed(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
    ++number;
    if (line.starts_with('[')) {
      isColumns = line == kSection;
      if (isColumns) {
        continue;
      }
    }
    const std::size_t sign = line.find('=');
    if (!isColumns || line.empty() || line.starts_with('#')) {
      m_otherLines.emplace_back(line);
    } else if (sign == std::string_view::npos) {
      m_complaint = m_path + ", line " + std::to_string(number) + ": no \"=\" in \"" +
                    std::string(line.substr(0, 40)) + '"';
      m_otherLines.emplace_back(line);
    } else {
      m_columns[std::string(Trimmed(line.substr(0, sign)))] = SplitLabels(line.substr(sign + 1));
    }
  }
}

std::vector<std::string> ViewSettings::ColumnsOf(const std::string& record) const {
  const auto columns = m_columns.find(record);
  return columns == m_columns.end() ? std::vector<std::string>() : columns->second;
}

std::string ViewSettings::Text() const {
  std::string text;
  for (const std::string& line : m_otherLines) {
    text += line + '\n';
  }
  text += std::string(kSection) + '\n';
  for (const auto& [record, labels] : m_columns) {
    text += record + " = ";
    for (const std::string& label : labels) {
      text += (&label == &labels.front() ? "" : ",") + label;
    }
    text += '\n';
  }
  return text;
}

bool ViewSettings::SetColumns(const std::string& record, const std::vector<std::string>& labels) {
  if (labels.empty()) {
    m_columns.erase(record);
  } else {
    m_columns[record] = labels;
  }
  m_complaint.clear();
  if (m_path.empty() || !m_isReadable) {
    m_complaint = m_path.empty() ? "no home to remember the columns in"
                                 : m_path + " can't be read and so is not written";
    return false;
  }
  const std::string folder = m_path.substr(0, m_path.rfind('/'));
  static_cast<void>(::mkdir(folder.substr(0, folder.rfind('/')).c_str(), 0700));
  static_cast<void>(::mkdir(folder.c_str(), 0700));
  std::string error;
  if (!ReplaceFile(m_path, Text(), error)) {
    m_complaint = "the columns can't be remembered: " + SafeText(error);
    return false;
  }
  return true;
}
