"""Checks a schema read by the reader and resolves its names into types."""
import re

from .model import PRIMS, Foreign, MapType, Prim, Type


def parse_int(text):
    return int(text, 0)


class Checker:
    """Resolution and checks of a read schema (mixed into reader.Schema)."""

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
            # The loader reads the section from its end: the registration order reversed.
            if self.register is None:
                self.fail(self.section[2], 'type-section without a register list')
            self.section = (self.section[0], list(reversed(self.register)), self.section[2])
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
