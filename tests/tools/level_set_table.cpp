// Prints a table of what became of every level set below a folder.
#include <cstdio>
#include <iomanip>
#include <locale>
#include <sstream>

#include "tools/level_sets.h"

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
  if (argc != 2) {
    std::fprintf(stderr, "usage: velmor-level-set-table DATA\n");
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
  std::fputs(table.c_str(), stdout);
  return 0;
}
