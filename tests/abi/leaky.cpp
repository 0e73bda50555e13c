// A library that leaks what libzqsys.so must not: a C++ function and a C
// function outside the public prefixes and names. The export check must report
// each of them.
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

// Starts like the scheme helpers but is not one of them.
extern "C" __attribute__((visibility("default"))) int IntLeakyHelper(void) {
  return 2;
}
