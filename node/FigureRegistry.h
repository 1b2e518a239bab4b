#pragma once

#include <functional>
#include <string>
#include <vector>

enum class FigureKind { kCounter, kGauge };

/// One figure that the agent has to say of itself.
struct Figure {
  std::string name;  ///< snake case with its unit at the end, as in "collect_cpu_seconds"
  std::string help;  ///< one sentence
  FigureKind kind = FigureKind::kGauge;
  std::function<double()> read;
  /// Where several figures are one for several things: the name without the thing, what kind of
  /// thing it is and which one, as in "collect_seconds", "category", "cpu".
  struct Group {
    std::string name;
    std::string label;
    std::string value;
    std::string help;
  };
  Group group = {};
};

/// The agent's figures of itself, in the order in which they were added. Whoever adds a figure
/// outlives the last reading.
class FigureRegistry {
 public:
  static FigureRegistry& Instance();

  /// A second figure of the same name replaces the first.
  void Add(Figure figure);
  [[nodiscard]] const std::vector<Figure>& Figures() const { return m_figures; }

 private:
  std::vector<Figure> m_figures;
};
