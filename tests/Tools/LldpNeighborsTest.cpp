// The neighbour tool as a user runs it: the command line's refusals (one line, a non-zero
// status), and a tree streamed as an attribute log printing, once mirrored, exactly what
// the run that streamed it prints.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

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

Result run(std::string const& args) {
  fs::path const dir = fs::temp_directory_path();
  std::string const out = (dir / ("lldpn-out-" + std::to_string(::getpid()))).string();
  std::string const err = (dir / ("lldpn-err-" + std::to_string(::getpid()))).string();
  int const rc = std::system(("cd " + dir.string() + " && " + LLDP_NEIGHBORS_TOOL + " " + args + " >" + out + " 2>" + err).c_str());
  Result r{WIFEXITED(rc) ? WEXITSTATUS(rc) : -1, slurp(out), slurp(err)};
  fs::remove(out);
  fs::remove(err);
  return r;
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
