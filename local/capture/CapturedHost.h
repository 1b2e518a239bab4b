#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "local/capture/CallAnswer.h"
#include "support/HostReads.h"

/// What capture and replay share: each question to the system has a text, and its first answer in a
/// sample stands for all that ask again. What is not of the monitored host goes to the system.
class CapturedHost : public HostReads {
 public:
  using RealCall = std::function<CallAnswer()>;

  ssize_t ReadLink(int folder, const char* name, char* target, std::size_t size) override;
  int Stat(int folder, const char* name, struct ::stat* status, int flags) override;
  bool List(int folder, std::vector<::dirent>& entries) override;
  bool FindTalk(int protocol, std::string_view question, HeardTalk& heard) override;
  void KeepTalk(int protocol, std::string_view question, const HeardTalk& heard) override;
  void BeginBatch() override { ++m_batches; }
  void EndBatch() override { --m_batches; }

  /// The answer to a question; `real` asks the system.
  virtual CallAnswer Ask(const std::string& question, const RealCall& real) = 0;
  /// Whether the clock stands still, as it does in a batch.
  [[nodiscard]] bool IsInBatch() const { return m_batches > 0; }
  /// The plain absolute path of a place of the monitored host; nothing for another place.
  [[nodiscard]] std::optional<std::string> NameOf(int folder, std::string_view name) const;

 protected:
  /// `root` stands before the host's paths; what is below `own` is none of the host's.
  CapturedHost(std::string root, std::string own)
      : m_root(std::move(root)), m_own(std::move(own)) {}

  /// Remembers what is opened, for what is asked for relative to it.
  int Keep(int descriptor, const std::string& name) {
    m_names[descriptor] = name;
    return descriptor;
  }
  /// The same for what is none of the host's, so that nothing old is remembered of its number.
  int Pass(int descriptor) {
    m_names.erase(descriptor);
    return descriptor;
  }
  /// The question under which a failure to open is kept.
  [[nodiscard]] static std::string OpenQuestion(const std::string& name, int flags);
  /// An answer that is known; null if there is none.
  [[nodiscard]] virtual const CallAnswer* Find(const std::string& question) const = 0;

 private:
  std::string m_root;
  std::string m_own;
  std::map<int, std::string> m_names;
  int m_batches = 0;
};
