// The raw form of a run-time array: a pointer to its elements, which lie one after the other behind what is
// known of them; null when there are none.
#include <algorithm>
#include <cstring>
#include <map>

#include "Kel/Declare.h"
#include "Kel/Memory.h"
#include "Kel/Slots.h"

namespace Kel::Impl {
namespace {

class SlotArray {
public:
  SlotArray() = default;
  SlotArray(SlotArray const& other) {
    if (other.size() != 0) takeOver(other, other.size());
  }
  SlotArray& operator=(SlotArray const& other) {
    SlotArray copy(other);
    std::swap(block_, copy.block_);
    return *this;
  }
  ~SlotArray() { clear(); }

  [[nodiscard]] std::size_t size() const noexcept { return block_ == nullptr ? 0 : block_->size; }
  [[nodiscard]] void const* at(std::size_t index) const noexcept { return block_->at(index); }
  void append(TypeDesc const& element, void const* raw) {
    if (block_ == nullptr) {
      block_ = Block::make(element, 1);
    } else if (block_->size == block_->room) {
      SlotArray grown;
      grown.takeOver(*this, std::size_t{block_->room} * 2);
      std::swap(block_, grown.block_);
    }
    element.ops.copy(element, block_->at(block_->size), raw);
    ++block_->size;
  }
  void clear() noexcept {
    if (block_ != nullptr) Block::drop(block_);
    block_ = nullptr;
  }

private:
  struct alignas(16) Block {
    TypeDesc const* element;
    std::uint32_t size;
    std::uint32_t room;

    static std::size_t bytes(TypeDesc const& element, std::size_t room) {
      return sizeof(Block) + element.ops.size * room;
    }
    static Block* make(TypeDesc const& element, std::size_t room) {
      return new (kelMemAlloc(bytes(element, room))) Block{&element, 0, static_cast<std::uint32_t>(room)};
    }
    static void drop(Block* block) noexcept {
      TypeDesc const& element = *block->element;
      if (!element.ops.trivial)
        for (std::size_t i = 0; i < block->size; ++i)
          element.ops.destroy(element, block->at(i));
      kelMemFree(block, bytes(element, block->room));
    }
    [[nodiscard]] void* at(std::size_t index) noexcept {
      return reinterpret_cast<unsigned char*>(this + 1) + element->ops.size * index;
    }
  };

  // Becomes a copy with that room. REQUIRES that this one is empty and the other one is not.
  void takeOver(SlotArray const& other, std::size_t room) {
    TypeDesc const& element = *other.block_->element;
    block_ = Block::make(element, room);
    for (; block_->size < other.size(); ++block_->size)
      element.ops.copy(element, block_->at(block_->size), other.block_->at(block_->size));
  }

  Block* block_ = nullptr;
};

SlotArray const& arrayAt(void const* at) { return *static_cast<SlotArray const*>(at); }

int compareArrays(TypeDesc const& type, void const* a, void const* b) {
  SlotArray const& left = arrayAt(a);
  SlotArray const& right = arrayAt(b);
  if (left.size() != right.size()) return left.size() < right.size() ? -1 : 1;
  TypeDesc const& element = *type.elementType;
  for (std::size_t i = 0; i < left.size(); ++i)
    if (int const order = element.ops.compare(element, left.at(i), right.at(i)); order != 0) return order;
  return 0;
}

std::uint64_t hashArray(TypeDesc const& type, void const* at) {
  SlotArray const& array = arrayAt(at);
  std::uint64_t h = array.size();
  for (std::size_t i = 0; i < array.size(); ++i)
    h = hashMix(h, type.elementType->ops.hash(*type.elementType, array.at(i)));
  return h;
}

constexpr TypeDesc::ArrayOps kArrayOps{
    .append =
        [](void* array, GenericIf const& value) {
          static_cast<SlotArray*>(array)->append(value.type().desc(), value.data());
        },
    .clear = [](void* array) { static_cast<SlotArray*>(array)->clear(); },
    .size = [](void const* array) { return arrayAt(array).size(); },
    .at =
        [](TypeDesc const& element, void const* array, std::size_t index) {
          return Ptr<GenericIf const>(GenericIf::copyOf(element, arrayAt(array).at(index)));
        },
};

} // namespace

TypeDesc& slotArrayOf(TypeDesc& element) {
  static auto* const made = new std::map<TypeDesc*, TypeDesc*>();
  TypeDesc*& desc = (*made)[&element];
  if (desc == nullptr) {
    desc = new TypeDesc();
    desc->kind = TypeKind::Array;
    desc->isValueType = desc->isRuntime = true;
    desc->ops = valueOps<SlotArray>();
    desc->ops.compare = &compareArrays;
    desc->ops.hash = &hashArray;
    desc->elementType = &element;
    desc->arrayOps = &kArrayOps;
    completeArrayDesc(*desc);
  }
  return *desc;
}

} // namespace Kel::Impl
