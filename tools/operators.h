#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "velmorapi/component.h"

namespace Velmor::Tool {

/// The most passes of smoothing at a time. They reach across the square root of
/// their number, so that more than these are a slip, and would run for hours.
constexpr int mostSmoothing = 10'000;

/// What operators work on.
struct OperatorTarget {
  API::VoxelComponent component;
  API::DataType type = API::DataType::None;
  std::string name;                          ///< of the channel, for messages
  std::array<double, 3> origin{};            ///< of the component: world less cache position
  std::optional<std::array<int, 2>> depths;  ///< as `Traverser::setDepths` takes them
  std::size_t maxTiles = 0;                  ///< most leaf tiles that an ocean may cover
};

/// An operator as the user writes it: a name and its arguments between colons.
class Operator {
 public:
  using Step = std::function<void(API::VoxelChannel const&)>;

  /// Throws a `Failure` of code `Usage` for an unknown name, with the nearest
  /// one, and for a wrong number of arguments.
  explicit Operator(std::string text);

  std::string const& text() const { return text_; }
  bool isOcean() const;
  /// Whether it makes its channel if there is none.
  bool makesChannel() const;
  /// Whether the result is a distance where the input is one.
  bool keepsDistance() const;
  /// Whether it means something on a distance alone.
  bool wantsDistance() const;
  /// The mask channel that it leaves; empty if none.
  std::string maskName() const;

  /// The work on a channel of the target's type, with everything checked that
  /// can be checked beforehand: `Failure` of code `Usage` for values that cannot
  /// be meant, of code `Input` for a type that the operator does not know.
  Step bind(OperatorTarget const& target) const;

  /// What the operators are and do, for `--list`.
  static std::string list();

 private:
  std::string text_;
  std::string name_;
  std::vector<std::string> arguments_;
};

}  // namespace Velmor::Tool
