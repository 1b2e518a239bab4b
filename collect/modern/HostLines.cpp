#include "collect/modern/HostLines.h"

#include <sys/types.h>

#include "collect/HostFile.h"
#include "collect/modern/ToldOnce.h"

HostLines::HostLines(const char* path) : m_file(OpenHostFile(path)) {
  if (m_file == nullptr) {
    MissingInHost(path);
  } else {
    FoundInHost(path);
  }
}

bool HostLines::Next(std::string_view& line) {
  if (m_file == nullptr) {
    return false;
  }
  char* buffer = m_buffer.release();
  const ssize_t length = ::getline(&buffer, &m_size, m_file.get());
  m_buffer.reset(buffer);
  if (length <= 0) {
    return false;
  }
  line = {buffer, static_cast<std::size_t>(length)};
  line.remove_suffix(line.ends_with('\n') ? 1 : 0);
  return true;
}
