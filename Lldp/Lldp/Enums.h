#pragma once
// The model's closed enumerations. Where one mirrors a code of IEEE 802.1AB, IEEE 802.3
// or ANSI/TIA-1057 its numbers are the standard's, so wire values move in without a table.
// (Enumerations nested in records are declared with their records.)
#include "Kel/Value.h"

namespace Lldp {

// The chassis ID subtypes of the Chassis ID TLV; cidUnknown marks any other code.
KEL_ENUM(ChassisIdSubtype, "Lldp::ChassisIdSubtype",
         (cidReserved, 0), (cidChassisComponent, 1), (cidInterfaceAlias, 2), (cidPortComponent, 3),
         (cidMacAddress, 4), (cidNetworkAddress, 5), (cidInterfaceName, 6), (cidLocal, 7), (cidUnknown, 8))

// The port ID subtypes of the Port ID TLV. Numbered unlike ChassisIdSubtype: never
// convert one into the other by value.
KEL_ENUM(PortIdSubtype, "Lldp::PortIdSubtype",
         (pidReserved, 0), (pidInterfaceAlias, 1), (pidPortComponent, 2), (pidMacAddress, 3),
         (pidNetworkAddress, 4), (pidInterfaceName, 5), (pidAgentCircuitId, 6), (pidLocal, 7), (pidUnknown, 8))

KEL_ENUM(ManAddrIfSubtype, "Lldp::ManAddrIfSubtype", (unknown, 1), (ifIndex, 2), (systemPortNumber, 3))

KEL_ENUM(AdminStatus, "Lldp::AdminStatus", (txOnly, 1), (rxOnly, 2), (txAndRx, 3), (disabled, 4))

// On the wire the class is one bit (set for PSE); the 802.3 parser and builder map it.
KEL_ENUM(PowerPortClass, "Lldp::PowerPortClass", (pClassPSE, 1), (pClassPD, 2))

KEL_ENUM(LocationIdDataFormat, "Lldp::LocationIdDataFormat", (CoordinateBased, 1), (CivicAddress, 2), (EcsElin, 3))

KEL_ENUM(MgmtAddrTxMode, "Lldp::MgmtAddrTxMode",
         (mgmtAddrTxModeBest, 0), (mgmtAddrTxModeAll, 1), (mgmtAddrTxModeIntfName, 2))

// How a 6-byte MAC address prints: 00:1c:73:0a:0b:0c (colon) or 001c.730a.0b0c (period).
KEL_ENUM(MacSeparator, "Lldp::MacSeparator", (colon, 0), (period, 1))

KEL_ENUM_FUNCTIONS(ChassisIdSubtype, _kelType_ChassisIdSubtype)
KEL_ENUM_FUNCTIONS(PortIdSubtype, _kelType_PortIdSubtype)
KEL_ENUM_FUNCTIONS(ManAddrIfSubtype, _kelType_ManAddrIfSubtype)
KEL_ENUM_FUNCTIONS(AdminStatus, _kelType_AdminStatus)
KEL_ENUM_FUNCTIONS(PowerPortClass, _kelType_PowerPortClass)
KEL_ENUM_FUNCTIONS(LocationIdDataFormat, _kelType_LocationIdDataFormat)
KEL_ENUM_FUNCTIONS(MgmtAddrTxMode, _kelType_MgmtAddrTxMode)
KEL_ENUM_FUNCTIONS(MacSeparator, _kelType_MacSeparator)

// The generic value bindings (text form of records, bit maps and wrappers) are the
// framework's; bring them in so that Lldp::valueToStrep(x) works for every value.
using Kel::valueToStrep;

}  // namespace Lldp
