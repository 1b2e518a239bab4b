#include "local/metrics/GateFigures.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <map>
#include <span>
#include <utility>

namespace {

constexpr std::size_t kMostFigureText = 4096;
constexpr std::size_t kMostErrorText = 1024;

template <class Figures>
struct Counter {
  const char* member;
  std::uint64_t Figures::*value;
  const char* family;
  const char* unit;
  const char* help;
};

constexpr std::array kPushCounters{
    Counter<PushFigures>{"sent_rows", &PushFigures::sentRows, "push_sent_rows", "",
                         "Rows that the target has taken"},
    Counter<PushFigures>{"sent_samples", &PushFigures::sentSamples, "push_sent_samples", "",
                         "Samples that the target has taken"},
    Counter<PushFigures>{"refused_samples", &PushFigures::refusedSamples, "push_refused_samples",
                         "", "Samples that the target has refused for good"},
    Counter<PushFigures>{"skipped_samples", &PushFigures::skippedSamples, "push_skipped_samples",
                         "", "Samples that were too old for the target"},
    Counter<PushFigures>{"requests", &PushFigures::requests, "push_requests", "",
                         "Requests to the target"},
    Counter<PushFigures>{"failures", &PushFigures::failures, "push_failures", "",
                         "Requests that the target has not taken"},
    Counter<PushFigures>{"bytes", &PushFigures::bytes, "push_bytes", "bytes",
                         "Bytes of the requests to the target"},
};
constexpr std::array kNoticeCounters{
    Counter<NoticeFigures>{"sent", &NoticeFigures::sent, "notices_sent", "",
                           "Notices of alarms that the receiver has taken"},
    Counter<NoticeFigures>{"failures", &NoticeFigures::failures, "notices_failures", "",
                           "Notices of alarms that the receiver has not taken at once"},
    Counter<NoticeFigures>{"dropped", &NoticeFigures::dropped, "notices_dropped", "",
                           "Notices of alarms that were given up"},
};

/// False for another kind than a text of bearable length. One that is not there stays empty.
bool ReadText(const Json& object, const char* name, std::size_t most, std::string& text) {
  const Json* const member = object.Find(name);
  if (member == nullptr) {
    return true;
  }
  if (!member->IsString()) {
    return false;
  }
  text = member->Text().substr(0, most);
  return true;
}

template <class Figures>
bool ReadCounters(const Json& object, std::span<const Counter<Figures>> counters,
                  Figures& figures) {
  return std::ranges::all_of(counters, [&](const Counter<Figures>& counter) {
    const Json* const member = object.Find(counter.member);
    if (member != nullptr && member->IsUnsigned()) {
      figures.*counter.value = member->Unsigned();
    }
    return member == nullptr || member->IsUnsigned();
  });
}

bool ReadOne(const Json& object, PushFigures& figures) {
  const Json* const oldest = object.Find("oldest");
  const Json* const seconds = object.Find("seconds");
  constexpr std::uint64_t kMostTime = std::uint64_t{1} << 40U;
  if ((oldest != nullptr && !(oldest->IsUnsigned() && oldest->Unsigned() < kMostTime)) ||
      (seconds != nullptr && !(seconds->IsNumber() && seconds->Number() >= 0))) {
    return false;
  }
  figures.oldest = oldest == nullptr ? 0 : oldest->Whole();
  figures.seconds = seconds == nullptr ? 0 : seconds->Number();
  return ReadText(object, "name", kMostFigureText, figures.name) && !figures.name.empty() &&
         ReadText(object, "url", kMostFigureText, figures.url) &&
         ReadText(object, "error", kMostErrorText, figures.error) &&
         ReadCounters<PushFigures>(object, kPushCounters, figures);
}

bool ReadOne(const Json& object, NoticeFigures& figures) {
  return ReadText(object, "url", kMostFigureText, figures.url) && !figures.url.empty() &&
         ReadCounters<NoticeFigures>(object, kNoticeCounters, figures);
}

template <class Figures>
std::optional<std::vector<Figures>> ReadList(const Json& list) {
  if (!list.IsArray() || list.Size() > GateFigures::kMost) {
    return std::nullopt;
  }
  std::vector<Figures> all;
  for (const Json& object : list.Elements()) {
    if (!object.IsObject() || !ReadOne(object, all.emplace_back())) {
      return std::nullopt;
    }
  }
  return all;
}

template <class Figures>
void AddCounters(Json& object, std::span<const Counter<Figures>> counters, const Figures& figures) {
  for (const Counter<Figures>& counter : counters) {
    object[counter.member] = figures.*counter.value;
  }
}

void BeginFamily(MetricText& text, const char* name, const char* help, MetricKind kind,
                 const char* unit = "") {
  MetricFamily family;
  family.name = std::string("qmt_agent_") + name;
  family.help = help;
  family.kind = kind;
  family.unit = unit;
  text.Begin(family);
}

/// "https://host:1/secret?key" becomes "https://host:1".
std::string HostPart(const std::string& url) {
  const std::size_t mark = url.find("://");
  const std::size_t begin = mark == std::string::npos ? 0 : mark + 3;
  return url.substr(0, url.find_first_of("/?#", begin));
}

void AddPushMetrics(MetricText& text, const std::vector<PushFigures>& push) {
  if (push.empty()) {
    return;
  }
  const auto add = [&](const char* name, const char* help, MetricKind kind, const char* unit,
                       auto value) {
    BeginFamily(text, name, help, kind, unit);
    for (const PushFigures& target : push) {
      text.Sample({{"target", target.name}}, static_cast<double>(value(target)));
    }
  };
  const std::int64_t now = std::time(nullptr);
  add("push_oldest_age_seconds", "Age of the oldest row that the target has not got; 0 for none",
      MetricKind::kGauge, "seconds", [now](const PushFigures& target) {
        return target.oldest == 0 ? 0 : std::max<std::int64_t>(now - target.oldest, 0);
      });
  add("push_failing", "1 while nothing can be sent to the target", MetricKind::kGauge, "",
      [](const PushFigures& target) { return target.error.empty() ? 0 : 1; });
  for (const Counter<PushFigures>& counter : kPushCounters) {
    add(counter.family, counter.help, MetricKind::kCounter, counter.unit,
        [&](const PushFigures& target) { return target.*counter.value; });
  }
  add("push_seconds", "Time that the requests to the target took", MetricKind::kCounter, "seconds",
      [](const PushFigures& target) { return target.seconds; });
}

void AddNoticeMetrics(MetricText& text, const std::vector<NoticeFigures>& notices) {
  if (notices.empty()) {
    return;
  }
  for (const Counter<NoticeFigures>& counter : kNoticeCounters) {
    std::map<std::string, std::uint64_t> hosts;
    for (const NoticeFigures& receiver : notices) {
      hosts[HostPart(receiver.url)] += receiver.*counter.value;
    }
    BeginFamily(text, counter.family, counter.help, MetricKind::kCounter, counter.unit);
    for (const auto& [host, value] : hosts) {
      text.Sample({{"receiver", host}}, static_cast<double>(value));
    }
  }
}

}  // namespace

std::optional<std::vector<PushFigures>> ReadPushFigures(const Json& list) {
  return ReadList<PushFigures>(list);
}

std::optional<std::vector<NoticeFigures>> ReadNoticeFigures(const Json& list) {
  return ReadList<NoticeFigures>(list);
}

Json FiguresJson(const std::vector<PushFigures>& push) {
  Json list = Json::Array();
  for (const PushFigures& target : push) {
    Json object{{"name", target.name},
                {"url", target.url.substr(0, target.url.find('?'))},
                {"error", target.error},
                {"oldest", target.oldest}};
    AddCounters<PushFigures>(object, kPushCounters, target);
    object["seconds"] = target.seconds;
    list.PushBack(std::move(object));
  }
  return list;
}

Json FiguresJson(const std::vector<NoticeFigures>& notices) {
  Json list = Json::Array();
  for (const NoticeFigures& receiver : notices) {
    Json object{{"url", HostPart(receiver.url)}};
    AddCounters<NoticeFigures>(object, kNoticeCounters, receiver);
    list.PushBack(std::move(object));
  }
  return list;
}

void AddGateMetrics(MetricText& text, const GateFigures& figures) {
  AddPushMetrics(text, figures.push);
  AddNoticeMetrics(text, figures.notices);
}
