"""The bindings of value types: text form, parser, attribute log, generic interface and
descriptors of enumerations, bit maps, records and wrappers."""
from .names import Emitter
from .tpl import indent, render


class ValueEmitter(Emitter):

    def cpp_enum(self, t):
        c = self.out
        q = t.rel(self.ns)
        d = self.descriptor(t)
        c.append(f'// ---- {q}')
        if not self.s.registered_by:
            c.extend(self.enum_descriptor(t))
        c.append(f'{q} {q}Instance(unsigned value) {{ return static_cast<{q}>(Kel::enumInstance({d}, value)); }}')
        c.append(f'{q} {q}Instance(Kel::String const& name) {{ return static_cast<{q}>({d}.value(name)); }}')
        c.append(f'Kel::EnumType const& enumType({q}) {{ return {d}; }}')
        c.append(f'Kel::String stringValue({q} value) {{ return {d}.name(static_cast<std::uint32_t>(value)); }}')
        c.append(f'Kel::String valueToStrep({q} value) {{ return stringValue(value); }}')
        c.append(f'{q} sequenceToValue(Kel::StrepIt& pos, Kel::StrepIt const& end, {q}*) {{')
        c.append(f'  return static_cast<{q}>({d}.parse(pos, end));')
        c.append('}')
        c.append(f'std::ostream& operator<<(std::ostream& os, {q} value) {{')
        c.append(f'  {d}.write(os, static_cast<std::uint32_t>(value));')
        c.append('  return os;')
        c.append('}')
        c.append('')

    def descriptor_def(self, t, attrs):
        self.cpp_value_ops(t)
        if not self.s.registered_by:
            self.out.extend(self.value_descriptor(t))

    @staticmethod
    def value_attrs(t):
        if t.kind == 'bitmap':
            return [(b, False) for b in t.bits]
        return [(f.name, 'get-only' in f.flags) for f in t.fields]

    def value_descriptor(self, t):
        """The definition of a value type's descriptor (in the file that registers it)."""
        q = t.rel(self.ns)
        base = f'&{self.descriptor(t.base)}' if t.base else 'nullptr'
        first = 2 + (len(t.base.all_fields()) if t.base else 0)
        items = ', '.join(f'{{"{a}", {first + k}{", true" if ro else ""}}}'
                          for k, (a, ro) in enumerate(self.value_attrs(t)))
        return [f'Kel::KelType const {q}::_kelType("{t.full}", Kel::KelType::Kind::Value, {base}, {{{items}}},',
                f'                                 nullptr, &kelOps_{self.names.ident(t)});']

    def enum_descriptor(self, t):
        items = ', '.join(f'{{"{n}", {v}}}' for n, v in t.enumerators)
        return [f'Kel::EnumType const {self.descriptor(t)}("{t.full}", {{{items}}});']

    def cpp_value_ops(self, t):
        c = self.out
        q = t.rel(self.ns)
        x = self.names.ident(t)
        c.append('namespace {')
        c.append(f'int kelAttributeOp{x}(void* result, void* object, Kel::KelAttr const* attr, unsigned op, void const* key,')
        c.append('                     void const* argument) {')
        c.append(f'  auto* o = static_cast<{q}*>(object);')
        c.append('  if (!attr) {')
        c.append('    switch (op) {')
        c.append('      case Kel::GenericIf::valueIsDefault:')
        c.append(f'        *static_cast<bool*>(result) = *o == {q}();')
        c.append('        return Kel::GenericIf::attrOpDone;')
        c.append('      case Kel::GenericIf::valueEquals:')
        c.append(f'        *static_cast<bool*>(result) = *o == *static_cast<{q} const*>(key);')
        c.append('        return Kel::GenericIf::attrOpDone;')
        if 'lt' in t.ops or t.kind == 'bitmap':
            c.append('      case Kel::GenericIf::valueLess:')
            c.append(f'        *static_cast<bool*>(result) = *o < *static_cast<{q} const*>(key);')
            c.append('        return Kel::GenericIf::attrOpDone;')
        c.append('      default:')
        c.append('        return Kel::GenericIf::attrOpUnsupported;')
        c.append('    }')
        c.append('  }')
        c.append('  switch (attr->id) {')
        if t.kind == 'bitmap':
            for k, b in enumerate(t.bits):
                c.append(f'    case {k + 2}:')
                c.extend(indent(self.attr_get_set(f'o->{b}()', f'o->{b}Is', 'bool', False), '      '))
        else:
            for k, f in enumerate(t.all_fields()):
                c.append(f'    case {k + 2}:')
                c.extend(indent(self.attr_get_set(f'o->{f.name}()', f'o->{f.name}Is', self.cpp(f.t), 'get-only' in f.flags), '      '))
        c.append('    default:')
        c.append('      (void)result;')
        c.append('      (void)argument;')
        c.append('      return Kel::GenericIf::attrOpNoSuchAttribute;')
        c.append('  }')
        c.append('}')
        # construction from constructor arguments
        if t.kind == 'bitmap':
            ctor = [('std::uint32_t', None)]
        elif t.kind == 'wrapper':
            ctor = [(self.cpp(t.fields[0].t), None)]
        else:
            ctor = [(self.cpp(f.t), f) for f in t.all_fields() if 'ctor' in f.flags]
        args = ', '.join(f'*static_cast<{ty} const*>(args[{k}])' for k, (ty, _) in enumerate(ctor))
        c.append(f'void kelConstructFromCtorArgs{x}(void* dest, void const* const* args) {{')
        if not ctor:
            c.append('  (void)args;')
        c.append(f'  ::new (dest) {q}({args});')
        c.append('}')
        # hash: the type's own, one attribute's, or the bit pattern; others refuse
        c.append(f'std::size_t kelHash{x}(void const* object) {{')
        if 'hash' in t.ops or t.kind == 'bitmap':
            c.append(f'  return static_cast<{q} const*>(object)->hash(0);')
        elif t.kind == 'wrapper' and 'lt' in t.ops:
            f = t.fields[0]
            c.append(f'  return Kel::hashOf(static_cast<{q} const*>(object)->{f.name}());')
        else:
            c.append('  (void)object;')
            c.append(f'  Kel::GenericIfImpl::throwUnhashableException(&{q}::_kelType);')
        c.append('}')
        vm = f'Kel::GenericIfImpl::GenericIfValueMethods<{q}>'
        parse = f'&{vm}::genericIfStrepToValue'
        if any(f.t.kind == 'map' for f in t.all_fields()):
            parse = 'nullptr'  # no text constructor, by design
        c.append('}  // namespace')
        c.append(f'extern Kel::GenericIf::TypeOps const kelOps_{x};')
        c.append(f'Kel::GenericIf::TypeOps const kelOps_{x}{{&kelAttributeOp{x}, &kelConstructFromCtorArgs{x}, nullptr,')
        c.append(f'    &{vm}::genericIfConstruct, &{vm}::genericIfDestruct, &kelHash{x},')
        c.append(f'    &{vm}::genericIfVoidPtrIs, &{vm}::genericIfStrRep, {parse}}};')

    def strep_common(self, t):
        c = self.out
        q = t.rel(self.ns)
        c.append(f'Kel::String valueToStrep({q} const& v) {{')
        c.append('  Kel::String out;')
        c.append(f'  out.reserve({self.reserve(t)});')
        c.append(f'  {self.ns}::appendStrep(out, v);')
        c.append('  return out;')
        c.append('}')

    def reserve(self, t):
        if t.kind == 'bitmap':
            return len(t.full) + 16 + sum(len(b) + 11 for b in t.bits)
        return len(t.full) + 16 + sum(len(f.name) + 20 for f in t.all_fields())

    def cpp_bitmap(self, t):
        c = self.out
        q = t.rel(self.ns)
        c.append(f'// ---- {q}')
        self.descriptor_def(t, [(b, False) for b in t.bits])
        c.append(f'void appendStrep(Kel::String& out, {q} const& v) {{')
        c.append(f'  out += "Value(\'{t.full}\', ** {{";')
        for b, name in enumerate(t.bits):
            sep = ', ' if b else ''
            c.append(f'  out += "{sep}\'{name}\': ";')
            c.append(f'  Kel::appendStrep(out, v.{name}());')
        c.append('  out += "})";')
        c.append('}')
        self.strep_common(t)
        c.append(f'{q}::{t.short}(Kel::StrepIt& pos, Kel::StrepIt const& end) {{')
        c.append(f'  Kel::needString(pos, end, "Value(\'{t.full}\', ** {{");')
        for b, name in enumerate(t.bits):
            sep = ', ' if b else ''
            c.append(f'  Kel::needString(pos, end, "{sep}\'{name}\': ");')
            c.append(f'  {name}Is(Kel::deserializeAttr<bool>(pos, end, "{name}"));')
        c.append('  Kel::needString(pos, end, "})");')
        c.append('}')
        c.append(f'{q}::{t.short}(Kel::NboAttrLog::In* in, Kel::StreamBogon) : value_(in->nextU32()) {{}}')
        c.append(f'std::ostream& operator<<(std::ostream& os, {q} const& v) {{ return os << valueToStrep(v); }}')
        c.append(f'Kel::NboAttrLog::Out& operator<<(Kel::NboAttrLog::Out& o, {q} const& v) {{ return o << static_cast<unsigned int>(v.value()); }}')
        c.append('')

    def cpp_record(self, t):
        c = self.out
        q = t.rel(self.ns)
        fields = t.all_fields()
        c.append(f'// ---- {q}')
        self.descriptor_def(t, [(f.name, 'get-only' in f.flags) for f in t.fields])
        # text form
        c.append(f'void appendStrep(Kel::String& out, {q} const& v) {{')
        if t.kind == 'wrapper':
            c.append('  ' + self.strep_append(fields[0], f'v.{fields[0].name}()'))
        else:
            c.append(f'  out += "Value(\'{t.full}\', ** {{";')
            for k, f in enumerate(fields):
                sep = ', ' if k else ''
                c.append(f'  out += "{sep}\'{f.name}\': ";')
                c.append('  ' + self.strep_append(f, f'v.{f.name}()'))
            c.append('  out += "})";')
        c.append('}')
        self.strep_common(t)
        # parser
        c.append(f'{q}::{t.short}(Kel::StrepIt& pos, Kel::StrepIt const& end) {{')
        if any(f.t.kind == 'map' for f in fields):
            c.append(f'  (void)pos;')
            c.append(f'  (void)end;')
            c.append(f'  Kel::failNoStringConstructor("{t.short}");  // a value holding a collection, by design')
        elif t.kind == 'wrapper':
            f = fields[0]
            c.append(f'  {f.name}_ = {self.kind(f.t).parse(f.name)};')
            if f.limit:
                c.append(f'  {f.name}Check({f.name}_);')
        else:
            c.append(f'  Kel::needString(pos, end, "Value(\'{t.full}\', ** {{");')
            c.append('  const char* field = nullptr;  // named again in a range error')
            c.append('  try {')
            for k, f in enumerate(fields):
                sep = ', ' if k else ''
                c.append(f'    field = "{f.name}";')
                c.append(f'    Kel::needString(pos, end, "{sep}\'{f.name}\': ");')
                c.append(f'    {f.name}_ = {self.kind(f.t).parse(f.name)};')
                if f.limit:
                    c.append(f'    {f.name}Check({f.name}_);')
            c.append('  } catch (Kel::RangeException const& e) {')
            c.append('    Kel::rethrowFromDeserializeAttr(e, field);')
            c.append('  }')
            c.append('  Kel::needString(pos, end, "})");')
        c.append('}')
        # attribute log, read
        c.append(f'{q}::{t.short}(Kel::NboAttrLog::In* in, Kel::StreamBogon) {{')
        for f in fields:
            if f.t.kind == 'map':
                k = f.t.key
                c.append(f'  // Elements in ascending key order, each its key and the element; key 0 ends them.')
                c.append(f'  for ({k.cpp} k = in->{k.read}(); k != 0; k = in->{k.read}())')
                c.append(f'    {f.name}_.insert_or_assign(k, {self.cpp(f.t.value)}(in, Kel::StreamBogon{{}}));')
                continue
            c.append(f'  {f.name}_ = {self.log_read(f, t.kind == "record")};')
            if f.limit and 'log-unchecked' not in f.flags:
                c.append(f'  {f.name}Check({f.name}_);')
        c.append('}')
        # stream
        f0 = fields[0]
        raw = t.kind == 'wrapper' and not f0.t.kind == 'bool'
        out = f'v.{f0.name}()' if raw else 'valueToStrep(v)'
        c.append(f'std::ostream& operator<<(std::ostream& os, {q} const& v) {{ return os << {out}; }}')
        # attribute log, write
        c.append(f'Kel::NboAttrLog::Out& operator<<(Kel::NboAttrLog::Out& o, {q} const& v) {{')
        body = []
        for f in fields:
            if f.t.kind == 'map':
                body.append(f'for (auto const& [k, e] : v.{f.name}()) {{')
                body.append(f'  if (k == 0) Kel::failWithAttrLogValueCollectionDefaultKey("{t.full}", "{f.name}");')
                body.append(f'  o << static_cast<{f.t.key.log}>(k) << e;')
                body.append('}')
                body.append(f'o << static_cast<{f.t.key.log}>(0);')
            else:
                body.append(self.log_write(f, f'v.{f.name}()'))
        if t.has_map():
            c.append('  // A refused element must leave the stream as it was.')
            c.append('  std::size_t const mark = o.size();')
            c.append('  try {')
            c.extend('    ' + b for b in body)
            c.append('  } catch (...) {')
            c.append('    o.truncate(mark);')
            c.append('    throw;')
            c.append('  }')
        else:
            c.extend('  ' + b for b in body)
        c.append('  return o;')
        c.append('}')
        c.append('')
