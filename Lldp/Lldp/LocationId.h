#pragma once
// LLDP-MED location identification: one record per data format side by side, each with
// its own received flag.
#include <cstdint>
#include <map>

#include "Kel/Value.h"
#include "Lldp/Lldp/Enums.h"

namespace Lldp {

class LocationId : public Kel::ValueBase {
 public:
  class CoordinateBasedLCI : public Kel::ValueBase {
    // aT (altitude type) keeps its odd capitalisation: it is the attribute's name.
    KEL_RECORD(CoordinateBasedLCI, "Lldp::LocationId::CoordinateBasedLCI", Kel::opEq,
               (std::uint8_t, laRes, 0), (std::int64_t, latitude, 0), (std::uint8_t, loRes, 0),
               (std::int64_t, longitude, 0), (std::uint8_t, aT, 0), (std::uint8_t, altRes, 0),
               (std::int32_t, altitude, 0), (std::uint8_t, datum, 0), (bool, received, false))
  };

  // The only value holding a collection: it prints its elements as None and cannot be
  // read back from text; in the attribute log they end with CA type 0, which therefore
  // cannot be written.
  class CivicAddressLCI : public Kel::ValueBase {
   public:
    class CaElement : public Kel::ValueBase {
      KEL_RECORD(CaElement, "Lldp::LocationId::CivicAddressLCI::CaElement", Kel::opLt,
                 (std::uint8_t, caType, 0), (Kel::String, caValue, ))
    };
    // Kept in ascending CA type.
    using CaElementMap = std::map<std::uint8_t, CaElement>;

    KEL_RECORD(CivicAddressLCI, "Lldp::LocationId::CivicAddressLCI", Kel::opNot,
               (std::uint8_t, lciLength, 0), (std::uint8_t, what, 0), (Kel::String, countryCode, ),
               (CaElementMap, caElements, ), (bool, received, false))

   public:
    // The element under caType, or a default element when there is none.
    CaElement caElements(std::uint8_t caType) const {
      auto i = caElements_.find(caType);
      return i == caElements_.end() ? CaElement() : i->second;
    }
    bool caElementsHas(std::uint8_t caType) const { return caElements_.count(caType) != 0; }
    // Stores element under caType, replacing whatever was there; keeping the key equal to
    // the element's own caType is the caller's business.
    void caElementsIs(std::uint8_t caType, CaElement const& element) { caElements_.insert_or_assign(caType, element); }
    // Removes and returns the element under caType (a default element if none).
    CaElement caElementsDel(std::uint8_t caType) {
      auto i = caElements_.find(caType);
      if (i == caElements_.end()) return CaElement();
      CaElement removed = i->second;
      caElements_.erase(i);
      return removed;
    }
    CaElementMap::const_iterator caElementsDel(CaElementMap::const_iterator position) {
      return caElements_.erase(position);
    }
    void caElementsDelAll() { caElements_.clear(); }
  };

  class EcsElin : public Kel::ValueBase {
    KEL_RECORD(EcsElin, "Lldp::LocationId::EcsElin", Kel::opEq, (Kel::String, elin, ), (bool, received, false))
  };

  KEL_RECORD(LocationId, "Lldp::LocationId", Kel::opNot, (CoordinateBasedLCI, coordinateBasedLCI, ),
             (CivicAddressLCI, civicAddressLCI, ), (EcsElin, ecsElin, ))
};

}  // namespace Lldp
