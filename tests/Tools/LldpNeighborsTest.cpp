// The neighbour tool as a user runs it: the command line's refusals (one line, a non-zero
// status), a tree streamed as an attribute log printing, once mirrored, exactly what the
// run that streamed it prints, signals, sockets, text a neighbour sent, and live capture
// on a quiet link.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>

#include <nlohmann/json.hpp>

#include "tests/Tools/RxTestUtil.h"

namespace {

namespace fs = std::filesystem;

struct Result {
  int status;
  std::string out, err;
};

std::string slurp(std::string const& path) {
  std::string s;
  if (FILE* f = std::fopen(path.c_str(), "rb")) {
    char buf[4096];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;) s.append(buf, n);
    std::fclose(f);
  }
  return s;
}

std::string temp(std::string const& name) {
  return (fs::temp_directory_path() / ("lldpn-" + std::to_string(::getpid()) + "-" + name)).string();
}

// Runs the tool (its standard output to `stdoutTo` when given, then not kept).
Result run(std::string const& args, std::string const& stdoutTo = {}) {
  std::string const out = temp("out"), err = temp("err");
  int const rc = std::system(("cd " + fs::temp_directory_path().string() + " && " + LLDP_NEIGHBORS_TOOL + " " + args +
                              " >" + (stdoutTo.empty() ? out : stdoutTo) + " 2>" + err)
                                 .c_str());
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
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
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
  if (listening) {
    ::listen(fd, 1);
  } else {
    ::close(fd);
  }
  return fd;
}

// A capture of Ethernet frames, as libpcap writes one.
std::string pcapOf(std::vector<std::string> const& frames) {
  auto le32 = [](std::uint32_t v) { return std::string{char(v), char(v >> 8), char(v >> 16), char(v >> 24)}; };
  std::string f = le32(0xa1b2c3d4) + std::string("\x02\x00\x04\x00", 4) + le32(0) + le32(0) + le32(65535) + le32(1);
  std::uint32_t t = 1700000000;
  for (std::string const& x : frames) f += le32(t++) + le32(0) + le32(x.size()) + le32(x.size()) + x;
  return f;
}
void writeFile(std::string const& path, std::string const& bytes) {
  FILE* f = std::fopen(path.c_str(), "wb");
  std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
}

std::string const sample = std::string(LLDP_SOURCE_DIR) + "/tools/samples/lldpd-neighbours.pcap";

TEST(LldpNeighborsTest, RefusesBadArgumentsAndInputsWithOneLine) {
  struct Case {
    std::string args;
    int status;
    const char* message;  // the line, after "lldp-neighbors: "
  } const cases[] = {
      {"", 2, "no input: give -r FILE, -i IFACE or --mirror SRC (see --help)"},
      {"--bogus", 2, "unknown option '--bogus' (see --help)"},
      {"-r", 2, "option '-r' needs a value (see --help)"},
      {"-r a.pcap -i eth0", 2, "give only one of -r, -i and --mirror (see --help)"},
      {"-r a.pcap --count 3", 2, "--count and --time apply to -i only (see --help)"},
      {"-r a.pcap --max-neighbors 0", 2, "invalid value '0' for --max-neighbors (see --help)"},
      {"-r a.pcap stray", 2, "unexpected argument 'stray' (see --help)"},
      {"--mirror - --stream x", 2, "--mirror and --stream do not go together (see --help)"},
      // Options that would change nothing are refused, not ignored.
      {"--mirror - -e", 2, "--events applies to the run that streams, not to --mirror (see --help)"},
      {"--mirror - -v 8", 2, "--trace applies to the run that streams, not to --mirror (see --help)"},
      {"--mirror - --max-neighbors 3", 2,
       "--max-neighbors and --no-rate-limit apply to the run that streams, not to --mirror (see --help)"},
      {"--mirror - --no-rate-limit", 2,
       "--max-neighbors and --no-rate-limit apply to the run that streams, not to --mirror (see --help)"},
      {"-i eth0 --port p", 2, "--port applies to -r only (-i names the port) (see --help)"},
      {"-r a.pcap -j -d", 2, "--detail is for the text output: --json always has every field (see --help)"},
      {"-r a.pcap --stream - -j", 2,
       "--stream - writes the log instead of the table: --json and --detail have nothing to format (see --help)"},
      // What a user typed is shown escaped, as everything else.
      {"\"$(printf '\\055-\\033[2J\\a')\"", 2, "unknown option '--\\x1b[2J\\x07' (see --help)"},
      {"-r a.pcap --max-neighbors \"$(printf '1\\n2')\"", 2, "invalid value '1\\x0a2' for --max-neighbors (see --help)"},
      {"-r \"$(printf '/nonexistent/\\033]0;x')\"", 1, "cannot read '/nonexistent/\\x1b]0;x': No such file or directory"},
      {"-r " + sample + " --stream /dev/full", 1, "cannot write to '/dev/full': No space left on device"},
      {"--mirror unix:", 1, "socket path '' is empty or too long"},
      {"-r /nonexistent/x.pcap", 1, "cannot read '/nonexistent/x.pcap': No such file or directory"},
      {"-r " + std::string(LLDP_SOURCE_DIR) + "/README.md", 1, nullptr},
      {"-r " + sample + " --stream /nonexistent/dir/log", 1, "cannot write '/nonexistent/dir/log': No such file or directory"},
      {"--mirror /nonexistent/log", 1, "cannot read '/nonexistent/log': No such file or directory"},
      {"-i lldpn-no-such-if0", 1, nullptr},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.args);
    Result const r = run(c.args);
    EXPECT_EQ(r.status, c.status);
    EXPECT_TRUE(r.out.empty()) << r.out;
    ASSERT_FALSE(r.err.empty());
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << "not one line: " << r.err;
    EXPECT_EQ(r.err.rfind("lldp-neighbors: ", 0), 0u) << r.err;
    if (c.message) {
      EXPECT_EQ(r.err, std::string("lldp-neighbors: ") + c.message + "\n");
    }
  }
  Result const help = run("--help");
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("Usage: lldp-neighbors"), std::string::npos);
  EXPECT_EQ(run("--version").out, "lldp-neighbors " LLDP_VERSION "\n");
  // A full disk fails the run, whatever the format.
  for (const char* format : {"", "--json", "--detail"}) {
    Result const full = run("-r " + sample + " " + format, "/dev/full");
    EXPECT_EQ(full.status, 1) << format;
    EXPECT_EQ(full.err, "lldp-neighbors: cannot write the output: No space left on device\n") << format;
  }
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
// stops on SIGINT or SIGTERM as the live capture does: the table, status 0, its socket gone.
TEST(LldpNeighborsTest, MirrorSocketsAndSignals) {
  std::string const path = temp("sock"), file = temp("file");
  writeFile(file, "keep me");
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
  for (int sig : {SIGINT, SIGTERM}) {
    SCOPED_TRACE(sig);
    fs::remove(path);
    unixSocket(path, false);  // stale: replaced
    std::string const out = temp("mirror-out");
    pid_t const pid = spawn(std::string(LLDP_NEIGHBORS_TOOL) + " --mirror unix:" + path + " >" + out);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    ::kill(pid, sig);
    EXPECT_EQ(wait(pid), 0);
    EXPECT_NE(slurp(out).find("0 neighbours;"), std::string::npos) << slurp(out);
    EXPECT_FALSE(fs::exists(fs::symlink_status(path)));
    fs::remove(out);
  }
  fs::remove(file);
}

// A writer whose mirror goes away says so, goes on, prints its table, and gives a mirror
// that comes back the whole tree.
TEST(LldpNeighborsTest, WriterOutlivesItsMirror) {
  std::string const path = temp("wsock"), out = temp("w-out"), err = temp("w-err"), mirrored = temp("m-out");
  fs::remove(path);
  int const listener = unixSocket(path, true);
  pid_t const writer = slowWriter(path, " >" + out + " 2>" + err);
  int const connection = ::accept(listener, nullptr, nullptr);
  ASSERT_GE(connection, 0);
  ::close(connection);
  ::close(listener);
  fs::remove(path);
  pid_t const mirror = spawn(std::string(LLDP_NEIGHBORS_TOOL) + " --mirror unix:" + path + " >" + mirrored);
  EXPECT_EQ(wait(writer), 0) << slurp(err);
  EXPECT_EQ(wait(mirror, 5), 0);
  std::string const table = run("-r " + sample).out;
  EXPECT_EQ(slurp(out), table);
  EXPECT_EQ(slurp(mirrored), table);
  EXPECT_EQ(slurp(err), "lldp-neighbors: the mirror at '" + path + "' went away (Broken pipe); capturing on, reconnecting\n" +
                            "lldp-neighbors: the mirror at '" + path + "' is back; sending the whole tree\n");
  for (auto const& p : {out, err, mirrored}) fs::remove(p);
}

// A mirror of a live writer shows the tree whenever the writer's changes pause.
TEST(LldpNeighborsTest, MirrorShowsTheTreeAsItArrives) {
  std::string const path = temp("asock"), mirrored = temp("a-out");
  fs::remove(path);
  pid_t const mirror = spawn(std::string(LLDP_NEIGHBORS_TOOL) + " --mirror unix:" + path + " >" + mirrored);
  for (int i = 0; i < 100 && !fs::exists(path); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  pid_t const writer = slowWriter(path, " >/dev/null");
  std::this_thread::sleep_for(std::chrono::milliseconds(1000));
  std::string const early = slurp(mirrored);  // the writer's empty tree, before its frames
  EXPECT_EQ(wait(writer), 0);
  EXPECT_EQ(wait(mirror, 5), 0);
  EXPECT_NE(early.find("0 neighbours;"), std::string::npos) << early;
  EXPECT_EQ(slurp(mirrored), early + run("-r " + sample).out);
  fs::remove(mirrored);
}

// What a neighbour sent reaches the terminal and the logs escaped, and JSON as it was sent.
TEST(LldpNeighborsTest, HostileTextIsEscapedAndJsonKeepsTheBytes) {
  using namespace RxTest;
  std::string const evil = "\x1b[2J\nLLDP_NEIGHBOR_GONE[5]: forged\a", notUtf8 = "caf\xe9 \\ \"";
  std::string const frame =
      ethernet(tlv(1, "\x07" + evil) + tlv(2, "\x07" + evil) + ttl(120) + tlv(5, evil) + tlv(6, notUtf8) + end());
  std::string const file = temp("evil.pcap");
  writeFile(file, pcapOf({frame}));
  Result const table = run("-r " + file + " -e -v 8");
  EXPECT_EQ(table.status, 0) << table.err;
  Result const detail = run("-r " + file + " --detail");
  for (std::string const* text : {&table.out, &table.err, &detail.out}) {
    EXPECT_EQ(text->find_first_of("\x1b\x07\xe9"), std::string::npos) << *text;
    EXPECT_EQ(text->find("\nLLDP_NEIGHBOR_GONE"), std::string::npos) << *text;
  }
  EXPECT_NE(table.err.find("\\x1b[2J\\x0aLLDP_NEIGHBOR_GONE[5]: forged\\x07"), std::string::npos) << table.err;
  EXPECT_NE(detail.out.find("System description: caf\\xe9 \\x5c \"\n"), std::string::npos) << detail.out;
  nlohmann::json const j = nlohmann::json::parse(run("-r " + file + " --json").out);
  nlohmann::json const& n = j["ports"][0]["neighbors"][0];
  EXPECT_EQ(n["sysName"], evil);
  EXPECT_EQ(n["sysDesc"], nlohmann::json({{"hex", "63 61 66 e9 20 5c 20 22"}}));
  // Identifiers that are not printable text are shown by their bytes, as lldpcli does.
  EXPECT_EQ(n["chassisId"].get<std::string>().substr(0, 8), "1b 5b 32");
  fs::remove(file);
}

// Live, on a veth pair of a namespace made here: time runs without frames (the run ends
// on time and a neighbour ages out, counted and logged), and the interface's own
// outgoing frames are no neighbour's.
TEST(LldpNeighborsTest, LiveCaptureOnAQuietLink) {
  if (::geteuid() != 0) GTEST_SKIP() << "a network namespace for the veth pair needs root";
  std::string const ns = "lldpn" + std::to_string(::getpid());
  if (std::system(("ip netns add " + ns + " 2>/dev/null && ip -n " + ns + " link add name lldpa type veth peer name lldpb && ip -n " +
                   ns + " link set lldpa up && ip -n " + ns + " link set lldpb up").c_str()) != 0) {
    std::system(("ip netns del " + ns + " 2>/dev/null").c_str());
    GTEST_SKIP() << "network namespaces or veth pairs cannot be made here";
  }
  auto send = [&](const char* intf, std::string const& frame) {
    pid_t const pid = ::fork();
    if (pid == 0) {
      int const nsFd = ::open(("/run/netns/" + ns).c_str(), O_RDONLY);
      if (nsFd < 0 || ::setns(nsFd, CLONE_NEWNET) != 0) ::_exit(1);
      int const s = ::socket(AF_PACKET, SOCK_RAW, 0);
      sockaddr_ll a{};
      a.sll_family = AF_PACKET;
      a.sll_ifindex = static_cast<int>(::if_nametoindex(intf));
      a.sll_halen = 6;
      ::_exit(::sendto(s, frame.data(), frame.size(), 0, reinterpret_cast<sockaddr*>(&a), sizeof a) ==
                      static_cast<ssize_t>(frame.size())
                  ? 0
                  : 1);
    }
    return wait(pid);
  };
  std::string const out = temp("live-out"), err = temp("live-err");
  auto const start = std::chrono::steady_clock::now();
  pid_t const tool = spawn("ip netns exec " + ns + " " + LLDP_NEIGHBORS_TOOL + " -i lldpb -t 3 --json -e >" + out + " 2>" + err);
  std::this_thread::sleep_for(std::chrono::milliseconds(800));
  EXPECT_EQ(send("lldpa", RxTest::frame(1, {}, 1)), 0);  // a neighbour with a TTL of 1 s
  EXPECT_EQ(send("lldpb", RxTest::frame(2)), 0);         // sent by the capturing interface
  EXPECT_EQ(wait(tool), 0) << slurp(err);
  double const took = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::system(("ip netns del " + ns).c_str());
  EXPECT_GE(took, 3.0);
  EXPECT_LT(took, 5.0);
  nlohmann::json const j = nlohmann::json::parse(slurp(out), nullptr, false);
  ASSERT_TRUE(j.is_object()) << slurp(out);
  EXPECT_EQ(j["tables"]["remTablesInserts"], 1);
  EXPECT_EQ(j["tables"]["remTablesAgeouts"], 1);
  EXPECT_EQ(j["ports"][0]["counters"]["rxFramesTotal"], 1);
  EXPECT_EQ(j["ports"][0]["counters"]["rxAgeoutsTotal"], 1);
  EXPECT_TRUE(j["ports"][0]["neighbors"].empty());
  EXPECT_NE(slurp(err).find("LLDP_NEIGHBOR_TIMEOUT[5]: LLDP neighbor with chassisId 02:00:00:00:00:01"), std::string::npos)
      << slurp(err);
  fs::remove(out);
  fs::remove(err);
}

TEST(LldpNeighborsTest, MirrorPrintsWhatTheStreamingRunPrints) {
  std::string const log = (fs::temp_directory_path() / ("lldpn-log-" + std::to_string(::getpid()))).string();
  for (const char* format : {"", "--detail", "--json"}) {
    SCOPED_TRACE(format);
    Result const direct = run("-r " + sample + " " + format);
    ASSERT_EQ(direct.status, 0) << direct.err;
    ASSERT_NE(direct.out.find("sw-at"), std::string::npos);
    // Through a file, and through a pipe.
    Result const streamed = run("-r " + sample + " --stream " + log + " " + format);
    EXPECT_EQ(streamed.out, direct.out);
    Result const mirrored = run("--mirror " + log + " " + format);
    EXPECT_EQ(mirrored.status, 0) << mirrored.err;
    EXPECT_EQ(mirrored.out, direct.out);
    Result const piped = run("-r " + sample + " --stream - | " + LLDP_NEIGHBORS_TOOL + " --mirror - " + format);
    EXPECT_EQ(piped.out, direct.out);
  }
  fs::remove(log);
}

TEST(LldpNeighborsTest, ReadsPcapngAsPcap) {
  if (std::system("command -v editcap >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "editcap is not installed (Debian package wireshark-common, with tshark)";
  std::string const ng = (fs::temp_directory_path() / ("lldpn-" + std::to_string(::getpid()) + ".pcapng")).string();
  ASSERT_EQ(std::system(("editcap -F pcapng '" + sample + "' '" + ng + "'").c_str()), 0);
  Result const a = run("-r " + sample + " --json"), b = run("-r " + ng + " --json");
  fs::remove(ng);
  EXPECT_EQ(b.status, 0) << b.err;
  EXPECT_EQ(b.out, a.out);
}

// Inputs cut short or claiming another link type: what came before a cut is shown, and
// the run says why it stopped and fails; a link type without a name is named by number.
TEST(LldpNeighborsTest, DamagedInputs) {
  fs::path const dir = fs::temp_directory_path();
  std::string const tag = std::to_string(::getpid());
  auto write = [&](std::string const& name, std::string const& bytes) {
    std::string const path = (dir / ("lldpn-" + tag + name)).string();
    FILE* f = std::fopen(path.c_str(), "wb");
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
    return path;
  };
  std::string const pcap = slurp(sample);
  ASSERT_FALSE(pcap.empty());
  std::string const log = (dir / ("lldpn-" + tag + ".log")).string();
  ASSERT_EQ(run("-r " + sample + " --stream " + log).status, 0);
  std::string linkType = pcap;
  linkType.replace(20, 4, std::string("\x01\x80\x00\x00", 4));  // 0x8001, little-endian like the file
  std::string const odd = write("-link.pcap", linkType), cut = write("-cut.pcap", pcap.substr(0, pcap.size() - 30));
  std::string const logBytes = slurp(log);
  std::string const cutLog = write("-cut.log", logBytes.substr(0, logBytes.size() - 3));
  std::string const badLog = write("-bad.log", logBytes.substr(0, logBytes.size() - 1) + '\0');  // last token
  struct Case {
    std::string args;
    bool shows;           // a table of what came before
    std::string message;  // the last line of stderr
  } const cases[] = {
      {"-r " + odd, false, "cannot read '" + odd + "': link type 32769 is not Ethernet"},
      {"-r " + cut, true, "error reading '" + cut + "': truncated dump file"},
      {"--mirror " + cutLog, true, "'" + cutLog + "' ends inside a record: the tree shown is as of the last whole one"},
      {"--mirror " + badLog, true, "'" + badLog + "' has corrupt records, left out: "},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.args);
    Result const r = run(c.args);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out.find("sw-af") != std::string::npos, c.shows) << r.out;
    EXPECT_EQ(r.err.rfind("lldp-neighbors: " + c.message, 0), 0u) << r.err;
  }
  for (auto const& path : {log, odd, cut, cutLog, badLog}) fs::remove(path);
}

}  // namespace
