#include "support/OwnFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

std::string OwnFolder::Open(const std::string& path) {
  std::error_code error;
  m_path = std::filesystem::absolute(path, error).lexically_normal().string();
  // With it a link would be followed.
  while (m_path.size() > 1 && m_path.ends_with('/')) {
    m_path.pop_back();
  }
  m_isMade = ::mkdir(m_path.c_str(), S_IRWXU) == 0;
  if (!m_isMade && errno != EEXIST) {
    return path + ": " + std::generic_category().message(errno);
  }
  const std::string problem = OpenExisting();
  if (!problem.empty() && m_isMade) {
    ::rmdir(m_path.c_str());
  }
  return problem.empty() ? "" : path + ": " + problem;
}

std::string OwnFolder::OpenExisting() {
  m_folder = Descriptor(::open(m_path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct ::stat status {};
  if (!m_folder.IsOpen() || ::fstat(m_folder.Get(), &status) != 0) {
    const bool isOther = errno == ENOTDIR || errno == ELOOP;
    return isOther ? "this is no folder" : std::generic_category().message(errno);
  }
  if (status.st_uid != ::geteuid() || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    return m_isMade
               ? "others may write to a folder that is made here; name one on another file system"
               : "others may write to this folder; name one that is not there yet";
  }
  struct ::stat placed {};
  if (::stat(Place().c_str(), &placed) != 0 || placed.st_dev != status.st_dev ||
      placed.st_ino != status.st_ino) {
    return "/proc is not that of this process";
  }
  std::error_code error;
  const bool isEmpty = std::filesystem::is_empty(Place(), error);
  return error ? error.message() : isEmpty ? "" : "it exists and is not empty";
}

std::string OwnFolder::Place() const {
  // Not by /proc/self: children close what they don't know.
  return "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(m_folder.Get());
}

std::string OwnFolder::Named(std::string words) const {
  const std::string place = Place();
  for (std::size_t at = 0; (at = words.find(place, at)) != words.npos;) {
    const std::size_t end = at + place.size();
    // Another descriptor's number may begin with the same digits.
    const bool isMeant = end == words.size() || words[end] < '0' || words[end] > '9';
    words.replace(at, isMeant ? place.size() : 0, isMeant ? m_path : "");
    at = isMeant ? at + m_path.size() : end;
  }
  return words;
}
