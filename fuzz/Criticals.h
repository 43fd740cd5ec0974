// SPDX-License-Identifier: MIT
/** @file Criticals.h Makes a complaint of GLib's a finding. */
#ifndef ZAV_FUZZ_CRITICALS_H
#define ZAV_FUZZ_CRITICALS_H

#include "Input.h"

#include <glib.h>

inline const GLogFunc previousLogFunction = g_log_set_default_handler(
    [](const char*, GLogLevelFlags, const char* message, void*) {
        fprintf(stderr, "GLib: %s\n", message);
        Demand(false);
    },
    nullptr);

#endif
