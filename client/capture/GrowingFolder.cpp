#include "client/capture/GrowingFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "client/ask/Errors.h"
#include "client/files/RemoveBelow.h"

GrowingFolder::GrowingFolder(const std::string& path)
    : m_path(std::filesystem::absolute(path).lexically_normal().string()) {
  // With it a link would be followed.
  while (m_path.size() > 1 && m_path.ends_with('/')) {
    m_path.pop_back();
  }
  m_isMade = ::mkdir(m_path.c_str(), S_IRWXU) == 0;
  if (!m_isMade && errno != EEXIST) {
    throw ClientError(path + ": " + std::generic_category().message(errno));
  }
  if (const std::string problem = Open(); !problem.empty()) {
    if (m_isMade) {
      ::rmdir(m_path.c_str());
    }
    throw ClientError(path + ": " + problem);
  }
}

GrowingFolder::~GrowingFolder() {
  if (m_isKept) {
    return;
  }
  EmptyFolder(m_folder.Get());
  if (m_isMade) {
    ::rmdir(m_path.c_str());
  }
}

std::string GrowingFolder::Open() {
  m_folder = Descriptor(::open(m_path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct ::stat status {};
  if (!m_folder.IsOpen() || ::fstat(m_folder.Get(), &status) != 0) {
    const bool isOther = errno == ENOTDIR || errno == ELOOP;
    return isOther ? "this is no folder" : std::generic_category().message(errno);
  }
  if (status.st_uid != ::geteuid() || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    return "others may write to this folder; name one that is not there yet";
  }
  return IsEmptyFolder(m_folder.Get()) ? "" : "it exists and is not empty";
}

std::string GrowingFolder::Place() const {
  return "/proc/self/fd/" + std::to_string(m_folder.Get());
}

std::string GrowingFolder::Named(std::string words) const {
  const std::string place = Place() + '/';
  for (std::size_t at = 0; (at = words.find(place, at)) != words.npos; at += m_path.size()) {
    words.replace(at, place.size(), m_path + '/');
  }
  return words;
}

void GrowingFolder::Remove(const char* name) const { RemoveBelow(m_folder.Get(), name); }
