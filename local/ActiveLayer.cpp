#include "local/LocalNode.h"
#include "node/NodeLayer.h"

// Made at the first call, which opens the tracing before any signal handler is installed, and never
// destroyed: late destructors may still reach it.
NodeLayer& ActiveNodeLayer() {
  static LocalNode& node = *new LocalNode;
  return node;
}
