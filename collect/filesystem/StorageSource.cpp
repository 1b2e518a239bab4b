#include "collect/filesystem/StorageSource.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "collect/HostFile.h"
#include "support/ProductOptions.h"

namespace {

constexpr std::size_t kStorageFixedSize = 37;
constexpr std::size_t kLineSize = 1025;
constexpr double kBlocksPerMbyte = 2048.0;

std::string& Directory() {
  static std::string directory = "./storage.d";
  return directory;
}

/// The first and the last of a line's three fields.
struct StorageLine {
  const char* owner;
  const char* blocks;
};

/// Nothing for another number of fields.
std::optional<StorageLine> Split(const char* line) {
  const std::string_view text(line);
  if (std::count(text.begin(), text.end(), '\t') != 2) {
    return std::nullopt;
  }
  return StorageLine{line, line + text.rfind('\t') + 1};
}

}  // namespace

const std::string& StorageDirectory() { return Directory(); }

StorageSourceUser::StorageSourceUser() {
  TraceEntry("StorageSourceUser::StorageSourceUser");
  ++s_statistics.constructed;
  if (const char* chosen = ProductOptions::Instance().Get("Storage", "Directory");
      chosen != nullptr) {
    Directory() = chosen;
  }
  m_pendingError.reset(initialize(Directory().c_str()));
  TraceExit("StorageSourceUser::StorageSourceUser");
}

UtlError* StorageSourceUser::initialize(const char* dir) {
  TraceEntry("StorageSourceUser::initialize", dir);
  m_dir = HostEntries(std::string(dir));
  if (!m_dir.IsOpen()) {
    const int code = errno;
    auto error = std::make_unique<UtlError>(__FILE__, __LINE__);
    error->GetStream() << "StorageSourceUser::initialize): fopen(" << dir
                       << ") failed! errno: " << code;
    TraceExit("StorageSourceUser::initialize", AddressOf(error.get()));
    return error.release();
  }
  m_directory = std::string(dir) + '/';
  OpenNextFile();
  TraceExit("StorageSourceUser::initialize");
  return nullptr;
}

void StorageSourceUser::getdirentry(char* path) {
  path[0] = '\0';
  while (const ::dirent* entry = m_dir.Next()) {
    const std::string_view name = entry->d_name;
    const std::string candidate = m_directory + entry->d_name;
    if (name == "." || name == ".." || candidate.size() >= kPathSize) {
      continue;
    }
    struct ::stat status {};
    const bool known = Os().stat(candidate.c_str(), &status) == 0;
    m_fileTime.seconds = static_cast<std::int32_t>(known ? status.st_mtime : Os().time(nullptr));
    if (!known || status.st_size != 0) {
      path[candidate.copy(path, kPathSize - 1)] = '\0';
      return;
    }
  }
  m_more = false;
}

void StorageSourceUser::OpenNextFile() {
  std::array<char, kPathSize> path{};
  getdirentry(path.data());
  m_path = path.data();
  m_file = m_path.empty() ? nullptr : OpenHostFileAt(m_path, m_path.c_str());
}

bool StorageSourceUser::ReadLine(char* buf, int size) {
  int length = 0;
  int letter = std::fgetc(m_file.get());
  const bool ended = letter == EOF;
  while (letter != EOF && letter != '\n' && length + 1 < size) {
    buf[length++] = static_cast<char>(letter);
    letter = std::fgetc(m_file.get());
  }
  buf[length] = '\0';
  if ((letter != EOF && letter != '\n') || std::ferror(m_file.get()) != 0) {
    Trace(20, kError, "Failed to read the file(%1)", m_path);
    return false;
  }
  return !ended;
}

void StorageSourceUser::getline(char* buf, int size) {
  while (m_more && !m_path.empty()) {
    if (m_file == nullptr) {
      Trace(20, kError, "Failed to access the file or directory(%1)", m_path);
    } else if (ReadLine(buf, size)) {
      return;
    }
    OpenNextFile();
  }
  m_more = false;
}

void StorageSourceUser::read(x_storage* record) {
  TraceEntry("StorageSourceUser::read", AddressOf(record));
  m_more = m_pendingError == nullptr;
  std::array<char, kLineSize> line{};
  while (m_more) {
    getline(line.data(), static_cast<int>(line.size()));
    if (!m_more) {
      break;
    }
    const std::optional<StorageLine> fields = Split(line.data());
    if (!fields) {
      Trace(30, kWarning, "Didn't find 3 fields in storage category");
      continue;
    }
    record->fileTime = m_fileTime;
    record->path = m_path.substr(m_directory.size());
    record->size = static_cast<std::uint32_t>(record->path.size() + kStorageFixedSize);
    std::replace(record->path.begin(), record->path.end(), ':', '/');
    record->kind = static_cast<std::int32_t>(std::strtol(fields->owner, nullptr, 10));
    record->freeMB =
        static_cast<double>(std::strtoul(fields->blocks, nullptr, 10)) / kBlocksPerMbyte;
    break;
  }
  TraceExit("StorageSourceUser::read");
}
