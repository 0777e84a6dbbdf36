#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "velmorapi/runtime.h"

namespace Velmor::Host {

/// What a query asks for.
struct QueryText {
  std::string name;   ///< empty: any object
  std::string graph;  ///< empty: none
  API::Runtime::Frame frame = 0;
};

/// Reads `key=value` pairs between blanks or single commas; a value may stand
/// in double quotes. Nothing if the text is empty, malformed, names a key twice
/// or an unknown one, or gives a key a value that it cannot have.
std::optional<QueryText> parseQuery(std::string_view text);

}  // namespace Velmor::Host
