#include "helpers/ufss/OwnerWalk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "support/Descriptor.h"
#include "support/Directory.h"

namespace {

constexpr std::size_t kAskedAfter = 1000;
constexpr unsigned kWanted = STATX_BASIC_STATS | STATX_MNT_ID;

/// A directory as reading finds it: without a mark of having been read where that is allowed, which
/// only its owner and root may leave out.
Descriptor OpenDirectory(int parent, const char* name) {
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
  Descriptor directory(::openat(parent, name, kFlags | O_NOATIME));
  if (!directory.IsOpen() && errno == EPERM) {
    directory = Descriptor(::openat(parent, name, kFlags));
  }
  return directory;
}

/// What tells a directory from others of its file system.
bool IsSame(const struct ::statx& a, const struct ::statx& b) {
  return a.stx_ino == b.stx_ino && a.stx_dev_major == b.stx_dev_major &&
         a.stx_dev_minor == b.stx_dev_minor;
}

class Walk {
 public:
  using GoOn = std::function<bool(const WalkProgress&)>;

  Walk(OwnerBlocks& owners, WalkProgress& progress, const GoOn& goOn)
      : m_owners(owners), m_progress(progress), m_goOn(goOn) {}

  bool Run(const std::string& root) {
    m_root = root;
    // The root itself may be reached by a link.
    m_current = Descriptor(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct ::statx status {};
    if (!m_current.IsOpen() || ::statx(m_current.Get(), "", AT_EMPTY_PATH, kWanted, &status)) {
      return false;
    }
    m_mount = status;
    Count(status);
    m_levels.push_back({"", status, {}});
    if (!ReadCurrent()) {
      return false;
    }
    while (!m_levels.empty()) {
      if (m_isEnded || !m_goOn(m_progress)) {
        return false;
      }
      Step();
    }
    return true;
  }

 private:
  /// A directory on the way from the root to the current one.
  struct Level {
    std::string name;
    struct ::statx status;
    std::vector<std::string> subdirectories;  ///< still to be walked
  };

  /// Goes down into the next subdirectory, or up where there is none.
  void Step() {
    std::vector<std::string>& subdirectories = m_levels.back().subdirectories;
    if (subdirectories.empty()) {
      Leave();
      return;
    }
    std::string name = std::move(subdirectories.back());
    subdirectories.pop_back();
    Enter(std::move(name));
  }

  void Enter(std::string name) {
    Descriptor next = OpenDirectory(m_current.Get(), name.c_str());
    struct ::statx status {};
    if (!next.IsOpen()) {
      m_progress.unread += errno == ENOENT || errno == ENOTDIR || errno == ELOOP ? 0 : 1;
      return;
    }
    // Something else may have been mounted there since it was looked at.
    if (::statx(next.Get(), "", AT_EMPTY_PATH, kWanted, &status) != 0 || !IsOfMount(status)) {
      return;
    }
    m_current = std::move(next);
    m_levels.push_back({std::move(name), status, {}});
    if (!ReadCurrent()) {
      ++m_progress.unread;
    }
  }

  void Leave() {
    m_levels.pop_back();
    if (m_levels.empty()) {
      return;
    }
    Descriptor parent = OpenDirectory(m_current.Get(), "..");
    struct ::statx status {};
    const bool isBack = parent.IsOpen() &&
                        ::statx(parent.Get(), "", AT_EMPTY_PATH, kWanted, &status) == 0 &&
                        IsSame(status, m_levels.back().status);
    m_current = std::move(parent);
    if (!isBack) {
      Return();
    }
  }

  /// Finds the way from the root anew, for a tree that was moved while it was walked, and gives up
  /// on what is no longer where it was.
  void Return() {
    m_current = Descriptor(::open(m_root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::size_t depth = 1;
    while (m_current.IsOpen() && depth < m_levels.size()) {
      Descriptor next = OpenDirectory(m_current.Get(), m_levels[depth].name.c_str());
      struct ::statx status {};
      if (!next.IsOpen() || ::statx(next.Get(), "", AT_EMPTY_PATH, kWanted, &status) != 0 ||
          !IsSame(status, m_levels[depth].status)) {
        break;
      }
      m_current = std::move(next);
      ++depth;
    }
    if (!m_current.IsOpen()) {
      depth = 0;
    }
    m_progress.unread += m_levels.size() - depth;
    m_levels.resize(depth);
  }

  /// Counts the entries of the current directory and notes those to be walked. False if it can't be
  /// read to its end.
  bool ReadCurrent() {
    const int copy = ::fcntl(m_current.Get(), F_DUPFD_CLOEXEC, 0);
    const DirectoryPtr directory(copy < 0 ? nullptr : ::fdopendir(copy));
    if (directory == nullptr) {
      if (copy >= 0) {
        ::close(copy);
      }
      return false;
    }
    for (std::size_t entries = 1;; ++entries) {
      // A user may have made any number of them.
      m_isEnded = entries % kAskedAfter == 0 && !m_goOn(m_progress);
      if (m_isEnded) {
        return false;
      }
      errno = 0;
      const ::dirent* entry = ::readdir(directory.get());
      if (entry == nullptr) {
        return errno == 0;
      }
      const std::string_view name = entry->d_name;
      if (name != "." && name != "..") {
        Look(entry->d_name);
      }
    }
  }

  void Look(const char* name) {
    struct ::statx status {};
    if (::statx(m_current.Get(), name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, kWanted, &status) !=
            0 ||
        !IsOfMount(status)) {
      return;
    }
    if (S_ISDIR(status.stx_mode)) {
      m_levels.back().subdirectories.emplace_back(name);
    } else if (status.stx_nlink > 1 && !m_links.insert(status.stx_ino).second) {
      return;
    }
    Count(status);
  }

  void Count(const struct ::statx& status) {
    ++(S_ISDIR(status.stx_mode) ? m_progress.directories : m_progress.files);
    m_progress.blocks += status.stx_blocks;
    m_owners[status.stx_uid] += status.stx_blocks;
  }

  /// A kernel that does not tell the mount still tells the device.
  [[nodiscard]] bool IsOfMount(const struct ::statx& status) const {
    const bool tellsMount = (status.stx_mask & m_mount.stx_mask & STATX_MNT_ID) != 0;
    return status.stx_dev_major == m_mount.stx_dev_major &&
           status.stx_dev_minor == m_mount.stx_dev_minor &&
           (!tellsMount || status.stx_mnt_id == m_mount.stx_mnt_id);
  }

  OwnerBlocks& m_owners;
  WalkProgress& m_progress;
  const GoOn& m_goOn;
  bool m_isEnded = false;
  std::string m_root;
  struct ::statx m_mount {};
  Descriptor m_current;
  std::vector<Level> m_levels;
  std::unordered_set<std::uint64_t> m_links;  ///< inodes with several names that have been counted
};

}  // namespace

bool SumByOwner(const std::string& root, OwnerBlocks& owners, WalkProgress& progress,
                const std::function<bool(const WalkProgress&)>& goOn) {
  return Walk(owners, progress, goOn).Run(root);
}
