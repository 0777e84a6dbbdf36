#pragma once

#include "velmorapi/layout.h"

namespace Velmor::Processing {

/// How an operation walks a voxel layout: the host's traversal mode and an
/// optional range of tree depths. The base of filters and mixers.
///
/// If either depth is below 1 all depths are visited, else those from the first
/// to the second: the default (-1, -1) means all, and so does (0, 3). A value
/// type; one object may serve many threads as long as none changes it.
class VELMOR_EXPORT Traverser {
 public:
  /// Mode 3, depths (-1, -1).
  Traverser();
  Traverser(Traverser const& other);
  Traverser& operator=(Traverser const& other);
  virtual ~Traverser();

  /// Stores the mode, whatever it is.
  void setTraversalMode(API::TraversalMode mode);
  /// The mode as it was stored. Not for const objects, unlike `depths`.
  API::TraversalMode traversalMode();

  /// Stores the pair and returns true; returns false and keeps the old pair if
  /// `minDepth` is above `maxDepth`. Zero and negative depths are accepted.
  bool setDepths(int minDepth, int maxDepth);
  /// The stored pair, the first depth before the last.
  orlen::Math::vec<2, int> const& depths() const;

 protected:
  /// Walks the layout with these settings; the host's status does not count.
  void traverse(API::Layout const& layout, API::Visitor& visitor) const;

 private:
  API::TraversalMode mode_ = API::TraversalMode::Tiles;
  orlen::Math::vec<2, int> depths_{-1, -1};
};

}  // namespace Velmor::Processing
