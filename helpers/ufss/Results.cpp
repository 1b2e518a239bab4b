#include "helpers/ufss/Results.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <fstream>
#include <map>
#include <system_error>
#include <utility>

namespace {

namespace fs = std::filesystem;

void Say(const fs::path& path, const std::error_code& error) {
  std::fprintf(stderr, "qmt_ufss: %s: %s\n", path.c_str(), error.message().c_str());
}

std::string FileName(std::string mountPoint) {
  std::replace(mountPoint.begin(), mountPoint.end(), '/', ':');
  return mountPoint;
}

/// A name can't break its line.
std::string OwnerName(::uid_t owner) {
  const ::passwd* entry = ::getpwuid(owner);
  if (entry == nullptr || entry->pw_name == nullptr) {
    return std::to_string(owner);
  }
  std::string name = entry->pw_name;
  std::replace_if(
      name.begin(), name.end(), [](char letter) { return letter == '\t' || letter == '\n'; }, '?');
  return name;
}

}  // namespace

Results::Results(fs::path folder) : m_folder(std::move(folder)), m_beside(m_folder) {
  m_beside += ".new";
  std::error_code error;
  fs::remove_all(m_beside, error);
}

Results::~Results() {
  std::error_code error;
  fs::remove_all(m_beside, error);
}

bool Results::Prepare() {
  std::error_code error;
  if (!fs::create_directory(m_beside, error)) {
    Say(m_beside, error ? error : std::make_error_code(std::errc::file_exists));
    return false;
  }
  return true;
}

bool Results::CanName(const std::string& mountPoint) { return mountPoint.size() <= NAME_MAX; }

bool Results::Write(const std::string& mountPoint, const OwnerBlocks& owners) {
  const std::string name = FileName(mountPoint);
  const fs::path path = m_beside / name;
  errno = 0;
  std::ofstream file(path);
  for (const auto& [owner, blocks] : std::map(owners.begin(), owners.end())) {
    file << owner << '\t' << OwnerName(owner) << '\t' << blocks << '\n';
  }
  file.close();
  if (!file) {
    Say(path, {errno, std::system_category()});
    return false;
  }
  m_names.insert(name);
  return true;
}

bool Results::Publish() {
  std::error_code error;
  fs::create_directory(m_folder, error);
  bool isComplete = true;
  for (const std::string& name : m_names) {
    fs::rename(m_beside / name, m_folder / name, error);
    if (error) {
      Say(m_folder / name, error);
      isComplete = false;
    }
  }
  for (fs::directory_iterator entry(m_folder, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code ignored;
    if (!m_names.contains(entry->path().filename().string())) {
      fs::remove_all(entry->path(), ignored);
    }
  }
  return ::utimensat(AT_FDCWD, m_folder.c_str(), nullptr, 0) == 0 && isComplete;
}
