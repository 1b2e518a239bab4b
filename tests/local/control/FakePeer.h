#pragma once

#include <new>
#include <string>
#include <utility>
#include <vector>

#include "local/control/ControlRequest.h"

/// A client that keeps its answers.
class FakePeer : public ControlPeer {
 public:
  explicit FakePeer(Rights rights) : m_rights(rights) {}
  [[nodiscard]] Rights PeerRights() const override { return m_rights; }
  [[nodiscard]] bool IsGate() const override { return false; }
  [[nodiscard]] bool IsGone() const override { return isGone; }
  [[nodiscard]] RequestBook& Requests() override { return m_requests; }
  void Answer(std::string line) override { answers.push_back(std::move(line)); }
  void AnswerRaw(std::string line, std::string bytes) override {
    answers.push_back(line + '\n' + bytes);
  }
  /// Takes nothing by itself: a test asks `endless`.
  void AnswerWithoutEnd(AnswerPieces answer) override {
    EndWhenPoor();
    endless = std::move(answer);
  }
  void Continue() override {
    EndWhenPoor();
    ++continues;
  }
  void Abandon() override { isGone = true; }
  void AnswerInPieces(AnswerPieces pieces) override {
    std::string line;
    std::string piece;
    bool isMore = true;
    while (isMore) {
      piece.clear();
      isMore = pieces(piece);
      line += piece;
    }
    Answer(line);
  }

  std::vector<std::string> answers;
  bool isGone = false;
  bool isPoor = false;   ///< has no memory for an answer without end
  AnswerPieces endless;  ///< of an answer without end
  int continues = 0;

 private:
  void EndWhenPoor() const {
    if (isPoor) {
      throw std::bad_alloc();
    }
  }

  Rights m_rights;
  RequestBook m_requests;
};
