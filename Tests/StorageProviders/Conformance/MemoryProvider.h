/// @file
/// A provider of the tests' own, in memory; written apart from the others on purpose.
#pragma once

#include "ProviderUnderTest.h"

namespace test {

class MemoryProvider : public ProviderUnderTest {
public:
    ~MemoryProvider() override;

    IStorageProvider *table() override;
    EAFResult setFile(unsigned long locationId, const std::string &file) override;
    EAFResult statistics(unsigned long locationId, SStorageStatistics *statistics) override;
    void close() override;
    bool sharesFiles() const override { return true; }

    void makeUnreadable(const std::string &folder) override;
    void makeReadable(const std::string &folder) override;
    void refuseWrites() override;
    void allowWrites() override;
};

} // namespace test
