#include "mesh_writer.h"

#include <algorithm>

#include "failure.h"

namespace Velmor::Tool {

namespace {

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

}  // namespace

std::vector<MeshFormat> const& meshFormats() {
  static std::vector<MeshFormat> const formats = {{"ply", "PLY", writePly, true},
                                                  {"obj", "OBJ", writeObj, true},
                                                  {"stl", "STL", writeStl, false}};
  return formats;
}

MeshFormat const& meshFormat(std::string const& path) {
  auto const extension = extensionOf(path);
  if (extension.empty() && isSpecialOutput(path)) return meshFormats().front();
  std::string known;
  for (auto const& format : meshFormats()) {
    if (extension == format.extension) return format;
    known += std::string(known.empty() ? "" : ", ") + "." + format.extension;
  }
  throw Failure(ExitCode::Usage, path,
                (extension.empty() ? "no extension" : "unknown extension '." + extension + "'") +
                    "; known are " + known);
}

}  // namespace Velmor::Tool
