// The continuous clock.
#pragma once

namespace platform {

/// Seconds since an arbitrary moment of this boot; goes on while the machine sleeps, and never goes back.
double continuousSeconds();

}  // namespace platform
