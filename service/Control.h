// SPDX-License-Identifier: MIT
/**
 * @file Control.h
 * What the simulated service can be told, in its one form: a line of text. The command line, the
 * scenarios and the control interface all take it.
 *
 *     delay METHOD=MILLISECONDS    hang METHOD          emit SIGNAL[=BODY]    clear    reset
 *     fail METHOD[=ERROR_NAME]     reply METHOD=BODY                          quit
 */
#ifndef ZAV_SERVICE_CONTROL_H
#define ZAV_SERVICE_CONTROL_H

#include "Variant.h"

#include <string>

struct Control
{
    /**
     * BODY is in GVariant's text form: a tuple is the whole body, anything else its one member.
     * @throw std::invalid_argument for what is no control or cannot be done
     */
    static Control Parse(const std::string& text);

    std::string verb;
    std::string name = {};  // of the method or signal
    guint milliseconds = 0; // delay
    std::string error = {}; // fail
    Variant body = {};      // reply, emit: a tuple
};

#endif
