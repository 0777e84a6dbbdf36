// Prints the medians of benchmark results as tables, one per program.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iomanip>
#include <locale>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Json = nlohmann::ordered_json;

std::string number(double value) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << std::setprecision(3);
  if (value >= 1000 && value < 1e9) text << std::fixed << std::setprecision(0);
  text << value;
  return text.str();
}

bool isMedian(Json const& run) {
  // Measurements of a single repetition have no aggregates.
  return run.value("aggregate_name", "median") == "median" && !run.contains("error_occurred");
}

std::string nameOf(Json const& run) {
  auto name = run.value("run_name", run.value("name", std::string()));
  // How it was run, not what was.
  for (std::string const how : {"/iterations:", "/repeats:", "/real_time"}) {
    auto const at = name.find(how);
    if (at == std::string::npos) continue;
    name.erase(at, std::min(name.find('/', at + 1), name.size()) - at);
  }
  return name;
}

// What google benchmark itself puts into a result; everything else is a counter.
bool isOwnField(std::string const& key) {
  static std::set<std::string> const own{"name",
                                         "family_index",
                                         "per_family_instance_index",
                                         "run_name",
                                         "run_type",
                                         "repetitions",
                                         "threads",
                                         "aggregate_name",
                                         "aggregate_unit",
                                         "iterations",
                                         "real_time",
                                         "cpu_time",
                                         "time_unit",
                                         "items_per_second",
                                         "bytes_per_second",
                                         "repetition_index",
                                         "label"};
  return own.count(key) > 0;
}

std::string tableOf(Json const& runs) {
  std::string rows;
  for (auto const& run : runs) {
    if (!isMedian(run)) continue;
    rows += "| `" + nameOf(run) + "` | " + number(run["real_time"].get<double>()) + " " +
            run["time_unit"].get<std::string>() + " | ";
    if (run.contains("items_per_second")) {
      auto const rate = run["items_per_second"].get<double>();
      rows += number(1e9 / rate) + " | " + number(rate * 1e-6);
    } else {
      rows += " | ";
    }
    rows += " | ";
    bool first = true;
    for (auto const& [key, value] : run.items()) {
      if (isOwnField(key) || !value.is_number()) continue;
      rows += (first ? "" : ", ") + key + " " + number(value.get<double>());
      first = false;
    }
    if (run.contains("label")) rows += (first ? "" : ", ") + run["label"].get<std::string>();
    rows += " |\n";
  }
  return rows.empty() ? rows
                      : "| benchmark | time | ns per item | million items/s | counters |\n"
                        "|---|---|---|---|---|\n" +
                            rows;
}

std::string titleOf(std::string const& path) {
  auto const name = path.substr(path.rfind('/') + 1);
  return name.substr(0, name.rfind(".json"));
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    std::ifstream file(argv[i]);
    auto const results = Json::parse(file, nullptr, false);
    if (results.is_discarded() || !results.contains("benchmarks")) {
      std::fprintf(stderr, "velmor-bench-table: %s: no benchmark results\n", argv[i]);
      return 1;
    }
    auto const table = tableOf(results["benchmarks"]);
    if (!table.empty()) std::printf("### %s\n\n%s\n", titleOf(argv[i]).c_str(), table.c_str());
  }
  return 0;
}
