#pragma once

#include <string>
#include <string_view>

namespace Velmor::Host {

/// Whether a query can hold the object name and clients can build a path and
/// take the name out of the query's description again. False for names with
/// '/', '\\', '"', ',', "..", "name=", "Filters" or control characters.
bool queryCarries(std::string_view name);

/// The name under which queries address an object: as it is, or with '_' in
/// place of each part that a query cannot carry.
std::string queryName(std::string_view name);

/// The name as the first part of a file name. Unlike queries, files mind only
/// '/', control characters, an empty name and a leading '.', which hides files.
std::string fileStem(std::string_view name);

}  // namespace Velmor::Host
