#include "Kel/ValueBinding.h"

namespace Kel::Vb {

namespace {
void const* fieldOf(Row const& r, void const* x) { return r.at(const_cast<void*>(x)); }
}  // namespace

void append(Rows const& t, String& out, void const* x) {
  auto one = [&](Row const& r) {
    if (r.at)
      r.ops->append(out, fieldOf(r, x));
    else
      appendOne(out, r.getBit(x));
  };
  if (t.wrapper) {
    one(t.rows[0]);
    return;
  }
  out += t.open;
  for (std::size_t i = 0; i < t.size; ++i) {
    out += t.rows[i].label;
    one(t.rows[i]);
  }
  out += "})";
}

void parse(Rows const& t, void* x, StrepIt& pos, StrepIt const& end) {
  auto one = [&](Row const& r) {
    if (!t.wrapper) needString(pos, end, r.label);
    if (!r.at) {
      r.setBit(x, parseOne<bool>(pos, end, r.name));
      return;
    }
    void* at = r.at(x);
    r.ops->parse(at, pos, end, r.name);
    if (r.check) r.check(at);
  };
  if (t.wrapper) {
    one(t.rows[0]);
    return;
  }
  needString(pos, end, t.open);
  const char* field = nullptr;  // named again in a range error
  try {
    for (std::size_t i = 0; i < t.size; ++i) {
      field = t.rows[i].name;
      one(t.rows[i]);
    }
  } catch (RangeException const& e) {
    rethrowFromDeserializeAttr(e, field);
  }
  needString(pos, end, "})");
}

}  // namespace Kel::Vb
