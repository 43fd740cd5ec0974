// SPDX-License-Identifier: MIT
/** @file ZavService.h The simulated service itself: its state, and its answer to each method. */
#ifndef ZAV_SERVICE_ZAVSERVICE_H
#define ZAV_SERVICE_ZAVSERVICE_H

#include "Variant.h"

#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

/** What the methods do and which signals they cause is told in org.kelmar.tv.zav.xml. */
struct ZavService
{
    using Emit = std::function<void(const std::string& signal, const Variant& body)>;

    /**
     * @param onSignal sends a signal
     * @throw std::runtime_error when a method of the interface has no answer
     */
    explicit ZavService(Emit onSignal);

    /**
     * Carries out a method of the interface, and sends the signals that it causes.
     * @param args of the method's types
     * @return the reply's body
     */
    Variant Answer(const std::string& method, GVariant* args);

    Emit emit;

    // Truth values are int as well, so that one getter serves replies of "b" and of "i".
    int soundBarConnected = 1;
    int speakerSelection = 0;
    int wooferLevel = 0;
    int wooferState = 1;
    int wooferModeAvailable = 1;
    int ready = 1;
    int earc = 0;
    int corvala = 1;
    int preTrial = 0;
    int equalizerAvailable = 1;
    int featureSupport = 1;
    int mode = 0;
    int modeMask = 0x1fff; // every mode that has a name to show
    std::vector<gint32> equalizer = std::vector<gint32>(7);
    std::set<int> capableDevices;
    std::vector<std::pair<std::string, gint32>> speakers = { // name, connection type
        {"Front left", 1},
        {"Front right", 1},
        {"Rear", 2}};
};

#endif
