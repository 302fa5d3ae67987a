// Handles of the runtime: numbers that say what they stand for and how often their place was used before, so
// that a handle of another kind, of a destroyed object or out of thin air is told from a good one. They stay
// below 2^52 and so survive a trip through a JSON number.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

namespace simulator {

enum class HandleKind : std::uint8_t { kInstance = 1, kSession, kSpace, kActionSet, kAction, kSwapchain, kHandTracker };

struct Action;
struct ActionSet;
struct HandTracker;
struct Instance;
struct Session;
struct Space;
struct Swapchain;

template <class Object>
inline constexpr HandleKind kKindOf = {};
template <>
inline constexpr HandleKind kKindOf<Instance> = HandleKind::kInstance;
template <>
inline constexpr HandleKind kKindOf<Session> = HandleKind::kSession;
template <>
inline constexpr HandleKind kKindOf<Space> = HandleKind::kSpace;
template <>
inline constexpr HandleKind kKindOf<ActionSet> = HandleKind::kActionSet;
template <>
inline constexpr HandleKind kKindOf<Action> = HandleKind::kAction;
template <>
inline constexpr HandleKind kKindOf<Swapchain> = HandleKind::kSwapchain;
template <>
inline constexpr HandleKind kKindOf<HandTracker> = HandleKind::kHandTracker;

// Not synchronised: the runtime's mutex guards it.
class HandleTable {
 public:
    static constexpr std::size_t kMaxHandles = 0xFFFF;

    // 0 when the table is full.
    template <class Object>
    std::uint64_t Add(std::shared_ptr<Object> object) {
        return AddAs(kKindOf<Object>, std::move(object));
    }

    // Null when the handle is not one of a living object of this type.
    template <class Object>
    std::shared_ptr<Object> Find(std::uint64_t handle) const {
        const Slot* slot = SlotOf(handle, kKindOf<Object>);
        return slot ? std::static_pointer_cast<Object>(slot->object) : nullptr;
    }

    // Once stood for an object of this type, which has gone since, by itself or with its parent.
    template <class Object>
    bool WasDestroyed(std::uint64_t handle) const {
        return WasFreed(handle, kKindOf<Object>);
    }

    template <class Object>
    void Remove(std::uint64_t handle) {
        if (SlotOf(handle, kKindOf<Object>)) Free(handle & 0xFFFF);
    }

    template <class Object, class Predicate>
    void RemoveIf(Predicate predicate) {
        for (std::size_t index = 0; index < slots_.size(); ++index) {
            const Slot& slot = slots_[index];
            if (slot.object && slot.kind == kKindOf<Object> && predicate(*static_cast<Object*>(slot.object.get()))) {
                Free(index);
            }
        }
    }

    // Null if there is none.
    template <class Object, class Predicate>
    std::shared_ptr<Object> FindIf(Predicate predicate) const {
        for (const Slot& slot : slots_) {
            if (slot.object && slot.kind == kKindOf<Object> &&
                predicate(*static_cast<const Object*>(slot.object.get()))) {
                return std::static_pointer_cast<Object>(slot.object);
            }
        }
        return nullptr;
    }

    template <class Object, class Predicate>
    std::size_t CountIf(Predicate predicate) const {
        std::size_t count = 0;
        for (const Slot& slot : slots_) {
            if (slot.object && slot.kind == kKindOf<Object> &&
                predicate(*static_cast<const Object*>(slot.object.get()))) {
                ++count;
            }
        }
        return count;
    }

 private:
    struct Slot {
        HandleKind kind;
        std::uint32_t generation;
        std::shared_ptr<void> object;
    };

    std::uint64_t AddAs(HandleKind kind, std::shared_ptr<void> object);
    const Slot* SlotOf(std::uint64_t handle, HandleKind kind) const;
    bool WasFreed(std::uint64_t handle, HandleKind kind) const;
    void Free(std::size_t index);

    std::vector<Slot> slots_;
    std::deque<std::size_t> free_;
};

}  // namespace simulator
