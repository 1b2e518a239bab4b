#include "gate/GateSettings.h"

#include <algorithm>
#include <cstdint>
#include <utility>

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

std::uint64_t NumberMember(const Json& object, const char* name, std::uint64_t otherwise) {
  const Json* member = object.Find(name);
  return member != nullptr && member->IsUnsigned() ? member->Unsigned() : otherwise;
}

SendingSettings ReadSending(const Json& object) {
  return {TextMember(object, "user"),
          TextMember(object, "password_file"),
          TextMember(object, "token_file"),
          TextMember(object, "authority"),
          TextMember(object, "client_certificate"),
          TextMember(object, "client_key")};
}

TargetSettings ReadPush(const Json& object) {
  TargetSettings push;
  push.name = TextMember(object, "name");
  push.url = TextMember(object, "url");
  push.records = TextList(object, "records");
  push.hasNodeNames = TextMember(object, "names") == "node";
  push.sending = ReadSending(object);
  if (const Json* labels = object.Find("labels"); labels != nullptr && labels->IsObject()) {
    for (const JsonMember& label : labels->Members()) {
      if (label.value.IsString()) {
        push.labels.emplace_back(label.name, label.value.Text());
      }
    }
  }
  push.bytesPerSecond = NumberMember(object, "bytes_per_second", push.bytesPerSecond);
  push.batch = NumberMember(object, "batch", push.batch);
  constexpr std::uint64_t kMostDays = 36500;
  push.days = static_cast<int>(std::min(NumberMember(object, "days", 0), kMostDays));
  return push;
}

/// Where a server fetches, it says by these whose samples they are; where it is pushed to, it would
/// take those of all hosts for the same ones.
void NameSource(TargetSettings& push, const std::string& host) {
  const auto add = [&](const char* name, const std::string& value) {
    if (!value.empty() &&
        std::ranges::find(push.labels, name, &std::pair<std::string, std::string>::first) ==
            push.labels.end()) {
      push.labels.emplace_back(name, value);
    }
  };
  add("instance", host);
  add("job", push.hasNodeNames ? "node" : "qmt");
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
  settings.host = TextMember(*gate, "host");
  settings.names.push_back(settings.host);
  settings.certificate = TextMember(*gate, "certificate");
  settings.key = TextMember(*gate, "key");
  settings.users = TextMember(*gate, "users");
  settings.tokens = TextMember(*gate, "tokens");
  const Json* arguments = gate->Find("arguments");
  settings.showsArguments = arguments == nullptr || !arguments->IsBool() || arguments->Bool();
  settings.state = TextMember(*gate, "state");
  if (const Json* push = gate->Find("push"); push != nullptr && push->IsArray()) {
    for (const Json& target : push->Elements()) {
      settings.push.push_back(ReadPush(target));
      NameSource(settings.push.back(), settings.host);
    }
  }
  if (const Json* alarms = gate->Find("alarms"); alarms != nullptr && alarms->IsObject()) {
    settings.alarms = {TextList(*alarms, "alertmanager"), TextList(*alarms, "webhook"),
                       TextMember(*alarms, "link"), ReadSending(*alarms)};
  }
  return true;
}
