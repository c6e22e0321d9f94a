"""The attribute-log stream adapter of each entity."""
from .names import Emitter
from .tpl import render


class AdapterEmitter(Emitter):

    @staticmethod
    def streamed(a):
        return a.kind == 'coll' or (a.kind == 'value' and 'ctor' not in a.flags)

    @staticmethod
    def set_insert(a, k):
        return f'.insertOrReplace({k}, true)' if a.coll == 'ordered' else f'.insert({k})'

    def cpp_adapter(self, t):
        c = self.out
        q = t.rel(self.ns)
        n = t.short
        attrs = [a for a in t.all_fields() if self.streamed(a)]
        colls = [a for a in attrs if a.kind == 'coll' and a.coll not in ('ref', 'child')]
        sa = f'{q}::KelNboAttrLogSa'
        c.append(f'class {sa} : public Kel::Entity::KelNboAttrLogSa {{')
        c.append(' public:')
        c.append(f'  KelNboAttrLogSa(Kel::Ptr<{q}> e, Kel::NboAttrLog::Stream* log, std::uint32_t id, bool writing)')
        c.append('      : Kel::Entity::KelNboAttrLogSa(e, log, id, writing), x_(e.get()) {}')
        c.append('')
        # notifications
        c.append('  void onAttribute(Kel::AttributeId id, Kel::AttrKey const& key) override {')
        if not colls:
            c.append('    (void)key;')
        c.append('    switch (id) {')
        for a in attrs:
            if a.kind == 'coll' and a.coll != 'ref' and a.coll != 'child':
                c.append(f'      case {q}::AttrId::{a.name}:')
                c.append(f'        if (auto const* k = key.as<{self.cpp(a.key_t)}>()) kelHandle{a.cap()}SerializeSing(*k);')
                c.append('        break;')
            else:
                c.append(f'      case {q}::AttrId::{a.name}:')
                c.append(f'        kelSerialize{a.cap()}();')
                c.append('        break;')
        c.append('      default:')
        c.append('        break;')
        c.append('    }')
        c.append('  }')
        # mark all dirty
        c.append('')
        c.append('  void markAllDirty() override {')
        for a in attrs:
            c.append(f'    markDirty({q}::AttrId::{a.name});')
            if a in colls:
                c.append(f'    txn{a.cap()}_ = true;')
                c.append(f'    txnOpen{a.cap()}_ = false;')
                c.append(f'    bookmark{a.cap()}_.clear();')
        c.append('  }')
        # flow out
        c.append('')
        c.append('  bool flowOut() override {')
        for a in attrs:
            cap = a.cap()
            aid = f'{q}::AttrId::{a.name}'
            c.append(f'    if (isDirty({aid})) {{')
            if a in colls:
                c.append(f'      if (txn{cap}_ && !txnOpen{cap}_) {{')
                c.append(f'        writeTransaction({aid}, true);')
                c.append(f'        txnOpen{cap}_ = true;')
                c.append(f'        for (auto it = x_->{a.name}().begin(); it; ++it) {{')
                c.append(f'          if (!kelHandle{cap}SerializeSing(it.key())) {{')
                c.append(f'            for (; it; ++it) bookmark{cap}_.keys.push_back(it.key());')
                c.append('            return false;')
                c.append('          }')
                c.append('        }')
                c.append('      }')
                c.append(f'      if (txn{cap}_) {{')
                c.append(f'        while (auto const* k = Kel::NboAttrLog::kelFlowOutBookmarkDeq(bookmark{cap}_)) {{')
                c.append(f'          if (!kelHandle{cap}SerializeSing(*k)) {{')
                c.append(f'            bookmark{cap}_.putBack();')
                c.append('            return false;')
                c.append('          }')
                c.append('        }')
                c.append(f'        bookmark{cap}_.clear();')
                c.append(f'        writeTransaction({aid}, false);')
                c.append(f'        txn{cap}_ = txnOpen{cap}_ = false;')
                c.append('      }')
                c.append(f'      if (!dirty{cap}_.empty()) {{')
                c.append(f'        for (auto const& k : dirty{cap}_.keys())')
                c.append(f'          if (!kelHandle{cap}SerializeSing(k)) return false;')
                c.append('      }')
            else:
                c.append(f'      if (!kelSerialize{cap}()) return false;')
            c.append(f'      clearDirty({aid});')
            c.append('    }')
        c.append('    return true;')
        c.append('  }')
        # serializers
        for a in attrs:
            self.cpp_adapter_serializer(t, a)
        # deserialization
        c.append('')
        c.append('  void doHandleAttrDeserialization(Kel::AttributeId id, bool, std::uint32_t, Kel::NboAttrLog::In* in) override {')
        c.append('    switch (id) {')
        for a in attrs:
            self.cpp_adapter_reader(t, a)
        c.append('      default:')
        c.append('        doBaseKelNboAttrLogSaMsg(id, in);')
        c.append('    }')
        c.append('  }')
        if colls:
            c.append('')
            c.append('  void doHandleAttrTransaction(Kel::AttributeId id, bool begin) override {')
            c.append('    switch (id) {')
            for a in colls:
                cap = a.cap()
                c.append(f'      case {q}::AttrId::{a.name}:')
                c.append('        if (begin) {')
                c.append(f'          stale{cap}_.clear();')
                c.append(f'          for (auto it = x_->{a.name}().begin(); it; ++it) stale{cap}_{self.set_insert(a, "it.key()")};')
                c.append('        } else {')
                c.append(f'          for (auto const& k : stale{cap}_.keys()) kelDel{cap}(k);')
                c.append(f'          stale{cap}_.clear();')
                c.append('        }')
                c.append('        break;')
            c.append('      default:')
            c.append('        break;')
            c.append('    }')
            c.append('  }')
        refs = [a for a in colls if a.coll == 'refs']
        if refs:
            c.append('')
            c.append('  void referenceStreamed(Kel::AttributeId attr, Kel::Entity* target) override {')
            for a in refs:
                e = self.cpp(a.elem)
                c.append(f'    if (attr == {q}::AttrId::{a.name}) {{')
                c.append(f'      dirty{a.cap()}_{self.set_insert(a, f"{q}::{a.cap()}KeyFunktor()({self.elem_ptr(a)}(static_cast<{e}*>(target)))")};')
                c.append('    }')
            c.append('    Kel::Entity::KelNboAttrLogSa::referenceStreamed(attr, target);')
            c.append('  }')
        kids = [a for a in colls if a.coll == 'entities']
        singles = [a for a in attrs if a.kind == 'coll' and a.coll == 'child']
        if kids or singles:
            c.append('')
            c.append('  void dropChildren() override {')
            for a in kids:
                c.append(f'    for (auto it = children{a.cap()}_.begin(); it; ++it) log()->adapterDel((*it)->entityId());')
                c.append(f'    children{a.cap()}_.clear();')
            for a in singles:
                c.append(f'    if (child{a.cap()}_) log()->adapterDel(child{a.cap()}_->entityId());')
                c.append(f'    child{a.cap()}_ = nullptr;')
            c.append('  }')
        # members
        c.append('')
        c.append(' private:')
        for a in colls:
            cap = a.cap()
            kt = self.cpp(a.key_t)
            c.append(f'  void kelDel{cap}({self.key_param(a.key_t)} k) {{')
            if a.coll == 'entities':
                c.append(f'    if (auto child = children{cap}_.take(k)) log()->adapterDel((*child)->entityId());')
            c.append(f'    x_->{a.name}Del(k);')
            c.append('  }')
        c.append(f'  {q}* x_;')
        for a in colls:
            cap = a.cap()
            kt = self.cpp(a.key_t)
            st = f'Kel::RbTreeMap<{kt}, bool>' if a.coll == 'ordered' else f'Kel::HSet<{kt}>'
            c.append(f'  {st} dirty{cap}_;  // held back while throttled')
            c.append(f'  {st} stale{cap}_;  // reading: not named yet by a complete resend')
            c.append(f'  bool txn{cap}_ = false;      // a complete resend is due')
            c.append(f'  bool txnOpen{cap}_ = false;  // ... and has begun')
            c.append(f'  Kel::NboAttrLog::FlowOutBookmark<{kt}> bookmark{cap}_;')
            if a.coll == 'entities':
                c.append(f'  Kel::HashMap2018<{kt}, Kel::Ptr<Kel::Entity::KelNboAttrLogSa>> children{cap}_;')
        for a in attrs:
            if a.kind == 'coll' and a.coll == 'child':
                c.append(f'  Kel::Ptr<Kel::Entity::KelNboAttrLogSa> child{a.cap()}_;')
        c.append('};')
        c.append('')
        # streaming entry points for the descriptor
        c.append('namespace {')
        if t.factory:
            c.append(f'Kel::Ptr<Kel::Entity> kelNewForAttrLog{n}(Kel::NboAttrLog::In* in) {{')
            if t.named:
                c.append(f'  return {t.factory}(in->nextString());')
            else:
                lines, args = self.read_ctor_params(t)
                c.extend('  ' + x for x in lines)
                c.append(f'  return {t.factory}({args});')
            c.append('}')
        c.append(f'Kel::Ptr<Kel::Entity::KelNboAttrLogSa> kelNewStreamAdapter{n}(Kel::Ptr<Kel::Entity> const& e,')
        c.append('                                                          Kel::NboAttrLog::Stream* log, std::uint32_t id, bool writing) {')
        c.append(f'  return Kel::Ptr<Kel::Entity::KelNboAttrLogSa>(new {sa}(Kel::Ptr<{q}>(static_cast<{q}*>(e.get())), log, id, writing));')
        c.append('}')
        c.append(f'void kelSerializeConstructorParams{n}(Kel::NboAttrLog::Out& out, Kel::Entity const* entity) {{')
        c.append('  Kel::NboAttrLog::Out* o = &out;')
        if t.named:
            c.append('  *o << entity->name();')
        else:
            c.append(f'  auto const* e = static_cast<{q} const*>(entity);')
            c.extend('  ' + x for x in self.write_ctor_params(t, 'e'))
            if not t.ctor_attrs():
                c.append('  (void)e;')
                c.append('  (void)o;')
        c.append('}')
        if t.factory and t.named:
            c.append(f'Kel::Ptr<Kel::Entity> kelNewForDir{n}(Kel::String const& name, Kel::Entity*) {{')
            c.append(f'  return {t.factory}(name);')
            c.append('}')
        newfn = f'&kelNewForAttrLog{n}' if t.factory else 'nullptr'
        dirfn = f'&kelNewForDir{n}' if t.factory and t.named else 'nullptr'
        c.append(f'Kel::NboAttrLog::EntityStreaming const kelStreaming{n}{{{newfn}, &kelNewStreamAdapter{n},')
        c.append(f'                                                  &kelSerializeConstructorParams{n}, {dirfn}}};')
        c.append('}  // namespace')

    def serializer_head(self, cap, aid):
        self.out.append(f'  bool kelSerialize{cap}() {{')
        self.out.append(f'    Kel::NboAttrLog::Out* o = singletonSerializeCheck({aid});')
        self.out.append('    if (!o) return false;')

    # The stream for one element's record; throttled, the key is remembered as dirty.
    def coll_check(self, a, aid, ctx, deleted, ind):
        c = self.out
        c.append(f'{ind}CollContext {ctx}{{{aid}, {deleted}}};')
        c.append(f'{ind}Kel::NboAttrLog::Out* o = collSerializeCheck({ctx});')
        c.append(f'{ind}if (!o) {{')
        c.append(f'{ind}  dirty{a.cap()}_{self.set_insert(a, "k")};')
        c.append(f'{ind}  return false;')
        c.append(f'{ind}}}')

    def cpp_adapter_serializer(self, t, a):
        c = self.out
        q = t.rel(self.ns)
        cap = a.cap()
        aid = f'{q}::AttrId::{a.name}'
        c.append('')
        if a.kind == 'value':
            self.serializer_head(cap, aid)
            w = self.log_write(a, f'x_->{a.name}()').replace('o << ', '*o << ', 1)
            if a.t.kind in ('record', 'wrapper') and a.t.has_map():
                c.append('    try {')
                c.append(f'      {w}')
                c.append('    } catch (...) {')
                c.append('      abandonRecord();  // refused: the stream stays whole')
                c.append('      throw;')
                c.append('    }')
            else:
                c.append('    ' + w)
            c.append('    endRecord();')
            c.append('    return true;')
            c.append('  }')
            return
        if a.coll == 'ref':
            self.serializer_head(cap, aid)
            c.append(f'    auto const* target = x_->{a.name}().get();')
            c.append('    std::uint32_t const id = log()->idOf(target);')
            c.append(f'    if (target && !id) log()->pendingReferenceIs(target, entityId(), {aid});')
            c.append('    *o << static_cast<unsigned int>(id);')
            c.append('    endRecord();')
            c.append('    return true;')
            c.append('  }')
            return
        if a.coll == 'child':
            self.serializer_head(cap, aid)
            c.append(f'    auto const& e = x_->{a.name}();')
            c.append(f'    if (child{cap}_ && (!e || child{cap}_->entity() != e.get())) {{')
            c.append(f'      log()->adapterDel(child{cap}_->entityId());')
            c.append(f'      child{cap}_ = nullptr;')
            c.append('    }')
            c.append(f'    bool const fresh = e && !child{cap}_;')
            c.append(f'    if (fresh) child{cap}_ = log()->adapterIs(e);')
            c.append('    *o << static_cast<bool>(e);')
            c.append('    if (e) {')
            c.append(f'      *o << static_cast<unsigned int>(child{cap}_->entityId());')
            c.extend('      ' + x for x in self.write_ctor_params(a.elem, 'e'))
            c.append('    }')
            c.append('    endRecord();')
            c.append(f'    if (fresh) child{cap}_->resync();')
            c.append('    return true;')
            c.append('  }')
            return
        kp = self.key_param(a.key_t)
        kf = self.key_field(a)
        wkey = self.log_write(kf, 'k').replace('o << ', '*o << ', 1)
        c.append(f'  bool kelHandle{cap}SerializeSing({kp} k) {{')
        if a.coll in ('hashmap', 'ordered'):
            c.append(f'    auto const* v = x_->{a.name}(k);')
            self.coll_check(a, aid, 'ctx', 'v == nullptr', '    ')
            if a.key_text:
                c.append(f'    {wkey}')
                c.append('    if (v) *o << *v;')
            else:
                c.append(f'    if (v) {{')
                c.append('      *o << *v;')
                c.append('    } else {')
                c.append(f'      {wkey}')
                c.append('    }')
        elif a.coll == 'refs':
            c.append(f'    auto const e = x_->{a.name}(k);')
            self.coll_check(a, aid, 'ctx', '!e', '    ')
            c.append('    if (e) {')
            c.append('      std::uint32_t const id = log()->idOf(e.get());')
            c.append(f'      if (!id) log()->pendingReferenceIs(e.get(), entityId(), {aid});')
            c.append('      *o << static_cast<unsigned int>(id);')
            c.append('    } else {')
            c.append(f'      {wkey}')
            c.append('    }')
        else:  # entities
            c.append(f'    auto const e = x_->{a.name}(k);')
            c.append(f'    auto* known = children{cap}_.find(k);')
            c.append('    if (known && (!e || (*known)->entity() != e.get())) {')
            c.append('      // Gone, or another member under the same key: the reader drops the old one first.')
            self.coll_check(a, aid, 'gone', 'true', '      ')
            c.append(f'      {wkey}')
            c.append('      endRecord();')
            c.append('      log()->adapterDel((*known)->entityId());')
            c.append(f'      children{cap}_.del(k);')
            c.append('      known = nullptr;')
            c.append('    }')
            c.append('    if (!e || known) {')
            c.append(f'      dirty{cap}_.del(k);')
            c.append('      return true;')
            c.append('    }')
            self.coll_check(a, aid, 'ctx', 'false', '    ')
            c.append('    auto child = log()->adapterIs(e);')
            c.append('    *o << static_cast<unsigned int>(child->entityId());')
            c.extend('    ' + x for x in self.write_ctor_params(a.elem, 'e'))
            c.append('    endRecord();')
            c.append(f'    children{cap}_.insertOrReplace(k, child);')
            c.append(f'    dirty{cap}_.del(k);')
            c.append('    child->resync();')
            c.append('    return true;')
            c.append('  }')
            return
        c.append('    endRecord();')
        c.append(f'    dirty{cap}_.del(k);')
        c.append('    return true;')
        c.append('  }')

    def cpp_adapter_reader(self, t, a):
        c = self.out
        q = t.rel(self.ns)
        cap = a.cap()
        aid = f'{q}::AttrId::{a.name}'
        neg = f'static_cast<Kel::AttributeId>(0u - {aid})'
        if a.kind == 'value':
            c.append(f'      case {aid}: {{')
            c.append(f'        auto v = {self.log_read(a, True)};')
            c.append('        recordEnds(in);')
            c.append(f'        x_->{a.name}Is(std::move(v));')
            c.append('        break;')
            c.append('      }')
            return
        if a.coll == 'ref':
            e = self.cpp(a.elem)
            c.append(f'      case {aid}: {{')
            c.append(f'        auto* target = dynamic_cast<{e}*>(log()->entityOf(in->nextU32()));')
            c.append('        recordEnds(in);')
            c.append(f'        x_->{a.name}Is({e}::PtrConst(target));')
            c.append('        break;')
            c.append('      }')
            return
        if a.coll == 'child':
            e = self.cpp(a.elem)
            lines, args = self.read_ctor_params(a.elem)
            c.append(f'      case {aid}:')
            c.append('        if (in->nextbool()) {')
            c.append('          std::uint32_t const childId = in->nextU32();')
            c.extend('          ' + x for x in lines)
            c.append('          recordEnds(in);')
            c.append(f'          log()->childIdCheck(childId, child{cap}_ ? child{cap}_->entity() : nullptr);')
            c.append(f'          auto child = x_->{a.name}Is({args});')
            c.append(f'          if (!child{cap}_ || child{cap}_->entityId() != childId) {{')
            c.append(f'            if (child{cap}_) log()->adapterDel(child{cap}_->entityId());')
            c.append(f'            child{cap}_ = log()->adapterIs(child, childId);')
            c.append('          }')
            c.append('        } else {')
            c.append('          recordEnds(in);')
            c.append(f'          if (child{cap}_) log()->adapterDel(child{cap}_->entityId());')
            c.append(f'          child{cap}_ = nullptr;')
            c.append(f'          x_->{a.name}Del();')
            c.append('        }')
            c.append('        break;')
            return
        kf = self.key_field(a)
        rkey = self.log_read(kf, True)
        kt = self.cpp(a.key_t)
        c.append(f'      case {aid}: {{')
        if a.coll in ('hashmap', 'ordered'):
            v = self.cpp(a.elem)
            if a.key_text:
                c.append(f'        {kt} k = {rkey};')
                c.append(f'        {v} v(in, Kel::StreamBogon{{}});')
                c.append('        recordEnds(in);')
                c.append(f'        x_->{a.name}Is(k, std::move(v));')
                c.append(f'        stale{cap}_.del(k);')
            else:
                c.append(f'        {v} v(in, Kel::StreamBogon{{}});')
                c.append('        recordEnds(in);')
                c.append(f'        stale{cap}_.del({q}::{cap}KeyFunktor()(v));')
                c.append(f'        x_->{a.name}Is(std::move(v));')
        elif a.coll == 'refs':
            e = self.cpp(a.elem)
            c.append(f'        auto* target = dynamic_cast<{e}*>(log()->entityOf(in->nextU32()));')
            c.append('        recordEnds(in);')
            c.append(f'        if (target) {{')
            c.append(f'          stale{cap}_.del({q}::{cap}KeyFunktor()({self.elem_ptr(a)}(target)));')
            c.append(f'          x_->{a.name}Is({self.elem_ptr(a)}(target));')
            c.append('        }')
        else:
            lines, args = self.read_ctor_params(a.elem)
            c.append('        std::uint32_t const childId = in->nextU32();')
            c.extend('        ' + x for x in lines)
            c.append('        recordEnds(in);')
            key = a.elem.key_attr()
            ki = [x.name for x in a.elem.ctor_attrs()].index(key.name)
            c.append(f'        log()->childIdCheck(childId, x_->{a.name}(p{ki}).get());')
            c.append(f'        auto child = x_->{a.name}Is({args});')
            key = a.elem.key_attr()
            c.append(f'        {kt} k = child->{key.name}();')
            c.append(f'        stale{cap}_.del(k);')
            c.append(f'        auto* known = children{cap}_.find(k);')
            c.append('        if (known && (*known)->entityId() == childId) break;')
            c.append('        if (known) log()->adapterDel((*known)->entityId());')
            c.append(f'        children{cap}_.insertOrReplace(k, log()->adapterIs(child, childId));')
        c.append('        break;')
        c.append('      }')
        c.append(f'      case {neg}: {{')
        c.append(f'        {kt} k = {rkey};')
        c.append('        recordEnds(in);')
        c.append(f'        kelDel{cap}(k);')
        c.append('        break;')
        c.append('      }')

    # -- bindings
