#include "Loom/Node.h"

namespace Loom {

void Node::lastUserGone() noexcept {
  // The one place where the framework gives a node's storage back; nodes are only ever created
  // by Loom::make, which pairs with this.
  delete this;
}

}  // namespace Loom
