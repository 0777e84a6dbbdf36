#include "readers/particles.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>
#include <utility>

#include "readers/gzip.h"
#include "writers/extension.h"

namespace Velmor::Tool {

namespace {

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// What other programs call an attribute, the usual names first; in lower case.
struct Alias {
  std::string_view name;
  int minComponents, maxComponents;
  std::array<std::string_view, 9> others;
};

constexpr std::array<Alias, 3> kAliases{
    {{"velocity",
      2,
      3,
      {"velocity", "v", "vel", "velocities", "u", "particles_velocity",
       "particles_velocity_secondary", "vitesse", "speed"}},
     {"density", 1, 1, {"density", "rho", "hydrodynamic_density", "dens", "", "", "", "", ""}},
     {"droplet", 1, 1, {"droplet", "droplets", "isdroplet", "is_droplet", "", "", "", "", ""}}}};

}  // namespace

Particles::Attribute const* Particles::find(std::string const& name) const {
  auto const found = std::find_if(attributes.begin(), attributes.end(),
                                  [&name](Attribute const& a) { return a.name == name; });
  return found != attributes.end() ? &*found : nullptr;
}

void renameAttributes(Particles& particles) {
  for (auto const& alias : kAliases) {
    auto const fits = [&alias](Particles::Attribute const& a, std::string_view name) {
      return !name.empty() && lower(a.name) == name && a.components >= alias.minComponents &&
             a.components <= alias.maxComponents;
    };
    auto chosen = particles.attributes.end();
    for (auto const other : alias.others) {
      chosen = std::find_if(particles.attributes.begin(), particles.attributes.end(),
                            [&](auto const& a) { return fits(a, other); });
      if (chosen != particles.attributes.end()) break;
    }
    // What has the name without being it must not be taken for it.
    for (auto it = particles.attributes.begin(); it != particles.attributes.end(); ++it) {
      if (it != chosen && it->name == alias.name) it->name += "_other";
    }
    if (chosen != particles.attributes.end()) chosen->name = alias.name;
  }
  for (auto& attribute : particles.attributes) {
    if (attribute.name != "velocity" || attribute.components != 2) continue;
    std::vector<double> padded;
    padded.resize(attribute.values.size() / 2 * 3);
    for (std::size_t n = 0; n < padded.size(); ++n) {
      if (n % 3 < 2) padded[n] = attribute.values[n / 3 * 2 + n % 3];
    }
    attribute.values = std::move(padded);
    attribute.components = 3;
  }
}

Particles readParticles(std::string const& path) {
  auto const start = startOf(path);
  auto const starts = [&start](std::string_view magic) {
    return std::string_view(start).substr(0, magic.size()) == magic;
  };
  auto const refuse = [&path](std::string const& what) {
    throw Failure(ExitCode::Input, path, "holds no particles that can be read: it is " + what);
  };
  auto const extension = extensionOf(path);
  auto const first = start.find_first_not_of(" \t\r\n");
  char const firstLetter = first == std::string::npos ? '\0' : start[first];

  Particles particles;
  if (starts("ply\n") || starts("ply\r")) {
    particles = particlesOf(readPly(path), path);
  } else if (starts("# vtk DataFile")) {
    particles = readVtk(path);
  } else if (starts("<?xml") || start.find("<VTKFile") != std::string::npos) {
    particles = readVtkXml(path);
  } else if (starts("BgeoV")) {
    particles = readBgeo(path);
  } else if (starts(std::string_view(" BDV\0\0\0\0", 8))) {
    particles = readVdbPoints(path);
  } else if (starts("\x7FNSJb")) {
    refuse("binary JSON geometry; save it in the classic format of version 5");
  } else if (starts("PGEOMETRY")) {
    refuse("classic geometry as text (.geo); save it as binary .bgeo");
  } else if (starts("NanoVDB")) {
    refuse("a NanoVDB file, which holds grids");
  } else if (extension == "bgeo" && firstLetter == '[') {
    refuse("JSON geometry; save it in the classic format of version 5");
  } else if (extension == "gz" && lower(path).ends_with(".bobj.gz")) {
    refuse("a triangle mesh (.bobj.gz)");
  } else if (extension == "uni") {
    refuse("a solver's settings or grid (.uni)");
  } else if (extension == "obj" || extension == "stl") {
    refuse("a triangle mesh (." + extension + ")");
  } else if (extension == "grid") {
    refuse("a solver's own text format (.grid); write its columns as .csv");
  } else if (extension == "xyz") {
    particles = readXyz(path);
  } else if (extension == "csv" || extension == "txt" || extension == "tsv") {
    particles = particlesOf(readCsv(path), path);
  } else if (extension == "ply" || extension == "vtk" || extension == "vtu" || extension == "vtp" ||
             extension == "bgeo" || extension == "vdb") {
    throw Failure(
        ExitCode::Input, path,
        start.empty() ? "the file is empty" : "no ." + extension + " file, in spite of its name");
  } else {
    refuse("of an unknown format; known are .ply, .vtk, .vtu, .vtp, .bgeo, .csv, .xyz and .vdb");
  }
  renameAttributes(particles);
  return particles;
}

namespace {

// One attribute that several columns spell, in the order of their components.
struct Spelling {
  std::array<std::string_view, 3> endings;
  bool bare;  // whether the ending may be the whole rest of a short name, as in vx
};

constexpr std::array<Spelling, 5> kSpellings{{{{"_x", "_y", "_z"}, false},
                                              {{"_0", "_1", "_2"}, false},
                                              {{":0", ":1", ":2"}, false},
                                              {{".x", ".y", ".z"}, false},
                                              {{"x", "y", "z"}, true}}};

}  // namespace

Particles particlesOf(Table table, std::string const& path) {
  auto& columns = table.columns;
  std::vector<bool> used(columns.size(), false);
  auto const indexOf = [&](std::string const& name) {
    for (std::size_t c = 0; c < columns.size(); ++c) {
      if (!used[c] && lower(columns[c].name) == name) return c;
    }
    return columns.size();
  };
  Particles particles;
  auto const join = [&](std::vector<std::size_t> const& from) {
    std::vector<double> values(from.size() * table.rows());
    for (std::size_t c = 0; c < from.size(); ++c) {
      auto& column = columns[from[c]].values;
      for (std::size_t r = 0; r < column.size(); ++r) values[r * from.size() + c] = column[r];
      std::vector<double>().swap(column);
      used[from[c]] = true;
    }
    return values;
  };
  auto const rows = table.rows();
  bool placed = false;
  for (auto const& names : {std::array{"x", "y", "z"},
                            {"p_x", "p_y", "p_z"},
                            {"position_x", "position_y", "position_z"},
                            {"position_0", "position_1", "position_2"},
                            {"points:0", "points:1", "points:2"},
                            {"px", "py", "pz"}}) {
    std::vector<std::size_t> const from{indexOf(names[0]), indexOf(names[1]), indexOf(names[2])};
    if (std::find(from.begin(), from.end(), columns.size()) != from.end()) continue;
    std::vector<double> values(3 * rows);
    for (std::size_t c = 0; c < 3; ++c) {
      for (std::size_t r = 0; r < rows; ++r) values[3 * r + c] = columns[from[c]].values[r];
      used[from[c]] = true;
    }
    particles.positions = std::move(values);
    placed = true;
    break;
  }
  if (!placed) throw Failure(ExitCode::Input, path, "no columns 'x', 'y' and 'z'");
  if (rows == 0) return particles;

  for (std::size_t c = 0; c < columns.size(); ++c) {
    if (used[c]) continue;
    auto const name = lower(columns[c].name);
    Particles::Attribute attribute;
    attribute.name = columns[c].name;
    std::vector<std::size_t> from{c};
    for (auto const& spelling : kSpellings) {
      if (!name.ends_with(spelling.endings[0]) || name.size() <= spelling.endings[0].size())
        continue;
      auto const stem = name.substr(0, name.size() - spelling.endings[0].size());
      if (spelling.bare && stem.size() > 3) continue;  // words may end in x
      auto const second = indexOf(stem + std::string(spelling.endings[1]));
      auto const third = indexOf(stem + std::string(spelling.endings[2]));
      if (second == columns.size()) continue;
      from.push_back(second);
      if (third != columns.size()) from.push_back(third);
      attribute.name.resize(stem.size());
      break;
    }
    if (from.size() == 1 && name == "u") {
      auto const v = indexOf("v"), w = indexOf("w");
      if (v != columns.size() && w != columns.size()) {
        from.push_back(v);
        from.push_back(w);
        attribute.name = "velocity";
      } else if (v != columns.size()) {
        from.push_back(v);
        attribute.name = "uv";
      }
    }
    attribute.components = static_cast<int>(from.size());
    attribute.integer =
        std::all_of(from.begin(), from.end(), [&](std::size_t i) { return columns[i].integer; });
    attribute.values = join(from);
    particles.attributes.push_back(std::move(attribute));
  }
  return particles;
}

}  // namespace Velmor::Tool
