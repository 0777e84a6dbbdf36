#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>

#include "input.h"
#include "session.h"

namespace Velmor::Tool {

/// The command line: verbs and the options that all of them share. A verb is
/// one file in verbs/ with a function that adds it here.
class Command {
 public:
  Command();

  /// A new verb with --threads, --quiet and --json; `run` is called after
  /// parsing. Options of its own are added to what is returned, into variables
  /// that `run` keeps alive.
  CLI::App& verb(std::string const& name, std::string const& description,
                 std::function<void(Session&)> run);

  /// Parses and runs; returns the exit code. Throws nothing.
  int run(int argc, char const* const* argv);

 private:
  int usageError(std::string const& text, bool json) const;
  int usageError(CLI::ParseError const& error, bool json) const;

  CLI::App app_;
  CommonOptions common_;
  std::function<void(Session&)> chosen_;
};

/// Adds the input and --object and --frame to a verb.
void addInput(CLI::App& verb, InputOptions& options);

}  // namespace Velmor::Tool
