#include "tests/helpers/bpf/TaskFixture.h"

#include <linux/bpf.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>

#include <string_view>

#include "support/Descriptor.h"

namespace {

/// Whether the kernel takes a program of two instructions, of the kind that any may attach.
bool IsTakingPrograms() {
  std::array<::bpf_insn, 2> code{};
  code[0].code = BPF_ALU64 | BPF_MOV | BPF_K;
  code[1].code = BPF_JMP | BPF_EXIT;
  static constexpr std::string_view kFreeLicense = "GPL";
  ::bpf_attr attributes{};
  attributes.prog_type = BPF_PROG_TYPE_KPROBE;
  attributes.insns = reinterpret_cast<std::uintptr_t>(code.data());
  attributes.insn_cnt = code.size();
  attributes.license = reinterpret_cast<std::uintptr_t>(kFreeLicense.data());
  const Descriptor program(
      static_cast<int>(::syscall(SYS_bpf, BPF_PROG_LOAD, &attributes, sizeof attributes)));
  return program.IsOpen();
}

/// Why these tests can't run; empty if they can. Mounts at `folder`.
std::string Prepare(const std::string& folder) {
  if (std::string_view(QMT_BPF_PROGRAM).empty()) {
    return "qmt_bpf is not built here";
  }
  if (::geteuid() != 0) {
    return "root alone may load a BPF program";
  }
  if (!std::filesystem::exists("/sys/kernel/btf/vmlinux")) {
    return "the kernel has no description of itself";
  }
  if (!IsTakingPrograms()) {
    return "the kernel takes no BPF program here";
  }
  // Gone with this process, whatever its end.
  if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) ||
      ::mount("bpf", folder.c_str(), "bpf", 0, nullptr) != 0) {
    return std::string("no BPF file system can be mounted: ") + std::strerror(errno);
  }
  return "";
}

}  // namespace

std::string BpfTest::m_mounted;
std::string BpfTest::m_reason;

void BpfTest::SetUpTestSuite() {
  m_mounted = (std::filesystem::temp_directory_path() / "qmt-bpf-XXXXXX").string();
  ASSERT_NE(::mkdtemp(m_mounted.data()), nullptr);
  m_reason = Prepare(m_mounted);
}

void BpfTest::TearDownTestSuite() {
  ::umount2(m_mounted.c_str(), MNT_DETACH);
  ::rmdir(m_mounted.c_str());
}

void BpfTest::SetUp() {
  if (!m_reason.empty()) {
    GTEST_SKIP() << m_reason;
  }
}

const std::string& BpfTest::Mounted() { return m_mounted; }

HelperEnd RunHelper(const std::vector<std::string>& words, unsigned user) {
  std::array<int, 2> pipe{};
  EXPECT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    std::vector<char*> arguments{const_cast<char*>("qmt_bpf")};
    for (const std::string& word : words) {
      arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    ::dup2(pipe[1], STDOUT_FILENO);
    ::dup2(pipe[1], STDERR_FILENO);
    if (user == 0 || ::setresuid(user, user, user) == 0) {
      ::execv(QMT_BPF_PROGRAM, arguments.data());
    }
    ::_exit(127);
  }
  ::close(pipe[1]);
  HelperEnd end;
  std::array<char, 4096> buffer{};
  for (ssize_t size = 0; (size = ::read(pipe[0], buffer.data(), buffer.size())) > 0;) {
    end.words.append(buffer.data(), static_cast<std::size_t>(size));
  }
  ::close(pipe[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  end.value = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return end;
}

std::vector<TaskFigures> ReadTasks(const std::string& path, std::size_t step) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_TRUE(file.IsOpen()) << path << ": " << std::strerror(errno);
  std::string bytes;
  std::string part(step, '\0');
  for (ssize_t size = 0; (size = ::read(file.Get(), part.data(), part.size())) > 0;) {
    bytes.append(part, 0, static_cast<std::size_t>(size));
  }
  EXPECT_EQ(bytes.size() % sizeof(TaskFigures), 0U) << path;
  std::vector<TaskFigures> tasks(bytes.size() / sizeof(TaskFigures));
  std::memcpy(tasks.data(), bytes.data(), tasks.size() * sizeof(TaskFigures));
  return tasks;
}
