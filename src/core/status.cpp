#include "processing/status.h"

#include <atomic>
#include <deque>
#include <locale>
#include <memory>
#include <new>
#include <sstream>

namespace Velmor::Processing {

namespace {

std::shared_ptr<std::ostringstream> makeText() {
  auto text = std::make_shared<std::ostringstream>();
  text->imbue(std::locale::classic());  // whatever the process's locale is by now
  return text;
}

// What `make` builds, or null if memory runs out.
template <class Make>
auto orNull(Make make) noexcept -> decltype(make()) {
  try {
    return make();
  } catch (std::bad_alloc const&) {
    return nullptr;
  }
}

// Drops one use, and the implementation with the last one.
template <class Impl>
void release(Impl* impl) noexcept {
  if (impl != nullptr && impl->uses.fetch_sub(1, std::memory_order_acq_rel) == 1) delete impl;
}

template <class Impl>
Impl* share(Impl* impl) noexcept {
  if (impl != nullptr) impl->uses.fetch_add(1, std::memory_order_relaxed);
  return impl;
}

}  // namespace

class Stream::Impl {
 public:
  explicit Impl(std::shared_ptr<std::ostringstream> stream) : text(std::move(stream)) {}

  std::atomic<int> uses{1};  // streams assigned from each other use one implementation
  std::shared_ptr<std::ostringstream> text;

  template <class T>
  static Stream& write(Stream& stream, T const& value) {
    // A stream that runs out of memory goes bad and takes no more; nothing escapes.
    if (stream.impl_ != nullptr) *stream.impl_->text << value;
    return stream;
  }
};

Stream::Stream() : impl_(orNull([] { return new Impl(makeText()); })) {}

Stream::Stream(Stream const& other)
    : impl_(other.impl_ == nullptr ? nullptr
                                   : orNull([&] { return new Impl(other.impl_->text); })) {}

Stream& Stream::operator=(Stream const& other) {
  if (this == &other) return *this;
  auto* const former = impl_;
  impl_ = share(other.impl_);
  release(former);
  return *this;
}

Stream::~Stream() { release(impl_); }

Stream& Stream::operator<<(char const* text) {
  // A null text would make the stream bad for good.
  return text == nullptr ? *this : Impl::write(*this, text);
}
Stream& Stream::operator<<(API::String const& text) { return Impl::write(*this, text); }
Stream& Stream::operator<<(std::string const& text) { return Impl::write(*this, text); }
Stream& Stream::operator<<(char value) { return Impl::write(*this, value); }
Stream& Stream::operator<<(int value) { return Impl::write(*this, value); }
Stream& Stream::operator<<(unsigned int value) { return Impl::write(*this, value); }
Stream& Stream::operator<<(long value) { return Impl::write(*this, value); }
Stream& Stream::operator<<(unsigned long value) { return Impl::write(*this, value); }
Stream& Stream::operator<<(long long value) { return Impl::write(*this, value); }
Stream& Stream::operator<<(unsigned long long value) { return Impl::write(*this, value); }
Stream& Stream::operator<<(float value) { return Impl::write(*this, value); }
Stream& Stream::operator<<(double value) { return Impl::write(*this, value); }

Stream& Stream::operator<<(orlen::Math::vec<2, float> const& value) {
  return *this << value.x << ' ' << value.y;
}

Stream& Stream::operator<<(orlen::Math::vec<3, float> const& value) {
  return *this << value.x << ' ' << value.y << ' ' << value.z;
}

Stream& Stream::operator<<(orlen::Math::bbox<orlen::Math::vec<3, float>> const& value) {
  return *this << "min=" << value.min << " max=" << value.max;
}

API::String Stream::str() const {
  try {
    if (impl_ != nullptr) return {impl_->text->str()};
  } catch (std::bad_alloc const&) {
  }
  return {};
}

class Status::Impl {
 public:
  Stream error;
  std::deque<Stream> warnings;  // adding one moves none
  std::atomic<int> uses{1};     // assigned statuses are handles to one store

  // Takes what there is no memory to keep. Never destroyed, as a status may be
  // written to until the process ends.
  static Stream& nowhere() {
    alignas(Stream) static unsigned char storage[sizeof(Stream)];
    static Stream& stream = *new (storage) Stream(nullptr);
    return stream;
  }
};

Status::Status() : impl_(orNull([] { return new Impl; })) {}

Status& Status::operator=(Status const& other) {
  if (this == &other) return *this;
  auto* const former = impl_;
  impl_ = share(other.impl_);
  release(former);
  return *this;
}

Status::~Status() { release(impl_); }

Stream& Status::fail() { return impl_ == nullptr ? Impl::nowhere() : impl_->error; }

Stream& Status::warn() {
  auto* const added =
      impl_ == nullptr ? nullptr : orNull([this] { return &impl_->warnings.emplace_back(); });
  return added == nullptr ? Impl::nowhere() : *added;
}

Status::operator bool() const {
  auto const* const error = impl_ == nullptr ? nullptr : impl_->error.impl_;
  // By its length: there may be no memory for a copy of the text.
  return error == nullptr || error->text->rdbuf()->pubseekoff(0, std::ios::cur, std::ios::out) <= 0;
}

API::String Status::error() const { return impl_ == nullptr ? API::String() : impl_->error.str(); }

API::Array<API::String> Status::warnings() const {
  API::Array<API::String> texts;
  if (impl_ == nullptr) return texts;
  try {
    for (auto const& warning : impl_->warnings) texts.add(warning.str());
  } catch (std::bad_alloc const&) {
    return {};
  }
  return texts;
}

}  // namespace Velmor::Processing
