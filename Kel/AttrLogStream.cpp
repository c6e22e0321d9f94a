#include "Kel/AttrLogStream.h"

#include <algorithm>
#include <exception>

#include "Kel/GenericIf.h"
#include "Kel/Strep.h"
#include "Kel/TypeRegistry.h"

namespace Kel {

using NboAttrLog::In;
using NboAttrLog::Out;
using NboAttrLog::Stream;

// ---- adapter base -------------------------------------------------------------------

Entity::KelNboAttrLogSa::KelNboAttrLogSa(Kel::Ptr<Entity> entity, Stream* log, std::uint32_t entityId, bool writing)
    : entity_(std::move(entity)), log_(log), entityId_(entityId), writing_(writing) {
  if (writing_) notifierIs(entity_.get());
}

Entity::KelNboAttrLogSa::~KelNboAttrLogSa() {
  if (dirtyCount_) log_->dirtyAdaptersInc(-1);
}

void Entity::KelNboAttrLogSa::resync() {
  markAllDirty();
  continueFlowOut();
}

bool Entity::KelNboAttrLogSa::continueFlowOut() {
  if (!dirtyCount_) return true;
  flowing_ = true;
  struct Reset {
    bool& f;
    ~Reset() { f = false; }
  } reset{flowing_};
  return flowOut();
}

bool Entity::KelNboAttrLogSa::mayWrite() const noexcept {
  return log_->writable() || (flowing_ && !log_->throttled());
}

bool Entity::KelNboAttrLogSa::isDirtyOther(AttributeId id) const noexcept {
  return std::find(dirtyOther_.begin(), dirtyOther_.end(), id) != dirtyOther_.end();
}

void Entity::KelNboAttrLogSa::markDirty(AttributeId id) {
  if (isDirty(id)) return;
  if (id - dirtyBase < dirtyBitCount)
    dirtyBits_[(id - dirtyBase) / 64] |= std::uint64_t{1} << ((id - dirtyBase) % 64);
  else
    dirtyOther_.push_back(id);
  if (dirtyCount_++ == 0) log_->dirtyAdaptersInc(1);
}

void Entity::KelNboAttrLogSa::clearDirty(AttributeId id) noexcept {
  if (!isDirty(id)) return;
  if (id - dirtyBase < dirtyBitCount)
    dirtyBits_[(id - dirtyBase) / 64] &= ~(std::uint64_t{1} << ((id - dirtyBase) % 64));
  else
    dirtyOther_.erase(std::find(dirtyOther_.begin(), dirtyOther_.end(), id));
  if (--dirtyCount_ == 0) log_->dirtyAdaptersInc(-1);
}

NboAttrLog::Out* Entity::KelNboAttrLogSa::singletonSerializeCheck(AttributeId id) {
  // Held-back changes go first, so that the reader sees them in order.
  if (!mayWrite()) {
    markDirty(id);
    return nullptr;
  }
  Out& o = log_->out();
  recordStart_ = o.size();
  o.putU32(0);  // the length, patched by endRecord
  o.putU32(entityId_);
  o.putAttributeId(id);
  return &o;
}

NboAttrLog::Out* Entity::KelNboAttrLogSa::collSerializeCheck(CollContext& ctx) {
  if (!mayWrite()) {
    markDirty(ctx.attr);
    ctx.dirty = true;
    return nullptr;
  }
  ctx.dirty = false;
  Out& o = log_->out();
  recordStart_ = o.size();
  o.putU32(0);
  o.putU32(entityId_);
  o.putAttributeId(ctx.deleted ? static_cast<AttributeId>(0u - ctx.attr) : ctx.attr);
  return &o;
}

void Entity::KelNboAttrLogSa::endRecord() {
  Out& o = log_->out();
  o << Out::TransactToken::end;
  o.patchU32(recordStart_, static_cast<std::uint32_t>(o.size() - recordStart_ - 4));
  // No flush here: the sink is the user's code and may change the tree, which must not
  // happen while an adapter is half-way through a change or a walk.
}

void Entity::KelNboAttrLogSa::writeTransaction(AttributeId id, bool begin) {
  Out& o = log_->out();
  recordStart_ = o.size();
  o.putU32(0);
  o.putU32(entityId_);
  o.putAttributeId(NboAttrLog::recordTransaction);
  o.putU32(id);
  o.putU8(begin ? 1 : 0);
  endRecord();
}

void Entity::KelNboAttrLogSa::doHandleAttrTransaction(AttributeId, bool) {}

void Entity::KelNboAttrLogSa::recordEnds(In* in) const {
  // The stream checked that the record's last byte is the end token.
  if (in->remaining() != 1)
    throw AttrLogException(format("attribute log: a record of entity %u does not end where its value does",
                                  entityId_));
}

void Entity::KelNboAttrLogSa::abandonRecord() noexcept { log_->out().truncate(recordStart_); }

void Entity::KelNboAttrLogSa::referenceStreamed(AttributeId attr, Entity*) { markDirty(attr); }

void Entity::KelNboAttrLogSa::doBaseKelNboAttrLogSaMsg(AttributeId id, In*) {
  KelType const* t = entity_->kelType();
  throw AttrLogException(format("%s has no attribute %d in the attribute log", t ? t->name() : "entity",
                                static_cast<int>(id)));
}

bool Entity::KelNboAttrLogSa::allowWriteFromReadOnlyRemote(AttributeId) const { return !log_->readOnlyRemote(); }

void Entity::KelNboAttrLogSa::throwWriteUpdateFromReadOnlyProxyException(AttributeId id) const {
  KelType const* t = entity_->kelType();
  throw AttrLogException(format("%s: refused a write of attribute %d from a read-only remote",
                                t ? t->name() : "entity", static_cast<int>(id)));
}

// ---- stream -------------------------------------------------------------------------

Stream::~Stream() = default;

Ptr<Entity::KelNboAttrLogSa> Stream::adapterIs(Ptr<Entity> const& entity, std::uint32_t readId) {
  KelType const* type = entity->kelType();
  if (!type || !type->streaming())
    throw AttrLogException(format("%s cannot be streamed", type ? type->name() : "an entity without a type"));
  std::uint32_t id = readId ? readId : numbering_ ? numbering_->idOf(entity.get()) : nextId_++;
  if (!id) throw AttrLogException(format("%s is not in the stream a snapshot is taken of", type->name()));
  if (adapters_.count(id)) throw AttrLogException(format("entity id %u used twice in the attribute log", id));
  auto sa = type->streaming()->newStreamAdapter(entity, this, id, readId == 0);
  adapters_.emplace(id, sa);
  ids_.emplace(entity.get(), id);
  auto [from, to] = pendingRefs_.equal_range(entity.get());
  std::vector<std::pair<std::uint32_t, AttributeId>> due;
  for (auto it = from; it != to; ++it) due.push_back(it->second);
  pendingRefs_.erase(from, to);
  for (auto const& [referrer, attr] : due)
    if (auto r = adapters_.find(referrer); r != adapters_.end()) r->second->referenceStreamed(attr, entity.get());
  return sa;
}

void Stream::adapterDel(std::uint32_t id) noexcept {
  auto it = adapters_.find(id);
  if (it == adapters_.end()) return;
  Ptr<Entity::KelNboAttrLogSa> sa = it->second;
  ids_.erase(sa->entity());
  adapters_.erase(it);
  sa->dropChildren();
}

void Stream::pendingReferenceIs(Entity const* target, std::uint32_t from, AttributeId attr) {
  auto [first, last] = pendingRefs_.equal_range(target);
  for (auto it = first; it != last; ++it)
    if (it->second == std::make_pair(from, attr)) return;
  pendingRefs_.emplace(target, std::make_pair(from, attr));
}

std::uint32_t Stream::idOf(Entity const* entity) const noexcept {
  auto it = ids_.find(entity);
  return it == ids_.end() ? 0 : it->second;
}

void Stream::childIdCheck(std::uint32_t id, Entity const* member) const {
  Entity const* holder = entityOf(id);
  if (id == 0) throw AttrLogException("attribute log: entity id 0 (ids start at 1)");
  if (holder && holder != member) throw AttrLogException(format("entity id %u used twice in the attribute log", id));
}

Entity* Stream::entityOf(std::uint32_t id) const noexcept {
  auto it = adapters_.find(id);
  return it == adapters_.end() ? nullptr : it->second->entity();
}

void Stream::streamRoot(Ptr<Entity> const& root) {
  if (!root) throw AttrLogException("streamRoot: no root given");
  // The sink's bytes live in the backlog, which a new root would grow under it.
  if (flushing_) throw AttrLogException("streamRoot: not from the stream's own sink");
  KelType const* type = root->kelType();
  // A reader makes a root through its factory: an entity that only a collection makes
  // (a neighbour, a port's configuration) is streamed with the tree that holds it.
  if (!type || !type->streaming() || !type->streaming()->newEntityForAttrLog)
    throw AttrLogException(format("%s cannot start a stream", type ? type->name() : "an entity without a type"));
  // An entity that does not deliver notifications (made with its constructor rather than
  // its factory) would be sent once and then never again: its changes reach no adapter.
  if (!root->deliversNotifications())
    throw AttrLogException(format("%s %s does not deliver notifications: make a streamed root with its factory",
                                  type->name(), root->fullName().c_str()));
  // Twice would give the reader two trees, both kept up to date, at twice the traffic.
  if (idOf(root.get()))
    throw AttrLogException(format("%s %s is already in this stream", type->name(), root->fullName().c_str()));
  auto sa = adapterIs(root);
  streamed_.push_back(root);
  Out& o = out_;
  std::size_t start = o.size();
  o.putU32(0);
  o.putU32(sa->entityId());
  o.putAttributeId(recordNewRoot);
  o.putString(root->kelType()->name());
  root->kelType()->streaming()->serializeConstructorParams(o, root.get());
  o << Out::TransactToken::end;
  o.patchU32(start, static_cast<std::uint32_t>(o.size() - start - 4));
  sa->resync();
  flush();
}

std::string Stream::resetRecord() {
  Out o;
  o.putU32(0);
  o.putU32(0);
  o.putAttributeId(recordReset);
  o << Out::TransactToken::end;
  o.patchU32(0, static_cast<std::uint32_t>(o.size() - 4));
  return o.bytes().stdString();
}

std::string Stream::snapshot() const {
  std::string bytes;
  Ptr<Stream> s = snapshotStream(
      [&bytes](const char* d, std::size_t n) {
        bytes.append(d, n);
        return n;
      },
      unlimited);
  // References to entities streamed after their referrer go again now.
  s->continueFlowOut();
  return bytes;
}

Ptr<Stream> Stream::snapshotStream(Sink sink, std::size_t window) const {
  if (dirtyAdapters_ > 0) throw AttrLogException("snapshot: changes are held back; continueFlowOut first");
  Ptr<Stream> s(new Stream(std::move(sink), window));
  s->numbering_ = this;
  s->out_.putU32(0);
  s->out_.putU32(0);
  s->out_.putAttributeId(recordReset);
  s->out_ << Out::TransactToken::end;
  s->out_.patchU32(0, static_cast<std::uint32_t>(s->out_.size() - 4));
  for (auto const& r : streamed_) s->streamRoot(r);
  return s;
}

void Stream::flush() {
  // A sink that calls back into the stream must not be handed the same bytes again.
  if (!sink_ || sent_ == out_.size() || flushing_) return;
  std::string_view rest = backlog();
  flushing_ = true;
  std::size_t taken;
  try {
    taken = std::min(sink_(rest.data(), rest.size()), rest.size());
  } catch (...) {
    flushing_ = false;
    throw;
  }
  flushing_ = false;
  sent_ += taken;
  written_ += taken;
  if (sent_ == out_.size()) {
    out_.clear();
    sent_ = 0;
  } else if (sent_ > (1u << 20) && sent_ > out_.size() / 2) {
    out_.erasePrefix(sent_);
    sent_ = 0;
  }
}

void Stream::backlogDel() noexcept {
  out_.clear();
  sent_ = 0;
}

bool Stream::continueFlowOut() {
  flush();
  // In id order: an entity's creation record is written by its parent, whose id is lower.
  for (auto it = adapters_.begin(); it != adapters_.end() && dirtyAdapters_ > 0;) {
    if (throttled()) return false;
    // Most have nothing held back: passed over at the cost of a look.
    if (!it->second->dirty()) {
      ++it;
      continue;
    }
    std::uint32_t id = it->first;
    Ptr<Entity::KelNboAttrLogSa> sa = it->second;  // flowing out may delete adapters
    if (!sa->continueFlowOut()) {
      flush();
      return false;
    }
    flush();
    it = adapters_.upper_bound(id);
  }
  // Without a sink, written means in the backlog, for the caller to take.
  return dirtyAdapters_ == 0 && (!sink_ || sent_ == out_.size());
}

void Stream::apply(const char* data, std::size_t size) {
  if (unframed_) throw AttrLogException("attribute log: an earlier record length was corrupt; nothing more is read");
  // Records are read in place from the caller's bytes; only an incomplete record (or
  // what follows one held from an earlier call) is copied.
  if (!pending_.empty()) {
    pending_ += std::string_view(data, size);
    data = pending_.data();
    size = pending_.size();
  }
  std::size_t pos = 0;
  auto keepRest = [&] {
    if (pending_.empty()) {
      pending_ = String(data + pos, size - pos);
    } else {
      pending_.erasePrefix(pos);
    }
  };
  // A refused record is skipped and the ones after it applied; the first refusal is
  // raised once all are done.
  std::exception_ptr refused;
  while (size - pos >= 4) {
    In head(data + pos, 4);
    std::uint32_t length = head.nextU32();
    // A corrupt length must not make the reader wait for gigabytes.
    if (length > maxRecord) {
      // No record boundary is left to go on from: the stream reads nothing more.
      pos = size;
      unframed_ = true;
      if (!refused)
        refused = std::make_exception_ptr(AttrLogException(
            format("attribute log: a record of %u bytes is over the %zu-byte limit", length, maxRecord)));
      break;
    }
    if (size - pos - 4 < length) break;
    In record(data + pos + 4, length);
    std::size_t const at = pos;
    pos += 4 + length;
    try {
      // The end token is checked before anything is applied, so that a record cut or
      // run into by a corrupt length is refused whole.
      if (length < 9 || data[at + 4 + length - 1] != static_cast<char>(Out::TransactToken::end))
        throw AttrLogException(format("attribute log: a record of %u bytes at offset %zu does not end with its "
                                      "token", length, at));
      applyRecord(record);
    } catch (Exception const&) {
      if (!refused) refused = std::current_exception();
    } catch (...) {
      keepRest();
      throw;
    }
  }
  keepRest();
  if (refused) std::rethrow_exception(refused);
}

void Stream::applyRecord(In& in) {
  std::uint32_t id = in.nextU32();
  AttributeId attr = in.nextAttributeId();
  auto ends = [&] {
    if (in.remaining() != 1)
      throw AttrLogException(format("attribute log: record of entity %u attribute %d does not end where it should",
                                    id, static_cast<int>(attr)));
  };
  if (id == 0 && attr == recordReset) {
    ends();
    adapters_.clear();
    ids_.clear();
    pendingRefs_.clear();
    roots_.clear();
  } else if (attr == recordNewRoot) {
    String typeName = in.nextString();
    KelType const* type = typeNode(typeName);
    if (!type || !type->streaming() || !type->streaming()->newEntityForAttrLog) {
      String quoted;
      appendStrep(quoted, typeName);
      throw AttrLogException(format("attribute log: %s is not a type a stream can start from", quoted.c_str()));
    }
    childIdCheck(id, nullptr);
    Ptr<Entity> root = type->streaming()->newEntityForAttrLog(&in);
    ends();
    adapterIs(root, id);
    roots_.push_back(root);
  } else {
    auto it = adapters_.find(id);
    if (it == adapters_.end()) throw AttrLogException(format("attribute log: no entity %u", id));
    Ptr<Entity::KelNboAttrLogSa> sa = it->second;
    if (attr == recordTransaction) {
      AttributeId of = in.nextU32();
      bool begin = in.nextU8() != 0;
      ends();
      // A transaction's end deletes what it did not name: a write like any other.
      if (!sa->allowWriteFromReadOnlyRemote(of)) sa->throwWriteUpdateFromReadOnlyProxyException(of);
      sa->doHandleAttrTransaction(of, begin);
    } else {
      if (!sa->allowWriteFromReadOnlyRemote(attr)) sa->throwWriteUpdateFromReadOnlyProxyException(attr);
      try {
        sa->doHandleAttrDeserialization(attr, false, 0, &in);
      } catch (ParseException const& e) {
        // A value's text inside the log that does not parse, or a member made again with
        // other arguments: the stream is corrupt, whatever the layer that noticed.
        throw AttrLogException(format("attribute log: record of entity %u attribute %d: %s", id,
                                      static_cast<int>(attr), e.what()));
      } catch (ReinstantiationException const& e) {
        throw AttrLogException(format("attribute log: record of entity %u attribute %d: %s", id,
                                      static_cast<int>(attr), e.what()));
      }
    }
  }
  if (in.nextToken() != Out::TransactToken::end || !in.atEnd())
    throw AttrLogException(format("attribute log: record of entity %u attribute %d does not end where it should", id,
                                  static_cast<int>(attr)));
}

}  // namespace Kel
