#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "collect/CategoryFlags.h"

class Collector;
class UtlError;

/// What the agent says of one category.
struct CategoryFigures {
  double seconds = 0.0;        ///< how long the last run took
  std::uint64_t errors = 0;    ///< failed runs
  bool isFailed = false;       ///< whether the last run failed
  bool isPartial = false;      ///< for want of a descriptor alone: its rows are those of now
  std::uint64_t entities = 0;  ///< rows after the last run
  /// Whether this host has what the category tells, as of the last run: a failure for want of it is
  /// a state of the host and none of the two above.
  bool isSupported = true;
  /// Whether the category has been run, or is one of both host profiles.
  bool isPublished = false;
};

struct Category;

/// One category's part of one run, from its start to the moment before its source is destroyed.
class CategoryStep {
 public:
  CategoryStep(const Category& category, CollectionMask flags, CategoryFigures& figures)
      : m_category(category), m_flags(flags), m_figures(figures) {}
  void Start() const;
  /// Takes the source's result, owned, the rows now held and whether this host can have any.
  /// Returns the error if it ends the run, else null.
  [[nodiscard]] UtlError* Finish(UtlError* error, std::size_t entities, bool isSupported);

 private:
  const Category& m_category;
  CollectionMask m_flags;
  CategoryFigures& m_figures;
};

/// One row of the table of categories.
struct Category {
  CollectionMask flag;
  const char* name;    ///< in the collector's traces; null keeps it out of them
  const char* figure;  ///< the category's part of the names of its figures
  /// Makes the source, runs it and ends the step.
  using Run = UtlError* (*)(Collector& collector, CategoryStep& step);
  Run run;  ///< null for a category of the profile `modern` alone
  /// The same by the source of the profile `modern`; null where it is the same source.
  Run runModern = nullptr;
};

/// All categories in the order in which they are collected.
[[nodiscard]] std::span<const Category> Categories();
