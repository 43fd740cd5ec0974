// SPDX-License-Identifier: MIT
//
// What is read from files that others wrote: trace stores and the simulated service's scenarios.
#include "Input.h"
#include "Scenario.h"
#include "TraceFormat.h"
#include "TraceStore.h"

#include <sstream>
#include <stdexcept>

namespace
{

/** Whatever is taken into a store's records fits its log point: to show it never throws. */
void ReadTraceStore(const std::string& file)
{
    const std::vector<unsigned char> bytes(file.begin(), file.end()); // aligned, and no longer
    trace::Store store;
    try {
        store = trace::ParseStore(bytes);
    } catch (const std::runtime_error&) {
        return;
    }
    for (const trace::Record& record : store.records) {
        Demand(store.locations.at(record.location->id).get() == record.location);
        Demand(trace::Arguments(record).size() == record.location->arguments.size());
        trace::Message(record);
        trace::Operation(*record.location);
    }
    Demand(std::ranges::is_sorted(store.records, {}, &trace::Record::time));
}

void ReadSteps(const std::string& file)
{
    std::istringstream lines(file);
    try {
        Demand(std::ranges::is_sorted(ReadScenario(lines), {}, &Step::at));
    } catch (const std::invalid_argument&) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    Input input(data, size);
    switch (input.Byte() % 3) {
    case 0:
        ReadSteps(input.Rest());
        break;
    case 1:
        ReadTraceStore(input.Rest());
        break;
    default: { // a store without the zeros behind its header
        std::string file = input.Take(sizeof(lumo::format::FileHeader));
        file.resize(lumo::format::HeaderBlock);
        ReadTraceStore(file + input.Rest());
    }
    }
    return 0;
}
