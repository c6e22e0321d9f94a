"""The attribute-log stream adapter of each entity: a table of its streamed attributes,
one row of Kel/StreamAdapter.h each (a value, or a slot of the attribute's kind), and the
streaming entry points of its descriptor."""
from .names import Emitter
from .tpl import render


class AdapterEmitter(Emitter):

    @staticmethod
    def streamed(a):
        return a.kind == 'coll' or (a.kind == 'value' and 'ctor' not in a.flags)

    def ctor(self, e):
        """The constructor parameters of entity e, by their getters."""
        q = self.cpp(e)
        return 'Kel::Sa::Ctor<' + ', '.join(f'&{q}::{x.name}' for x in e.ctor_attrs()) + '>'

    def handler(self, t, a):
        q = t.rel(self.ns)
        # an attribute kept in a part is reached through its getter
        head = f'{q}::AttrId::{a.name}, &{q}::{a.name}{"" if a.part else "_"}, &{q}::{a.name}Is'
        if a.kind == 'value':
            guarded = ', true' if a.t.kind in ('record', 'wrapper') and a.t.has_map() else ''
            return f'Kel::Sa::value({head}{guarded})'
        return f'Kel::Sa::slot<{self.slot(t, a, q, head)}>()'

    def slot(self, t, a, q, head):
        if a.coll == 'ref':
            return f'Kel::Sa::Ref<{head}, {self.cpp(a.elem)}>'
        if a.coll == 'child':
            return f'Kel::Sa::Child<{head}, &{q}::{a.name}Del, {self.ctor(a.elem)}>'
        k = self.cpp(a.key_t)
        keyf = f'{q}::{a.cap()}KeyFunktor'
        if a.coll == 'entities':
            e = a.elem
            key = e.key_attr()
            ki = [x.name for x in e.ctor_attrs()].index(key.name)
            return (f'Kel::Sa::Entities<{head}, &{q}::{a.name}Del, {self.ctor(e)}, '
                    f'&{self.cpp(e)}::{key.name}, {ki}>')
        if a.coll == 'refs':
            return (f'Kel::Sa::Refs<{head}, &{q}::{a.name}Del, {self.cpp(a.elem)}, {self.elem_ptr(a)}, '
                    f'{k}, {keyf}>')
        # an ordered collection also deletes through an iterator: the key's overload
        dele = f'static_cast<bool ({q}::*)({self.key_param(a.key_t)})>(&{q}::{a.name}Del)'
        ordered = 'true' if a.coll == 'ordered' else 'false'
        return (f'Kel::Sa::Values<{head}, {dele}, {ordered}, {k}, '
                f'{"void" if a.key_text else keyf}>')

    def cpp_adapter(self, t):
        q = t.rel(self.ns)
        n = t.short
        handlers = [self.handler(t, a) for a in t.all_fields() if self.streamed(a)]
        table = [h + ',' for h in handlers]
        named, fact = t.named, t.factory
        ctor = self.ctor(t)
        self.out.append(f'// ---- {q}')
        self.out += render('''
            // Streams ${q}: one row per streamed attribute, in declaration order.
            class ${q}::KelNboAttrLogSa {
             public:
              static Kel::Sa::Table const& table() {
                static Kel::Sa::Table const t{
                    ${table}
                };
                return t;
              }
            };

            namespace {
            Kel::Ptr<Kel::Entity> kelNewForAttrLog${n}(Kel::NboAttrLog::In* in) {  ${fact?}
              return ${fact}(in->nextString());  ${factNamed?}
              return std::apply([](auto&&... a) { return ${fact}(std::move(a)...); }, ${ctor}::read(in));  ${byCtor?}
            }  ${fact?}
            Kel::Ptr<Kel::Entity::KelNboAttrLogSa> kelNewStreamAdapter${n}(Kel::Ptr<Kel::Entity> const& e,
                                                                      Kel::NboAttrLog::Stream* log, std::uint32_t id, bool writing) {
              return Kel::Ptr<Kel::Entity::KelNboAttrLogSa>(new Kel::Sa::Adapter(e, log, id, writing, ${q}::KelNboAttrLogSa::table()));
            }
            void kelSerializeConstructorParams${n}(Kel::NboAttrLog::Out& out, Kel::Entity const* entity) {
              out << entity->name();  ${named?}
              ${ctor}::write(out, static_cast<${q} const*>(entity));  ${unnamed?}
            }
            Kel::Ptr<Kel::Entity> kelNewForDir${n}(Kel::String const& name, Kel::Entity*) { return ${fact}(name); }  ${factNamed?}
            }  // namespace
            ${hidden} extern Kel::NboAttrLog::EntityStreaming const kelStreaming_${x};
            Kel::NboAttrLog::EntityStreaming const kelStreaming_${x}{${newfn}, &kelNewStreamAdapter${n},
                                                              &kelSerializeConstructorParams${n}, ${dirfn}};
            ''', q=q, n=n, x=self.names.ident(t), hidden='[[gnu::visibility("hidden")]]', table=table, fact=fact,
                           named=named, factNamed=bool(fact and named), byCtor=bool(fact and not named), ctor=ctor,
                           unnamed=not named,
                           newfn=f'&kelNewForAttrLog{n}' if fact else 'nullptr',
                           dirfn=f'&kelNewForDir{n}' if fact and named else 'nullptr')
