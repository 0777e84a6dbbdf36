#pragma once

#include <map>
#include <memory>
#include <string>
#include <variant>

#include "velmorapi/dictionary.h"

namespace Velmor::API {

using DictionaryValue =
    std::variant<bool, int, float, double, orlen::Math::vec<3, float>, std::string>;

/// The values behind a `Dictionary`, open to the host's own code, which needs
/// to know each value's type.
class DictionaryStore {
 public:
  std::map<std::string, DictionaryValue, std::less<>> values;
};

}  // namespace Velmor::API
