// Looking up attributes, making values from raw forms, texts and arguments, comparing two of them. The table
// of modules, too.
#include "Kel/Type.h"

#include <absl/container/flat_hash_map.h>
#include <fmt/format.h>

#include <bit>
#include <cmath>
#include <set>

#include "Kel/Access.h"
#include "Kel/Attr.h"
#include "Kel/Error.h"
#include "Kel/NameIndex.h"
#include "Kel/Text.h"
#include "Tovak/Lock.h"

namespace Kel {

static_assert(std::endian::native == std::endian::little,
              "a narrower integer is read from the low-order bytes of a 64-bit one");

AttrDesc const* TypeDesc::attrByName(std::string_view wanted) const {
  if (!names) return nullptr;
  auto const found = names->byName.find(wanted);
  return found == names->byName.end() ? nullptr : found->second;
}

AttrDesc const* TypeDesc::attrById(AttributeId id) const {
  return id >= 0 && static_cast<std::size_t>(id) < byId.size() ? byId[static_cast<std::size_t>(id)] : nullptr;
}

KelAttr KelTypeBase::attr(std::string_view name) const { return KelAttr(desc_->attrByName(name)); }
KelAttr KelTypeBase::attr(char const* name) const { return attr(std::string_view(name)); }
KelAttr KelTypeBase::attr(AttributeId id) const { return KelAttr(desc_->attrById(id)); }
KelAttr KelTypeBase::attrAt(std::size_t index) const { return KelAttr(desc_->attrs[index].get()); }
KelAttr KelType::valAttr() const { return KelAttr(desc_->valAttr); }

namespace {

void requireValueType(TypeDesc const& type) {
  if (!type.isValueType)
    throwError(fmt::format("type '{}' is no value type: it has no value to make", type.name.view()));
}

KelType::HandleOrText made(TypeDesc const& type, bool active, std::string_view text,
                           std::optional<std::string> (*read)(TypeDesc const&, std::string_view, void*)) {
  if (!type.isValueType)
    return Kstd::Err(fmt::format("type '{}' is no value type: it has no text form", type.name.view()));
  Ptr<GenericIf> handle = GenericIf::defaultOf(type);
  if (auto error = read(type, text, handle->data())) return Kstd::Err(*std::move(error));
  handle->hasNotificationActiveIs(active);
  return handle;
}

} // namespace

Ptr<GenericIf> KelType::genericIf(void const* raw, bool active) const {
  requireValueType(*desc_);
  Ptr<GenericIf> handle = raw == nullptr ? GenericIf::defaultOf(*desc_) : GenericIf::copyOf(*desc_, raw);
  handle->hasNotificationActiveIs(active);
  return handle;
}

Ptr<GenericIf> KelType::genericIf(std::nullptr_t, bool active) const {
  return genericIf(static_cast<void const*>(nullptr), active);
}

Ptr<GenericIf> KelType::genericIf(PtrInterface* object, bool active) const {
  Ptr<GenericIf> handle = GenericIf::toObject(object);
  if (handle) handle->hasNotificationActiveIs(active);
  return handle;
}

Ptr<GenericIf const> KelType::genericIf(PtrInterface const* object) const {
  return GenericIf::toObject(object);
}

KelType::HandleOrText KelType::genericIf(String const& text, bool active) const {
  return made(*desc_, active, text, &Impl::parse);
}

KelType::HandleOrText KelType::genericIfFromGnmiString(String const& text, bool active) const {
  return made(*desc_, active, text, &Impl::parsePlain);
}

Ptr<GenericIf> KelType::genericIf(ArgList const& args, bool active) const {
  Ptr<GenericIf> handle;
  if (desc_->isValueType) {
    if (args.size() > desc_->ctorArgs.size()) {
      throwError(fmt::format("type '{}' takes {} constructor arguments; found {}", desc_->name.view(),
                             desc_->ctorArgs.size(), args.size()));
    }
    handle = GenericIf::defaultOf(*desc_);
    for (std::size_t i = 0; i < args.size(); ++i) {
      AttrDesc const& attr = *desc_->ctorArgs[i];
      if (args[i]) attr.access->init(attr, *handle, *args[i]);
    }
  } else {
    handle = GenericIf::toObject(Impl::construct(*desc_, args).get());
  }
  handle->hasNotificationActiveIs(active);
  return handle;
}

bool KelType::genericIfBooleanOp(GenericIf const& a, AttributeOp op, GenericIf const& b) {
  if (!(a.type() == b.type())) {
    throwError(fmt::format("a value of type '{}' cannot be compared with one of type '{}'",
                           a.type().name().view(), b.type().name().view()));
  }
  int const order = a.compare(b);
  switch (op) {
  case AttributeOp::Equal: return order == 0;
  case AttributeOp::NotEqual: return order != 0;
  case AttributeOp::Less: return order < 0;
  case AttributeOp::LessEqual: return order <= 0;
  case AttributeOp::Greater: return order > 0;
  case AttributeOp::GreaterEqual: return order >= 0;
  case AttributeOp::Get:
  case AttributeOp::Set:
  case AttributeOp::Delete:
  case AttributeOp::Count:
  case AttributeOp::Contains:
  case AttributeOp::Call: break;
  }
  throwError("the operation asked of two values is no comparison");
}

String kelModuleIs(std::string_view name) {
  static Tovak::Locking::Lock lock;
  static auto* const modules = new std::set<String>();
  std::lock_guard const guard(lock);
  return *modules->insert(String::dedup(name)).first;
}

String const& coreModule() {
  static String const* const name = new String(kelModuleIs("Kel"));
  return *name;
}

} // namespace Kel
