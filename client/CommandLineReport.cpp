#include <CLI/CLI.hpp>

#include "client/CommandLine.h"

void AddReportCommand(CLI::App& app, CommandLine& line) {
  ReportOptions& options = line.report;
  CLI::App* report = app.add_subcommand("report", "Sum up what the daemon has kept of a time");
  report
      ->add_option("--since", options.since,
                   "From this time on, as history takes it; a day before the end if not given")
      ->option_text("TIME");
  report->add_option("--until", options.until, "Up to this time; now if not given")
      ->option_text("TIME");
  report
      ->add_option("--records", options.records,
                   "The parts made of these records alone, parted by commas")
      ->allow_extra_args(false)
      ->option_text("RECORD");
  TakeOneOf(report
                ->add_option("--format", options.format,
                             "text, markdown or html; by the end of the file's name if not given")
                ->option_text("FORMAT"),
            line, {"text", "markdown", "html"});
  report->add_option("--output", options.output, "Replace this file by the report")
      ->option_text("FILE");
  report->callback([&] { line.run = [&] { return RunReport(line.common, line.report); }; });
}
