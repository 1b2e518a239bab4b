#include "local/control/AskedRecords.h"

#include <array>
#include <optional>
#include <utility>

namespace {

constexpr std::array kChosenMembers{"columns", "where", "sort", "limit", "arguments"};

ControlError WrongElement() {
  return {"bad-field", "records must hold names or {\"record\", \"category\"}", "records"};
}

/// The choices among the members of an object.
Json ChoicesIn(const Json& object) {
  Json choices = Json::Object();
  for (const char* name : kChosenMembers) {
    if (const Json* member = object.Find(name)) {
      choices[name] = *member;
    }
  }
  return choices;
}

/// Finds the record. One without a layout can't be shown and so is unknown to clients.
AskedRecord FindAskedRecord(const std::string& name, unsigned char category) {
  const RequestOutcome outcome = CheckRecord(name, category);
  if (outcome != RequestOutcome::kDone) {
    return {name, outcome, nullptr, {}};
  }
  const LayoutRegistry& registry = LayoutRegistry::Instance();
  const RecordListing* listing = registry.FindListing(name, category);
  const RecordLayout* layout = registry.Find(name, listing->category);
  return {
      name, layout == nullptr ? RequestOutcome::kUnknownRecord : RequestOutcome::kDone, layout, {}};
}

std::variant<AskedRecord, ControlError> ReadElement(const Json& element) {
  if (element.IsString()) {
    return FindAskedRecord(element.Text(), 0);
  }
  if (!element.IsObject()) {
    return WrongElement();
  }
  static constexpr std::array kMembers{"record", "category", "columns",  "where",
                                       "sort",   "limit",    "arguments"};
  if (auto error = CheckMembers(element, kMembers)) {
    return *std::move(error);
  }
  const Json* name = element.Find("record");
  if (name == nullptr || !name->IsString()) {
    return WrongElement();
  }
  auto category = ReadCategory(element);
  if (auto* error = std::get_if<ControlError>(&category)) {
    return std::move(*error);
  }
  return FindAskedRecord(name->Text(), std::get<unsigned char>(category));
}

/// Gives the record the choices of its element and those at the top of the message.
std::optional<ControlError> TakeChoices(AskedRecord& asked, const Json& element, const Json& top) {
  Json choices = ChoicesIn(element);
  for (const auto& [name, value] : top.Members()) {
    if (choices.Find(name) != nullptr) {
      return ControlError{"bad-field", name + " stands both in records and beside it", name};
    }
  }
  if (asked.layout == nullptr) {
    return std::nullopt;
  }
  for (const auto& [name, value] : top.Members()) {
    choices[name] = value;
  }
  auto read = RowChoices::Read(choices, asked.layout);
  if (auto* error = std::get_if<ControlError>(&read)) {
    if (element.Find(error->field) != nullptr) {
      error->message = "choices of " + asked.name + ": " + error->message;
    }
    return std::move(*error);
  }
  asked.choices = std::get<RowChoices>(std::move(read));
  return std::nullopt;
}

}  // namespace

std::variant<unsigned char, ControlError> ReadCategory(const Json& object) {
  const Json* category = object.Find("category");
  if (category == nullptr) {
    return static_cast<unsigned char>(0);
  }
  if (!category->IsString() || category->Text().size() != 1) {
    return ControlError{"bad-field", "category must be a text of one character", "category"};
  }
  return static_cast<unsigned char>(category->Text().front());
}

std::variant<std::vector<AskedRecord>, ControlError> ReadAskedRecords(const Json& message) {
  const Json* records = message.Find("records");
  if (records == nullptr || !records->IsArray()) {
    return ControlError{"bad-field", "records must be an array", "records"};
  }
  if (records->Size() > kMaxAskedRecords) {
    return ControlError{"bad-field",
                        "records holds more than " + std::to_string(kMaxAskedRecords) + " names",
                        "records"};
  }
  const Json top = ChoicesIn(message);
  if (records->Size() != 1) {
    auto common = RowChoices::Read(top, nullptr);
    if (auto* error = std::get_if<ControlError>(&common)) {
      return std::move(*error);
    }
  }
  std::vector<AskedRecord> asked;
  asked.reserve(records->Size());
  for (const Json& element : records->Elements()) {
    auto entry = ReadElement(element);
    if (auto* error = std::get_if<ControlError>(&entry)) {
      return std::move(*error);
    }
    asked.push_back(std::get<AskedRecord>(std::move(entry)));
    if (auto error = TakeChoices(asked.back(), element, top)) {
      return *std::move(error);
    }
  }
  return asked;
}
