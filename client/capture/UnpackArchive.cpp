#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>
#include <vector>

#include "client/ask/Errors.h"
#include "client/capture/Archive.h"
#include "client/capture/ArchiveParts.h"
#include "client/capture/CaptureFolder.h"
#include "support/Descriptor.h"
#include "support/OpenBelow.h"
#include "support/RegularFile.h"

namespace {

constexpr std::size_t kBlock = 65536;

bool HasDots(const std::filesystem::path& path) {
  for (const std::filesystem::path& part : path) {
    if (part == "..") {
      return true;
    }
  }
  return false;
}

/// One unpacking.
class Unpacking {
 public:
  Unpacking(const std::string& file, std::string folder, const UnpackLimits& limits, int stop);
  void Run();

 private:
  [[noreturn]] void Fail(const std::string& words) const;
  [[noreturn]] void FailEntry(const std::string& words) const;
  [[nodiscard]] bool Next();
  void CheckName();
  void CountName(const std::string& name);
  void CountFolders();
  void CheckKind();
  void CheckLinks();
  void WriteEntry();

  std::string m_file;
  std::string m_folder;
  UnpackLimits m_limits;
  int m_stop;
  Descriptor m_in;
  ArchiveReader m_reader;
  ArchiveWriter m_writer;
  ::archive_entry* m_entry = nullptr;  ///< the reader's
  std::string m_name;                  ///< of the entry, normal, without "/" at the end
  std::set<std::string> m_names;
  std::set<std::string> m_folders;  ///< that hold an entry
  std::vector<std::string> m_links;
  std::uint64_t m_nameBytes = 0;
  std::uint64_t m_entries = 0;
  std::uint64_t m_bytes = 0;
};

Unpacking::Unpacking(const std::string& file, std::string folder, const UnpackLimits& limits,
                     int stop)
    : m_file(file),
      m_folder(std::move(folder)),
      m_limits(limits),
      m_stop(stop),
      m_in(OpenRegularFile(std::filesystem::weakly_canonical(file).string(), O_RDONLY, 0)),
      m_reader(::archive_read_new(), ::archive_read_free),
      m_writer(::archive_write_disk_new(), ::archive_write_free) {
  if (!m_in.IsOpen()) {
    Fail(errno == ENXIO || errno == ELOOP ? "this is no regular file"
                                          : std::generic_category().message(errno));
  }
  ::archive_write_disk_set_options(m_writer.get(), ARCHIVE_EXTRACT_SECURE_NODOTDOT |
                                                       ARCHIVE_EXTRACT_SECURE_SYMLINKS |
                                                       ARCHIVE_EXTRACT_NO_OVERWRITE);
  ::archive_read_support_format_tar(m_reader.get());
  ::archive_read_support_filter_zstd(m_reader.get());
  if (::archive_read_open_fd(m_reader.get(), m_in.Get(), kBlock) != ARCHIVE_OK) {
    Fail("this is no archive of a capture: " + ArchiveFault(m_reader.get()));
  }
}

void Unpacking::Fail(const std::string& words) const { throw ClientError(m_file + ": " + words); }

void Unpacking::FailEntry(const std::string& words) const {
  constexpr std::size_t kShown = 200;
  Fail("the entry \"" + m_name.substr(0, kShown) + "\" " + words);
}

bool Unpacking::Next() {
  const int status = ::archive_read_next_header(m_reader.get(), &m_entry);
  if (status == ARCHIVE_EOF) {
    return false;
  }
  if (status != ARCHIVE_OK && status != ARCHIVE_WARN) {
    Fail((m_names.empty() ? "this is no archive of a capture: " : "it is damaged or cut short: ") +
         ArchiveFault(m_reader.get()));
  }
  return true;
}

void Unpacking::CheckName() {
  const char* name = ::archive_entry_pathname(m_entry);
  m_name = name == nullptr ? "" : name;
  if (m_name.empty()) {
    Fail("an entry has no name");
  }
  if (m_name.size() + m_folder.size() + 2 > PATH_MAX) {
    FailEntry("has too long a name");
  }
  const std::filesystem::path path(m_name);
  if (path.is_absolute() || HasDots(path)) {
    FailEntry("leads out of the folder");
  }
  for (const std::filesystem::path& part : path) {
    if (part.string().size() > NAME_MAX) {
      FailEntry("has too long a name");
    }
  }
  std::string normal = path.lexically_normal().string();
  while (normal.ends_with('/')) {
    normal.pop_back();
  }
  m_name = std::move(normal);
  CountFolders();
  if (!m_names.insert(m_name).second) {
    FailEntry("is there twice");
  }
  if (m_folders.count(m_name) == 0) {
    CountName(m_name);
  }
}

/// Of an entry or of a folder that is made for one: both cost memory here and a place on the disk.
void Unpacking::CountName(const std::string& name) {
  m_nameBytes += name.size();
  if (++m_entries > m_limits.entries) {
    Fail("it has more than " + std::to_string(m_limits.entries) + " entries");
  }
  if (m_nameBytes > m_limits.nameBytes) {
    Fail("its names have more than " + std::to_string(m_limits.nameBytes) + " bytes");
  }
}

void Unpacking::CountFolders() {
  std::uint64_t depth = 0;
  for (std::size_t end = m_name.find('/'); end != m_name.npos; end = m_name.find('/', end + 1)) {
    if (++depth > m_limits.depth) {
      FailEntry("stands more than " + std::to_string(m_limits.depth) + " folders deep");
    }
    const std::string folder = m_name.substr(0, end);
    if (m_folders.insert(folder).second && m_names.count(folder) == 0) {
      CountName(folder);
    }
  }
}

void Unpacking::CheckKind() {
  if (::archive_entry_hardlink(m_entry) != nullptr) {
    FailEntry("is a hard link");
  }
  const auto kind = ::archive_entry_filetype(m_entry);
  if (kind == AE_IFLNK) {
    const char* target = ::archive_entry_symlink(m_entry);
    const std::filesystem::path path(target == nullptr ? "" : target);
    const std::filesystem::path place =
        (std::filesystem::path(m_name).parent_path() / path).lexically_normal();
    if (path.empty() || path.is_absolute() || HasDots(place)) {
      FailEntry("is a link that leads out of the folder");
    }
    m_links.push_back(m_name);
  } else if (kind != AE_IFREG && kind != AE_IFDIR) {
    FailEntry("is neither a file nor a folder");
  }
  const la_int64_t size = ::archive_entry_size(m_entry);
  if (size < 0 || static_cast<std::uint64_t>(size) > m_limits.bytes - m_bytes) {
    Fail("it unpacks to more than " + std::to_string(m_limits.bytes) + " bytes");
  }
  m_bytes += static_cast<std::uint64_t>(size);
}

void Unpacking::WriteEntry() {
  const auto kind = ::archive_entry_filetype(m_entry);
  const la_int64_t size = kind == AE_IFREG ? ::archive_entry_size(m_entry) : 0;
  // Nothing but the name and the content is the sender's.
  const ArchiveEntry plain(::archive_entry_new(), ::archive_entry_free);
  ::archive_entry_set_pathname(plain.get(), (m_folder + '/' + m_name).c_str());
  ::archive_entry_set_filetype(plain.get(), kind);
  ::archive_entry_set_perm(plain.get(), kind == AE_IFDIR ? S_IRWXU : S_IRUSR | S_IWUSR);
  ::archive_entry_set_size(plain.get(), size);
  if (kind == AE_IFLNK) {
    ::archive_entry_set_symlink(plain.get(), ::archive_entry_symlink(m_entry));
  }
  if (::archive_write_header(m_writer.get(), plain.get()) != ARCHIVE_OK) {
    FailEntry("can't be unpacked: " + ArchiveFault(m_writer.get()));
  }
  const void* block = nullptr;
  std::size_t count = 0;
  la_int64_t offset = 0;
  int status = size == 0 ? ARCHIVE_EOF : ARCHIVE_OK;
  while (status == ARCHIVE_OK) {
    EndIfStopped(m_stop);
    status = ::archive_read_data_block(m_reader.get(), &block, &count, &offset);
    if (status == ARCHIVE_OK &&
        ::archive_write_data_block(m_writer.get(), block, count, offset) != ARCHIVE_OK) {
      FailEntry("can't be unpacked: " + ArchiveFault(m_writer.get()));
    }
  }
  if (status != ARCHIVE_EOF) {
    FailEntry("is damaged or cut short: " + ArchiveFault(m_reader.get()));
  }
  if (::archive_write_finish_entry(m_writer.get()) != ARCHIVE_OK) {
    FailEntry("can't be unpacked: " + ArchiveFault(m_writer.get()));
  }
}

/// By way of each other links may lead where none of their texts does, and they may do so by what
/// comes last.
void Unpacking::CheckLinks() {
  const Descriptor top(::open(m_folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  for (const std::string& link : m_links) {
    EndIfStopped(m_stop);
    if (LeadsOut(top.Get(), link)) {
      m_name = link;
      FailEntry("is a link that leads out of the folder");
    }
  }
}

void Unpacking::Run() {
  while (Next()) {
    EndIfStopped(m_stop);
    CheckName();
    if (m_name != ".") {
      CheckKind();
      WriteEntry();
    }
  }
  if (::archive_write_close(m_writer.get()) != ARCHIVE_OK) {
    Fail("it can't be unpacked: " + ArchiveFault(m_writer.get()));
  }
  CheckLinks();
}

}  // namespace

void UnpackArchive(const std::string& file, const std::string& folder, const UnpackLimits& limits,
                   int stop) {
  Unpacking(file, folder, limits, stop).Run();
}
