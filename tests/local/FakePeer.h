#pragma once

#include <string>
#include <utility>
#include <vector>

#include "node/local/ControlRequest.h"

/// A client that keeps its answers.
class FakePeer : public ControlPeer {
 public:
  explicit FakePeer(Rights rights) : m_rights(rights) {}
  [[nodiscard]] Rights PeerRights() const override { return m_rights; }
  [[nodiscard]] bool IsGone() const override { return isGone; }
  [[nodiscard]] std::size_t OutputLimit() const override { return 1 << 20; }
  [[nodiscard]] RequestBook& Requests() override { return m_requests; }
  void Answer(std::string line) override { answers.push_back(std::move(line)); }

  std::vector<std::string> answers;
  bool isGone = false;

 private:
  Rights m_rights;
  RequestBook m_requests;
};
