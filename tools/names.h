#pragma once

#include <string>
#include <vector>

namespace Velmor::Tool {

/// The candidate that a mistyped name most likely means: the one with the fewest
/// letters to insert, delete, change or swap, if they are no more than a third of
/// the name and one; upper and lower case count as equal. Empty if there is none.
std::string nearestName(std::string const& name, std::vector<std::string> const& candidates);

/// "; did you mean 'x'?" with the nearest name, or nothing: the end of a message
/// about a name that does not fit.
std::string didYouMean(std::string const& name, std::vector<std::string> const& candidates);

/// "'a', 'b', 'c'", or `none` where there is nothing to list.
std::string quotedList(std::vector<std::string> const& names, std::string const& none);

/// Frame numbers with runs drawn together: "1..48, 50". Sorted input.
std::string frameList(std::vector<int> const& frames);

}  // namespace Velmor::Tool
