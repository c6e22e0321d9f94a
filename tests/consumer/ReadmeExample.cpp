// The README's library examples, built against the installed package: any change here
// goes into the README too (and back). Returns non-zero when a step does not do what the
// README says.
#include <cstdio>
#include <string>

#include <Kel/AttrLogStream.h>  // Kel::NboAttrLog::Stream
#include <Kel/TypeRegistry.h>   // Kel::typeNode
#include <Lldp/Lldp.h>          // the model
#include <LldpRx/LldpRx.h>      // the receive path (component LldpRx)

// [observer]
// Told of every change to a port's neighbour table (attribute remoteSystem), with the
// neighbour's index as the key.
struct NeighbourWatch : Kel::Entity::Notifiee {
  using Notifiee::Notifiee;
  int changes = 0;
  void onAttribute(Kel::AttributeId attr, Kel::AttrKey const& key) override {
    if (attr == Lldp::PortStatus::AttrId::remoteSystem && key.as<std::int32_t>()) ++changes;
  }
};
// [observer]

int readmeModel() {
  // [model]
  // Roots come from factories: an entity a factory makes delivers notifications, which
  // observers and streams rely on; children made through a root's collections inherit it.
  Lldp::Status::Ptr status = Lldp::statusFactory("agent");
  Platform::IntfId const eth1{Kel::String("Ethernet1")};
  Lldp::PortStatus::Ptr port = status->portStatusIs(eth1, 0.0);
  NeighbourWatch watch(port.get());

  // A neighbour is known by its MSAP (chassis ID and port ID) and by the index the port
  // gave it: the table keeps both indexes, remoteSystem (by index, owning) and
  // remoteSystemByMsap (by MSAP), and whoever writes the table enters it in both.
  Lldp::ChassisIdentifier chassis;
  chassis.chassisIdSubtypeIs(Lldp::cidMacAddress);
  chassis.chassisIdIs(Lldp::ChassisId(Kel::String("\x02\x00\x00\x00\x00\x01", 6)));
  Lldp::PortIdentifier portId;
  portId.portIdSubtypeIs(Lldp::pidInterfaceName);
  portId.portIdIs(Lldp::PortId(Kel::String("eth0")));
  Lldp::RemoteSystem::Msap msap;
  msap.chassisIdentifierIs(chassis);
  msap.portIdentifierIs(portId);
  Lldp::RemoteSystem::Ptr neighbour = port->remoteSystemIs(1, msap);
  port->remoteSystemByMsapIs(neighbour);
  neighbour->ttlIs(120);
  neighbour->sysNameIs(Lldp::BoundedString255Tlv::create(Kel::String("switch-1")));

  // Stream the tree as an attribute log. Here the mirror is in the same process; between
  // processes the sink writes to a socket and the reader applies what it reads.
  Kel::Ptr<Kel::NboAttrLog::Stream> mirror(new Kel::NboAttrLog::Stream());
  Kel::Ptr<Kel::NboAttrLog::Stream> out(new Kel::NboAttrLog::Stream([&](const char* data, std::size_t size) {
    mirror->apply(data, size);
    return size;
  }));
  out->streamRoot(status);  // the whole tree, then one record per change
  neighbour->ttlIs(90);
  out->continueFlowOut();   // after a batch of changes: hands them to the sink
  Lldp::Status::Ptr copy = Kel::ptrDynamicCast<Lldp::Status>(mirror->roots().front());
  std::uint16_t const ttl = copy->portStatus(eth1)->remoteSystem(1)->ttl();  // 90
  // [model]
  if (ttl != 90 || watch.changes < 1 || copy->portStatus(eth1)->remoteSystemByMsap(msap) == nullptr ||
      Kel::typeNode("Lldp::RemoteSystem") == nullptr) {
    std::fprintf(stderr, "readme: model example: ttl %u, %d changes seen\n", ttl, watch.changes);
    return 1;
  }
  return 0;
}

int readmeReceiver() {
  std::string const frame = std::string("\x01\x80\xc2\x00\x00\x0e\x02\x00\x00\x00\x00\x01\x88\xcc", 14) +
                            std::string("\x02\x07\x04\x02\x00\x00\x00\x00\x01", 9) +  // chassis ID: MAC
                            std::string("\x04\x05\x05" "eth0", 7) +                 // port ID: name
                            std::string("\x06\x02\x00\x78", 4) +                     // TTL 120
                            std::string("\x00\x00", 2);                              // end
  // [receiver]
  LldpRx::Receiver rx(Lldp::statusFactory("rx"), Lldp::configFactory("rx"));
  LldpRx::Port& eth0 = rx.portIs(Platform::IntfId(Kel::String("eth0")), 1000.0);
  LldpRx::FrameResult const result = eth0.frameIs(frame, 1000.0);  // destination MAC onwards
  rx.ageOut(1200.0);  // call it on a timer too: neighbours expire without frames
  // [receiver]
  if (result != LldpRx::FrameResult::added || rx.status()->remTablesAgeouts() != 1) {
    std::fprintf(stderr, "readme: receiver example: %s\n", LldpRx::toString(result));
    return 1;
  }
  return 0;
}
