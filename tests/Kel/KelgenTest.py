#!/usr/bin/env python3
"""kelgen refuses a broken schema with one line naming file, line, type and field, and
writes nothing; a sound one yields a header and a source."""
import os
import subprocess
import sys
import tempfile
import unittest

KELGEN = sys.argv.pop(1) if len(sys.argv) > 1 else os.path.join(
    os.path.dirname(__file__), '..', '..', 'Kel', 'codegen', 'kelgen')


def run(schema_text):
    with tempfile.TemporaryDirectory() as root:
        os.makedirs(os.path.join(root, 'T'))
        with open(os.path.join(root, 'T', 'S.schema'), 'w') as f:
            f.write(schema_text)
        out = os.path.join(root, 'gen')
        p = subprocess.run([sys.executable, KELGEN, '--root', root, '--out', out, 'T/S.schema'],
                           capture_output=True, text=True)
        written = sorted(os.listdir(os.path.join(out, 'T'))) if os.path.isdir(os.path.join(out, 'T')) else []
        return p.returncode, p.stderr, written


HEAD = 'namespace T\n'
MISTAKES = [
    # (schema after the namespace line, the one line kelgen must print)
    ('record R\n  x  double = 0.0  limit=0..5\n', 'T/S.schema:3: R.x: limit= applies to integers, not double'),
    ('record R\n  s  u32  bytes<=4\n', 'T/S.schema:3: R.s: bytes<= limits a String, not u32'),
    ('record R\n  x  u8  limit=0..300\n', 'T/S.schema:3: R.x: limit 300 does not fit u8'),
    ('record R\n  x  u32 = 0  limit=1..5\n', 'T/S.schema:3: R.x: default 0 is outside its own limit'),
    ('record R\n  s  String = "abcdef"  bytes<=3\n', 'T/S.schema:3: R.s: default "abcdef" is outside its own limit'),
    ('record R\n  x  u16 = 70000\n', 'T/S.schema:3: R.x: default 70000 does not fit u16'),
    ('record R\n  x  Nope\n', 'T/S.schema:3: R.x: unknown type "Nope"'),
    ('record R\n  x  u8\n  x  u16\n', 'T/S.schema:4: R.x: declared twice'),
    ('record R\n  x  u8  frobnicate\n', 'T/S.schema:3: R.x: unknown option "frobnicate"'),
    ('record R\n  q  Q\nrecord Q\n  x  u8\n', 'T/S.schema:3: R.q: "Q" is used before its declaration'),
    ('enum E\n  a=1 b=1\n', 'T/S.schema:3: E: enumerator b repeats the value 1'),
    ('record R\n  m  map<s32, R>\n', 'T/S.schema:3: R.m: a map key must be an unsigned integer, not "s32"'),
    ('enum E\n  a=0\nrecord R\n  e  E = c\n', 'T/S.schema:5: R.e: default c is not an enumerator of E'),
    ('record R ops=lt,spaceship\n  x  u8\n', 'T/S.schema:2: R: unknown op "spaceship"'),
    ('record A::B\n  x  u8\n', 'T/S.schema:2: A::B: nested in "A", which is not declared above'),
    ('entity E\n  258 a  u32\n  258 b  bool\n', 'T/S.schema:4: E.b: attribute id 258 is taken by a'),
    ('entity E\n  258 a  u32  limit=1..5\n', 'T/S.schema:3: E.a: an entity attribute limit needs checked (or ctor)'),
    ('entity E  name\n  258 a  u32  = 0  limit=1..5  checked\n', 'T/S.schema:3: E.a: default 0 is outside its own limit'),
    ('record R\n  x  u8\nentity E\n  258 r  R\n  259 y  u16  from=r.x\n', 'T/S.schema:6: E.y: from=r.x is not a u16'),
    ('entity P\n  258 kids  entities<C>\nentity C\n  258 k  u32  ctor key\n',
     'T/S.schema:3: P.kids: "C" is used before its declaration'),
    ('enum E\n  a=0\nenum F\n  b=0\nregister\n  E\n', 'T/S.schema:7: register: "F" is missing'),
    ('record R\n  x  u8\nentity E\n  258 r  ordered<R>  key=x  inline1\n',
     'T/S.schema:5: E.r: inline1 applies to hashmap<> only'),
]


class KelgenTest(unittest.TestCase):
    def test_mistakes_are_refused_with_one_line(self):
        for body, line in MISTAKES:
            with self.subTest(line=line):
                code, err, written = run(HEAD + body)
                self.assertEqual(code, 1)
                self.assertEqual(err, 'kelgen: ' + line + '\n')
                self.assertEqual(written, [])

    def test_a_sound_schema_yields_header_and_bindings(self):
        code, err, written = run(HEAD + 'enum E\n  a=0 b=7\nrecord R ops=lt,hash\n'
                                 '  e  E = b\n  n  u32 = 3  limit=1..9\n  m  map<u8, C>\n'
                                 'record R::C\n  v  String\n')
        self.assertEqual((code, err), (0, ''))
        self.assertEqual(written, ['S.h', 'SKel.cpp', 'SKelIf.cpp', 'SKelSa.cpp'])


if __name__ == '__main__':
    unittest.main()
