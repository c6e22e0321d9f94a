#!/usr/bin/env bash
# Records LLDP traffic of real, independent peers: Debian's lldpd, four instances, each in a
# network namespace of its own, joined by a bridge (in a fifth namespace) to a receiving
# namespace where tcpdump records every LLDPDU and a receive-only lldpd learns the same
# neighbours. The peers advertise:
#   sw-af   a PSE: Power via MDI in the 802.3af form, IPv4 management address, and the
#           IEEE 802.1 TLVs (port VLAN 100, protocol VLAN 200, VLAN names, EAPOL protocol
#           identity, management VID 10) as lldpd's custom TLVs: its own come from VLAN
#           interfaces, which a sandbox's kernel may lack
#   sw-at   a PSE: Power via MDI in the 802.3at form (type 2, 25.5 W), LLDP-MED network
#           connectivity device with a network policy, civic, coordinate and ELIN
#           locations and inventory
#   pd-bt   a PD: Power via MDI in the 802.3bt form (lldpd's custom TLV; its own CLI stops
#           at 802.3at), LLDP-MED endpoint class III with inventory, an unknown
#           organizationally specific TLV
#   host    a plain station: MAC port ID, IPv6 management address; it stops before the
#           end of the recording and says so with a TTL of 0
# Halfway through, sw-at lowers its allocated power, so the capture holds a change too.
#
# Usage: scripts/make-sample-capture.sh OUT.pcap [LLDPCLI.json [SECONDS [LIVE.json]]]
#   OUT.pcap      the recording (classic pcap, Ethernet)
#   LLDPCLI.json  what the receiving lldpd reports at the end ("lldpcli -f json0 show
#                 neighbors details"), for comparisons
#   SECONDS       how long the peers talk (default 4; they send every second)
#   LIVE.json     what the neighbour tool ($LLDP_NEIGHBORS) captures live meanwhile
#                 (lldp-neighbors -i eth0 --json, in the receiving namespace)
# Needs root, iproute2, lldpd and tcpdump (scripts/build.sh deps). Everything it makes
# (namespaces, links, daemons, a scratch folder) is removed on the way out.
set -euo pipefail

out=${1:?usage: make-sample-capture.sh OUT.pcap [LLDPCLI.json [SECONDS [LIVE.json]]]}
json=${2:-}
seconds=${3:-4}
live=${4:-}
[ -z "$live" ] || [ -x "${LLDP_NEIGHBORS:-}" ] || { echo "make-sample-capture: LIVE.json needs LLDP_NEIGHBORS=<the tool>" >&2; exit 2; }
for tool in ip lldpd lldpcli tcpdump; do
  command -v "$tool" >/dev/null || { echo "make-sample-capture: $tool is missing (scripts/build.sh deps)" >&2; exit 2; }
done
[ "$(id -u)" -eq 0 ] || { echo "make-sample-capture: network namespaces need root" >&2; exit 2; }

tag="lsc$$"
work=$(mktemp -d)
chmod 755 "$work"  # lldpd's unprivileged half reaches its socket here
namespaces=()
cleanup() {
  local ns pid
  for ns in "${namespaces[@]}"; do
    for pid in $(ip netns pids "$ns" 2>/dev/null); do kill "$pid" 2>/dev/null || true; done
  done
  sleep 0.2
  for ns in "${namespaces[@]}"; do
    for pid in $(ip netns pids "$ns" 2>/dev/null); do kill -9 "$pid" 2>/dev/null || true; done
    ip netns del "$ns" 2>/dev/null || true
  done
  rm -rf "$work"
}
trap cleanup EXIT

ns() { namespaces+=("$tag-$1"); ip netns add "$tag-$1"; ip -n "$tag-$1" link set lo up; }
in_ns() { local n=$1; shift; ip netns exec "$tag-$n" "$@"; }

# The bridge forwards the nearest-bridge group address (bit 14 of the forwarding mask),
# which a Linux bridge otherwise keeps to itself.
ns sw
ip -n "$tag-sw" link add br0 type bridge stp_state 0 group_fwd_mask 0x4000
ip -n "$tag-sw" link set br0 up
# attach NAME MAC: a namespace NAME whose eth0 (with MAC) is a port of the bridge
attach() {
  local name=$1 mac=$2
  ns "$name"
  ip link add "$tag$name" netns "$tag-sw" type veth peer name eth0 netns "$tag-$name"
  ip -n "$tag-$name" link set eth0 address "$mac" up
  ip -n "$tag-sw" link set "$tag$name" master br0 up
}
attach rx 02:00:00:00:00:01
attach sw-af 02:00:00:00:0a:f0
attach sw-at 02:00:00:00:0a:70
attach pd-bt 02:00:00:00:0b:70
attach host 02:00:00:00:00:99
ip -n "$tag-sw-af" address add 192.0.2.10/24 dev eth0
ip -n "$tag-sw-at" address add 192.0.2.20/24 dev eth0
ip -n "$tag-pd-bt" address add 192.0.2.30/24 dev eth0
ip -n "$tag-host" address add 2001:db8::99/64 dev eth0 nodad

mkdir -p /run/lldpd  # lldpd's privilege-separation chroot
# start NAME [lldpd options...]: lldpd in namespace NAME, configured from $work/NAME.conf
start() {
  local name=$1
  shift
  ip netns exec "$tag-$name" lldpd -d -u "$work/$name.sock" -p "$work/$name.pid" -I eth0 -O "$work/$name.conf" \
    -L "$(command -v lldpcli)" "$@" >"$work/$name.log" 2>&1 &
  echo $! >"$work/$name.daemon"  # ip netns exec runs lldpd in its own process
}
cli() { local name=$1; shift; in_ns "$name" lldpcli -u "$work/$name.sock" "$@"; }
wait_up() {
  local i
  for i in $(seq 100); do cli "$1" show configuration >/dev/null 2>&1 && return 0; sleep 0.1; done
  echo "make-sample-capture: lldpd in $1 did not start:" >&2
  cat "$work/$1.log" >&2
  exit 1
}

common="configure lldp tx-interval 1
configure system interface pattern eth0"
cat >"$work/rx.conf" <<EOF
$common
EOF
cat >"$work/sw-af.conf" <<EOF
$common
configure system hostname sw-af
configure system description "Example switch, 802.3af PSE"
configure system capabilities enabled bridge
configure system ip management pattern 192.0.2.10
configure lldp portidsubtype ifname
configure dot3 power pse supported enabled paircontrol powerpairs signal class class-3
configure lldp custom-tlv oui 00,80,c2 subtype 1 oui-info 00,64
configure lldp custom-tlv oui 00,80,c2 subtype 2 oui-info 06,00,c8
configure lldp custom-tlv oui 00,80,c2 subtype 3 oui-info 00,64,05,76,6f,69,63,65
configure lldp custom-tlv oui 00,80,c2 subtype 3 oui-info 00,c8,05,76,69,64,65,6f
configure lldp custom-tlv oui 00,80,c2 subtype 4 oui-info 02,88,8e
configure lldp custom-tlv oui 00,80,c2 subtype 6 oui-info 00,0a
EOF
cat >"$work/sw-at.conf" <<EOF
$common
configure system hostname sw-at
configure system description "Example switch, 802.3at PSE, LLDP-MED"
configure system capabilities enabled bridge,router
configure system ip management pattern 192.0.2.20
configure lldp portidsubtype ifname
configure ports eth0 lldp portdescription "uplink to sw-core"
configure dot3 power pse supported enabled paircontrol powerpairs signal class class-4 type 2 source primary priority high requested 25500 allocated 25500
configure med policy application voice tagged vlan 500 priority voice dscp 46
configure med policy application video-conferencing vlan 600 priority video dscp 34
configure med location address country DE city Berlin street "Karl-Liebknecht-Strasse" number 42
configure med location coordinate latitude 52.5200N longitude 13.4050E altitude 34 m datum WGS84
configure med location elin 0123456789
configure inventory hardware-revision "HW 1.0"
configure inventory software-revision "SW 2.3.4"
configure inventory firmware-revision "FW 5.6"
configure inventory serial-number "SN-0001"
configure inventory manufacturer "Example Networks"
configure inventory model "EX-24P"
configure inventory asset "asset-42"
EOF
# The 802.3bt body (25 bytes after the subtype): a PD, supported, enabled; pair 1 (signal),
# class 5 (class 4); type 2 PD, PSE-sourced, PD 4PID, priority high; requested and
# allocated 51.0 W; modes A and B and alternatives A and B 25.5 W; power status 0x9ff8
# (4-pair single signature, single-signature PD, both alternatives, dual-signature
# classes 7, class ext 8); system setup 0x08 (type 4 single-signature PD); maximum
# available 90.0 W; autoclass request; no power down.
cat >"$work/pd-bt.conf" <<EOF
$common
configure system hostname pd-bt
configure system description "Example access point, 802.3bt PD"
configure system capabilities enabled wlan
configure system ip management pattern 192.0.2.30
configure lldp custom-tlv oui 00,12,0f subtype 2 oui-info 06,01,05,56,01,fe,01,fe,00,ff,00,ff,00,ff,00,ff,9f,f8,08,03,84,01,00,00,00
configure lldp custom-tlv oui 00,00,5e subtype 1 oui-info 68,65,6c,6c,6f
configure med power pd source pse priority high value 51000
configure inventory hardware-revision "AP HW B"
configure inventory software-revision "AP SW 7"
configure inventory firmware-revision "AP FW 7.1"
configure inventory serial-number "AP-123"
configure inventory manufacturer "Example Wireless"
configure inventory model "AP-7"
configure inventory asset "ceiling 3"
EOF
cat >"$work/host.conf" <<EOF
$common
configure system hostname host
configure system description "Example station"
configure system capabilities enabled station
configure lldp portidsubtype macaddress
EOF

in_ns rx tcpdump -i eth0 -U -w "$work/capture.pcap" ether proto 0x88cc >"$work/tcpdump.log" 2>&1 &
for i in $(seq 50); do grep -q 'listening on' "$work/tcpdump.log" 2>/dev/null && break; sleep 0.1; done
if [ -n "$live" ]; then
  ip netns exec "$tag-rx" "$LLDP_NEIGHBORS" -i eth0 --json >"$live" 2>"$work/live.log" &
  echo $! >"$work/live.pid"
fi
start rx -r
start sw-af
start sw-at -M 4
start pd-bt -M 3
start host
for name in rx sw-af sw-at pd-bt host; do wait_up "$name"; done

half=$(awk "BEGIN { print $seconds / 2 }")
sleep "$half"
cli sw-at configure dot3 power pse supported enabled paircontrol powerpairs signal class class-4 type 2 \
  source primary priority high requested 25500 allocated 15400 >/dev/null
sleep "$half"
# A clean stop: lldpd says goodbye with a TTL of 0.
kill "$(cat "$work/host.daemon")"
sleep 1.5
if [ -n "$json" ]; then cli rx -f json0 show neighbors details >"$json"; fi
for pid in $(ip netns pids "$tag-rx"); do
  if grep -q tcpdump "/proc/$pid/cmdline" 2>/dev/null; then kill -INT "$pid"; fi
done
if [ -n "$live" ]; then
  kill -INT "$(cat "$work/live.pid")"
  wait "$(cat "$work/live.pid")" || { echo "make-sample-capture: the live tool failed:" >&2; cat "$work/live.log" >&2; }
fi
sleep 0.5
cp "$work/capture.pcap" "$out"
echo "make-sample-capture: $(tcpdump -r "$out" 2>/dev/null | wc -l) LLDP frames in $out"
