// The owner of XPC's and libdispatch's counted objects, which have several owners; CoreFoundation's have one.
#pragma once

#include <utility>

namespace platform::darwin {

/// Keeps an object alive. Copies share it. Empty when nothing is owned. `Counting` has the static functions retain and
/// release.
template <class Object, class Counting>
class Reference {
 public:
  Reference() = default;
  /// Takes over the reference that came with the object: of functions that create, copy or return retained. Null:
  /// empty.
  static Reference adopt(Object object) { return Reference(object); }
  /// Adds a reference of its own to an object that somebody else owns.
  static Reference share(Object object) {
    if (object) Counting::retain(object);
    return Reference(object);
  }
  Reference(const Reference& other) : Reference(share(other.object_)) {}
  Reference(Reference&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  Reference& operator=(Reference other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~Reference() {
    if (object_) Counting::release(object_);
  }

  explicit operator bool() const { return object_ != nullptr; }
  Object get() const { return object_; }

 private:
  explicit Reference(Object object) : object_(object) {}

  Object object_ = nullptr;
};

}  // namespace platform::darwin
