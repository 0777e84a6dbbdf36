#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/enumerable_thread_specific.h>
#include <oneapi/tbb/parallel_for.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <limits>
#include <locale>
#include <memory>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "command.h"
#include "output.h"
#include "processing/sampler.h"
#include "readers/table.h"
#include "stopwatch.h"
#include "value_types.h"
#include "verbs.h"
#include "writers/extension.h"

namespace Velmor::Tool {

namespace {

using Vec3f = orlen::Math::vec<3, float>;

struct SampleOptions {
  InputOptions input;
  std::string channel;
  std::string points;
  bool gradient = false;
  std::string output;
};

struct Positions {
  std::array<Table::Column const*, 3> axes{};
  Table table;
};

// A field has a value at every place, but none where there is no place.
void checkPositions(Positions const& positions, std::string const& path) {
  constexpr double largest = std::numeric_limits<float>::max();
  for (std::size_t row = 0; row < positions.table.rows(); ++row) {
    for (std::size_t a = 0; a < 3; ++a) {
      if (std::abs(positions.axes[a]->values[row]) <= largest) continue;
      auto const& lines = positions.table.lines;
      throw Failure(ExitCode::Input, path,
                    (lines.empty() ? "point " + std::to_string(row + 1)
                                   : "line " + std::to_string(lines[row])) +
                        ": " + "xyz"[a] + " is no finite float");
    }
  }
}

std::unique_ptr<Positions> readPositions(std::string const& path) {
  auto const extension = extensionOf(path);
  auto positions = std::make_unique<Positions>();
  if (extension == "csv" || extension == "txt") {
    positions->table = readCsv(path);
  } else if (extension == "ply") {
    positions->table = readPly(path);
  } else {
    throw Failure(ExitCode::Usage, path, "points are read from .csv and .ply");
  }
  std::string missing;
  for (std::size_t a = 0; a < 3; ++a) {
    std::string const name(1, "xyz"[a]);
    positions->axes[a] = positions->table.find(name);
    if (positions->axes[a] == nullptr) missing += (missing.empty() ? "'" : ", '") + name + "'";
  }
  if (!missing.empty()) throw Failure(ExitCode::Input, path, "no column " + missing);
  checkPositions(*positions, path);
  return positions;
}

// The sampler of a channel, or of a vector kept as several channels, and the
// component it lies in.
struct Source {
  API::VoxelComponent component;
  Processing::Sampler sampler;
};

Source findSource(API::Object const& object, std::string const& name, std::string const& subject) {
  auto const slash = name.find('/');
  for (auto const& each : object.components()) {
    API::VoxelComponent const voxels = each;
    if (!voxels.valid()) continue;
    std::string channel = name;
    if (slash != std::string::npos) {
      if (voxels.name().str() != name.substr(0, slash)) continue;
      channel = name.substr(slash + 1);
    }
    Processing::Sampler const sampler(voxels, channel);
    if (sampler.valid()) return {voxels, sampler};
  }
  failWithoutChannel(object, name, subject);
}

// Fewest digits that read back to the same number.
template <class T>
void appendNumber(std::string& text, T value) {
  std::array<char, 32> digits{};
  auto const end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
  text.append(digits.data(), end);
}

void appendSample(std::string& text, Processing::Sample const& sample, API::DataType type) {
  for (std::size_t c = 0; c < API::componentsOf(type); ++c) {
    text += ',';
    if (isInteger(type)) {
      appendNumber(text, static_cast<std::int32_t>(sample.words[c]));
    } else {
      float value = 0.f;
      std::memcpy(&value, &sample.words[c], sizeof value);
      appendNumber(text, value);
    }
  }
}

std::string headerOf(API::DataType type, bool gradient) {
  std::string header = "x,y,z";
  auto const count = API::componentsOf(type);
  for (std::size_t c = 0; c < count; ++c) {
    header += count == 1 ? ",value" : ",value_" + std::to_string(c);
  }
  if (gradient) header += ",gradient_x,gradient_y,gradient_z";
  return header + '\n';
}

void run(Session& session, SampleOptions const& options) {
  if (extensionOf(options.output) != "csv" && !isSpecialOutput(options.output)) {
    throw Failure(ExitCode::Usage, options.output, "values are written as .csv");
  }
  if (isStandardOutput(options.output)) session.reportToStandardError();
  Times times;
  Input const input(options.input.path);
  auto const selection = input.select(options.input);
  checkOutput(options.output);
  std::error_code missing;
  if (std::filesystem::equivalent(options.output, options.points, missing)) {
    throw Failure(ExitCode::Usage, options.output,
                  "is the list of points itself; name another file for the values");
  }
  auto const positions = readPositions(options.points);
  listenTo(options.channel);
  auto const object = input.load(selection);
  auto const source = findSource(object, options.channel, input.path());
  auto const type = source.sampler.dataType();
  if (options.gradient && type != API::DataType::Float) {
    throw Failure(ExitCode::Input, input.path(),
                  "--gradient needs a channel of single floats; '" + options.channel + "' holds " +
                      typeName(type));
  }
  auto const shift = origin(source.component);
  times.end("load");

  std::size_t const count = positions->table.rows();
  constexpr std::size_t rowsPerPiece = 4096;
  std::vector<std::string> pieces((count + rowsPerPiece - 1) / rowsPerPiece);
  tbb::enumerable_thread_specific<Processing::Sampler> samplers(
      [&source] { return Processing::Sampler(source.sampler); });
  tbb::parallel_for(std::size_t{0}, pieces.size(), [&](std::size_t piece) {
    auto const& sampler = samplers.local();
    std::string& text = pieces[piece];
    std::size_t const end = std::min(count, (piece + 1) * rowsPerPiece);
    for (std::size_t row = piece * rowsPerPiece; row < end; ++row) {
      Vec3f local;
      for (std::size_t a = 0; a < 3; ++a) {
        auto const& column = *positions->axes[a];
        double const x = column.values[row];
        local[static_cast<int>(a)] = static_cast<float>(x - shift[a]);
        if (a > 0) text += ',';
        if (column.single) {
          appendNumber(text, static_cast<float>(x));
        } else {
          appendNumber(text, x);
        }
      }
      Processing::Sample sample;
      sampler.sample(local, sample);
      appendSample(text, sample, type);
      if (options.gradient) {
        Vec3f gradient;
        sampler.sampleGradient(local, gradient);
        for (int a = 0; a < 3; ++a) {
          text += ',';
          appendNumber(text, gradient[a]);
        }
      }
      text += '\n';
    }
  });
  times.end("sample");

  OutputFile out(options.output);
  out.write(headerOf(type, options.gradient));
  for (auto const& piece : pieces) out.write(piece);
  out.commit();
  times.end("write");

  Json report = reportOf(input, selection);
  report["component"] = source.component.name().str();
  report["channel"] = options.channel;
  report["type"] = typeName(type);
  report["points"] = count;
  report["output"] = options.output;
  report["seconds"] = times.json();
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << "object    " << wordsFor(selection) << '\n'
       << "channel   " << source.component.name().str() << '/' << options.channel << ", "
       << typeName(type) << '\n'
       << "points    " << count << '\n'
       << "seconds   " << times.text() << '\n'
       << "output    " << options.output << '\n';
  session.report(std::move(report), text.str());
}

}  // namespace

void addSample(Command& command) {
  auto const options = std::make_shared<SampleOptions>();
  auto& verb = command.verb("sample", "Writes the values of a voxel channel at given points",
                            [options](Session& session) { run(session, *options); });
  addInput(verb, options->input);
  verb.add_option("--channel", options->channel,
                  "The channel, or component/channel; a name whose float channels end in _u _v _w, "
                  "_x _y _z or _x _y is sampled as a vector")
      ->required()
      ->type_name("NAME");
  verb.add_option("--points", options->points,
                  "World positions: .csv with a header line, or .ply, with x, y and z")
      ->required()
      ->type_name("FILE");
  verb.add_flag("--gradient", options->gradient,
                "Also the gradient per world unit; for a channel of single floats");
  verb.add_option("-o,--output", options->output,
                  "The values: .csv with x, y, z and value (or value_0, value_1, ...), a line per "
                  "point in the order of the points; '-' is standard output")
      ->required()
      ->type_name("FILE");
}

}  // namespace Velmor::Tool
