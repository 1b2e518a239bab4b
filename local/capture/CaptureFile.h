#pragma once

#include <string>
#include <string_view>
#include <vector>

// The folder of a capture; docs/captures.md has its format.

constexpr long kCaptureFormat = 1;
inline constexpr const char* kCaptureFile = "capture.json";
inline constexpr const char* kCallsFile = "calls.jsonl";
inline constexpr const char* kRecordsFile = "records.json";
inline constexpr const char* kHostFolderName = "host";

struct CaptureSample {
  std::string folder;  ///< below the capture's, as "samples/0001"
  double time = 0;     ///< when its batch began, in seconds since 1970
};

/// What capture.json tells.
struct CaptureFacts {
  std::string version;  ///< of the agent that made it
  std::string host;
  std::string profile;
  std::string kernel;     ///< its release
  std::string machine;    ///< as uname(2) has it: answers of calls have the layout of that machine
  bool isRunning = true;  ///< of the host that ran the agent, not of a tree of files
  bool isPrivate = false;
  std::vector<CaptureSample> samples;
  /// Names of the records that the first sample has rows of. For clients: a daemon writes them and
  /// does not read them.
  std::vector<std::string> records = {};
};

[[nodiscard]] std::string CaptureText(const CaptureFacts& facts);
/// Gives what is wrong with the text, or nothing.
[[nodiscard]] std::string ReadCaptureText(std::string_view text, CaptureFacts& facts);

/// Reads a regular file that is no link, of `limit` bytes at most. Gives what is wrong, or nothing.
[[nodiscard]] std::string ReadCaptureFile(const std::string& path, std::size_t limit,
                                          std::string& text);
/// Goes through a sample's tree of the host: gives the first entry that has no business there, such
/// as a pipe, a device or a link that leads out of the tree, or nothing.
[[nodiscard]] std::string CheckCaptureTree(const std::string& folder);

/// "samples/0001" for 1.
[[nodiscard]] std::string SampleFolder(long number);
