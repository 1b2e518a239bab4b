#include "gate/console/ApiRequest.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace {

enum class ParameterKind {
  kText,        ///< a text
  kTexts,       ///< texts, one each time that it is given
  kRecords,     ///< names of records with commas between them; must be there
  kRecord,      ///< the name of one record; must be there
  kLabels,      ///< labels with commas between them
  kWhole,       ///< a whole number of 64 bits
  kNumber,      ///< the same; must be there
  kPlace,       ///< the two numbers of a "next", with a comma between them
  kFlag,        ///< 1, 0, true or false
  kArgument,    ///< a text that goes into "arguments"
  kGroupPath,   ///< a control group: its rows and those below it
  kGroupDepth,  ///< the most levels of a control group's path
};

struct Parameter {
  const char* name = nullptr;
  ParameterKind kind = ParameterKind::kText;
};

struct Route {
  const char* name;
  const char* operation;
  std::array<Parameter, 11> parameters;
};

using enum ParameterKind;

constexpr Parameter kColumns{"columns", kLabels};
constexpr Parameter kWhere{"where", kTexts};
constexpr Parameter kSort{"sort", kTexts};
constexpr Parameter kLimit{"limit", kWhole};

constexpr std::array kRoutes{
    Route{"records", "records", {}},
    Route{"schema", "schema", {{{"record", kRecord}, {"category", kText}}}},
    Route{
        "get", "get", {{{"records", kRecords}, {"rates", kFlag}, kColumns, kWhere, kSort, kLimit}}},
    Route{"last", "last", {{{"records", kRecords}, kColumns, kWhere, kSort, kLimit}}},
    Route{"history",
          "history",
          {{{"record", kRecord},
            {"category", kText},
            {"since", kWhole},
            {"until", kWhole},
            {"at", kWhole},
            {"after", kPlace},
            kColumns,
            kWhere,
            kSort,
            kLimit,
            {"points", kWhole}}}},
    Route{"status", "status", {}},
    Route{"workgroups", "report", {{{"pid", kArgument}, {"name", kArgument}}}},
    Route{"cgroups",
          "last",
          {{{"path", kGroupPath}, {"depth", kGroupDepth}, kColumns, kWhere, kSort, kLimit}}},
    Route{"log", "log", {{{"lines", kWhole}}}},
    Route{"alarms", "alarms", {{{"since", kWhole}, {"until", kWhole}, kLimit, {"state", kText}}}},
    Route{"alarm", "alarm", {{{"id", kNumber}}}},
};
/// Of the history too, which has more parameters than others.
constexpr Parameter kBy{"by", kLabels};
constexpr const char* kWantsWhole = "must be a whole number of 64 bits";
constexpr std::size_t kMostEventRecords = 64;
// Within what a condition of the control protocol may hold.
constexpr std::int64_t kMostGroupLevels = 7;
constexpr std::size_t kMostPathBytes = 200;

QueryFault Fault(const std::string& name, const std::string& message) {
  return {400, name, name + ' ' + message};
}

std::optional<std::int64_t> ReadWhole(std::string_view text) {
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc{} && end == text.data() + text.size() ? std::optional(value)
                                                                  : std::nullopt;
}

std::vector<std::string> Parts(std::string_view text) {
  std::vector<std::string> parts;
  while (!text.empty()) {
    const std::size_t comma = std::min(text.find(','), text.size());
    if (comma != 0) {
      parts.emplace_back(text.substr(0, comma));
    }
    text.remove_prefix(std::min(comma + 1, text.size()));
  }
  return parts;
}

/// "CPUP", or "4:CPUP" with its category, as the control protocol has it.
Json RecordJson(const std::string& text) {
  if (text.size() > 2 && text[1] == ':') {
    return Json{{"record", text.substr(2)}, {"category", text.substr(0, 1)}};
  }
  return text;
}

/// `text` as a pattern that stands for nothing but itself.
std::string PatternOf(std::string_view text) {
  std::string pattern;
  for (const char c : text) {
    if (c == '*' || c == '?' || c == '[' || c == '\\') {
      pattern += '\\';
    }
    pattern += c;
  }
  return pattern;
}

Json& ArrayOf(Json& request, const char* name) {
  Json& member = request[name];
  if (member.IsNull()) {
    member = Json::Array();
  }
  return member;
}

void AddAll(Json& list, const std::vector<std::string>& texts) {
  for (const std::string& text : texts) {
    list.PushBack(text);
  }
}

std::optional<QueryFault> AddGroupCondition(Json& request, const Parameter& parameter,
                                            const std::string& text) {
  if (parameter.kind == kGroupPath) {
    if (text.size() > kMostPathBytes) {
      return Fault(parameter.name, "is longer than " + std::to_string(kMostPathBytes) + " bytes");
    }
    // The root has all groups below it.
    if (text != "/") {
      const std::string pattern = PatternOf(text);
      ArrayOf(request, "where").PushBack("Path ~ " + pattern + '*');
      // Not one whose name goes on behind this one's.
      request["where"].PushBack("Path !~ " + pattern + "[!/]*");
    }
    return std::nullopt;
  }
  const auto depth = ReadWhole(text);
  if (!depth || *depth < 0 || *depth > kMostGroupLevels) {
    return Fault(parameter.name,
                 "must be a whole number from 0 to " + std::to_string(kMostGroupLevels));
  }
  std::string deeper;
  for (std::int64_t level = 0; level <= *depth; ++level) {
    deeper += "/?*";
  }
  ArrayOf(request, "where").PushBack("Path !~ " + deeper);
  return std::nullopt;
}

std::optional<QueryFault> AddNumber(Json& request, const Parameter& parameter,
                                    const std::string& text) {
  if (parameter.kind == kWhole || parameter.kind == kNumber) {
    const auto value = ReadWhole(text);
    if (!value) {
      return Fault(parameter.name, kWantsWhole);
    }
    request[parameter.name] = *value;
    return std::nullopt;
  }
  const std::size_t comma = std::min(text.find(','), text.size());
  const auto time = ReadWhole(std::string_view(text).substr(0, comma));
  const auto row = ReadWhole(std::string_view(text).substr(std::min(comma + 1, text.size())));
  if (!time || !row) {
    return Fault(parameter.name, "must be the two numbers of a \"next\", as 1700000000,5");
  }
  request[parameter.name] = Json::Array({*time, *row});
  return std::nullopt;
}

std::optional<QueryFault> AddParameter(Json& request, const Parameter& parameter,
                                       const std::string& text) {
  switch (parameter.kind) {
    case kText:
      request[parameter.name] = text;
      break;
    case kRecord:
      if (const Json record = RecordJson(text); record.IsObject()) {
        request["record"] = record["record"];
        request["category"] = record["category"];
      } else {
        request["record"] = text;
      }
      break;
    case kTexts:
      ArrayOf(request, parameter.name).PushBack(text);
      break;
    case kRecords:
      for (const std::string& name : Parts(text)) {
        ArrayOf(request, parameter.name).PushBack(RecordJson(name));
      }
      break;
    case kLabels:
      AddAll(ArrayOf(request, parameter.name), Parts(text));
      break;
    case kFlag:
      if (text != "1" && text != "0" && text != "true" && text != "false") {
        return Fault(parameter.name, "must be 1 or 0");
      }
      request[parameter.name] = text == "1" || text == "true";
      break;
    case kArgument: {
      Json& arguments = request["arguments"];
      arguments[parameter.name] = text;
      break;
    }
    case kWhole:
    case kNumber:
    case kPlace:
      return AddNumber(request, parameter, text);
    case kGroupPath:
    case kGroupDepth:
      return AddGroupCondition(request, parameter, text);
  }
  return std::nullopt;
}

const Route* FindRoute(std::string_view name) {
  const auto found =
      std::ranges::find_if(kRoutes, [&](const Route& route) { return name == route.name; });
  return found == kRoutes.end() ? nullptr : &*found;
}

const Parameter* FindParameter(const Route& route, const std::string& name) {
  for (const Parameter& parameter : route.parameters) {
    if (parameter.name != nullptr && name == parameter.name) {
      return &parameter;
    }
  }
  return std::string_view(route.name) == "history" && name == kBy.name ? &kBy : nullptr;
}

bool MayRepeat(ParameterKind kind) { return kind == kTexts || kind == kLabels || kind == kRecords; }

Json BeginRequest(const Route& route) {
  Json request{{"op", route.operation}};
  if (std::string_view(route.name) == "cgroups") {
    request["records"] = Json::Array({"CGRP"});
  } else if (std::string_view(route.name) == "workgroups") {
    request["report"] = "workgroups";
  }
  return request;
}

/// What a parameter must be that is not there; null for one that may be left out.
const char* WordsOfMissing(ParameterKind kind) {
  switch (kind) {
    case kRecord:
      return "must be the name of a record";
    case kRecords:
      return "must be names of records with commas between them";
    case kNumber:
      return kWantsWhole;
    default:
      return nullptr;
  }
}

std::optional<QueryFault> FindMissing(const Route& route, const Json& request) {
  for (const Parameter& parameter : route.parameters) {
    const char* words = WordsOfMissing(parameter.kind);
    if (parameter.name != nullptr && words != nullptr && request.Find(parameter.name) == nullptr) {
      return Fault(parameter.name, words);
    }
  }
  return std::nullopt;
}

}  // namespace

std::variant<Json, QueryFault> ReadApiRequest(std::string_view name,
                                              const HttpExchange::Arguments& query) {
  const Route* route = FindRoute(name);
  if (route == nullptr) {
    return QueryFault{404, "", "no such page"};
  }
  Json request = BeginRequest(*route);
  std::vector<std::string> seen;
  for (const auto& [key, text] : query) {
    const Parameter* parameter = FindParameter(*route, key);
    if (parameter == nullptr) {
      return QueryFault{400, key, "unknown parameter \"" + key + '"'};
    }
    if (!MayRepeat(parameter->kind) && std::ranges::find(seen, key) != seen.end()) {
      return Fault(key, "is given twice");
    }
    seen.push_back(key);
    if (auto fault = AddParameter(request, *parameter, text)) {
      return *std::move(fault);
    }
  }
  if (auto fault = FindMissing(*route, request)) {
    return *std::move(fault);
  }
  return request;
}

namespace {

/// Names, without the category that may stand before them, each once; of those beyond the limit,
/// which are refused, the first.
void AddEventRecords(EventQuery& query, std::string_view text) {
  for (const std::string& part : Parts(text)) {
    if (query.records.size() > kMostEventRecords) {
      return;
    }
    const std::string name = part.size() > 2 && part[1] == ':' ? part.substr(2) : part;
    if (std::ranges::find(query.records, name) == query.records.end()) {
      query.records.push_back(name);
    }
  }
}

}  // namespace

std::variant<EventQuery, QueryFault> ReadEventQuery(const HttpExchange::Arguments& query,
                                                    const std::string& lastEventId) {
  EventQuery wanted;
  std::string since = lastEventId;
  const char* sinceName = "Last-Event-ID";
  for (const auto& [key, text] : query) {
    if (key == "records") {
      AddEventRecords(wanted, text);
    } else if (key == "since") {
      // A reader that comes back knows better than the address that it began with.
      if (lastEventId.empty()) {
        since = text;
        sinceName = "since";
      }
    } else {
      return QueryFault{400, key, "unknown parameter \"" + key + '"'};
    }
  }
  if (wanted.records.size() > kMostEventRecords) {
    return Fault("records", "holds more than " + std::to_string(kMostEventRecords) + " names");
  }
  if (!since.empty()) {
    const auto time = ReadWhole(since);
    if (!time || *time < 0) {
      return Fault(sinceName, "must be seconds since 1970");
    }
    wanted.since = *time;
  }
  return wanted;
}
