#include "Kel/StreamAdapter.h"

#include <algorithm>
#include <new>

namespace Kel::Sa {

namespace {
constexpr std::size_t slotAlign = alignof(std::max_align_t);
constexpr std::size_t rounded(std::size_t n) { return (n + slotAlign - 1) / slotAlign * slotAlign; }
}  // namespace

Table::Table(std::initializer_list<Row> rows) : rows_(rows) {
  if (rows_.empty()) return;
  auto const [lo, hi] = std::minmax_element(rows_.begin(), rows_.end(), [](Row const& a, Row const& b) { return a.id < b.id; });
  lo_ = lo->id;
  index_.assign(hi->id - lo_ + 1, 0);
  for (std::size_t i = 0; i < rows_.size(); ++i) {
    Row& r = rows_[i];
    index_[r.id - lo_] = static_cast<std::uint16_t>(i + 1);
    if (!r.make) continue;
    r.slot = slots_++;
    r.offset = slotBytes_;
    slotBytes_ += rounded(r.size);
  }
}

Adapter::Adapter(Ptr<Entity> e, NboAttrLog::Stream* log, std::uint32_t id, bool writing, Table const& table)
    : Base(e, log, id, writing), table_(table), x_(e.get()) {
  if (!table_.slots()) return;
  std::size_t const head = rounded(table_.slots() * sizeof(Slot*));
  auto* block = static_cast<std::byte*>(::operator new(head + table_.slotBytes()));
  slots_ = reinterpret_cast<Slot**>(block);
  std::size_t made = 0;
  try {
    for (Row const& r : table_.rows()) {
      if (!r.make) continue;
      slots_[r.slot] = r.make(block + head + r.offset);
      ++made;
    }
  } catch (...) {
    for (std::size_t i = 0; i < made; ++i) slots_[i]->~Slot();
    ::operator delete(block);
    throw;
  }
}

Adapter::~Adapter() {
  if (!slots_) return;
  for (std::size_t i = 0; i < table_.slots(); ++i) slots_[i]->~Slot();
  ::operator delete(slots_);
}

bool Adapter::writeValue(Row const& r) {
  Out* o = singletonSerializeCheck(r.id);
  if (!o) return false;
  if (r.guarded) {
    try {
      r.write(r, *o, x_);
    } catch (...) {
      abandonRecord();  // refused: the stream stays whole
      throw;
    }
  } else {
    r.write(r, *o, x_);
  }
  endRecord();
  return true;
}

void Adapter::onAttribute(AttributeId id, AttrKey const& key) {
  Row const* r = table_.find(id);
  if (!r) return;
  if (r->make)
    slot(*r)->onAttribute(*this, x_, key);
  else
    writeValue(*r);
}

void Adapter::markAllDirty() {
  for (Row const& r : table_.rows()) {
    markDirty(r.id);
    if (r.make) slot(r)->markAll();
  }
}

bool Adapter::flowOut() {
  for (Row const& r : table_.rows()) {
    if (!isDirty(r.id)) continue;
    if (!(r.make ? slot(r)->flowOut(*this, x_) : writeValue(r))) return false;
    clearDirty(r.id);
  }
  return true;
}

void Adapter::doHandleAttrDeserialization(AttributeId id, bool, std::uint32_t, In* in) {
  if (Row const* r = table_.find(id)) {
    if (r->make)
      slot(*r)->read(*this, x_, id, in);
    else
      r->read(*r, *this, x_, in);
    return;
  }
  // A collection's deletion comes under its negated id.
  if (Row const* r = table_.find(0u - id); r && r->make) return slot(*r)->read(*this, x_, id, in);
  doBaseKelNboAttrLogSaMsg(id, in);
}

void Adapter::doHandleAttrTransaction(AttributeId id, bool begin) {
  if (Row const* r = table_.find(id); r && r->make) slot(*r)->transaction(*this, x_, begin);
}

void Adapter::referenceStreamed(AttributeId attr, Entity* target) {
  for (std::size_t i = 0; i < table_.slots(); ++i) slots_[i]->referenceStreamed(attr, target);
  Base::referenceStreamed(attr, target);
}

void Adapter::dropChildren() {
  for (std::size_t i = 0; i < table_.slots(); ++i) slots_[i]->dropChildren(*this);
}

}  // namespace Kel::Sa
