// The access to its entries, its registration when the library is loaded, and what may be added and removed.
#include "Kel/Dir.h"

#include <fmt/format.h>

#include <algorithm>

#include "Kel/AccessMembers.h"
#include "Kel/Declare.h"
#include "Kel/Error.h"

namespace Kel {

namespace {

struct EntryToHandle {
  Ptr<GenericIf const> operator()(AttrDesc const&, Ptr<Dir::Entry> const& entry) const {
    return GenericIf::toObject(static_cast<PtrInterface*>(entry->entity.get()));
  }
};

} // namespace

// The attribute "entityPtr": the entities by name.
class DirAccess final : public AttrAccess {
public:
  using Entries = KeyedMembers<String, Ptr<Dir::Entry>>;

  Ptr<GenericIf const> keyHandle(AttrDesc const&, void const* rawKey) const override {
    return handleOf(*static_cast<String const*>(rawKey));
  }
  void visitChildren(AttrDesc const&, Entity& owner,
                     std::function<void(Entity&)> const& visit) const override {
    Impl::visitMembers(static_cast<Dir&>(owner).entries_,
                       [&visit](Ptr<Dir::Entry> const& entry) { visit(*entry->entity); });
  }

private:
  Ptr<GenericIf const> read(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const override {
    auto const found = entries(obj).map().find(nameFrom(attr, key));
    return found == entries(obj).map().end() ? nullptr : EntryToHandle{}(attr, found->second);
  }
  bool has(AttrDesc const& attr, GenericIf const& obj, GenericIf const* key) const override {
    return entries(obj).has(nameFrom(attr, key));
  }
  void erase(AttrDesc const& attr, GenericIf& obj, GenericIf const* key) const override {
    String const name = nameFrom(attr, key);
    Dir& dir = dirOf(obj);
    if (dir.entry(name) && !dir.isRemovable(name)) {
      throwError(
          fmt::format("entity '{}' of directory '{}' cannot be removed", name.view(), dir.fullName().view()));
    }
    dir.entityDel(name);
  }
  std::size_t size(AttrDesc const&, GenericIf const& obj) const override { return entries(obj).size(); }
  Ptr<Cursor> cursor(AttrDesc const& attr, Ptr<GenericIf const> const& obj,
                     GenericIf const* start) const override {
    return Ptr<Cursor>(new Impl::MembersCursor<Entries, EntryToHandle>(obj, entries(*obj), attr, start));
  }
  static Dir& dirOf(GenericIf const& obj) { return *static_cast<Dir*>(obj.object()); }
  static Entries const& entries(GenericIf const& obj) { return dirOf(obj).entries_; }
  static String nameFrom(AttrDesc const& attr, GenericIf const* key) {
    return KeyTraits<String>::from(attr, *key);
  }
};

namespace {

TypeDesc const& registerDir() {
  static TypeDesc const& type = []() -> TypeDesc const& {
    std::string_view const module = "Kel::Dir";
    auto abstractEntity = TypeBuilder(coreModule(), "Entity", descOf<Entity>()).done();
    if (!abstractEntity) throwError(abstractEntity.error());
    entityType<Dir::Entry>("Entry", module)
        .pointer("entityPtr", &Dir::Entry::entity)
        .attr("removable", &Dir::Entry::removable)
        .done();
    TypeBuilder builder(module, "Dir", descOf<Dir>());
    AttrDesc& attr = builder.add("entityPtr", &descOf<Entity>(), std::make_unique<DirAccess>());
    attr.keyType = &builtinDesc(BuiltinKind::String);
    attr.isCollection = attr.isKeyed = attr.isOrdered = attr.isInstantiating = true;
    builder.desc().isDir = true;
    builder.desc().makeObject = [] { return Ptr<PtrInterface>(new Dir()); };
    auto dir = builder.done();
    if (!dir) throwError(dir.error());
    return dir.value().desc();
  }();
  return type;
}

// Registered when the library is loaded, before anybody can ask.
TypeDesc const& loaded = registerDir();

} // namespace

void Dir::entityIs(std::string_view name, Ptr<Entity> const& entity, bool removable) {
  if (!entity)
    throwError(fmt::format("directory '{}' cannot take a null entity as '{}'", fullName().view(), name));
  if (name.empty() || name.find_first_of("/[") != std::string_view::npos) {
    throwError(
        fmt::format("'{}' cannot name an entity in directory '{}': expected a text without '/' and '['", name,
                    fullName().view()));
  }
  String const key = String::dedup(name);
  if (entries_.has(key))
    throwError(fmt::format("directory '{}' already has an entity named '{}'", fullName().view(), name));
  Ptr<Entry> const entry(new Entry());
  entry->entity = entity;
  entry->removable = removable;
  attach(*this, *loaded.attrs.front(), handleOf(key), *entity);
  entries_.put(key, entry);
  placed(*entity);
  notify(loaded.attrs.front()->id, &key);
}

Ptr<Entity> Dir::newEntity(std::string_view name, KelType type, ArgList const& args) {
  TypeDesc const& desc = type.desc();
  Ptr<Entity> entity = dynamicPtrCast<Entity>(
      desc.newEntityForDir ? desc.newEntityForDir(String::dedup(name), args) : Impl::construct(desc, args));
  if (!entity) throwError(fmt::format("type '{}' makes no entity for a directory", type.name().view()));
  entityIs(name, entity);
  return entity;
}

Ptr<Dir> Dir::dirIs(std::string_view name) {
  if (Ptr<Entity> const there = entity(name)) {
    Ptr<Dir> dir = dynamicPtrCast<Dir>(there);
    if (!dir) throwError(fmt::format("'{}' in directory '{}' is no directory", name, fullName().view()));
    return dir;
  }
  Ptr<Dir> const made(new Dir());
  entityIs(name, made);
  return made;
}

void Dir::entityDel(std::string_view name) {
  String const key = String::dedup(name);
  Ptr<Entry> const taken = entries_.take(key);
  if (!taken) return;
  detach(*taken->entity);
  notify(loaded.attrs.front()->id, &key);
  end(*taken->entity);
}

Ptr<Entity> Dir::entity(std::string_view name) const {
  Ptr<Entry> const found = entry(name);
  return found ? found->entity : nullptr;
}

Ptr<Dir::Entry> Dir::entry(std::string_view name) const {
  auto const found = entries_.map().find(String(name));
  return found == entries_.map().end() ? nullptr : found->second;
}

bool Dir::isRemovable(std::string_view name) const {
  Ptr<Entry> const found = entry(name);
  if (!found || !found->removable) return false;
  auto const* const dir = dynamic_cast<Dir const*>(found->entity.get());
  return dir == nullptr || std::all_of(dir->entries_.begin(), dir->entries_.end(), [dir](auto const& inner) {
           return dir->isRemovable(inner.first.view());
         });
}

Ptr<Dir> globalDir() {
  static Ptr<Dir>* const root = [] {
    registerDir();
    auto* const made = new Ptr<Dir>(new Dir());
    (*made)->hasNotificationActiveIs(true);
    return made;
  }();
  return *root;
}

} // namespace Kel
