"""The bindings of value types. An enumeration gets its descriptor and a few one-line
functions; a record, wrapper or bit map gets a table of its fields (X::KelFields) that
the templates of Kel/ValueBinding.h walk for the text form, the attribute log and the
generic interface, and the one-line functions its header declares."""
from .names import Emitter
from .tpl import render


class ValueEmitter(Emitter):
    """Writes the text form and the attribute log to out, the generic interface to gi."""

    def __init__(self, schema, out=None, gi=None):
        super().__init__(schema, out)
        self.gi = self.out if gi is None else gi

    def cpp_enum(self, t):
        q, d = t.rel(self.ns), self.descriptor(t)
        self.out += [f'// ---- {q}']
        if not self.s.registered_by:
            self.out += self.enum_descriptor(t)
        self.out += render('''
            ${q} ${q}Instance(unsigned value) { return static_cast<${q}>(Kel::enumInstance(${d}, value)); }
            ${q} ${q}Instance(Kel::String const& name) { return static_cast<${q}>(${d}.value(name)); }
            Kel::EnumType const& enumType(${q}) { return ${d}; }
            Kel::String stringValue(${q} value) { return ${d}.name(static_cast<std::uint32_t>(value)); }
            Kel::String valueToStrep(${q} value) { return stringValue(value); }
            ${q} sequenceToValue(Kel::StrepIt& pos, Kel::StrepIt const& end, ${q}*) { return static_cast<${q}>(${d}.parse(pos, end)); }
            std::ostream& operator<<(std::ostream& os, ${q} value) {
              ${d}.write(os, static_cast<std::uint32_t>(value));
              return os;
            }
            ''', q=q, d=d) + ['']

    def value_descriptor(self, t):
        """The definition of a value type's descriptor (in the file that registers it)."""
        q = t.rel(self.ns)
        base = f'&{self.descriptor(t.base)}' if t.base else 'nullptr'
        first = 2 + (len(t.base.all_fields()) if t.base else 0)
        if t.kind == 'bitmap':
            items = ', '.join(f'{{"{b}", {first + k}, false, "bool"}}' for k, b in enumerate(t.bits))
        else:
            items = self.rows([self.kel_attr(f, first + k, 'get-only' in f.flags) for k, f in enumerate(t.fields)])
        return [f'Kel::KelType const {q}::_kelType("{t.full}", Kel::KelType::Kind::Value, {base}, {{{items}}},',
                f'                                 nullptr, &kelOps_{self.names.ident(t)});']

    def enum_descriptor(self, t):
        items = ', '.join(f'{{"{n}", {v}}}' for n, v in t.enumerators)
        return [f'Kel::EnumType const {self.descriptor(t)}("{t.full}", {{{items}}});']

    def reserve(self, t):
        if t.kind == 'bitmap':
            return len(t.full) + 16 + sum(len(b) + 11 for b in t.bits)
        return len(t.full) + 16 + sum(len(f.name) + 20 for f in t.all_fields())

    # -- the table

    def field(self, t, f, k):
        """One Kel::Vb::Field: getter, setter, storage, check, flags; name and label."""
        q = t.rel(self.ns)
        label = f"{', ' if k else ''}'{f.name}': "
        get, set_ = f'&{q}::{f.name}', f'&{q}::{f.name}Is'
        if f.t.kind == 'map':   # the element accessors overload the names
            ty = self.cpp(f.t)
            get = f'static_cast<{ty} const& ({q}::*)() const noexcept>({get})'
            set_ = f'static_cast<void ({q}::*)({ty})>({set_})'
        check = f'&{q}::{f.name}Check' if f.limit else 'nullptr'
        flags = ' | '.join(x for x, on in (('Kel::Vb::logUnchecked', 'log-unchecked' in f.flags),
                                           ('Kel::Vb::getOnly', 'get-only' in f.flags)) if on) or '0'
        return f'Kel::Vb::Field<{get}, {set_}, &{q}::{f.name}_, {check}, {flags}>{{"{f.name}", "{label}"}}'

    def bit(self, t, name, k):
        q = t.rel(self.ns)
        label = f"{', ' if k else ''}'{name}': "
        return f'Kel::Vb::Field<&{q}::{name}, &{q}::{name}Is, nullptr>{{"{name}", "{label}"}}'

    def cpp_value(self, t):
        """A record, wrapper or bit map."""
        q, x = t.rel(self.ns), self.names.ident(t)
        fields = t.all_fields()
        if t.kind == 'bitmap':
            items = [self.bit(t, b, k) for k, b in enumerate(t.bits)]
        else:
            items = [self.field(t, f, k) for k, f in enumerate(fields)]
        items = [s + (',' if k + 1 < len(items) else '};') for k, s in enumerate(items)]
        if t.kind == 'bitmap':
            ctor = ['std::uint32_t']
        elif t.kind == 'wrapper':
            ctor = [self.cpp(t.fields[0].t)]
        else:
            ctor = [self.cpp(f.t) for f in fields if 'ctor' in f.flags]
        args = ', '.join(f'*static_cast<{ty} const*>(args[{k}])' for k, ty in enumerate(ctor))
        if 'hash' in t.ops or t.kind == 'bitmap':
            hash_ = [f'return static_cast<{q} const*>(object)->hash(0);']
        elif t.kind == 'wrapper' and 'lt' in t.ops:
            hash_ = [f'return Kel::hashOf(static_cast<{q} const*>(object)->{t.fields[0].name}());']
        else:
            hash_ = ['(void)object;', f'Kel::GenericIfImpl::throwUnhashableException(&{q}::_kelType);']
        vm = f'Kel::GenericIfImpl::GenericIfValueMethods<{q}>'
        has_map = any(f.t.kind == 'map' for f in fields)
        f0 = fields[0] if fields else None
        raw = t.kind == 'wrapper' and f0.t.kind != 'bool'
        fields_ = render('''
            // ---- ${q}
            struct ${q}::KelFields {
              static constexpr bool wrapper = ${wrapper}, less = ${less}, guarded = ${guarded};
              static constexpr const char* full = "${full}";
              static constexpr std::string_view open = "Value('${full}', ** {";
              static constexpr std::size_t reserve = ${reserve};
              static constexpr auto list = std::tuple{
                  ${items}
            };''', q=q, full=t.full, items=items, reserve=self.reserve(t),
                         wrapper=str(t.kind == 'wrapper').lower(),
                         less=str('lt' in t.ops or t.kind == 'bitmap').lower(),
                         guarded=str(t.kind != 'bitmap' and t.has_map()).lower())
        self.gi += fields_ + render('''
            namespace {
            void kelConstructFromCtorArgs${x}(void* dest, void const* const* args) {
              (void)args;  ${noArgs?}
              ::new (dest) ${q}(${args});
            }
            std::size_t kelHash${x}(void const* object) {
              ${hash}
            }
            }  // namespace
            extern Kel::GenericIf::TypeOps const kelOps_${x};
            Kel::GenericIf::TypeOps const kelOps_${x}{&Kel::Vb::attributeOp<${q}::KelFields, ${q}>, &kelConstructFromCtorArgs${x}, nullptr,
                &${vm}::genericIfConstruct, &${vm}::genericIfDestruct, &kelHash${x},
                &${vm}::genericIfVoidPtrIs, &${vm}::genericIfStrRep, ${parse}};
            ''', q=q, x=x, noArgs=not ctor, args=args, hash=hash_, vm=vm,
                                    parse='nullptr' if has_map else f'&{vm}::genericIfStrepToValue') + ['']
        self.out += (fields_ if self.gi is not self.out else []) + render('''
            extern Kel::GenericIf::TypeOps const kelOps_${x};
            ${descriptor}
            void appendStrep(Kel::String& out, ${q} const& v) { Kel::Vb::append<${q}::KelFields>(out, v); }
            Kel::String valueToStrep(${q} const& v) { return Kel::Vb::text<${q}::KelFields>(v); }
            ${q}::${short}(Kel::StrepIt& pos, Kel::StrepIt const& end) { Kel::Vb::parse<KelFields>(*this, pos, end); }  ${parsable?}
            ${q}::${short}(Kel::StrepIt&, Kel::StrepIt const&) { Kel::failNoStringConstructor("${short}"); }  ${hasMap?}
            ${q}::${short}(Kel::NboAttrLog::In* in, Kel::StreamBogon) { Kel::Vb::read<KelFields>(*this, in); }  ${record?}
            ${q}::${short}(Kel::NboAttrLog::In* in, Kel::StreamBogon) : value_(in->nextU32()) {}  ${bitmap?}
            std::ostream& operator<<(std::ostream& os, ${q} const& v) { return os << ${shown}; }
            Kel::NboAttrLog::Out& operator<<(Kel::NboAttrLog::Out& o, ${q} const& v) { return Kel::Vb::write<${q}::KelFields>(o, v); }  ${record?}
            Kel::NboAttrLog::Out& operator<<(Kel::NboAttrLog::Out& o, ${q} const& v) { return o << static_cast<unsigned int>(v.value()); }  ${bitmap?}
            ''', q=q, x=x, short=t.short,
                                     descriptor=[] if self.s.registered_by else self.value_descriptor(t),
                                     parsable=not has_map, hasMap=has_map,
                                     record=t.kind != 'bitmap', bitmap=t.kind == 'bitmap',
                                     shown=f'v.{f0.name}()' if raw else 'valueToStrep(v)') + ['']
