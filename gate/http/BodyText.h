#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "gate/http/HttpExchange.h"

/// The body of an answer, put together as it comes and compressed on the way where the reader
/// takes that.
class BodyText {
 public:
  explicit BodyText(bool isGzip);
  ~BodyText();
  BodyText(const BodyText&) = delete;
  BodyText& operator=(const BodyText&) = delete;

  /// False if all answers together would hold too much; see BodyRoom.
  [[nodiscard]] bool Add(std::string_view bytes);
  /// Makes it the answer's body, once. False, and the answer stays as it is, if all answers
  /// together would hold too much.
  [[nodiscard]] bool Finish(HttpAnswer& answer);

 private:
  struct Deflater;

  [[nodiscard]] bool Deflate(std::string_view bytes, int flush);

  std::unique_ptr<Deflater> m_deflater;  ///< null if it is not compressed
  std::string m_text;
  BodyRoom m_room;
};

/// `text` as gzip has it expanded; empty if it is none.
[[nodiscard]] std::string Gunzip(std::string_view text);
