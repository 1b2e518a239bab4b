// What comes from the network: heads of requests, queries, headers of who asks, and files of
// accounts.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "gate/access/AccessError.h"
#include "gate/access/Accounts.h"
#include "gate/access/Authorization.h"
#include "gate/console/ApiRequest.h"
#include "gate/console/EventFrame.h"
#include "gate/http/HttpHead.h"
#include "gate/metrics/MetricFormat.h"
#include "json/JsonText.h"

namespace {

/// "name=value&..." as it stands, which is what is left once the library has decoded it.
HttpExchange::Arguments ArgumentsOf(std::string_view text) {
  HttpExchange::Arguments arguments;
  while (!text.empty()) {
    const std::string_view part = text.substr(0, text.find('&'));
    text.remove_prefix(std::min(part.size() + 1, text.size()));
    const std::size_t equals = std::min(part.find('='), part.size());
    arguments.emplace_back(part.substr(0, equals), part.substr(std::min(equals + 1, part.size())));
  }
  return arguments;
}

void ReadAccounts(std::string_view text) {
  for (const AccountKind kind : {AccountKind::kUsers, AccountKind::kTokens}) {
    try {
      static_cast<void>(ParseAccounts(kind, text, "file"));
    } catch (const AccessError&) {
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const HeadRule rule{.maxBytes = 1000, .hostNames = {"own.example"}};
  static_cast<void>(JudgeHead(text, rule));
  static_cast<void>(PreferredFormat(text));
  static_cast<void>(ParseAuthorization(text));
  static_cast<void>(FrameOfLine(text));
  ReadAccounts(text);
  const HttpExchange::Arguments arguments = ArgumentsOf(text);
  for (const char* name : {"records", "schema", "get", "last", "history", "status", "workgroups",
                           "cgroups", "log", "alarms", "alarm"}) {
    const auto read = ReadApiRequest(name, arguments);
    if (const Json* request = std::get_if<Json>(&read)) {
      static_cast<void>(JsonText(*request));
    }
  }
  static_cast<void>(ReadEventQuery(arguments, std::string(text.substr(0, 20))));
  return 0;
}
