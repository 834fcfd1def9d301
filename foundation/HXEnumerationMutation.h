// What happens to a walk over a collection that is changed meanwhile.
#pragma once

#include <stdexcept>

/// The collection was changed while it was being enumerated.
class HXEnumerationMutation : public std::logic_error {
 public:
  HXEnumerationMutation() : logic_error("collection was mutated while being enumerated") {}
};
