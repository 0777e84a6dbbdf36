#include "core/banner_text.h"

#include <cstdlib>
#include <iomanip>
#include <locale>
#include <sstream>

namespace Velmor::Processing {

namespace {

// The rule that the version and the environment variable follow: what is no
// number is 0, and what follows a number is ignored.
int leadingNumber(char const* text) {
  return std::atoi(text);  // NOLINT(cert-err34-c)
}

std::string versionText(BuildInfo const& info) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << info.product << " version ";
  char const* separator = "";
  for (char const* const component : info.version) {
    text << separator << leadingNumber(component);
    separator = ".";
  }
  text << " (" << info.date << ", build " << leadingNumber(info.number) << ", commit "
       << std::setw(7) << std::string(info.commit).substr(0, 7) << ", branch " << info.branch
       << ')';
  return text.str();
}

}  // namespace

bool isRequested(char const* variable) {
  char const* const value = std::getenv(variable);
  return value != nullptr && leadingNumber(value) != 0;
}

bool mustPrint(char const* variable, int descriptor) {
  return isRequested(variable) && descriptor >= 0;
}

std::string bannerLine(BuildInfo const& info) {
  std::ostringstream line;
  line << std::setw(16) << info.module << ": " << versionText(info);
  return line.str();
}

}  // namespace Velmor::Processing
