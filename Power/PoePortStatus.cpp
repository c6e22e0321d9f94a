#include "Power/PoePortStatus.h"

namespace Power {

bool PoePortStatus::isPowered() const noexcept { return poePortState() == PoePortState::powered; }

}  // namespace Power
