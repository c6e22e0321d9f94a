#include "Kel/TypeRegistry.h"

#include <map>
#include <mutex>
#include <vector>

namespace Kel {

namespace {

struct Registry {
  std::mutex mutex;
  // Keys view the descriptors' own names, which live as long as the descriptors.
  std::map<std::string_view, KelType const*, std::less<>> byName;
  std::vector<KelType const*> inOrder;  // as registered
};

// Created on first use, so registration from any library's static initialiser works
// whatever the initialisation order. Never destroyed: descriptors of other libraries
// may unregister from their static destructors after this library's have run.
Registry& registry() {
  static Registry* r = new Registry;
  return *r;
}

}  // namespace

void typeNodeIs(KelType const* type) {
  if (!type) throw TypeRegistryException("typeNodeIs: null type descriptor");
  std::string_view name = type->name() ? type->name() : "";
  if (name.empty()) throw TypeRegistryException("typeNodeIs: type descriptor without a name");
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  auto [it, inserted] = r.byName.try_emplace(name, type);
  if (!inserted && it->second != type)
    throw TypeRegistryException(
        format("typeNodeIs: type %s is already registered with a different descriptor", type->name()));
  if (inserted) r.inOrder.push_back(type);
}

void typeNodeDel(KelType const* type) noexcept {
  if (!type || !type->name()) return;
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  auto it = r.byName.find(std::string_view(type->name()));
  if (it != r.byName.end() && it->second == type) {
    r.byName.erase(it);
    std::erase(r.inOrder, type);
  }
}

KelType const* typeNode(std::string_view qualifiedName) noexcept {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  auto it = r.byName.find(qualifiedName);
  return it == r.byName.end() ? nullptr : it->second;
}

std::size_t typeNodeCount() noexcept {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  return r.byName.size();
}

std::vector<KelType const*> typeNodes() {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  std::vector<KelType const*> out;
  out.reserve(r.byName.size());
  for (auto const& [name, type] : r.byName) out.push_back(type);
  return out;
}

std::vector<KelType const*> typeNodesInRegistrationOrder() {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  return r.inOrder;
}

}  // namespace Kel
