#include "gate/access/KeyFiles.h"

#include "gate/access/AccessError.h"
#include "tests/gate/KeyPair.h"
#include "tests/support/TempFolder.h"

namespace {

class KeyFilesTest : public ::testing::Test {
 protected:
  KeyFilesTest() {
    MakeKeyPair(m_folder.Path() / "one", m_expires);
    MakeKeyPair(m_folder.Path() / "two", m_expires);
  }

  [[nodiscard]] std::string Path(const std::string& name) const { return m_folder.Path() / name; }
  void Write(const std::string& name, const std::string& text, mode_t mode = 0600) const {
    std::ofstream(Path(name)) << text;
    ::chmod(Path(name).c_str(), mode);
  }
  [[nodiscard]] std::string Wrong(const std::string& certificate, const std::string& key) const {
    try {
      static_cast<void>(LoadCertificate(Path(certificate), Path(key)));
    } catch (const AccessError& error) {
      return error.what();
    }
    return {};
  }

  const std::int64_t m_expires = std::time(nullptr) + 1000;
  TempFolder m_folder;
};

TEST_F(KeyFilesTest, ACertificateAndItsKey) {
  const CertificateTexts texts = LoadCertificate(Path("one.crt"), Path("one.key"));
  EXPECT_EQ(texts.certificate, m_folder.Read("one.crt"));
  EXPECT_EQ(texts.key, m_folder.Read("one.key"));
  EXPECT_EQ(texts.expires, m_expires);
  Write("text", "-----BEGIN CERTIFICATE-----\nAAAA\n");
  EXPECT_THAT(Wrong("one.crt", "two.key"), HasSubstr("two.key: it is not the key"));
  EXPECT_THAT(Wrong("text", "one.key"), HasSubstr("text: it holds no certificate"));
  EXPECT_THAT(Wrong("one.key", "one.key"), HasSubstr("one.key: it holds no certificate"));
  EXPECT_THAT(Wrong("one.crt", "one.crt"), HasSubstr("one.crt: it holds no key"));
  EXPECT_THAT(Wrong("one.crt", "none"), HasSubstr("none: No such file"));
}

TEST_F(KeyFilesTest, WhoMayReadTheKey) {
  const std::pair<mode_t, const char*> cases[] = {
      {0600, ""},
      {0400, ""},
      {0640, ""},
      {0660, "group may write"},
      {0644, "others may reach"},
      {0602, "others may reach"},
  };
  for (const auto& [mode, wrong] : cases) {
    ::chmod(Path("one.key").c_str(), mode);
    const std::string told = Wrong("one.crt", "one.key");
    EXPECT_EQ(told.empty(), *wrong == '\0') << told;
    EXPECT_THAT(told, HasSubstr(wrong));
  }
  if (::geteuid() == 0) {
    ::chmod(Path("one.key").c_str(), 0640);
    ASSERT_EQ(::chown(Path("one.key").c_str(), 0, 54321), 0);
    EXPECT_THAT(Wrong("one.crt", "one.key"), HasSubstr("none of the own"));
    ASSERT_EQ(::chown(Path("one.key").c_str(), 54321, 0), 0);
    EXPECT_THAT(Wrong("one.crt", "one.key"), HasSubstr("belongs to another user"));
  }
}

}  // namespace
