"""The bindings of entities: constructors, collections, factories, generic interface,
attribute text and descriptors."""
from .adapter import AdapterEmitter
from .model import Field
from .names import Emitter
from .tpl import indent, render


class EntityEmitter(Emitter):

    def cpp_entity(self, t):
        c = self.out
        q = t.rel(self.ns)
        n = t.short
        c.append(f'// ---- {q}')
        AdapterEmitter(self.s, self.out).cpp_adapter(t)
        self.cpp_attribute_text(t)
        base = f'&{self.descriptor(t.base)}' if t.base else 'nullptr'
        items = ', '.join(
            f'{{"{a.name}", {a.id}{", true" if a.kind in ("const", "from", "view", "computed", "action") or "ctor" in a.flags else ""}}}'
            for a in t.fields)
        self.cpp_entity_ops(t)
        c.append(f'Kel::KelType const {q}::_kelType("{t.full}", Kel::KelType::Kind::Entity, {base}, {{{items}}},')
        c.append(f'                                 &kelStreaming{n}, &kelOps{n});')
        # constructor
        parent = self.cpp(t.base) if t.base else 'Kel::Entity'
        if t.named:
            c.append(f'{q}::{n}(Kel::Name name) : {parent}(std::move(name)) {{')
        else:
            ctor = t.ctor_attrs()
            args = ', '.join(f'{self.cpp(a.t)} {a.name}' for a in ctor)
            key = t.key_attr()
            name = f'Kel::Name({self.kind(key.t).key_text(key.name)})' if key else 'Kel::Name()'
            inits = [f'{parent}({name})'] + [f'{a.name}_(std::move({a.name}))' for a in ctor]
            c.append(f'{q}::{n}({args})')
            c.append(f'    : ' + ', '.join(inits) + ' {')
            for a in ctor:
                if a.limit:
                    c.append(f'  {a.name}Check({a.name}_);')
        for a in t.fields:
            if 'checked' in a.flags:
                c.append(f'  {a.name}Check({a.name}_);')
        if t.init:
            c.append('  kelInit();')
        c.append('}')
        for a in t.fields:
            if a.kind != 'coll':
                continue
            nm, cap = a.name, a.cap()
            owner = f'{q}::{nm}'
            if a.coll in ('entities', 'child'):
                e = self.cpp(a.elem)
                ctor = a.elem.ctor_attrs()
                args = ', '.join(f'{self.cpp(x.t)} {x.name}' for x in ctor)
                strict = [x for x in ctor if 'initial' not in x.flags]
                differ = ' || '.join(f'!(e->{x.name}() == {x.name})' for x in strict) or 'false'
                key = a.elem.key_attr()
                ktext = self.kind(key.t).key_text(key.name) if key else 'Kel::String()'
                fresh = ', '.join(f'std::move({x.name})' for x in ctor)
                c.append(f'{e}::Ptr {q}::{nm}Is({args}) {{')
                if a.coll == 'entities':
                    c.append(f'  if ({e}* e = {nm}_.find({key.name})) {{')
                    c.append(f'    if ({differ}) Kel::GenericIfImpl::throwReinstantiationException(&{e}::_kelType, {ktext});')
                    c.append('    return e;')
                    c.append('  }')
                else:
                    c.append(f'  if ({nm}_) return {nm}_;')
                if a.coll == 'entities':
                    kcopy = f'{self.cpp(key.t)} k = {key.name};'
                    c.append(f'  {kcopy}')
                    c.append(f'  {e}::Ptr e = {nm}_.instantiate(this, k, {fresh}).first;  // held: an observer may remove it')
                    c.append(f'  notify(AttrId::{nm}, k);')
                    c.append('  return e;')
                else:
                    c.append(f'  {e}::Ptr e(new {e}({fresh}));')
                    c.append('  e->parentIs(this);')
                    c.append('  e->deliversNotificationsIs(true);')
                    c.append(f'  {nm}_ = e;')
                    c.append(f'  notify(AttrId::{nm});')
                    c.append('  return e;')
                c.append('}')
                if a.coll == 'entities':
                    kp = self.key_param(a.key_t)
                    c.append(f'{e}::Ptr const& {q}::{nm}({kp} k) const {{')
                    c.append(f'  static {e}::Ptr const none;')
                    c.append(f'  auto const* p = {nm}_.findPtr(k);')
                    c.append('  return p ? *p : none;')
                    c.append('}')
                    c.append(f'{e}::Ptr {q}::{nm}Del({kp} k) {{')
                    c.append(f'  {e}::Ptr e = {nm}_.del(k);')
                    c.append(f'  if (e) notify(AttrId::{nm}, k);')
                    c.append('  return e;')
                    c.append('}')
                    c.append(f'void {q}::{nm}DelAll() {{')
                    c.append('  KeepAlive const keep(this);  // an observer may drop the owner meanwhile')
                    c.append(f'  for (auto const& k : {nm}_.keys()) {nm}Del(k);')
                    c.append('}')
                else:
                    c.append(f'void {q}::{nm}Del() {{')
                    c.append(f'  if (!{nm}_) return;')
                    c.append(f'  {nm}_->parentIs(nullptr);')
                    c.append(f'  {nm}_ = nullptr;')
                    c.append(f'  notify(AttrId::{nm});')
                    c.append('}')
            elif a.coll != 'ref':
                self.cpp_value_coll(t, a)
        if t.factory:
            if t.named:
                sig, call = 'Kel::Name name', 'std::move(name)'
            else:
                ctor = t.ctor_attrs()
                sig = ', '.join(f'{self.cpp(a.t)} {a.name}' for a in ctor)
                call = ', '.join(f'std::move({a.name})' for a in ctor)
            c.append(f'{q}::Ptr {t.factory}({sig}) {{')
            c.append(f'  {q}::Ptr e(new {q}({call}));')
            c.append('  e->deliversNotificationsIs(true);')
            c.append('  return e;')
            c.append('}')
        c.append('')

    # -- attribute-log stream adapters

    def cpp_value_coll(self, t, a):
        c = self.out
        q = t.rel(self.ns)
        nm, cap = a.name, a.cap()
        m = f'{nm}_'
        aid = f'AttrId::{nm}'
        kp = self.key_param(a.key_t)
        coll = f'{q}::Kel{cap}'
        if a.coll == 'refs':
            ptr = self.elem_ptr(a)
            c.append(f'{ptr} const& {q}::{nm}({kp} k) const {{')
            c.append(f'  static {ptr} const none;')
            c.append(f'  auto const* p = {m}.find(k);')
            c.append('  return p ? *p : none;')
            c.append('}')
            c.append(f'void {q}::{nm}Is({ptr} e) {{')
            c.append(f'  if (!e) Kel::throwNullReference("{t.short}::{nm}");')
            c.append(f'  if (auto const* old = {m}.find({cap}KeyFunktor()(e)); old && *old == e) return;')
            c.append(f'  auto k = {cap}KeyFunktor()(e);')
            c.append(f'  {m}.insertOrReplace(std::move(e));')
            c.append(f'  notify({aid}, k);')
            c.append('}')
        else:
            v = self.cpp(a.elem)
            c.append(f'{v} const* {q}::{nm}({kp} k) const {{ return {m}.find(k); }}')
            c.append(f'bool {q}::{nm}Has({kp} k) const {{ return {m}.contains(k); }}')
            if a.key_text:
                c.append(f'void {q}::{nm}Is({kp} k, {v} v) {{')
                c.append(f'  if (auto const* old = {m}.find(k); old && *old == v) return;')
                c.append(f'  {m}.insertOrReplace(k, std::move(v));')
                c.append(f'  notify({aid}, k);')
                c.append('}')
            else:
                c.append(f'void {q}::{nm}Is({v} v) {{')
                c.append(f'  if (auto const* old = {m}.find({cap}KeyFunktor()(v)); old && *old == v) return;')
                c.append(f'  auto k = {cap}KeyFunktor()(v);')
                c.append(f'  {m}.insertOrReplace(std::move(v));')
                c.append(f'  notify({aid}, k);')
                c.append('}')
            if a.coll == 'ordered':
                c.append(f'void {q}::{nm}Del({coll}::Iterator& it) {{')
                c.append('  auto k = it.key();')
                c.append('  it.del();')
                c.append(f'  notify({aid}, k);')
                c.append('}')
                c.append(f'{coll}::Iterator {q}::{nm}Iter() {{ return {m}.begin(); }}')
        c.append(f'bool {q}::{nm}Del({kp} k) {{')
        c.append(f'  if (!{m}.del(k)) return false;')
        c.append(f'  notify({aid}, k);')
        c.append('  return true;')
        c.append('}')
        c.append(f'void {q}::{nm}DelAll() {{')
        c.append('  KeepAlive const keep(this);  // an observer may drop the owner meanwhile')
        c.append(f'  for (auto const& k : {m}.keys()) {nm}Del(k);')
        c.append('}')


    def cpp_entity_ops(self, t):
        c = self.out
        q = t.rel(self.ns)
        n = t.short
        c.append('namespace {')
        c.append(f'int kelAttributeOp{n}(void* result, void* object, Kel::KelAttr const* attr, unsigned op, void const*,')
        c.append('                     void const* argument) {')
        c.append(f'  [[maybe_unused]] auto* o = static_cast<{q}*>(object);')
        c.append('  (void)op;')
        c.append('  if (!attr) return Kel::GenericIf::attrOpUnsupported;')
        c.append('  switch (attr->id) {')
        for a in t.all_fields():
            c.append(f'    case {q}::AttrId::{a.name}:')
            if a.kind == 'action' or (a.kind == 'coll' and a.coll not in ('ref', 'child')):
                c.append('      return Kel::GenericIf::attrOpUnsupported;  // collections: walk them with an iterator')
                continue
            if a.kind == 'coll':
                ty = self.elem_ptr(a) if a.coll == 'ref' else f'{self.cpp(a.elem)}::Ptr'
                c.extend(indent(self.attr_get_set(f'o->{a.name}()', f'o->{a.name}Is', ty, a.coll == 'child'), '      '))
                continue
            readonly = a.kind in ('const', 'from', 'view', 'computed') or 'ctor' in a.flags
            c.extend(indent(self.attr_get_set(f'o->{a.name}()', f'o->{a.name}Is', self.cpp(a.t), readonly), '      '))
        c.append('    default:')
        c.append('      (void)result;')
        c.append('      (void)argument;')
        c.append('      return Kel::GenericIf::attrOpNoSuchAttribute;')
        c.append('  }')
        c.append('}')
        c.append(f'void kelConstructFromCtorArgs{n}(void* dest, void const* const* args) {{')
        if t.named:
            ctor = [('Kel::Name', 'name')]
        else:
            ctor = [(self.cpp(a.t), a.name) for a in t.ctor_attrs()]
        args = ', '.join(f'*static_cast<{ty} const*>(args[{k}])' for k, (ty, _) in enumerate(ctor))
        if not ctor:
            c.append('  (void)args;')
        if t.factory:
            c.append(f'  *static_cast<Kel::Ptr<Kel::Entity>*>(dest) = {t.factory}({args});')
        else:
            c.append(f'  *static_cast<Kel::Ptr<Kel::Entity>*>(dest) = Kel::Ptr<Kel::Entity>(new {q}({args}));')
        c.append('}')
        c.append(f'Kel::GenericIf::Iterator* kelIterator{n}(void* object, Kel::KelAttr const* attr) {{')
        c.append(f'  auto* o = static_cast<{q}*>(object);')
        c.append('  switch (attr ? attr->id : 0) {')
        for a in t.all_fields():
            if a.kind == 'coll' and a.coll not in ('ref', 'child'):
                coll = f'{q}::Kel{a.cap()}'
                c.append(f'    case {q}::AttrId::{a.name}:')
                kp = self.key_param(a.key_t)
                c.append(f'      return Kel::GenericIfImpl::collIterator(o->{a.name}(), [o]({kp} k) {{ o->{a.name}Del(k); }});')
        c.append('    default:')
        c.append('      (void)o;')
        c.append('      return nullptr;')
        c.append('  }')
        c.append('}')
        c.append(f'void* kelVoidPtrIs{n}(void* p, Kel::KelType const* t) {{')
        c.append(f'  return Kel::GenericIfImpl::genericIfVoidPtrIs(p, t, &{q}::_kelType);')
        c.append('}')
        c.append(f'Kel::GenericIf::TypeOps const kelOps{n}{{&kelAttributeOp{n}, &kelConstructFromCtorArgs{n}, &kelIterator{n},')
        c.append(f'    nullptr, nullptr, nullptr, &kelVoidPtrIs{n}, nullptr, nullptr}};')
        c.append('}  // namespace')

    def cpp_attribute_text(self, t):
        c = self.out
        q = t.rel(self.ns)
        c.append(f'Kel::String {q}::kelAttributeText(Kel::AttributeId id) const {{')
        c.append('  Kel::String out;')
        c.append('  switch (id) {')
        for a in t.all_fields():
            if a.kind == 'action':
                continue
            c.append(f'    case AttrId::{a.name}: {{')
            if a.kind != 'coll':
                c.append('      ' + self.strep_append(a, f'{a.name}()'))
            elif a.coll == 'ref' or a.coll == 'child':
                c.append(f'      auto const& e = {a.name}();')
                key = a.elem.key_attr()
                kf = Field('k', '', 0)
                kf.t = key.t
                c.append('      if (!e) {')
                c.append('        out += "None";')
                c.append('      } else {')
                c.append('        ' + self.strep_append(kf, f'e->{key.name}()'))
                c.append('      }')
            else:
                kf = self.key_field(a)
                c.append('      std::vector<Kel::String> items;')
                c.append(f'      for (auto it = {a.name}().begin(); it; ++it) {{')
                c.append('        Kel::String one;')
                c.append('        {')
                c.append('          Kel::String& out = one;')
                if a.coll in ('hashmap', 'ordered'):
                    if a.key_text:
                        c.append('          ' + self.strep_append(kf, 'it.key()'))
                        c.append('          out += ": ";')
                    ef = Field('e', '', 0)
                    ef.t = a.elem
                    c.append('          ' + self.strep_append(ef, '*it'))
                else:
                    c.append('          ' + self.strep_append(kf, 'it.key()'))
                c.append('        }')
                c.append('        items.push_back(std::move(one));')
                c.append('      }')
                c.append('      std::sort(items.begin(), items.end());')
                c.append('      out += "{";')
                c.append('      for (std::size_t i = 0; i < items.size(); ++i) {')
                c.append('        if (i) out += ", ";')
                c.append('        out += items[i];')
                c.append('      }')
                c.append('      out += "}";')
            c.append('      break;')
            c.append('    }')
        c.append('    default:')
        c.append('      break;')
        c.append('  }')
        c.append('  return out;')
        c.append('}')
        c.append('')
