#include "processing/traverser.h"

namespace Velmor::Processing {

Traverser::Traverser() = default;
Traverser::Traverser(Traverser const&) = default;
Traverser& Traverser::operator=(Traverser const&) = default;
Traverser::~Traverser() = default;

void Traverser::setTraversalMode(API::TraversalMode mode) { mode_ = mode; }

API::TraversalMode Traverser::traversalMode() { return mode_; }

bool Traverser::setDepths(int minDepth, int maxDepth) {
  if (minDepth > maxDepth) return false;
  depths_ = {minDepth, maxDepth};
  return true;
}

orlen::Math::vec<2, int> const& Traverser::depths() const { return depths_; }

void Traverser::traverse(API::Layout const& layout, API::Visitor& visitor) const {
  // Below one, not below zero: a range that includes the root means all depths.
  if (depths_[0] < 1 || depths_[1] < 1) {
    layout.traverse(visitor, mode_);
  } else {
    layout.traverse(visitor, mode_, depths_[0], depths_[1]);
  }
}

}  // namespace Velmor::Processing
