#pragma once

#include <string>
#include <utility>
#include <vector>

#include "client/ask/Answers.h"

/// Names of records as people type them, held against those that the daemon has.
class RecordNames {
 public:
  explicit RecordNames(std::vector<Listing> listings) : m_listings(std::move(listings)) {}
  /// Asks the daemon. Throws ClientError.
  explicit RecordNames(Connection& connection)
      : RecordNames(ReadListing(connection.Ask({{"op", "records"}}))) {}

  /// The record that was typed: of that very name, or of the only name that differs in the (ASCII)
  /// case of its letters. Throws ClientError, in the words of Missing, if there is none.
  [[nodiscard]] RecordName Need(const RecordName& typed) const;

  /// Makes `name` the one that was typed, as Need does. False, and left as it is, if there is none.
  [[nodiscard]] bool Resolve(RecordName& name) const;

  /// That there is no such record, and what comes nearest of those that are served.
  [[nodiscard]] std::string Missing(const RecordName& typed) const;

 private:
  std::vector<Listing> m_listings;
};
