#pragma once
// The framework's type registry: every type descriptor known by its qualified name
// ("Lldp::RemoteSystem::Msap"). Libraries register their descriptors from static
// initialisers, so the registry is usable before main and from any thread.
#include <cstddef>
#include <string_view>
#include <vector>

#include "Kel/Exception.h"
#include "Kel/Type.h"

namespace Kel {

// A second, different descriptor under a name that is already taken. Two descriptors
// for one name would make lookups depend on load order, so the second is refused.
class TypeRegistryException : public Exception {
 public:
  using Exception::Exception;
};

// Registers a descriptor under type->name(). The descriptor must outlive its
// registration (descriptors are static objects). Registering the same descriptor again
// does nothing. A null descriptor, or another descriptor under a registered name,
// raises TypeRegistryException and leaves the registry unchanged.
void typeNodeIs(KelType const* type);

// Removes a descriptor, e.g. when the library defining it is unloaded. Does nothing
// unless this very descriptor is registered under its name.
void typeNodeDel(KelType const* type) noexcept;

// The descriptor registered under qualifiedName, or null.
KelType const* typeNode(std::string_view qualifiedName) noexcept;

// Number of registered descriptors.
std::size_t typeNodeCount() noexcept;

// A snapshot of all registered descriptors, ordered by name.
std::vector<KelType const*> typeNodes();
// The same in the order they were registered (a library registers its types in a fixed
// order when it loads).
std::vector<KelType const*> typeNodesInRegistrationOrder();

}  // namespace Kel
