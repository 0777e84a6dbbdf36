#include "processing/sampler.h"

#include <array>
#include <type_traits>
#include <utility>

#include "core/to_int.h"

namespace Velmor::Processing {

namespace {

using orlen::Math::vec;
using Vec3f = vec<3, float>;

template <class T>
inline constexpr bool isFloating = std::is_same_v<T, float> || std::is_same_v<T, vec<2, float>> ||
                                   std::is_same_v<T, vec<3, float>>;

// The type of a sample of N channels of T.
template <int N, class T>
using Sampled = std::conditional_t<N == 1, T, vec<N == 2 ? 2 : 3, float>>;

template <class T>
void store(T const& value, Sample& out) {
  std::memcpy(out.words, &value, sizeof(T));
}

}  // namespace

class Sampler::Impl {
 public:
  virtual ~Impl() = default;
  virtual Impl* clone() const = 0;
  virtual API::DataType dataType() const = 0;
  virtual void sample(Vec3f const& pos, Sample& out) const = 0;
  virtual void sampleGradient(Vec3f const& pos, Vec3f& grad) const = 0;

 protected:
  Impl() = default;
  Impl(Impl const&) = default;
};

template <int N, class T>
class Sampler::ChannelSamplerT final : public Sampler::Impl {
  static_assert(N == 1 || std::is_same_v<T, float>);

 public:
  explicit ChannelSamplerT(API::Array<API::VoxelChannel> const& channels) {
    for (std::size_t c = 0; c < N; ++c) channels_[c] = channels[c];
    API::Layout const layout(channels_[0].layout());
    maxDepth_ = layout.maxDepth();
    tileWidth_ = layout.tileDimInfo(0).width;
    invVoxelScale_ = 1.f / layout.voxelScale();
    accessor_ = layout.tileAccessor();
    createSamplers();
  }

  Impl* clone() const override { return new ChannelSamplerT(*this); }

  API::DataType dataType() const override { return API::dataTypeOf<Sampled<N, T>>; }

  void sample(Vec3f const& pos, Sample& out) const override {
    if constexpr (N > 1) {
      Sampled<N, T> value;
      for (int c = 0; c < N; ++c) {
        value[c] = samplers_[static_cast<std::size_t>(c)].template sample<float>(pos);
      }
      store(value, out);
    } else if constexpr (isFloating<T>) {
      store(samplers_[0].template sample<T>(pos), out);
    } else {
      store(nearest(pos), out);
    }
  }

  void sampleGradient(Vec3f const& pos, Vec3f& grad) const override {
    if constexpr (N == 1 && std::is_same_v<T, float>) {
      samplers_[0].template sampleGradient<float>(pos, grad);
    } else {
      (void)pos;
      (void)grad;
    }
  }

 private:
  // Host samplers remember where they were last, so that every copy needs its own.
  ChannelSamplerT(ChannelSamplerT const& other)
      : Impl(other),
        maxDepth_(other.maxDepth_),
        tileWidth_(other.tileWidth_),
        invVoxelScale_(other.invVoxelScale_),
        channels_(other.channels_),
        accessor_(other.accessor_) {
    createSamplers();
  }

  void createSamplers() {
    for (std::size_t c = 0; c < N; ++c) {
      samplers_[c] = API::VoxelSampler(channels_[c].createSampler(
          API::String(API::VoxelSamplerQBSplineType), API::SamplerSpace::World));
    }
  }

  T nearest(Vec3f const& pos) const {
    Vec3f const v = pos * invVoxelScale_;
    // Toward zero, not down: -0.4 looks for the tile of voxel 0.
    auto const tile = accessor_.tile(toInt(v.x), toInt(v.y), toInt(v.z), maxDepth_);
    if (tile.index().depth == maxDepth_) {
      auto const origin = tile.coord();
      auto const data = channels_[0].template tileData<T>(tile.index());
      // The difference may round up to the width; the remainder brings it back.
      auto const local = [this](float x, int o) {
        return toInt(x - static_cast<float>(o)) % tileWidth_;
      };
      if (data.data != nullptr) {
        return data
            .data[data.offset(local(v.x, origin.i), local(v.y, origin.j), local(v.z, origin.k))];
      }
    }
    return channels_[0].template backgroundValue<T>();
  }

  std::int32_t maxDepth_ = 0;
  std::int32_t tileWidth_ = 0;
  float invVoxelScale_ = 1.f;
  std::array<API::VoxelChannel, N> channels_;
  std::array<API::VoxelSampler, N> samplers_;
  API::TileAccessor accessor_;
};

Sampler::Impl* Sampler::makeImpl(API::Array<API::VoxelChannel> const& channels) {
  if (channels.empty() || !channels[0].valid()) return nullptr;
  auto const type = channels[0].dataType();
  for (auto const& channel : channels) {
    if (!channel.valid() || channel.dataType() != type) return nullptr;
  }
  if (channels.count() == 1) {
    switch (type) {
      case API::DataType::Float:
        return new ChannelSamplerT<1, float>(channels);
      case API::DataType::Float2:
        return new ChannelSamplerT<1, vec<2, float>>(channels);
      case API::DataType::Float3:
        return new ChannelSamplerT<1, vec<3, float>>(channels);
      case API::DataType::Int:
        return new ChannelSamplerT<1, int>(channels);
      case API::DataType::Int2:
        return new ChannelSamplerT<1, vec<2, int>>(channels);
      case API::DataType::Int3:
        return new ChannelSamplerT<1, vec<3, int>>(channels);
      default:
        return nullptr;
    }
  }
  if (type != API::DataType::Float) return nullptr;
  if (channels.count() == 2) return new ChannelSamplerT<2, float>(channels);
  if (channels.count() == 3) return new ChannelSamplerT<3, float>(channels);
  return nullptr;
}

Sampler::Sampler() = default;

Sampler::Sampler(API::VoxelChannel const& channel) : impl_(makeImpl({channel})) {}

Sampler::Sampler(API::VoxelComponent const& component, API::String const& name) {
  // Two channels are only ever looked for as x and y.
  static constexpr std::array<std::array<char const*, 3>, 4> attempts{{
      {"", nullptr, nullptr},
      {"_u", "_v", "_w"},
      {"_x", "_y", "_z"},
      {"_x", "_y", nullptr},
  }};
  for (auto const& suffixes : attempts) {
    API::Array<API::VoxelChannel> channels;
    for (char const* suffix : suffixes) {
      if (suffix != nullptr) channels.add(component.findChannel(name + suffix));
    }
    impl_ = makeImpl(channels);
    if (impl_ != nullptr) return;
  }
}

Sampler::Sampler(Sampler const& other) : impl_(other.impl_->clone()) {}

Sampler::Sampler(Sampler&& other) noexcept : impl_(std::exchange(other.impl_, nullptr)) {}

// NOLINTNEXTLINE(bugprone-unhandled-self-assignment): as it is meant
Sampler& Sampler::operator=(Sampler const& other) {
  // In this order, so that assigning a sampler to itself empties it.
  reset(nullptr);
  if (other.impl_ != nullptr) reset(other.impl_->clone());
  return *this;
}

Sampler& Sampler::operator=(Sampler&& other) noexcept {
  if (this != &other) reset(std::exchange(other.impl_, nullptr));
  return *this;
}

Sampler::~Sampler() { delete impl_; }

void Sampler::reset(Impl* impl) {
  if (impl == impl_) return;
  delete impl_;
  impl_ = impl;
}

bool Sampler::valid() const { return impl_ != nullptr; }

API::DataType Sampler::dataType() const {
  return impl_ != nullptr ? impl_->dataType() : API::DataType::None;
}

void Sampler::sample(Vec3f const& pos, Sample& out) const {
  if (impl_ != nullptr) impl_->sample(pos, out);
}

void Sampler::sampleGradient(Vec3f const& pos, Vec3f& grad) const {
  if (impl_ != nullptr) impl_->sampleGradient(pos, grad);
}

}  // namespace Velmor::Processing
