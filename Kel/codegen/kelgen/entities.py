"""The bindings of entities: constructors, collections, factories, generic interface,
attribute text and descriptors."""
from .adapter import AdapterEmitter
from .header import HeaderEmitter as HeaderNames
from .names import Emitter
from .tpl import render

# The tables that tie a descriptor to its bindings in the other sources: not exported.
HIDDEN = '[[gnu::visibility("hidden")]]'


class EntityEmitter(Emitter):
    """Writes the members and the descriptor to out, the stream adapter to sa and the
    generic interface to gi: three sources that compile side by side."""

    def __init__(self, schema, out=None, gi=None, sa=None):
        super().__init__(schema, out)
        self.gi = self.out if gi is None else gi
        self.sa = self.out if sa is None else sa

    def cpp_entity(self, t):
        q, n, x = t.rel(self.ns), t.short, self.names.ident(t)
        self.out.append(f'// ---- {q}')
        AdapterEmitter(self.s, self.sa).cpp_adapter(t)
        self.cpp_entity_ops(t)
        base = f'&{self.descriptor(t.base)}' if t.base else 'nullptr'
        items = self.rows([self.kel_attr(a, a.id, a.kind in ("const", "from", "view", "computed", "action") or "ctor" in a.flags)
                           for a in t.fields])
        parent = self.cpp(t.base) if t.base else 'Kel::Entity'
        ctor = [] if t.named else t.ctor_attrs()
        key = t.key_attr()
        lazy = HeaderNames.lazy_name(t)
        name = 'Kel::Entity::LazyName{}' if lazy else \
            f'Kel::Name({self.kind(key.t).key_text(key.name)})' if key else 'Kel::Name()'
        inits = ', '.join([f'{parent}({name})'] + [f'{a.name}_(std::move({a.name}))' for a in ctor])
        checks = [f'{a.name}Check({a.name}_);' for a in ctor if a.limit]
        checks += [f'{a.name}Check({a.name}_);' for a in t.fields if 'checked' in a.flags]
        self.out += render('''
            ${hidden} extern Kel::NboAttrLog::EntityStreaming const kelStreaming_${x};
            ${hidden} extern Kel::GenericIf::TypeOps const kelOps_${x};
            Kel::KelType const ${q}::_kelType("${full}", Kel::KelType::Kind::Entity, ${base}, {${items}},
                                             &kelStreaming_${x}, &kelOps_${x});
            ${q}::${n}(Kel::Name name) : ${parent}(std::move(name)) {  ${named?}
            ${q}::${n}(${args})  ${unnamed?}
                : ${inits} {  ${unnamed?}
              ${checks}
              kelInit();  ${init?}
            }''', q=q, n=n, full=t.full, base=base, items=items, parent=parent, named=t.named,
                           unnamed=not t.named, args=self.params(ctor), inits=inits, checks=checks, init=t.init,
                           x=x, hidden=HIDDEN)
        if lazy:
            self.out.append(f'Kel::Name {q}::kelLazyName() const {{ return Kel::Name({self.kind(key.t).key_text(key.name + "_")}); }}')
        for part in dict.fromkeys(a.part for a in t.fields if a.part):
            p = f'KelPart{part[0].upper()}{part[1:]}'
            self.out.append(f'{q}::{p} const& {q}::k{p[1:]}Defaults() {{ static {p} const d{{}}; return d; }}')
        for a in t.fields:
            if a.kind == 'coll' and a.coll in ('entities', 'child'):
                self.cpp_owned(t, a)
            elif a.kind == 'coll' and a.coll != 'ref':
                self.cpp_value_coll(t, a)
        if t.factory:
            sig = 'Kel::Name name' if t.named else self.params(t.ctor_attrs())
            call = 'std::move(name)' if t.named else ', '.join(f'std::move({a.name})' for a in t.ctor_attrs())
            self.out += render('''
                ${q}::Ptr ${factory}(${sig}) {
                  ${q}::Ptr e(new ${q}(${call}));
                  e->deliversNotificationsIs(true);
                  return e;
                }''', q=q, factory=t.factory, sig=sig, call=call)
        self.out.append('')

    def params(self, attrs):
        return ', '.join(f'{self.cpp(x.t)} {x.name}' for x in attrs)

    def cpp_owned(self, t, a):
        """The members of an owned collection (entities<>) or an owned child (child<>)."""
        q, nm, e = t.rel(self.ns), a.name, self.cpp(a.elem)
        ctor = a.elem.ctor_attrs()
        key = a.elem.key_attr()
        strict = [x for x in ctor if 'initial' not in x.flags]
        subs = dict(q=q, nm=nm, e=e, args=self.params(ctor), fresh=', '.join(f'std::move({x.name})' for x in ctor))
        if a.coll == 'child':
            self.out += render('''
                ${e}::Ptr ${q}::${nm}Is(${args}) {
                  if (${nm}_) return ${nm}_;
                  ${e}::Ptr e(new ${e}(${fresh}));
                  e->parentIs(this);
                  e->deliversNotificationsIs(true);
                  ${nm}_ = e;
                  notify(AttrId::${nm});
                  return e;
                }
                void ${q}::${nm}Del() {
                  if (!${nm}_) return;
                  ${nm}_->parentIs(nullptr);
                  ${nm}_ = nullptr;
                  notify(AttrId::${nm});
                }''', **subs)
            return
        self.out += render('''
            ${e}::Ptr ${q}::${nm}Is(${args}) {
              if (${e}* e = ${nm}_.find(${key})) {
                if (${differ}) Kel::GenericIfImpl::throwReinstantiationException(&${e}::_kelType, ${ktext});
                return e;
              }
              ${kt} k = ${key};
              ${e}::Ptr e = ${nm}_.instantiate(this, k, ${fresh}).first;  // held: an observer may remove it
              notify(AttrId::${nm}, k);
              return e;
            }
            ${e}::Ptr const& ${q}::${nm}(${kp} k) const {
              static ${e}::Ptr const none;
              auto const* p = ${nm}_.findPtr(k);
              return p ? *p : none;
            }
            ${e}::Ptr ${q}::${nm}Del(${kp} k) {
              if (!notifying()) return ${nm}_.del(k);
              // The caller's key may live in what goes: the observers get a copy.
              std::remove_cvref_t<decltype(k)> const key = k;
              ${e}::Ptr e = ${nm}_.del(key);
              if (e) notify(AttrId::${nm}, key);
              return e;
            }
            void ${q}::${nm}DelAll() {
              KeepAlive const keep(this);  // an observer may drop the owner meanwhile
              for (auto const& k : ${nm}_.keys()) ${nm}Del(k);
            }''', key=key.name, kt=self.cpp(key.t), kp=self.key_param(a.key_t),
                             differ=' || '.join(f'!(e->{x.name}() == {x.name})' for x in strict) or 'false',
                             ktext=self.kind(key.t).key_text(key.name), **subs)

    def cpp_value_coll(self, t, a):
        """The members of a collection of values (hashmap<>, ordered<>) or references (refs<>)."""
        q, nm = t.rel(self.ns), a.name
        subs = dict(q=q, nm=nm, kp=self.key_param(a.key_t), kf=f'{a.cap()}KeyFunktor', coll=f'{q}::Kel{a.cap()}',
                    v=self.cpp(a.elem), ptr=self.elem_ptr(a), short=t.short)
        if a.coll == 'refs':
            self.out += render('''
                ${ptr} const& ${q}::${nm}(${kp} k) const {
                  static ${ptr} const none;
                  auto const* p = ${nm}_.find(k);
                  return p ? *p : none;
                }
                void ${q}::${nm}Is(${ptr} e) {
                  if (!e) Kel::throwNullReference("${short}::${nm}");
                  auto const [change, stored] = ${nm}_.put(std::move(e));
                  if (!Kel::changed(change) || !notifying()) return;
                  auto const k = ${kf}()(*stored);  // a copy: an observer may change the collection
                  notify(AttrId::${nm}, k);
                }''', **subs)
        else:
            self.out += render('''
                ${v} const* ${q}::${nm}(${kp} k) const { return ${nm}_.find(k); }
                bool ${q}::${nm}Has(${kp} k) const { return ${nm}_.contains(k); }
                void ${q}::${nm}Is(${kp} k, ${v} v) {  ${beside?}
                  if (auto const* old = ${nm}_.find(k); old && *old == v) return;  ${beside?}
                  ${nm}_.insertOrReplace(k, std::move(v));  ${beside?}
                void ${q}::${nm}Is(${v} v) {  ${byField?}
                  auto const [change, stored] = ${nm}_.put(std::move(v));  ${hashed?}
                  if (!Kel::changed(change) || !notifying()) return;  ${hashed?}
                  auto const k = ${kf}()(*stored);  // a copy: an observer may change the collection  ${hashed?}
                  if (auto const* old = ${nm}_.find(${kf}()(v)); old && *old == v) return;  ${sorted?}
                  auto k = ${kf}()(v);  ${sorted?}
                  ${nm}_.insertOrReplace(std::move(v));  ${sorted?}
                  notify(AttrId::${nm}, k);
                }
                void ${q}::${nm}Del(${coll}::Iterator& it) {  ${ordered?}
                  auto k = it.key();  ${ordered?}
                  it.del();  ${ordered?}
                  notify(AttrId::${nm}, k);  ${ordered?}
                }  ${ordered?}
                ${coll}::Iterator ${q}::${nm}Iter() { return ${nm}_.begin(); }  ${ordered?}''',
                               beside=bool(a.key_text), byField=not a.key_text, ordered=a.coll == 'ordered',
                               hashed=not a.key_text and a.coll == 'hashmap', sorted=not a.key_text and a.coll != 'hashmap',
                               **subs)
        self.out += render('''
            bool ${q}::${nm}Del(${kp} k) {
              if (!notifying()) return ${nm}_.del(k);
              // The caller's key may live in the member that goes: the observers get a copy.
              std::remove_cvref_t<decltype(k)> const key = k;
              if (!${nm}_.del(key)) return false;
              notify(AttrId::${nm}, key);
              return true;
            }
            void ${q}::${nm}DelAll() {
              KeepAlive const keep(this);  // an observer may drop the owner meanwhile
              for (auto const& k : ${nm}_.keys()) ${nm}Del(k);
            }''', **subs)

    def attr_entry(self, t, a):
        """One row of the entity's attribute table (Kel/EntityBinding.h)."""
        q = t.rel(self.ns)
        aid = f'{q}::AttrId::{a.name}'
        if a.kind == 'action':
            return f'Kel::Et::Action<{aid}>'
        if a.kind != 'coll':
            readonly = a.kind in ('const', 'from', 'view', 'computed') or 'ctor' in a.flags
            setter = 'nullptr' if readonly else f'&{q}::{a.name}Is'
            return f'Kel::Et::Value<{aid}, &{q}::{a.name}, {setter}>'
        if a.coll in ('ref', 'child'):
            setter = 'nullptr' if a.coll == 'child' else f'&{q}::{a.name}Is'
            key = f'&{self.cpp(a.elem)}::{a.elem.key_attr().name}'
            return f'Kel::Et::One<{aid}, &{q}::{a.name}_, {setter}, {key}>'
        if a.coll in ('refs', 'entities'):
            show, dele = 'keys', f'&{q}::{a.name}Del'
        else:
            show = 'pairs' if a.key_text else 'values'
            dele = f'static_cast<bool ({q}::*)({self.key_param(a.key_t)})>(&{q}::{a.name}Del)'
        return f'Kel::Et::Many<{aid}, &{q}::{a.name}_, {dele}, Kel::Et::Show::{show}>'

    def cpp_entity_ops(self, t):
        """The attribute table and what the generic interface and the show tools get from it."""
        q, n = t.rel(self.ns), t.short
        rows = [self.attr_entry(t, a) for a in t.all_fields()]
        rows = [r + (',' if k + 1 < len(rows) else '>;') for k, r in enumerate(rows)] or ['>;']
        if t.named:
            ctor = ['Kel::Name']
        else:
            ctor = [self.cpp(a.t) for a in t.ctor_attrs()]
        args = ', '.join(f'*static_cast<{ty} const*>(args[{k}])' for k, ty in enumerate(ctor))
        make = f'{t.factory}({args})' if t.factory else f'Kel::Ptr<Kel::Entity>(new {q}({args}))'
        self.gi.append(f'// ---- {q}')
        self.gi += render('''
            struct ${q}::KelAttrs {
              using List = Kel::Et::List<
                  ${rows}
            };
            Kel::String ${q}::kelAttributeText(Kel::AttributeId id) const { return Kel::Et::text<KelAttrs>(*this, id); }
            namespace {
            void kelConstructFromCtorArgs${n}(void* dest, void const* const* args) {
              (void)args;  ${noArgs?}
              *static_cast<Kel::Ptr<Kel::Entity>*>(dest) = ${make};
            }
            void* kelVoidPtrIs${n}(void* p, Kel::KelType const* t) { return Kel::GenericIfImpl::genericIfVoidPtrIs(p, t, &${q}::_kelType); }
            }  // namespace
            ${hidden} extern Kel::GenericIf::TypeOps const kelOps_${x};
            Kel::GenericIf::TypeOps const kelOps_${x}{&Kel::Et::attributeOp<${q}::KelAttrs, ${q}>, &kelConstructFromCtorArgs${n},
                &Kel::Et::iterator<${q}::KelAttrs, ${q}>, nullptr, nullptr, nullptr, &kelVoidPtrIs${n}, nullptr, nullptr};
            ''', q=q, n=n, x=self.names.ident(t), rows=rows, noArgs=not ctor, make=make, hidden=HIDDEN)
