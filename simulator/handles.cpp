#include "simulator/handles.h"

#include <utility>

namespace simulator {
namespace {

// From the low end: 16 bits place, 28 bits generation, 4 bits kind.
constexpr std::uint32_t kGenerationMask = 0x0FFFFFFF;

std::uint64_t HandleOf(std::size_t index, std::uint32_t generation, HandleKind kind) {
    return std::uint64_t{index} | std::uint64_t{generation} << 16 | static_cast<std::uint64_t>(kind) << 44;
}

}  // namespace

std::uint64_t HandleTable::AddAs(HandleKind kind, std::shared_ptr<void> object) {
    std::size_t index = slots_.size();
    if (!free_.empty()) {
        index = free_.front();
        free_.pop_front();
    } else if (index < kMaxHandles) {
        slots_.push_back({kind, 0, nullptr});
    } else {
        return 0;
    }
    Slot& slot = slots_[index];
    slot.kind = kind;
    slot.generation = (slot.generation + 1) & kGenerationMask;
    slot.object = std::move(object);
    return HandleOf(index, slot.generation, kind);
}

const HandleTable::Slot* HandleTable::SlotOf(std::uint64_t handle, HandleKind kind) const {
    const std::size_t index = handle & 0xFFFF;
    if (index >= slots_.size() || !slots_[index].object) return nullptr;
    const Slot& slot = slots_[index];
    return slot.kind == kind && handle == HandleOf(index, slot.generation, kind) ? &slot : nullptr;
}

bool HandleTable::WasFreed(std::uint64_t handle, HandleKind kind) const {
    const std::size_t index = handle & 0xFFFF;
    const std::uint32_t generation = static_cast<std::uint32_t>(handle >> 16) & kGenerationMask;
    if (index >= slots_.size() || generation == 0 || handle != HandleOf(index, generation, kind)) return false;
    const Slot& slot = slots_[index];
    // A place does not remember the kinds of its earlier objects, so a made-up handle of another kind counts too.
    return generation < slot.generation || (generation == slot.generation && slot.kind == kind && !slot.object);
}

void HandleTable::Free(std::size_t index) {
    slots_[index].object.reset();
    free_.push_back(index);
}

}  // namespace simulator
