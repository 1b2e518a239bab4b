#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "agent/CaptureMode.h"
#include "agent/CheckFile.h"
#include "agent/Service.h"
#include "agent/StartOptions.h"

namespace {

constexpr const char* kNullDevice = "/dev/null";

/// A standard descriptor that is closed at start would be given to the next file that is opened,
/// and messages would go there.
void HoldStandardDescriptors() {
  int descriptor = -1;
  do {
    descriptor = ::open(kNullDevice, O_RDWR);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor > STDERR_FILENO) {
    ::close(descriptor);
  }
}

}  // namespace

int main(int argc, char** argv) {
  HoldStandardDescriptors();
  if (argc > 1 && std::strcmp(argv[1], "--check") == 0) {
    return CheckFile(argc, argv);
  }
  if (argc > 1 && std::strcmp(argv[1], "--capture") == 0) {
    return RunCapture(argc, argv);
  }
  if (const std::string answer = AnswerToWords(argc, argv); !answer.empty()) {
    return std::fputs(answer.c_str(), stdout) < 0 || std::fflush(stdout) != 0 ? 1 : 0;
  }
  return RunService(argc, argv);
}
