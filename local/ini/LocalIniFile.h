#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "local/ini/IniText.h"
#include "node/IniFile.h"

/// What becomes of the name in a line whose value is set: it stays as it is, or is spelt as the
/// writer does, for readers to whom its case matters.
enum class KeySpelling { kKept, kGiven };

/// The agent's configuration file on disk. It is read when it is opened and again before each
/// write: what another program writes into it meanwhile is kept, and seen after the next write.
class LocalIniFile : public CMBIniFile {
 public:
  /// Bytes. A longer file isn't opened, and a write never makes it longer.
  static constexpr std::size_t kMaxSize = std::size_t{1} << 20;

  /// A file that doesn't exist is an empty one. Null, with path and reason in `error`, if it can't
  /// be read, is no regular file, is too long or is no ini text: it holds a zero byte, or lines
  /// that can't be used and no section. A symbolic link is followed, by writes too.
  [[nodiscard]] static std::unique_ptr<LocalIniFile> Open(const std::string& directory,
                                                          const std::string& name,
                                                          std::string& error);

  int ReadString(char* out, int size, const char* key, const char* section, const char* subSection,
                 void* unused, int unused2) override;
  /// Returns 1, or 0 if the value can't be written; file and memory then stand as they were, and
  /// the reason goes to the handler of OnWriteProblem. A file that has no write permission for
  /// anybody isn't written, whoever asks.
  [[nodiscard]] int WriteString(const char* value, const char* key, const char* section,
                                const char* subSection, void* unused, int unused2) override;
  int ReadLong(long* out, const char* key, const char* section, const char* subSection,
               void* unused) override;
  [[nodiscard]] int WriteLong(long value, const char* key, const char* section,
                              const char* subSection, void* unused, int unused2) override;

  /// Sets a value as WriteString does. False, with path and reason in `error`, if that fails.
  [[nodiscard]] bool Write(const char* value, const char* key, const char* section,
                           const char* subSection, std::string& error,
                           KeySpelling spelling = KeySpelling::kKept);
  /// Takes out all lines with the key. False, with path and reason in `error` and nothing changed,
  /// if the file can't be written.
  [[nodiscard]] bool Remove(const char* key, const char* section, std::string& error);
  /// Whether the section stands in the file, be it empty.
  [[nodiscard]] bool HasSection(const char* section) const { return m_ini.HasSection(section); }

  /// Takes path and reason of a write that failed, or that may not survive a crash.
  void OnWriteProblem(std::function<void(const std::string&)> handler) {
    m_onWriteProblem = std::move(handler);
  }
  /// Absolute, for messages.
  [[nodiscard]] const std::string& Path() const { return m_shownPath; }
  /// What the file held of unusable lines, as it stands in memory now.
  [[nodiscard]] const std::vector<IniFault>& Faults() const { return m_ini.Faults(); }
  /// The keys and values of a section in file order, repeated keys included.
  [[nodiscard]] std::vector<std::pair<std::string, std::string>> Section(
      const std::string& name) const {
    return m_ini.Section(name);
  }
  /// All keys in file order.
  [[nodiscard]] std::vector<IniSetting> Settings() const { return m_ini.Settings(); }

 private:
  LocalIniFile(std::string path, std::string shownPath, IniText ini)
      : m_path(std::move(path)), m_shownPath(std::move(shownPath)), m_ini(std::move(ini)) {}
  /// Reads the file anew, has `edit` change it and writes it. `edit` gives the reason of a failure,
  /// or an empty text.
  [[nodiscard]] bool Change(const std::function<std::string(IniText&)>& edit, std::string& error);
  [[nodiscard]] bool Replace(const std::function<std::string(IniText&)>& edit, std::string& error);

  std::string m_path;
  std::string m_shownPath;
  IniText m_ini;
  std::function<void(const std::string&)> m_onWriteProblem;
};
