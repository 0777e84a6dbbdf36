// Writes the table of real level sets into a document, between its markers.
#include <cstdio>
#include <iomanip>
#include <locale>
#include <sstream>

#include "tools/level_sets.h"
#include "tools/run.h"

namespace {

std::string rowOf(std::string const& file, Velmor::Test::LevelSetResult const& r) {
  std::ostringstream row;
  row.imbue(std::locale::classic());
  row << "| " << file << " | " << r.channel.substr(r.channel.find('/') + 1) << " | ";
  if (!r.error.empty()) {
    row << "| | " << r.error << " |\n";
    return row.str();
  }
  row << r.mode << " | " << r.reason << " | ";
  if (r.triangles == 0) {
    row << "no surface |\n";
    return row.str();
  }
  row << r.triangles << " triangles, " << r.openEdges << " open edges";
  if (r.mode != "rebuild") {
    row << std::setprecision(2) << ", vertices within " << r.farthest << " voxels";
  }
  row << " |\n";
  return row.str();
}

}  // namespace

int main(int argc, char** argv) {
  using namespace Velmor::Test;
  if (argc != 3) {
    std::fprintf(stderr, "usage: velmor-level-set-table DATA DOCUMENT\n");
    return 2;
  }
  auto const files = vdbFiles(argv[1]);
  if (files.empty()) {
    std::fprintf(stderr, "velmor-level-set-table: %s: no .vdb files\n", argv[1]);
    return 3;
  }
  std::string table = "| file | channel | choice | why | result |\n|---|---|---|---|---|\n";
  for (auto const& file : files) {
    for (auto const& result : meshLevelSets(std::string(argv[1]) + "/" + file)) {
      table += rowOf(file, result);
    }
  }
  auto text = readFile(argv[2]);
  std::string const begin = "<!-- table -->\n", end = "<!-- end of table -->\n";
  auto const from = text.find(begin), to = text.find(end);
  if (from == text.npos || to == text.npos || to < from) {
    std::fprintf(stderr, "velmor-level-set-table: %s: no place for the table\n", argv[2]);
    return 1;
  }
  text.replace(from + begin.size(), to - from - begin.size(), table);
  writeFile(argv[2], text);
  std::fputs(table.c_str(), stdout);
  return 0;
}
