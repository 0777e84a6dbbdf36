#pragma once

#include <string>

namespace Velmor::Processing {

/// What the build system says about this build, as texts.
struct BuildInfo {
  char const* product;
  char const* module;
  char const* version[4];  // numbers, perhaps with leading zeros
  char const* date;
  char const* number;
  char const* commit;  // 40 hexadecimal digits
  char const* branch;
};

/// Whether the environment variable holds a number other than 0 by the rules of
/// `atoi`: "yes" does not.
bool isRequested(char const* variable);

/// `isRequested`, unless the descriptor of the stream to write to says that
/// there is none (below 0).
bool mustPrint(char const* variable, int descriptor);

/// The line that identifies a build, without its end.
std::string bannerLine(BuildInfo const& info);

}  // namespace Velmor::Processing
