#include "writers/extension.h"

#include <algorithm>

namespace Velmor::Tool {

std::string extensionOf(std::string const& path) {
  auto const name = path.substr(path.rfind('/') + 1);
  auto const dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0) return "";
  auto extension = name.substr(dot + 1);
  std::transform(extension.begin(), extension.end(), extension.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return extension;
}

}  // namespace Velmor::Tool
