#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

#include "client/view/Canvas.h"
#include "client/view/Key.h"
#include "client/view/Wish.h"

/// The layout of rows of processes, as far as the view looks into it.
inline Schema ProcessSchema() {
  Schema schema{"PDI", "recordPDI", "4", 100, {}};
  const auto add = [&schema](const char* label, const char* type, const char* meaning) {
    schema.fields.push_back({label, type, 0, 4, meaning, "", ""});
  };
  add("Record Time", "long", "time");
  add("Start Time", "long", "key");
  add("PID", "long", "key");
  add("Parent PID", "long", "gauge");
  add("Program", "char[256]", "text");
  add("User", "char[36]", "text");
  add("User CPU", "utime", "counter");
  add("System CPU", "utime", "counter");
  add("CPU % Each", "float", "percent");
  add("CPU %", "float", "percent");
  add("Real Mem Kbytes", "ulong", "gauge");
  add("Throughput/sec", "float", "rate");
  add("Argument List", "char[4096]", "text");
  return schema;
}

/// Rows of one look.
inline std::shared_ptr<const SeenRows> SeenOf(Json rows, const Schema& schema) {
  auto seen = std::make_shared<SeenRows>();
  seen->rows = std::move(rows);
  seen->schema = std::make_shared<const Schema>(schema);
  seen->time = 1'700'000'000;
  return seen;
}

inline Key CharacterKeyOf(const std::string& text) { return {KeyCode::kCharacter, text, 0, 0}; }
inline Key PlainKey(KeyCode code) { return {code, {}, 0, 0}; }

/// All lines of a canvas.
inline std::string AllLines(const Canvas& canvas) {
  std::string text;
  for (std::size_t line = 0; line < canvas.Height(); ++line) {
    text += canvas.LineText(line) + '\n';
  }
  return text;
}

/// Whether a cell of the line has that tone.
inline bool HasTone(const Canvas& canvas, std::size_t line, Tone tone) {
  for (std::size_t column = 0; column < canvas.Width(); ++column) {
    if (canvas.At(line, column).tone == tone) {
      return true;
    }
  }
  return false;
}
