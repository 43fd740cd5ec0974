// SPDX-License-Identifier: MIT
#include "lumo.h"

#include <cstdlib>
#include <cxxabi.h>
#include <memory>

namespace lumo
{

TCCallLocation::TCCallLocation() = default;

std::string TSDemangler::Demangle(const char* name)
{
    if (!name) {
        return {};
    }
    const std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(name, nullptr, nullptr, nullptr), &std::free);
    return text ? text.get() : name;
}

// The scope of an emission matters to a trace that ships records from within the process. This
// store lies in a file that outlives the process: nothing is left to do around a record.
TCLogger::TCLogger(const TSCodeLocation&) {}
TCLogger::~TCLogger() = default;

} // namespace lumo
