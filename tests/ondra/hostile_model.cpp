// The registration of the rude types, of boxes in which a key collides, and the odd texts.
#include "ondra/hostile_model.h"

#include <algorithm>
#include <utility>

#include <absl/strings/str_split.h>

#include "Kel/Declare.h"
#include "Kel/Error.h"
#include "Kel/TypeBuilder.h"

namespace Hostile {

using Kel::BuiltinKind, Kel::builtinType, Kel::KelType, Kel::TypeBuilder, Kel::TypeKind;

Trap& trap() {
  static Trap one;
  return one;
}

Trap::Inside::Inside(bool refusesTexts)
    : before_(std::exchange(trap().inside_, true))
    , refusedTexts_(std::exchange(trap().refusesTexts, refusesTexts)) {}
Trap::Inside::~Inside() { trap().inside_ = before_, trap().refusesTexts = refusedTexts_; }

void Trap::spring(Call call) {
  if (inside_ || !act) return;
  Inside const once(refusesTexts);
  act(call);
}

void Guest::textIs(Kel::String const& wanted) {
  trap().spring(Call::Set);
  valueIs(text, wanted);
}
void Host::labelIs(Kel::String const& wanted) {
  trap().spring(Call::Set);
  valueIs(label, wanted);
}
void Host::oddIs(Odd const& wanted) {
  valueIs(odd, wanted);
  trap().spring(Call::Set);
}
void Host::peerIs(Kel::Ptr<Guest> const& wanted) {
  trap().spring(Call::Set);
  valueIs(peer, wanted);
}

namespace {

constexpr char const* kModule = "hostile";

// clang-format off
void declareValues() {
  Kel::enumType<Mood>("Mood", {{"CALM", Mood::Calm}, {"LOW__POWER", Mood::LowPower}, {"a]b[c", Mood::Bracketed}}, kModule);
  Kel::valueType<Odd>("Odd", kModule)
      .attr("text", &Odd::text).ctorArg()
      .gnmiStrRep([](Odd const& odd) {
                    trap().spring(Call::Print);
                    if (trap().refuses(odd.text.view())) Kel::throwError("cannot print");
                    return std::string(odd.text.view());
                  },
                  [](std::string_view text, Odd& to) -> std::optional<std::string> {
                    trap().spring(Call::Parse);
                    to.text = Kel::String(text);
                    return std::nullopt;
                  })
      .done();
  Kel::valueType<Blob>("Blob", kModule)
      .attr("bytes", &Blob::bytes).ctorArg()
      .gnmiByteRep([](Blob const& blob) { trap().spring(Call::Print); return blob.bytes.view(); }).done();
  Kel::valueType<PlaceKey>("PlaceKey", kModule)
      .attr("vrf", &PlaceKey::vrf).ctorArg().attr("tag", &PlaceKey::tag).ctorArg()
      .attr("mood", &PlaceKey::mood).ctorArg().done();
  Kel::valueType<Inner>("Inner", kModule).attr("number", &Inner::number).attr("word", &Inner::word).done();
  Kel::valueType<NestedKey>("NestedKey", kModule)
      .attr("inner", &NestedKey::inner).ctorArg().attr("vrf", &NestedKey::vrf).ctorArg().done();
  Kel::valueType<Silent>("Silent", kModule).attr("note", &Silent::note).done();
}

void declareEntities() {
  Kel::valueType<Leg>("Leg", kModule).attr("cost", &Leg::cost).pointer("via", &Leg::via).attr("note", &Leg::note).done();
  Kel::entityType<Room>("Room", kModule)
      .attr("beds", &Room::beds).settable().attr("paint", &Room::paint).settable().done();
  Kel::entityType<Guest>("Guest", kModule)
      .attr("tag", &Guest::tag).ctorArg().keyField().attr("text", &Guest::text, &Guest::textIs)
      .attr("odd", &Guest::odd).settable().pointer("peer", &Guest::peer).settable()
      .instantiating("room", &Guest::rooms).instantiating("only", &Guest::only).done();
  Kel::entityType<Host>("Host", kModule)
      .attr("label", &Host::label, &Host::labelIs).attr("odd", &Host::odd, &Host::oddIs)
      .attr("oddBlob", &Host::oddBlob).settable().attr("oddNote", &Host::oddNote).settable()
      .array("oddList", &Host::oddList).settable().attr("mood", &Host::mood).settable()
      .attr("inner", &Host::inner).settable().array("step", &Host::steps).settable()
      .attr("leg", &Host::leg).settable().keyed("stop", &Host::stops).settable()
      .pointer("peer", &Host::peer, &Host::peerIs).keyed("oddShare", &Host::oddShares).settable()
      .keyed("oddPlace", &Host::oddPlaces).settable().keyed("silent", &Host::silents).settable()
      .keyed("cost", &Host::costs).settable().keyed("alias", &Host::aliases).settable()
      .instantiating("guest", &Host::guests).index("tag").instantiating("oddRoom", &Host::oddRooms).done();
}
// clang-format on

// One attribute of a name, of each kind. Values cannot own entities.
struct AttrKind {
  char const* name;
  bool ofEntitiesOnly;
  void (*add)(TypeBuilder& builder, std::string_view name);
};
KelType textType() { return builtinType(BuiltinKind::String); }
constexpr AttrKind kAttrKinds[] = {
    {"scalar", false, [](auto& to, auto name) { to.attr(name, textType()).settable(); }},
    {"optional", false, [](auto& to, auto name) { to.attr(name, textType()).optional().settable(); }},
    {"number", false,
     [](auto& to, auto name) { to.attr(name, builtinType(BuiltinKind::U64)).optional().settable(); }},
    {"oddBytes", false, [](auto& to, auto name) { to.attr(name, Kel::typeOf<Blob>()).settable(); }},
    {"json", false, [](auto& to, auto name) { to.attr(name, Kel::typeOf<Inner>()).gnmiJson().settable(); }},
    {"list", false, [](auto& to, auto name) { to.array(name, textType()).settable(); }},
    {"structure", false, [](auto& to, auto name) { to.attr(name, Kel::typeOf<Inner>()).settable(); }},
    {"maybe", false, [](auto& to, auto name) { to.attr(name, Kel::typeOf<Inner>()).optional().settable(); }},
    {"structures", false, [](auto& to, auto name) { to.array(name, Kel::typeOf<Inner>()).settable(); }},
    {"values", false, [](auto& to, auto name) { to.keyed(name, textType(), textType()).settable(); }},
    {"backRef", false, [](auto& to, auto name) { to.pointer(name, Kel::typeOf<Guest>()).settable(); }},
    {"backRefs", true,
     [](auto& to, auto name) { to.keyed(name, textType(), Kel::typeOf<Guest>()).settable(); }},
    {"child", true, [](auto& to, auto name) { to.instantiating(name, Kel::typeOf<Room>()); }},
    {"children", true, [](auto& to, auto name) { to.instantiating(name, textType(), Kel::typeOf<Room>()); }},
};

Kel::Ptr<Kel::Entity> entityOf(KelType type) {
  return Kel::Ptr(static_cast<Kel::Entity*>(type.genericIf(Kel::ArgList{})->object()));
}

KelType done(TypeBuilder& builder) {
  auto const type = builder.done();
  if (!type) Kel::throwError(type.error());
  return type.value();
}

KelType collisionOf(AttrKind const& kind) {
  struct Key {
    char const* collection;
    KelType type;
    char const* colliding;
  };
  TypeBuilder box(kModule, std::string("Box-") + kind.name, TypeKind::Entity);
  for (Key const& key : {Key{"oddPlace", Kel::typeOf<PlaceKey>(), "vrf"},
                         {"oddTagged", Kel::typeOf<PlaceKey>(), "tag"},
                         {"nest", Kel::typeOf<NestedKey>(), "inner"},
                         {"plain", textType(), "plainKey"},
                         {"seat", Kel::typeOf<Guest>(), "seatKey"}}) {
    for (TypeKind const memberKind : {TypeKind::Struct, TypeKind::Entity}) {
      bool const isEntity = memberKind == TypeKind::Entity;
      if (kind.ofEntitiesOnly && !isEntity) continue;
      std::string const name = std::string(key.collection) + (isEntity ? "Entity" : "");
      TypeBuilder member(kModule, std::string(kind.name) + name, memberKind);
      bool const isSingle = std::string_view(key.colliding).ends_with("Key");
      kind.add(member, isSingle ? name + "Key" : key.colliding);
      member.attr("other", builtinType(BuiltinKind::U32)).optional().settable();
      KelType const type = done(member);
      isEntity ? box.instantiating(name, key.type, type) : box.keyed(name, key.type, type).settable();
    }
  }
  return done(box);
}

} // namespace

std::vector<Collision> const& collisions() {
  static std::vector<Collision> const all = [] {
    Kel::kelModuleIs(kModule);
    declareValues();
    declareEntities();
    std::vector<Collision> out;
    for (AttrKind const& kind : kAttrKinds)
      out.push_back({kind.name, collisionOf(kind)});
    return out;
  }();
  return all;
}

std::vector<Kel::Ptr<Kel::Entity>> wideEntities(std::size_t attributes) {
  std::vector<Kel::Ptr<Kel::Entity>> out;
  auto const add = [&out](KelType type) { out.push_back(entityOf(type)); };
  for (AttrKind const& kind : kAttrKinds) {
    for (TypeKind const of : {TypeKind::Entity, TypeKind::Struct}) {
      if (of == TypeKind::Struct && kind.ofEntitiesOnly) continue;
      TypeBuilder wide(kModule, std::string("Wide-") + (of == TypeKind::Struct ? "value-" : "") + kind.name,
                       of);
      for (std::size_t i = 0; i < attributes; ++i)
        kind.add(wide, "a" + std::to_string(i));
      KelType const type = done(wide);
      if (of == TypeKind::Entity) {
        add(type);
      } else {
        TypeBuilder holder(kModule, std::string("Holder-") + kind.name, TypeKind::Entity);
        holder.attr("value", type);
        add(done(holder));
      }
    }
  }
  return out;
}

std::vector<std::string> const& oddTexts() {
  using namespace std::string_literals;
  static std::vector<std::string> const texts = [] {
    std::vector<std::string> all =
        absl::StrSplit("|__|*|...|a]b[c=d|x\\__y|eth0|\\|/|a__b__c|_|a/b|\"q\"'|nullptr| |"
                       "é€😀|\n\t|[k=1]|nul\0nul|true|7"s,
                       '|');
    all.insert(all.end(), {std::string(65536, 'x'), "bad \xff\xfe", "\xc0\x80 \xed\xa0\x80"});
    return all;
  }();
  return texts;
}

World::World(std::vector<std::string> const& kinds) {
  static_cast<void>(collisions());
  dir = Kel::globalDir()->dirIs("hostile");
  host = Kel::Ptr(new Host());
  dir->entityIs("host", host);
  for (std::string const& kind : kinds)
    boxIs(kind);
}

void World::boxIs(std::string const& kind) {
  auto const found = std::find_if(collisions().begin(), collisions().end(),
                                  [&kind](Collision const& one) { return one.kind == kind; });
  dir->entityDel(kind);
  dir->entityIs(kind, entityOf(found->type));
}

} // namespace Hostile
