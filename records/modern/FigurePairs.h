#pragma once

#include <span>

#include "records/RecordStructures.h"

/// A field of a record and the figure of a source that it shows as it is.
template <class Record, class Figures>
struct FigurePair {
  Double Record::*field;
  double Figures::*figure;
};

/// Puts in what the pairs say, divided by `divisor`.
template <class Record, class Figures>
void PutFigures(Record& row, const Figures& figures,
                std::span<const FigurePair<Record, Figures>> pairs, double divisor = 1) {
  for (const FigurePair<Record, Figures>& pair : pairs) {
    row.*pair.field = figures.*pair.figure / divisor;
  }
}
