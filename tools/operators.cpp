#include "operators.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <sstream>
#include <utility>

#include "channel_edits.h"
#include "failure.h"
#include "names.h"
#include "processing/extend_filter.h"
#include "processing/pointwise_filters.h"
#include "processing/smooth_filter.h"
#include "processing/stencil_filters.h"
#include "value_types.h"
#include "vectors.h"

namespace Velmor::Tool {

namespace {

using Processing::ExtendFilter;
using Float2 = orlen::Math::vec<2, float>;

struct Kind {
  char const* name;
  char const* arguments;
  std::size_t fewest, most;
  char const* explanation;
};

constexpr std::array<Kind, 12> kinds{{
    {"offset", "V", 1, 1, "adds V"},
    {"scale", "V", 1, 1, "multiplies by V"},
    {"remap", "INMIN:INMAX:OUTMIN:OUTMAX", 4, 4,
     "maps [INMIN, INMAX] to [OUTMIN, OUTMAX] and goes on evenly outside; the slope of\n"
     "integers is a whole number"},
    {"dilate", "V", 1, 1, "moves a level set's surface outwards by V world units"},
    {"erode", "V", 1, 1, "moves a level set's surface inwards by V world units"},
    {"mean", "", 0, 0, "the mean of a voxel and its 26 neighbours"},
    {"median", "", 0, 0, "the median of a voxel and its 26 neighbours"},
    {"laplacian", "", 0, 0, "the mean of the six face neighbours less the voxel"},
    {"curvature", "", 0, 0,
     "a third of a level set's mean curvature in voxels, times the voxel size"},
    {"smooth", "laplacian|curvature:ITERATIONS:STEP", 3, 3,
     "adds STEP times the Laplacian or the curvature, ITERATIONS times (up to 10000), in\n"
     "leaf tiles"},
    {"ocean", "HEIGHT:CX,CZ:DX,DZ:RADIUS[:MASKNAME]", 4, 5,
     "joins a liquid with the plane y = HEIGHT over the rectangle of size DX,DZ around\n"
     "CX,CZ; MASKNAME keeps the mask of the ocean, which falls off over RADIUS at its\n"
     "border; world units"},
    {"uvs", "CX,CZ:DX,DZ", 2, 2,
     "fills a two-component float channel, made if missing, with the position in a\n"
     "rectangle: 0,0 at its lower and 1,1 at its upper corner; world units"},
}};

Kind const& kindOf(std::string const& name) {
  std::vector<std::string> names;
  for (auto const& kind : kinds) {
    if (name == kind.name) return kind;
    names.emplace_back(kind.name);
  }
  throw Failure(ExitCode::Usage, "",
                "no operator '" + name + "'; there is " + quotedList(names, "none") +
                    didYouMean(name, names));
}

[[noreturn]] void badValue(std::string const& operation, std::string const& text,
                           std::string const& wanted) {
  throw Failure(ExitCode::Usage, "", operation + ": '" + text + "' is not " + wanted);
}

bool isFinite(double value) {
  return std::abs(static_cast<float>(value)) <= std::numeric_limits<float>::max();
}

/// A value of a channel's type: one number per component between commas.
template <class T>
T parseValue(std::string const& operation, std::string const& text) {
  using C = typename Components<T>::Scalar;
  constexpr auto count = static_cast<std::size_t>(Components<T>::count);
  auto const wanted = [&] {
    std::string const kind = std::is_integral_v<C> ? "integer" : "number";
    return count == 1 ? (kind == "integer" ? "an integer" : "a number")
                      : std::to_string(count) + ' ' + kind + "s between commas";
  };
  auto const numbers = parseVector<count>(text);
  if (!numbers) badValue(operation, text, wanted());
  T value{};
  for (int c = 0; c < Components<T>::count; ++c) {
    double const number = (*numbers)[static_cast<std::size_t>(c)];
    if constexpr (std::is_integral_v<C>) {
      if (std::trunc(number) != number || number < std::numeric_limits<C>::min() ||
          number > std::numeric_limits<C>::max()) {
        badValue(operation, text, wanted());
      }
    } else if (!isFinite(number)) {
      badValue(operation, text, wanted());
    }
    Components<T>::at(value, c) = static_cast<C>(number);
  }
  return value;
}

double parseNumber(std::string const& operation, std::string const& text) {
  auto const number = parseVector<1>(text);
  if (!number || !isFinite((*number)[0])) badValue(operation, text, "a number");
  return (*number)[0];
}

std::array<double, 2> parsePair(std::string const& operation, std::string const& text) {
  auto const pair = parseVector<2>(text);
  if (!pair || !isFinite((*pair)[0]) || !isFinite((*pair)[1])) {
    badValue(operation, text, "two numbers between commas");
  }
  return *pair;
}

template <class F>
F restricted(F filter, OperatorTarget const& target) {
  if (target.depths) filter.setDepths((*target.depths)[0], (*target.depths)[1]);
  return filter;
}

/// In place, at the depths of the target.
template <class F>
Operator::Step pointwise(F const& filter, OperatorTarget const& target) {
  return [set = restricted(filter, target)](API::VoxelChannel const& channel) {
    set.filter(channel, channel);
  };
}

/// Through a channel of its own; without a choice of depths in leaf tiles alone.
template <class F>
Operator::Step stencil(OperatorTarget const& target) {
  auto leaves = target;
  int const leaf = API::Layout(target.component.layout()).maxDepth();
  if (!leaves.depths) leaves.depths = {leaf, leaf};
  return [filter = restricted(F(), leaves),
          back = restricted(Processing::IdentityFilter<float>(), leaves),
          component = target.component](API::VoxelChannel const& channel) {
    ScratchChannel const scratch(component, API::DataType::Float);
    filter.filter(channel, scratch.channel());
    back.filter(scratch.channel(), channel);
  };
}

template <class T>
bool anyComponentEqual(T const& a, T const& b) {
  for (int c = 0; c < Components<T>::count; ++c) {
    if (Components<T>::at(a, c) == Components<T>::at(b, c)) return true;
  }
  return false;
}

template <class T>
Operator::Step bindPointwise(std::string const& name, std::vector<std::string> const& arguments,
                             OperatorTarget const& target) {
  using namespace Processing;
  auto const value = parseValue<T>(name, arguments[0]);
  if (name == "offset") return pointwise(OffsetFilter<T>(value), target);
  if (name == "scale") return pointwise(ScaleFilter<T>(value), target);
  if (name == "dilate") return pointwise(DilateFilter<T>(value), target);
  if (name == "erode") return pointwise(ErodeFilter<T>(value), target);
  auto const inMax = parseValue<T>(name, arguments[1]);
  if (anyComponentEqual(value, inMax)) {
    throw Failure(ExitCode::Usage, "", "remap: INMIN and INMAX are equal");
  }
  return pointwise(RemapFilter<T>(value, inMax, parseValue<T>(name, arguments[2]),
                                  parseValue<T>(name, arguments[3])),
                   target);
}

Operator::Step bindPointwise(std::string const& name, std::vector<std::string> const& arguments,
                             OperatorTarget const& target) {
  return byType(target.type, [&](auto value) {
    return bindPointwise<decltype(value)>(name, arguments, target);
  });
}

void requireType(std::string const& name, API::DataType wanted, OperatorTarget const& target) {
  if (target.type == wanted) return;
  throw Failure(ExitCode::Input, "",
                name + ": works on " + typeName(wanted) + " values; '" + target.name + "' holds " +
                    typeName(target.type));
}

Operator::Step bindSmooth(std::vector<std::string> const& arguments) {
  using Smooth = Processing::SmoothFilter<float>;
  if (arguments[0] != "laplacian" && arguments[0] != "curvature") {
    auto const nearest = nearestName(arguments[0], {"laplacian", "curvature"});
    badValue("smooth", arguments[0],
             nearest.empty() ? "'laplacian' or 'curvature'" : "'" + nearest + "'");
  }
  std::uint32_t iterations = 0;
  auto const& count = arguments[1];
  auto const parsed = std::from_chars(count.data(), count.data() + count.size(), iterations);
  if (parsed.ec != std::errc() || parsed.ptr != count.data() + count.size()) {
    badValue("smooth", count, "a number of iterations");
  }
  if (iterations > std::uint32_t{mostSmoothing}) {
    badValue("smooth", count, "a number of iterations up to " + std::to_string(mostSmoothing));
  }
  Smooth const filter(arguments[0] == "laplacian" ? Smooth::Laplacian : Smooth::Curvature,
                      iterations, static_cast<float>(parseNumber("smooth", arguments[2])));
  return [filter](API::VoxelChannel const& channel) { filter.filter(channel, channel); };
}

/// A rectangle in world units as the library takes it: in those of the cache.
struct Rectangle {
  Float2 center, dimension;
};

Rectangle parseRectangle(std::string const& name, std::string const& center,
                         std::string const& dimension, OperatorTarget const& target) {
  auto const c = parsePair(name, center), d = parsePair(name, dimension);
  if (!(d[0] > 0. && d[1] > 0.)) badValue(name, dimension, "the size of a rectangle");
  return {Float2(static_cast<float>(c[0] - target.origin[0]),
                 static_cast<float>(c[1] - target.origin[2])),
          Float2(static_cast<float>(d[0]), static_cast<float>(d[1]))};
}

/// Throws unless an ocean is of a size that can be meant.
void checkOcean(OperatorTarget const& target, double height, Rectangle const& at) {
  API::Layout const layout(target.component.layout());
  double const voxel = layout.voxelScale();
  double const tile = 5.;
  auto const tiles = [&](double low, double high) {
    return std::floor((std::ceil(high / voxel) - std::floor(low / voxel)) / tile) + 1.;
  };
  double const x0 = double{at.center.x} - at.dimension.x / 2., x1 = x0 + at.dimension.x;
  double const z0 = double{at.center.y} - at.dimension.y / 2., z1 = z0 + at.dimension.y;
  double const count = tiles(x0, x1) * tiles(z0, z1) * 4.;
  if (count > static_cast<double>(target.maxTiles)) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << "ocean: covers some " << count << " leaf tiles, more than --max-tiles "
         << target.maxTiles;
    throw Failure(ExitCode::Usage, "", text.str());
  }
  auto const root = layout.tileDimInfo(0).extent;
  double const reach = (root / 2) * voxel;
  for (double const bound : {x0, x1, z0, z1, height}) {
    if (std::abs(bound) < reach) continue;
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << "ocean: reaches beyond the " << root << " voxels that a cache can hold";
    throw Failure(ExitCode::Usage, "", text.str());
  }
}

Operator::Step bindOcean(std::vector<std::string> const& arguments, std::string const& mask,
                         OperatorTarget const& target) {
  double const height = parseNumber("ocean", arguments[0]) - target.origin[1];
  auto const at = parseRectangle("ocean", arguments[1], arguments[2], target);
  auto const radius = static_cast<float>(parseNumber("ocean", arguments[3]));
  if (radius < 0.f) badValue("ocean", arguments[3], "a radius, which is 0 or more");
  checkOcean(target, height, at);
  ExtendFilter const filter(static_cast<float>(height), at.center, at.dimension, radius, mask);
  return [filter](API::VoxelChannel const& channel) { filter.filter(channel, channel); };
}

Operator::Step bindUvs(std::vector<std::string> const& arguments, OperatorTarget const& target) {
  auto const at = parseRectangle("uvs", arguments[0], arguments[1], target);
  ExtendFilter const filter(0.f, at.center, at.dimension, 0.f, "");
  return [filter](API::VoxelChannel const& channel) { filter.uvs(channel); };
}

}  // namespace

Operator::Operator(std::string text) : text_(std::move(text)) {
  auto const pieces = API::String(text_).split(':');
  name_ = pieces[0].str();
  auto const& kind = kindOf(name_);
  for (std::size_t i = 1; i < pieces.count(); ++i) arguments_.push_back(pieces[i].str());
  if (arguments_.size() < kind.fewest || arguments_.size() > kind.most) {
    throw Failure(ExitCode::Usage, "",
                  "'" + text_ + "': is written " + name_ +
                      (kind.most == 0 ? "" : std::string(":") + kind.arguments));
  }
}

bool Operator::isOcean() const { return name_ == "ocean"; }

bool Operator::makesChannel() const { return name_ == "uvs"; }

bool Operator::keepsDistance() const { return name_ != "laplacian" && name_ != "curvature"; }

bool Operator::wantsDistance() const {
  return name_ == "dilate" || name_ == "erode" || name_ == "curvature" || isOcean() ||
         (name_ == "smooth" && arguments_[0] == "curvature");
}

std::string Operator::maskName() const {
  return isOcean() && arguments_.size() == 5 ? arguments_[4] : std::string();
}

Operator::Step Operator::bind(OperatorTarget const& target) const {
  if (kindOf(name_).arguments[0] == 'V' || name_ == "remap") {
    return bindPointwise(name_, arguments_, target);
  }
  if (name_ == "uvs") {
    requireType(name_, API::DataType::Float2, target);
    return bindUvs(arguments_, target);
  }
  requireType(name_, API::DataType::Float, target);
  if (name_ == "mean") return stencil<Processing::MeanFilter<float>>(target);
  if (name_ == "median") return stencil<Processing::MedianFilter<float>>(target);
  if (name_ == "laplacian") return stencil<Processing::LaplacianFilter<float>>(target);
  if (name_ == "curvature") return stencil<Processing::CurvatureFilter<float>>(target);
  if (name_ == "smooth") return bindSmooth(arguments_);
  return bindOcean(arguments_, maskName(), target);
}

std::string Operator::list() {
  std::string text;
  for (auto const& kind : kinds) {
    text += kind.name;
    if (kind.most > 0) text += std::string(":") + kind.arguments;
    text += "\n    ";
    for (char const* c = kind.explanation; *c != '\0'; ++c) {
      text += *c;
      if (*c == '\n') text += "    ";
    }
    text += '\n';
  }
  return text +
         "V and the bounds of remap are of the channel's type, the components of a vector\n"
         "between commas. Stencils, smooth and ocean work on float channels.\n";
}

}  // namespace Velmor::Tool
