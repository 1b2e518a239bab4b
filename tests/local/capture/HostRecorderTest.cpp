#include "local/capture/HostRecorder.h"

#include "support/Descriptor.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;

constexpr int kReaderFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;

/// A tree of a host beside the folder of its capture.
class HostRecorderTest : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(Root() / "proc");
    fs::create_directory(Capture());
  }
  [[nodiscard]] fs::path Root() const { return m_folder.Path() / "host"; }
  [[nodiscard]] fs::path Capture() const { return m_folder.Path() / "capture"; }
  void Write(const std::string& name, const std::string& text) const {
    std::ofstream(Root() / name) << text;
  }
  /// What a reader gets; "errno N" for a failure.
  std::string Read(HostRecorder& recorder, const std::string& name) const {
    const Descriptor file(recorder.Open(AT_FDCWD, (Root() / name).c_str(), kReaderFlags));
    if (!file.IsOpen()) {
      return "errno " + std::to_string(errno);
    }
    std::string text(100, '\0');
    const ssize_t count = ::read(file.Get(), text.data(), text.size());
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return text;
  }

  TempFolder m_folder;
};

TEST_F(HostRecorderTest, AFileIsReadOnceASample) {
  HostRecorder recorder(Capture(), Root());
  ASSERT_TRUE(recorder.BeginSample(1));
  Write("proc/stat", "first");
  EXPECT_EQ(Read(recorder, "proc/stat"), "first");
  EXPECT_EQ(Read(recorder, "proc/none"), "errno " + std::to_string(ENOENT));
  Write("proc/stat", "second");
  Write("proc/none", "is there");
  EXPECT_EQ(Read(recorder, "proc/stat"), "first");
  EXPECT_EQ(Read(recorder, "proc/none"), "errno " + std::to_string(ENOENT));
  ASSERT_TRUE(recorder.BeginSample(2));
  EXPECT_EQ(Read(recorder, "proc/stat"), "second");
  EXPECT_EQ(Read(recorder, "proc/none"), "is there");
  EXPECT_EQ(recorder.Problem(), "");
  EXPECT_EQ(m_folder.Read("capture/samples/0001/host/proc/stat"), "first");
  EXPECT_EQ(m_folder.Read("capture/samples/0002/host/proc/none"), "is there");
}

TEST_F(HostRecorderTest, EndlessFilesAndThoseThatAreNoneAreBounded) {
  HostRecorder recorder(Capture(), Root());
  ASSERT_TRUE(recorder.BeginSample(1));
  constexpr off_t kMegabyte = 1 << 20;
  Write("proc/huge", "huge");
  ASSERT_EQ(::truncate((Root() / "proc/huge").c_str(), 200 * kMegabyte), 0);
  EXPECT_EQ(Read(recorder, "proc/huge").substr(0, 5), std::string("huge\0", 5));
  EXPECT_EQ(fs::file_size(Capture() / "samples/0001/host/proc/huge"), 64U * kMegabyte);
  ASSERT_EQ(::mkfifo((Root() / "proc/pipe").c_str(), 0600), 0);
  fs::create_symlink("/dev/zero", Root() / "proc/zero");
  for (const char* name : {"proc/pipe", "proc/zero"}) {
    EXPECT_EQ(Read(recorder, name), "errno " + std::to_string(EINVAL)) << name;
    EXPECT_FALSE(fs::exists(fs::symlink_status(Capture() / "samples/0001/host" / name))) << name;
  }
  EXPECT_EQ(recorder.Problem(), "");
}

TEST_F(HostRecorderTest, APathTooLongForTheCaptureIsAFailureOfThatFileAlone) {
  const std::string part(200, 'd');
  // The capture's folder is deep, so that what the host's folders still hold goes beyond.
  fs::path deep = Capture();
  constexpr std::size_t kDepth = 3700;
  while (deep.native().size() + 1 < kDepth) {
    deep /= part.substr(0, kDepth - deep.native().size() - 1);
  }
  fs::create_directories(deep);
  fs::create_directories(Root() / "proc" / part / part);
  const std::string name = "proc/" + part + '/' + part + "/file";
  Write(name, "far");
  Write("proc/" + part + "/file", "near");
  HostRecorder recorder(deep, Root());
  ASSERT_TRUE(recorder.BeginSample(1)) << recorder.Problem();
  EXPECT_EQ(Read(recorder, "proc/" + part + "/file"), "near");
  EXPECT_EQ(Read(recorder, name), "errno " + std::to_string(ENAMETOOLONG));
  EXPECT_EQ(recorder.Problem(), "");
}

TEST_F(HostRecorderTest, WhatCannotBeWrittenIsToldAndNoLinkIsFollowed) {
  HostRecorder recorder(Capture(), Root());
  ASSERT_TRUE(recorder.BeginSample(1));
  Write("proc/stat", "text");
  Write("secret", "secret");
  const fs::path place = Capture() / "samples/0001/host/proc/stat";
  fs::create_directories(place.parent_path());
  fs::create_symlink(Root() / "secret", place);
  EXPECT_EQ(Read(recorder, "proc/stat"), "errno " + std::to_string(EIO));
  EXPECT_EQ(recorder.Problem(), place.string() + ": File exists");
  EXPECT_EQ(m_folder.Read("host/secret"), "secret");
}

}  // namespace
