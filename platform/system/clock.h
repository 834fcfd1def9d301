// The continuous clock.
#pragma once

namespace platform {

/// Seconds since an arbitrary moment of this boot. The clock never goes back and continues while the machine sleeps.
double continuousSeconds();

}  // namespace platform
