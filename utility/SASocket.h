#pragma once

#include <array>
#include <memory>
#include <string>

#include "support/UtlError.h"

class CMBRunnableNode;

/// The channel between the agent and a helper process: two named pipes of mode 0660. The agent
/// sends on the Talk pipe and receives on the Listen pipe, whose name has "Out" added. A record is
/// one write and one read; nothing is framed.
class SASocket {
 public:
  /// Longest name kept of either pipe; more is silently cut.
  static constexpr std::size_t kMaxName = 49;
  /// Longest message that Receive takes, and the size of GetData's buffer.
  static constexpr std::size_t kMaxMessage = 4152;

  /// Names the pipes by their plain absolute path, below the product root, and removes what an
  /// earlier run left of them. `node` is not owned and outlives the socket.
  SASocket(CMBRunnableNode* node, const std::string& name);
  SASocket(const SASocket&) = delete;
  SASocket& operator=(const SASocket&) = delete;
  /// Closes both descriptors and removes both pipes.
  ~SASocket();

  /// Makes and opens the pipes, anew if they were open. With a non-zero `schedule` the Listen side
  /// does not wait for a peer, and the loop watches it. 0 for success; 4 for failure, with the
  /// reason in GetLastError(): earlier steps are not undone.
  [[nodiscard]] int Connect(int schedule);
  /// Has the loop watch the Listen side.
  void Accept();
  /// Reads one message from the Listen side, for GetData. With nothing to read the socket is
  /// closed. Returns 0.
  int Receive();
  /// Copies the last message to `buffer`, of kMaxMessage bytes, and returns its length; -1 if there
  /// is none.
  [[nodiscard]] int GetData(char* buffer) const;
  /// Ends the watch and closes both descriptors; harmless when closed. Returns 0.
  int Close();

  /// The open descriptors, -1 when closed.
  [[nodiscard]] int GetListenFd() const { return m_listenFd; }
  [[nodiscard]] int GetTalkFd() const { return m_talkFd; }
  /// The Talk side's plain absolute path.
  [[nodiscard]] const std::string& GetName() const { return m_talkName; }
  /// The last failure, or null; owned by the socket and replaced by the next failure.
  [[nodiscard]] UtlError* GetLastError() const { return m_pLastError.get(); }

 private:
  void RemovePipes() const;
  [[nodiscard]] bool MakePipe(const std::string& name, const char* side);
  [[nodiscard]] bool OpenTalk();
  [[nodiscard]] bool OpenListen(int schedule);
  void SetLastError(const char* step, const char* reason, int line);

  const std::string m_talkName;
  const std::string m_listenName;
  // Made beforehand: the destructor may find no memory.
  const std::string m_talkPath;
  const std::string m_listenPath;
  int m_talkFd = -1;
  int m_listenFd = -1;
  int m_readLength = 0;
  std::array<char, kMaxMessage> m_readBuffer{};
  CMBRunnableNode* m_pNode;
  std::unique_ptr<UtlError> m_pLastError;
};
