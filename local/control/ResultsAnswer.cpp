#include "local/control/ResultsAnswer.h"

#include <utility>

#include "json/JsonText.h"

void ResultsAnswer::AddError(const std::string& record, const ControlError& error) {
  m_results.push_back({Json{{"record", record}, {"error", ErrorJson(error)}}, nullptr, {}, {}, {}});
}

void ResultsAnswer::AddRows(const RecordLayout& layout, RowChoices choices, std::time_t time,
                            std::shared_ptr<const void> owner,
                            std::vector<std::span<const unsigned char>> rows) {
  Json head{{"record", layout.name},
            {"category", std::string(1, static_cast<char>(layout.category))},
            {"time", time}};
  m_results.push_back(
      {std::move(head), &layout, std::move(choices), std::move(owner), std::move(rows)});
}

void ResultsAnswer::Send(const std::shared_ptr<ResultsAnswer>& answer, RequestTurns& turns,
                         const std::shared_ptr<ControlRequest>& request) {
  // Most choices are made in no time.
  constexpr std::chrono::milliseconds kAtOnce{2};
  if (!answer->Choose(kAtOnce)) {
    SendChosen(answer, *request);
    return;
  }
  turns.Add(request, [answer, request] {
    if (answer->Choose(kRequestTurn)) {
      return true;
    }
    SendChosen(answer, *request);
    return false;
  });
}

void ResultsAnswer::SendChosen(const std::shared_ptr<ResultsAnswer>& answer,
                               const ControlRequest& request) {
  request.Peer().AnswerInPieces([answer](std::string& piece) { return answer->Next(piece); });
}

bool ResultsAnswer::Choose(std::chrono::steady_clock::duration time) {
  const auto end = std::chrono::steady_clock::now() + time;
  for (; m_chosen < m_results.size(); ++m_chosen) {
    Result& result = m_results[m_chosen];
    if (!result.choices.Any()) {
      continue;
    }
    if (!m_selection) {
      m_selection.emplace(result.choices, *result.layout, std::exchange(result.rows, {}));
    }
    if (m_selection->GoOn(end - std::chrono::steady_clock::now())) {
      return true;
    }
    result.head["rows_total"] = m_selection->Total();
    result.rows = m_selection->Take();
    m_selection.reset();
  }
  return false;
}

bool ResultsAnswer::Next(std::string& piece) {
  constexpr std::size_t kPieceSize = 65536;
  while (m_text.size() < kPieceSize && m_place < m_results.size()) {
    AddNext();
  }
  const bool isMore = m_place < m_results.size();
  piece = std::exchange(m_text, {});
  if (!isMore) {
    piece += "]}";
  }
  return isMore;
}

void ResultsAnswer::AddNext() {
  Result& result = m_results[m_place];
  if (!std::exchange(m_isBegun, true)) {
    m_text += m_place == 0 ? "" : ",";
    m_text += JsonText(result.head);
    if (result.layout != nullptr) {
      m_text.back() = ',';
      m_text += "\"rows\":[";
    }
  }
  if (m_row < result.rows.size()) {
    m_text += m_row == 0 ? "" : ",";
    m_text += JsonText(result.choices.RowJson(*result.layout, result.rows[m_row]));
    ++m_row;
    return;
  }
  m_text += result.layout == nullptr ? "" : "]}";
  result = {};
  ++m_place;
  m_row = 0;
  m_isBegun = false;
}
