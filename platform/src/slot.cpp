#include <atomic>
#include <mutex>
#include <utility>

#include "orrery/platform/home.h"
#include "orrery/platform/services.h"

#include "unavailable.h"

namespace orrery::platform {
namespace {

// The one slot. Readers take the plain pointer, so that a log line costs no lock and no reference count; the owner
// beside it keeps the backend alive. Never destroyed: objects with static lifetime may still log while the process
// ends.
struct Slot {
  std::mutex mutex;
  std::shared_ptr<const Services> owner;
  std::atomic<const Services*> current{nullptr};
};

Slot& slot() {
  static Slot* const theSlot = new Slot;
  return *theSlot;
}

std::shared_ptr<const Services> openEmbeddedDefault() {
  std::shared_ptr<const Services> opened;
  const Status status = openHome(defaultHome(), opened);
  return status.ok() ? opened : unavailableServices(status.text);
}

}  // namespace

void install(std::shared_ptr<const Services> services) {
  const std::lock_guard lock(slot().mutex);
  slot().current.store(services.get(), std::memory_order_release);
  slot().owner = std::move(services);
}

const Services& services() {
  if (const Services* current = slot().current.load(std::memory_order_acquire)) return *current;
  const std::lock_guard lock(slot().mutex);
  if (!slot().owner) {
    slot().owner = openEmbeddedDefault();
    slot().current.store(slot().owner.get(), std::memory_order_release);
  }
  return *slot().owner;
}

std::shared_ptr<const Services> installedServices() {
  const std::lock_guard lock(slot().mutex);
  return slot().owner;
}

}  // namespace orrery::platform
