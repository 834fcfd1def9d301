// An exception of the collections.
#pragma once

#include <stdexcept>

/// The collection was changed while it was being enumerated.
class HXEnumerationMutation : public std::logic_error {
 public:
  HXEnumerationMutation() : logic_error("collection was mutated while being enumerated") {}
};
