"""One strategy per kind of field type: how a value of it is hashed, ordered, printed,
parsed, logged and defaulted in generated code. Emitters ask kind_of(type) and never
test the type's class themselves."""
from .model import MapType, Prim


class Kind:
    """The common base: a value type declared in a schema (a record or another kind that
    prints, parses and logs itself)."""
    by_value = False   # passed and returned by value rather than by const reference

    def __init__(self, t, names):
        self.t, self.names = t, names

    @property
    def cpp(self):
        return self.names.cpp(self.t)

    def hash(self, x):
        return f'{x}.hash(0)'

    def order_key(self, x):
        return x

    def strep_append(self, x):
        return f'{self.t.ns}::appendStrep(out, {x});'

    def parse(self, name):
        return f'{self.cpp}(pos, end)'

    def log_write(self, x):
        return f'o << {x};'

    def log_read(self, in_record):
        return f'{self.cpp}(in, Kel::StreamBogon{{}})'

    def default(self, d):
        return '{}' if d is None else f' = {d}'

    def key_text(self, x):
        return f'valueToStrep({x})'


class IntKind(Kind):
    by_value = True

    def hash(self, x):
        return f'static_cast<std::size_t>({x})'

    def strep_append(self, x):
        cast = 'long long' if self.t.signed else 'unsigned long long'
        return f'Kel::appendStrep(out, static_cast<{cast}>({x}));'

    def parse(self, name):
        return f'Kel::deserializeAttr<{self.t.cpp}>(pos, end, "{name}")'

    def log_write(self, x):
        return f'o << static_cast<{self.t.log}>({x});'

    def log_read(self, in_record):
        return f'static_cast<{self.t.cpp}>(in->{self.t.read}())'

    def key_text(self, x):
        cast = 'long long' if self.t.signed else 'unsigned long long'
        return f'Kel::valueToStrep(static_cast<{cast}>({x}))'


class PrimKind(Kind):
    """bool, String and the floating-point types."""
    by_value = True

    def hash(self, x):
        return f'static_cast<std::size_t>({x})'

    def strep_append(self, x):
        return f'Kel::appendStrep(out, {x});'

    def parse(self, name):
        return f'Kel::deserializeAttr<{self.t.cpp}>(pos, end, "{name}")'

    def log_read(self, in_record):
        return f'in->{self.t.read}()'

    def key_text(self, x):
        return f'Kel::valueToStrep({x})'


class DoubleKind(PrimKind):
    def hash(self, x):
        return f'std::hash<double>{{}}({x})'

    def strep_append(self, x):
        return f'Kel::appendStrep(out, static_cast<double>({x}));'


class StringKind(PrimKind):
    by_value = False

    def hash(self, x):
        return f'{x}.hash()'

    def default(self, d):
        return '{}' if d is None else ' = Kel::String(' + d + ')'


class EnumKind(Kind):
    by_value = True

    def hash(self, x):
        return f'static_cast<std::size_t>({x})'

    def strep_append(self, x):
        return f'{self.names.descriptor(self.t)}.appendName(out, static_cast<std::uint32_t>({x}));'

    def parse(self, name):
        return f'sequenceToValue(pos, end, static_cast<{self.cpp}*>(nullptr))'

    def log_write(self, x):
        return f'o << static_cast<unsigned int>({x});'

    def log_read(self, in_record):
        return f'static_cast<{self.cpp}>(in->nextU32())'

    def default(self, d):
        if d is None:
            return '{}'
        if d in [e[0] for e in self.t.enumerators]:
            return ' = ' + self.names.enumerator(self.t, d)
        return f' = static_cast<{self.cpp}>({d})'


class WrapperKind(Kind):
    """A wrapper hashes and orders as the one field it wraps."""

    def inner(self, x):
        f = self.t.fields[0]
        return kind_of(f.t, self.names), f'{x}.{f.name}()'

    def hash(self, x):
        k, y = self.inner(x)
        return k.hash(y)

    def order_key(self, x):
        k, y = self.inner(x)
        return k.order_key(y)


class BitmapKind(Kind):
    def log_read(self, in_record):
        if in_record:
            return f'{self.cpp}(in->nextU32())  /* checked: inside a record */'
        return super().log_read(in_record)


class ForeignKind(Kind):
    def hash(self, x):
        return f'{x}.hash()'

    def strep_append(self, x):
        return f'out += valueToStrep({x});'

    def default(self, d):
        return '{}' if d is None else f' = {self.t.full}(Kel::String({d}))'


class MapKind(Kind):
    def hash(self, x):
        return f'{x}.hash()'

    def strep_append(self, x):
        return 'out += "None";  // a collection inside a value is not printed'


PRIM_KINDS = {'int': IntKind, 'bool': PrimKind, 'double': DoubleKind, 'string': StringKind}
TYPE_KINDS = {'enum': EnumKind, 'wrapper': WrapperKind, 'record': Kind, 'bitmap': BitmapKind,
              'foreign': ForeignKind, 'map': MapKind}


def kind_of(t, names):
    cls = PRIM_KINDS[t.kind] if isinstance(t, Prim) else TYPE_KINDS[t.kind]
    return cls(t, names)


def is_map(t):
    return isinstance(t, MapType)
