#include "readers/table.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "failure.h"

namespace Velmor::Tool {

Table::Column const* Table::find(std::string const& name) const {
  auto const same = [&name](Column const& column) {
    return std::equal(
        column.name.begin(), column.name.end(), name.begin(), name.end(),
        [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
  };
  auto const found = std::find_if(columns.begin(), columns.end(), same);
  return found != columns.end() ? &*found : nullptr;
}

std::vector<char> readFile(std::string const& path) {
  auto const fail = [&path] { throw Failure(ExitCode::Input, path, std::strerror(errno)); };
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> const file(std::fopen(path.c_str(), "rb"),
                                                             std::fclose);
  if (!file) fail();
  std::vector<char> bytes;
  std::vector<char> block(std::size_t{1} << 20);
  while (std::size_t const count = std::fread(block.data(), 1, block.size(), file.get())) {
    bytes.insert(bytes.end(), block.data(), block.data() + count);
  }
  if (std::ferror(file.get()) != 0) fail();
  return bytes;
}

}  // namespace Velmor::Tool
