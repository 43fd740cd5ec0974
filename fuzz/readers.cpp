// SPDX-License-Identifier: MIT
//
// What is read from files that others wrote: trace stores and the simulated service's scenarios.
#include "Input.h"
#include "Scenario.h"
#include "TraceReader.h"

#include <sstream>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

namespace
{

/** Whatever a reader returns fits its log point, and without damage comes in the order of time. */
void ReadTraceStore(const std::string& content)
{
    static const int file = memfd_create("store", MFD_CLOEXEC);
    Demand(ftruncate(file, 0) == 0);
    Demand(pwrite(file, content.data(), content.size(), 0) == std::ssize(content));
    try {
        trace::Reader reader("/proc/self/fd/" + std::to_string(file));
        std::int64_t last = INT64_MIN;
        bool isSorted = true;
        while (const trace::Record* record = reader.Next()) {
            Demand(trace::Arguments(*record).size() == record->location->arguments.size());
            trace::Message(*record);
            trace::Operation(*record->location);
            isSorted = isSorted && record->time >= last;
            last = record->time;
        }
        Demand(isSorted || reader.Damage());
    } catch (const std::runtime_error&) {
    }
}

void ReadSteps(const std::string& file)
{
    std::istringstream lines(file);
    try {
        Demand(std::ranges::is_sorted(ReadScenario(lines).steps, {}, &Step::at));
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
    default: { // a store of three chunks without most of its zeros
        constexpr std::size_t table = 3 * sizeof(lumo::format::Chunk);
        std::string file = input.Take(sizeof(lumo::format::FileHeader) + table);
        file.resize(lumo::format::kBlock);
        while (!input.IsEmpty()) {
            file += input.Take(500);
            file.resize(file.size() + lumo::format::kChunkSize - 500);
        }
        ReadTraceStore(file);
    }
    }
    return 0;
}
