#include "platform/sockets/linux/known_owners.h"

#include <algorithm>

namespace platform {

namespace {

constexpr std::size_t maximumOwners = 32, maximumPlaces = 16'384;
constexpr std::size_t maximumDescriptors = 16'384;  // per process; higher ones count as new each time

}  // namespace

void KnownProcess::note(std::size_t number, Inode inode) {
  if (number >= maximumDescriptors) return;
  if (number >= descriptors_.size()) descriptors_.resize(number + 1, notSeen);
  descriptors_[number] = inode;
}

std::optional<KnownOwners::Place> KnownOwners::place(Inode inode) {
  std::lock_guard lock(mutex_);
  auto found = places_.find(inode);
  return found == places_.end() ? std::nullopt : std::make_optional(found->second);
}

void KnownOwners::notePlace(Inode inode, Place place) {
  std::lock_guard lock(mutex_);
  if (places_.size() >= maximumPlaces) places_.clear();
  places_.insert_or_assign(inode, place);
}

void KnownOwners::noteOwner(std::int32_t pid, const SocketEntry& socket) {
  std::lock_guard lock(mutex_);
  auto found =
      std::find_if(owners_.begin(), owners_.end(), [&](const auto& owner) { return owner.process->pid == pid; });
  Owner owner{.process = found == owners_.end() ? std::make_shared<KnownProcess>(pid) : found->process,
              .controlGroup = socket.controlGroup};
  if (found != owners_.end()) owners_.erase(found);
  owners_.push_front(std::move(owner));
  if (owners_.size() > maximumOwners) owners_.pop_back();
}

void KnownOwners::forget(std::int32_t pid) {
  std::lock_guard lock(mutex_);
  std::erase_if(owners_, [&](const auto& owner) { return owner.process->pid == pid; });
}

std::vector<std::shared_ptr<KnownProcess>> KnownOwners::processes(const std::unordered_set<std::uint64_t>& groups,
                                                                  bool inGroups) {
  std::lock_guard lock(mutex_);
  std::vector<std::shared_ptr<KnownProcess>> list;
  for (const auto& owner : owners_) {
    if (groups.contains(owner.controlGroup) == inGroups) list.push_back(owner.process);
  }
  return list;
}

KnownOwners& knownOwners() {
  static auto& owners = *new KnownOwners;  // never destroyed, because look-ups may run while the process ends
  return owners;
}

}  // namespace platform
