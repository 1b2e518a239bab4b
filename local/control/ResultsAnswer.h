#pragma once

#include <chrono>
#include <cstddef>
#include <ctime>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "local/control/ControlRequest.h"
#include "local/control/RequestTurns.h"
#include "local/control/RowChoices.h"
#include "local/control/RowSelection.h"

/// The answer with one result after the other, each with the rows that its choices leave. Its text
/// is made as the client takes it.
class ResultsAnswer {
 public:
  explicit ResultsAnswer(const ControlRequest& request)
      : m_text(request.AnswerHead() + ",\"results\":[") {}
  ResultsAnswer(const ResultsAnswer&) = delete;
  ResultsAnswer& operator=(const ResultsAnswer&) = delete;

  void AddError(const std::string& record, const ControlError& error);
  /// `time` is when the rows were built, in seconds since the epoch; `owner` keeps their bytes. The
  /// choices are those of this layout.
  void AddRows(const RecordLayout& layout, RowChoices choices, std::time_t time,
               std::shared_ptr<const void> owner, std::vector<std::span<const unsigned char>> rows);

  /// Sends what has been added, as soon as the rows are chosen: at once, or after turns. Nothing
  /// may be added any more.
  static void Send(const std::shared_ptr<ResultsAnswer>& answer, RequestTurns& turns,
                   const std::shared_ptr<ControlRequest>& request);

 private:
  struct Result {
    Json head;
    const RecordLayout* layout = nullptr;  ///< null for an error
    RowChoices choices;
    std::shared_ptr<const void> owner;
    std::vector<std::span<const unsigned char>> rows;
  };

  static void SendChosen(const std::shared_ptr<ResultsAnswer>& answer,
                         const ControlRequest& request);
  /// A turn of choosing among the rows of one result after the other; true if it needs another.
  bool Choose(std::chrono::steady_clock::duration time);
  bool Next(std::string& piece);
  /// The head of the present result, one of its rows, or its end.
  void AddNext();

  std::string m_text;
  std::vector<Result> m_results;
  std::size_t m_chosen = 0;  ///< the result whose rows are chosen at present
  /// Of that result, which stays in its place.
  std::optional<RowSelection> m_selection;
  std::size_t m_place = 0;  ///< the result that is put into words
  std::size_t m_row = 0;    ///< its next row
  bool m_isBegun = false;   ///< whether its head has been given
};
