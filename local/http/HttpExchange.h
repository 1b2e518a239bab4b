#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

/// An answer to an HTTP request.
struct HttpAnswer {
  unsigned status = 200;
  std::string contentType = "text/plain; charset=utf-8";
  std::string body;
};

/// One HTTP request on its way to its answer.
class HttpExchange {
 public:
  std::string path;
  std::string accept;                                          ///< the header, empty if not sent
  std::vector<std::pair<std::string, std::string>> arguments;  ///< of the query, decoded

  /// To be called once.
  void Answer(HttpAnswer answer) {
    m_answer = std::move(answer);
    m_isAnswered = true;
    if (m_onAnswer) {
      m_onAnswer();
    }
  }
  [[nodiscard]] bool IsAnswered() const { return m_isAnswered; }
  [[nodiscard]] const HttpAnswer& TheAnswer() const { return m_answer; }
  /// What to do if the answer comes later.
  void OnAnswer(std::function<void()> action) { m_onAnswer = std::move(action); }

 private:
  HttpAnswer m_answer;
  bool m_isAnswered = false;
  std::function<void()> m_onAnswer;
};
