"""One strategy per kind of field type: what the generated header needs to know of it
(how it is passed, defaulted, hashed and ordered, and how a key of it reads as text).
How a value is printed, parsed and logged is the runtime's (Kel/ValueBinding.h), chosen
by its C++ type. Emitters ask kind_of(type) and never test the type's class themselves."""
from .model import Prim


class Kind:
    """The common base: a value type declared in a schema (record, bit map)."""
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

    def default(self, d):
        return '{}' if d is None else f' = {d}'

    def key_text(self, x):
        return f'valueToStrep({x})'


class IntKind(Kind):
    by_value = True

    def hash(self, x):
        return f'static_cast<std::size_t>({x})'

    def key_text(self, x):
        cast = 'long long' if self.t.signed else 'unsigned long long'
        return f'Kel::valueToStrep(static_cast<{cast}>({x}))'


class PrimKind(Kind):
    """bool and the floating-point types."""
    by_value = True

    def hash(self, x):
        return f'static_cast<std::size_t>({x})'

    def key_text(self, x):
        return f'Kel::valueToStrep({x})'


class DoubleKind(PrimKind):
    def hash(self, x):
        return f'std::hash<double>{{}}({x})'


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


class ForeignKind(Kind):
    def hash(self, x):
        return f'{x}.hash()'

    def default(self, d):
        return '{}' if d is None else f' = {self.t.full}(Kel::String({d}))'


class MapKind(ForeignKind):
    pass


PRIM_KINDS = {'int': IntKind, 'bool': PrimKind, 'double': DoubleKind, 'string': StringKind}
TYPE_KINDS = {'enum': EnumKind, 'wrapper': WrapperKind, 'record': Kind, 'bitmap': Kind,
              'foreign': ForeignKind, 'map': MapKind}


def kind_of(t, names):
    cls = PRIM_KINDS[t.kind] if isinstance(t, Prim) else TYPE_KINDS[t.kind]
    return cls(t, names)
