#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Velmor::Tool {

/// Numbers in named columns of one length: what a file says about its points.
/// Doubles hold every integer of 32 bits and every float exactly.
struct Table {
  struct Column {
    std::string name;
    bool integer = false;  ///< the file declares the column as integers
    bool single = false;   ///< the file holds floats, which need fewer digits to come back
    std::vector<double> values;
  };
  std::vector<Column> columns;
  std::vector<std::size_t> lines;  ///< where the rows stand in a text; empty for PLY

  std::size_t rows() const { return columns.empty() ? 0 : columns.front().values.size(); }
  /// The column of a name, whatever its case; null if there is none.
  Column const* find(std::string const& name) const;
};

/// Reads a text table: a header line with the columns' names, then a line of
/// numbers per row, between commas, semicolons, tabs or blanks. Throws a
/// `Failure` of code `Input` that names the line.
Table readCsv(std::string const& path);

/// Reads the "vertex" element of a PLY file: ascii or binary of either byte
/// order; lists and other elements are passed over. Throws a `Failure` of code
/// `Input` that says what is wrong.
Table readPly(std::string const& path);

/// The whole file as bytes. Throws a `Failure` of code `Input`.
std::vector<char> readFile(std::string const& path);

}  // namespace Velmor::Tool
