// Loads a library in one of several ways. A program of its own: what is being
// tested happens while the library is loaded, and it must be linked with the
// C++ library itself, or that one would be unloaded along with ours.

#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <iostream>

namespace {

void* load(char const* path) {
  void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) std::cout << dlerror() << std::endl;
  return library;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  char const* const way = argv[1];
  if (std::strcmp(way, "strict") == 0) std::cerr.exceptions(std::ios::badbit | std::ios::failbit);
  // `std::cerr` goes on to the descriptor.
  if (std::strcmp(way, "memory") == 0) stderr = fmemopen(nullptr, 4096, "w");
  void* const first = load(argv[2]);
  if (first == nullptr) return 1;
  if (std::strcmp(way, "again") == 0) {
    if (dlclose(first) != 0 || load(argv[2]) == nullptr) return 1;
  } else if (std::strcmp(way, "shared") == 0) {
    if (load(argv[2]) != first) return 1;
  }
  std::cout << "loaded" << std::endl;
  return 0;
}
