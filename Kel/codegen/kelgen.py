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

    @property
    def scope(self):
        return self.full.rsplit('::', 1)[0]

    def all_fields(self):
        return (self.base.all_fields() if self.base else []) + self.fields

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
            for t in other.types:
                t.imported = True
            self.imports.append(other)
            return None
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
            elif key == 'base' and word == 'record':
                t.base_text = value
            elif key == 'marks' and word == 'record':
                t.marks = value
            else:
                self.fail(n, f'unknown option "{opt}" for {word}', words[1])
        if t.base_text and not t.marks or t.marks and not t.base_text:
            self.fail(n, 'base= and marks= go together', words[1])
        if '::' in words[1]:
            parent = self.by_full.get(t.scope)
            if parent is None:
                self.fail(n, f'nested in "{t.scope[len(self.ns) + 2:]}", which is not declared above', words[1])
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
        if t.kind == 'entity':
            self.fail(n, 'entity members are not supported here', where)
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
        seen = set()
        for t in self.types:
            where = t.rel(self.ns)
            if t.kind in ('record', 'wrapper') and not t.fields and not t.base_text:
                self.fail(t.line, f'a {t.kind} without fields', where)
            if t.kind == 'enum' and not t.enumerators:
                self.fail(t.line, 'an enum without enumerators', where)
            if t.kind == 'bitmap' and not t.bits:
                self.fail(t.line, 'a bitmap without bits', where)
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
            for c in t.children:   # nested types belong to their parent's declaration
                seen.add(c.full)
        for t in self.types:
            if t.base:
                clash = {f.name for f in t.base.all_fields()} & {f.name for f in t.fields}
                if clash:
                    self.fail(t.line, f'field {sorted(clash)[0]} is also a field of the base', t.rel(self.ns))

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
        h += [f'#include <{x}>' for x in sorted(std)]
        h.append('')
        inc = ['Kel/Exception.h', 'Kel/NboAttrLog.h', 'Kel/Strep.h', 'Kel/String.h', 'Kel/ValueSupport.h']
        inc += [os.path.splitext(i.path)[0] + '.h' for i in s.imports]
        used = {f.t for t in s.types for f in t.fields}
        inc += [fo.header for fo in s.foreign.values() if fo in used]
        inc += [p.header for p in PRIMS.values() if p.header and p in used]
        inc += s.includes
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
        base = f' : public {self.cpp(t.base)}' if t.base else ''
        h.append(f'{ind}class {t.short}{base} {{')
        h.append(f'{ind} public:')
        i2 = ind + '  '
        for c in t.children:
            self.emit_type(c, i2, free)
            h.append('')
        if t.kind == 'entity':
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

    # -- bindings

    def emit_cpp(self):
        s, c = self.s, self.c
        base = os.path.splitext(s.path)[0]
        c.append(f'// Generated by kelgen from {s.path}. Do not edit: change the schema.')
        c.append(f'#include "{base}.h"')
        c.append('')
        for x in ['functional', 'ostream']:
            c.append(f'#include <{x}>')
        c.append('')
        for x in ['Kel/EnumType.h', 'Kel/NboAttrLog.h', 'Kel/Type.h', 'Kel/TypeRegistry.h']:
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
        regs = [self.descriptor(t) for t in s.types if t.kind != 'entity']
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

    def cpp_enum(self, t):
        c = self.c
        q = t.rel(self.ns)
        d = self.descriptor(t)
        c.append(f'// ---- {q}')
        items = ', '.join(f'{{"{n}", {v}}}' for n, v in t.enumerators)
        c.append(f'Kel::EnumType const {d}("{t.full}", {{{items}}});')
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
        q = t.rel(self.ns)
        base = f'&{self.descriptor(t.base)}' if t.base else 'nullptr'
        first = 2 + (len(t.base.all_fields()) if t.base else 0)
        items = ', '.join(f'{{"{a}", {first + k}{", true" if ro else ""}}}' for k, (a, ro) in enumerate(attrs))
        self.c.append(f'Kel::KelType const {q}::_kelType("{t.full}", Kel::KelType::Kind::Value, {base}, {{{items}}});')

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
