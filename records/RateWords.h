#pragma once

#include "node/LayoutRegistry.h"
#include "records/RecordStructures.h"

/// What rate(counter) says in a layout: the member whose growth is divided.
template <class Counter>
struct GrowthOf {
  Counter counter;
};
template <class Counter>
GrowthOf(Counter) -> GrowthOf<Counter>;

/// `Visit(visit)` calls `visit(member, meaning)` for each field of the layout, with the pointer to
/// the member, and for a rate `visit(member, meaning, GrowthOf{counter})`.
template <class Record>
struct RateWords;

#define BEGIN(structure, className, name, kind, bytes) \
  template <>                                          \
  struct RateWords<structure> {                        \
    using Row = structure;                             \
    template <class Visitor>                           \
    static constexpr void Visit(const Visitor& visit) {
#define FIELD(type, member, label, meaning, ...) visit(&Row::member, FieldMeaning::meaning);
#define rate(counter) \
  rate, GrowthOf { &Row::counter }
#define percent(looks) percent
#define share(part, whole) percent
#define gauge(looks) gauge
#define duration(looks) duration
#define load(counter) percent
#define average(sum, count) gauge
// clang-format off
#define END() } };
// clang-format on
#include "records/layout/All.def"
