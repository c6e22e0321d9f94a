#pragma once
// Electrical power in watts. IEEE 802.3 TLVs carry tenths of a watt; the conversion
// belongs to whoever writes the TLV.

namespace Platform {

using Watts = double;

}  // namespace Platform
