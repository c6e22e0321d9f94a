// Links against the installed libraries only; exits non-zero if they misbehave.
#include <cstdio>

#include "Kel/String.h"

int main() {
  Kel::String s = Kel::format("%s-%d", "lldp", 7);
  if (s != Kel::String("lldp-7")) {
    std::fprintf(stderr, "consumer: Kel::format gave '%s'\n", s.c_str());
    return 1;
  }
  std::printf("consumer: ok (%s)\n", s.c_str());
  return 0;
}
