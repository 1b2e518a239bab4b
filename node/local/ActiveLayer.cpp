#include "node/NodeLayer.h"
#include "node/local/LocalNode.h"

namespace {

// Signal handlers and late destructors reach the node at any time of the process's life, so it is
// there before the first constructor and is never destroyed.
union Holder {
  constexpr Holder() : node() {}
  ~Holder() {}
  LocalNode node;
};
constinit Holder g_holder;

}  // namespace

NodeLayer& ActiveNodeLayer() { return g_holder.node; }
