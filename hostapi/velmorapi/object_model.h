#pragma once

#include "velmorapi/component.h"
#include "velmorapi/export.h"
#include "velmorapi/runtime.h"
#include "velmorapi/state_server.h"

namespace Velmor::API {

/// Where a query looks: the name of an active graph (empty: none) and a frame.
struct QueryBinding {
  String graph;
  Runtime::Frame frame = 0;
};

/// A search for objects in memory, written as one line of `key=value` pairs
/// (frame, name, graph, type) between commas or blanks.
class VELMOR_EXPORT Query : public Ref {
 public:
  Query() noexcept = default;
  Query(Ref const& ref) noexcept;

  /// Reads the text. Empty or malformed text makes the query invalid.
  void load(String const& text) const;
  /// Whether the last `load` understood its text; false before any.
  bool valid() const;
  QueryBinding binding() const;
  /// Description with one "Filters", then "name=" directly followed by the
  /// object name (which may be empty) and a ','.
  String info() const;
  /// The objects in memory that match, in the graph that the query names.
  Array<Ref> run() const;
};

/// The process-wide registry of graphs and states. Safe to call from several
/// threads.
class VELMOR_EXPORT ObjectModel {
 public:
  static Ref createQuery();
  /// The server of an identifier, while anything keeps it alive.
  static Ref stateServer(StateID id);
  /// The active graph of a name or path; invalid for "" and for unknown ones.
  static Ref activeGraph(String const& nameOrPath);
  static Ref createActiveGraph(String const& path);
  /// Forgets the graph; handles to it stay good. Quiet if it is gone.
  static void removeActiveGraph(String const& nameOrPath);
};

}  // namespace Velmor::API
