// lldpd as an independent peer: it advertises a configured Power via MDI TLV on one end
// of a veth pair between two network namespaces made here; the frames captured at the
// other end must parse to the configured values and read as tshark reads them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>

#include "Lldp/Dot3TestUtil.h"
#include "Lldp/Lldp.h"

namespace {

using namespace Dot3Test;

bool sh(std::string const& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

// Two namespaces joined by a veth pair; whatever runs inside them is stopped on the way out.
class NamespacePair {
 public:
  NamespacePair() {
    std::string const id = std::to_string(::getpid());
    a = "lldpit" + id + "a";
    b = "lldpit" + id + "b";
    ifA = "lit" + id + "a";
    ifB = "lit" + id + "b";
    made_ = sh("ip netns add " + a) && sh("ip netns add " + b) &&
            sh("ip link add " + ifA + " netns " + a + " type veth peer name " + ifB + " netns " + b) &&
            sh("ip -n " + a + " link set " + ifA + " up") && sh("ip -n " + b + " link set " + ifB + " up");
  }
  ~NamespacePair() {
    for (std::string const& ns : {a, b}) {
      // Only processes this test started live in its own namespaces.
      std::istringstream pids(run("ip netns pids " + ns + " 2>/dev/null"));
      for (std::string pid; pids >> pid;) sh("kill " + pid);
      sh("ip netns del " + ns);
    }
  }
  bool made() const { return made_; }
  std::string a, b, ifA, ifB;

 private:
  bool made_ = false;
};

TEST(InteropLldpdTest, PowerViaMdiFromLldpdParsesAsConfiguredAndAsTsharkReadsIt) {
  for (const char* tool : {"ip", "lldpd", "lldpcli", "tcpdump", "tshark"})
    if (!haveTool(tool))
      GTEST_SKIP() << tool << " is not available to run (Debian packages iproute2, lldpd, tcpdump, tshark; "
                   << "scripts/build.sh deps)";
  if (::geteuid() != 0) GTEST_SKIP() << "making network namespaces for lldpd needs root";
  NamespacePair ns;
  if (!ns.made()) GTEST_SKIP() << "network namespaces cannot be made here (ip netns add / veth refused)";

  TempDir dir;
  std::string const socket = dir.path() + "/lldpd.socket", conf = dir.path() + "/lldpd.conf",
                    pcap = dir.path() + "/lldpd.pcap";
  sh("touch '" + conf + "'");
  // lldpd's unprivileged side reaches its control socket here too.
  sh("chmod 755 '" + dir.path() + "'");
  sh("mkdir -p /run/lldpd");  // lldpd's privilege-separation chroot
  ASSERT_TRUE(sh("ip netns exec " + ns.a + " lldpd -d -u '" + socket + "' -I " + ns.ifA + " -O '" + conf +
                 "' -L \"$(command -v lldpcli)\" > '" + dir.path() + "/lldpd.log' 2>&1 &"));
  std::string const cli = "ip netns exec " + ns.a + " lldpcli -u '" + socket + "' ";
  bool up = false;
  for (int i = 0; i < 100 && !(up = sh(cli + "show configuration")); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  ASSERT_TRUE(up) << run("cat '" + dir.path() + "/lldpd.log'");
  // Requested and allocated powers are given in milliwatts.
  ASSERT_TRUE(sh(cli + "configure dot3 power pse supported enabled paircontrol powerpairs signal class class-4 "
                       "type 2 source primary priority high requested 25500 allocated 25000"));
  ASSERT_TRUE(sh(cli + "configure lldp tx-interval 1"));
  ASSERT_TRUE(
      sh("timeout 20 ip netns exec " + ns.b + " tcpdump -i " + ns.ifB + " -w '" + pcap + "' -c 2 ether proto 0x88cc"));

  std::size_t const frames = readPcap(pcap).size();
  ASSERT_EQ(frames, 2u);
  Lldp::PortStatus::Ptr const port = Lldp::portStatusFactory(Platform::IntfId(Kel::String("Ethernet1")), 0.0);
  Lldp::RemoteSystem::Ptr const remote = expectParsedAsTshark(pcap, frames - 1, port);
  ASSERT_TRUE(remote);
  ASSERT_TRUE(remote->powerViaMdiTlvReceived());
  Lldp::PowerViaMdiInfo const& p = remote->powerViaMdiInfo();
  EXPECT_EQ(p.ieeeStandard(), Lldp::PowerViaMdiInfo::IeeeStandard_802_3at);
  EXPECT_EQ(p.portClass(), Lldp::pClassPSE);
  EXPECT_TRUE(p.supported() && p.enabled() && p.powerPairControllable());
  EXPECT_EQ(p.powerPairs(), 1u);  // signal
  EXPECT_EQ(p.powerClass(), 5u);  // IEEE class 4
  EXPECT_EQ(p.at().powerPriority(), Power::PowerPriority::high);
  EXPECT_EQ(p.at().pdRequestedPowerValue(), 255);
  EXPECT_EQ(p.at().pseAllocatedPowerValue(), 250);
}

}  // namespace
