#include "tests/gate/push/WriteText.h"

#include <snappy.h>

#include <protozero/pbf_reader.hpp>

#include "tests/support/Testing.h"

std::vector<std::string> WriteText(const std::string& body) {
  std::string message;
  std::vector<std::string> lines;
  if (!snappy::Uncompress(body.data(), body.size(), &message)) {
    ADD_FAILURE() << "the body is not compressed";
    return lines;
  }
  protozero::pbf_reader request(message);
  while (request.next(1)) {
    protozero::pbf_reader series = request.get_message();
    std::string labels;
    while (series.next()) {
      const bool isLabel = series.tag() == 1;
      protozero::pbf_reader part = series.get_message();
      std::ostringstream sample;
      while (part.next()) {
        if (isLabel) {
          labels += part.tag() == 2 ? "=" : labels.empty() ? "" : ",";
          labels += part.get_string();
        } else if (part.tag() == 1) {
          sample << part.get_double();
        } else {
          sample << '@' << part.get_int64();
        }
      }
      if (!isLabel) {
        lines.push_back(labels + ' ' + sample.str());
      }
    }
  }
  return lines;
}
