#include "tools/lldp-neighbors/Capture.h"

#include "tools/lldp-neighbors/Show.h"

#include <pcap/pcap.h>
#include <poll.h>

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
    throw CaptureError("cannot read '" + displayText(path) + "': " + why);
  }
  auto guard = owned(p);
  if (int const link = pcap_datalink(p); link != DLT_EN10MB) {
    // libpcap has no name for every link type a file may claim.
    char const* name = pcap_datalink_val_to_name(link);
    throw CaptureError("cannot read '" + displayText(path) + "': link type " + (name ? name : std::to_string(link)) +
                       " is not Ethernet");
  }
  return std::unique_ptr<FrameSource>(new FrameSource(guard.release(), path));
}

std::unique_ptr<FrameSource> FrameSource::live(std::string const& interface) {
  char err[PCAP_ERRBUF_SIZE] = "";
  pcap* p = pcap_create(interface.c_str(), err);
  if (!p) throw CaptureError("cannot capture on '" + displayText(interface) + "': " + err);
  auto guard = owned(p);
  pcap_set_snaplen(p, 65535);
  pcap_set_promisc(p, 1);
  // Frames as they come: the ring's block timeout starts only with a first frame, so a
  // quiet link would never wake a blocking read. The clock runs through poll() instead.
  pcap_set_immediate_mode(p, 1);
  if (int rc = pcap_activate(p); rc < 0)
    throw CaptureError("cannot capture on '" + displayText(interface) + "': " +
                       (rc == PCAP_ERROR ? pcap_geterr(p) : pcap_statustostr(rc)));
  if (pcap_datalink(p) != DLT_EN10MB) throw CaptureError("cannot capture on '" + displayText(interface) + "': not an Ethernet interface");
  // The host's own LLDPDUs (an agent on this machine) are not a neighbour's.
  if (pcap_setdirection(p, PCAP_D_IN) != 0 || pcap_setnonblock(p, 1, err) != 0 || pcap_get_selectable_fd(p) < 0)
    throw CaptureError("cannot capture on '" + displayText(interface) + "': " + (*err ? err : pcap_geterr(p)));
  bpf_program filter;
  if (pcap_compile(p, &filter, "ether proto 0x88cc", 1, PCAP_NETMASK_UNKNOWN) == 0) {
    pcap_setfilter(p, &filter);
    pcap_freecode(&filter);
  }
  auto source = std::unique_ptr<FrameSource>(new FrameSource(guard.release(), interface));
  source->live_ = true;
  return source;
}

FrameSource::~FrameSource() { pcap_close(pcap_); }

FrameSource::Next FrameSource::next(std::string_view& frame, double& time) {
  pcap_pkthdr* header = nullptr;
  u_char const* data = nullptr;
  int rc = pcap_next_ex(pcap_, &header, &data);
  if (rc == 0 && live_) {
    pollfd p{pcap_get_selectable_fd(pcap_), POLLIN, 0};
    // A signal ends the wait early (EINTR): the caller looks at its stop flag.
    if (::poll(&p, 1, idleMilliseconds) <= 0) return Next::idle;
    rc = pcap_next_ex(pcap_, &header, &data);
  }
  switch (rc) {
    case 1:
      // A truncated capture keeps only the start of a frame: what was kept is decoded
      // and, when it ends in the middle of a TLV, refused as malformed.
      frame = std::string_view(reinterpret_cast<const char*>(data), header->caplen);
      cutShort_ += header->caplen < header->len;
      time = static_cast<double>(header->ts.tv_sec) + static_cast<double>(header->ts.tv_usec) / 1e6;
      return Next::frame;
    case 0: return Next::idle;
    case PCAP_ERROR_BREAK: return Next::end;
    case PCAP_ERROR:
      // A file cut short ends here: the frames before it stand, and the caller says why.
      error_ = "error reading '" + displayText(name_) + "': " + pcap_geterr(pcap_);
      return Next::end;
    default: return Next::end;
  }
}

}  // namespace LldpNeighbors
