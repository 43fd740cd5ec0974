// SPDX-License-Identifier: MIT
/** @file ZavService.h The simulated service itself: its state, and its answer to each method. */
#ifndef ZAV_SERVICE_ZAVSERVICE_H
#define ZAV_SERVICE_ZAVSERVICE_H

#include "Variant.h"

#include <set>
#include <string>
#include <vector>

struct Signal
{
    std::string name;
    Variant body;
};

struct Speaker
{
    std::string name;
    gint32 connectType;
};

/** What the methods do and which signals they cause is told in org.kelmar.tv.zav.xml. */
struct ZavService
{
    /** @throw std::runtime_error when a method of the interface has no answer */
    ZavService();

    /**
     * Carries out a method of the interface.
     * @param args of the method's types
     * @return the reply's body; what is to be emitted is added to `signals`
     */
    Variant Answer(const std::string& method, GVariant* args);

    std::vector<Signal> signals;

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
    std::vector<Speaker> speakers = {{"Front left", 1}, {"Front right", 1}, {"Rear", 2}};
};

#endif
