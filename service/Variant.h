// SPDX-License-Identifier: MIT
/** @file Variant.h A GVariant that releases itself. */
#ifndef ZAV_SERVICE_VARIANT_H
#define ZAV_SERVICE_VARIANT_H

#include <glib.h>

#include <memory>
#include <string>

using Variant = std::shared_ptr<GVariant>;

/** Takes over the caller's reference, or a new, floating value. */
inline Variant Hold(GVariant* value)
{
    return {g_variant_take_ref(value), g_variant_unref};
}

/** The value in GVariant's text form; what GVariant parses back to the same type. */
inline std::string Print(GVariant* value)
{
    const std::unique_ptr<char, decltype(&g_free)> text(g_variant_print(value, TRUE), g_free);
    return text.get();
}

#endif
