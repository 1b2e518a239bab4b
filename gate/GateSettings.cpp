#include "gate/GateSettings.h"

namespace {

std::string TextMember(const Json& object, const char* name) {
  const Json* member = object.Find(name);
  return member != nullptr && member->IsString() ? member->Text() : "";
}

std::vector<std::string> TextList(const Json& object, const char* name) {
  std::vector<std::string> texts;
  const Json* member = object.Find(name);
  if (member != nullptr && member->IsArray()) {
    for (const Json& element : member->Elements()) {
      if (element.IsString()) {
        texts.push_back(element.Text());
      }
    }
  }
  return texts;
}

}  // namespace

bool ReadGateSettings(const Json& answer, GateSettings& settings) {
  const Json* gate = answer.Find("gate");
  if (gate == nullptr || !gate->IsObject()) {
    return false;
  }
  settings.mode = TextMember(*gate, "mode");
  settings.listen = TextList(*gate, "listen");
  settings.names = TextList(*gate, "names");
  settings.names.push_back(TextMember(*gate, "host"));
  settings.certificate = TextMember(*gate, "certificate");
  settings.key = TextMember(*gate, "key");
  settings.users = TextMember(*gate, "users");
  settings.tokens = TextMember(*gate, "tokens");
  const Json* arguments = gate->Find("arguments");
  settings.showsArguments = arguments == nullptr || !arguments->IsBool() || arguments->Bool();
  return true;
}
