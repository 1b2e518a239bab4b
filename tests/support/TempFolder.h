#pragma once

#include <system_error>

#include "tests/support/Testing.h"

/// A folder of its own for one test, gone with the object. With kEnter it is the working directory
/// meanwhile.
class TempFolder {
 public:
  enum Use { kKeepPlace, kEnter };
  explicit TempFolder(Use use = kKeepPlace) : m_before(std::filesystem::current_path()) {
    std::string name = (std::filesystem::temp_directory_path() / "qmt-test-XXXXXX").string();
    EXPECT_NE(::mkdtemp(name.data()), nullptr);
    m_path = name;
    if (use == kEnter) {
      std::filesystem::current_path(m_path);
    }
  }
  ~TempFolder() {
    // A child that is still writing may put another file there.
    std::error_code ignored;
    std::filesystem::current_path(m_before, ignored);
    std::filesystem::remove_all(m_path, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  [[nodiscard]] const std::filesystem::path& Path() const { return m_path; }
  [[nodiscard]] std::string Read(const std::string& name) const { return FileText(m_path / name); }

 private:
  std::filesystem::path m_before;
  std::filesystem::path m_path;
};
