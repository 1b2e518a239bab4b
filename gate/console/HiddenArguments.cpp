#include "gate/console/HiddenArguments.h"

void HideArguments(Json& value) {
  if (value.IsArray()) {
    for (Json& element : value.Elements()) {
      HideArguments(element);
    }
  } else if (value.IsObject()) {
    for (auto& [name, member] : value.Members()) {
      if (name == "Argument List" || name == "Command Line") {
        member = nullptr;
      } else {
        HideArguments(member);
      }
    }
  }
}
