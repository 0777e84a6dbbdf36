#include "splash.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

namespace Velmor::Demo {

namespace {

constexpr int fingers = 17;
constexpr float pi = 3.14159265f;

struct Drop {
  float x, y, z, radius;
};

// The same numbers on every machine, unlike the standard distributions.
class Numbers {
 public:
  float next(float from, float to) {
    state_ = state_ * 6364136223846793005u + 1442695040888963407u;
    return from + (to - from) * static_cast<float>(state_ >> 40) / 16777216.f;
  }

 private:
  std::uint64_t state_ = 20250521;
};

struct Crown {
  std::array<float, fingers> length{};
  std::array<Drop, 60> drops{};

  Crown() {
    Numbers numbers;
    for (auto& l : length) l = numbers.next(14.f, 26.f);
    for (auto& drop : drops) {
      float const angle = numbers.next(0.f, 2.f * pi), distance = numbers.next(50.f, 150.f);
      drop = {distance * std::cos(angle), numbers.next(22.f, 90.f) - 0.25f * (distance - 50.f),
              distance * std::sin(angle), numbers.next(1.8f, 4.6f)};
    }
  }
};

// Union with a blend of width k (polynomial smooth minimum).
float blend(float a, float b, float k) {
  float const h = std::max(k - std::abs(a - b), 0.f) / k;
  return std::min(a, b) - h * h * k * 0.25f;
}

struct Place {
  float x, y;
};

// The distance to a segment from a to b in the plane z = 0, whose radius runs
// from r0 to r1.
float taperedSegment(float x, float y, float z, Place a, Place b, float r0, float r1) {
  float const dx = b.x - a.x, dy = b.y - a.y;
  float const t = std::clamp(((x - a.x) * dx + (y - a.y) * dy) / (dx * dx + dy * dy), 0.f, 1.f);
  return std::hypot(x - a.x - t * dx, y - a.y - t * dy, z) - (r0 + t * (r1 - r0));
}

float water(float x, float y, float z, float r) {
  float const fade = std::exp(-r / 110.f);
  float const crater = 26.f * std::exp(-r * r / (44.f * 44.f));
  float const ripple = 9.f * fade * std::cos(0.17f * r - 1.2f);
  float const swell = 1.6f * std::sin(0.045f * x + 0.6f) + 1.3f * std::cos(0.052f * z - 0.03f * x);
  float const height = ripple + swell - crater;
  // Steepness, for a height field's distance to first order.
  float const slope =
      -9.f * fade * (0.17f * std::sin(0.17f * r - 1.2f) + std::cos(0.17f * r - 1.2f) / 110.f) +
      crater * 2.f * r / (44.f * 44.f);
  return (y - height) / std::sqrt(1.f + slope * slope);
}

float pool(float x, float y, float z, float r) {
  // A box with round edges whose top is far above the water.
  constexpr float round = 14.f, top = 60.f;
  float const middle = 0.5f * (top - poolDepth), half = 0.5f * (top + poolDepth) - round;
  float const qx = std::abs(x) - (poolHalfWidth - round);
  float const qy = std::abs(y - middle) - half;
  float const qz = std::abs(z) - (poolHalfWidth - round);
  float const outside = std::hypot(std::max(qx, 0.f), std::max(qy, 0.f), std::max(qz, 0.f)) - round;
  float const box = outside + std::min(std::max({qx, qy, qz}), 0.f);
  return -blend(-box, -water(x, y, z, r), 10.f);
}

}  // namespace

float splashDistance(float x, float y, float z) {
  static Crown const crown;
  float const r = std::hypot(x, z);
  float distance = pool(x, y, z, r);
  // Far from the splash nothing of it can be nearer than the pool.
  if (y < -40.f || r > 200.f) return distance;

  float const wall = taperedSegment(r, y, 0.f, {50.f, -4.f}, {68.f, 34.f}, 5.f, 2.6f);
  distance = blend(distance, wall, 16.f);

  float const step = 2.f * pi / fingers;
  float const angle = std::atan2(z, x) + 2.f * pi;
  int const nearest = static_cast<int>(std::lround(angle / step));
  for (int n = nearest - 1; n <= nearest + 1; ++n) {
    float const off = angle - static_cast<float>(n) * step;
    float const along = r * std::cos(off), across = r * std::sin(off);
    float const length = crown.length[static_cast<std::size_t>(n % fingers)];
    float const tipR = 68.f + 0.45f * length, tipY = 34.f + 0.9f * length;
    float const finger = taperedSegment(along, y, across, {68.f, 34.f}, {tipR, tipY}, 3.4f, 2.f);
    float const bead = std::hypot(along - tipR, y - tipY, across) - 4.2f;
    distance = blend(distance, blend(finger, bead, 4.f), 6.f);
  }

  float const jet = taperedSegment(r, y, 0.f, {0.f, -30.f}, {0.f, 52.f}, 11.f, 3.f);
  distance = blend(distance, jet, 18.f);
  distance = blend(distance, std::hypot(r, y - 68.f) - 6.5f, 8.f);

  for (auto const& drop : crown.drops) {
    distance = blend(distance, std::hypot(x - drop.x, y - drop.y, z - drop.z) - drop.radius, 3.f);
  }
  return distance;
}

}  // namespace Velmor::Demo
