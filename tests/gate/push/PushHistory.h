#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "json/JsonText.h"

/// A history of two records with a row of samples each at every second, two unless told, which a
/// fake daemon tells as the operation `samples` does: those of a row together.
class PushHistory {
 public:
  std::string Answer(const Json& request) {
    const std::lock_guard lock(m_mutex);
    ++m_asked;
    std::string text;
    Json next = Json::Object();
    std::int64_t oldest = 0;
    std::int64_t samples = 0;
    bool isMore = false;
    for (std::int64_t time = 1; time <= m_end && !isMore; ++time) {
      for (const Json& record : request["records"].Elements()) {
        const Json* after = request["after"].Find(record.Text());
        if (after == nullptr ? time < request["since"].Whole() : time <= (*after)[0].Whole()) {
          continue;
        }
        isMore = samples != 0 && samples + m_series > request["samples"].Whole();
        if (isMore) {
          break;
        }
        for (int series = 0; series < m_series; ++series) {
          const std::string name = series == 0 ? "a" : series == 1 ? "b" : std::to_string(series);
          text += record.Text() + '_' + name + "{x=\"1\"} " + std::to_string(time) + ' ' +
                  std::to_string(time * 1000) + '\n';
        }
        oldest = oldest == 0 ? time : oldest;
        samples += m_series;
        next[record.Text()] = Json::Array({time, time});
      }
    }
    return JsonText(Json{{"ok", true},
                         {"samples", Json{{"wait", m_wait},
                                          {"next", next},
                                          {"more", isMore},
                                          {"oldest", oldest},
                                          {"rows", samples / m_series},
                                          {"count", samples},
                                          {"bytes", text.size()}}}}) +
           '\n' + text;
  }
  void SetEnd(std::int64_t end) {
    const std::lock_guard lock(m_mutex);
    m_end = end;
  }
  void SetSeries(int series) {
    const std::lock_guard lock(m_mutex);
    m_series = series;
  }
  void SetWait(int seconds) {
    const std::lock_guard lock(m_mutex);
    m_wait = seconds;
  }
  [[nodiscard]] int Asked() {
    const std::lock_guard lock(m_mutex);
    return m_asked;
  }
  /// All samples of the times, as a server has them.
  static std::vector<std::string> Samples(std::int64_t first, std::int64_t last) {
    std::vector<std::string> samples;
    for (std::int64_t time = first; time <= last; ++time) {
      for (const char* name : {"PI_a", "PI_b", "FSL_a", "FSL_b"}) {
        samples.push_back(std::string("__name__=") + name + ",x=1 " + std::to_string(time) + '@' +
                          std::to_string(time * 1000));
      }
    }
    return samples;
  }

 private:
  std::mutex m_mutex;
  std::int64_t m_end = 0;
  int m_asked = 0;
  int m_series = 2;
  int m_wait = 0;  ///< seconds
};
