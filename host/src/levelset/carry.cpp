#include "levelset/carry.h"

#include <tbb/enumerable_thread_specific.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "levelset/lanes.h"
#include "levelset/parallel.h"
#include "levelset/region.h"

namespace Velmor::Host {

namespace {

using API::cellPositions;
using API::tileCells;

/// One float of the values of a channel: its first byte, and the bytes from value to value.
struct Source {
  std::byte const* first;
  std::size_t stride;

  float at(std::uint32_t index) const noexcept {
    float value;
    std::memcpy(&value, first + index * stride, sizeof value);
    return std::isfinite(value) ? value : 0.f;
  }
};

class Carrier {
 public:
  Carrier(Particles const& particles, Construction const& construction,
          std::vector<Source> const& sources)
      : particles_(&particles),
        construction_(&construction),
        sources_(&sources),
        region_(particles),
        values_(sources.size()),
        sums_(sources.size()),
        means_(sources.size()) {}

  /// Calls `store(cell, means)` for the voxels of a tile that have particles around.
  template <class Store>
  void run(TilePlace const& place, Store const& store) {
    auto const origin = construction_->field().grid().voxel(place);
    bool const hasBulk = particles_->scale().surfaceRadius > 0.f;
    if (hasBulk) {
      region_.gather(origin, 0.f);
      gatherValues();
    }
    auto const& droplets = construction_->dropletsAt(place);
    for (int c = 0; c < tileCells; ++c) {
      auto const p = cellPositions[static_cast<std::size_t>(c)];
      Point const at{static_cast<float>(p.x) + 0.5f, static_cast<float>(p.y) + 0.5f,
                     static_cast<float>(p.z) + 0.5f};
      std::fill(sums_.begin(), sums_.end(), Lanes{});
      weight_ = Lanes{};
      if (hasBulk && region_.count() > 0) addBulk(at);
      float weight = sumOf(weight_);
      for (std::size_t s = 0; s < sums_.size(); ++s) means_[s] = sumOf(sums_[s]);
      for (auto const d : droplets) weight += addDroplet(d, origin, at);
      if (weight > 1e-20f) {
        for (auto& mean : means_) mean /= weight;
      } else if (!takeNearest(at, origin, droplets, hasBulk)) {
        continue;
      }
      store(c, means_.data());
    }
  }

 private:
  void gatherValues() {
    for (std::size_t s = 0; s < values_.size(); ++s) {
      auto& values = values_[s];
      values.resize(std::max(values.size(), region_.count() + Region::padding));
      for (std::size_t p = 0; p < region_.count(); ++p) {
        values[p] = (*sources_)[s].at(region_.index[p]);
      }
      std::fill_n(values.data() + region_.count(), Region::padding, 0.f);
    }
  }

  float radiusOf(std::size_t p) const noexcept {
    return particles_->adaptive() ? region_.radius[p] : particles_->scale().surfaceRadius;
  }

  void addBulk(Point const& at) {
    bool const adaptive = particles_->adaptive();
    float const nominal = particles_->scale().surfaceRadius;
    region_.forRuns(at.x, at.y, at.z, region_.reach(), [&](std::size_t begin, std::size_t end) {
      for (auto p = begin; p < end; p += 4) {
        auto const ux = load(&region_.x[p]) - at.x, uy = load(&region_.y[p]) - at.y,
                   uz = load(&region_.z[p]) - at.z;
        auto const r = adaptive ? load(&region_.radius[p]) : all(nominal);
        auto const rest = larger(1.f - (ux * ux + uy * uy + uz * uz) / (4.f * r * r), Lanes{}) *
                          load(keep[std::min<std::size_t>(end - p, 4)]);
        auto const w = rest * rest * rest;
        weight_ += w;
        for (std::size_t s = 0; s < sums_.size(); ++s) sums_[s] += w * load(&values_[s][p]);
      }
    });
  }

  static float squaredWay(Droplet const& droplet, API::TileCoord const& origin, Point const& at) {
    auto const way = [](float a, std::int32_t o, float b) {
      return static_cast<float>(double{a} - double{1} * o) - b;
    };
    float const x = way(droplet.centre.x, origin.i, at.x),
                y = way(droplet.centre.y, origin.j, at.y),
                z = way(droplet.centre.z, origin.k, at.z);
    return x * x + y * y + z * z;
  }

  float addDroplet(std::uint32_t d, API::TileCoord const& origin, Point const& at) {
    auto const& droplet = particles_->droplets()[d];
    float const rest =
        1.f - squaredWay(droplet, origin, at) / (4.f * droplet.radius * droplet.radius);
    if (!(rest > 0.f)) return 0.f;
    float const w = rest * rest * rest;
    for (std::size_t s = 0; s < means_.size(); ++s) {
      means_[s] += w * (*sources_)[s].at(particles_->dropletIndices()[d]);
    }
    return w;
  }

  bool takeNearest(Point const& at, API::TileCoord const& origin,
                   std::vector<std::uint32_t> const& droplets, bool hasBulk) {
    float best = 1e30f;
    std::uint32_t nearest = 0;
    if (hasBulk && region_.count() > 0) {
      region_.forRuns(at.x, at.y, at.z, region_.reach(), [&](std::size_t begin, std::size_t end) {
        for (auto p = begin; p < end; ++p) {
          float const x = region_.x[p] - at.x, y = region_.y[p] - at.y, z = region_.z[p] - at.z;
          float const reach = Region::reachOf(radiusOf(p), particles_->scale().margin);
          float const square = x * x + y * y + z * z;
          if (square >= best || square > reach * reach) continue;
          best = square;
          nearest = region_.index[p];
        }
      });
    }
    for (auto const d : droplets) {
      auto const& droplet = particles_->droplets()[d];
      float const reach = Region::reachOf(droplet.radius, particles_->scale().margin);
      float const square = squaredWay(droplet, origin, at);
      if (square >= best || square > reach * reach) continue;
      best = square;
      nearest = particles_->dropletIndices()[d];
    }
    if (!(best < 1e30f)) return false;
    for (std::size_t s = 0; s < means_.size(); ++s) means_[s] = (*sources_)[s].at(nearest);
    return true;
  }

  Particles const* particles_;
  Construction const* construction_;
  std::vector<Source> const* sources_;
  Region region_;
  std::vector<std::vector<float>> values_;  // of the region's particles
  std::vector<Lanes> sums_;
  Lanes weight_{};
  std::vector<float> means_;
};

}  // namespace

void carry(Particles const& particles, Construction const& construction,
           std::vector<CarriedChannel> const& channels) {
  if (channels.empty()) return;
  std::vector<Source> sources;
  for (auto const& channel : channels) {
    for (std::size_t part = 0; part < channel.input->size(); part += sizeof(float)) {
      sources.push_back({channel.input->values() + part, channel.input->size()});
    }
  }
  auto const& layout = channels.front().output->layout();
  auto const& grid = construction.field().grid();
  int const depth = layout.leafDepth();
  tbb::enumerable_thread_specific<Carrier> carriers(
      [&] { return Carrier(particles, construction, sources); });
  forEach(static_cast<std::size_t>(layout.count(depth)), [&](std::size_t s) {
    auto const slot = static_cast<std::int32_t>(s);
    for (auto const& channel : channels) {
      auto const size = channel.output->size();
      for (std::size_t c = 0; c < tileCells; ++c) {
        std::memcpy(channel.output->values(depth, slot) + c * size, channel.output->background(),
                    size);
      }
    }
    carriers.local().run(grid.place(layout.coord(depth, slot)), [&](int cell, float const* means) {
      for (auto const& channel : channels) {
        auto const size = channel.output->size();
        std::memcpy(channel.output->values(depth, slot) + static_cast<std::size_t>(cell) * size,
                    means, size);
        means += size / sizeof(float);
      }
    });
  });
}

}  // namespace Velmor::Host
