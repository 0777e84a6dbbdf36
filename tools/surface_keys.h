#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <string>

#include "processing/surface.h"
#include "session.h"

namespace Velmor::Tool {

/// Values for keys of `SurfaceParameters`, as texts: numbers, "true" or "false",
/// names, and components between commas.
using SurfaceValues = std::map<std::string, std::string>;

/// Adds an option for each key to a verb, with dashes in place of underscores or
/// as it is. Whatever is given goes into `values` under the key.
void addSurfaceKeys(CLI::App& verb, SurfaceValues& values);

/// Reads a JSON object of keys and values: numbers, true and false, texts, lists
/// of numbers or of texts, and for boxes an object of "min" and "max". Throws a
/// `Failure`: of code `Input` where the file cannot be read, of code `Usage` for a
/// key that does not exist, with the nearest name.
SurfaceValues readSurfaceValues(std::string const& path);

/// Puts values into their fields. `source` is said in the `Failure` of code
/// `Usage` that a value of the wrong kind brings.
void setSurfaceValues(SurfaceValues const& values, std::string const& source,
                      Processing::SurfaceParameters& parameters);

/// All keys with their values, such as `readSurfaceValues` reads back.
Json surfaceValues(Processing::SurfaceParameters const& parameters);

}  // namespace Velmor::Tool
