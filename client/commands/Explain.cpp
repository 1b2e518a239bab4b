#include "client/commands/Explain.h"

#include <utility>

#include "client/ask/Connection.h"
#include "client/ask/Errors.h"
#include "client/show/ReportText.h"
#include "client/show/Terminal.h"

int RunExplain(const CommonOptions& common, const ExplainOptions& options) {
  Json arguments = Json::Object();
  if (!options.name.empty()) {
    arguments["name"] = options.name;
  }
  if (!options.pid.empty()) {
    arguments["pid"] = options.pid;
  }
  Connection connection(common.socket);
  const Json answer = connection.Ask(
      {{"op", "report"}, {"report", "workgroups"}, {"arguments", std::move(arguments)}});
  const ReportTable report = ReadReport(answer);
  if (options.json) {
    WriteOutput(ShownJson(answer["report"], 2) + '\n');
  } else {
    WriteOutput(ReportText(report, ReadScreen(common.color)));
  }
  return kExitDone;
}
