#include "velmorapi/object_model.h"

#include "core/server_item.h"
#include "model/graph.h"
#include "model/message.h"
#include "model/object_name.h"
#include "model/query_text.h"
#include "velmorhost/scene.h"
#include "velmorhost/settings.h"

namespace Velmor::Host {

namespace {

class QueryItem final : public API::Item {
 public:
  static bool is(API::ItemKind kind) { return kind == API::ItemKind::Query; }

  QueryItem() : Item(API::ItemKind::Query, {}) {}

  std::optional<QueryText> text;
};

/// Objects with names that a query cannot hold are found as importers show them.
bool matches(QueryText const& query, API::Ref const& object) {
  auto const& name = object.item()->name();
  return query.name.empty() || name == query.name || queryName(name) == query.name;
}

}  // namespace

void publish(API::Object const& object, API::String const& graph, API::Runtime::Frame frame) {
  if (!object.valid()) return;
  auto const found = GraphRegistry::instance().findOrCreate(graph.str());
  auto const item = API::itemAs<GraphItem>(found);
  if (item == nullptr) return;
  item->publish(object, frame);
  auto const& name = object.item()->name();
  if (!queryCarries(name))
    report(Severity::Warning, about(name, "addressed as '" + queryName(name) +
                                              "': a query cannot hold the object's name"));
}

}  // namespace Velmor::Host

namespace Velmor::API {

using Host::GraphRegistry;
using Host::QueryItem;

Query::Query(Ref const& ref) noexcept : Ref(refAs<QueryItem>(ref)) {}

void Query::load(String const& text) const {
  if (auto const query = itemAs<QueryItem>(*this)) query->text = Host::parseQuery(text.str());
}

bool Query::valid() const {
  auto const query = itemAs<QueryItem>(*this);
  return query != nullptr && query->text.has_value();
}

QueryBinding Query::binding() const {
  if (!valid()) return {};
  auto const& text = *itemAs<QueryItem>(*this)->text;
  return {text.graph, text.frame};
}

String Query::info() const {
  auto const query = itemAs<QueryItem>(*this);
  if (query == nullptr) return {};
  auto const text = query->text.value_or(Host::QueryText{});
  return "Query Filters: name=" + text.name + ",type=object,component=*; Binding: graph='" +
         text.graph + "',frame=" + std::to_string(text.frame);
}

Array<Ref> Query::run() const {
  Array<Ref> found;
  if (!valid()) return found;
  auto const& text = *itemAs<QueryItem>(*this)->text;
  auto const graph = GraphRegistry::instance().find(text.graph);
  auto const item = itemAs<Host::GraphItem>(graph);
  if (item == nullptr) return found;
  for (auto const& object : item->published(text.frame))
    if (Host::matches(text, object)) found.add(object);
  return found;
}

Ref ObjectModel::createQuery() { return Ref(new QueryItem); }

Ref ObjectModel::stateServer(StateID id) { return findStateServer(id); }

Ref ObjectModel::activeGraph(String const& nameOrPath) {
  return GraphRegistry::instance().find(nameOrPath.str());
}

Ref ObjectModel::createActiveGraph(String const& path) {
  if (Host::mustFail(Host::Call::CreateActiveGraph)) return {};
  return GraphRegistry::instance().create(path.str());
}

void ObjectModel::removeActiveGraph(String const& nameOrPath) {
  auto const graph = GraphRegistry::instance().remove(nameOrPath.str());
  if (auto const item = itemAs<Host::GraphItem>(graph)) item->forgetPublished();
}

}  // namespace Velmor::API
