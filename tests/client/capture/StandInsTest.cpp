#include "client/capture/StandIns.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <sys/socket.h>

#include "client/capture/BinaryMask.h"
#include "client/capture/TextMask.h"
#include "tests/support/Testing.h"

namespace {

using namespace std::string_literals;

constexpr KeyedHash::Key kKey{0x0706050403020100U, 0x0f0e0d0c0b0a0908U};

TEST(StandInsTest, TheHashIsThatOfThePublishedVectors) {
  // Of the bytes 0, 1, 2 and so on under the key of the bytes 0 to 15.
  const struct {
    int bytes;
    std::uint64_t value;
  } cases[] = {{0, 0x726fdb47dd0e0e31U},
               {1, 0x74f839c593dc67fdU},
               {8, 0x93f5f5799a932462U},
               {15, 0xa129ca6149be45e5U}};
  for (const auto& row : cases) {
    KeyedHash hash(kKey);
    for (int byte = 0; byte < row.bytes; ++byte) {
      hash.Add(static_cast<unsigned char>(byte));
    }
    EXPECT_EQ(hash.Value(), row.value) << row.bytes;
  }
}

TEST(StandInsTest, AWordKeepsItsKindsOfLettersAndItsBeginning) {
  const StandIns standIns(kKey);
  const std::string word = standIns.Word("--password=Hunter2");
  EXPECT_EQ(word.size(), 18U);
  EXPECT_TRUE(word.starts_with("--"));
  EXPECT_EQ(word[10], '=');
  EXPECT_TRUE(word[11] >= 'A' && word[11] <= 'Z') << word;
  EXPECT_TRUE(word.back() >= '0' && word.back() <= '9') << word;
  EXPECT_EQ(word.find("Hunter"), std::string::npos);
  EXPECT_EQ(standIns.Word("--password=Hun"), word.substr(0, 14));
  EXPECT_NE(StandIns({1, 2}).Word("--password=Hunter2"), word);
  EXPECT_EQ(standIns.Serial("  00a1b2f").substr(0, 2), "  ");
  EXPECT_EQ(standIns.Serial("  00a1b2f").substr(2), standIns.Serial("00a1b2f"));
  EXPECT_EQ(standIns.Serial("00a1b2f").find_first_not_of("0123456789abcdef"), std::string::npos);
}

TEST(StandInsTest, NamesAreToldApartAndNoneIsAnother) {
  StandIns standIns(kKey);
  standIns.Avoid("ab");
  std::set<std::string> made;
  for (char first = 'a'; first <= 'z'; ++first) {
    for (char second = 'a'; second <= 'r'; ++second) {
      made.insert(standIns.Name({first, second}));
    }
  }
  EXPECT_EQ(made.size(), 26U * 18U);
  EXPECT_FALSE(made.contains("ab"));
  EXPECT_EQ(standIns.Name("aa"), standIns.Name("aa"));
}

TEST(StandInsTest, ArgumentsKeepTheirCountAndTheProgram) {
  const StandIns standIns(kKey);
  const std::string line("/usr/bin/env\0A=1\0\0two words\0", 28);
  const std::string masked = standIns.Arguments(line);
  ASSERT_EQ(masked.size(), line.size());
  EXPECT_TRUE(masked.starts_with("/usr/bin/env"));
  for (std::size_t place = 0; place < line.size(); ++place) {
    EXPECT_EQ(masked[place] == '\0', line[place] == '\0') << place;
  }
  EXPECT_EQ(masked.find("two"), std::string::npos);
  EXPECT_EQ(standIns.Arguments("\x1b]0;x a").substr(1), standIns.Arguments(" ]0;x a").substr(1));
  // As a record has it, cut.
  EXPECT_EQ(standIns.Arguments("env A=1 two wo"),
            "env" + masked.substr(12, 4).replace(0, 1, " ") + ' ' + masked.substr(18, 6));
}

TEST(StandInsTest, AddressesAndWordsAreReplacedWhereverTheyStand) {
  StandIns standIns(kKey);
  TextMask mask(standIns);
  mask.Replace("alice", "ALICE");
  mask.Replace("web-01", "HOST");
  mask.Replace("web-01.example.org", "LONG");
  const auto four = [&](const char* text) { return mask.Text(text); };
  // What is replaced by itself stays.
  for (const std::string& text :
       CutAt(',',
             "127.0.0.1,0.0.0.0 255.255.255.0 224.0.0.1,::1,:: ::/0,ff02::1,"
             "00:00:00:00:00:00,ff:ff:ff:ff:ff:ff,12:34:56,malice alice2 alice_x,"
             "0000:00:1f.2,libx.so.1.2.3.4,std::abc,1.2.3,1.2.3.4.5,256.1.1.1,"
             "6.1.0-13-amd64")) {
    EXPECT_EQ(mask.Text(text), text);
  }
  EXPECT_EQ(mask.Text("/home/alice:alice,web-01.example.org web-01.other web-01"),
            "/home/ALICE:ALICE,LONG HOST.other HOST");
  const std::string address = four("192.0.2.7");
  EXPECT_TRUE(address.starts_with("10."));
  EXPECT_EQ(four("addr=192.0.2.7,x 192.0.2.7:80 192.0.2.7."),
            "addr=" + address + ",x " + address + ":80 " + address + '.');
  EXPECT_EQ(mask.Text("2001:db8::7"), mask.Text("2001:0db8:0:0::7"));
  EXPECT_TRUE(mask.Text("2001:db8::7").starts_with("fd"));
  EXPECT_TRUE(mask.Text("fe80::1:2").starts_with("fe80::"));
  EXPECT_EQ(mask.Text("::ffff:192.0.2.7"), "::ffff:" + address);
  EXPECT_EQ(mask.Text("0A:1b:2C:3d:4e:5f"), mask.Text("0a:1b:2c:3d:4e:5f"));
  EXPECT_TRUE(mask.Text("0a:1b:2c:3d:4e:5f").starts_with("02:"));
  EXPECT_EQ(mask.Bytes(std::string("x\0alice\0"
                                   "192.0.2.7",
                                   17)),
            std::string("x\0ALICE\0"
                        "192.0.2.7",
                        17));
}

TEST(StandInsTest, AddressesInColumnsAndStructuresAreThoseOfTexts) {
  StandIns standIns(kKey);
  const std::string four = HexOfBytes(standIns.Address("\xc0\x00\x02\x07"s.replace(1, 1, 1, '\0')));
  const std::string bytes = BytesOfHex(four);
  const std::string swapped(bytes.rbegin(), bytes.rend());
  std::string upper = HexOfBytes(swapped);
  for (char& digit : upper) {
    digit = digit >= 'a' ? static_cast<char>(digit - 0x20) : digit;
  }
  EXPECT_EQ(MaskHexColumns("  0: 070200C0:0050 0100007F:1F90 0A 12345678\n", true, standIns),
            "  0: " + upper + ":0050 0100007F:1F90 0A 12345678\n");
  EXPECT_EQ(MaskHexColumns("00000000000000000000000000000001 01 80 lo\n", false, standIns),
            "00000000000000000000000000000001 01 80 lo\n");
  // A message about an address: a head, the structure, an attribute of 8 bytes that is cut short.
  std::string datagram = BytesOfHex(
      "20000000140002000000000000000000"
      "0218800002000000"
      "08000100"
      "c0000207");
  MaskNetlink(0, datagram, standIns);
  EXPECT_EQ(HexOfBytes(datagram).substr(56), four);
  for (const std::size_t size : {0U, 15U, 20U, 27U, 31U}) {
    std::string cut = datagram.substr(0, size);
    MaskNetlink(0, cut, standIns);
    EXPECT_EQ(cut, datagram.substr(0, size));
  }
}

TEST(StandInsTest, AddressesOfSocketsAreMaskedInEachKindOfAnswer) {
  StandIns standIns(kKey);
  for (const int type : {SOCK_DIAG_BY_FAMILY, TCPDIAG_GETSOCK}) {
    for (const int family : {AF_INET, AF_INET6}) {
      const std::size_t size = family == AF_INET ? 4 : 16;
      const std::string address = BytesOfHex("20010db8000000000000000000000007").substr(0, size);
      ::inet_diag_msg socket{};
      socket.idiag_family = static_cast<std::uint8_t>(family);
      std::memcpy(socket.id.idiag_src, address.data(), size);
      std::memcpy(socket.id.idiag_dst, address.data(), size);
      ::nlmsghdr head{};
      head.nlmsg_len = sizeof(head) + sizeof(socket);
      head.nlmsg_type = static_cast<std::uint16_t>(type);
      std::string datagram(reinterpret_cast<const char*>(&head), sizeof(head));
      datagram.append(reinterpret_cast<const char*>(&socket), sizeof(socket));
      const std::string before = datagram;
      MaskNetlink(NETLINK_ROUTE, datagram, standIns);
      EXPECT_EQ(datagram, before) << type;
      MaskNetlink(NETLINK_SOCK_DIAG, datagram, standIns);
      const std::size_t source = sizeof(head) + offsetof(::inet_diag_msg, id.idiag_src);
      EXPECT_EQ(datagram.substr(source, size), standIns.Address(address)) << type;
      EXPECT_EQ(datagram.substr(source + 16, size), standIns.Address(address)) << type;
      EXPECT_EQ(datagram.find(address), datagram.npos) << type;
    }
  }
}

}  // namespace
