#include "Kel/EntityBinding.h"

namespace Kel::Et {

Table::Table(std::initializer_list<Row> rows) : rows_(rows) {
  if (rows_.empty()) return;
  auto const [lo, hi] = std::minmax_element(rows_.begin(), rows_.end(), [](Row const& a, Row const& b) { return a.id < b.id; });
  lo_ = lo->id;
  index_.assign(hi->id - lo_ + 1, 0);
  for (std::size_t i = 0; i < rows_.size(); ++i) index_[rows_[i].id - lo_] = static_cast<std::uint16_t>(i + 1);
}

String text(Table const& t, Entity const* x, AttributeId id) {
  String out;
  if (Row const* r = t.find(id)) r->text(*r, out, x);
  return out;
}

int attributeOp(Table const& t, void* result, Entity* x, KelAttr const* attr, unsigned op, void const* argument) {
  if (!attr) return GenericIf::attrOpUnsupported;
  Row const* r = t.find(attr->id);
  return r ? r->op(*r, result, x, op, argument) : GenericIf::attrOpNoSuchAttribute;
}

GenericIf::Iterator* iterator(Table const& t, Entity* x, KelAttr const* attr) {
  Row const* r = t.find(attr ? attr->id : 0);
  return r && r->iterator ? r->iterator(x) : nullptr;  // a value has none
}

}  // namespace Kel::Et
