#include "local/control/ReportQueries.h"

#include <stdexcept>
#include <string>
#include <utility>
#include <variant>

#include "node/ReportRegistry.h"

namespace {

/// A report as a client asks for it.
struct WantedReport {
  std::string name;
  ReportArguments arguments;
};

std::variant<WantedReport, ControlError> ReadWantedReport(const Json& message) {
  WantedReport wanted;
  const Json* name = message.Find("report");
  if (name == nullptr || !name->IsString()) {
    return ControlError{"bad-field", "report must be the name of a report", "report"};
  }
  wanted.name = name->Text();
  const Json* arguments = message.Find("arguments");
  if (arguments == nullptr) {
    return wanted;
  }
  if (!arguments->IsObject()) {
    return ControlError{"bad-field", "arguments must be an object of texts", "arguments"};
  }
  for (const auto& [key, value] : arguments->Members()) {
    if (!value.IsString()) {
      return ControlError{"bad-field", "argument \"" + key + "\" must be a text", "arguments"};
    }
    wanted.arguments.insert_or_assign(key, value.Text());
  }
  return wanted;
}

void RunReport(const ControlRequest& request, const WantedReport& wanted) {
  const ReportFunction* function = ReportRegistry::Instance().Find(wanted.name);
  if (function == nullptr) {
    request.Fail({"unknown-report", "no report \"" + wanted.name + "\"", "report"});
    return;
  }
  Report report;
  try {
    report = (*function)(wanted.arguments);
  } catch (const std::invalid_argument& error) {
    request.Fail({"bad-field", error.what(), "arguments"});
    return;
  } catch (const std::runtime_error& error) {
    request.Fail({"report-failed", error.what(), ""});
    return;
  }
  request.Succeed("report", Json{{"columns", std::move(report.columns)},
                                 {"rows", std::move(report.rows)},
                                 {"notes", std::move(report.notes)}});
}

}  // namespace

void ReportQueries::Report(const std::shared_ptr<ControlRequest>& request) {
  auto wanted = ReadWantedReport(request->Message());
  if (const auto* error = std::get_if<ControlError>(&wanted)) {
    request->Fail(*error);
    return;
  }
  LoopTask task;
  task.isBatch = true;
  task.run = [request, report = std::get<WantedReport>(std::move(wanted))](CMBNode&) {
    if (!request->Peer().IsGone()) {
      RunReport(*request, report);
    }
  };
  task.drop = [request] { request->Fail(StoppingError()); };
  task.fail = [request] { request->FailForMemory(); };
  m_loop.Post(std::move(task));
}
