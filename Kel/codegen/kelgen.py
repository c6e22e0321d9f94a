#!/usr/bin/env python3
"""kelgen: turns a Kel schema into plain C++.

    kelgen.py --root SRC --out GEN [--depfile FILE] SCHEMA

SCHEMA is a path relative to SRC, e.g. Lldp/Lldp/Values.schema. Writes GEN/<dir>/<Name>.h
(the classes with inline accessors) and GEN/<dir>/<Name>Kel.cpp (text form, attribute log,
descriptors and load-time registration). The schema's format is described at the top of
each schema file. A mistake stops the run with one line: file:line: Type.field: what.
Standard library only: the build runs it with Debian's python3.
"""

import argparse
import os
import re
import sys


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


# --------------------------------------------------------------------------- parsing

def strip_comment(line):
    out, quoted = [], False
    for c in line:
        if c == '"':
            quoted = not quoted
        if c == '#' and not quoted:
            break
        out.append(c)
    return ''.join(out).rstrip()


def parse_int(text):
    return int(text, 0)


class Schema:
    def __init__(self, root, path):
        self.root, self.path = root, path
        self.ns = None
        self.imports = []      # Schema objects
        self.foreign = {}      # full name -> Foreign
        self.includes = []     # headers hand-written methods need
        self.registered_by = None   # another schema registers this one's types
        self.register = None        # [(name, line)]: this schema registers these, in order
        self.section = None         # (section name, [(name, line)])
        self.types = []        # every Type in declaration order (nested ones too)
        self.by_full = {}

    def fail(self, line, what, where=''):
        raise SchemaError(f'{self.path}:{line}: {where + ": " if where else ""}{what}')

    def parse(self):
        try:
            with open(os.path.join(self.root, self.path), encoding='utf-8') as f:
                lines = f.read().splitlines()
        except OSError as e:
            raise SchemaError(f'{self.path}: cannot read: {e.strerror}')
        cur, doc = None, []
        for n, raw in enumerate(lines, 1):
            stripped = raw.strip()
            if stripped.startswith('#'):
                doc.append(stripped[1:].strip())
                continue
            text = strip_comment(raw)
            if not text.strip():
                doc = []
                continue
            indented = raw[0] in ' \t'
            if not indented:
                cur = self.top(text.split(), n, doc)
            elif cur is None:
                self.fail(n, 'an indented line outside any block')
            elif isinstance(cur, tuple):
                cur[1].extend((w, n) for w in text.split())
            else:
                self.member(cur, text.strip(), n, doc)
            doc = []
        if self.ns is None:
            self.fail(1, 'no namespace line')

    def top(self, words, n, doc):
        word = words[0]
        if word == 'namespace':
            if len(words) != 2:
                self.fail(n, 'namespace takes one name')
            self.ns = words[1]
            return None
        if self.ns is None:
            self.fail(n, f'"{word}" before the namespace line')
        if word == 'import':
            other = Schema(self.root, words[1])
            other.parse()
            other.resolve()
            for t in other.types:
                t.imported = True
            self.imports.append(other)
            return None
        if word == 'registered-by':
            if len(words) != 2:
                self.fail(n, 'registered-by takes a schema path')
            self.registered_by = words[1]
            return None
        if word in ('register', 'type-section'):
            if word == 'register' and len(words) != 1 or word == 'type-section' and len(words) != 2:
                self.fail(n, f'"{" ".join(words)}": register takes no argument, type-section a section name')
            names = []
            if word == 'register':
                self.register = names
            else:
                self.section = (words[1], names)
            return ('names', names)
        if word == 'include':
            if len(words) != 2:
                self.fail(n, 'include takes one header')
            self.includes.append(words[1])
            return None
        if word == 'foreign':
            if len(words) != 3:
                self.fail(n, 'foreign takes a qualified name and a header')
            self.foreign[words[1]] = Foreign(words[1], words[2], n)
            return None
        if word not in ('enum', 'wrapper', 'record', 'bitmap', 'entity'):
            self.fail(n, f'unknown declaration "{word}"')
        if len(words) < 2:
            self.fail(n, f'{word} without a name')
        full = self.ns + '::' + words[1]
        if full in self.by_full:
            self.fail(n, 'declared twice', words[1])
        t = Type(word, full, self.ns, n, self.path)
        t.doc = doc
        for opt in words[2:]:
            key, _, value = opt.partition('=')
            if key == 'ops' and word in ('record', 'wrapper'):
                for op in value.split(','):
                    if op not in OPS:
                        self.fail(n, f'unknown op "{op}"', words[1])
                    t.ops.add(op)
            elif key == 'scoped' and word == 'enum' and not value:
                t.scoped = True
            elif key == 'base' and word in ('record', 'entity'):
                t.base_text = value
            elif key == 'marks' and word == 'record':
                t.marks = value
            elif word == 'entity' and key == 'name' and not value:
                t.named = True
            elif word == 'entity' and key == 'init' and not value:
                t.init = True
            elif word == 'entity' and key == 'factory' and value:
                t.factory = value
            else:
                self.fail(n, f'unknown option "{opt}" for {word}', words[1])
        if word == 'record' and (t.base_text and not t.marks or t.marks and not t.base_text):
            self.fail(n, 'base= and marks= go together', words[1])
        if '::' in words[1]:
            parent = self.by_full.get(t.scope)
            if parent is None:
                self.fail(n, f'nested in "{t.scope[len(self.ns) + 2:]}", which is not declared above', words[1])
            if word == 'entity':
                self.fail(n, 'an entity cannot be nested', words[1])
            if parent.kind == 'enum' or parent.kind == 'bitmap':
                self.fail(n, f'an {parent.kind} cannot hold nested types', words[1])
            t.parent = parent
            parent.children.append(t)
        self.types.append(t)
        self.by_full[full] = t
        return t

    def member(self, t, text, n, doc):
        where = t.rel(self.ns)
        if t.kind == 'enum':
            for tok in text.split():
                name, eq, value = tok.partition('=')
                if not eq or not re.fullmatch(r'[A-Za-z_]\w*', name):
                    self.fail(n, f'enumerator "{tok}" is not name=number', where)
                try:
                    v = parse_int(value)
                except ValueError:
                    self.fail(n, f'enumerator "{tok}" is not name=number', where)
                if not 0 <= v <= 0xffffffff:
                    self.fail(n, f'enumerator {name} out of the unsigned 32-bit range', where)
                if any(e[0] == name for e in t.enumerators):
                    self.fail(n, f'enumerator {name} declared twice', where)
                if any(e[1] == v for e in t.enumerators):
                    self.fail(n, f'enumerator {name} repeats the value {v}', where)
                t.enumerators.append((name, v))
            return
        if t.kind == 'bitmap':
            for name in text.split():
                if not re.fullmatch(r'[A-Za-z_]\w*', name):
                    self.fail(n, f'bit name "{name}" is not an identifier', where)
                if name in t.bits:
                    self.fail(n, f'bit {name} named twice', where)
                t.bits.append(name)
            if len(t.bits) > 32:
                self.fail(n, 'more than 32 bits', where)
            return
        if text.startswith('method '):
            t.methods.append((doc, text[len('method '):].strip()))
            return
        if t.kind == 'entity':
            self.entity_member(t, text, n, doc)
            return
        if text.startswith('method '):
            t.methods.append((doc, text[len('method '):].strip()))
            return
        m = re.match(r'([A-Za-z_]\w*)\s+(map<[^>]*>|\S+)\s*(.*)$', text)
        if not m:
            self.fail(n, f'"{text}" is not "name Type [= default] [options]"', where)
        f = Field(m.group(1), m.group(2), n)
        f.owner, f.doc = t, doc
        rest = m.group(3)
        dm = re.match(r'=\s*("[^"]*"|\S+)\s*(.*)$', rest)
        if dm:
            f.default, rest = dm.group(1), dm.group(2)
        for opt in rest.split():
            if opt in FLAGS:
                f.flags.add(opt)
            elif opt.startswith('limit='):
                lm = re.fullmatch(r'limit=(-?(?:0x[0-9a-fA-F]+|\d+))?\.\.(-?(?:0x[0-9a-fA-F]+|\d+))?', opt)
                if not lm or (lm.group(1) is None and lm.group(2) is None):
                    self.fail(n, f'"{opt}" is not limit=MIN..MAX', f'{where}.{f.name}')
                lo = parse_int(lm.group(1)) if lm.group(1) else None
                hi = parse_int(lm.group(2)) if lm.group(2) else None
                f.limit = Limit(lo, hi, hexa=bool(lm.group(2) and 'x' in lm.group(2)))
            elif opt.startswith('bytes<='):
                try:
                    f.limit = Limit(None, int(opt[len('bytes<='):]), on_bytes=True)
                except ValueError:
                    self.fail(n, f'"{opt}" is not bytes<=N', f'{where}.{f.name}')
            else:
                self.fail(n, f'unknown option "{opt}"', f'{where}.{f.name}')
        if any(x.name == f.name for x in t.fields):
            self.fail(n, 'declared twice', f'{where}.{f.name}')
        if t.kind == 'wrapper' and t.fields:
            self.fail(n, 'a wrapper has exactly one field', f'{where}.{f.name}')
        t.fields.append(f)

    ENTITY_FLAGS = {'ctor', 'key', 'initial', 'counter', 'checked', 'computed', 'action'}

    def entity_member(self, t, text, n, doc):
        where = t.rel(self.ns)
        m = re.match(r'(\d+)\s+([A-Za-z_]\w*)\s+(\w+<[^>]*>|\S+)\s*(.*)$', text)
        if not m:
            self.fail(n, f'"{text}" is not "id name Type [= default] [options]"', where)
        a = Attr(int(m.group(1)), m.group(2), m.group(3), n)
        a.owner, a.doc = t, doc
        where = f'{where}.{a.name}'
        rest = m.group(4)
        dm = re.match(r'=\s*("[^"]*"|\S+)\s*(.*)$', rest)
        if dm:
            a.default, rest = dm.group(1), dm.group(2)
        for opt in rest.split():
            key, eq, value = opt.partition('=')
            if not eq and opt in self.ENTITY_FLAGS:
                a.flags.add(opt)
            elif key == 'limit':
                lm = re.fullmatch(r'(-?\d+)?\.\.(-?\d+)?', value)
                if not lm or (lm.group(1) is None and lm.group(2) is None):
                    self.fail(n, f'"{opt}" is not limit=MIN..MAX', where)
                a.limit = Limit(int(lm.group(1)) if lm.group(1) else None, int(lm.group(2)) if lm.group(2) else None)
            elif key == 'const' and value:
                a.kind, a.const = 'const', value
            elif key in ('from', 'view') and value:
                a.kind, a.path = key, value.split('.')
            elif key == 'key' and value:
                a.key_field = value
            else:
                self.fail(n, f'unknown option "{opt}"', where)
        for flag in ('computed', 'action'):
            if flag in a.flags:
                a.kind = flag
        cm = re.fullmatch(r'(hashmap|ordered|entities|refs|child|ref)<\s*(const\s+)?([^,>]+?)\s*(?:,\s*([^>]+?)\s*)?>',
                          a.type_text)
        if cm:
            a.kind, a.coll, a.elem_const = 'coll', cm.group(1), bool(cm.group(2))
            a.elem_text = cm.group(4) or cm.group(3)
            a.key_text = cm.group(3) if cm.group(4) else None
        if a.kind == 'action' and a.type_text != '-':
            self.fail(n, 'an action has the type "-"', where)
        if 'checked' in a.flags and not a.limit:
            self.fail(n, 'checked without a limit', where)
        if a.limit and 'checked' not in a.flags and 'ctor' not in a.flags:
            self.fail(n, 'an entity attribute limit needs checked (or ctor)', where)
        for other in t.fields:
            if other.id == a.id:
                self.fail(n, f'attribute id {a.id} is taken by {other.name}', where)
            if other.name == a.name:
                self.fail(n, 'declared twice', where)
        if not 258 <= a.id <= 0x7fffffff:
            self.fail(n, f'attribute id {a.id} is below 258, the first id of the model', where)
        t.fields.append(a)

    # -- resolution and checks

    def lookup(self, name, scope):
        """C++-like lookup of a type name from inside scope (a full name)."""
        if name in PRIMS:
            return PRIMS[name]
        parts = scope.split('::')
        for i in range(len(parts), -1, -1):
            full = '::'.join(parts[:i] + [name])
            if full in self.by_full:
                return self.by_full[full]
            for imp in self.imports:
                if full in imp.by_full:
                    return imp.by_full[full]
            if full in self.foreign:
                return self.foreign[full]
        return None

    def resolve(self):
        # Nested types first: their parent's fields and paths reach into them.
        order = []

        def visit(t):
            for c in t.children:
                visit(c)
            order.append(t)
        for t in self.types:
            if t.parent is None:
                visit(t)
        seen = set()
        for t in order:
            where = t.rel(self.ns)
            if t.kind in ('record', 'wrapper') and not t.fields and not t.base_text:
                self.fail(t.line, f'a {t.kind} without fields', where)
            if t.kind == 'enum' and not t.enumerators:
                self.fail(t.line, 'an enum without enumerators', where)
            if t.kind == 'bitmap' and not t.bits:
                self.fail(t.line, 'a bitmap without bits', where)
            if t.kind == 'entity':
                self.resolve_entity(t, seen)
                seen.add(t.full)
                continue
            if t.base_text:
                b = self.lookup(t.base_text, t.scope)
                if not isinstance(b, Type) or b.kind not in ('record', 'wrapper'):
                    self.fail(t.line, f'base "{t.base_text}" is not a declared record or wrapper', where)
                if b.full not in seen:
                    self.fail(t.line, f'base "{t.base_text}" is used before its declaration', where)
                mark = [f for f in b.all_fields() if f.name == t.marks]
                if not mark or mark[0].type_text != 'bool':
                    self.fail(t.line, f'marks={t.marks} is not a bool field of {b.short}', where)
                t.base = b
            for f in t.fields:
                self.resolve_field(t, f, seen)
            seen.add(t.full)
        self.check_lists()
        for t in self.types:
            if t.base:
                clash = {f.name for f in t.base.all_fields()} & {f.name for f in t.fields}
                if clash:
                    self.fail(t.line, f'field {sorted(clash)[0]} is also a field of the base', t.rel(self.ns))

    def registrants(self):
        """The types this schema's registration covers: its own and those of imports that
        name it as their registrar."""
        out = list(self.types)
        for imp in self.imports:
            if imp.registered_by == self.path:
                out += imp.types
        return out

    def check_lists(self):
        if self.registered_by and self.register is not None:
            self.fail(1, 'a schema registered elsewhere has no register list')
        lists = []
        if self.register is not None:
            lists.append(('register', self.register))
        if self.section is not None:
            lists.append(('type-section', self.section[1]))
        want = {t.rel(self.ns): t for t in self.registrants()}
        for what, names in lists:
            seen = set()
            for name, line in names:
                if name not in want:
                    self.fail(line, f'{what}: "{name}" is not a type this schema registers')
                if name in seen:
                    self.fail(line, f'{what}: "{name}" listed twice')
                seen.add(name)
            missing = [x for x in want if x not in seen]
            if missing:
                self.fail(names[-1][1] if names else 1, f'{what}: "{missing[0]}" is missing')

    def resolve_entity(self, t, seen):
        where = t.rel(self.ns)
        if t.base_text:
            b = self.lookup(t.base_text, t.scope)
            if not isinstance(b, Type) or b.kind != 'entity' or b.full not in seen:
                self.fail(t.line, f'base "{t.base_text}" is not an entity declared above', where)
            t.base = b
            ids = {a.id for a in b.all_fields()}
            for a in t.fields:
                if a.id in ids:
                    self.fail(a.line, f'attribute id {a.id} is taken by the base', f'{where}.{a.name}')
        if t.named and t.ctor_attrs():
            self.fail(t.line, 'an entity made from a name has no ctor attributes', where)
        for a in t.fields:
            w = f'{where}.{a.name}'
            if a.kind == 'action':
                continue
            if a.kind == 'coll':
                self.resolve_coll(t, a, seen, w)
                continue
            a.t = self.lookup(a.type_text, t.full)
            if a.t is None:
                self.fail(a.line, f'unknown type "{a.type_text}"', w)
            if isinstance(a.t, Type) and a.t.kind == 'entity':
                self.fail(a.line, f'"{a.type_text}" is an entity: use child<> or ref<>', w)
            if a.kind in ('from', 'view'):
                src = [x for x in t.all_fields() if x.name == a.path[0]]
                if not src or src[0].kind not in ('value',) or not isinstance(src[0].t, Type):
                    self.fail(a.line, f'{a.kind}= starts at "{a.path[0]}", not a record attribute declared above', w)
                a.source = src[0]
                cur = src[0].t
                for seg in a.path[1:]:
                    fs = [f for f in cur.all_fields() if f.name == seg] if isinstance(cur, Type) else []
                    if not fs:
                        self.fail(a.line, f'{a.kind}={".".join(a.path)}: no field "{seg}"', w)
                    cur = fs[0].t
                if cur is not a.t:
                    self.fail(a.line, f'{a.kind}={".".join(a.path)} is not a {a.type_text}', w)
                if a.kind == 'view' and len(a.path) != 2:
                    self.fail(a.line, 'a view reaches one field deep', w)
                continue
            if a.kind == 'const':
                a.default = a.const
            if a.default is not None and isinstance(a.t, Foreign):
                if not (a.default.startswith('"') and a.default.endswith('"')):
                    self.fail(a.line, f'default {a.default} of a {a.type_text} is a "quoted string"', w)
                continue
            if a.kind == 'computed' or 'counter' in a.flags:
                if 'counter' in a.flags and not (isinstance(a.t, Prim) and a.t.name == 'u32'):
                    self.fail(a.line, 'a counter is a u32', w)
            saved, a.limit = a.limit, (a.limit if 'checked' in a.flags or 'ctor' in a.flags else None)
            if a.kind != 'computed':
                if 'ctor' in a.flags and a.limit:
                    a.flags.add('default-unchecked')   # a constructor argument has no default
                self.check_limit_and_default(a, w)
                a.flags.discard('default-unchecked')
            a.limit = saved
        keys = [a for a in t.fields if 'key' in a.flags]
        if len(keys) > 1 or keys and 'ctor' not in keys[0].flags:
            self.fail(t.line, 'one key at most, and it is a ctor attribute', where)

    def resolve_coll(self, t, a, seen, w):
        elem = self.lookup(a.elem_text, t.full)
        if elem is None:
            self.fail(a.line, f'unknown type "{a.elem_text}"', w)
        a.elem = elem
        entity_coll = a.coll in ('entities', 'refs', 'child', 'ref')
        if entity_coll != (isinstance(elem, Type) and elem.kind == 'entity'):
            self.fail(a.line, f'{a.coll}<> holds {"entities" if entity_coll else "values"}, not "{a.elem_text}"', w)
        if entity_coll and elem.full not in seen:
            self.fail(a.line, f'"{a.elem_text}" is used before its declaration', w)
        if a.coll in ('ref', 'refs', 'child', 'entities') and a.key_text:
            self.fail(a.line, f'{a.coll}<> takes one type', w)
        if a.coll in ('entities', 'child'):
            if a.elem_const:
                self.fail(a.line, 'owned entities are not const', w)
            if a.coll == 'entities' and not elem.key_attr():
                self.fail(a.line, f'"{a.elem_text}" has no key attribute', w)
            if elem.named:
                self.fail(a.line, f'"{a.elem_text}" is made from a name, not from its key', w)
            if a.coll == 'entities':
                a.key_t = elem.key_attr().t
            return
        if a.coll == 'ref':
            return
        if a.coll == 'refs':
            if a.key_field is None and elem.key_attr():
                a.key_field = elem.key_attr().name
            ks = [x for x in elem.all_fields() if x.name == a.key_field]
            if not ks:
                self.fail(a.line, f'key={a.key_field} is not an attribute of {a.elem_text}', w)
            a.key_t = ks[0].t
            return
        if not isinstance(elem, Type) or elem.kind not in ('record', 'wrapper'):
            self.fail(a.line, f'{a.coll}<> holds records, not "{a.elem_text}"', w)
        if a.key_text:
            if a.key_field:
                self.fail(a.line, 'a key beside the value takes no key=', w)
            a.key_t = self.lookup(a.key_text, t.full)
            if a.key_t is None:
                self.fail(a.line, f'unknown type "{a.key_text}"', w)
        else:
            ks = [f for f in elem.all_fields() if f.name == a.key_field]
            if not ks:
                self.fail(a.line, f'key={a.key_field} is not a field of {a.elem_text}', w)
            a.key_t = ks[0].t

    def resolve_field(self, t, f, seen):
        where = f'{t.rel(self.ns)}.{f.name}'
        mm = re.fullmatch(r'map<\s*(\S+)\s*,\s*(\S+)\s*>', f.type_text)
        if mm:
            k, v = self.lookup(mm.group(1), t.full), self.lookup(mm.group(2), t.full)
            if not isinstance(k, Prim) or k.kind != 'int' or k.signed:
                self.fail(f.line, f'a map key must be an unsigned integer, not "{mm.group(1)}"', where)
            if not isinstance(v, Type) or v.kind != 'record':
                self.fail(f.line, f'a map value must be a declared record, not "{mm.group(2)}"', where)
            f.t = MapType(k, v)
        else:
            f.t = self.lookup(f.type_text, t.full)
            if f.t is None:
                self.fail(f.line, f'unknown type "{f.type_text}"', where)
            if isinstance(f.t, Type):
                if f.t.kind == 'entity':
                    self.fail(f.line, f'"{f.type_text}" is an entity, not a value', where)
                if f.t is t:
                    self.fail(f.line, 'a type cannot hold itself', where)
                local = not f.t.imported
                nested_here = f.t.full.startswith(t.full + '::')
                if local and not nested_here and f.t.full not in seen:
                    self.fail(f.line, f'"{f.type_text}" is used before its declaration', where)
        self.check_limit_and_default(f, where)

    def check_limit_and_default(self, f, where):
        t = f.t
        prim = t if isinstance(t, Prim) else None
        if f.limit:
            if f.limit.on_bytes and not (prim and prim.kind == 'string'):
                self.fail(f.line, f'bytes<= limits a String, not {f.type_text}', where)
            if not f.limit.on_bytes and not (prim and prim.kind == 'int'):
                self.fail(f.line, f'limit= applies to integers, not {f.type_text}', where)
            if prim and prim.kind == 'int':
                lo, hi = self.int_range(prim)
                for v in (f.limit.lo, f.limit.hi):
                    if v is not None and not lo <= v <= hi:
                        self.fail(f.line, f'limit {v} does not fit {f.type_text}', where)
        if 'log-unchecked' in f.flags and not f.limit:
            self.fail(f.line, 'log-unchecked without a limit', where)
        if 'default-unchecked' in f.flags and not f.limit:
            self.fail(f.line, 'default-unchecked without a limit', where)
        d = f.default
        value = None
        if d is not None:
            if isinstance(t, Prim) and t.kind == 'int':
                try:
                    value = parse_int(d)
                except ValueError:
                    self.fail(f.line, f'default {d} is not an integer', where)
                lo, hi = self.int_range(t)
                if not lo <= value <= hi:
                    self.fail(f.line, f'default {d} does not fit {f.type_text}', where)
            elif isinstance(t, Prim) and t.kind == 'bool':
                if d not in ('true', 'false'):
                    self.fail(f.line, f'default {d} is not true or false', where)
            elif isinstance(t, Prim) and t.kind == 'double':
                try:
                    float(d)
                except ValueError:
                    self.fail(f.line, f'default {d} is not a number', where)
            elif isinstance(t, Prim) and t.kind == 'string':
                if not (d.startswith('"') and d.endswith('"') and len(d) >= 2):
                    self.fail(f.line, f'default {d} is not a "quoted string"', where)
                value = len(d) - 2
            elif isinstance(t, Type) and t.kind == 'enum':
                names = [e[0] for e in t.enumerators]
                if d not in names:
                    try:
                        parse_int(d)
                    except ValueError:
                        self.fail(f.line, f'default {d} is not an enumerator of {t.short}', where)
            else:
                self.fail(f.line, f'a {f.type_text} field takes no default', where)
        if f.limit and 'default-unchecked' not in f.flags:
            if value is None:
                value = 0
            if not f.limit.ok(value):
                self.fail(f.line, f'default {d if d is not None else "(empty)"} is outside its own limit', where)

    @staticmethod
    def int_range(p):
        if p.signed:
            return -(1 << (p.bits - 1)), (1 << (p.bits - 1)) - 1
        return 0, (1 << p.bits) - 1


# ------------------------------------------------------------------------ generation

class Gen:
    def __init__(self, schema):
        self.s = schema
        self.ns = schema.ns
        self.h = []
        self.c = []

    # -- naming

    def cpp(self, t):
        """A field type as written in the generated header and .cpp (inside ns)."""
        if isinstance(t, Prim):
            return t.cpp
        if isinstance(t, Foreign):
            return t.full
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

    def default_expr(self, f):
        t, d = f.t, f.default
        if d is None:
            return '{}'
        if isinstance(t, Prim):
            return ' = Kel::String(' + d + ')' if t.kind == 'string' else ' = ' + d
        if isinstance(t, Foreign):
            return f' = {t.full}(Kel::String({d}))'
        if d in [e[0] for e in t.enumerators]:
            return ' = ' + self.enumerator(t, d)
        return f' = static_cast<{self.cpp(t)}>({d})'

    @staticmethod
    def by_value(t):
        return isinstance(t, Prim) and t.kind != 'string' or isinstance(t, Type) and t.kind == 'enum'

    def param(self, t):
        return self.cpp(t)   # setters take by value and move

    @staticmethod
    def cap(name):
        return name[0].upper() + name[1:]

    # -- per-field code

    def hash_of(self, f, x):
        t = f.t
        if isinstance(t, Prim):
            return {'int': f'static_cast<std::size_t>({x})', 'bool': f'static_cast<std::size_t>({x})',
                    'double': f'std::hash<double>{{}}({x})', 'string': f'{x}.hash()'}[t.kind]
        if t.kind == 'enum':
            return f'static_cast<std::size_t>({x})'
        if t.kind == 'wrapper':
            return self.hash_of(t.fields[0], f'{x}.{t.fields[0].name}()')
        if t.kind in ('record', 'bitmap'):
            return f'{x}.hash(0)'
        return f'{x}.hash()'

    def order_key(self, f, x):
        t = f.t
        if isinstance(t, Type) and t.kind == 'wrapper':
            return self.order_key(t.fields[0], f'{x}.{t.fields[0].name}()')
        return x

    def strep_append(self, f, x):
        t = f.t
        if isinstance(t, Prim):
            if t.kind == 'int':
                cast = 'long long' if t.signed else 'unsigned long long'
                return f'Kel::appendStrep(out, static_cast<{cast}>({x}));'
            if t.kind == 'double':
                return f'Kel::appendStrep(out, static_cast<double>({x}));'
            return f'Kel::appendStrep(out, {x});'
        if isinstance(t, MapType):
            return 'out += "None";  // a collection inside a value is not printed'
        if t.kind == 'enum':
            return f'{self.descriptor(t)}.appendName(out, static_cast<std::uint32_t>({x}));'
        if t.kind == 'foreign':
            return f'out += valueToStrep({x});'
        return f'{t.ns}::appendStrep(out, {x});'

    def parse_expr(self, f):
        t = f.t
        if isinstance(t, Prim):
            return f'Kel::deserializeAttr<{t.cpp}>(pos, end, "{f.name}")'
        if t.kind == 'enum':
            return f'sequenceToValue(pos, end, static_cast<{self.cpp(t)}*>(nullptr))'
        return f'{self.cpp(t)}(pos, end)'

    def log_write(self, f, x):
        t = f.t
        if isinstance(t, Prim):
            if t.kind == 'int':
                return f'o << static_cast<{t.log}>({x});'
            return f'o << {x};'
        if t.kind == 'enum':
            return f'o << static_cast<unsigned int>({x});'
        return f'o << {x};'

    def log_read(self, f, in_record):
        t = f.t
        if isinstance(t, Prim):
            e = f'in->{t.read}()'
            return e if t.kind != 'int' else f'static_cast<{t.cpp}>({e})'
        if t.kind == 'enum':
            return f'static_cast<{self.cpp(t)}>(in->nextU32())'
        if t.kind == 'bitmap' and in_record:
            return f'{self.cpp(t)}(in->nextU32())  /* checked: inside a record */'
        return f'{self.cpp(t)}(in, Kel::StreamBogon{{}})'

    # -- header

    def emit_header(self):
        s, h = self.s, self.h
        h.append('#pragma once')
        h.append(f'// Generated by kelgen from {s.path}. Do not edit: change the schema.')
        std = ['cstddef', 'cstdint', 'iosfwd', 'string', 'string_view', 'type_traits', 'utility']
        if any(isinstance(f.t, MapType) for t in s.types for f in t.fields):
            std.append('map')
        entities = any(t.kind == 'entity' for t in s.types)
        h += [f'#include <{x}>' for x in sorted(std)]
        h.append('')
        inc = ['Kel/Exception.h', 'Kel/NboAttrLog.h', 'Kel/Strep.h', 'Kel/String.h', 'Kel/ValueSupport.h']
        inc += [os.path.splitext(i.path)[0] + '.h' for i in s.imports]
        used = {x for t in s.types for f in t.fields
                for x in (f.t, getattr(f, 'key_t', None), getattr(f, 'elem', None))}
        inc += [fo.header for fo in s.foreign.values() if fo in used]
        inc += [p.header for p in PRIMS.values() if p.header and p in used]
        inc += s.includes
        if entities:
            inc += ['Kel/Entity.h', 'Kel/HashMap.h', 'Kel/HashMap2018.h', 'Kel/Ptr.h', 'Kel/RbTreeMap.h']
        for x in sorted(set(inc)):
            h.append(f'#include "{x}"')
        h.append('')
        h.append(f'namespace {self.ns} {{')
        h.append('')
        anchor = self.anchor()
        h.append('// Referenced from every file that includes this header, so that a program using')
        h.append('// these types links (and so loads and registers) the library that defines them.')
        h.append(f'extern const char {anchor};')
        h.append('namespace {')
        h.append(f'[[gnu::used]] const char* const {anchor}Ref = &{anchor};')
        h.append('}')
        h.append('')
        free = []
        for t in s.types:
            if t.parent is None:
                self.emit_type(t, '', free)
                h.append('')
                h.extend(free)
                free.clear()
        h.append('using Kel::valueToStrep;')
        h.append('')
        h.append(f'}}  // namespace {self.ns}')

    def anchor(self):
        return 'kelSchema' + re.sub(r'\W', '', os.path.splitext(os.path.basename(self.s.path))[0])

    @staticmethod
    def wrap(items, ind, width=100):
        lines, cur = [], ind
        for it in items:
            if cur != ind and len(cur) + 1 + len(it) > width:
                lines.append(cur)
                cur = ind
            cur += ('' if cur == ind else ' ') + it
        return lines + [cur]

    def doc(self, lines, ind):
        return [f'{ind}// {x}'.rstrip() for x in lines]

    def emit_type(self, t, ind, free):
        h = self.h
        h.extend(self.doc(t.doc, ind))
        if t.kind == 'enum':
            self.emit_enum(t, ind, free)
            return
        if t.kind == 'entity':
            base = f' : public {self.cpp(t.base)}' if t.base else ' : public Kel::Entity'
        else:
            base = f' : public {self.cpp(t.base)}' if t.base else ''
        h.append(f'{ind}class {t.short}{base} {{')
        h.append(f'{ind} public:')
        i2 = ind + '  '
        if t.kind == 'entity':
            h.append(f'{i2}KEL_PTR_TYPEDEFS({t.short});')
            h.append('')
        for c in t.children:
            self.emit_type(c, i2, free)
            h.append('')
        if t.kind == 'entity':
            self.emit_entity(t, i2, free)
            h.append(f'{ind}}};')
            return
        h.append(f'{i2}static constexpr const char* kelName = "{t.full}";')
        shape = {'wrapper': 'wrapper', 'record': 'record', 'bitmap': 'bitMap'}[t.kind]
        h.append(f'{i2}static constexpr Kel::Shape kelShape = Kel::Shape::{shape};')
        h.append(f'{i2}static Kel::KelType const _kelType;')
        h.append('')
        if t.kind == 'bitmap':
            self.emit_bitmap_body(t, i2)
        else:
            self.emit_record_body(t, i2)
        for doc, decl in t.methods:
            h.extend(self.doc(doc, i2))
            h.append(f'{i2}{decl};')
        h.append('')
        h.append(f'{ind} protected:')
        if t.kind == 'bitmap':
            h.append(f'{i2}std::uint32_t value_ = 0;')
        for f in t.fields:
            h.append(f'{i2}{self.cpp(f.t)} {f.name}_{self.default_expr(f)};')
        h.append(f'{ind}}};')
        q = t.rel(self.ns)
        free.append(f'// {q}')
        free.append(f'void appendStrep(Kel::String& out, {q} const& v);')
        free.append(f'Kel::String valueToStrep({q} const& v);')
        free.append(f'std::ostream& operator<<(std::ostream& os, {q} const& v);')
        free.append(f'Kel::NboAttrLog::Out& operator<<(Kel::NboAttrLog::Out& o, {q} const& v);')
        free.append('')

    def emit_enum(self, t, ind, free):
        h = self.h
        kind = 'enum class' if t.scoped else 'enum'
        h.append(f'{ind}{kind} {t.short} : std::uint32_t {{')
        h.extend(self.wrap([f'{n} = {v},' for n, v in t.enumerators], ind + '  '))
        h.append(f'{ind}}};')
        nested = t.parent is not None
        static = 'static ' if nested else ''
        ext = '' if nested else 'extern '
        h.append(f'{ind}{ext}{static}Kel::EnumType const _kelType_{t.short};')
        h.append(f'{ind}{static}{t.short} {t.short}Instance(unsigned value);')
        h.append(f'{ind}{static}{t.short} {t.short}Instance(Kel::String const& name);')
        q = t.rel(self.ns)
        free.append(f'// {q}')
        free.append(f'Kel::EnumType const& enumType({q});')
        free.append(f'Kel::String stringValue({q} value);')
        free.append(f'Kel::String valueToStrep({q} value);')
        free.append(f'{q} sequenceToValue(Kel::StrepIt& pos, Kel::StrepIt const& end, {q}*);')
        free.append(f'std::ostream& operator<<(std::ostream& os, {q} value);')
        if t.scoped:
            free.append(f'constexpr std::uint32_t toU32({q} v) noexcept {{ return static_cast<std::uint32_t>(v); }}')
        free.append('')

    def emit_bitmap_body(self, t, i):
        h = self.h
        n = t.short
        mx = (1 << len(t.bits)) - 1
        msg = Limit(None, mx, hexa=True).message(n, 'value')
        h += [
            f'{i}static constexpr unsigned kelBitCount = {len(t.bits)};',
            f'{i}static constexpr std::uint32_t kelMax = {mx:#x};',
            f'{i}static constexpr bool valueValid(std::uint32_t v) noexcept {{ return v <= kelMax; }}',
            f'{i}static void valueCheck(std::uint32_t v) {{',
            f'{i}  if (!valueValid(v)) Kel::throwRangeException("{msg}");',
            f'{i}}}',
            '',
            f'{i}{n}() = default;',
            f'{i}explicit {n}(std::uint32_t v) : value_(v) {{ valueCheck(v); }}',
            f'{i}{n}(Kel::StrepIt& pos, Kel::StrepIt const& end);',
            f'{i}// A bare bit map takes the logged number as it comes; records holding one check it.',
            f'{i}{n}(Kel::NboAttrLog::In* in, Kel::StreamBogon);',
            '',
            f'{i}std::uint32_t value() const noexcept {{ return value_; }}',
            f'{i}bool isZero() const noexcept {{ return value_ == 0; }}',
            f'{i}{n} complement() const noexcept {{ return {n}(~value_ & kelMax); }}',
            f'{i}{n} andNot({n} const& o) const noexcept {{ return {n}(value_ & ~o.value_); }}',
            f'{i}friend {n} operator&({n} const& a, {n} const& b) noexcept {{ return {n}(a.value_ & b.value_); }}',
            f'{i}friend {n} operator|({n} const& a, {n} const& b) noexcept {{ return {n}(a.value_ | b.value_); }}',
            f'{i}friend {n} operator^({n} const& a, {n} const& b) noexcept {{ return {n}(a.value_ ^ b.value_); }}',
            f'{i}friend bool operator==({n} const& a, {n} const& b) noexcept {{ return a.value_ == b.value_; }}',
            f'{i}friend bool operator<({n} const& a, {n} const& b) noexcept {{ return a.value_ < b.value_; }}',
            f'{i}std::size_t hash(std::size_t seed) const noexcept {{ return Kel::hashMix(seed, value_); }}',
            '',
        ]
        for b, name in enumerate(t.bits):
            h.append(f'{i}bool {name}() const noexcept {{ return (value_ >> {b}) & 1u; }}')
            h.append(f'{i}void {name}Is(bool on) noexcept {{ value_ = on ? (value_ | {1 << b:#x}u) : (value_ & ~{1 << b:#x}u); }}')
        h.append('')
        h.append(f'{i}template <class V>')
        h.append(f'{i}void kelForEachField(V&& visit) {{')
        h.append(f'{i}  visit("value", value_, Kel::FieldLimit{{0, kelMax, false, true, false}});')
        h.append(f'{i}}}')

    def emit_record_body(self, t, i):
        h = self.h
        n = t.short
        fields = t.all_fields()
        h.append(f'{i}{n}() = default;')
        if t.kind == 'wrapper':
            f = fields[0]
            h.append(f'{i}explicit {n}({self.param(f.t)} v) {{ {f.name}Is(std::move(v)); }}')
            if isinstance(f.t, Prim) and f.t.kind == 'string':
                h.append(f'{i}template <class S>')
                h.append(f'{i}  requires std::is_convertible_v<S const&, std::string_view>')
                h.append(f'{i}explicit {n}(S const& v) : {n}(Kel::String(std::string_view(v))) {{}}')
        ctor = [f for f in fields if 'ctor' in f.flags]
        if ctor:
            args = ', '.join(f'{self.param(f.t)} {f.name}' for f in ctor)
            expl = 'explicit ' if len(ctor) == 1 else ''
            body = ' '.join(f'{f.name}Is(std::move({f.name}));' for f in ctor)
            h.append(f'{i}{expl}{n}({args}) {{ {body} }}')
        h.append(f'{i}{n}(Kel::StrepIt& pos, Kel::StrepIt const& end);')
        h.append(f'{i}{n}(Kel::NboAttrLog::In* in, Kel::StreamBogon);')
        h.append('')
        for f in t.fields:
            self.emit_accessors(t, f, i)
        # comparisons: field by field in declaration order, getters so base fields take part
        eq = ' && '.join(f'a.{f.name}() == b.{f.name}()' for f in fields)
        h.append(f'{i}friend bool operator==({n} const& a, {n} const& b) {{ return {eq}; }}')
        if 'lt' in t.ops:
            h.append(f'{i}friend bool operator<({n} const& a, {n} const& b) {{')
            for f in fields[:-1]:
                x, y = self.order_key(f, f'a.{f.name}()'), self.order_key(f, f'b.{f.name}()')
                h.append(f'{i}  if ({x} < {y}) return true;')
                h.append(f'{i}  if ({y} < {x}) return false;')
            f = fields[-1]
            h.append(f'{i}  return {self.order_key(f, f"a.{f.name}()")} < {self.order_key(f, f"b.{f.name}()")};')
            h.append(f'{i}}}')
        if 'not' in t.ops:
            h.append(f'{i}bool operator!() const {{ return *this == {n}(); }}')
        if 'hash' in t.ops:
            h.append(f'{i}std::size_t hash(std::size_t seed) const noexcept {{')
            for f in fields:
                h.append(f'{i}  seed = Kel::hashMix(seed, {self.hash_of(f, f.name + "()")});')
            h.append(f'{i}  return seed;')
            h.append(f'{i}}}')
        h.append('')
        h.append(f'{i}template <class V>')
        h.append(f'{i}void kelForEachField(V&& visit) {{')
        for f in fields:
            h.append(f'{i}  visit("{f.name}", {f.name}_, {self.field_limit(f)});')
        h.append(f'{i}}}')

    def field_limit(self, f):
        lm = f.limit
        if not lm:
            return 'Kel::FieldLimit{}'
        lo = lm.lo if lm.lo is not None else 0
        hi = f'{lm.hi:#x}ull' if lm.hi is not None else '0'
        return (f'Kel::FieldLimit{{{lo}, {hi}, {str(lm.lo is not None).lower()}, '
                f'{str(lm.hi is not None).lower()}, {str(lm.on_bytes).lower()}}}')

    def emit_accessors(self, t, f, i):
        h = self.h
        h.extend(self.doc(f.doc, i))
        ty = self.cpp(f.t)
        if self.by_value(f.t):
            h.append(f'{i}{ty} {f.name}() const noexcept {{ return {f.name}_; }}')
        else:
            h.append(f'{i}{ty} const& {f.name}() const noexcept {{ return {f.name}_; }}')
        mark = f' {t.marks}_ = true;' if t.marks else ''
        move = 'v' if self.by_value(f.t) else 'std::move(v)'
        if f.limit:
            lm = f.limit
            arg = 'std::string_view' if lm.on_bytes else ty
            x = 'v.size()' if lm.on_bytes else 'v'
            conds = []
            if lm.lo is not None and not (lm.lo == 0 and not f.t.signed):
                conds.append(f'{x} >= {lm.lo}')
            if lm.hi is not None:
                conds.append(f'{x} <= {lm.hi:#x}u' if lm.hexa else f'{x} <= {lm.hi}u' if lm.on_bytes or not f.t.signed else f'{x} <= {lm.hi}')
            cond = ' && '.join(conds) or 'true'
            msg = lm.message(t.short, f.name)
            h.append(f'{i}// Checks without an exception, for callers that refuse bad input at line rate.')
            h.append(f'{i}static constexpr bool {f.name}Valid({arg} v) noexcept {{ return {cond}; }}')
            h.append(f'{i}static void {f.name}Check({arg} v) {{')
            h.append(f'{i}  if (!{f.name}Valid(v)) Kel::throwRangeException("{msg}");')
            h.append(f'{i}}}')
            h.append(f'{i}void {f.name}Is({ty} v) {{ {f.name}Check(v); {f.name}_ = {move};{mark} }}')
        else:
            ne = ' noexcept' if self.by_value(f.t) else ''
            h.append(f'{i}void {f.name}Is({ty} v){ne} {{ {f.name}_ = {move};{mark} }}')
        if isinstance(f.t, MapType):
            k, v = f.t.key.cpp, self.cpp(f.t.value)
            m = f'{f.name}_'
            h += [
                f'{i}// The element under a key, or a default element when there is none.',
                f'{i}{v} {f.name}({k} k) const {{',
                f'{i}  auto it = {m}.find(k);',
                f'{i}  return it == {m}.end() ? {v}() : it->second;',
                f'{i}}}',
                f'{i}bool {f.name}Has({k} k) const {{ return {m}.count(k) != 0; }}',
                f'{i}// Stores the element under k, replacing whatever was there.',
                f'{i}void {f.name}Is({k} k, {v} e) {{ {m}.insert_or_assign(k, std::move(e)); }}',
                f'{i}// Removes and returns the element under k (a default element if none).',
                f'{i}{v} {f.name}Del({k} k) {{',
                f'{i}  auto it = {m}.find(k);',
                f'{i}  if (it == {m}.end()) return {v}();',
                f'{i}  {v} removed = std::move(it->second);',
                f'{i}  {m}.erase(it);',
                f'{i}  return removed;',
                f'{i}}}',
                f'{i}{ty}::const_iterator {f.name}Del({ty}::const_iterator position) {{ return {m}.erase(position); }}',
                f'{i}void {f.name}DelAll() noexcept {{ {m}.clear(); }}',
            ]

    # -- entities

    def key_param(self, t):
        return f'{self.cpp(t)}' if self.by_value(t) else f'{self.cpp(t)} const&'

    def elem_ptr(self, a):
        return f'{self.cpp(a.elem)}::{"PtrConst" if a.elem_const else "Ptr"}'

    def coll_type(self, a):
        cap = a.cap()
        k = self.cpp(a.key_t) if a.key_t else None
        if a.coll == 'entities':
            return f'Kel::HashMap<{k}, {self.cpp(a.elem)}>'
        if a.coll == 'refs':
            return f'Kel::HashMap2018<{k}, {self.elem_ptr(a)}, {cap}KeyFunktor>'
        tmpl = 'Kel::HashMap2018' if a.coll == 'hashmap' else 'Kel::RbTreeMap'
        if a.key_text:
            return f'{tmpl}<{k}, {self.cpp(a.elem)}>'
        return f'{tmpl}<{k}, {self.cpp(a.elem)}, {cap}KeyFunktor>'

    def getter(self, ty, name, expr, i, by_value):
        if by_value:
            return f'{i}{ty} {name}() const noexcept {{ return {expr}; }}'
        return f'{i}{ty} const& {name}() const noexcept {{ return {expr}; }}'

    def const_literal(self, a):
        t, v = a.t, a.const
        if isinstance(t, Prim) and t.kind == 'int':
            return f'{v}u' if not t.signed else v
        return v

    def emit_entity(self, t, i, free):
        h = self.h
        n = t.short
        ids = ' '.join(f'{a.name} = {a.id},' for a in t.fields)
        basis = f' : {self.cpp(t.base)}::AttrId' if t.base else ''
        h.append(f'{i}// Attribute ids: part of the attribute-log wire format.')
        h.append(f'{i}struct AttrId{basis} {{')
        h.append(f'{i}  enum : Kel::AttributeId {{')
        h.extend(self.wrap([f'{a.name} = {a.id},' for a in t.fields], i + '    '))
        h.append(f'{i}  }};')
        h.append(f'{i}}};')
        h.append(f'{i}static Kel::KelType const _kelType;')
        h.append(f'{i}Kel::KelType const* kelType() const noexcept override {{ return &_kelType; }}')
        h.append(f'{i}// Streams the entity through the attribute log (defined with the bindings).')
        h.append(f'{i}class KelNboAttrLogSa;')
        h.append(f'{i}// The text form of an attribute\'s current value (a collection: its elements, or')
        h.append(f'{i}// for entities and references their keys, in ascending text order); empty for an')
        h.append(f'{i}// action or an id the entity does not have. For show tools and comparisons.')
        h.append(f'{i}Kel::String kelAttributeText(Kel::AttributeId id) const;')
        h.append('')
        for a in t.fields:
            if a.kind != 'coll' or a.coll in ('child', 'ref', 'entities'):
                continue
            cap = a.cap()
            if a.coll == 'refs':
                ka = [x for x in a.elem.all_fields() if x.name == a.key_field][0]
                ret = self.key_param(a.key_t)
                h.append(f'{i}struct {cap}KeyFunktor {{')
                h.append(f'{i}  {ret} operator()({self.elem_ptr(a)} const& e) const noexcept {{ return e->{ka.name}(); }}')
                h.append(f'{i}}};')
            elif not a.key_text:
                ret = self.key_param(a.key_t)
                h.append(f'{i}struct {cap}KeyFunktor {{')
                h.append(f'{i}  {ret} operator()({self.cpp(a.elem)} const& v) const noexcept {{ return v.{a.key_field}(); }}')
                h.append(f'{i}}};')
        for a in t.fields:
            if a.kind == 'coll' and a.coll not in ('child', 'ref'):
                h.append(f'{i}using Kel{a.cap()} = {self.coll_type(a)};')
        h.append('')
        if t.named:
            h.append(f'{i}explicit {n}(Kel::Name name);')
        else:
            args = ', '.join(f'{self.cpp(a.t)} {a.name}' for a in t.ctor_attrs())
            expl = 'explicit ' if len(t.ctor_attrs()) == 1 else ''
            h.append(f'{i}{expl}{n}({args});')
        kids = [a for a in t.fields if a.kind == 'coll' and a.coll == 'child']
        if kids:
            clear = ' '.join(f'if ({a.name}_) {a.name}_->parentIs(nullptr);' for a in kids)
            h.append(f'{i}// A child held elsewhere must not point back at a parent that is gone.')
            h.append(f'{i}~{n}() override {{ {clear} }}')
        h.append('')
        for a in t.fields:
            h.extend(self.doc(a.doc, i))
            self.emit_attr(t, a, i)
        for doc, decl in t.methods:
            h.extend(self.doc(doc, i))
            h.append(f'{i}{decl};')
        if t.init:
            h.append('')
            h.append(f'{i} private:')
            h.append(f'{i}// Hand-written: runs at the end of the constructor.')
            h.append(f'{i}void kelInit();')
        h.append('')
        h.append(f'{i[:-1]}protected:')
        for a in t.fields:
            if a.kind in ('value',) or 'ctor' in a.flags:
                init = '' if 'ctor' in a.flags else self.default_expr(a)
                h.append(f'{i}{self.cpp(a.t)} {a.name}_{init};')
            elif a.kind == 'coll':
                ty = self.elem_ptr(a) if a.coll in ('child', 'ref') else f'Kel{a.cap()}'
                h.append(f'{i}{ty} {a.name}_;')
        if t.factory:
            if t.named:
                sig = 'Kel::Name name'
            else:
                sig = ', '.join(f'{self.cpp(a.t)} {a.name}' for a in t.ctor_attrs())
            free.append(f'// A new root {n} that delivers notifications.')
            free.append(f'{n}::Ptr {t.factory}({sig});')
            free.append('')

    def emit_attr(self, t, a, i):
        h = self.h
        nm = a.name
        aid = f'AttrId::{nm}'
        if a.kind == 'action':
            h.append(f'{i}void {nm}();')
            return
        if a.kind == 'computed':
            h.append(f'{i}{self.cpp(a.t)} {nm}() const;')
            return
        if a.kind == 'const':
            h.append(f'{i}static constexpr {self.cpp(a.t)} {nm}() noexcept {{ return {self.const_literal(a)}; }}')
            return
        if a.kind in ('from', 'view'):
            expr = a.path[0] + '_' + ''.join(f'.{x}()' for x in a.path[1:])
            h.append(self.getter(self.cpp(a.t), nm, expr, i, self.by_value(a.t)))
            if a.kind == 'view':
                src, fld = a.path
                move = 'v' if self.by_value(a.t) else 'std::move(v)'
                h.append(f'{i}// Replaces the {fld} inside {src}, which it notifies.')
                h.append(f'{i}void {nm}Is({self.cpp(a.t)} v) {{')
                h.append(f'{i}  if ({src}_.{fld}() == v) return;')
                h.append(f'{i}  {src}_.{fld}Is({move});')
                h.append(f'{i}  notify(AttrId::{src});')
                h.append(f'{i}}}')
            return
        if a.kind == 'value':
            ty = self.cpp(a.t)
            h.append(self.getter(ty, nm, f'{nm}_', i, self.by_value(a.t)))
            if 'ctor' in a.flags:
                if a.limit:
                    self.emit_limit_check(t, a, i)
                return
            move = 'v' if self.by_value(a.t) else 'std::move(v)'
            if 'checked' in a.flags:
                self.emit_limit_check(t, a, i)
                h.append(f'{i}// Stores first, then refuses an out-of-range value without notifying.')
                h.append(f'{i}void {nm}Is({ty} v) {{')
                h.append(f'{i}  if ({nm}_ == v) return;')
                h.append(f'{i}  {nm}_ = {move};')
                h.append(f'{i}  {nm}Check({nm}_);')
                h.append(f'{i}  notify({aid});')
                h.append(f'{i}}}')
            else:
                h.append(f'{i}void {nm}Is({ty} v) {{')
                h.append(f'{i}  if ({nm}_ == v) return;')
                h.append(f'{i}  {nm}_ = {move};')
                h.append(f'{i}  notify({aid});')
                h.append(f'{i}}}')
            if 'counter' in a.flags:
                h.append(f'{i}// Adds modulo 2^32; returns the new count.')
                h.append(f'{i}std::uint32_t {nm}Inc(std::uint32_t delta) {{')
                h.append(f'{i}  std::uint32_t const v = {nm}_ + delta;')
                h.append(f'{i}  {nm}Is(v);')
                h.append(f'{i}  return v;')
                h.append(f'{i}}}')
            return
        self.emit_coll(t, a, i)

    def emit_limit_check(self, t, a, i):
        h = self.h
        lm = a.limit
        conds = []
        if lm.lo is not None and not (lm.lo == 0 and not a.t.signed):
            conds.append(f'v >= {lm.lo}')
        if lm.hi is not None:
            conds.append(f'v <= {lm.hi}{"" if a.t.signed else "u"}')
        ty = self.cpp(a.t)
        h.append(f'{i}static constexpr bool {a.name}Valid({ty} v) noexcept {{ return {" && ".join(conds)}; }}')
        h.append(f'{i}static void {a.name}Check({ty} v) {{')
        h.append(f'{i}  if (!{a.name}Valid(v)) Kel::throwRangeException("{lm.message(t.short, a.name)}");')
        h.append(f'{i}}}')

    def emit_coll(self, t, a, i):
        h = self.h
        nm, cap = a.name, a.cap()
        aid = f'AttrId::{nm}'
        c = f'{nm}_'
        if a.coll == 'ref':
            ptr = self.elem_ptr(a)
            h.append(f'{i}{ptr} const& {nm}() const noexcept {{ return {c}; }}')
            h.append(f'{i}void {nm}Is({ptr} v) {{')
            h.append(f'{i}  if ({c} == v) return;')
            h.append(f'{i}  {c} = std::move(v);')
            h.append(f'{i}  notify({aid});')
            h.append(f'{i}}}')
            return
        if a.coll == 'child':
            e = self.cpp(a.elem)
            args = ', '.join(f'{self.cpp(x.t)} {x.name}' for x in a.elem.ctor_attrs())
            h.append(f'{i}{e}::Ptr const& {nm}() const noexcept {{ return {c}; }}')
            h.append(f'{i}// Creates the child, or returns the one there.')
            h.append(f'{i}{e}::Ptr {nm}Is({args});')
            h.append(f'{i}void {nm}Del();')
            return
        kp = self.key_param(a.key_t)
        coll = f'Kel{cap}'
        h.append(f'{i}{coll} const& {nm}() const noexcept {{ return {c}; }}')
        # Only declarations here: the collection templates are instantiated once, in the
        # generated .cpp, not in every file that includes the model.
        if a.coll == 'entities':
            e = self.cpp(a.elem)
            args = ', '.join(f'{self.cpp(x.t)} {x.name}' for x in a.elem.ctor_attrs())
            h.append(f'{i}// The member under k, or null; a reference into the collection, valid until it changes.')
            h.append(f'{i}{e}::Ptr const& {nm}({kp} k) const;')
            h.append(f'{i}// Returns the member under the key, or creates, adopts and announces a new one.')
            h.append(f'{i}{e}::Ptr {nm}Is({args});')
            h.append(f'{i}// Removes the member (clearing its parent) and hands it back; null when absent.')
            h.append(f'{i}{e}::Ptr {nm}Del({kp} k);')
            h.append(f'{i}void {nm}DelAll();')
            return
        if a.coll == 'refs':
            ptr = self.elem_ptr(a)
            h.append(f'{i}// The reference under k, or null; valid until the collection changes.')
            h.append(f'{i}{ptr} const& {nm}({kp} k) const;')
            h.append(f'{i}// Enters e under its own key; the same entity there already changes nothing.')
            h.append(f'{i}void {nm}Is({ptr} e);')
            h.append(f'{i}bool {nm}Del({kp} k);')
            h.append(f'{i}void {nm}DelAll();')
            return
        v = self.cpp(a.elem)
        h.append(f'{i}// The element under k, or null; valid until the collection next changes.')
        h.append(f'{i}{v} const* {nm}({kp} k) const;')
        h.append(f'{i}bool {nm}Has({kp} k) const;')
        if a.key_text:
            h.append(f'{i}void {nm}Is({kp} k, {v} v);')
        else:
            h.append(f'{i}// Inserts or replaces the element under its own key; an equal one changes nothing.')
            h.append(f'{i}void {nm}Is({v} v);')
        h.append(f'{i}bool {nm}Del({kp} k);')
        if a.coll == 'ordered':
            h.append(f'{i}// Deletes the element under the iterator and moves it on.')
            h.append(f'{i}void {nm}Del({coll}::Iterator& it);')
            h.append(f'{i}{coll}::Iterator {nm}Iter();')
        h.append(f'{i}// One deletion, and one notification, per key.')
        h.append(f'{i}void {nm}DelAll();')

    def cpp_value_coll(self, t, a):
        c = self.c
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

    def key_text_expr(self, t, x):
        """A C++ expression giving the text of key x of type t, for messages."""
        if isinstance(t, Prim) and t.kind == 'int':
            cast = 'long long' if t.signed else 'unsigned long long'
            return f'Kel::valueToStrep(static_cast<{cast}>({x}))'
        if isinstance(t, Prim):
            return f'Kel::valueToStrep({x})'
        return f'valueToStrep({x})'

    def cpp_entity(self, t):
        c = self.c
        q = t.rel(self.ns)
        n = t.short
        c.append(f'// ---- {q}')
        self.cpp_adapter(t)
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
            name = f'Kel::Name({self.key_text_expr(key.t, key.name)})' if key else 'Kel::Name()'
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
                ktext = self.key_text_expr(key.t, key.name) if key else 'Kel::String()'
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

    @staticmethod
    def streamed(a):
        return a.kind == 'coll' or (a.kind == 'value' and 'ctor' not in a.flags)

    def key_field(self, a):
        f = Field('key', '', 0)
        f.t = a.key_t
        return f

    def write_ctor_params(self, e, obj):
        out = []
        for x in e.ctor_attrs():
            out.append(self.log_write(x, f'{obj}->{x.name}()').replace('o << ', '*o << ', 1))
        return out

    def read_ctor_params(self, e):
        lines, names = [], []
        for k, x in enumerate(e.ctor_attrs()):
            lines.append(f'{self.cpp(x.t)} p{k} = {self.log_read(x, True)};')
            names.append(f'std::move(p{k})')
        return lines, ', '.join(names)

    @staticmethod
    def set_insert(a, k):
        return f'.insertOrReplace({k}, true)' if a.coll == 'ordered' else f'.insert({k})'

    def cpp_adapter(self, t):
        c = self.c
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
        if t.full.endswith('::RemoteSystem'):
            for a in colls:
                c.append('')
                c.append(f'  // The whole collection, element by element.')
                c.append(f'  void kelHandle{a.cap()}SerializeColl() {{')
                c.append(f'    for (auto it = x_->{a.name}().begin(); it; ++it) kelHandle{a.cap()}SerializeSing(it.key());')
                c.append('  }')
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

    def cpp_entity_ops(self, t):
        c = self.c
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
                self.attr_get_set(f'o->{a.name}()', f'o->{a.name}Is', ty, a.coll == 'child', '      ')
                continue
            readonly = a.kind in ('const', 'from', 'view', 'computed') or 'ctor' in a.flags
            self.attr_get_set(f'o->{a.name}()', f'o->{a.name}Is', self.cpp(a.t), readonly, '      ')
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
        c = self.c
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

    def serializer_head(self, cap, aid):
        self.c.append(f'  bool kelSerialize{cap}() {{')
        self.c.append(f'    Kel::NboAttrLog::Out* o = singletonSerializeCheck({aid});')
        self.c.append('    if (!o) return false;')

    # The stream for one element's record; throttled, the key is remembered as dirty.
    def coll_check(self, a, aid, ctx, deleted, ind):
        c = self.c
        c.append(f'{ind}CollContext {ctx}{{{aid}, {deleted}}};')
        c.append(f'{ind}Kel::NboAttrLog::Out* o = collSerializeCheck({ctx});')
        c.append(f'{ind}if (!o) {{')
        c.append(f'{ind}  dirty{a.cap()}_{self.set_insert(a, "k")};')
        c.append(f'{ind}  return false;')
        c.append(f'{ind}}}')

    def cpp_adapter_serializer(self, t, a):
        c = self.c
        q = t.rel(self.ns)
        cap = a.cap()
        aid = f'{q}::AttrId::{a.name}'
        c.append('')
        if a.kind == 'value':
            self.serializer_head(cap, aid)
            w = self.log_write(a, f'x_->{a.name}()').replace('o << ', '*o << ', 1)
            if isinstance(a.t, Type) and a.t.kind in ('record', 'wrapper') and a.t.has_map():
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
        c = self.c
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

    def emit_cpp(self):
        s, c = self.s, self.c
        base = os.path.splitext(s.path)[0]
        c.append(f'// Generated by kelgen from {s.path}. Do not edit: change the schema.')
        c.append(f'#include "{base}.h"')
        c.append('')
        for x in ['algorithm', 'functional', 'ostream', 'vector']:
            c.append(f'#include <{x}>')
        c.append('')
        for x in ['Kel/AttrLogStream.h', 'Kel/EnumType.h', 'Kel/GenericIf.h', 'Kel/HSet.h', 'Kel/Hash.h', 'Kel/NboAttrLog.h', 'Kel/RbTreeMap.h',
                  'Kel/Type.h', 'Kel/TypeRegistry.h']:
            c.append(f'#include "{x}"')
        c.append('')
        c.append(f'namespace {self.ns} {{')
        c.append('')
        c.append(f'const char {self.anchor()} = 0;')
        c.append('')
        for t in s.types:
            if t.kind == 'enum':
                self.cpp_enum(t)
            elif t.kind == 'bitmap':
                self.cpp_bitmap(t)
            elif t.kind in ('record', 'wrapper'):
                self.cpp_record(t)
            elif t.kind == 'entity':
                self.cpp_entity(t)
        if s.register is not None:
            for imp in s.imports:
                if imp.registered_by == s.path:
                    c.extend(self.foreign_descriptors(imp))
            by = {t.rel(self.ns): t for t in s.registrants()}
            regs = [self.descriptor(by[name]) for name, _ in s.register]
        else:
            regs = [self.descriptor(t) for t in s.types]
        if s.section is not None:
            self.cpp_type_section()
        if s.registered_by:
            c.append(f'// The types are registered, in the model\'s order, by {s.registered_by}.')
            c.append('')
            c.append(f'}}  // namespace {self.ns}')
            return
        c.append('namespace {')
        c.append('')
        c.append('// Makes the descriptors known to the framework while the library is loaded.')
        c.append('struct KelRegistration {')
        c.append(f'  Kel::KelType const* types[{len(regs)}] = {{')
        for r in regs:
            c.append(f'      &{r},')
        c.append('  };')
        c.append('  KelRegistration() {')
        c.append('    for (Kel::KelType const* t : types) Kel::typeNodeIs(t);')
        c.append('  }')
        c.append('  ~KelRegistration() {')
        c.append('    for (Kel::KelType const* t : types) Kel::typeNodeDel(t);')
        c.append('  }')
        c.append('};')
        c.append('KelRegistration const kelRegistration;')
        c.append('')
        c.append('}  // namespace')
        c.append('')
        c.append(f'}}  // namespace {self.ns}')

    def cpp_type_section(self):
        name, names = self.s.section
        blob = ''
        for n, _ in names:
            text = f'{self.ns}::{n}\0'
            blob += text + '\0' * (-len(text) % 8)
        # The literal's own terminator is the last NUL of the blob.
        units = ['\\0' if ch == '\0' else ch for ch in blob[:-1]]
        c = self.c
        c.append('// The names of the registered types, each on an 8-byte boundary, in a read-only section')
        c.append(f'// of its own ({name}) that tools find in the library file.')
        c.append('namespace {')
        c.append(f'[[gnu::used, gnu::section("{name}")]] alignas(8) const char kelTypeSection[{len(blob)}] =')
        piece = ''
        for u in units:
            if len(piece) + len(u) > 88:
                c.append(f'    "{piece}"')
                piece = ''
            piece += u
        c.append(f'    "{piece}";')
        c.append('}  // namespace')
        c.append('')

    def cpp_enum(self, t):
        c = self.c
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
            self.c.extend(self.value_descriptor(t))

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
                f'                                 nullptr, &kelOps_{self.ident(t)});']

    def enum_descriptor(self, t):
        items = ', '.join(f'{{"{n}", {v}}}' for n, v in t.enumerators)
        return [f'Kel::EnumType const {self.descriptor(t)}("{t.full}", {{{items}}});']

    def foreign_descriptors(self, imp):
        """Descriptors of the types of a schema this one registers: defined here, beside the
        registration, because reading another file's objects while the library loads would
        depend on the order in which files are initialised."""
        g = Gen(imp)
        out = [f'// Descriptors of {imp.path}, whose types this file registers.']
        for t in imp.types:
            if t.kind in ('record', 'wrapper', 'bitmap'):
                out.append(f'extern Kel::GenericIf::TypeOps const kelOps_{g.ident(t)};')
        for t in imp.types:
            if t.kind == 'enum':
                out += g.enum_descriptor(t)
            elif t.kind in ('record', 'wrapper', 'bitmap'):
                out += g.value_descriptor(t)
        return out + ['']

    @staticmethod
    def ident(t):
        return t.full.split('::', 1)[1].replace('::', '_')

    def attr_get_set(self, getter, setter, ty, readonly, ind):
        """The attrGet/attrSet cases of one attribute."""
        c = self.c
        c.append(f'{ind}if (op == Kel::GenericIf::attrGet) {{')
        c.append(f'{ind}  *static_cast<{ty}*>(result) = {getter};')
        c.append(f'{ind}  return Kel::GenericIf::attrOpDone;')
        c.append(f'{ind}}}')
        if not readonly:
            c.append(f'{ind}if (op == Kel::GenericIf::attrSet) {{')
            c.append(f'{ind}  {setter}(*static_cast<{ty} const*>(argument));')
            c.append(f'{ind}  return Kel::GenericIf::attrOpDone;')
            c.append(f'{ind}}}')
        c.append(f'{ind}return Kel::GenericIf::attrOpUnsupported;')

    def cpp_value_ops(self, t):
        c = self.c
        q = t.rel(self.ns)
        x = self.ident(t)
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
                self.attr_get_set(f'o->{b}()', f'o->{b}Is', 'bool', False, '      ')
        else:
            for k, f in enumerate(t.all_fields()):
                c.append(f'    case {k + 2}:')
                self.attr_get_set(f'o->{f.name}()', f'o->{f.name}Is', self.cpp(f.t), 'get-only' in f.flags, '      ')
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
        if any(isinstance(f.t, MapType) for f in t.all_fields()):
            parse = 'nullptr'  # no text constructor, by design
        c.append('}  // namespace')
        c.append(f'extern Kel::GenericIf::TypeOps const kelOps_{x};')
        c.append(f'Kel::GenericIf::TypeOps const kelOps_{x}{{&kelAttributeOp{x}, &kelConstructFromCtorArgs{x}, nullptr,')
        c.append(f'    &{vm}::genericIfConstruct, &{vm}::genericIfDestruct, &kelHash{x},')
        c.append(f'    &{vm}::genericIfVoidPtrIs, &{vm}::genericIfStrRep, {parse}}};')

    def strep_common(self, t):
        c = self.c
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
        c = self.c
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
        c = self.c
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
        if any(isinstance(f.t, MapType) for f in fields):
            c.append(f'  (void)pos;')
            c.append(f'  (void)end;')
            c.append(f'  Kel::failNoStringConstructor("{t.short}");  // a value holding a collection, by design')
        elif t.kind == 'wrapper':
            f = fields[0]
            c.append(f'  {f.name}_ = {self.parse_expr(f)};')
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
                c.append(f'    {f.name}_ = {self.parse_expr(f)};')
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
            if isinstance(f.t, MapType):
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
        raw = t.kind == 'wrapper' and not (isinstance(f0.t, Prim) and f0.t.kind == 'bool')
        out = f'v.{f0.name}()' if raw else 'valueToStrep(v)'
        c.append(f'std::ostream& operator<<(std::ostream& os, {q} const& v) {{ return os << {out}; }}')
        # attribute log, write
        c.append(f'Kel::NboAttrLog::Out& operator<<(Kel::NboAttrLog::Out& o, {q} const& v) {{')
        body = []
        for f in fields:
            if isinstance(f.t, MapType):
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


def write_if_changed(path, text):
    try:
        with open(path, encoding='utf-8') as f:
            if f.read() == text:
                return
    except OSError:
        pass
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, 'w', encoding='utf-8') as f:
        f.write(text)


def main():
    ap = argparse.ArgumentParser(description='Generates C++ from a Kel schema.')
    ap.add_argument('--root', required=True, help='source root the schema paths are relative to')
    ap.add_argument('--out', required=True, help='directory for the generated files')
    ap.add_argument('--depfile', help='write a Makefile-style dependency file here')
    ap.add_argument('schema')
    args = ap.parse_args()
    try:
        s = Schema(args.root, args.schema)
        s.parse()
        s.resolve()
        g = Gen(s)
        g.emit_header()
        g.emit_cpp()
    except SchemaError as e:
        print(f'kelgen: {e}', file=sys.stderr)
        return 1
    stem = os.path.splitext(args.schema)[0]
    header = os.path.join(args.out, stem + '.h')
    source = os.path.join(args.out, stem + 'Kel.cpp')
    write_if_changed(header, '\n'.join(g.h) + '\n')
    write_if_changed(source, '\n'.join(g.c) + '\n')
    if args.depfile:
        deps = [os.path.join(args.root, args.schema)] + [os.path.join(args.root, i.path) for i in s.imports]
        deps.append(os.path.abspath(__file__))
        write_if_changed(args.depfile, f'{header} {source}: ' + ' '.join(deps) + '\n')
    return 0


if __name__ == '__main__':
    sys.exit(main())
