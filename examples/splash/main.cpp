// Simulates a splash and writes its particles, a PLY file per frame.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "fluid.h"

namespace {

bool writeFrame(Splash::Fluid const& fluid, std::string const& path) {
  std::ofstream out(path, std::ios::binary);
  auto const count = fluid.positions().size();
  out << "ply\nformat binary_little_endian 1.0\nelement vertex " << count << '\n';
  for (auto const* name : {"x", "y", "z", "vx", "vy", "vz", "density", "droplet"}) {
    out << "property float " << name << '\n';
  }
  out << "end_header\n";
  for (std::size_t i = 0; i < count; ++i) {
    auto const &p = fluid.positions()[i], &v = fluid.velocities()[i];
    float const row[8] = {
        p[0], p[1], p[2], v[0], v[1], v[2], fluid.densities()[i], fluid.isDroplet(i) ? 1.f : 0.f};
    out.write(reinterpret_cast<char const*>(row), sizeof row);
  }
  return static_cast<bool>(out.flush());
}

}  // namespace

int main(int argc, char** argv) {
  int const frames = argc > 2 ? std::atoi(argv[2]) : 48;
  if (argc < 2 || argc > 3 || frames < 1 || frames > 9999) {
    std::fprintf(stderr, "usage: velmor-demo-splash FOLDER [FRAMES]\n");
    return 2;
  }
  std::error_code error;
  std::filesystem::create_directories(argv[1], error);
  Splash::Fluid fluid;
  for (int frame = 1; frame <= frames; ++frame) {
    char name[32];
    std::snprintf(name, sizeof name, "/particles.%04d.ply", frame);
    auto const path = argv[1] + std::string(name);
    if (!writeFrame(fluid, path)) {
      std::fprintf(stderr, "velmor-demo-splash: cannot write %s\n", path.c_str());
      return 1;
    }
    if (frame < frames) fluid.advance(1.f / 24.f, 4);
  }
  std::printf("%s: %zu particles, %d frames\n", argv[1], fluid.positions().size(), frames);
  return 0;
}
