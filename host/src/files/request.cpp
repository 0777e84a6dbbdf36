#include "files/request.h"

#include <cstring>
#include <type_traits>

namespace Velmor::Host::Files {

namespace {

class Packer {
 public:
  template <class T>
  requires std::is_trivially_copyable_v<T>
  bool operator()(T const& value) {
    bytes.append(reinterpret_cast<char const*>(&value), sizeof value);
    return true;
  }
  bool operator()(std::string const& text) {
    (*this)(std::uint64_t{text.size()});
    bytes.append(text);
    return true;
  }
  bool operator()(std::vector<std::string> const& texts) {
    (*this)(std::uint64_t{texts.size()});
    for (auto const& text : texts) (*this)(text);
    return true;
  }
  std::string bytes;
};

class Unpacker {
 public:
  explicit Unpacker(std::string_view bytes) : rest_(bytes) {}

  template <class T>
  requires std::is_trivially_copyable_v<T>
  bool operator()(T& value) {
    if (rest_.size() < sizeof value) return false;
    std::memcpy(&value, rest_.data(), sizeof value);
    rest_.remove_prefix(sizeof value);
    return true;
  }
  bool operator()(std::string& text) {
    std::uint64_t size = 0;
    if (!(*this)(size) || size > rest_.size()) return false;
    text.assign(rest_.substr(0, size));
    rest_.remove_prefix(size);
    return true;
  }
  bool operator()(std::vector<std::string>& texts) {
    std::uint64_t count = 0;
    if (!(*this)(count) || count > rest_.size()) return false;
    texts.resize(count);
    for (auto& text : texts) {
      if (!(*this)(text)) return false;
    }
    return true;
  }
  bool atEnd() const noexcept { return rest_.empty(); }

 private:
  std::string_view rest_;
};

template <class Visit, class Request>
bool visitFields(Visit& visit, Request& r) {
  return visit(r.path) && visit(r.channels) && visit(r.clip) && visit(r.clipMin) &&
         visit(r.clipMax) && visit(r.points) && visit(r.voxels) && visit(r.distance) &&
         visit(r.distanceChannel) && visit(r.messagesAbout) && visit(r.memoryLimit) &&
         visit(r.threads) && visit(r.shape);
}

}  // namespace

std::string pack(ReadRequest const& request) {
  Packer packer;
  visitFields(packer, request);
  return std::move(packer.bytes);
}

bool unpack(std::string_view bytes, ReadRequest& request) {
  Unpacker unpacker(bytes);
  return visitFields(unpacker, request) && unpacker.atEnd();
}

std::string tooMuch(ReadRequest const& request) {
  auto text = "more memory than the limit of " + std::to_string(request.memoryLimit) + " bytes";
  if (request.distance != DistanceMode::Keep) {
    text += "; keeping the distance as it is may need less";
  }
  return text;
}

}  // namespace Velmor::Host::Files
