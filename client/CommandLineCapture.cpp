#include <CLI/CLI.hpp>

#include "client/CommandLine.h"

namespace {

void AddCapture(CLI::App& app, CommandLine& line) {
  constexpr std::uint64_t kMostSamples = 100'000;
  constexpr std::uint64_t kLongestPause = 86'400;
  CaptureOptions& options = line.capture;
  CLI::App* capture = app.add_subcommand("capture", "Take a host along in a folder or a file");
  capture->add_option("FILE", options.target, "A new file named *.tar.zst, or a new folder")
      ->required();
  TakeNumber(capture->add_option("--every", options.everySeconds,
                                 "Seconds from sample to sample, 10 if not given"),
             1, kLongestPause)
      ->option_text("S");
  TakeNumber(capture->add_option("--count", options.count, "Samples, 1 if not given"), 1,
             kMostSamples)
      ->option_text("N");
  TakeOneOf(capture
                ->add_option("--profile", options.profile,
                             "classic or modern; that of the daemon if not given")
                ->option_text("PROFILE"),
            line, {"classic", "modern"});
  capture->add_flag("--private", options.isPrivate,
                    "Replace command lines, and names and addresses of people and hosts");
  capture
      ->add_option("--since", options.since,
                   "Take the daemon's kept rows from this time on, as of history; 1h if not given")
      ->option_text("TIME");
  capture->callback([&] { line.run = [&] { return RunCaptureCommand(line.common, options); }; });
}

void AddReplay(CLI::App& app, CommandLine& line) {
  ReplayOptions& options = line.replay;
  CLI::App* replay = app.add_subcommand("replay", "Show a host that was captured");
  replay->add_option("FILE", options.source, "The capture, packed or as a folder")->required();
  replay->add_option("RECORD", options.what.records,
                     "Records to show, as in get; without one the host is viewed");
  replay
      ->add_option("--speed", options.speed,
                   "How many times as fast as it was made samples follow, 1 if not given")
      ->option_text("X");
  replay->add_option("--over", options.overSeconds, "Seconds from look to look, as of get")
      ->option_text("S");
  replay->add_flag("--raw", options.what.raw, "The record as it is, as of get");
  AddChoice(replay, options.what.choice);
  AddFormats(replay, line);
  replay->callback([&app, &line, &options] {
    line.run = [&] {
      options.what.format = ChosenFormat(line);
      options.hasView = !app.get_subcommands([](const CLI::App* command) {
                              return command->get_name() == "view";
                            })
                             .empty();
      return RunReplay(line.common, options);
    };
  });
}

}  // namespace

void AddCaptureCommands(CLI::App& app, CommandLine& line) {
  AddCapture(app, line);
  AddReplay(app, line);
}
