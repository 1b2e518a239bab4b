#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <tuple>

#include "local/schedule/RecordAsker.h"

/// The on-demand requests of one client. Each lasts as long as the book, so that a second answer
/// can be told from the first.
class RequestBook {
 public:
  /// The request for that record, made at its first use. `ordinal` tells apart the requests for one
  /// record in the same message.
  [[nodiscard]] std::shared_ptr<RecordAsker> Find(const std::string& record, unsigned char category,
                                                  bool rates, std::size_t ordinal) {
    std::shared_ptr<RecordAsker>& asker = m_askers[{record, category, rates, ordinal}];
    if (asker == nullptr) {
      asker = std::make_shared<RecordAsker>(record, category, RecordAsker::Look::kOnDemand, rates);
    }
    return asker;
  }

 private:
  std::map<std::tuple<std::string, unsigned char, bool, std::size_t>, std::shared_ptr<RecordAsker>>
      m_askers;
};
