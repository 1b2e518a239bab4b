#include "local/SendingKeys.h"

#include "local/SectionReader.h"

namespace {

constexpr const char* kSendingUser = "User";
constexpr const char* kPasswordFile = "Password File";
constexpr const char* kTokenFile = "Token File";
constexpr const char* kAuthority = "Certificate Authority";
constexpr const char* kClientCertificate = "Client Certificate";
constexpr const char* kClientKey = "Client Key";

}  // namespace

SendingKeys ReadSendingKeys(SectionReader& section) {
  SendingKeys keys;
  if (const IniSetting* user = section.Find(kSendingUser); user != nullptr) {
    keys.user = user->value;
    if (keys.user.find(':') != std::string::npos) {
      section.NoteWrong(*user, "a name without a colon");
      keys.isFaulty = true;
    }
  }
  keys.passwordFile = section.Text(kPasswordFile);
  keys.tokenFile = section.Text(kTokenFile);
  keys.authority = section.Text(kAuthority);
  section.Need(kSendingUser, kPasswordFile);
  section.Need(kPasswordFile, kSendingUser);
  section.Exclude(kTokenFile, kPasswordFile);
  keys.isFaulty = keys.isFaulty || keys.user.empty() != keys.passwordFile.empty() ||
                  (!keys.tokenFile.empty() && !keys.passwordFile.empty());
  return keys;
}

void ReadClientKeys(SectionReader& section, SendingKeys& keys) {
  keys.clientCertificate = section.Text(kClientCertificate);
  keys.clientKey = section.Text(kClientKey);
  section.Need(kClientCertificate, kClientKey);
  section.Need(kClientKey, kClientCertificate);
}
