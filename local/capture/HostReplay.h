#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "local/capture/CaptureFile.h"
#include "local/capture/CapturedHost.h"

/// The host as a capture has it. Nothing outside of the capture's folder is read, whatever its tree
/// holds. What a sample was not asked for is what an earlier one was told: the agent asks for some
/// things once.
class HostReplay : public CapturedHost {
 public:
  /// Reads and checks the whole capture. Null, with one line in `problem`, for one that is no good.
  /// `speed` is how fast its time passes, 1 for as it did.
  static std::unique_ptr<HostReplay> Open(const std::string& folder, double speed,
                                          std::string& problem);

  [[nodiscard]] const CaptureFacts& Facts() const { return m_facts; }
  int Open(int folder, const char* name, int flags) override;
  [[nodiscard]] bool IsRunningHost() const override { return m_facts.isRunning; }
  CallAnswer Ask(const std::string& question, const RealCall& real) override;
  /// True: what the capture lacks fails by ENOENT, as this machine's kernel is not the host's.
  bool FindTalk(int protocol, std::string_view question, HeardTalk& heard) override;
  /// Moves on to the sample whose time has come.
  void BeginBatch() override;

 protected:
  [[nodiscard]] const CallAnswer* Find(const std::string& question) const override;

 private:
  using Clock = std::chrono::steady_clock;

  /// How far samples have been looked at for a question, and the newest one of these that has it.
  struct Looked {
    std::size_t until = 0;
    std::optional<std::size_t> found;
  };

  HostReplay(const std::string& folder, double speed)
      : CapturedHost(folder, folder + "/samples"), m_folder(folder), m_speed(speed) {}
  [[nodiscard]] int OpenIn(std::size_t sample, const std::string& path, int flags) const;
  /// The newest sample up to the present one that has what is asked for, by `has`; each is looked
  /// at once for one question.
  template <class Has>
  [[nodiscard]] std::optional<std::size_t> Newest(const std::string& question,
                                                  const Has& has) const;

  std::string m_folder;
  double m_speed;
  CaptureFacts m_facts;
  std::vector<CallAnswers> m_answers;  ///< of each sample
  mutable std::unordered_map<std::string, Looked> m_looked;
  std::size_t m_sample = 0;   ///< the present one
  Clock::time_point m_begin;  ///< of the first batch
  bool m_isBegun = false;
};
