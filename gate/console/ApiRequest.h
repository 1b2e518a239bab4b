#pragma once

#include <string>
#include <string_view>
#include <variant>

#include "gate/http/HttpExchange.h"
#include "json/Json.h"

/// What is wrong with a query: the parameter at fault, and why.
struct QueryFault {
  unsigned status = 400;
  std::string field;
  std::string message;
};

/// The request of the control protocol that a query below "/api/1/" stands for: `name` is the part
/// of the path behind that. Each parameter becomes the member of its name. Hostile input.
[[nodiscard]] std::variant<Json, QueryFault> ReadApiRequest(std::string_view name,
                                                            const HttpExchange::Arguments& query);

/// What "/api/1/events" is asked for.
struct EventQuery {
  std::vector<std::string> records;  ///< none: all that are scheduled
  std::int64_t since = -1;           ///< seconds since the epoch; -1: from now on
};
[[nodiscard]] std::variant<EventQuery, QueryFault> ReadEventQuery(
    const HttpExchange::Arguments& query, const std::string& lastEventId);
