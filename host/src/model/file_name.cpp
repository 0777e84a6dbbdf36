#include "model/file_name.h"

#include <charconv>

#include "model/object_name.h"

namespace Velmor::Host {

namespace {

constexpr std::string_view extension = ".vdb";

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isSeparator(char c) { return c == '.' || c == '_' || c == '-' || c == ' '; }

}  // namespace

bool isCacheFileName(std::string_view name) {
  if (name.size() <= extension.size()) return false;
  name.remove_prefix(name.size() - extension.size());
  for (std::size_t i = 0; i < extension.size(); ++i) {
    char const c = name[i];
    if ((c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c) != extension[i]) return false;
  }
  return true;
}

FileName parseFileName(std::string_view name) {
  if (isCacheFileName(name)) name.remove_suffix(extension.size());
  auto object = name;
  while (!object.empty() && isDigit(object.back())) object.remove_suffix(1);
  std::string number(name.substr(object.size()));
  if (number.empty()) return {std::string(name), false, 0};

  // `name-12` is frame 12: the dash only separates. Where something separates
  // already, or nothing is left in front, it is a sign.
  if (object.ends_with('-') && (object.size() == 1 || isSeparator(object[object.size() - 2]))) {
    number.insert(0, 1, '-');
    object.remove_suffix(1);
  }
  API::Runtime::Frame frame = 0;
  auto const parsed = std::from_chars(number.data(), number.data() + number.size(), frame);
  if (parsed.ec != std::errc()) return {std::string(name), false, 0};
  if (!object.empty() && isSeparator(object.back())) object.remove_suffix(1);
  return {std::string(object), true, frame};
}

std::string paddedFrame(API::Runtime::Frame frame, std::size_t digits) {
  std::string text = std::to_string(frame);
  std::size_t const sign = frame < 0 ? 1 : 0;
  if (text.size() < digits + sign) text.insert(sign, digits + sign - text.size(), '0');
  return text;
}

std::string canonicalFileName(std::string_view object, API::Runtime::Frame frame) {
  std::string name = fileStem(object);
  name += '.';
  name += paddedFrame(frame, 4);
  name += extension;
  return name;
}

}  // namespace Velmor::Host
