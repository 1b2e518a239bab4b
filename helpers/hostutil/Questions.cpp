#include "helpers/hostutil/Questions.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "helpers/hostutil/Resolver.h"
#include "support/HostNameWire.h"
#include "support/Uninterrupted.h"

namespace {

/// One record, or less: what was written with another size. 0 at the end.
ssize_t ReadRecord(int descriptor, HostNameWire& record) {
  return Uninterrupted([&] { return ::read(descriptor, &record, sizeof record); });
}

bool WriteRecord(int descriptor, const HostNameWire& record) {
  return Uninterrupted([&] { return ::write(descriptor, &record, sizeof record); }) ==
         sizeof record;
}

}  // namespace

int ServeQuestions(int questions, int answers, bool isTelling, std::FILE* told) {
  for (;;) {
    HostNameWire record;
    const ssize_t size = ReadRecord(questions, record);
    if (size == 0) {
      return 0;
    }
    if (size < 0) {
      std::fprintf(told, "qmt_hostutil: the pipe can't be read: %s\n", std::strerror(errno));
      return 1;
    }
    if (size != sizeof record || !record.IsTerminated()) {
      std::fprintf(told, "qmt_hostutil: a malformed record of %zd bytes is refused\n", size);
      continue;
    }
    Resolve(record);
    if (isTelling) {
      std::fprintf(told, "qmt_hostutil: \"%s\" is \"%s\" at \"%s\"\n", record.query.data(),
                   record.resultName.data(), record.resultAddress.data());
    }
    if (!WriteRecord(answers, record)) {
      return errno == EPIPE ? 0 : 1;
    }
  }
}
