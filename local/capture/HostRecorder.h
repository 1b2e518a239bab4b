#pragma once

#include <string>

#include "local/capture/CaptureFile.h"
#include "local/capture/CapturedHost.h"

/// Keeps what the sources read, as they read it: each file is copied when it is opened, and its
/// reader gets the copy. Answers go to the sample's file at once, so that those which children of
/// the agent hear are kept as well.
class HostRecorder : public CapturedHost {
 public:
  /// `folder` is that of the capture, an absolute path; what is below it is not captured.
  HostRecorder(std::string folder, const std::string& root);

  /// Makes the folder of a sample, to which all goes from now on. False with a problem.
  [[nodiscard]] bool BeginSample(long number);
  /// What could not be written; empty if all is kept.
  [[nodiscard]] const std::string& Problem() const { return m_problem; }

  int Open(int folder, const char* name, int flags) override;
  [[nodiscard]] bool IsRunningHost() const override { return m_isRunning; }
  CallAnswer Ask(const std::string& question, const RealCall& real) override;

 protected:
  [[nodiscard]] const CallAnswer* Find(const std::string& question) const override;

 private:
  [[nodiscard]] std::string CopyOf(const std::string& name) const;
  int Refuse(const std::string& question, int code);
  bool MakeFolders(const std::string& path);
  /// Copies what is behind a descriptor; errno of a failure to read, 0 without one.
  int Copy(int from, const std::string& path);
  void Fail(const std::string& path, int code);

  std::string m_folder;
  bool m_isRunning;
  std::string m_sample;  ///< the folder of the present one
  CallAnswers m_answers;
  std::string m_problem;
};
