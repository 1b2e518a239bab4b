#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "support/HostNameWire.h"
#include "support/UtlError.h"
#include "utility/HelperProcess.h"

class CMBRunnableNode;
class SASocket;

/// A question for a host, and its answer once there is one.
struct HostNameRequest : HostNameWire {
  std::int32_t status = 0;  ///< 0 no answer yet, 1 answered; stays off the pipe
};

/// Looks hosts up through the helper process, which may take its time: a caller waits two seconds
/// at most for an answer. One that comes later is kept all the same, for the next one who asks. One
/// question is out at a time; the others wait in their order. For the loop's thread alone.
class HostNameRequestManager {
 public:
  /// Remembers `limit` answers, and lets twice as many questions wait. The node is not used: the
  /// socket that connection_init() gets knows it.
  HostNameRequestManager(CMBRunnableNode* node, int limit, const char* helperPath,
                         const char* helperArgument);
  HostNameRequestManager(const HostNameRequestManager&) = delete;
  HostNameRequestManager& operator=(const HostNameRequestManager&) = delete;
  ~HostNameRequestManager() = default;

  /// Starts the helper, gives it a second to open its pipes, and keeps the socket, which is not
  /// owned. Always 1: a helper that could not be started is tried again with the next question once
  /// its pause is over, and hosts stay without an answer until then.
  int connection_init(SASocket* socket);
  /// Fills in the answer if there is one within two seconds: 1. 0 if not yet, -1 if the question
  /// can't be put.
  int handle_request(HostNameRequest& request);
  /// Sends the oldest question again, to a new helper; one that is still in the pipe stands.
  void handle_request();
  /// Takes an answer of 3096 bytes and sends the next question. 0, or -1 if nobody has asked.
  int handle_request(const char* response);
  /// Whether the helper lives.
  [[nodiscard]] bool IsHelperRunning() { return is_child_running(); }
  /// Why the last call failed; empty at first.
  [[nodiscard]] const char* GetLastError() const;

 private:
  using RequestList = std::vector<std::unique_ptr<HostNameRequest>>;

  /// Whether a helper has been started.
  bool spawn_process();
  /// Starts a helper that has ended, unless it is too early for that.
  void Revive();
  [[nodiscard]] bool is_child_running() { return m_helper.IsRunning(); }
  [[nodiscard]] HostNameRequest* SearchCache(const HostNameRequest& request) const;
  [[nodiscard]] HostNameRequest* search_request_by_ip(const char* query) const;
  [[nodiscard]] HostNameRequest* search_request_by_hostname(const char* query) const;
  void Stamp(HostNameRequest& request) const;
  [[nodiscard]] int Enqueue(HostNameRequest& request);
  void AskAgain();
  [[nodiscard]] int insert_pending_request(const HostNameRequest& request);
  void insert_finished_request(std::unique_ptr<HostNameRequest> request);
  [[nodiscard]] int transfer_request_from_waiting_queue_to_cache(const HostNameWire& response);
  [[nodiscard]] HostNameRequest* search_next_waiting_request() const;
  int SendAndNote(const HostNameRequest& request);
  /// Whether a question is in the pipe that nobody has read.
  [[nodiscard]] bool HasUnread() const;
  [[nodiscard]] int send_request(const HostNameRequest& request);
  [[nodiscard]] bool AwaitResponse(int descriptor) const;
  /// Waits for an answer, takes it, and looks into the cache once more.
  [[nodiscard]] HostNameRequest* Receive(const HostNameRequest& request);
  int Fail(const std::string& reason, int line);

  RequestList m_pWaiting;   ///< oldest first
  RequestList m_pFinished;  ///< oldest first
  HelperProcess m_helper;
  const std::size_t m_finishedLimit;
  const std::size_t m_waitingLimit;
  bool m_sendFailed = false;
  std::unique_ptr<UtlError> m_pLastError;
  SASocket* m_pSocket = nullptr;
};
