#pragma once

#include <string>

namespace Velmor::Host {

/// "'<subject>': <text>": how all messages about a path or an object begin.
inline std::string about(std::string const& subject, std::string const& text) {
  std::string message = "'";
  message += subject;
  message += "': ";
  message += text;
  return message;
}

}  // namespace Velmor::Host
