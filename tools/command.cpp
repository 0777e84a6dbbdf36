#include "command.h"

#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

#include "names.h"
#include "output.h"

namespace Velmor::Tool {

namespace {

constexpr char const* exitCodes =
    "Exit codes:\n"
    "  0  success\n"
    "  1  any other error\n"
    "  2  wrong usage, or an unknown output extension\n"
    "  3  input unreadable, or without the object, frame, channel or type asked for\n"
    "  4  mesh not closed; it is written all the same (see mesh --allow-open)\n"
    "  5  output not writable\n"
    "  6  frames of a sequence failed, one, some or all of them, whatever the reason; the\n"
    "     others are written\n";

}  // namespace

Command::Command() : app_("Looks into cached simulation frames and works on them.", "velmor") {
  app_.set_version_flag("--version", "velmor " VELMOR_VERSION);
  app_.require_subcommand(1);
  app_.footer(exitCodes);
}

CLI::App& Command::verb(std::string const& name, std::string const& description,
                        std::function<void(Session&)> run) {
  auto& verb = *app_.add_subcommand(name, description);
  verb.add_option("--threads", common_.threads, "Threads to use; all cores if left out")
      ->check(CLI::Range(1, 4096))
      ->type_name("N");
  verb.add_flag("--quiet", common_.quiet, "Print nothing but errors (and the report of --json)");
  verb.add_flag("--json", common_.json, "Print the report as one JSON document");
  verb.footer(exitCodes);
  verb.callback([this, run = std::move(run)] { chosen_ = run; });
  return verb;
}

int Command::usageError(std::string const& text, bool json) const {
  print(Failure(ExitCode::Usage, "", text + "\nRun 'velmor --help' or 'velmor VERB --help'."));
  if (json) {
    std::fputs(printed(failureDocument(Failure(ExitCode::Usage, "", text), {})).c_str(), stdout);
  }
  return static_cast<int>(ExitCode::Usage);
}

int Command::usageError(CLI::ParseError const& error, bool json) const {
  std::string text = error.what();
  auto const parsed = app_.get_subcommands();
  if (!parsed.empty() && (dynamic_cast<CLI::ExtrasError const*>(&error) != nullptr ||
                          dynamic_cast<CLI::RequiredError const*>(&error) != nullptr)) {
    std::vector<std::string> names;
    for (auto const* option : std::as_const(*parsed.front()).get_options()) {
      names.push_back(option->get_name());
    }
    // What is missing may be missing only because an option was mistyped.
    bool unknown = dynamic_cast<CLI::ExtrasError const*>(&error) != nullptr;
    for (auto const& extra : parsed.front()->remaining(true)) {
      if (extra.size() < 2 || extra[0] != '-') continue;
      if (!unknown) text = "The following argument was not expected: " + extra;
      unknown = true;
      text += didYouMean(extra, names);
    }
  }
  return usageError(text, json);
}

int Command::run(int argc, char const* const* argv) {
  std::vector<std::string> verbs;
  for (auto const* known : app_.get_subcommands(nullptr)) verbs.push_back(known->get_name());
  std::string const word = argc > 1 ? argv[1] : "";
  // Parsing may end before it comes to that option.
  bool const json =
      std::any_of(argv, argv + argc, [](char const* a) { return std::string(a) == "--json"; });
  if (word.empty() ||
      (word[0] != '-' && std::find(verbs.begin(), verbs.end(), word) == verbs.end())) {
    return usageError((word.empty() ? "no verb given" : "no verb '" + word + "'") + "; there is " +
                          quotedList(verbs, "none") + didYouMean(word, verbs),
                      json);
  }
  try {
    app_.parse(argc, argv);
  } catch (CLI::ParseError const& e) {
    // Help and version come as errors of code 0.
    if (e.get_exit_code() == 0) return app_.exit(e);
    return usageError(e, json);
  }
  try {
    handleSignals();
    Session session(common_);
    try {
      chosen_(session);
    } catch (...) {
      auto const failure = currentFailure("");
      session.end(failure);
      return static_cast<int>(failure.code());
    }
    return static_cast<int>(session.code());
  } catch (...) {
    auto const failure = currentFailure("");
    print(failure);
    return static_cast<int>(failure.code());
  }
}

void addInput(CLI::App& verb, InputOptions& options) {
  verb.add_option("input", options.path, "A cache file (.vdb) or a folder of them")
      ->required()
      ->type_name("INPUT");
  verb.add_option("--object", options.object, "The object; may be left out where there is one")
      ->type_name("NAME");
  verb.add_option("--frame", options.frame, "The frame; may be left out where there is one")
      ->type_name("N");
}

}  // namespace Velmor::Tool
