#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>
#include <utility>

#include "files/helper.h"
#include "files/image.h"
#include "files/request.h"
#include "files/state_load.h"
#include "files/vdb_decode.h"
#include "velmorhost/files.h"
#include "velmorhost/settings.h"

namespace Velmor::Host {

namespace {

using namespace Files;

std::mutex optionsMutex;
ReadOptions& options() {
  static ReadOptions theOptions;
  return theOptions;
}
thread_local ReadOptions const* scopedOptions = nullptr;

/// Why a file cannot be opened at all, in words; empty if it can.
std::string openingProblem(std::string const& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return std::strerror(errno);
  if (S_ISDIR(info.st_mode)) return "it is a folder";
  if (!S_ISREG(info.st_mode)) return "it is no regular file";
  errno = 0;
  if (!std::ifstream(path, std::ios::binary)) return std::strerror(errno);
  return {};
}

ReadRequest makeRequest(std::string const& path,
                        API::Runtime::CacheResource::LoadOptions const& load,
                        ReadOptions const& how) {
  ReadRequest request;
  request.path = path;
  for (auto const& channel : load.channels) request.channels.push_back(channel.str());
  bool inverted = false;
  for (int a = 0; a < 3; ++a) {
    request.clipMin[a] = load.bounds.min[a];
    request.clipMax[a] = load.bounds.max[a];
    inverted = inverted || !(load.bounds.min[a] <= load.bounds.max[a]);
  }
  request.clip = !inverted;
  request.points = load.points;
  request.voxels = load.voxels;
  request.distance = how.distance;
  request.distanceChannel = how.distanceChannel;
  request.messagesAbout = how.messagesAbout;
  request.memoryLimit = how.memoryLimit;
  request.threads = threadCount();
  auto const settings = layoutSettings();
  request.shape = {settings.depth, settings.centred ? 1 : 0};
  return request;
}

/// What the reading side said. A damaged file may have written over its memory,
/// the name of the file and all: rubbish is replaced, and what does not name the
/// file is given its name.
std::string legible(std::string text, std::string const& path) {
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < ' ') c = '?';
  }
  return text.find(path) != std::string::npos ? text : "'" + path + "': " + text;
}

API::Status take(Image const& image, ReadRequest const& request, std::string const& objectName,
                 API::Ref& server) {
  if (auto const wrong = image.check(); !wrong.empty()) {
    return API::Status::failure("Could not read '" + request.path + "': " + wrong);
  }
  auto const& head = image.header();
  auto const* const messages = image.at<MessageRecord>(head.messages);
  for (std::uint64_t m = 0; m < head.messages.count; ++m) {
    report(static_cast<Severity>(messages[m].severity),
           legible(image.text(messages[m].text), request.path));
  }
  if (head.failed != 0) {
    return API::Status::failure(legible(image.text(head.failure), request.path));
  }
  return loadState(image, request.path, objectName, server);
}

API::Status readHere(ReadRequest const& request, std::string const& objectName, API::Ref& server) {
  try {
    ImageBuilder builder(-1, request.memoryLimit);
    decode(request, builder);
    return take(Image(builder.data(), builder.size()), request, objectName, server);
  } catch (ImageFull const&) {
    return API::Status::failure("Could not read '" + request.path + "': out of memory");
  } catch (std::exception const& error) {
    return API::Status::failure("Could not read '" + request.path + "': " + error.what());
  }
}

API::Status readApart(ReadRequest const& request, double timeLimit, std::string const& objectName,
                      API::Ref& server) {
  HelperRun helper;
  auto const problem = helper.run(request, timeLimit);
  std::istringstream lines(helper.output());
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty()) report(Severity::Warning, "'" + request.path + "': " + line);
  }
  if (!problem.empty()) {
    return API::Status::failure("Could not read '" + request.path + "': " + problem);
  }
  Mapping const image(helper.memory());
  return take(Image(image.data(), image.size()), request, objectName, server);
}

}  // namespace

void setReadOptions(ReadOptions const& how) {
  std::lock_guard const lock(optionsMutex);
  options() = how;
}

ReadOptions readOptions() {
  if (scopedOptions != nullptr) return *scopedOptions;
  std::lock_guard const lock(optionsMutex);
  return options();
}

ScopedReadOptions::ScopedReadOptions(ReadOptions const& options)
    : options_(options), outer_(std::exchange(scopedOptions, &options_)) {}

ScopedReadOptions::~ScopedReadOptions() { scopedOptions = outer_; }

API::Status readObject(std::string const& path, std::string const& objectName,
                       API::Runtime::CacheResource::LoadOptions const& load, ReadOptions const& how,
                       API::Ref& server) {
  if (auto const problem = openingProblem(path); !problem.empty()) {
    return API::Status::failure("Could not open '" + path + "': " + problem);
  }
  auto const request = makeRequest(path, load, how);
  return how.isolate ? readApart(request, how.timeLimit, objectName, server)
                     : readHere(request, objectName, server);
}

}  // namespace Velmor::Host
