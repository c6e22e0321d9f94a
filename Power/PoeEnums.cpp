#include "Power/PoeEnums.h"

#include "Kel/TypeRegistry.h"

namespace Power {

namespace {

// Makes the descriptors known to the framework's registry while the library is loaded.
struct Registration {
  Kel::KelType const* types[11] = {
      &_kelType_PoePortState,     &_kelType_PoweredDeviceClass,
      &_kelType_PowerType,        &_kelType_PowerSource,
      &_kelType_PowerPriority,    &_kelType_PsePoweringStatus,
      &_kelType_PsePowerPairsExt, &_kelType_DualSignaturePowerClassExtMode,
      &_kelType_PowerTypeExt,     &_kelType_LldpPoeNegotiationSupport,
      &_kelType_PsePowerPair,
  };
  Registration() {
    for (Kel::KelType const* t : types) Kel::typeNodeIs(t);
  }
  ~Registration() {
    for (Kel::KelType const* t : types) Kel::typeNodeDel(t);
  }
};

Registration const registration;

}  // namespace

}  // namespace Power
