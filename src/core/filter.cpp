#include "processing/filter.h"

namespace Velmor::Processing {

Filter::Filter() = default;
Filter::Filter(Filter const&) = default;
Filter::Filter(Filter&&) noexcept = default;
Filter& Filter::operator=(Filter const&) = default;
Filter& Filter::operator=(Filter&&) noexcept = default;
Filter::~Filter() = default;

}  // namespace Velmor::Processing
