// SPDX-License-Identifier: MIT
//
// GLib's mutex, in front of GLib's: GLib is not built with the thread checker, which without this
// would not know what the lock orders, and would see races where there are none.
#include "Boundary.h"

#include <sanitizer/tsan_interface.h>

gboolean g_mutex_trylock(GMutex* mutex)
{
    static const auto real = boundary::Real(g_mutex_trylock, "g_mutex_trylock");
    const gboolean taken = real(mutex);
    if (taken != FALSE) {
        __tsan_acquire(mutex);
    }
    return taken;
}

void g_mutex_unlock(GMutex* mutex)
{
    static const auto real = boundary::Real(g_mutex_unlock, "g_mutex_unlock");
    __tsan_release(mutex);
    real(mutex);
}
