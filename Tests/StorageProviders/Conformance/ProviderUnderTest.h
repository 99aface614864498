/// @file
/// What the conformance suite needs of a provider.
#pragma once

#include <memory>
#include <string>

#include "IStorageProvider.h"
#include "SStorageStatistics.h"

namespace test {

class ProviderUnderTest {
public:
    virtual ~ProviderUnderTest() = default;

    virtual IStorageProvider *table() = 0;
    virtual EAFResult setFile(unsigned long locationId, const std::string &file) = 0;
    virtual EAFResult statistics(unsigned long locationId, SStorageStatistics *statistics) = 0;

    /// Ends the provider's use of its stores, as the end of its process would.
    virtual void close() = 0;

    /// Whether a store is a file that its host names.
    virtual bool keepsFiles() const { return true; }
    /// Whether locations may share a file.
    virtual bool sharesFiles() const { return false; }
};

/// Defined by the test program of each provider.
std::unique_ptr<ProviderUnderTest> makeProvider();

} // namespace test
