// A library that leaks what libzqsys.so must not: a C++ function and a C
// function outside the public prefixes. The export check must report both.
#include <string>

__attribute__((visibility("default"))) std::string LeakyName() {
  return "leaky";
}

extern "C" __attribute__((visibility("default"))) int leaky_counter(void) {
  return 1;
}

extern "C" __attribute__((visibility("default"))) int ZqLeakyAllowed(void) {
  return 0;
}
