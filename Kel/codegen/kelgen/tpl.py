"""Whole blocks of generated code with named substitutions.

A template is a triple-quoted block, dedented; ${name} is replaced by its value. A value
that is a list of lines stands alone on its line and is indented like the placeholder
(an empty list removes the line). Lines ending in ${name?} are kept only when name is
true."""
import re
import textwrap

_ALONE = re.compile(r'^(\s*)\$\{(\w+)\}$')
_COND = re.compile(r'\s*\$\{(\w+)\?\}$')
_SUB = re.compile(r'\$\{(\w+)\}')


def render(text, **subs):
    """The lines of the template with subs substituted."""
    out = []
    for line in textwrap.dedent(text).strip('\n').split('\n'):
        c = _COND.search(line)
        if c:
            if not subs[c.group(1)]:
                continue
            line = line[:c.start()]
        a = _ALONE.match(line)
        if a and isinstance(subs[a.group(2)], list):
            out += [(a.group(1) + x) if x else x for x in subs[a.group(2)]]
            continue
        out.append(_SUB.sub(lambda m: str(subs[m.group(1)]), line))
    return out


def indent(lines, ind):
    return [ind + x if x else x for x in lines]
