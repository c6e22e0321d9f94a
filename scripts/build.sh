#!/usr/bin/env bash
# Sets up the machine, builds and checks the tree. Usage: scripts/build.sh MODE...
#   main     builds the neighbour tool, the agent and lldp-cli (Release), runs the tool on the sample
#            capture, then (as root, where namespaces can be made) the agent against lldpd
#   test     g++ RelWithDebInfo build of everything, then every unit test (ctest)
#   bench    Release build, then every bench/*Bench.cpp program, briefly
#   asan     unit tests built with AddressSanitizer + UndefinedBehaviorSanitizer
#   tsan     Kel and Tracing unit tests (Kel with atomic Ptr counts) under ThreadSanitizer
#   clang    clang++ build of everything (warnings are errors), then its unit tests
#   install  installs the `test` build into a scratch prefix and builds and runs
#            tests/consumer against it (run `test` first)
#   fuzz     clang++ libFuzzer build of fuzz/*Fuzz.cpp, each run FUZZ_SECONDS (20)
#   deps     only installs the Debian packages the build needs
# Every mode first installs what is missing. Build trees: build-ci-<mode>/.
# Environment: JOBS (2), FUZZ_SECONDS (20), BENCH_MIN_TIME (0.05 seconds).
set -euo pipefail

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
JOBS=${JOBS:-2}
FUZZ_SECONDS=${FUZZ_SECONDS:-20}
# A target may run longer than FUZZ_SECONDS: FUZZ_SECONDS_<target>. The 802.3 parser reads
# bytes straight from the wire.
FUZZ_SECONDS_ExtDot3ParserFuzz=${FUZZ_SECONDS_ExtDot3ParserFuzz:-30}
BENCH_MIN_TIME=${BENCH_MIN_TIME:-0.05}
export CTEST_OUTPUT_ON_FAILURE=1
export ASAN_OPTIONS=${ASAN_OPTIONS:-halt_on_error=1:abort_on_error=0:detect_leaks=1:detect_stack_use_after_return=1:strict_init_order=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1}

# tshark, lldpd, tcpdump and iproute2: the independent peers of the interoperability tests;
# libpcap-dev and nlohmann-json3-dev: the neighbour tool's capture reading and JSON output;
# libnl (links, addresses, bonds), libcap and toml++: the agent's host side, capabilities
# and configuration file.
PACKAGES=(cmake ninja-build g++ clang python3 libgtest-dev libgmock-dev libbenchmark-dev libclang-rt-14-dev
          tshark lldpd tcpdump iproute2 libpcap-dev nlohmann-json3-dev
          libnl-3-dev libnl-route-3-dev libcap-dev libtomlplusplus-dev)

say() { printf '\n==== %s ====\n' "$*"; }
die() { printf 'build.sh: %s\n' "$*" >&2; exit 1; }

deps() {
  local missing=() p
  for p in "${PACKAGES[@]}"; do
    dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  say "installing ${missing[*]}"
  local sudo=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || die "not root and no sudo: install ${missing[*]} by hand"
    sudo=(sudo)
  fi
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -q
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -q --no-install-recommends "${missing[@]}"
}

# configure DIR CXX BUILD_TYPE [cmake args...]
configure() {
  local dir=$1 cxx=$2 type=$3
  shift 3
  # A compiler cache, where the machine has one, makes rebuilds of other trees cheap.
  local launcher=()
  command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  cmake -S "$ROOT" -B "$ROOT/$dir" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_BUILD_TYPE="$type" "${launcher[@]}" "$@"
}

# build DIR [targets...]
build() {
  local dir=$1
  shift
  local targets=()
  [ $# -gt 0 ] && targets=(--target "$@")
  cmake --build "$ROOT/$dir" -j "$JOBS" "${targets[@]}"
}

# run_ctest DIR [ctest args...]
run_ctest() {
  local dir=$1
  shift
  (cd "$ROOT/$dir" && ctest --output-on-failure -j "$JOBS" --timeout 600 "$@")
}

# Names of the files matching PATTERN directly in DIR (or below it with -r), without suffix.
sources() {
  local depth=(-maxdepth 1)
  [ "$1" = -r ] && { depth=(); shift; }
  [ -d "$ROOT/$1" ] || return 0
  find "$ROOT/$1" "${depth[@]}" -name "$2" -type f -printf '%f\n' | sed 's/\.cpp$//' | sort
}

mode_test() {
  configure build-ci-test g++ RelWithDebInfo -DLLDP_BUILD_TESTS=ON -DLLDP_BUILD_BENCH=ON
  build build-ci-test
  run_ctest build-ci-test
}

# The main job: LLDP frames recorded from real lldpd peers read into the model.
mode_main() {
  configure build-ci-main g++ Release -DLLDP_BUILD_TESTS=OFF -DLLDP_BUILD_BENCH=OFF
  build build-ci-main lldp-neighbors lldp-agent lldp-cli
  local tool="$ROOT/build-ci-main/tools/lldp-neighbors" sample="$ROOT/tools/samples/lldpd-neighbours.pcap"
  say "lldp-neighbors -r tools/samples/lldpd-neighbours.pcap"
  "$tool" -r "$sample"
  say "lldp-neighbors -r tools/samples/lldpd-neighbours.pcap --detail"
  "$tool" -r "$sample" --detail
  main_agent
  echo "main: the tools are build-ci-main/tools/lldp-neighbors, lldp-agent and lldp-cli (--help)"
}

# lldp-agent and lldpd on the two ends of a veth pair, each in a network namespace of its
# own, for a few seconds: what each learned of the other, and the agent's goodbye.
main_agent() {
  local agent="$ROOT/build-ci-main/tools/lldp-agent" tool="$ROOT/build-ci-main/tools/lldp-neighbors"
  local t why="" tag="lldpmain$$" work agent_pid
  [ "$(id -u)" -eq 0 ] || why="network namespaces need root"
  for t in ip lldpd lldpcli; do command -v "$t" >/dev/null || why=${why:-"$t is missing"}; done
  if [ -z "$why" ] && ! ip netns add "$tag-a" 2>/dev/null; then why="network namespaces cannot be made here"; fi
  if [ -n "$why" ]; then
    echo "main: the agent against lldpd skipped: $why"
    return 0
  fi
  work=$(mktemp -d)
  chmod 755 "$work"  # lldpd's unprivileged half reaches its socket here
  ip netns add "$tag-p"
  ip link add eth0 netns "$tag-a" address 02:00:00:00:0a:01 type veth peer name eth0 netns "$tag-p" address 02:00:00:00:0b:01
  ip -n "$tag-a" link set eth0 up
  ip -n "$tag-p" link set eth0 up
  ip -n "$tag-a" address add 192.0.2.1/24 dev eth0
  ip -n "$tag-p" address add 192.0.2.2/24 dev eth0
  printf 'configure lldp tx-interval 1\nconfigure system hostname lldpd-peer\n' >"$work/p.conf"
  printf '%s\n' '[system]' 'name = "lldp-agent-demo"' '[port.eth0]' 'vlan = 10' '[port.eth0.poe]' \
    'state = "powered"' 'class = 4' 'granted = 25.5' 'negotiation = "at"' 'priority = "high"' >"$work/agent.toml"
  mkdir -p /run/lldpd
  ip netns exec "$tag-p" lldpd -d -u "$work/p.sock" -p "$work/p.pid" -I eth0 -O "$work/p.conf" \
    -L "$(command -v lldpcli)" >"$work/lldpd.log" 2>&1 &
  ip netns exec "$tag-a" "$agent" -c "$work/agent.toml" --stream "$work/agent.log" --socket-dir "$work/sock" \
    --operator-config "$work/operator" eth0 2>"$work/agent.err" &
  agent_pid=$!
  sleep 5
  say "lldpd's view of the agent: lldpcli show neighbors details"
  ip netns exec "$tag-p" lldpcli -u "$work/p.sock" show neighbors details || true
  say "the agent's view of lldpd: lldp-neighbors --mirror of the agent's --stream, --detail"
  "$tool" --mirror "$work/agent.log" --detail || true
  kill -TERM "$agent_pid" 2>/dev/null || true
  if wait "$agent_pid"; then echo "lldp-agent: exited 0 on SIGTERM"; else echo "lldp-agent: exited $?"; fi
  sleep 0.3
  say "after the agent's shutdown LLDPDU: lldpcli show neighbors"
  ip netns exec "$tag-p" lldpcli -u "$work/p.sock" show neighbors || true
  say "the agent's log"
  cat "$work/agent.err"
  for t in $(ip netns pids "$tag-p" 2>/dev/null); do kill "$t" 2>/dev/null || true; done
  sleep 0.3
  ip netns del "$tag-a" 2>/dev/null || true
  ip netns del "$tag-p" 2>/dev/null || true
  rm -rf "$work"
}

mode_bench() {
  configure build-ci-bench g++ Release -DLLDP_BUILD_TESTS=OFF -DLLDP_BUILD_BENCH=ON
  build build-ci-bench
  local names b
  names=$(sources bench '*Bench.cpp')
  if [ -z "$names" ]; then
    echo "bench: no bench/*Bench.cpp yet; the libraries built in Release"
    return 0
  fi
  mkdir -p "$ROOT/build-ci-bench/results"
  for b in $names; do
    say "bench $b"
    "$ROOT/build-ci-bench/bench/$b" --benchmark_min_time="$BENCH_MIN_TIME" \
      --benchmark_out="$ROOT/build-ci-bench/results/$b.json" --benchmark_out_format=json
  done
  echo "bench: results in build-ci-bench/results/"
}

mode_asan() {
  configure build-ci-asan g++ Debug -DLLDP_SANITIZE=address,undefined \
    -DLLDP_BUILD_TESTS=ON -DLLDP_BUILD_BENCH=OFF
  build build-ci-asan
  run_ctest build-ci-asan
}

mode_tsan() {
  configure build-ci-tsan g++ Debug -DLLDP_SANITIZE=thread -DKEL_THREAD_SAFE_PTR=ON \
    -DLLDP_BUILD_TESTS=ON -DLLDP_BUILD_BENCH=OFF
  # The libraries that claim to be thread-safe.
  local libs=(Kel Tracing) lib names t targets=()
  for lib in "${libs[@]}"; do
    names=$(sources -r "tests/$lib" '*Test.cpp')
    for t in $names; do targets+=("${lib}_$t"); done
  done
  if [ ${#targets[@]} -eq 0 ]; then
    build build-ci-tsan "${libs[@]}"
    echo "tsan: no tests/{Kel,Tracing}/*Test.cpp yet; the libraries built with ThreadSanitizer"
    return 0
  fi
  build build-ci-tsan "${targets[@]}"
  run_ctest build-ci-tsan -R "^($(IFS='|'; echo "${libs[*]}"))_"
}

mode_clang() {
  configure build-ci-clang clang++ Debug -DLLDP_BUILD_TESTS=ON -DLLDP_BUILD_BENCH=ON
  build build-ci-clang
  run_ctest build-ci-clang
}

mode_install() {
  [ -f "$ROOT/build-ci-test/build.ninja" ] || die "install: run 'scripts/build.sh test' first"
  build build-ci-test
  local prefix="$ROOT/build-ci-install/prefix"
  rm -rf "$ROOT/build-ci-install" "$ROOT/build-ci-consumer"
  cmake --install "$ROOT/build-ci-test" --prefix "$prefix"
  # Every header of every library must be installed beside the others, in the package's
  # own folder and nowhere else.
  local lib h missing=0 inc="include/lldp"
  for lib in Kel Platform Power Tracing Lldp; do
    while IFS= read -r h; do
      [ -f "$prefix/$inc/$lib/$h" ] || { echo "install: missing $inc/$lib/$h"; missing=1; }
    done < <(cd "$ROOT/$lib" && find . -name '*.h' -printf '%P\n')
    if [ -d "$ROOT/build-ci-test/generated/$lib" ]; then
      while IFS= read -r h; do
        [ -f "$prefix/$inc/$lib/$h" ] || { echo "install: missing generated $inc/$lib/$h"; missing=1; }
      done < <(cd "$ROOT/build-ci-test/generated/$lib" && find . -name '*.h' -printf '%P\n')
    fi
    [ ! -e "$prefix/include/$lib" ] || { echo "install: include/$lib is outside $inc"; missing=1; }
    find "$prefix" -name "lib$lib.so" | grep -q . || { echo "install: missing lib$lib.so"; missing=1; }
  done
  [ "$missing" -eq 0 ] || die "install: the installed package is incomplete"
  cmake -S "$ROOT/tests/consumer" -B "$ROOT/build-ci-consumer" -G Ninja \
    -DCMAKE_CXX_COMPILER=g++ -DCMAKE_PREFIX_PATH="$prefix"
  cmake --build "$ROOT/build-ci-consumer" -j "$JOBS"
  "$ROOT/build-ci-consumer/lldp_consumer"
}

mode_fuzz() {
  configure build-ci-fuzz clang++ RelWithDebInfo -DLLDP_BUILD_FUZZ=ON \
    -DLLDP_BUILD_TESTS=OFF -DLLDP_BUILD_BENCH=OFF
  build build-ci-fuzz fuzzers
  local names f corpus
  names=$(sources fuzz '*Fuzz.cpp')
  if [ -z "$names" ]; then
    echo "fuzz: no fuzz/*Fuzz.cpp yet; the libraries built with libFuzzer instrumentation"
    return 0
  fi
  for f in $names; do
    local seconds_of="FUZZ_SECONDS_$f"
    local seconds=${!seconds_of:-$FUZZ_SECONDS}
    say "fuzz $f (${seconds}s)"
    # Work on a copy of the seeds so the run never writes into the tree.
    corpus="$ROOT/build-ci-fuzz/corpus/$f"
    rm -rf "$corpus"
    mkdir -p "$corpus" "$ROOT/build-ci-fuzz/artifacts"
    if [ -d "$ROOT/fuzz/corpus/$f" ]; then cp -r "$ROOT/fuzz/corpus/$f/." "$corpus/"; fi
    local args=(-max_total_time="$seconds" -print_final_stats=1
                -artifact_prefix="$ROOT/build-ci-fuzz/artifacts/$f-")
    if [ -f "$ROOT/fuzz/$f.dict" ]; then args+=(-dict="$ROOT/fuzz/$f.dict"); fi
    "$ROOT/build-ci-fuzz/fuzz/$f" "${args[@]}" "$corpus"
  done
}

[ $# -gt 0 ] || { sed -n '2,15p' "$0" | sed 's/^# \{0,1\}//'; exit 2; }
for mode in "$@"; do
  case $mode in
    deps) deps ;;
    main|test|bench|asan|tsan|clang|install|fuzz) deps; "mode_$mode" ;;
    *) die "unknown mode '$mode' (main, test, bench, asan, tsan, clang, install, fuzz, deps)" ;;
  esac
done
