#include <cmath>
#include <locale>
#include <memory>
#include <optional>
#include <sstream>

#include "channel_edits.h"
#include "command.h"
#include "names.h"
#include "output.h"
#include "processing/mixer.h"
#include "stopwatch.h"
#include "value_types.h"
#include "velmorhost/scene.h"
#include "verbs.h"

namespace Velmor::Tool {

namespace {

struct MixOptions {
  std::string rule;
  InputOptions input;
  std::string a, b, out;
  std::optional<float> alpha, step;
  std::string alphaChannel;
  std::string output;
};

/// A usage error unless the rule is known and has exactly its own parameter.
void checkRule(MixOptions const& options) {
  auto const refuse = [](std::string const& text) { throw Failure(ExitCode::Usage, "", text); };
  if (options.rule != "alpha" && options.rule != "step") {
    refuse("no rule '" + options.rule + "'; there is 'alpha', 'step'" +
           didYouMean(options.rule, {"alpha", "step"}));
  }
  bool const alpha = options.rule == "alpha";
  int const alphas = (options.alpha ? 1 : 0) + (options.alphaChannel.empty() ? 0 : 1);
  if (alpha && (alphas != 1 || options.step)) {
    refuse("mix alpha: takes either --alpha or --alpha-channel");
  }
  if (!alpha && (!options.step || alphas != 0)) refuse("mix step: takes --step");
  for (auto const& number : {options.alpha, options.step}) {
    if (number && !std::isfinite(*number)) refuse("mix " + options.rule + ": not a finite number");
  }
}

template <class T>
bool mix(MixOptions const& options, API::Channel const& alpha, API::Channel const& a,
         API::Channel const& b, API::Channel out) {
  if (options.step) return Processing::StepMixer<T>(*options.step).mix(a, b, out);
  if (alpha.valid()) return Processing::AlphaMixer<T>(alpha).mix(a, b, out);
  return Processing::AlphaMixer<T>(*options.alpha).mix(a, b, out);
}

bool mix(MixOptions const& options, API::Channel const& alpha, API::Channel const& a,
         API::Channel const& b, API::Channel const& out) {
  return byType(a.dataType(),
                [&](auto value) { return mix<decltype(value)>(options, alpha, a, b, out); });
}

/// Throws unless `other` lies beside `a` and holds the same type.
void requireAlike(VoxelTarget const& a, VoxelTarget const& other, std::string const& subject) {
  auto const describe = [](VoxelTarget const& t) {
    return "'" + t.component.name().str() + '/' + t.channel.name().str() + "' (" +
           typeName(t.channel.dataType()) + ")";
  };
  if (a.component == other.component && a.channel.dataType() == other.channel.dataType()) return;
  throw Failure(ExitCode::Input, subject,
                describe(a) + " and " + describe(other) +
                    " cannot be mixed: they must be of one component and one type");
}

void run(Session& session, MixOptions const& options) {
  checkRule(options);
  refuseReserved("--out", options.out);
  if (isStandardOutput(options.output)) session.reportToStandardError();
  checkCacheOutput(options.output);

  Times times;
  Input const input(options.input.path);
  checkNotInput(input, options.output);
  auto const selection = input.select(options.input);
  auto const object = input.load(selection);
  times.end("load");

  auto const a = requireChannel(object, options.a, input.path());
  auto const b = requireChannel(object, options.b, input.path());
  requireAlike(a, b, input.path());
  VoxelTarget alpha;
  if (!options.alphaChannel.empty()) {
    alpha = requireChannel(object, options.alphaChannel, input.path());
    requireAlike(a, alpha, input.path());
  }
  VoxelTarget out{a.component, {}};
  if (findChannel(object, options.out)) {
    out = requireChannel(object, options.out, input.path());
    requireAlike(a, out, input.path());
  } else {
    auto const slash = options.out.find('/');
    if (slash != std::string::npos && options.out.substr(0, slash) != a.component.name().str()) {
      throw Failure(ExitCode::Usage, "", "--out: is made beside '" + options.a + "'");
    }
    auto const name = options.out.substr(slash + 1);
    requireNewName("--out", name, a.component);
    out.channel = Host::copyChannel(a.channel, name);
  }
  if (!mix(options, alpha.channel, a.channel, b.channel, out.channel)) {
    throw Failure(ExitCode::Other, input.path(), "the channels could not be mixed");
  }
  times.end("mix");
  writeCache(object, options.output);
  times.end("write");

  Json report = reportOf(input, selection);
  report["rule"] = options.rule;
  report["component"] = a.component.name().str();
  report["a"] = options.a;
  report["b"] = options.b;
  report["out"] = out.channel.name().str();
  if (options.alpha) report["alpha"] = *options.alpha;
  if (options.step) report["step"] = *options.step;
  if (alpha.channel.valid()) report["alpha_channel"] = options.alphaChannel;
  report["type"] = typeName(out.channel.dataType());
  report["output"] = options.output;
  report["seconds"] = times.json();
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << "object   " << wordsFor(selection) << '\n'
       << "channel  " << a.component.name().str() << '/' << out.channel.name().str() << ", "
       << typeName(out.channel.dataType()) << '\n'
       << "seconds  " << times.text() << '\n'
       << "output   " << options.output << '\n';
  session.report(std::move(report), text.str());
}

}  // namespace

void addMix(Command& command) {
  auto const options = std::make_shared<MixOptions>();
  auto& verb = command.verb("mix", "Combines two voxel channels of one type into a third",
                            [options](Session& session) { run(session, *options); });
  verb.add_option("rule", options->rule,
                  "alpha: out = (a - b) * alpha + b; step: out = a + step * b")
      ->required()
      ->type_name("alpha|step");
  addInput(verb, options->input);
  verb.add_option("--a", options->a, "The first channel")->required()->type_name("NAME");
  verb.add_option("--b", options->b, "The second channel")->required()->type_name("NAME");
  verb.add_option("--out", options->out,
                  "The channel for the result; if missing it is made, with the active voxels of "
                  "the first")
      ->required()
      ->type_name("NAME");
  verb.add_option("--alpha", options->alpha, "Constant alpha of the rule alpha")->type_name("V");
  verb.add_option("--alpha-channel", options->alphaChannel,
                  "A channel of alphas, of the same type as the others")
      ->type_name("NAME");
  verb.add_option("--step", options->step, "Step of the rule step")->type_name("V");
  verb.add_option("-o,--output", options->output,
                  "The cache file (.vdb), with all other channels of the input")
      ->required()
      ->type_name("FILE");
}

}  // namespace Velmor::Tool
