#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "io/LoopTimer.h"
#include "local/capture/CaptureFile.h"
#include "local/capture/HostRecorder.h"
#include "local/control/ControlOperations.h"
#include "local/loop/EventLoop.h"
#include "node/NodeLayer.h"
#include "support/OwnFolder.h"

/// A folder in which the agent, which has none of its own then, finds what it wants of its product.
/// It is below the capture's and goes with the object.
class CaptureRoom {
 public:
  /// Makes the capture's folder, which must not be there or be empty, and its own in it; the
  /// working directory and the product's root are there from now on. Gives what is wrong.
  [[nodiscard]] std::string Make(const CaptureOrder& order);
  /// The capture's folder.
  [[nodiscard]] const OwnFolder& Folder() const { return m_folder; }
  void Remove() const;

 private:
  OwnFolder m_folder;
};

/// Takes the samples of a capture, one batch of all served records each, then stops the loop.
class CaptureRun {
 public:
  CaptureRun(EventLoop& loop, ControlOperations& operations, HostRecorder& recorder,
             CaptureOrder order, std::string folder);

  /// Begins with the first sample, whose folder the recorder has made already.
  void Start();
  /// Whether all samples are taken.
  [[nodiscard]] bool IsDone() const { return m_isDone; }
  /// What ended it before; empty without it.
  [[nodiscard]] const std::string& Problem() const { return m_problem; }
  [[nodiscard]] const CaptureFacts& Facts() const { return m_facts; }

 private:
  void TakeSample();
  void TakeAnswer(const std::string& line);
  void GoOn();
  void End(std::string problem);

  ControlOperations& m_operations;
  HostRecorder& m_recorder;
  CaptureOrder m_order;
  std::string m_folder;
  CaptureFacts m_facts;
  LoopTimer m_timer;
  std::chrono::steady_clock::time_point m_begin;
  std::string m_problem;
  bool m_isDone = false;
};
