#pragma once

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "support/Directory.h"
#include "support/HostReads.h"

/// No file of the host whose path ends in a word can be opened while it lives; none at all without
/// one.
class WithoutDescriptors : public HostReads {
 public:
  explicit WithoutDescriptors(std::string_view end = "") : m_end(end) { g_hostReads = this; }
  ~WithoutDescriptors() override { g_hostReads = nullptr; }
  WithoutDescriptors(const WithoutDescriptors&) = delete;
  WithoutDescriptors& operator=(const WithoutDescriptors&) = delete;

  int Open(int folder, const char* name, int flags) override {
    return IsLacked(name) ? Fail() : ::openat(folder, name, flags);
  }
  ssize_t ReadLink(int folder, const char* name, char* target, std::size_t size) override {
    return m_end.empty() ? Fail() : ::readlinkat(folder, name, target, size);
  }
  int Stat(int folder, const char* name, struct ::stat* status, int flags) override {
    return m_end.empty() ? Fail() : ::fstatat(folder, name, status, flags);
  }
  bool List(int folder, std::vector<::dirent>& entries) override {
    const DirectoryPtr directory(::fdopendir(::dup(folder)));
    while (const ::dirent* entry = directory == nullptr ? nullptr : ::readdir(directory.get())) {
      std::memcpy(&entries.emplace_back(), entry, entry->d_reclen);
    }
    return directory != nullptr;
  }
  bool FindTalk(int, std::string_view, HeardTalk& heard) override {
    heard.error = EMFILE;
    return true;
  }
  void KeepTalk(int, std::string_view, const HeardTalk&) override {}
  [[nodiscard]] bool IsRunningHost() const override { return false; }
  void BeginBatch() override {}
  void EndBatch() override {}

 private:
  [[nodiscard]] bool IsLacked(std::string_view name) const { return name.ends_with(m_end); }
  static int Fail() {
    errno = EMFILE;
    return -1;
  }

  std::string m_end;
};
