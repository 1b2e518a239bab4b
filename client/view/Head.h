#pragma once

#include <cstddef>
#include <string>

#include "client/view/Canvas.h"
#include "client/view/HeadFigures.h"

/// What the head says besides the host's figures.
struct HeadWords {
  std::string moment;  ///< "NOW 18:30:15", "KEPT 2026-11-26 07:00:00"
  Tone tone = Tone::kGood;
  std::string marked;  ///< since when differences are shown; empty for none
};

/// Lines that the head has on a frame of that height, 6 at most.
[[nodiscard]] std::size_t HeadHeight(std::size_t frameHeight);

/// Draws the host at a glance into the first lines.
void DrawHead(Canvas& canvas, const Sight& sight, const HeadFigures& figures,
              const HeadTrends& trends, const HeadWords& words, bool hasUtf8);
