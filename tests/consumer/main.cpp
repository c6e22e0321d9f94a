// Links against the installed libraries only; exits non-zero if they misbehave.
#include <cstdio>

#include "Lldp/Lldp.h"

int main() {
  Lldp::ChassisIdentifier id;
  id.chassisIdSubtypeIs(Lldp::cidMacAddress);
  id.chassisIdIs(Lldp::ChassisId(Kel::String("\x00\x1c\x73\xaa\xbb\xcc", 6)));
  Kel::String text = Lldp::valueToStrep(id);
  if (id.stringValue(Lldp::colon, false) != Kel::String("00:1c:73:aa:bb:cc") ||
      !(Kel::strepToValue<Lldp::ChassisIdentifier>(text) == id)) {
    std::fprintf(stderr, "consumer: unexpected %s\n", text.c_str());
    return 1;
  }
  std::printf("consumer: ok %s\n", text.c_str());
  return 0;
}
