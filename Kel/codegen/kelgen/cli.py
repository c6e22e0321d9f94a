"""kelgen: turns a Kel schema into plain C++.

    python3 Kel/codegen/kelgen --root SRC --out GEN [--depfile FILE] SCHEMA

SCHEMA is a path relative to SRC, e.g. Lldp/Lldp/Values.schema. Writes GEN/<dir>/<Name>.h
(the classes with inline accessors), GEN/<dir>/<Name>Kel.cpp (text form, attribute log,
descriptors and load-time registration), <Name>KelIf.cpp (the generic interface) and
<Name>KelSa.cpp (the stream adapters): apart, they compile in parallel. The schema's format is described at the top of
each schema file. A mistake stops the run with one line: file:line: Type.field: what.
Standard library only: the build runs it with Debian's python3.

The package: reader (a schema into model definitions) and checker (names resolved, mistakes
refused); kinds (one strategy per field kind); one emitter per output: header, values,
entities, adapter (the stream adapters), source (the .cpp and the registration).
"""
import argparse
import os
import sys

from .header import HeaderEmitter
from .model import SchemaError
from .reader import Schema
from .source import SourceEmitter

HERE = os.path.dirname(os.path.abspath(__file__))


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
        h, c = HeaderEmitter(s), SourceEmitter(s)
        h.emit_header()
        c.emit_cpp()
    except SchemaError as e:
        print(f'kelgen: {e}', file=sys.stderr)
        return 1
    stem = os.path.splitext(args.schema)[0]
    header = os.path.join(args.out, stem + '.h')
    source = os.path.join(args.out, stem + 'Kel.cpp')
    write_if_changed(header, '\n'.join(h.out) + '\n')
    write_if_changed(source, '\n'.join(c.out) + '\n')
    write_if_changed(os.path.join(args.out, stem + 'KelIf.cpp'), '\n'.join(c.gi) + '\n')
    write_if_changed(os.path.join(args.out, stem + 'KelSa.cpp'), '\n'.join(c.sa) + '\n')
    if args.depfile:
        deps = [os.path.join(args.root, args.schema)] + [os.path.join(args.root, i.path) for i in s.imports]
        deps += sorted(os.path.join(HERE, x) for x in os.listdir(HERE) if x.endswith('.py'))
        write_if_changed(args.depfile, f'{header} {source}: ' + ' '.join(deps) + '\n')
    return 0
