// What the library does when it loads: every type registered, and named in a read-only
// section of the library file that tools read.
#include <dlfcn.h>
#include <link.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "Kel/TypeRegistry.h"
#include "Lldp/Dot3TestUtil.h"
#include "Lldp/Lldp.h"

#ifndef LLDP_SOVERSION
#define LLDP_SOVERSION "0"
#endif

namespace {

using Dot3Test::run;

TEST(RegistrationTest, TypeSectionOfTheLibraryFile) {
  // The library this program loaded (an address of its data may have been copied into
  // the executable, so ask the loader by name).
  void* handle = dlopen("libLldp.so." LLDP_SOVERSION, RTLD_LAZY | RTLD_NOLOAD);
  ASSERT_NE(handle, nullptr) << dlerror();
  link_map* map = nullptr;
  ASSERT_EQ(dlinfo(handle, RTLD_DI_LINKMAP, &map), 0);
  std::string const lib = map->l_name;
  dlclose(handle);
  std::string headers = run("readelf -S -W '" + lib + "' 2>/dev/null");
  if (headers.empty()) GTEST_SKIP() << "readelf is not available";
  // Allocated, not writable, aligned to 8.
  auto at = headers.find(".kel.type");
  ASSERT_NE(at, std::string::npos) << headers;
  std::istringstream line(headers.substr(at, headers.find('\n', at) - at));
  std::string name, type, addr, off, size, es, flags, lk, inf, al;
  line >> name >> type >> addr >> off >> size >> es >> flags >> lk >> inf >> al;
  EXPECT_EQ(flags, "A");
  EXPECT_EQ(al, "8");
  // Every name NUL-terminated, starting on an 8-byte boundary, NUL padding between.
  std::istringstream dump(run("readelf -x .kel.type '" + lib + "'"));
  std::string bytes;
  for (std::string l; std::getline(dump, l);) {
    if (l.rfind("  0x", 0) != 0) continue;
    std::istringstream words(l.substr(13, 35));
    for (std::string w; words >> w;)
      for (std::size_t i = 0; i + 1 < w.size(); i += 2) bytes += static_cast<char>(std::stoi(w.substr(i, 2), nullptr, 16));
  }
  std::vector<std::string> names;
  for (std::size_t pos = 0; pos < bytes.size();) {
    EXPECT_EQ(pos % 8, 0u);
    std::string n(bytes.c_str() + pos);
    names.push_back(n);
    pos += n.size() + 1;
    while (pos < bytes.size() && pos % 8) EXPECT_EQ(bytes[pos++], '\0');
  }
  // The section names the model's types in the reverse of the order they register in.
  std::vector<std::string> lldp;
  for (Kel::KelType const* t : Kel::typeNodesInRegistrationOrder())
    if (std::string_view(t->name()).starts_with("Lldp::")) lldp.insert(lldp.begin(), t->name());
  EXPECT_EQ(lldp.size(), 81u);
  EXPECT_EQ(names, lldp);
}

}  // namespace
