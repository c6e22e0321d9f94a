"""Reads a schema file into definitions (model.Type and its fields)."""
import os
import re

from .model import FLAGS, OPS, PRIMS, Attr, Field, Foreign, Limit, SchemaError, Type
from .checker import Checker, parse_int


def strip_comment(line):
    out, quoted = [], False
    for c in line:
        if c == '"':
            quoted = not quoted
        if c == '#' and not quoted:
            break
        out.append(c)
    return ''.join(out).rstrip()


class Schema(Checker):
    def __init__(self, root, path):
        self.root, self.path = root, path
        self.ns = None
        self.imports = []      # Schema objects
        self.foreign = {}      # full name -> Foreign
        self.includes = []     # headers hand-written methods need
        self.registered_by = None   # another schema registers this one's types
        self.register = None        # [(name, line)]: this schema registers these, in order
        self.section = None         # (section name, names: the register list reversed, line)
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
        if word == 'register':
            if len(words) != 1:
                self.fail(n, 'register takes no argument')
            self.register = []
            return ('names', self.register)
        if word == 'type-section':
            if len(words) != 2:
                self.fail(n, 'type-section takes a section name')
            self.section = (words[1], None, n)
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

    ENTITY_FLAGS = {'ctor', 'key', 'initial', 'counter', 'routine', 'checked', 'computed', 'action'}

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
            elif key == 'part' and re.fullmatch(r'[a-z]\w*', value):
                a.part = value
            elif opt == 'inline1':
                a.inline1 = True
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
        if a.inline1 and a.coll != 'hashmap':
            self.fail(n, 'inline1 applies to hashmap<> only', where)
        if a.kind == 'action' and a.type_text != '-':
            self.fail(n, 'an action has the type "-"', where)
        if a.part and (a.kind != 'value' or a.flags):
            self.fail(n, 'part= holds plain values only (no collection, flag or const)', where)
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

