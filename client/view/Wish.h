#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/ask/AlarmAnswers.h"
#include "client/ask/Answers.h"

/// Which moment is to be seen.
enum class Moment {
  kNow,     ///< looks, one after the other
  kAt,      ///< the kept rows of the time nearest to the wish's
  kBefore,  ///< those of the last kept time before the wish's
  kAfter    ///< those of the first kept time after it; now, where there is none
};

/// A record that is to be seen.
struct WantedRows {
  std::string record;
  /// Labels; what these are worked out from and the keys come besides. None: all.
  std::vector<std::string> columns;
  /// Conditions of --where, all of which must hold.
  std::vector<std::string> where;
};

/// The field whose kept values are to be drawn over time.
struct WantedPlot {
  std::string record;
  std::string label;
  std::vector<std::string> where;
  std::int64_t seconds = 0;  ///< how far back from the moment
};

/// What the screen wants to know.
struct Wish {
  std::uint64_t number = 0;  ///< tells wishes apart; greater ones are newer
  Moment moment = Moment::kNow;
  std::int64_t time = 0;   ///< seconds since the epoch; of kNow nothing
  std::size_t count = 1;   ///< how many kept times kBefore and kAfter go
  bool isFromNow = false;  ///< what kBefore goes back from is not kept, but looked at
  std::string steps;       ///< the record whose kept times kBefore and kAfter go along
  std::vector<WantedRows> records;
  bool wantsAlarms = false;
  bool wantsTrends = false;             ///< kept rows of the minutes before, for sparklines
  std::optional<std::int64_t> process;  ///< whose workgroup and rule are wanted
  std::optional<WantedPlot> plot;
  std::optional<std::uint64_t> alarm;  ///< the one whose rows are wanted
};

/// The rows of one record.
struct SeenRows {
  Json rows = Json::Array();
  std::shared_ptr<const Schema> schema;  ///< null where the daemon has none
  std::int64_t time = 0;                 ///< when they were made, seconds since the epoch
  std::string error;                     ///< why there are none
  /// Kept rows that are further from the moment than the record's schedule has between two.
  bool isFar = false;
};

/// What a wish has come to.
struct Sight {
  std::uint64_t wish = 0;
  bool isNow = true;
  bool isFirst = false;   ///< has a record that no look before it is there to compare with
  std::int64_t time = 0;  ///< the moment, seconds since the epoch
  std::map<std::string, std::shared_ptr<const SeenRows>> records;
  std::map<std::string, SeenRows> trends;  ///< kept rows of the minutes before the moment
  std::vector<std::string> abnormal;       ///< applications whose verdict that is
  std::optional<AlarmListing> alarms;
  std::optional<AlarmDetails> alarm;
  std::optional<ReportTable> workgroups;
  std::vector<std::pair<std::int64_t, double>> plot;  ///< time and mean
  std::string plotError;
  Status status;
  std::vector<Listing> listing;  ///< the records that the daemon knows
  std::string note;              ///< what the operator has to know of the moment
  std::string failure;           ///< why there is nothing; all else is then empty
};
