#include "stopwatch.h"

#include <iomanip>
#include <locale>
#include <sstream>

namespace Velmor::Tool {

double Times::total() const {
  double sum = 0.;
  for (auto const& part : parts_) sum += part.second;
  return sum;
}

Json Times::json() const {
  Json seconds;
  for (auto const& [part, lasted] : parts_) seconds[part] = lasted;
  seconds["total"] = total();
  return seconds;
}

std::string Times::text() const {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << std::fixed << std::setprecision(2) << total();
  char const* before = " (";
  for (auto const& [part, lasted] : parts_) {
    text << before << part << ' ' << lasted;
    before = ", ";
  }
  text << ')';
  return text.str();
}

}  // namespace Velmor::Tool
