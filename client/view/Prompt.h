#pragma once

#include <functional>
#include <string>

#include "client/view/Canvas.h"
#include "client/view/Key.h"

/// A line to type, with what it is for in front.
class Prompt {
 public:
  /// `done` gets the text once it is entered; what it throws as UsageError is shown and the line
  /// stays.
  Prompt(std::string question, std::string text, std::function<void(const std::string&)> done);

  /// Takes a key; false once the line is entered or given up.
  [[nodiscard]] bool Take(const Key& key);
  void Draw(Canvas& canvas, std::size_t line) const;

 private:
  void RemoveLast();

  std::string m_question;
  std::string m_text;
  std::string m_fault;
  std::function<void(const std::string&)> m_done;
};
