#include "tools/lldp-neighbors/Capture.h"

#include <pcap/pcap.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace LldpNeighbors {

namespace {

std::unique_ptr<pcap, void (*)(pcap*)> owned(pcap* p) { return {p, pcap_close}; }

}  // namespace

std::unique_ptr<FrameSource> FrameSource::file(std::string const& path) {
  char err[PCAP_ERRBUF_SIZE] = "";
  pcap* p = pcap_open_offline(path.c_str(), err);
  if (!p) {
    // libpcap's text already names the file when the system refused to open it.
    std::string why = err;
    if (why.rfind(path, 0) == 0) why = why.substr(path.size() + (why.size() > path.size() + 1 ? 2 : 0));
    throw CaptureError("cannot read '" + path + "': " + why);
  }
  auto guard = owned(p);
  if (int const link = pcap_datalink(p); link != DLT_EN10MB) {
    // libpcap has no name for every link type a file may claim.
    char const* name = pcap_datalink_val_to_name(link);
    throw CaptureError("cannot read '" + path + "': link type " + (name ? name : std::to_string(link)) +
                       " is not Ethernet");
  }
  return std::unique_ptr<FrameSource>(new FrameSource(guard.release(), path));
}

std::unique_ptr<FrameSource> FrameSource::live(std::string const& interface) {
  char err[PCAP_ERRBUF_SIZE] = "";
  pcap* p = pcap_create(interface.c_str(), err);
  if (!p) throw CaptureError("cannot capture on '" + interface + "': " + err);
  auto guard = owned(p);
  pcap_set_snaplen(p, 65535);
  pcap_set_promisc(p, 1);
  pcap_set_timeout(p, 200);
  if (int rc = pcap_activate(p); rc < 0)
    throw CaptureError("cannot capture on '" + interface + "': " +
                       (rc == PCAP_ERROR ? pcap_geterr(p) : pcap_statustostr(rc)));
  if (pcap_datalink(p) != DLT_EN10MB) throw CaptureError("cannot capture on '" + interface + "': not an Ethernet interface");
  bpf_program filter;
  if (pcap_compile(p, &filter, "ether proto 0x88cc", 1, PCAP_NETMASK_UNKNOWN) == 0) {
    pcap_setfilter(p, &filter);
    pcap_freecode(&filter);
  }
  return std::unique_ptr<FrameSource>(new FrameSource(guard.release(), interface));
}

FrameSource::~FrameSource() { pcap_close(pcap_); }

FrameSource::Next FrameSource::next(std::string_view& frame, double& time) {
  pcap_pkthdr* header = nullptr;
  u_char const* data = nullptr;
  switch (pcap_next_ex(pcap_, &header, &data)) {
    case 1:
      // A truncated capture keeps only the start of a frame: what was kept is decoded
      // and, when it ends in the middle of a TLV, refused as malformed.
      frame = std::string_view(reinterpret_cast<const char*>(data), header->caplen);
      time = static_cast<double>(header->ts.tv_sec) + static_cast<double>(header->ts.tv_usec) / 1e6;
      return Next::frame;
    case 0: return Next::idle;
    case PCAP_ERROR_BREAK: return Next::end;
    case PCAP_ERROR:
      // A file cut short ends here: the frames before it stand, and the caller says why.
      error_ = "error reading '" + name_ + "': " + pcap_geterr(pcap_);
      return Next::end;
    default: return Next::end;
  }
}

void FrameSource::breakLoop() { pcap_breakloop(pcap_); }

}  // namespace LldpNeighbors
