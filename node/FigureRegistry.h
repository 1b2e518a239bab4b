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

/// What the agent says of itself in words.
struct Fact {
  std::string name;  ///< snake case
  std::string text;
};

/// The agent's figures of itself, in the order in which they were added. Whoever adds a figure
/// outlives the last reading.
class FigureRegistry {
 public:
  static FigureRegistry& Instance();

  /// A second figure of the same name replaces the first.
  void Add(Figure figure);
  [[nodiscard]] const std::vector<Figure>& Figures() const { return m_figures; }
  /// Adds a fact, or replaces the text of the one with this name.
  void SetFact(const std::string& name, std::string text);
  /// In the order in which they were added.
  [[nodiscard]] const std::vector<Fact>& Facts() const { return m_facts; }

 private:
  std::vector<Figure> m_figures;
  std::vector<Fact> m_facts;
};
