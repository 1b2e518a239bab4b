#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <system_error>

#include "client/ask/Errors.h"
#include "client/capture/Archive.h"
#include "client/capture/ArchiveParts.h"
#include "client/capture/CaptureFolder.h"
#include "support/Descriptor.h"
#include "support/RegularFile.h"

namespace {

void NeedPacked(int status, ::archive* archive, const std::string& path) {
  if (status != ARCHIVE_OK) {
    throw ClientError(path + ": " + ArchiveFault(archive));
  }
}

void PackEntry(::archive* archive, const std::string& folder, const FolderEntry& part,
               std::time_t now) {
  const ArchiveEntry entry(::archive_entry_new(), ::archive_entry_free);
  const std::string text = part.isFolder ? "" : ReadWhole(folder + '/' + part.path);
  ::archive_entry_set_pathname(entry.get(), part.path.c_str());
  ::archive_entry_set_filetype(entry.get(), part.isFolder ? AE_IFDIR : AE_IFREG);
  ::archive_entry_set_perm(entry.get(), part.isFolder ? S_IRWXU : S_IRUSR | S_IWUSR);
  ::archive_entry_set_size(entry.get(), static_cast<la_int64_t>(text.size()));
  ::archive_entry_set_mtime(entry.get(), now, 0);
  // A warning is about a name that is no text in this locale, which is kept as the bytes that it
  // is.
  const int status = ::archive_write_header(archive, entry.get());
  NeedPacked(status == ARCHIVE_WARN ? ARCHIVE_OK : status, archive, part.path);
  if (::archive_write_data(archive, text.data(), text.size()) !=
      static_cast<la_ssize_t>(text.size())) {
    throw ClientError(part.path + ": " + ArchiveFault(archive));
  }
}

}  // namespace

void PackFolder(const std::string& folder, const std::string& file, int stop) {
  const Descriptor out(OpenRegularFile(file, O_WRONLY | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR));
  if (!out.IsOpen()) {
    throw ClientError(file + ": " + std::generic_category().message(errno));
  }
  const ArchiveWriter archive(::archive_write_new(), ::archive_write_free);
  NeedPacked(::archive_write_set_format_pax_restricted(archive.get()), archive.get(), file);
  NeedPacked(::archive_write_add_filter_zstd(archive.get()), archive.get(), file);
  NeedPacked(::archive_write_open_fd(archive.get(), out.Get()), archive.get(), file);
  const std::time_t now = std::time(nullptr);
  for (const FolderEntry& part : ListFolder(folder)) {
    EndIfStopped(stop);
    PackEntry(archive.get(), folder, part, now);
  }
  NeedPacked(::archive_write_close(archive.get()), archive.get(), file);
  if (::fsync(out.Get()) != 0) {
    throw ClientError(file + ": " + std::generic_category().message(errno));
  }
}

void NameArchive(const std::string& growing, const std::string& file, RenameCall rename) {
  if (rename(AT_FDCWD, growing.c_str(), AT_FDCWD, file.c_str(), RENAME_NOREPLACE) == 0) {
    return;
  }
  int code = errno;
  // Many file systems of networks and of programs know no such rename; a link replaces nothing
  // either.
  if (code == EINVAL || code == ENOSYS || code == EOPNOTSUPP) {
    if (::link(growing.c_str(), file.c_str()) == 0) {
      ::unlink(growing.c_str());
      return;
    }
    code = errno;
  }
  throw ClientError(file + ": " + std::generic_category().message(code) +
                    "; the capture is kept as " + growing);
}
