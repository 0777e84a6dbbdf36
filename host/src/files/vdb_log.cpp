#include "files/vdb_log.h"

#include <log4cplus/appender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <algorithm>
#include <mutex>
#include <utility>

#include "files/vdb_grids.h"

namespace Velmor::Host::Files {

namespace {

constexpr std::size_t mostLines = 100;  // a damaged file can make very many
thread_local std::vector<std::string>* collecting = nullptr;

class Appender final : public log4cplus::Appender {
 public:
  Appender() { setName("OPENVDB"); }  // found under this name, OpenVDB adds none of its own
  ~Appender() override { destructorImpl(); }
  void close() override {}

 protected:
  void append(log4cplus::spi::InternalLoggingEvent const& event) override {
    if (collecting != nullptr && collecting->size() < mostLines) {
      collecting->push_back(event.getMessage());
    }
  }
};

}  // namespace

void startVdb() {
  static std::once_flag once;
  std::call_once(once, [] {
    static log4cplus::Initializer const logging;
    auto logger = log4cplus::Logger::getInstance("openvdb");
    if (logger.getAppender("OPENVDB") != nullptr) logger.removeAppender("OPENVDB");
    logger.addAppender(log4cplus::SharedAppenderPtr(new Appender));
    logger.setAdditivity(false);
    logger.setLogLevel(log4cplus::WARN_LOG_LEVEL);
    openvdb::initialize();
  });
}

VdbLog::VdbLog() : previous_(std::exchange(collecting, &lines_)) {}

VdbLog::~VdbLog() { collecting = previous_; }

std::vector<std::string> VdbLog::take() {
  // One line often comes once per leaf or attribute.
  std::vector<std::string> unique;
  for (auto& line : lines_) {
    if (std::find(unique.begin(), unique.end(), line) == unique.end()) {
      unique.push_back(std::move(line));
    }
  }
  lines_.clear();
  return unique;
}

}  // namespace Velmor::Host::Files
