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
    ProviderUnderTest() = default;
    virtual ~ProviderUnderTest() = default;
    ProviderUnderTest(const ProviderUnderTest &) = delete;
    ProviderUnderTest &operator=(const ProviderUnderTest &) = delete;

    virtual IStorageProvider *table() = 0;
    virtual EAFResult setFile(unsigned long locationId, const std::string &file) = 0;
    virtual EAFResult statistics(unsigned long locationId, SStorageStatistics *statistics) = 0;

    /// Ends the provider's use of its stores, as the end of its process would.
    virtual void close() = 0;

    /// Whether locations may share a file.
    virtual bool sharesFiles() const { return false; }

    /// Faults. As they stand here they befall a provider that keeps files; another one simulates them.

    /// While no store is open: what lies in the folder can not be read from here on, and is there all the same.
    virtual void makeUnreadable(const std::string &folder);
    virtual void makeReadable(const std::string &folder);
    /// Each write fails from here on, as on a full disk.
    virtual void refuseWrites();
    virtual void allowWrites();
};

/// Defined by the test program of each provider.
std::unique_ptr<ProviderUnderTest> makeProvider();

} // namespace test
