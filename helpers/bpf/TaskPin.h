#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "support/Descriptor.h"

/// What is known of a pinned iterator.
struct PinState {
  bool isPinned = false;
  std::uint32_t size = 0;  ///< of its structures; 0 if it could not be read or had none
  std::uint32_t version = 0;
  ::uid_t user = 0;
  ::gid_t group = 0;
  ::mode_t mode = 0;
};

/// The iterator's file in a folder of its own on a BPF file system: who opens it, walks all tasks.
/// The folder is root's; where others may write beside it, one that they have made in its place is
/// refused. All calls give false, with the reason in words, if they fail.
class TaskPin {
 public:
  /// `folder` is an absolute path, whose last name is made where it is missing.
  explicit TaskPin(std::string folder);

  /// Pins the link in the place of what is pinned there, which goes on until its readers have
  /// closed it: at every moment the one or the other stands there. A failure leaves what was there.
  [[nodiscard]] bool Replace(int link, ::gid_t group, ::mode_t mode, std::string& reason);
  /// Takes file and folder away; true if there are none.
  [[nodiscard]] bool Remove(std::string& reason);
  /// Reads the first structure, if this process may.
  [[nodiscard]] bool Look(PinState& state, std::string& reason) const;

  [[nodiscard]] std::string Path() const { return m_folder + "/" + kName; }

 private:
  /// No dots: the kernel keeps names with one to itself.
  static constexpr const char* kName = "tasks";
  static constexpr const char* kNewName = "tasks_new";

  /// Not open, with the reason, if there is none; an empty reason if the folder alone is missing.
  [[nodiscard]] Descriptor OpenFolder(std::string& reason) const;
  [[nodiscard]] Descriptor OpenParent(std::string& reason) const;
  [[nodiscard]] bool PlaceNew(int folder, int link, ::gid_t group, ::mode_t mode,
                              std::string& reason) const;
  [[nodiscard]] std::string LastName() const;

  std::string m_folder;
};
