// Links against the installed libraries only, with the compiler's default flags; exits
// non-zero if they misbehave.
#include <cstdio>

#include "Kel/TypeRegistry.h"
#include "Lldp/Lldp.h"

int readmeModel();
int readmeReceiver();

int main() {
  if (readmeModel() != 0 || readmeReceiver() != 0) return 1;
  // Every library this program uses registered its types when it was loaded, although
  // nothing here calls into the power library directly.
  for (const char* name : {"Lldp::ChassisIdentifier", "Lldp::PowerViaMdiInfo::Bt::PowerClassExt",
                           "Lldp::RemoteSystem::Msap", "Power::PoePortState", "Power::PoePortStatus"}) {
    if (Kel::typeNode(name) == nullptr) {
      std::fprintf(stderr, "consumer: %s is not registered\n", name);
      return 1;
    }
  }
  std::printf("consumer: ok; %zu types registered\n", Kel::typeNodeCount());
  return 0;
}
