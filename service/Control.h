// SPDX-License-Identifier: MIT
/**
 * @file Control.h
 * What the simulated service can be told: by the bus, on the command line, in a scenario. All three
 * come down to a Control, so that all three can do the same and are checked alike.
 */
#ifndef ZAV_SERVICE_CONTROL_H
#define ZAV_SERVICE_CONTROL_H

#include "Variant.h"

#include <string>
#include <string_view>

inline constexpr const char* generalFailure = "org.freedesktop.DBus.Error.Failed";

/** Made only by the functions below, which throw std::invalid_argument for what cannot be done. */
struct Control
{
    enum class Kind
    {
        Delay,
        Fail,
        Hang,
        Reply,
        Emit,
        Reset,
        Quit
    };

    static Control Delay(const std::string& method, guint milliseconds);
    static Control Fail(const std::string& method, const std::string& error);
    static Control Hang(const std::string& method);
    /** @param body a tuple is the whole body, "@av []" an empty one, all else its one member */
    static Control Reply(const std::string& method, const Variant& body);
    /** @param body as with Reply */
    static Control Emit(const std::string& signal, const Variant& body);

    /**
     * Reads a control in its text form:
     *
     *     delay METHOD=MILLISECONDS    hang METHOD          emit SIGNAL[=BODY]    quit
     *     fail METHOD[=ERROR_NAME]     reply METHOD=BODY    reset
     *
     * BODY is in GVariant's text form.
     * @param verb the first word
     * @param text the rest
     */
    static Control Parse(std::string_view verb, const std::string& text);

    Kind kind = Kind::Reset;
    std::string name = {};  // of the method or signal
    guint milliseconds = 0; // Delay
    std::string error = {}; // Fail
    Variant body = {};      // Reply, Emit: a tuple
};

#endif
