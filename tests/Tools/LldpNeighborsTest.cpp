// The neighbour tool as a user runs it: the command line's refusals (one line, a non-zero
// status), a tree streamed as an attribute log printing, once mirrored, exactly what the
// run that streamed it prints, signals, sockets, text a neighbour sent, and live capture
// on a quiet link.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include <nlohmann/json.hpp>

#include "tools/lldp-neighbors/Show.h"

#include "Lldp/Dot3TestUtil.h"
#include "Tools/AgentTestUtil.h"
#include "Tools/RxTestUtil.h"

namespace {

namespace fs = std::filesystem;
using AgentTest::sleepFor;
using AgentTest::slurp;

struct Result {
  int status;
  std::string out, err;
};

std::string temp(std::string const& name) {
  return (fs::temp_directory_path() / ("lldpn-" + std::to_string(::getpid()) + "-" + name)).string();
}

// Runs shell words with the tool first; what they redirect themselves wins.
Result run(std::string const& args) {
  std::string const out = temp("out"), err = temp("err");
  int const rc = std::system(
      ("cd " + fs::temp_directory_path().string() + " && { " + LLDP_NEIGHBORS_TOOL + " " + args + "; } >" + out + " 2>" + err).c_str());
  Result r{WIFEXITED(rc) ? WEXITSTATUS(rc) : -1, slurp(out), slurp(err)};
  fs::remove(out);
  fs::remove(err);
  return r;
}

// A shell command in the background, as its own process; wait() gives its exit status.
pid_t spawn(std::string const& command) {
  pid_t const pid = ::fork();
  if (pid == 0) {
    ::execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  return pid;
}
// Its exit status; a process still running after `seconds` is killed (status 137).
int wait(pid_t pid, double seconds = 20) {
  int st = 0;
  for (int i = 0; ::waitpid(pid, &st, WNOHANG) == 0; ++i) {
    if (i == static_cast<int>(seconds * 20)) ::kill(pid, SIGKILL);
    sleepFor(0.05);
  }
  return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
}
// A socket at path that nobody listens on (a killed run's), or, with listening, one that
// does; returns its descriptor.
int unixSocket(std::string const& path, bool listening) {
  sockaddr_un a{};
  a.sun_family = AF_UNIX;
  std::snprintf(a.sun_path, sizeof a.sun_path, "%s", path.c_str());
  int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  ::bind(fd, reinterpret_cast<sockaddr const*>(&a), sizeof a);
  if (listening) ::listen(fd, 1);
  else ::close(fd);
  return fd;
}

std::string const sample = std::string(LLDP_SOURCE_DIR) + "/tools/samples/lldpd-neighbours.pcap";

// An enumerator as the outputs name it: without the prefix its type's enumerators share, cut
// back to where a word starts, in lowerCamelCase, digits joined by '_' joined by '.'.
TEST(LldpNeighborsTest, EnumeratorsLoseTheirTypesPrefix) {
  struct Case { std::string_view name; std::vector<std::string_view> all; std::string shown; };
  Case const cases[] = {
      {"IeeeStandard_802_3at", {"IeeeStandard_802_3af", "IeeeStandard_802_3at", "IeeeStandard_802_3bt"}, "802.3at"},
      {"cidMacAddress", {"cidChassisComponent", "cidMacAddress"}, "macAddress"},
      {"PSE", {}, "pse"},
  };
  for (auto const& c : cases) EXPECT_EQ(LldpNeighbors::displayName(c.name, c.all), c.shown) << c.name;
}

TEST(LldpNeighborsTest, RefusesBadArgumentsAndInputsWithOneLine) {
  auto const table = AgentTest::dataRows(LLDP_TEST_DATA_DIR "/lldp-neighbors-refusals.txt");
  EXPECT_GT(table.size(), 20u);
  for (auto const& row : table) {
    std::string args = row.at(1), message = row.at(2);
    for (auto [from, to] : {std::pair<std::string, std::string>{"@SAMPLE@", sample}, {"@SRC@", LLDP_SOURCE_DIR}})
      if (std::size_t at = args.find(from); at != std::string::npos) args.replace(at, from.size(), to);
    SCOPED_TRACE(args);
    Result const r = run(args);
    EXPECT_EQ(r.status, std::stoi(row[0]));
    EXPECT_TRUE(r.out.empty()) << r.out;
    EXPECT_TRUE(r.err.rfind("lldp-neighbors: ", 0) == 0 && r.err.find('\n') == r.err.size() - 1) << "not one line: " << r.err;
    EXPECT_EQ(r.err, message == "*" ? r.err : "lldp-neighbors: " + message + "\n");
  }
  Result const help = run("--help");
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("Usage: lldp-neighbors"), std::string::npos);
  EXPECT_EQ(run("--version").out, "lldp-neighbors " LLDP_VERSION "\n");
}

// A writer streaming the sample to unix:path: its first frame at once, the others 1.5 s
// later (pcap: a 24-byte header, then per frame 16 bytes and the frame).
pid_t slowWriter(std::string const& path, std::string const& redirections) {
  std::string const pcap = slurp(sample);
  std::size_t const first = 24 + 16 + (static_cast<unsigned char>(pcap.at(32)) | static_cast<unsigned char>(pcap.at(33)) << 8);
  return spawn("sh -c 'head -c " + std::to_string(first) + " " + sample + "; sleep 1.5; tail -c +" +
               std::to_string(first + 1) + " " + sample + "' | " + LLDP_NEIGHBORS_TOOL + " -r - --stream unix:" + path +
               redirections);
}

// A mirror listens only where nothing is, or where a killed run left its socket; it
// stops on SIGINT or SIGTERM as the live capture does: the table, status 0, its socket
// gone. A signal that interrupts a read of a log ends the run as well.
TEST(LldpNeighborsTest, MirrorSocketsAndSignals) {
  std::string const path = temp("sock"), file = temp("file"), out = temp("mirror-out");
  std::ofstream(file) << "keep me";
  Result const onFile = run("--mirror unix:" + file);
  EXPECT_EQ(onFile.status, 1);
  EXPECT_EQ(onFile.err, "lldp-neighbors: cannot listen on '" + file + "': it exists and is not a socket\n");
  EXPECT_EQ(slurp(file), "keep me");
  // Where a writer listens (the agent's state socket), the mirror connects and reads it.
  int const serving = unixSocket(path, true);
  pid_t const reader = spawn(std::string(LLDP_NEIGHBORS_TOOL) + " --mirror unix:" + path + " 2>/dev/null");
  int const connection = ::accept(serving, nullptr, nullptr);
  EXPECT_GE(connection, 0);
  ::close(connection);
  EXPECT_EQ(wait(reader, 5), 1);  // an empty log names no tree
  ::close(serving);
  fs::remove(path);
  ASSERT_EQ(run("-r " + sample + " --stream " + file).status, 0);
  std::string const log = slurp(file);
  for (bool fifo : {false, true}) {
    SCOPED_TRACE(fifo ? "SIGTERM in a read of a FIFO" : "SIGINT while listening");
    fs::remove(path);
    if (!fifo) unixSocket(path, false);  // stale: replaced
    ASSERT_EQ(fifo ? ::mkfifo(path.c_str(), 0600) : 0, 0);
    pid_t const pid = spawn(std::string(LLDP_NEIGHBORS_TOOL) + " --mirror " + (fifo ? "" : "unix:") + path + " >" + out);
    int const fd = fifo ? ::open(path.c_str(), O_RDWR) : -1;  // the log, and the FIFO left open
    EXPECT_EQ(fifo ? ::write(fd, log.data(), log.size()) : 0, fifo ? static_cast<ssize_t>(log.size()) : 0);
    sleepFor(0.3);
    ::kill(pid, fifo ? SIGTERM : SIGINT);
    EXPECT_EQ(wait(pid), 0);
    EXPECT_NE(slurp(out).find(fifo ? "sw-at" : "0 neighbours;"), std::string::npos) << slurp(out);
    EXPECT_TRUE(fifo || !fs::exists(fs::symlink_status(path)));
    if (fd >= 0) ::close(fd);
  }
  for (auto const& p : {path, file, out}) fs::remove(p);
}

// A mirror of a live writer shows the tree whenever the writer's changes pause. A writer
// whose mirror goes away says so, goes on, prints its table, and gives a mirror that comes
// back (over the socket the killed one left) the whole tree.
TEST(LldpNeighborsTest, MirrorShowsTheTreeAsItArrivesAndTheWriterOutlivesIt) {
  std::string const path = temp("wsock"), out = temp("w-out"), err = temp("w-err"), first = temp("m1"), second = temp("m2");
  fs::remove(path);
  pid_t const mirror = spawn(std::string(LLDP_NEIGHBORS_TOOL) + " --mirror unix:" + path + " >" + first);
  for (int i = 0; i < 100 && !fs::exists(path); ++i) sleepFor(0.02);
  pid_t const writer = slowWriter(path, " >" + out + " 2>" + err);
  sleepFor(1);
  ::kill(mirror, SIGKILL);
  EXPECT_EQ(wait(mirror), 128 + SIGKILL);
  EXPECT_NE(slurp(first).find("0 neighbours;"), std::string::npos) << "the writer's empty tree, before its frames";
  pid_t const again = spawn(std::string(LLDP_NEIGHBORS_TOOL) + " --mirror unix:" + path + " >" + second);
  EXPECT_EQ(wait(writer), 0) << slurp(err);
  EXPECT_EQ(wait(again, 5), 0);
  std::string const table = run("-r " + sample).out;
  EXPECT_EQ(slurp(out), table);
  EXPECT_EQ(slurp(second), table);
  EXPECT_EQ(slurp(err), "lldp-neighbors: the mirror at '" + path + "' went away (Broken pipe); capturing on, reconnecting\n" +
                            "lldp-neighbors: the mirror at '" + path + "' is back; sending the whole tree\n");
  for (auto const& p : {out, err, first, second}) fs::remove(p);
}

// What a neighbour sent reaches the terminal and the logs escaped, and JSON as it was sent.
TEST(LldpNeighborsTest, HostileTextIsEscapedAndJsonKeepsTheBytes) {
  using namespace RxTest;
  std::string const evil = "\x1b[2J\nLLDP_NEIGHBOR_GONE[5]: forged\a\xc2\x9b\xe2\x80\xae", notUtf8 = "caf\xe9 \\ \"";
  // Overlong, a surrogate, past U+10FFFF: not UTF-8, though their bytes look the part.
  std::string const lookalike = "a\xc0\xaf\xed\xa0\x80\xf4\x90\x80\x80";
  std::string const file = temp("evil.pcap");
  Dot3Test::writePcap(file, {ethernet(tlv(1, "\x07" + evil) + tlv(2, "\x07" + evil) + ttl(120) + tlv(4, lookalike) + tlv(5, evil) +
                                      tlv(6, notUtf8) + end())});
  Result const table = run("-r " + file + " -e -v 8");
  EXPECT_EQ(table.status, 0) << table.err;
  Result const detail = run("-r " + file + " --detail");
  for (std::string const* text : {&table.out, &table.err, &detail.out}) {
    EXPECT_EQ(text->find_first_of("\x1b\x07\xe9\x9b\xae\xc0\xed\xf4"), std::string::npos) << *text;
    EXPECT_EQ(text->find("\nLLDP_NEIGHBOR_GONE"), std::string::npos) << *text;
  }
  EXPECT_NE(table.err.find("\\x1b[2J\\x0aLLDP_NEIGHBOR_GONE[5]: forged\\x07"), std::string::npos) << table.err;
  EXPECT_NE(detail.out.find("System description: caf\\xe9 \\x5c \"\n"), std::string::npos) << detail.out;
  EXPECT_NE(detail.out.find("Port description: a\\xc0\\xaf\\xed\\xa0\\x80\\xf4\\x90\\x80\\x80\n"), std::string::npos);
  nlohmann::json const j = nlohmann::json::parse(run("-r " + file + " --json").out);
  nlohmann::json const& n = j["ports"][0]["neighbors"][0];
  EXPECT_EQ(n["sysName"], evil);
  EXPECT_EQ(n["sysDesc"], nlohmann::json({{"hex", "63 61 66 e9 20 5c 20 22"}}));
  EXPECT_EQ(n["portDesc"], nlohmann::json({{"hex", "61 c0 af ed a0 80 f4 90 80 80"}}));
  EXPECT_EQ(n["chassisId"], evil);
  // Where a person reads them, identifiers that are not printable text show their bytes.
  EXPECT_NE(table.out.find("1b 5b 32 4a 0a 4c"), std::string::npos) << table.out;
  fs::remove(file);
}

// Live, on a veth pair of a namespace made here: time runs without frames (the run ends
// on time and a neighbour ages out, counted and logged), and the interface's own
// outgoing frames are no neighbour's.
TEST(LldpNeighborsTest, LiveCaptureOnAQuietLink) {
  AgentTest::Lab lab({"ip", "python3"});
  if (!lab.skip.empty()) GTEST_SKIP() << lab.skip;
  ASSERT_TRUE(lab.ns("a") && lab.ns("b"));
  lab.link("a", "lldpa", "b", "lldpb", "02:00:00:00:00:11");
  // One raw frame out of an interface of a namespace (python3: a build dependency).
  auto send = [&](const char* where, const char* intf, std::string const& frame) {
    lab.write("frame", frame);
    return std::system((lab.in(where) + "python3 -c \"import socket; s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(('" +
                        intf + "', 0)); s.send(open('" + lab.path("frame") + "', 'rb').read())\"").c_str());
  };
  std::string const out = lab.path("out"), err = lab.path("err");
  auto const start = std::chrono::steady_clock::now();
  pid_t const tool = spawn(lab.in("b") + LLDP_NEIGHBORS_TOOL + " -i lldpb -t 3 --json -e >" + out + " 2>" + err);
  sleepFor(0.8);
  EXPECT_EQ(send("a", "lldpa", RxTest::frame(1, {}, 1)), 0);  // a neighbour with a TTL of 1 s
  EXPECT_EQ(send("b", "lldpb", RxTest::frame(2)), 0);         // sent by the capturing interface
  EXPECT_EQ(wait(tool), 0) << slurp(err);
  double const took = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_GE(took, 3.0);
  EXPECT_LT(took, 5.0);
  nlohmann::json const j = nlohmann::json::parse(slurp(out), nullptr, false);
  ASSERT_TRUE(j.is_object()) << slurp(out);
  EXPECT_EQ(j["tables"]["remTablesInserts"], 1);
  EXPECT_EQ(j["ports"][0]["counters"]["rxFramesTotal"], 1);
  EXPECT_TRUE(j["ports"][0]["neighbors"].empty());
  EXPECT_NE(slurp(err).find("LLDP_NEIGHBOR_TIMEOUT[5]: LLDP neighbor with chassisId 02:00:00:00:00:01"), std::string::npos)
      << slurp(err);
}

// The table, the detail and the JSON print the same whether read from the capture (pcap or
// pcapng), from the streaming run, or from a mirror of its log through a file or a pipe.
TEST(LldpNeighborsTest, MirrorPrintsWhatTheStreamingRunPrints) {
  std::string const log = temp("log"), ng = temp("sample.pcapng");
  bool const editcap = std::system(("editcap -F pcapng '" + sample + "' '" + ng + "' 2>/dev/null").c_str()) == 0;
  for (const char* format : {"", "--detail", "--json"}) {
    SCOPED_TRACE(format);
    Result const direct = run("-r " + sample + " " + format);
    ASSERT_EQ(direct.status, 0) << direct.err;
    ASSERT_NE(direct.out.find("sw-at"), std::string::npos);
    EXPECT_EQ(run("-r " + sample + " --stream " + log + " " + format).out, direct.out);
    Result const mirrored = run("--mirror " + log + " " + format);
    EXPECT_EQ(mirrored.status, 0) << mirrored.err;
    EXPECT_EQ(mirrored.out, direct.out);
    EXPECT_EQ(run("-r " + sample + " --stream - | " + LLDP_NEIGHBORS_TOOL + " --mirror - " + format).out, direct.out);
    EXPECT_EQ(editcap ? run("-r " + ng + " " + format).out : direct.out, direct.out);
  }
  for (auto const& p : {log, ng}) fs::remove(p);
  if (!editcap) GTEST_SKIP() << "pcapng not read: editcap is not installed (Debian package wireshark-common, with tshark)";
}

// Inputs cut short or claiming another link type: what came before a cut is shown, and
// the run says why it stopped and fails; a link type without a name is named by number.
TEST(LldpNeighborsTest, DamagedInputs) {
  std::string const pcap = slurp(sample), log = temp("d.log");
  ASSERT_EQ(run("-r " + sample + " --stream " + log).status, 0);
  std::string const logBytes = slurp(log);
  auto write = [](std::string const& name, std::string const& bytes) {
    std::ofstream(temp(name), std::ios::binary) << bytes;
    return temp(name);
  };
  std::string const odd = write("link.pcap", pcap.substr(0, 20) + std::string("\x01\x80\x00\x00", 4) + pcap.substr(24)),
                    cut = write("cut.pcap", pcap.substr(0, pcap.size() - 30)),
                    cutLog = write("cut.log", logBytes.substr(0, logBytes.size() - 3)),
                    badLog = write("bad.log", logBytes.substr(0, logBytes.size() - 1) + '\0');  // last token
  struct {
    std::string args;
    bool shows;           // a table of what came before
    std::string message;  // the last line of stderr
  } const cases[] = {
      {"-r " + odd, false, "cannot read '" + odd + "': link type 32769 is not Ethernet"},  // 0x8001, little-endian like the file
      {"-r " + cut, true, "error reading '" + cut + "': truncated dump file"},
      {"--mirror " + cutLog, true, "'" + cutLog + "' ends inside a record: the tree shown is as of the last whole one"},
      {"--mirror " + badLog, true, "'" + badLog + "' has corrupt records, left out: "},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.args);
    Result const r = run(c.args);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out.find("sw-af") != std::string::npos, c.shows) << r.out;
    EXPECT_EQ(r.err.rfind("lldp-neighbors: " + c.message, 0), 0u) << r.err;
  }
  for (auto const& path : {log, odd, cut, cutLog, badLog}) fs::remove(path);
}

// A frame the capture kept only the start of is the capture's doing, not the neighbour's:
// the run says so. The first record claims 100 bytes more than it kept.
TEST(LldpNeighborsTest, FramesCutShortByTheCaptureAreNoted) {
  std::string pcap = slurp(sample);
  std::uint32_t len;
  std::memcpy(&len, pcap.data() + 24 + 12, 4);  // the record's original length (the file is little-endian)
  len += 100;
  std::memcpy(pcap.data() + 24 + 12, &len, 4);
  std::string const path = temp("snap.pcap");
  std::ofstream(path, std::ios::binary) << pcap;
  Result const r = run("-r " + path);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("lldp-neighbors: 1 frames cut short by the capture (its snap length): decoded as far as kept\n"),
            std::string::npos)
      << r.err;
  fs::remove(path);
}

}  // namespace
