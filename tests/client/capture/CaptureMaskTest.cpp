#include "client/capture/CaptureMask.h"

#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include "client/ask/Errors.h"
#include "client/capture/BinaryMask.h"
#include "json/JsonText.h"
#include "support/Descriptor.h"
#include "tests/support/TempFolder.h"

namespace {

/// A capture of a tree of files, whose people, host and addresses the test knows.
class CaptureMaskTest : public ::testing::Test {
 protected:
  CaptureMaskTest() {
    Write("capture.json", R"({"format":1,"agent":"1","host":"web-01.example.org","private":false,)"
                          R"("running":false,"samples":[]})");
    Host("etc/passwd",
         "daemon:x:2:2:The Daemon:/:/bin/sh\nalice:x:1000:1000:Alice Liddell:"
         "/home/alice:/bin/sh\nnobody:x:65534:65534::/:/bin/false\n");
    Host("proc/7/cmdline", std::string("/usr/bin/editor\0--file\0/home/alice/secret.txt\0", 46));
    Host("proc/7/stat", "7 (editor) S 1 7 7 0 -1\n");
    Host("proc/8/cmdline", std::string("sshd: alice [priv]\0", 19));
    Host("proc/net/dev", "eth0: 1 2 3\n");
    Host("proc/self/mountinfo",
         "36 35 0:30 / /mnt/alice rw - nfs4 nas:/export rw,addr=192.0.2.9\n");
    Host("sys/block/sda/device/serial", "  S3RIAL99\n");
    Host("sys/class/net/eth0/address", "0a:1b:2c:3d:4e:5f\n");
    Host("sys/fs/cgroup/alice.slice/cpu.stat", "usage_usec 5\n");
    Write("samples/0001/calls.jsonl",
          R"({"call":"getpwuid 1001","result":0,"text":"bob\n1001\n1001\n/home/bob\n"})"
          "\n"
          R"({"call":"statfs /mnt/alice","result":0,"hex":"0102"})"
          "\n"
          R"({"call":"list /mnt","result":0,"text":"ealice/ibob/"})"
          "\n"
          R"({"call":"uname","result":0,"hex":")" +
              HexOfBytes(std::string("Linux\0web-01.example.org\0", 25)) + "\"}\n");
    Write("samples/0001/records.json",
          R"([{"record":"PDX","category":"4","time":1,"rows":[{"Name":"editor","User":"alice",)"
          R"("Bytes":17,"Command Line":"/usr/bin/editor --file /home/alice/se","Serial Number":)"
          R"("S3RIAL99","Hardware Address":"0a:1b:2c:3d:4e:5f","Machine ID":""}]}])");
    // The history alone knows of who and what is gone.
    Write("history/PDX.jsonl",
          R"({"User":"bob","Command Line":"sh -c x","Record Time":5})"
          "\n"
          R"({"User":"carol","Name":"of-carol","User ID":1009,"Group":"gamma"})"
          "\n"
          R"({"User":"root","Group":"oldsystem","Group ID":77,"Name":"oldsystem"})"
          "\n");
    Write("history/FSR.jsonl", R"({"Host":"filer.lab","Remote File System":"attic:/x"})"
                               "\n");
    Host("proc/9/comm", "carol filer gamma root\n");
  }
  void Write(const std::string& name, const std::string& text) const {
    const std::filesystem::path path = m_folder.Path() / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
  }
  void Host(const std::string& name, const std::string& text) const {
    Write("samples/0001/host/" + name, text);
  }
  [[nodiscard]] std::string ReadHost(const std::string& name) const {
    return m_folder.Read("samples/0001/host/" + name);
  }
  [[nodiscard]] std::string Folder() const { return m_folder.Path().string(); }

  TempFolder m_folder;
};

TEST_F(CaptureMaskTest, NothingPrivateIsLeftAndFiguresStay) {
  CaptureMask mask(Folder());
  mask.Replace();
  mask.Check();
  for (const auto& entry : std::filesystem::recursive_directory_iterator(m_folder.Path())) {
    const std::string path = entry.path().lexically_relative(m_folder.Path()).string();
    const std::string text = entry.is_directory() ? "" : m_folder.Read(path);
    for (const char* word :
         {"alice", "Alice", "Liddell", "bob", "web-01", "example", "secret", "192.0.2.9",
          "nas:", "S3RIAL99", "0a:1b:2c:3d:4e:5f", "carol", "gamma", "filer", "attic"}) {
      EXPECT_EQ((path + '\n' + text).find(word), std::string::npos) << path << ' ' << word;
    }
  }
  const std::string passwd = ReadHost("etc/passwd");
  EXPECT_TRUE(passwd.starts_with("daemon:x:2:2:")) << passwd;
  EXPECT_NE(passwd.find(":x:1000:1000:"), std::string::npos);
  EXPECT_EQ(ReadHost("proc/7/stat"), "7 (editor) S 1 7 7 0 -1\n");
  EXPECT_NE(m_folder.Read("capture.json").find("\"private\": true"), std::string::npos);
  EXPECT_NE(m_folder.Read("history/PDX.jsonl")
                .find(R"({"User":"root","Group":"oldsystem","Group ID":77,"Name":"oldsystem"})"),
            std::string::npos);
}

TEST_F(CaptureMaskTest, OneTextHasOneStandInWhereverItStands) {
  CaptureMask(Folder()).Replace();
  const std::string passwd = ReadHost("etc/passwd");
  const std::size_t line = passwd.find('\n') + 1;
  const std::string user = passwd.substr(line, passwd.find(':', line) - line);
  const Json records = ParseJson(m_folder.Read("samples/0001/records.json")).value;
  const Json& row = records[0]["rows"][0];
  EXPECT_EQ(row["User"].Text(), user);
  EXPECT_EQ(row["Name"].Text(), "editor");
  EXPECT_EQ(row["Bytes"].Whole(), 17);
  std::string arguments = ReadHost("proc/7/cmdline");
  for (char& letter : arguments) {
    letter = letter == '\0' ? ' ' : letter;
  }
  EXPECT_EQ(row["Command Line"].Text(), arguments.substr(0, 37));
  EXPECT_TRUE(ReadHost("proc/8/cmdline").starts_with("sshd: "));
  EXPECT_EQ("  " + row["Serial Number"].Text() + '\n', ReadHost("sys/block/sda/device/serial"));
  EXPECT_EQ(row["Hardware Address"].Text() + '\n', ReadHost("sys/class/net/eth0/address"));
  EXPECT_EQ(ReadHost("sys/fs/cgroup/" + user + ".slice/cpu.stat"), "usage_usec 5\n");
  const std::string calls = m_folder.Read("samples/0001/calls.jsonl");
  EXPECT_NE(calls.find("\"statfs /mnt/" + user + "\""), std::string::npos) << calls;
  EXPECT_NE(calls.find("\"e" + user + "/i"), std::string::npos) << calls;
  EXPECT_NE(ReadHost("proc/self/mountinfo").find(" /mnt/" + user + " rw - nfs4 "),
            std::string::npos);
}

TEST_F(CaptureMaskTest, NamesBeyondAsciiAreCollectedFromAnswersInHex) {
  // One in UTF-8, one that is none and stands in records with a mark in the place of its letter.
  std::string calls;
  for (const char* name : {"ren\xc3\xa9", "bj\xf6rn"}) {
    const std::string answer = std::string(name) + "\n1002\n1002\n/home/" + name + '\n';
    calls += R"({"call":"getpwuid 1002","result":0,"hex":")" + HexOfBytes(answer) + "\"}\n";
  }
  Write("samples/0001/calls.jsonl", calls + R"({"call":"getgrgid 1003","result":0,"hex":")" +
                                        HexOfBytes("\xc3\xa9quipe") + "\"}\n");
  Write(
      "samples/0001/records.json",
      R"([{"record":"PDX","rows":[{"User":"ren\u00e9","Group":"\u00e9quipe","Owner":"bj\ufffdrn",)"
      R"("Path":"/home/ren\u00e9/x"}]}])");
  Host("proc/9/comm", "bj\xf6rn ren\xc3\xa9 \xc3\xa9quipe\n");
  CaptureMask mask(Folder());
  mask.Replace();
  mask.Check();
  const std::string masked = m_folder.Read("samples/0001/calls.jsonl");
  const std::string all = m_folder.Read("samples/0001/records.json") + ReadHost("proc/9/comm");
  for (const char* word : {"ren\xc3\xa9", "\xc3\xa9quipe", "bj\xf6rn", "bj\xef\xbf\xbdrn"}) {
    EXPECT_EQ(all.find(word), std::string::npos) << all;
    EXPECT_EQ(masked.find(HexOfBytes(word)), std::string::npos) << masked;
  }
}

TEST_F(CaptureMaskTest, AStandInThatIsANameByChanceIsReplacedToo) {
  std::string arguments = "sh";
  for (char first = 'a'; first <= 'z'; ++first) {
    for (char second = 'a'; second <= 'z'; ++second) {
      for (int times = 0; times < 8; ++times) {
        arguments += ' ' + std::string(static_cast<std::size_t>(times), '-') + first + second;
      }
    }
  }
  Host("etc/passwd", "vm:x:1000:1000::/:/bin/sh\n");
  Host("proc/9/cmdline", arguments);
  CaptureMask mask(Folder());
  mask.Replace();
  mask.Check();
  EXPECT_EQ(ReadHost("proc/9/cmdline").size(), arguments.size());
}

TEST_F(CaptureMaskTest, AStopEndsItWhereverItIs) {
  const Descriptor stop(::eventfd(0, EFD_CLOEXEC));
  const auto setStop = [&stop](bool isSet) {
    std::uint64_t value = 1;
    const auto done = isSet ? ::write(stop.Get(), &value, sizeof(value))
                            : ::read(stop.Get(), &value, sizeof(value));
    ASSERT_EQ(done, static_cast<ssize_t>(sizeof(value)));
  };
  CaptureMask mask(Folder(), stop.Get());
  setStop(true);
  EXPECT_THROW(mask.Replace(), Interrupted);
  EXPECT_NE(m_folder.Read("capture.json").find("\"private\":false"), std::string::npos);
  setStop(false);
  mask.Replace();
  mask.Check();
  setStop(true);
  EXPECT_THROW(mask.Check(), Interrupted);
  const std::string text(100'000, ' ');
  EXPECT_THROW(static_cast<void>(FindWord(text, {"alice"}, stop.Get())), Interrupted);
}

/// It becomes readable while a file is read whose lines take far longer than that.
TEST_F(CaptureMaskTest, AStopEndsAFileOfManyLines) {
  constexpr int kLines = 2000;
  std::string lines;
  for (int line = 0; line < kLines; ++line) {
    lines += R"({"User":"dora","Record Time":)" + std::to_string(line) + "}\n";
  }
  Write("history/PI.jsonl", lines);
  const auto secondsOf = [this](int stop) {
    const auto begin = std::chrono::steady_clock::now();
    try {
      CaptureMask(Folder(), stop).Replace();
    } catch (const Interrupted&) {
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  };
  const Descriptor soon(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC));
  const ::itimerspec time{{}, {0, 20'000'000}};
  ASSERT_EQ(::timerfd_settime(soon.Get(), 0, &time, nullptr), 0);
  const double stopped = secondsOf(soon.Get());
  EXPECT_NE(m_folder.Read("history/PI.jsonl").find("dora"), std::string::npos);
  EXPECT_LT(stopped, secondsOf(-1) / 2);
}

TEST_F(CaptureMaskTest, WhatCannotBeReplacedOrIsFoundAfterwardsFails) {
  const auto problemOf = [this](bool isAfter) -> std::string {
    try {
      CaptureMask mask(Folder());
      mask.Replace();
      if (isAfter) {
        Host("proc/9/comm", "of alice\n");
      }
      mask.Check();
    } catch (const ClientError& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_NE(problemOf(true).find("samples/0001/host/proc/9/comm has \"alice\""), std::string::npos);
  Host("proc/net/dev", "alice: 1 2 3\n");
  Write("samples/0001/calls.jsonl", R"({"call":"getpwuid 1000","text":"alice\n1000\n1000\n/\n"})"
                                    "\n");
  EXPECT_NE(problemOf(false).find("\"alice\" can't be replaced: it is a word of samples/0001/host/"
                                  "proc/net/dev"),
            std::string::npos);
}

}  // namespace
