/// @file
/// Where a store says what it met: a provider traces it, a tool prints it.
#pragma once

#include <string>

namespace storage {

enum class Severity { information, warning, error };

class Report {
public:
    virtual ~Report() = default;

    /// @param text  one line: what was wrong, with which file and value, and what to do.
    virtual void add(Severity severity, const std::string &text) = 0;
};

} // namespace storage
