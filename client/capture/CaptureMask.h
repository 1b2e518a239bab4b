#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "client/capture/PrivateWords.h"
#include "client/capture/StandIns.h"
#include "client/capture/TextMask.h"
#include "json/Json.h"

/// Makes a capture private: see "Private captures" of docs/captures.md for what is replaced.
class CaptureMask {
 public:
  /// Of the capture in this folder. Throws ClientError, as all of it does; Interrupted once `stop`,
  /// which may be -1, is readable: some of it is masked then, some not.
  explicit CaptureMask(std::string folder, int stop = -1);

  /// Replaces what is private in all files and in their names, and says so in capture.json.
  void Replace();
  /// Looks for what must not be there any more; throws, naming the file, if it finds some.
  void Check() const;

 private:
  [[nodiscard]] std::string PlaceOf(const std::string& path) const { return m_folder + '/' + path; }
  void Collect();
  void TakeNames(const std::set<std::string>& names);
  void RefuseKernelWords() const;
  void ReplaceFile(const std::string& path);
  void ReplaceNames();
  [[nodiscard]] std::string HostFile(std::string_view path, const std::string& text);
  // A short stand-in may by chance be a name, which is replaced then.
  [[nodiscard]] std::string SerialOf(std::string_view text) const;
  [[nodiscard]] std::string CommandLine(const std::string& line) const;
  [[nodiscard]] std::string Accounts(std::string_view text) const;
  [[nodiscard]] std::string Lines(std::string_view text, void (CaptureMask::*change)(Json&));
  void ReplaceCall(Json& call);
  void ReplaceBytes(std::string_view question, Json& hex);
  void ReplaceRow(Json& row);
  void ReplaceRecords(Json& results);
  void ReplaceFacts(Json& facts);
  [[noreturn]] static void FailCheck(const std::string& path, const std::string& what);
  void CheckText(const std::string& path, std::string_view text,
                 const std::vector<std::string>& words) const;
  void CheckCall(const std::string& path, const Json& call, const std::vector<std::string>& words,
                 const OwnAddresses& own) const;
  template <class Take>
  void ForLines(std::string_view text, const Take& take) const;

  std::string m_folder;
  int m_stop;
  std::vector<FolderEntry> m_entries;
  bool m_isRunning = false;
  StandIns m_standIns;
  TextMask m_mask;
  std::vector<std::string> m_names;
};
