#pragma once

#include "node/LayoutRegistry.h"
#include "records/RecordStructures.h"

// What the words of a layout make a field of: each holds pointers to the members that it names.

template <class Counter>
struct RateWord {
  Counter counter;
};
template <class Counter>
struct LoadWord {
  Counter seconds;
};
template <class Counter>
struct ShareWord {
  Counter part;
  Counter whole;
};
template <class Counter>
struct AverageWord {
  Counter sum;
  Counter count;
};

// A compiler that deduces nothing from braces alone is told.
template <class Counter>
RateWord(Counter) -> RateWord<Counter>;
template <class Counter>
LoadWord(Counter) -> LoadWord<Counter>;
template <class Counter>
ShareWord(Counter, Counter) -> ShareWord<Counter>;
template <class Counter>
AverageWord(Counter, Counter) -> AverageWord<Counter>;

/// `Visit(visit)` calls `visit(member, word)` for each field of the layout, with the pointer to the
/// member and one of the words above; of a field that is made of no other the word is its meaning.
template <class Record>
struct DerivedWords;

#define BEGIN(structure, className, name, kind, bytes)  \
  template <>                                           \
  struct DerivedWords<structure> {                      \
    using Row = structure;                              \
    template <class Visitor>                            \
    static constexpr void Visit(const Visitor& visit) { \
      using enum FieldMeaning;
#define FIELD(type, member, label, meaning, ...) visit(&Row::member, meaning);
#define rate(counter) \
  RateWord { &Row::counter }
#define load(counter) \
  LoadWord { &Row::counter }
#define share(part, whole) \
  ShareWord { &Row::part, &Row::whole }
#define average(sum, count) \
  AverageWord { &Row::sum, &Row::count }
#define percent(looks) percent
#define gauge(looks) gauge
#define duration(looks) duration
// clang-format off
#define END() } };
// clang-format on
#include "records/layout/All.def"
