#pragma once
// Streaming entity trees through the attribute log, between processes.
//
// A Stream carries records; each is
//     u32 length of the rest, u32 entity id, u32 attribute id, the payload, token 2
// The entity id is the stream's own number for an entity (a root is announced with
// recordNewRoot; a child with the record of the collection that made it). A record
// under the negated id of a collection attribute deletes one element: its payload is
// the element's key alone.
//
// Writing side: every streamed entity has an adapter (Entity::KelNboAttrLogSa, one
// generated class per entity type) that observes it and writes a record per change.
// While the stream is throttled (its sink took less than it was given and the backlog
// exceeds the window), adapters remember what changed instead: dirty attributes and,
// per collection, dirty keys. continueFlowOut() sends the current values of what was
// remembered, so a slow reader sees fewer records but always the final state. A complete
// resend walks each collection, bracketed by a transaction; throttled half-way, it keeps
// a bookmark and continues from there.
//
// Reading side: apply() takes bytes in any chunking, and hands every complete record to
// the adapter of its entity, which applies it through the entity's setters.
//
// Many readers of the same trees: one stream writes every change once, and a reader that
// joins (or fell too far behind) gets snapshot(): a reset record (entity 0, recordReset),
// after which the reader forgets every tree, then the whole trees numbered as that stream
// numbers them, so that the stream's later records apply to them unchanged.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Kel/Entity.h"
#include "Kel/Exception.h"
#include "Kel/NboAttrLog.h"
#include "Kel/Ptr.h"
#include "Kel/Type.h"

namespace Kel {

namespace NboAttrLog {

class Stream;

// Record kinds of the framework itself, below any model's attribute ids.
enum : AttributeId {
  recordNewRoot = 1,      // payload: type name, then the root's constructor parameters
  recordTransaction = 2,  // payload: u32 attribute id, u8 1 (begin) or 0 (end)
  recordReset = 3,        // under entity 0, no payload: the reader drops every tree
};

// Where the complete resend of a collection stopped when the stream throttled: the keys
// still to send, in the collection's iteration order at that moment. A key that changes
// meanwhile is also in the adapter's dirty keys and goes again after the resend.
template <class Key>
struct FlowOutBookmark {
  std::vector<Key> keys;
  std::size_t next = 0;
  bool active() const noexcept { return next < keys.size(); }
  // The key just taken out could not be sent: it is the next one again.
  void putBack() noexcept { --next; }
  void clear() noexcept {
    keys.clear();
    next = 0;
  }
};

// Takes the next bookmarked key out; null when none is left.
template <class Key>
Key const* kelFlowOutBookmarkDeq(FlowOutBookmark<Key>& b) noexcept {
  if (b.next < b.keys.size()) return &b.keys[b.next++];
  return nullptr;
}

// What a type's descriptor offers the stream for its entities.
struct EntityStreaming {
  // Reads the constructor parameters of a root (its name) and makes the entity.
  Ptr<Entity> (*newEntityForAttrLog)(In* in);
  // The entity's adapter on stream `log`, under `id`; a writing one observes the entity.
  Ptr<Entity::KelNboAttrLogSa> (*newStreamAdapter)(Ptr<Entity> const& entity, Stream* log, std::uint32_t id,
                                                  bool writing);
  // Writes the constructor parameters newEntityForAttrLog reads.
  void (*serializeConstructorParams)(Out& out, Entity const* entity);
  // Makes the entity called `name` for a directory of entities under `parent`: null for
  // a type that is not made from its name alone (a neighbour, a port's state), which
  // only its owner's collection makes.
  Ptr<Entity> (*newEntityForDir)(String const& name, Entity* parent);
};

}  // namespace NboAttrLog

class Entity::KelNboAttrLogSa : public Entity::Notifiee, public PtrInterface {
 public:
  // A writing adapter observes its entity; a reading one only applies records to it.
  KelNboAttrLogSa(Kel::Ptr<Entity> entity, NboAttrLog::Stream* log, std::uint32_t entityId, bool writing);
  ~KelNboAttrLogSa() override;

  Entity* entity() const noexcept { return entity_.get(); }
  NboAttrLog::Stream* log() const noexcept { return log_; }
  bool writing() const noexcept { return writing_; }
  std::uint32_t entityId() const noexcept { return entityId_; }

  // ---- writing
  // Marks everything dirty (a new reader must learn the whole entity) and sends it.
  void resync();
  // Sends what was held back while throttled; true when nothing is left.
  bool continueFlowOut();
  bool dirty() const noexcept { return dirtyCount_ != 0; }
  // Whether a record may be written now: nothing held back anywhere should go first.
  bool mayWrite() const noexcept;

  // The stream to write the record of attribute `id` to, with its header written; null
  // when the stream is throttled, and then the attribute is remembered as dirty.
  NboAttrLog::Out* singletonSerializeCheck(AttributeId id);
  // The same for one element of a collection: null when throttled, and then ctx.dirty
  // tells the caller to remember the key. On a stream, a deletion's header carries the
  // negated id.
  struct CollContext {
    AttributeId attr;
    bool deleted;
    bool dirty = false;
  };
  NboAttrLog::Out* collSerializeCheck(CollContext& ctx);
  // Ends a record: token 2.
  void endRecord();
  // Takes back a record whose value could not be written: the stream stays whole.
  void abandonRecord() noexcept;
  // Brackets a collection's complete contents, so that a reader drops what is not in it.
  void writeTransaction(AttributeId id, bool begin);

  // ---- reading
  // Applies one record of attribute id (negated: a deletion) for this entity.
  virtual void doHandleAttrDeserialization(AttributeId id, bool flag, std::uint32_t count, NboAttrLog::In* in) = 0;
  // A collection's complete contents begin or end; adapters of entities with
  // collections drop, at the end, the elements the contents did not name.
  virtual void doHandleAttrTransaction(AttributeId id, bool begin);
  // The entity leaves the stream: the adapters of the entities it owns leave with it.
  virtual void dropChildren() {}
  // An entity that attribute `attr` refers to has just entered the stream (it was sent
  // as none before): the reference is due again.
  virtual void referenceStreamed(AttributeId attr, Entity* target);
  // Called when a record's payload has been read, before anything is changed: only the
  // end token may be left, or the record is corrupt and refused whole.
  void recordEnds(NboAttrLog::In* in) const;
  // Ids no adapter knows: a corrupt or foreign stream.
  [[noreturn]] void doBaseKelNboAttrLogSaMsg(AttributeId id, NboAttrLog::In* in);
  bool allowWriteFromReadOnlyRemote(AttributeId id) const;
  [[noreturn]] void throwWriteUpdateFromReadOnlyProxyException(AttributeId id) const;

 protected:
  // Generated adapters: mark every attribute (and every element) dirty; send the dirty
  // ones, returning false when throttled before the end. The base keeps the dirty
  // attribute ids, subclasses the dirty keys of their collections.
  virtual void markAllDirty() = 0;
  virtual bool flowOut() = 0;
  bool isDirty(AttributeId id) const noexcept {
    if (id - dirtyBase < dirtyBitCount) return (dirtyBits_[(id - dirtyBase) / 64] >> ((id - dirtyBase) % 64)) & 1;
    return isDirtyOther(id);
  }
  void markDirty(AttributeId id);
  void clearDirty(AttributeId id) noexcept;

 private:
  Kel::Ptr<Entity> entity_;
  NboAttrLog::Stream* log_;  // the stream owns its adapters
  std::uint32_t entityId_;
  bool writing_;
  // Dirty attributes: a model's entity attribute ids (from 258 on) in a bit set, any
  // other id in a short vector.
  static constexpr AttributeId dirtyBase = 256, dirtyBitCount = 128;
  bool isDirtyOther(AttributeId id) const noexcept;
  std::uint64_t dirtyBits_[dirtyBitCount / 64] = {};
  std::vector<AttributeId> dirtyOther_;
  std::uint32_t dirtyCount_ = 0;
  std::size_t recordStart_ = 0;
  bool flowing_ = false;  // sending what was held back: its own turn to write
};

namespace NboAttrLog {

class Stream : public PtrInterface {
 public:
  // Takes bytes from the stream; returns how many it accepted (a slow reader takes
  // fewer, and the rest waits in the backlog; more than it was given counts as all). The
  // bytes stay valid until the sink returns; changes it makes to streamed entities, or a
  // continueFlowOut() it calls, are held back until then. A sink that throws leaves the
  // bytes in the backlog, and streamRoot() and continueFlowOut() pass the exception on;
  // the root stays streamed, and a later continueFlowOut() sends the rest.
  using Sink = std::function<std::size_t(const char* data, std::size_t size)>;
  static constexpr std::size_t unlimited = ~std::size_t{0};
  // The longest record a reader accepts; a longer length is taken for corruption.
  static constexpr std::size_t maxRecord = std::size_t{1} << 20;

  Stream() = default;
  explicit Stream(Sink sink, std::size_t window = unlimited) : sink_(std::move(sink)), window_(window) {}
  ~Stream() override;

  // ---- writing
  // Starts streaming the tree under root: announces it and sends all of it. A root
  // already in the stream (itself or as part of another's tree), or one that does not
  // deliver notifications (not made by its factory), is refused.
  void streamRoot(Ptr<Entity> const& root);
  // Also while the sink runs: what it sets off is held back, so that the bytes it was
  // given stay where they are.
  bool throttled() const noexcept { return flushing_ || out_.size() - sent_ > window_; }
  // Hands the backlog to the sink, then, while not throttled, lets adapters send what
  // they held back. Returns true when everything was sent: nothing held back and, with a
  // sink, nothing left in the backlog. The sink is called only from
  // here, from streamRoot and from flush, never in the middle of a change, so it may
  // itself change the tree; with an unlimited window nothing else bounds the backlog.
  bool continueFlowOut();
  // The records not yet taken by the sink.
  std::string_view backlog() const noexcept { return out_.bytes().view().substr(sent_); }
  // Bytes the sink has taken so far.
  std::size_t bytesWritten() const noexcept { return written_; }
  // The whole trees streamed so far, for a reader that joins now and then goes on with
  // this stream's later records: a reset record, then every root and its contents under
  // this stream's entity ids. Refused while changes are held back (continueFlowOut first).
  std::string snapshot() const;
  // The same as a stream of its own, for a reader that takes it a part at a time: its sink
  // gets the reset record and the roots at once, the rest as continueFlowOut() writes it;
  // changes meanwhile are held back and sent as they stand when it gets to them. Ids of
  // entities new meanwhile come from this stream: flow this one out before that one. This
  // stream must outlive it.
  Ptr<Stream> snapshotStream(Sink sink, std::size_t window) const;
  // The reset record alone: a reader that gets it forgets every tree.
  static std::string resetRecord();

  // ---- reading
  // When set, every record is refused: this side mirrors a read-only proxy.
  void readOnlyRemoteIs(bool on) noexcept { readOnlyRemote_ = on; }
  bool readOnlyRemote() const noexcept { return readOnlyRemote_; }
  // Applies every complete record of the bytes; keeps an incomplete one for the next
  // call. A corrupt record changes nothing and is skipped; once the others are applied,
  // the first refusal is raised (AttrLogException). A length beyond maxRecord ends reading
  // for good: every later call is refused too. A value the entity's
  // setter refuses raises what the setter raises (a RangeException), the value stored as
  // it was at the source, where the same setter stored and refused it.
  void apply(const char* data, std::size_t size);
  void apply(String const& bytes) { apply(bytes.data(), bytes.size()); }
  std::vector<Ptr<Entity>> const& roots() const noexcept { return roots_; }
  // Whether the bytes so far end inside a record (one more apply() may complete it).
  bool midRecord() const noexcept { return !pending_.empty(); }
  // Whether a corrupt length has ended reading for good.
  bool framingLost() const noexcept { return unframed_; }

  // ---- for adapters
  Out& out() noexcept { return out_; }
  // Registers the adapter of an entity: writing, under a new id; reading, under the
  // stream's id. Either way through the entity type's descriptor.
  Ptr<Entity::KelNboAttrLogSa> adapterIs(Ptr<Entity> const& entity, std::uint32_t readId = 0);
  void adapterDel(std::uint32_t id) noexcept;
  std::uint32_t idOf(Entity const* entity) const noexcept;
  // A reference from adapter `from`'s attribute to an entity not in the stream yet: when
  // that entity enters, the reference is sent again.
  void pendingReferenceIs(Entity const* target, std::uint32_t from, AttributeId attr);
  Entity* entityOf(std::uint32_t id) const noexcept;
  // Reading: a record makes or names `member` under entity id `id`; refused, before
  // anything is made, when the id already stands for another entity.
  void childIdCheck(std::uint32_t id, Entity const* member) const;
  // Offers the backlog to the sink.
  void flush();
  // Whether a change may be written at once: not throttled, and nothing held back that
  // should go first.
  bool writable() const noexcept { return !throttled() && dirtyAdapters_ == 0; }
  void dirtyAdaptersInc(int delta) noexcept { dirtyAdapters_ += delta; }
  // Drops what the sink-less stream of a test or benchmark accumulated.
  void backlogDel() noexcept;

 private:
  void applyRecord(In& in);

  Sink sink_;
  std::size_t window_ = unlimited;
  Stream const* numbering_ = nullptr;  // a snapshot's: the ids are that stream's
  std::vector<Ptr<Entity>> streamed_;  // writing: the roots, in order
  Out out_;          // the backlog: written records from sent_ on
  std::size_t sent_ = 0;
  std::size_t written_ = 0;
  bool flushing_ = false;
  std::ptrdiff_t dirtyAdapters_ = 0;
  std::uint32_t nextId_ = 1;
  std::map<std::uint32_t, Ptr<Entity::KelNboAttrLogSa>> adapters_;
  std::map<Entity const*, std::uint32_t> ids_;
  std::multimap<Entity const*, std::pair<std::uint32_t, AttributeId>> pendingRefs_;
  bool readOnlyRemote_ = false;
  String pending_;  // an incomplete record, read side
  bool unframed_ = false;  // a corrupt length: where records begin is lost
  std::vector<Ptr<Entity>> roots_;
};

}  // namespace NboAttrLog

}  // namespace Kel
