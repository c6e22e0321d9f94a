"""How the types of a schema are named in the C++ generated inside its namespace, and the
helpers every emitter shares."""
import os
import re

from .kinds import kind_of
from .model import Foreign, MapType, Prim

class Names:
    def __init__(self, schema):
        self.s = schema
        self.ns = schema.ns

    def kind(self, t):
        return kind_of(t, self)

    def cpp(self, t):
        """A field type as written in the generated header and .cpp (inside ns)."""
        if isinstance(t, (Prim, Foreign)):
            return t.cpp if isinstance(t, Prim) else t.full
        if isinstance(t, MapType):
            return f'std::map<{t.key.cpp}, {self.cpp(t.value)}>'
        return t.rel(self.ns)

    def descriptor(self, t):
        if t.kind == 'enum':
            return f'{t.rel(self.ns)[:-len(t.short)]}_kelType_{t.short}'
        return f'{t.rel(self.ns)}::_kelType'

    def enumerator(self, t, name):
        prefix = t.rel(self.ns) if t.scoped else t.rel(self.ns)[:-len(t.short)].rstrip(':')
        return f'{prefix}::{name}' if prefix else name

    def anchor(self):
        return 'kelSchema' + re.sub(r'\W', '', os.path.splitext(os.path.basename(self.s.path))[0])

    @staticmethod
    def ident(t):
        return t.full.split('::', 1)[1].replace('::', '_')

class Emitter:
    """The base of the emitters: the schema, its names and the lines written so far."""

    def __init__(self, schema, out=None):
        self.s = schema
        self.ns = schema.ns
        self.names = Names(schema)
        self.out = [] if out is None else out

    # -- naming, through the names and the kinds

    def cpp(self, t):
        return self.names.cpp(t)

    def descriptor(self, t):
        return self.names.descriptor(t)

    def kind(self, t):
        return self.names.kind(t)

    def by_value(self, t):
        return self.kind(t).by_value

    def default_expr(self, f):
        return self.kind(f.t).default(f.default)

    def key_param(self, t):
        return f'{self.cpp(t)}' if self.by_value(t) else f'{self.cpp(t)} const&'

    def elem_ptr(self, a):
        return f'{self.cpp(a.elem)}::{"PtrConst" if a.elem_const else "Ptr"}'

    # -- the descriptors' members (Kel::KelAttr)

    FLAGS = [('counter', 'counter'), ('key', 'key'), ('ctor', 'ctor'), ('initial', 'initial'), ('checked', 'checked'),
             ('log-unchecked', 'logUnchecked'), ('default-unchecked', 'defaultUnchecked'),
             ('routine', 'routine')]

    @classmethod
    def spelled(cls, t):
        """A type as the schema spells it: primitives by their schema name, others qualified."""
        if t is None:
            return None
        if isinstance(t, Prim):
            return t.name
        if isinstance(t, MapType):
            return f'map<{t.key.name}, {cls.spelled(t.value)}>'
        return t.full

    def kel_attr(self, f, ident, read_only):
        """One Kel::KelAttr: name, id, read-only, type, kind, flags, limit, collection key."""
        kind = getattr(f, 'coll', None) or {'const': 'constant'}.get(getattr(f, 'kind', 'value'), getattr(f, 'kind', 'value'))
        coll = kind in ('hashmap', 'ordered', 'entities', 'refs', 'child', 'ref')
        flags = [c for s, c in self.FLAGS if s in f.flags]
        lo = hi = 0
        if f.limit:
            lo, hi = f.limit.lo or 0, f.limit.hi or 0
            flags += ['hasMin'] * (f.limit.lo is not None) + ['hasMax'] * (f.limit.hi is not None)
            flags += ['limitOnBytes'] * f.limit.on_bytes
        if getattr(f, 'elem_const', False):
            flags.append('constElement')
        ty = self.spelled(f.elem if coll else f.t)
        key = getattr(f, 'key_field', None)
        items = [f'"{f.name}"', str(ident), 'true' if read_only else 'false', f'"{ty}"' if ty else 'nullptr',
                 f'Kel::KelAttr::Kind::{kind}', ' | '.join(f'Kel::KelAttr::{x}' for x in flags) or '0', str(lo), str(hi),
                 f'"{self.spelled(f.key_t)}"' if coll and f.key_t else 'nullptr', f'"{key}"' if key else 'nullptr']
        defaults = ['false', 'nullptr', 'Kel::KelAttr::Kind::value', '0', '0', '0', 'nullptr', 'nullptr']
        while len(items) > 2 and items[-1] == defaults[len(items) - 3]:
            items.pop()
        return '{' + ', '.join(items) + '}'

    @staticmethod
    def rows(items):
        return ''.join(f'\n    {x}' + (',' if k + 1 < len(items) else '') for k, x in enumerate(items))

    @staticmethod
    def doc(lines, ind):
        return [f'{ind}// {x}'.rstrip() for x in lines]

    @staticmethod
    def wrap(items, ind, width=100):
        lines, cur = [], ind
        for it in items:
            if cur != ind and len(cur) + 1 + len(it) > width:
                lines.append(cur)
                cur = ind
            cur += ('' if cur == ind else ' ') + it
        return lines + [cur]
