#pragma once

#include <string>

#include "support/Descriptor.h"

/// A folder for files of one's own, held by its descriptor: whoever may rename it can have another
/// one stand under its name at any time.
class OwnFolder {
 public:
  /// Opens a new folder (mode 0700), or an empty one of the own user that nobody else may write to
  /// and no link leads to. Gives why it can't be used, behind the name as it was given; empty if it
  /// can. What is refused has not been made.
  [[nodiscard]] std::string Open(const std::string& path);

  /// Absolute, without "/" at its end.
  [[nodiscard]] const std::string& Path() const { return m_path; }
  /// A path by way of the descriptor that leads into the folder whatever has its name by now, for
  /// this process and its children while it lives.
  [[nodiscard]] std::string Place() const;
  /// Words for the operator with the folder's name where they have Place().
  [[nodiscard]] std::string Named(std::string words) const;
  [[nodiscard]] int Get() const { return m_folder.Get(); }
  /// Whether it was not there before.
  [[nodiscard]] bool IsMade() const { return m_isMade; }

 private:
  [[nodiscard]] std::string OpenExisting();

  std::string m_path;
  Descriptor m_folder;
  bool m_isMade = false;
};
