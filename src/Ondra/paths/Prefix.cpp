// Children hold their parents, which only know them. The end of a long chain is a loop, not a recursion.
#include "Ondra/Prefix.h"

#include <utility>

#include "Tovak/Allocator.h"
#include "Tovak/Assert.h"
#include "Tovak/Trace.h"

namespace Ondra {
namespace {

Tovak::DebugHandler& debugHandler() {
  static Tovak::DebugHandler& handler = Tovak::Platform::getDebugHandler("OndraPrefix", false);
  return handler;
}

std::shared_ptr<Prefix> makePrefix(Tovak::String const& name, std::shared_ptr<Prefix> const& parent) {
  return std::allocate_shared<Prefix>(Tovak::Allocator<Prefix>(), name, parent);
}

std::string_view nameOf(std::shared_ptr<Prefix> const& prefix) {
  return prefix ? std::string_view(prefix->name()) : std::string_view();
}

} // namespace

Prefix::Prefix(Tovak::String const& name, std::shared_ptr<Prefix> const& parent)
    : parent_(parent)
    , name_(name) {
  TOVAK_TRACE(debugHandler(), 5, "", "prefix:{} parent:{}", name_, nameOf(parent_));
}

Prefix::~Prefix() {
  TOVAK_TRACE(debugHandler(), 5, "", "prefix:{} parent:{}", name_, nameOf(parent_));
  if (!parent_) return;
  parent_->childDel(this);
  // Whoever ends because of this one's end leaves its parent here instead of letting go of it itself.
  static thread_local std::shared_ptr<Prefix>* pending = nullptr;
  if (pending != nullptr) {
    *pending = std::move(parent_);
    return;
  }
  std::shared_ptr<Prefix> next = std::move(parent_);
  pending = &next;
  while (next)
    std::shared_ptr<Prefix> const going = std::move(next);
  pending = nullptr;
}

std::shared_ptr<Prefix> Prefix::child(Tovak::String const& name) const {
  Prefix probe(name, nullptr);
  auto const found = children_.find(&probe);
  return found == children_.end() ? nullptr : (*found)->shared_from_this();
}

std::shared_ptr<Prefix> Prefix::childIs(Tovak::String const& name) {
  if (std::shared_ptr<Prefix> existing = child(name)) return existing;
  std::shared_ptr<Prefix> made = makePrefix(name, shared_from_this());
  children_.insert(made.get());
  return made;
}

void Prefix::childDel(Prefix* child) {
  auto const found = children_.find(child);
  TOVAK_ASSERT(found != children_.end(), debugHandler(), "no prefix:{} found", child->name_);
  children_.erase(found);
}

std::shared_ptr<Prefix> Prefix::prefixIs(std::vector<std::string> const& names,
                                         std::shared_ptr<Prefix> const& root) {
  static std::weak_ptr<Prefix> defaultRoot;
  std::shared_ptr<Prefix> node = root ? root : defaultRoot.lock();
  if (!node) {
    node = makePrefix("", nullptr);
    defaultRoot = node;
  }
  for (std::string const& name : names)
    node = node->childIs(name);
  return node;
}

std::shared_ptr<Prefix> Prefix::prefix(std::vector<std::string> const& names,
                                       std::shared_ptr<Prefix> const& root) {
  std::shared_ptr<Prefix> node = root ? root : prefixIs({}, nullptr);
  for (std::string const& name : names) {
    node = node->child(name);
    if (!node) return nullptr;
  }
  return node;
}

Tovak::String Prefix::path() const {
  std::vector<Prefix const*> upward;
  for (Prefix const* node = this; node != nullptr; node = node->parent_.get())
    upward.push_back(node);
  Tovak::String text;
  for (std::size_t i = upward.size(); i-- > 0;) {
    text += upward[i]->name_;
    if (i != 0) text += '/';
  }
  return text;
}

} // namespace Ondra
