#include "Kel/TypeRegistry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

using namespace Kel;

namespace {
KelType const base("Test::Base", KelType::Kind::Entity);
KelType const derived("Test::Derived", KelType::Kind::Entity, &base, {{"x", 386}});
KelType const value("Test::Value", KelType::Kind::Value, nullptr, {{"a", 2}});
KelType const impostor("Test::Value", KelType::Kind::Value);

// Registered by a static initialiser, as libraries do: the registry must already work.
const bool registeredAtLoad = [] {
  typeNodeIs(&base);
  return true;
}();
}  // namespace

TEST(TypeRegistry, RegistersLooksUpAndIterates) {
  ASSERT_TRUE(registeredAtLoad);
  std::size_t before = typeNodeCount();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([] {
      typeNodeIs(&derived);
      typeNodeIs(&value);
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(typeNodeCount(), before + 2);  // registering again changes nothing

  struct Case { const char* name; KelType const* expected; };
  const Case cases[] = {{"Test::Base", &base}, {"Test::Derived", &derived}, {"Test::Value", &value},
                        {"Test::Valu", nullptr}, {"Test::Value::", nullptr}, {"", nullptr}};
  for (auto const& c : cases) EXPECT_EQ(typeNode(c.name), c.expected) << c.name;

  auto all = typeNodes();
  EXPECT_EQ(all.size(), typeNodeCount());
  EXPECT_TRUE(std::is_sorted(all.begin(), all.end(),
                             [](auto a, auto b) { return std::string_view(a->name()) < b->name(); }));
  EXPECT_NE(std::find(all.begin(), all.end(), &derived), all.end());

  typeNodeDel(&impostor);  // not the registered one: ignored
  EXPECT_EQ(typeNode("Test::Value"), &value);
  typeNodeDel(&value);
  EXPECT_EQ(typeNode("Test::Value"), nullptr);
  typeNodeIs(&value);
}

TEST(TypeRegistry, RefusesAConflictingDescriptor) {
  typeNodeIs(&value);
  try {
    typeNodeIs(&impostor);
    ADD_FAILURE() << "second descriptor accepted";
  } catch (TypeRegistryException const& e) {
    EXPECT_STREQ(e.what(), "typeNodeIs: type Test::Value is already registered with a different descriptor");
  }
  EXPECT_EQ(typeNode("Test::Value"), &value);
  EXPECT_THROW(typeNodeIs(nullptr), TypeRegistryException);
}
