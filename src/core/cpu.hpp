// cpu.hpp - processor identification, read where a decision needs it (never cached).
#pragma once

#include <cstddef>

namespace zyrdc {

// Size in bytes of the processor's last-level data cache, 0 when it does not say.
size_t LastLevelCacheBytes();

// Whether a copy or fill of `len` bytes should use cache-bypassing stores: only when it
// would sweep out a large part of the last-level cache anyway, so that keeping it out
// spares the caller's working set. Changes speed only, never the bytes written.
bool PreferStreamingStores(size_t len);

}  // namespace zyrdc
