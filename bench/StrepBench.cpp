// Cost of the text primitives on the record printing and parsing paths.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include "Kel/EnumType.h"
#include "Kel/Strep.h"

namespace {

Kel::EnumType const benchEnum("Bench::Subtype", {{"cidReserved", 0}, {"cidChassisComponent", 1}, {"cidMacAddress", 2}});

// A 40-field record of the usual mix: integers, bools, a double, strings, an enum.
Kel::String printRecord() {
  static Kel::String const intf("Ethernet12/1");
  static Kel::String const desc("uplink to core-1 \"rack 7\"\n");
  Kel::String out;
  out.reserve(1024);
  out += "Value('Lldp::Bench', ** {";
  for (int i = 0; i < 8; ++i) {
    out += i ? ", 'counter': " : "'counter': ";
    Kel::appendStrep(out, static_cast<unsigned long long>(1234567u * static_cast<unsigned>(i + 1)));
    out += ", 'flag': ";
    Kel::appendStrep(out, (i & 1) != 0);
    out += ", 'name': ";
    Kel::appendStrep(out, (i & 1) ? desc : intf);
    out += ", 'index': ";
    Kel::appendStrep(out, static_cast<long long>(-i));
    out += ", 'subtype': ";
    benchEnum.appendName(out, static_cast<std::uint32_t>(i % 3));
  }
  out += ", 'timestamp': ";
  Kel::appendStrep(out, 1700000000.125);
  out += "})";
  return out;
}

void BM_PrintRecord40(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(printRecord());
}
BENCHMARK(BM_PrintRecord40);

void BM_ParseRecord40(benchmark::State& state) {
  Kel::String const text = printRecord();
  for (auto _ : state) {
    Kel::StrepIt pos = text.begin();
    Kel::StrepIt const end = text.end();
    std::uint64_t sum = 0;
    Kel::needString(pos, end, "Value('Lldp::Bench', ** {");
    for (int i = 0; i < 8; ++i) {
      Kel::needString(pos, end, i ? ", 'counter': " : "'counter': ");
      sum += Kel::deserializeAttr<unsigned long long>(pos, end, "counter");
      Kel::needString(pos, end, ", 'flag': ");
      sum += Kel::deserializeAttr<bool>(pos, end, "flag");
      Kel::needString(pos, end, ", 'name': ");
      sum += Kel::deserializeAttr<Kel::String>(pos, end, "name").size();
      Kel::needString(pos, end, ", 'index': ");
      sum += static_cast<std::uint64_t>(Kel::deserializeAttr<long long>(pos, end, "index"));
      Kel::needString(pos, end, ", 'subtype': ");
      sum += benchEnum.parse(pos, end);
    }
    Kel::needString(pos, end, ", 'timestamp': ");
    sum += static_cast<std::uint64_t>(Kel::deserializeAttr<double>(pos, end, "timestamp"));
    Kel::needString(pos, end, "})");
    Kel::strepToValueEnd(text, pos);
    benchmark::DoNotOptimize(sum);
  }
}
BENCHMARK(BM_ParseRecord40);

void BM_DoubleStrep(benchmark::State& state) {
  double v = 0.1;
  for (auto _ : state) {
    benchmark::DoNotOptimize(Kel::valueToStrep(v));
    v += 1e-3;
  }
}
BENCHMARK(BM_DoubleStrep);

void BM_StringStrepEscaped(benchmark::State& state) {
  Kel::String s;
  for (int b = 0; b < 256; ++b) s += static_cast<char>(b);
  for (auto _ : state) benchmark::DoNotOptimize(Kel::valueToStrep(s));
}
BENCHMARK(BM_StringStrepEscaped);

}  // namespace
