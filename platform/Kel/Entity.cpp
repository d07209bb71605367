// How names are made of keys, how members are attached and detached, and the end, which goes down to all
// below. Singletons too.
#include "Kel/Entity.h"

#include <absl/strings/str_replace.h>
#include <fmt/format.h>

#include <atomic>
#include <map>
#include <memory>
#include <vector>

#include "Kel/Access.h"
#include "Kel/Attr.h"
#include "Kel/Dir.h"
#include "Kel/EntityAnchor.h"
#include "Kel/Error.h"

namespace Kel {
namespace {

std::uint64_t nextSerial() noexcept {
  static std::atomic<std::uint64_t> last{0};
  return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

using Singletons = std::map<std::string, Ptr<Entity>, std::less<>>;

Singletons& singletons() {
  static auto* const instance = new Singletons();
  return *instance;
}

// "[name=text]". Between the brackets of a key brackets nest, and a backslash takes the next character as it
// is.
void appendGroup(std::string& out, std::string_view name, std::string_view text) {
  out.append(1, '[').append(name).append(1, '=');
  for (char const c : text) {
    if (c == '[' || c == ']' || c == '\\') out += '\\';
    out += c;
  }
  out += ']';
}

bool isStructured(TypeDesc const& type) { return type.kind == TypeKind::Struct && !type.hasGnmiStrRep; }

// A group for each field of a structured key that is set. Fields of fields are named from the outer one on,
// with "__" between, and a string marks a "__" of its own with a backslash, as keys have it in paths.
void appendFields(std::string& out, std::string const& above, Ptr<GenericIf const> const& key) {
  for (KelTypeBase::AttributeQIterator field(key->type()); field; ++field) {
    Ptr<GenericIf const> const value = (*field).genericIfGet(key);
    if (!value) continue;
    std::string const name = above + (*field).name().str();
    if (isStructured(value->type().desc()))
      appendFields(out, name + "__", value);
    else if (String const* const text = value->attrValPtr<String>())
      appendGroup(out, name, absl::StrReplaceAll({text->data(), text->size()}, {{"__", "\\__"}}));
    else
      appendGroup(out, name, value->gnmiStrRep());
  }
}

// Where an entity has its place.
struct Place {
  AttrDesc const* attr;
  Ptr<GenericIf const> key;
};

// The key groups of a member's name: the fields of a structured key, else the index attribute or the
// attribute's name with "Key".
std::string keyGroups(KelAttr attr, Ptr<GenericIf const> const& key) {
  std::string groups;
  if (isStructured(key->type().desc())) {
    appendFields(groups, "", key);
  } else {
    KelAttr const index = attr.indexAttr();
    appendGroup(groups, index ? index.name().str() : attr.name().str() + "Key", key->gnmiStrRep());
  }
  return groups;
}

String nameOf(Place const& place) {
  AttrDesc const& attr = *place.attr;
  if (attr.owner->isDir) return *place.key->attrValPtr<String>();
  return attr.isKeyed ? attr.name.merge(keyGroups(KelAttr(&attr), place.key)) : attr.name;
}

} // namespace

Entity::Entity() : identity_(nextSerial() << 1 | 1) {}

Entity::~Entity() {
  std::unique_ptr<Apart> const apart(this->apart());
  if (apart && apart->anchor) static_cast<EntityAnchor*>(apart->anchor.get())->clear();
}

void Entity::handleZeroRef() const noexcept {
  if (zeroReferencesTold()) {
    delete this;
    return;
  }
  // The observers learn of the end while the object is whole; dropping this pin comes here again.
  Ptr<Entity> const pin(const_cast<Entity*>(this));
  end(*pin);
}

Entity::Apart& Entity::apartMade() const {
  if (apart() == nullptr) identity_ = reinterpret_cast<std::uintptr_t>(new Apart{serial(), nullptr, nullptr});
  return *apart();
}

PtrInterface const& Entity::anchor() const {
  Apart& apart = apartMade();
  if (!apart.anchor) apart.anchor = Ptr<PtrInterface>(new EntityAnchor(*this));
  return *apart.anchor;
}

KelAttr Entity::parentAttr() const noexcept { return KelAttr(parentAttr_); }

Ptr<GenericIf const> Entity::parentKey() const {
  Apart const* const apart = this->apart();
  if (apart != nullptr && apart->parentKey) return apart->parentKey;
  if (parentAttr_ == nullptr || !parentAttr_->isKeyed) return nullptr;
  return Impl::indexOf(*parentAttr_, const_cast<Entity&>(*this));
}

// docs/decisions.md: "How does a full name tell keys apart that hold brackets?"
String Entity::name() const { return parentAttr_ == nullptr ? String() : nameOf({parentAttr_, parentKey()}); }

String Entity::fullName() const {
  std::vector<Place>
      places; // all of them before any key is printed: who prints it may remove what is above it
  for (Entity const* at = this; at->parent_ != nullptr; at = at->parent_)
    places.push_back({at->parentAttr_, at->parentKey()});
  std::string text;
  for (auto place = places.rbegin(); place != places.rend(); ++place) {
    text += '/';
    text += nameOf(*place).view();
  }
  return String(text);
}

void Entity::attach(Entity& parent, AttrDesc const& attr, Ptr<GenericIf const> outsideKey, Entity& child) {
  if (parent.orphan_ || parent.zeroReferencesTold()) {
    throwError(fmt::format("attribute '{}' of type '{}' cannot take an entity: its owner has been removed",
                           attr.name.view(), attr.owner->name.view()));
  }
  if (child.parent_ != nullptr || child.orphan_) {
    throwError(fmt::format("attribute '{}' of type '{}' cannot take an entity that has or had a parent: {}",
                           attr.name.view(), attr.owner->name.view(), child.fullName().view()));
  }
  if (outsideKey) child.apartMade().parentKey = std::move(outsideKey);
  child.parent_ = &parent;
  child.parentAttr_ = &attr;
  child.hasNotificationActiveIs(true);
}

void Entity::placed(Entity& child) {
  try {
    child.handleParent();
  } catch (...) {
    traceRaised("handleParent");
  }
}

// Whoever is to learn of the end is made while the place can still be told.
void Entity::detach(Entity& child) noexcept {
  child.notifiees_.haveMade(child);
  child.parent_ = nullptr;
  child.parentAttr_ = nullptr;
  child.orphan_ = true;
  placed(child);
}

void Entity::end(Entity& entity) {
  if (entity.zeroReferencesTold()) return;
  Ptr<Entity> const pin(&entity);
  entity.zeroReferencesIs();
  TypeDesc const& type = entity.fwkType().desc();
  for (auto const& attr : type.attrs) {
    if (!attr->isInstantiating) continue;
    attr->access->visitChildren(*attr, entity, [](Entity& child) {
      detach(child);
      end(child);
    });
  }
  for (auto const& attr : type.attrs)
    attr->access->dropReferences(*attr, entity);
}

AttrDesc const& Entity::attrOf(void const* member) const {
  TypeDesc const& type = fwkType().desc();
  auto const offset = static_cast<unsigned char const*>(member) -
                      reinterpret_cast<unsigned char const*>(static_cast<PtrInterface const*>(this));
  AttrDesc const* const attr = type.attrByOffset(static_cast<std::size_t>(offset));
  if (attr == nullptr) {
    throwError(
        fmt::format("type '{}' declares no attribute at offset {} of its class", type.name.view(), offset));
  }
  return *attr;
}

void Entity::told(void const* member, void const* rawKey) const {
  notifiees_.visit(*this, attrOf(member).id, rawKey);
}

void Entity::attachMember(void const* member, Ptr<GenericIf const> keyHandle, Entity& child) {
  AttrDesc const& attr = attrOf(member);
  if (keyHandle) Impl::keyInto(attr, *keyHandle, child);
  if (!attr.indexName.empty()) keyHandle.reset();
  attach(*this, attr, std::move(keyHandle), child);
}

bool Entity::singletonExists(std::string_view name) { return singletons().contains(name); }

Ptr<Entity> Entity::singletonIs(KelType type, std::string_view name) {
  if (auto const found = singletons().find(name); found != singletons().end()) {
    if (!found->second->fwkType().desc().isA(type.desc())) {
      throwError(fmt::format("the singleton '{}' is of type '{}', not '{}'", name,
                             found->second->fwkType().name().view(), type.name().view()));
    }
    return found->second;
  }
  Ptr<Entity> made = dynamicPtrCast<Entity>(Impl::construct(type.desc(), {}));
  if (!made)
    throwError(fmt::format("type '{}' cannot be a singleton: it makes no entity", type.name().view()));
  made->hasNotificationActiveIs(true);
  singletons().emplace(name, made);
  return made;
}

void Entity::singletonDel(std::string_view name) {
  auto const found = singletons().find(name);
  if (found == singletons().end()) return;
  Ptr<Entity> const going = std::move(found->second);
  singletons().erase(found);
  detach(*going);
  end(*going);
}

} // namespace Kel
