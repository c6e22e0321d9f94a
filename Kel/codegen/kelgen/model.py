"""The model a schema is read into: types, fields, attributes and their limits."""

class SchemaError(Exception):
    pass


# ---------------------------------------------------------------------------- model

class Prim:
    """A primitive field type: how it is spelled, printed, parsed, logged and hashed."""

    def __init__(self, name, cpp, kind, bits=0, signed=False, log=None, read=None, header=None):
        self.name, self.cpp, self.kind = name, cpp, kind
        self.bits, self.signed = bits, signed
        self.log, self.read, self.header = log, read, header


PRIMS = {p.name: p for p in [
    Prim('u8', 'std::uint8_t', 'int', 8, False, 'unsigned char', 'nextU8'),
    Prim('u16', 'std::uint16_t', 'int', 16, False, 'unsigned short', 'nextU16'),
    Prim('u32', 'std::uint32_t', 'int', 32, False, 'unsigned int', 'nextU32'),
    Prim('u64', 'std::uint64_t', 'int', 64, False, 'unsigned long', 'nextU64'),
    Prim('s32', 'std::int32_t', 'int', 32, True, 'int', 'nextS32'),
    Prim('s64', 'std::int64_t', 'int', 64, True, 'long', 'nextS64'),
    Prim('bool', 'bool', 'bool', read='nextbool'),
    Prim('double', 'double', 'double', read='nextDouble'),
    Prim('Seconds', 'Kel::Seconds', 'double', read='nextSeconds'),
    Prim('Watts', 'Platform::Watts', 'double', read='nextDouble', header='Platform/Watts.h'),
    Prim('String', 'Kel::String', 'string', read='nextString'),
]}

OPS = {'eq', 'lt', 'hash', 'not'}
FLAGS = {'log-unchecked', 'get-only', 'ctor', 'default-unchecked'}


class Limit:
    def __init__(self, lo=None, hi=None, hexa=False, on_bytes=False):
        self.lo, self.hi, self.hexa, self.on_bytes = lo, hi, hexa, on_bytes

    def ok(self, v):
        return (self.lo is None or v >= self.lo) and (self.hi is None or v <= self.hi)

    def message(self, owner, field):
        m = f'{owner}::{field}' + ('::bytes' if self.on_bytes else '')
        parts = []
        if self.lo is not None:
            parts.append(f'< {self.lo}')
        if self.hi is not None:
            parts.append(f'> {self.hi:#x}' if self.hexa else f'> {self.hi}')
        return m + ' ' + ' or '.join(parts) + ' not allowed'


class Field:
    def __init__(self, name, type_text, line):
        self.name, self.type_text, self.line = name, type_text, line
        self.default = None
        self.limit = None
        self.flags = set()
        self.doc = []
        self.t = None       # resolved type: Prim, Type, Foreign or MapType
        self.owner = None   # the Type declaring it


class Attr(Field):
    """An entity attribute: a Field with an id and a kind."""

    def __init__(self, ident, name, type_text, line):
        super().__init__(name, type_text, line)
        self.id = ident
        self.kind = 'value'     # value const from view computed action coll
        self.const = None
        self.path = None        # ['attr', 'field'] of from= and view=
        self.coll = None        # hashmap ordered entities refs child ref
        self.key_field = None   # key=f of value collections and refs
        self.key_t = None       # the collection's key type
        self.elem = None        # the element type
        self.elem_const = False
        self.source = None      # the attribute a from=/view= reads
        self.part = None        # part=P: kept in the entity's lazily made part P
        self.inline1 = False    # a hashmap<> that keeps its first member inside the entity

    def cap(self):
        return self.name[0].upper() + self.name[1:]


class Foreign:
    kind = 'foreign'

    def __init__(self, full, header, line):
        self.full, self.header, self.line = full, header, line


class MapType:
    kind = 'map'

    def __init__(self, key, value):
        self.key, self.value = key, value


class Type:
    def __init__(self, kind, full, ns, line, path):
        self.kind, self.full, self.ns, self.line, self.path = kind, full, ns, line, path
        self.short = full.rsplit('::', 1)[-1]
        self.ops = {'eq'}
        self.scoped = False
        self.base_text = None
        self.base = None
        self.marks = None
        self.fields = []
        self.enumerators = []   # (name, value)
        self.bits = []
        self.methods = []       # (doc lines, declaration)
        self.doc = []
        self.children = []
        self.parent = None
        self.imported = False
        self.named = False      # entity constructed from a Kel::Name
        self.factory = None
        self.init = False

    @property
    def scope(self):
        return self.full.rsplit('::', 1)[0]

    def all_fields(self):
        return (self.base.all_fields() if self.base else []) + self.fields

    def ctor_attrs(self):
        return [a for a in self.all_fields() if 'ctor' in a.flags]

    def key_attr(self):
        keys = [a for a in self.all_fields() if 'key' in a.flags]
        return keys[0] if keys else None

    def rel(self, ns):
        """The name as written inside namespace ns."""
        return self.full[len(ns) + 2:] if self.full.startswith(ns + '::') else self.full

    def has_map(self):
        return any(f.t.kind == 'map' or (isinstance(f.t, Type) and f.t.kind in ('record', 'wrapper')
                                         and f.t.has_map()) for f in self.all_fields())


