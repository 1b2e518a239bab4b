#include "local/capture/CallAnswer.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstddef>

#include "json/JsonText.h"

namespace {

constexpr std::string_view kHexDigits = "0123456789abcdef";

bool IsPlain(char letter) { return letter >= ' ' && letter <= '~'; }

void AddHex(std::string& text, char letter) {
  const auto byte = static_cast<unsigned char>(letter);
  text += kHexDigits[byte >> 4U];
  text += kHexDigits[byte & 15U];
}

std::string HexOf(std::string_view bytes) {
  std::string text;
  for (const char letter : bytes) {
    AddHex(text, letter);
  }
  return text;
}

std::optional<std::string> BytesOf(std::string_view hex) {
  std::string bytes;
  if (hex.size() % 2 != 0) {
    return std::nullopt;
  }
  for (std::size_t place = 0; place < hex.size(); place += 2) {
    unsigned value = 0;
    const char* const end = hex.data() + place + 2;
    const auto [stop, status] = std::from_chars(hex.data() + place, end, value, 16);
    if (status != std::errc{} || stop != end) {
      return std::nullopt;
    }
    bytes += static_cast<char>(value);
  }
  return bytes;
}

/// JSON holds UTF-8 alone, which names of files need not be.
std::string QuestionText(std::string_view question) {
  std::string text;
  for (const char letter : question) {
    if (IsPlain(letter) && letter != '%') {
      text += letter;
    } else {
      text += '%';
      AddHex(text, letter);
    }
  }
  return text;
}

std::optional<std::string> QuestionOf(std::string_view text) {
  std::string question;
  for (std::size_t place = 0; place < text.size(); ++place) {
    if (text[place] != '%') {
      question += text[place];
      continue;
    }
    const auto byte = BytesOf(text.substr(place + 1, 2));
    if (!byte || byte->empty()) {
      return std::nullopt;
    }
    question += *byte;
    place += 2;
  }
  return question;
}

/// A whole number that is a member, `missing` where there is none; nothing for another value.
std::optional<long> WholeMember(const Json& object, std::string_view name, long missing) {
  const Json* member = object.Find(name);
  if (member == nullptr) {
    return missing;
  }
  if (!member->IsWhole() || member->Number() > static_cast<double>(INT_MAX) ||
      member->Number() < static_cast<double>(INT_MIN)) {
    return std::nullopt;
  }
  return static_cast<long>(member->Whole());
}

bool TakeCallLine(std::string_view line, CallAnswers& answers) {
  const ParsedJson parsed = ParseJson(line, {.depth = 4, .members = 16});
  const Json* call = parsed.fault == JsonFault::kNone ? parsed.value.Find("call") : nullptr;
  if (call == nullptr || !call->IsString()) {
    return false;
  }
  const std::optional<std::string> question = QuestionOf(call->Text());
  const std::optional<long> result = WholeMember(parsed.value, "result", 0);
  const std::optional<long> code = WholeMember(parsed.value, "errno", 0);
  if (!question || !result || !code) {
    return false;
  }
  CallAnswer answer{*result, static_cast<int>(*code), {}};
  if (const Json* text = parsed.value.Find("text"); text != nullptr) {
    if (!text->IsString()) {
      return false;
    }
    answer.bytes = text->Text();
  } else if (const Json* hex = parsed.value.Find("hex"); hex != nullptr) {
    const auto bytes = hex->IsString() ? BytesOf(hex->Text()) : std::nullopt;
    if (!bytes) {
      return false;
    }
    answer.bytes = *bytes;
  }
  answers.try_emplace(*question, std::move(answer));
  return true;
}

}  // namespace

std::string CallLine(std::string_view question, const CallAnswer& answer) {
  Json line{{"call", QuestionText(question)}, {"result", answer.result}};
  if (answer.code != 0) {
    line["errno"] = answer.code;
  }
  if (!answer.bytes.empty()) {
    const bool isText = std::ranges::all_of(
        answer.bytes, [](char letter) { return IsPlain(letter) || letter == '\n'; });
    line[isText ? "text" : "hex"] = isText ? answer.bytes : HexOf(answer.bytes);
  }
  return JsonText(line) + '\n';
}

std::optional<std::string> TakeCallLines(std::string_view text, CallAnswers& answers) {
  std::size_t number = 1;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    if (end == std::string_view::npos || !TakeCallLine(text.substr(0, end), answers)) {
      return std::to_string(number) + ": this is no answer of a call";
    }
    text.remove_prefix(end + 1);
    ++number;
  }
  return std::nullopt;
}
