// The owner of reference-counted objects of XPC and libdispatch; copies share the object. CoreFoundation objects have
// CFOwner, which does not share them.
#pragma once

#include <utility>

namespace platform::darwin {

/// Keeps an object alive; empty if it holds none. Copies share the object. `Counting` has the static functions retain
/// and release.
template <class Object, class Counting>
class Reference {
 public:
  Reference() = default;
  /// Takes over the reference that a creating, copying or retaining function returned. Null gives an empty owner.
  static Reference adopt(Object object) { return Reference(object); }
  /// Adds a reference to an object that has another owner.
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
